// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <QString>
#include <QStringList>
#include <QUrl>
#include <optional>
#include <vector>

/// Converts the texts and URLs of the library to those of Qt and back.

/// In the language of the user. What is not UTF-8 is replaced.
inline QString shown(const morvane::Phrase& phrase) {
    return QString::fromStdString(phrase.localized());
}

inline QStringList shownLosses(const std::vector<morvane::EntryLoss>& losses) {
    QStringList texts;
    for (const auto& text : morvane::textsOfLosses(losses))
        texts << shown(text);
    return texts;
}

// A QUrl has the bytes of a path that are not UTF-8 as percent escapes, and is asked for them.

/// Returns nothing for a URL that is not whole.
inline std::optional<morvane::NSURL> placeOf(const QUrl& url) {
    return morvane::NSURL::URLWithString(url.toEncoded().toStdString());
}

inline QUrl urlOf(const morvane::NSURL& place) {
    return QUrl::fromEncoded(QByteArray::fromStdString(place.absoluteString()));
}
