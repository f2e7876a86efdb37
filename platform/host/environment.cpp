#include "platform/host/environment.h"

#include <cstdlib>

namespace ksw::host {

namespace {

constinit std::mutex mutex;

}  // namespace

std::optional<std::string> environmentVariable(const char* name) {
    const std::lock_guard lock(mutex);
    const char* text = ::secure_getenv(name);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

std::mutex& environmentMutex() {
    return mutex;
}

}  // namespace ksw::host
