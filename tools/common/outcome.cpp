#include "tools/common/outcome.h"

#include <iostream>

#include "tools/common/text.h"

namespace tools {

void complain(std::string_view text) {
    std::cerr << KSW_TOOL ": " << printable(text) << '\n';
}

ExitStatus complain(const Complaint& complaint) {
    complain(complaint.text);
    return complaint.status;
}

}  // namespace tools
