// environment.h: an environment variable set, or unset, while an object of this class lives. Not while other
// threads run that read the environment.
#pragma once

#include <optional>
#include <string>

namespace ksw::test {

class ScopedVariable {
public:
    /// Absent value: the variable is unset.
    ScopedVariable(std::string name, const std::optional<std::string>& value);
    ~ScopedVariable();
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    std::string name_;
    std::optional<std::string> before_;
};

}  // namespace ksw::test
