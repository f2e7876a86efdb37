#include "tools/kswsign/complain_of.h"

#include "tools/common/outcome.h"

namespace tools::kswsign {
namespace {

constexpr std::int64_t kReadingNotPermitted = -70002;

}  // namespace

ExitStatus complainOf(const std::string& path, std::int64_t status, const std::string& text) {
    complain(path + ": " + text + " (" + std::to_string(status) + ")");
    return status == kReadingNotPermitted ? ExitStatus::NotPermitted : ExitStatus::Failed;
}

ExitStatus complainOf(const std::string& path, const std::optional<ksw::Error>& error) {
    return error ? complainOf(path, error->code(), std::string(error->localizedDescription()))
                 : complainOf(path, 0, "failed");
}

}  // namespace tools::kswsign
