#include "tests/support/host_root.h"

namespace ksw::test {

HostRoot::HostRoot() : variable_("KESTRELWOOD_ROOT", folder_.path()) {}

void HostRoot::setFeature(const std::string& feature, bool on) const {
    folder_.writeFile("etc/kestrelwood/features/Kestrelwood.plist",
                      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>" + feature +
                          "</key>" + (on ? "<true/>" : "<false/>") + "</dict></plist>\n");
}

}  // namespace ksw::test
