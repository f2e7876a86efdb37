#include "tests/support/environment.h"

#include <cstdlib>
#include <mutex>

#include "platform/host/environment.h"

namespace ksw::test {

namespace {

void setVariable(const std::string& name, const std::optional<std::string>& value) {
    const std::lock_guard lock(host::environmentMutex());
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

}  // namespace

ScopedVariable::ScopedVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* text = std::getenv(name_.c_str()); text != nullptr) {
        before_ = text;
    }
    setVariable(name_, value);
}

ScopedVariable::~ScopedVariable() {
    setVariable(name_, before_);
}

}  // namespace ksw::test
