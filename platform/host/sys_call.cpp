#include "platform/host/sys_call.h"

#include <cstring>

#include "platform/base/text.h"

namespace ksw::host::sys {

namespace {

Error errorOf(int number, std::string_view call) {
    const char* reason = ::strerrordesc_np(number);
    std::string text(call);
    text += ": ";
    text += reason == nullptr ? "error " + std::to_string(number) : std::string(reason);
    return {kPosixErrorDomain, number, text};
}

}  // namespace

Error callError(int number, std::string_view name, std::string_view path) {
    return errorOf(number, format("%@(\"%@\")", name, path));
}

Error callError(int number, std::string_view name, int fd) {
    return errorOf(number, format("%@(%d)", name, fd));
}

Error callError(int number, std::string_view name) {
    return errorOf(number, format("%@()", name));
}

}  // namespace ksw::host::sys
