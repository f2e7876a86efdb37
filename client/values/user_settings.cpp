#include <kestrelwood/KSWUserSettings.h>

#include "client/values/user_settings_archive.h"
#include "platform/archive/class_table.h"

namespace ksw {

struct UserSettingsFields {
    bool rosterMigrated = false;
    bool pellucidLoginItemsMigrated = false;
    bool almanacItemsImported = false;
    Uid uid = 0;
    std::int64_t generation = 0;
    std::optional<Dictionary> enablementStatusByIdentifier;
};

struct UserSettingsAccess {
    static UserSettingsFields& fields(KSWUserSettings& settings) { return *settings.fields_; }
};

}  // namespace ksw

using ksw::UserSettingsAccess;
using ksw::UserSettingsFields;

namespace {

using ksw::archive::field;
using ksw::archive::ValueKinds;

constexpr auto kFields = ksw::archive::fieldTable(
    field<&UserSettingsFields::generation>("generation"),
    field<&UserSettingsFields::rosterMigrated>("rosterMigrated"),
    field<&UserSettingsFields::pellucidLoginItemsMigrated>("pellucidLoginItemsMigrated"),
    field<&UserSettingsFields::almanacItemsImported>("almanacItemsImported"),
    field<&UserSettingsFields::enablementStatusByIdentifier>(
        "enablementStatus", {.kinds = ValueKinds::Number | ValueKinds::String | ValueKinds::Dictionary}));

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWUserSettings, &UserSettingsAccess::fields>("KSWUserSettings", kFields);

}  // namespace

const ksw::archive::ClassInfo& archiveClass(const KSWUserSettings* /*settings*/) {
    return kClass;
}

KSWUserSettings::KSWUserSettings() : fields_(std::make_unique<UserSettingsFields>()) {}

KSWUserSettings::~KSWUserSettings() = default;

std::shared_ptr<KSWUserSettings> KSWUserSettings::init() {
    auto settings = std::make_shared<KSWUserSettings>();
    settings->fields_->enablementStatusByIdentifier.emplace();
    return settings;
}

std::shared_ptr<KSWUserSettings> KSWUserSettings::copyWithZone() const {
    auto settings = std::make_shared<KSWUserSettings>();
    *settings->fields_ = *fields_;
    return settings;
}

bool KSWUserSettings::rosterMigrated() const {
    return fields_->rosterMigrated;
}
void KSWUserSettings::setRosterMigrated(bool migrated) {
    fields_->rosterMigrated = migrated;
}
bool KSWUserSettings::pellucidLoginItemsMigrated() const {
    return fields_->pellucidLoginItemsMigrated;
}
void KSWUserSettings::setPellucidLoginItemsMigrated(bool migrated) {
    fields_->pellucidLoginItemsMigrated = migrated;
}
bool KSWUserSettings::almanacItemsImported() const {
    return fields_->almanacItemsImported;
}
void KSWUserSettings::setAlmanacItemsImported(bool imported) {
    fields_->almanacItemsImported = imported;
}
ksw::Uid KSWUserSettings::uid() const {
    return fields_->uid;
}
void KSWUserSettings::setUid(ksw::Uid uid) {
    fields_->uid = uid;
}
std::int64_t KSWUserSettings::generation() const {
    return fields_->generation;
}
void KSWUserSettings::setGeneration(std::int64_t generation) {
    fields_->generation = generation;
}
const std::optional<ksw::Dictionary>& KSWUserSettings::enablementStatusByIdentifier() const {
    return fields_->enablementStatusByIdentifier;
}
std::optional<ksw::Dictionary>& KSWUserSettings::enablementStatusByIdentifier() {
    return fields_->enablementStatusByIdentifier;
}
void KSWUserSettings::setEnablementStatusByIdentifier(std::optional<ksw::Dictionary> status) {
    fields_->enablementStatusByIdentifier = std::move(status);
}
