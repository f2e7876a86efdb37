#include <algorithm>
#include <iostream>
#include <string>
#include <utility>

#include <kestrelwood/ksw_version.h>

#include "tools/common/terminal.h"
#include "tools/common/text.h"
#include "tools/kswctl/checks.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

constexpr std::size_t kFindingWidth = 9;
constexpr std::size_t kAboutWidth = 23;

struct Words {
    const char* text;
    Colour colour;
};

Words wordsOf(Finding finding) {
    switch (finding) {
        case Finding::Well:
            return {"well", Colour::Green};
        case Finding::Missing:
            return {"missing", Colour::Yellow};
        case Finding::Wrong:
            break;
    }
    return {"wrong", Colour::Red};
}

std::vector<Check> allChecks() {
    std::vector<Check> checks = checkInstallation();
    for (auto more : {checkServices, checkTrust}) {
        for (Check& check : more()) {
            checks.push_back(std::move(check));
        }
    }
    return checks;
}

std::string padded(std::string text, std::size_t width) {
    text.append(width - std::min(width, text.size()), ' ');
    return text;
}

void printForPeople(const std::vector<Check>& checks) {
    for (const Check& check : checks) {
        const Words words = wordsOf(check.finding);
        std::string line =
            padded(words.text, kFindingWidth) + padded(check.about, kAboutWidth) + printable(check.detail);
        for (const std::string& part : shownLines(line, kFindingWidth + kAboutWidth)) {
            const std::size_t word = part.starts_with(words.text) ? std::string_view(words.text).size() : 0;
            std::cout << (word == 0 ? "" : coloured(words.text, words.colour)) << part.substr(word) << '\n';
        }
        // The command stays whole, so that it can be copied.
        if (!check.mend.empty()) {
            std::cout << padded("", kFindingWidth) << "mend it: " << printable(check.mend) << '\n';
        }
    }
}

void printForPrograms(const std::vector<Check>& checks, bool isWell) {
    Record list = Record::array();
    for (const Check& check : checks) {
        list.push_back(Record::object({{"about", check.about},
                                       {"finding", wordsOf(check.finding).text},
                                       {"detail", check.detail},
                                       {"mend", check.mend.empty() ? Record(nullptr) : Record(check.mend)}}));
    }
    print(Record::object({{"well", isWell}, {"version", ksw_version()}, {"checks", std::move(list)}}), Form::Json);
}

}  // namespace

ExitStatus examineHost(const Options& options) {
    const std::vector<Check> checks = allChecks();
    const bool isWell =
        std::ranges::none_of(checks, [](const Check& check) { return check.finding == Finding::Wrong; });
    if (options.json) {
        printForPrograms(checks, isWell);
    } else {
        printForPeople(checks);
    }
    return isWell ? ExitStatus::Done : ExitStatus::Failed;
}

}  // namespace tools::kswctl
