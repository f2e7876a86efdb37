#include <kestrelwood/KSWUserSettings.h>

#include "client/values/user_settings_archive.h"
#include "platform/archive/class_table.h"

namespace ksw {

/// The switches as they stand in an archive.
struct EnablementStatus {
    std::optional<Dictionary> byIdentifier;
};

struct UserSettingsFields {
    bool rosterMigrated = false;
    bool pellucidLoginItemsMigrated = false;
    bool almanacItemsImported = false;
    Uid uid = 0;
    std::int64_t generation = 0;
    EnablementStatus enablementStatus;
};

struct UserSettingsAccess {
    static UserSettingsFields& fields(KSWUserSettings& settings) { return *settings.fields_; }
};

}  // namespace ksw

using ksw::UserSettingsAccess;
using ksw::UserSettingsFields;

namespace {

using ksw::Dictionary;
using ksw::Value;
using ksw::archive::field;
using ksw::archive::ValueKinds;

bool isNumberOrText(const Value& value) {
    return std::visit([]<class T>(const T&) { return std::is_arithmetic_v<T> || std::same_as<T, std::string>; },
                      value.storage());
}

/// Whether there is nothing but numbers, texts and dictionaries of them, however deep.
bool holdsSwitchesOnly(const Dictionary& status) {
    std::vector<const Dictionary*> left{&status};
    while (!left.empty()) {
        const Dictionary& dictionary = *left.back();
        left.pop_back();
        for (const auto& [identifier, value] : dictionary) {
            if (const auto* inner = value.as<Dictionary>()) {
                left.push_back(inner);
            } else if (!isNumberOrText(value)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

/// What is no dictionary of switches reads as none: it must not cost a user the rest of the record.
template <>
struct ksw::archive::FieldForm<ksw::EnablementStatus> {
    static bool isPresent(const EnablementStatus& status) { return status.byIdentifier.has_value(); }
    static void write(Writer& writer, const FieldInfo& row, const EnablementStatus& status) {
        FieldForm<Dictionary>::write(writer, row, *status.byIdentifier);
    }
    static bool read(Reader& reader, const FieldInfo& row, EnablementStatus& status) {
        Value value;
        if (!FieldForm<Value>::read(reader, row, value)) {
            return false;
        }
        auto* dictionary = value.as<Dictionary>();
        if (dictionary != nullptr && holdsSwitchesOnly(*dictionary)) {
            status.byIdentifier = std::move(*dictionary);
        }
        return true;
    }
};

namespace {

constexpr auto kFields = ksw::archive::fieldTable(
    field<&UserSettingsFields::generation>("generation"),
    field<&UserSettingsFields::rosterMigrated>("rosterMigrated"),
    field<&UserSettingsFields::pellucidLoginItemsMigrated>("pellucidLoginItemsMigrated"),
    field<&UserSettingsFields::almanacItemsImported>("almanacItemsImported"),
    field<&UserSettingsFields::enablementStatus>("enablementStatus", {.kinds = ValueKinds::Any}));

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
    settings->fields_->enablementStatus.byIdentifier.emplace();
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
    return fields_->enablementStatus.byIdentifier;
}
std::optional<ksw::Dictionary>& KSWUserSettings::enablementStatusByIdentifier() {
    return fields_->enablementStatus.byIdentifier;
}
void KSWUserSettings::setEnablementStatusByIdentifier(std::optional<ksw::Dictionary> status) {
    fields_->enablementStatus.byIdentifier = std::move(status);
}
