#include "tools/common/input_file.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "tools/common/descriptor.h"

namespace tools {
namespace {

constexpr std::size_t kSizeMax = std::size_t{1} << 20U;  // bytes; entitlements may have as many

Complaint cannotRead(const std::string& path, int error) {
    const bool isForbidden = error == EACCES || error == EPERM;
    return {isForbidden ? ExitStatus::NotPermitted : ExitStatus::Failed,
            path + ": " + std::generic_category().message(error)};
}

}  // namespace

Outcome<ksw::Data> readInputFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (file.number() < 0) {
        return cannotRead(path, errno);
    }
    ksw::Data content(kSizeMax + 1);
    std::size_t size = 0;
    while (size < content.size()) {
        const ssize_t count = read(file.number(), content.data() + size, content.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return cannotRead(path, errno);
        }
        if (count == 0) {
            content.resize(size);
            return content;
        }
        size += static_cast<std::size_t>(count);
    }
    return Complaint{ExitStatus::Failed, path + ": larger than 1 MiB"};
}

}  // namespace tools
