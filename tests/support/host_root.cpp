#include "tests/support/host_root.h"

#include <cstdlib>

namespace ksw::test {

namespace {
constexpr const char* kVariable = "KESTRELWOOD_ROOT";
}  // namespace

HostRoot::HostRoot() : wasSet_(std::getenv(kVariable) != nullptr) {
    if (wasSet_) {
        before_ = std::getenv(kVariable);
    }
    ::setenv(kVariable, folder_.path().c_str(), 1);
}

HostRoot::~HostRoot() {
    if (wasSet_) {
        ::setenv(kVariable, before_.c_str(), 1);
    } else {
        ::unsetenv(kVariable);
    }
}

void HostRoot::setFeature(const std::string& feature, bool on) const {
    folder_.writeFile("etc/kestrelwood/features/Kestrelwood.plist",
                      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>" + feature +
                          "</key>" + (on ? "<true/>" : "<false/>") + "</dict></plist>\n");
}

}  // namespace ksw::test
