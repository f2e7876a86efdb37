// child_program.h: programs that run beside a test, told and heard through their standard input and output.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include <kestrelwood/values/audit_token.h>

namespace ksw::test {

/// A program that answers what it is told. Killed when the object goes.
class ChildProgram {
public:
    /// What `execute` does runs in the child; the child ends when it returns.
    explicit ChildProgram(const std::function<void()>& execute);
    /// The first argument is the program's path. Without an environment it has the test's own.
    explicit ChildProgram(std::vector<std::string> arguments);
    ChildProgram(std::vector<std::string> arguments, std::vector<std::string> environment);
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    void tell(std::string_view text) const;
    /// Gives what it wrote, at least a byte.
    std::string awaitAnswer() const;
    /// Once it has answered it is the program that it should be.
    AuditToken token() const;
    void end();

private:
    pid_t pid_ = 0;
    int in_[2]{};
    int out_[2]{};
};

/// A copy of cat, running.
class ChildCat {
public:
    explicit ChildCat(const std::string& path);
    ChildCat(const std::string& path, std::vector<std::string> environment);

    AuditToken token() const { return program_.token(); }
    void end() { program_.end(); }

private:
    void awaitStart() const;

    ChildProgram program_;
};

}  // namespace ksw::test
