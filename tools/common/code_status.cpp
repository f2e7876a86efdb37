#include "tools/common/code_status.h"

#include "tools/common/outcome.h"

namespace tools {
namespace {

constexpr std::int64_t kReadingNotPermitted = -70002;
constexpr std::int64_t kProcessGone = -70030;

}  // namespace

ExitStatus exitStatusOfCodeStatus(std::int64_t status) {
    switch (status) {
        case kReadingNotPermitted:
            return ExitStatus::NotPermitted;
        case kProcessGone:
            return ExitStatus::NoSuchItem;
        default:
            return ExitStatus::Failed;
    }
}

ExitStatus complainOfCode(const std::string& code, std::int64_t status, const std::string& text) {
    complain(code + ": " + text + " (" + std::to_string(status) + ")");
    return exitStatusOfCodeStatus(status);
}

ExitStatus complainOfCode(const std::string& code, const std::optional<ksw::Error>& error) {
    return error ? complainOfCode(code, error->code(), std::string(error->localizedDescription()))
                 : complainOfCode(code, 0, "failed");
}

}  // namespace tools
