// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/qt/MorvaneError.h>

#include <QList>
#include <QObject>
#include <memory>
#include <optional>
#include <stop_token>

/// A piece of work that a MorvaneFileClient has begun.
///
///     auto* const writing = client->writeAcl(acl, MorvaneFileClient::WhenRefused);
///     connect(cancelButton, &QPushButton::clicked, writing, &MorvaneFileOperation::cancel);
///     connect(writing, &MorvaneFileOperation::finished, this, [this, writing] {
///         if (writing->error())
///             QMessageBox::warning(this, {}, writing->error().text());
///     });
///
/// It is a child of its client and deletes itself once the program is back in the event loop after
/// finished(). Who deletes it, or the client, before then cancels it and hears no more of it.
/// Used on the thread of its client.
class MORVANE_EXPORT MorvaneFileOperation : public QObject {
    Q_OBJECT

  public:
    ~MorvaneFileOperation() override;

    bool isFinished() const;
    /// None before the end.
    const MorvaneError& error() const;

    /// How many files and folders have what they inherit now, and for how many that failed, in a
    /// propagation: so far, and after finished() as a whole.
    qint64 itemsDone() const;
    qint64 itemsFailed() const;

  public Q_SLOTS:
    /// Asks for the end; finished() still comes. What has not been sent to a service is not sent,
    /// and the error says so (MorvaneError::isCancellation()); otherwise the service decides what
    /// it still does.
    void cancel();

  Q_SIGNALS:
    /// It is at work. `sizes` are the bytes counted so far, of the items that were asked for, in
    /// their order (negative: unknown); empty where there is nothing to count.
    void progress(const QList<qint64>& sizes);
    /// itemsDone() and itemsFailed() are others now.
    void itemsCounted();
    /// Comes once, after progress() and never inside the call that has begun the work.
    void finished();

  protected:
    explicit MorvaneFileOperation(QObject* parent);

  private:
    friend class MorvaneFileClient;
    struct MORVANE_INTERNAL State;

    std::stop_token stopToken() const;
    void count(const morvane::MVItemCounts& counts);
    void finish(morvane::NSErrorRef error);

    const std::unique_ptr<State> state_;
};

/// An operation that has an answer.
template <class Answer>
class MorvaneAnswer final : public MorvaneFileOperation {
  public:
    /// Whether there is one: after finished(), and with an error only where something is known all
    /// the same (rename(), sizes()).
    bool hasAnswer() const { return answer_->has_value(); }
    /// What was asked for. Throws std::bad_optional_access where there is none.
    const Answer& answer() const { return answer_->value(); }

  private:
    friend class MorvaneFileClient;
    explicit MorvaneAnswer(QObject* parent) : MorvaneFileOperation(parent) {}

    // It is held apart from the operation, as it may be filled after that has gone.
    const std::shared_ptr<std::optional<Answer>> answer_ =
        std::make_shared<std::optional<Answer>>();
};
