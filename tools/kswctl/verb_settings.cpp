// What the daemon keeps about a user.
#include <memory>

#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

using Settings = std::shared_ptr<KSWUserSettings>;

/// Each loss means that somebody else's change went through, so losing so often in a row takes a flood of them.
constexpr int kAttempts = 16;

struct Setting {
    const char* name;
    bool (KSWUserSettings::*get)() const;
    void (KSWUserSettings::*set)(bool value);
};

constexpr Setting kSettings[] = {
    {"rosterMigrated", &KSWUserSettings::rosterMigrated, &KSWUserSettings::setRosterMigrated},
    {"pellucidLoginItemsMigrated", &KSWUserSettings::pellucidLoginItemsMigrated,
     &KSWUserSettings::setPellucidLoginItemsMigrated},
    {"almanacItemsImported", &KSWUserSettings::almanacItemsImported, &KSWUserSettings::setAlmanacItemsImported},
};

void print(const KSWUserSettings& settings, const Options& options) {
    Record record = Record::object({{"uid", settings.uid()}, {"generation", settings.generation()}});
    for (const Setting& setting : kSettings) {
        record[setting.name] = (settings.*setting.get)();
    }
    const auto& status = settings.enablementStatusByIdentifier();
    record["enablementStatus"] = status ? recordOf(*status) : Record(nullptr);
    tools::print(record, formOf(options));
}

void change(KSWUserSettings& settings, const Options& options) {
    for (const Setting& setting : kSettings) {
        if (options.name == setting.name) {
            (settings.*setting.set)(options.turnedOn);
        }
    }
}

}  // namespace

ExitStatus showSettings(const Options& options) {
    const Settings settings = KSWManager::shared().userSettingsForUID(options.uid);
    if (settings == nullptr) {
        return complainOfRefusal(options.uid, "the daemon gave no settings");
    }
    print(*settings, options);
    return ExitStatus::Done;
}

ExitStatus setSetting(const Options& options) {
    KSWManager& manager = KSWManager::shared();
    Settings settings = manager.userSettingsForUID(options.uid);
    for (int attempt = 1; settings != nullptr; ++attempt) {
        change(*settings, options);
        if (manager.saveUserSettings(settings)) {
            print(*settings, options);
            return ExitStatus::Done;
        }
        const std::int64_t generation = settings->generation();
        settings = manager.userSettingsForUID(options.uid);
        if (attempt == kAttempts || (settings != nullptr && settings->generation() == generation)) {
            break;
        }
    }
    return complainOfRefusal(options.uid, "the settings were not stored");
}

}  // namespace tools::kswctl
