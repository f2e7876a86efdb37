#include "servers/kestrelwoodd/settings_book.h"

#include <type_traits>

namespace ksw::daemon {

namespace {

/// A switch as clients write it: any number, 0 for off.
std::optional<bool> switchIn(const Value& value) {
    return std::visit(
        []<class T>(const T& content) -> std::optional<bool> {
            if constexpr (std::is_arithmetic_v<T>) {
                return content != T{};
            } else {
                return std::nullopt;
            }
        },
        value.storage());
}

}  // namespace

SettingsPointer SettingsBook::of(Uid uid) const {
    const std::lock_guard lock(mutex_);
    const auto found = settings_.find(uid);
    SettingsPointer settings = found == settings_.end() ? KSWUserSettings::init() : found->second->copy();
    settings->setUid(uid);
    return settings;
}

std::optional<bool> SettingsBook::enablement(Uid uid, const std::string& subsystem) const {
    const std::lock_guard lock(mutex_);
    const auto found = settings_.find(uid);
    if (found == settings_.end() || !found->second->enablementStatusByIdentifier()) {
        return std::nullopt;
    }
    const Dictionary& status = *found->second->enablementStatusByIdentifier();
    const auto value = status.find(subsystem);
    return value == status.end() ? std::nullopt : switchIn(value->second);
}

bool SettingsBook::alwaysPosts() const {
    const std::lock_guard lock(mutex_);
    return alwaysPosts_;
}

void SettingsBook::put(Uid uid, const KSWUserSettings& settings) {
    std::shared_ptr<const KSWUserSettings> copy = settings.copy();
    const std::lock_guard lock(mutex_);
    settings_[uid].swap(copy);
}

void SettingsBook::setAlwaysPosts(bool posts) {
    const std::lock_guard lock(mutex_);
    alwaysPosts_ = posts;
}

void SettingsBook::clear() {
    const std::lock_guard lock(mutex_);
    settings_.clear();
    alwaysPosts_ = false;
}

}  // namespace ksw::daemon
