// Users' settings and the daemon's own switches: how they change, and how they are read at the start.
#include <kestrelwood/KSWErrors.h>

#include "client/values/user_settings_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

SettingsPointer settingsIn(Bytes record) {
    archive::DecodeBudget budget(record.size());
    const archive::ReadOptions options{archive::Coder::ServiceConnection, archive::Cycles::Refused};
    Result<archive::Unarchived<KSWUserSettings>> read =
        archive::unarchive<KSWUserSettings>(record, options, budget);
    return read ? read->root->copy() : nullptr;
}

}  // namespace

std::int64_t Registry::saveSettings(Uid uid, const KSWUserSettings& settings) {
    const std::lock_guard one(writing_);
    if (settings.generation() != settings_.of(uid)->generation()) {
        return KSWErrorInvalidGeneration;
    }
    return keepSettings(uid, settings);
}

std::int64_t Registry::setEnablement(Uid uid, const std::string& subsystem, std::optional<bool> isEnabled) {
    const std::lock_guard one(writing_);
    const SettingsPointer settings = settings_.of(uid);
    std::optional<Dictionary>& status = settings->enablementStatusByIdentifier();
    if (!status) {
        status.emplace();
    }
    if (isEnabled) {
        status->insert_or_assign(subsystem, Value(std::int64_t{*isEnabled ? 1 : 0}));
    } else if (status->erase(subsystem) == 0) {
        return KSWErrorNone;
    }
    return keepSettings(uid, *settings);
}

std::int64_t Registry::keepSettings(Uid uid, const KSWUserSettings& settings) {
    const SettingsPointer next = settings.copy();
    next->setUid(uid);
    next->setGeneration(nextGeneration(settings.generation()));
    Result<Data> record = archive::archive(*next, archive::Coder::ServiceConnection);
    if (!record || record->size() > limits::kFieldMax) {
        return KSWErrorInvalidParameter;
    }
    Edit edit;
    nameUser(edit, uid);
    edit.change.settings.push_back({uid, *std::move(record)});
    const Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        settings_.put(uid, *next);
    }
    return outcome.code;
}

std::int64_t Registry::setAlwaysPosts(bool posts) {
    const std::lock_guard one(writing_);
    Edit edit;
    edit.change.alwaysPosts = posts;
    const Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        settings_.setAlwaysPosts(posts);
    }
    return outcome.code;
}

Status Registry::readKept() {
    Status read = store_.readSettings([this](Uid uid, Bytes record) {
        if (const SettingsPointer settings = settingsIn(record)) {
            settings_.put(uid, *settings);
        } else {
            logError("the settings of user " + std::to_string(uid) + " are damaged and left out");
        }
    });
    if (!read) {
        return read;
    }
    const Result<bool> posts = store_.readAlwaysPosts();
    if (!posts) {
        return posts.error();
    }
    settings_.setAlwaysPosts(*posts);
    return {};
}

}  // namespace ksw::daemon
