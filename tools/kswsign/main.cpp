// kswsign: signs code, and shows what is signed.
#include <variant>

#include "tools/kswsign/options.h"
#include "tools/kswsign/verbs.h"

namespace tools::kswsign {
namespace {

ExitStatus run(const Options& options) {
    switch (options.verb) {
        case Verb::Sign:
            return sign(options);
        case Verb::Verify:
            return verify(options);
        case Verb::Display:
            return display(options);
        case Verb::Strip:
            return strip(options);
    }
    return ExitStatus::Failed;
}

}  // namespace
}  // namespace tools::kswsign

int main(int argc, char** argv) {
    const auto parsed = tools::kswsign::parseOptions(argc, argv);
    const auto* options = std::get_if<tools::kswsign::Options>(&parsed);
    return static_cast<int>(options != nullptr ? tools::kswsign::run(*options)
                                               : std::get<tools::ExitStatus>(parsed));
}
