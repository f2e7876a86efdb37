#include "platform/host/regular_file.h"

#include <cerrno>
#include <utility>

#include "platform/host/descriptor_path.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr int kReading = O_RDONLY | O_NONBLOCK | O_NOCTTY;

Result<bool> isRegular(int fd) {
    const Result<struct ::stat> facts = sys::fileStatus(fd);
    return facts ? Result<bool>(S_ISREG(facts->st_mode)) : facts.error();
}

bool hasDescriptorPaths() {
    return sys::statx("/proc/self/fd", 0, STATX_TYPE).ok();
}

/// Opening a device can set it off, and opening a pipe can wake its writer: so what the name leads to is taken hold
/// of, looked at, and only then opened, by what is held and not by the name once more.
Result<std::optional<UniqueFd>> openLooking(int folder, const std::string& name, int flags) {
    const Result<UniqueFd> held = sys::openAt(folder, name, O_PATH | flags);
    Result<bool> regular = held ? isRegular(held->get()) : held.error();
    if (!regular) {
        return regular.error();
    }
    if (!*regular) {
        return std::optional<UniqueFd>();
    }
    Result<UniqueFd> file = sys::open(descriptorPath(held->get()), kReading);
    if (file) {
        return std::optional(std::move(*file));
    }
    if (!sys::isErrno(file.error(), ENOENT) || hasDescriptorPaths()) {
        return sys::callError(static_cast<int>(file.error().code()), "open", name);
    }
    file = sys::openAt(folder, name, kReading | flags);
    regular = file ? isRegular(file->get()) : file.error();
    if (!regular) {
        return regular.error();
    }
    return *regular ? std::optional(std::move(*file)) : std::nullopt;
}

}  // namespace

Result<std::optional<UniqueFd>> openRegularFile(const std::string& path) {
    return openLooking(AT_FDCWD, path, 0);
}

Result<std::optional<UniqueFd>> openRegularFileIn(int folder, const std::string& name) {
    return openLooking(folder, name, O_NOFOLLOW);
}

}  // namespace ksw::host
