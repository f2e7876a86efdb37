// The daemon's database, and of which items users are notified.
#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/KSWManager.h>
#include <kestrelwood/authorization.h>

#include "tools/common/outcome.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

KSWManager& manager() {
    return KSWManager::shared();
}

/// The text, line by line fit for a terminal.
void printLinesOf(std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        std::cout << printable(line) << '\n';
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
}

ExitStatus answered(const Options& options, const char* key, bool value) {
    print(Record::object({{key, value}}), formOf(options));
    return ExitStatus::Done;
}

}  // namespace

ExitStatus collectGarbage(const Options& options) {
    return manager().scheduleGarbageCollection()
               ? answered(options, "scheduled", true)
               : complainOfRefusal(ksw::kEveryUser, "the daemon will not collect garbage");
}

ExitStatus dumpDatabase(const Options& options) {
    std::optional<ksw::Error> error;
    std::optional<std::string> text;
    {
        const Progress progress("The daemon writes its records out");
        text = manager().dumpDatabaseWithAuthorization(ksw::Authorization::ofCallingProcess(), &error);
    }
    if (error || !text) {
        return complainOf(error, manager().connection());
    }
    if (options.json) {
        print(Record::object({{"dump", *text}}), Form::Json);
    } else {
        printLinesOf(*text);
    }
    return ExitStatus::Done;
}

ExitStatus eraseDatabase(const Options& options) {
    std::optional<ksw::Error> error;
    return manager().eraseDatabaseWithAuthorization(ksw::Authorization::ofCallingProcess(), &error)
               ? answered(options, "erased", true)
               : complainOf(error, manager().connection());
}

ExitStatus showNotifications(const Options& options) {
    bool always = false;
    return manager().getAlwaysPostNotifications(&always)
               ? answered(options, "always", always)
               : complainOfRefusal(ksw::kEveryUser, "the daemon does not say of what users are notified");
}

ExitStatus setNotifications(const Options& options) {
    // What the daemon answers to the change is no word on whether it was made.
    manager().setAlwaysPostNotifications(options.turnedOn);
    bool always = !options.turnedOn;
    return manager().getAlwaysPostNotifications(&always) && always == options.turnedOn
               ? answered(options, "always", always)
               : complainOfRefusal(ksw::kEveryUser, "the daemon has not taken the change");
}

}  // namespace tools::kswctl
