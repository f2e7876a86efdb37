// KSWUserSettings.h: what the management daemon keeps about a user.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/value.h>

namespace ksw {
struct UserSettingsFields;
struct UserSettingsAccess;
}  // namespace ksw

/// One user's settings: which migrations of older stores have been done, a generation that the daemon compares when
/// the record is saved, and the enablement of subsystems. A copy in hand; one thread at a time.
class KSW_EXPORT KSWUserSettings {
public:
    /// A record with nothing in it, not even a dictionary: what decoding starts from.
    KSWUserSettings();
    ~KSWUserSettings();
    KSWUserSettings(const KSWUserSettings&) = delete;
    KSWUserSettings& operator=(const KSWUserSettings&) = delete;

    /// A new record: all flags false, uid 0, generation 0 and an empty dictionary. Never null.
    static std::shared_ptr<KSWUserSettings> init();

    /// A record of its own with the same values.
    std::shared_ptr<KSWUserSettings> copyWithZone() const;
    std::shared_ptr<KSWUserSettings> copy() const { return copyWithZone(); }

    /// Whether what the older stores of these names hold has been taken over.
    bool rosterMigrated() const;
    void setRosterMigrated(bool migrated);
    bool pellucidLoginItemsMigrated() const;
    void setPellucidLoginItemsMigrated(bool migrated);
    bool almanacItemsImported() const;
    void setAlmanacItemsImported(bool imported);
    /// The user whom the record belongs to. Does not travel.
    ksw::Uid uid() const;
    void setUid(ksw::Uid uid);
    std::int64_t generation() const;
    void setGeneration(std::int64_t generation);
    /// The enablement status (a number) by subsystem identifier; absent when the daemon sent none, or one that
    /// holds anything but numbers, texts and dictionaries.
    const std::optional<ksw::Dictionary>& enablementStatusByIdentifier() const;
    std::optional<ksw::Dictionary>& enablementStatusByIdentifier();
    void setEnablementStatusByIdentifier(std::optional<ksw::Dictionary> status);

private:
    friend struct ksw::UserSettingsAccess;

    std::unique_ptr<ksw::UserSettingsFields> fields_;
};
