// The switches of other parts of the system.
#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

ksw::ServiceConnection* connection() {
    return KSWManager::shared().connection();
}

ExitStatus answered(const Options& options, const char* key, const Record& value) {
    print(Record::object({{"subsystem", options.name},
                          {"name", KSWLocalizedNameForSubsystem(options.name)},
                          {"uid", options.uid},
                          {key, value}}),
          formOf(options));
    return ExitStatus::Done;
}

}  // namespace

ExitStatus askWhetherSwitchIsSet(const Options& options) {
    bool have = false;
    const std::int64_t code = KSWHaveEnablementStatusForSubsystemAndUID(options.name, options.uid, &have);
    return code == KSWErrorNone && connection() != nullptr ? answered(options, "set", have)
                                                           : complainOfResult(code, connection());
}

ExitStatus showSwitch(const Options& options) {
    bool enabled = false;
    const std::int64_t code = KSWGetEnablementStatusForSubsystemAndUID(options.name, options.uid, &enabled);
    return code == KSWErrorNone && connection() != nullptr ? answered(options, "enabled", enabled)
                                                           : complainOfResult(code, connection());
}

ExitStatus setSwitch(const Options& options) {
    const std::int64_t code = KSWSetEnablementStatusForSubsystemAndUID(options.name, options.uid, options.turnedOn);
    if (code != KSWErrorNone) {
        return complainOfResult(code, connection());
    }
    // Without a daemon it is success too.
    if (const auto status = complainWhenSilent(connection())) {
        return *status;
    }
    return answered(options, "enabled", options.turnedOn);
}

ExitStatus resetSwitch(const Options& options) {
    if (!KSWResetEnablementStatusForSubsystemAndUID(options.name, options.uid)) {
        return complainOfRefusal(options.uid, "the switch was not reset");
    }
    return answered(options, "set", false);
}

}  // namespace tools::kswctl
