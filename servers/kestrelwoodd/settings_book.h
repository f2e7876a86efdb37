// settings_book.h: every user's settings in memory, and the switches of the daemon itself.
// Holds what the store holds; who writes it has written the store first.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include <kestrelwood/KSWUserSettings.h>

namespace ksw::daemon {

using SettingsPointer = std::shared_ptr<KSWUserSettings>;

/// Any thread may call anything.
class SettingsBook {
public:
    /// The user's settings, a copy; new ones of generation 0 for a user who has none.
    SettingsPointer of(Uid uid) const;
    /// Whether a subsystem is switched on for the user; absent when nobody has switched it.
    std::optional<bool> enablement(Uid uid, const std::string& subsystem) const;
    bool alwaysPosts() const;

    void put(Uid uid, const KSWUserSettings& settings);
    void setAlwaysPosts(bool posts);
    void clear();

private:
    mutable std::mutex mutex_;
    std::unordered_map<Uid, std::shared_ptr<const KSWUserSettings>> settings_;  // guarded by mutex_
    bool alwaysPosts_ = false;                                                  // guarded by mutex_
};

}  // namespace ksw::daemon
