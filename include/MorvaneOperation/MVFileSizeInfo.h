// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <cstdint>
#include <memory>
#include <string>

namespace morvane {

inline constexpr const char* MVFileSizeBaseChanged = "MVFileSizeBaseChanged";

/// The formatter of file sizes: a byte count becomes a short text such as "123.5 MB".
///
///     show(MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(1500, true));   // 1.5 KB
///
/// The user chooses between decimal units and units of 1024 through the boolean user default
/// "useBase2MathForSizes". On every change of it the formatter takes over the new base and posts
/// "MVFileSizeBaseChanged" with itself as the object, on the thread that made the change.
///
/// The one instance is made on first use, posts the notification once while it is made (an observer
/// of that post may already use it), and lives as long as the process. Making it and formatting are
/// safe from any thread; a text that is made at the moment of a change may mix both bases. The unit
/// labels are the host's to replace, on its main thread.
class MORVANE_EXPORT MVFileSizeInfo final : public NSObservable, private NSKeyValueObserver {
    /// Only init() can make one.
    struct Private {
        explicit Private() = default;
    };

  public:
    /// The user default.
    static const NSKeyPath useBase2MathForSizesKeyPath;
    static const NSKeyPath byteUnitsKeyPath;
    static const NSKeyPath kilobyteUnitsKeyPath;
    static const NSKeyPath megabyteUnitsKeyPath;
    static const NSKeyPath gigabyteUnitsKeyPath;
    static const NSKeyPath terabyteUnitsKeyPath;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    static const std::shared_ptr<MVFileSizeInfo>& sharedFileSizeInfo();
    /// The shared instance, made if there is none yet.
    static const std::shared_ptr<MVFileSizeInfo>& init();

    explicit MVFileSizeInfo(Private) {}
    ~MVFileSizeInfo() override;

    /// The text for a size in bytes; "--" for a negative one. With `allowBytes` a size under one
    /// kilobyte is shown in bytes. At most one decimal, always with a point; never grouped, never
    /// localised.
    std::string stringWithFileSize(std::int64_t size, bool allowBytes) const;

    /// Reads the user default again, takes over its base and posts "MVFileSizeBaseChanged".
    void updateConstants();

    /// The callback of the user default; calls updateConstants() whatever changed.
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override;

    const std::string& byteUnits() const;
    void setByteUnits(std::string units);
    const std::string& kilobyteUnits() const;
    void setKilobyteUnits(std::string units);
    const std::string& megabyteUnits() const;
    void setMegabyteUnits(std::string units);
    const std::string& gigabyteUnits() const;
    void setGigabyteUnits(std::string units);
    const std::string& terabyteUnits() const;
    void setTerabyteUnits(std::string units);

  private:
    struct Shared;
    static Shared& shared();

    void setUp();

    bool observing_ = false;
    std::string byteUnits_ = "bytes";
    std::string kilobyteUnits_ = "KB";
    std::string megabyteUnits_ = "MB";
    std::string gigabyteUnits_ = "GB";
    std::string terabyteUnits_ = "TB";
};

}  // namespace morvane
