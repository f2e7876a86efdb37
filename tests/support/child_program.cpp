#include "tests/support/child_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/host/peer_identity.h"

namespace ksw::test {

namespace {

std::vector<char*> wordsOf(std::vector<std::string>& texts) {
    std::vector<char*> words;
    for (std::string& text : texts) {
        words.push_back(text.data());
    }
    words.push_back(nullptr);
    return words;
}

}  // namespace

ChildProgram::ChildProgram(const std::function<void()>& execute) {
    EXPECT_EQ(::pipe2(in_, O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(out_, O_CLOEXEC), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(in_[0], 0);
        ::dup2(out_[1], 1);
        execute();
        ::_exit(127);
    }
}

ChildProgram::ChildProgram(std::vector<std::string> arguments)
    : ChildProgram([words = wordsOf(arguments)] { ::execv(words[0], words.data()); }) {}

ChildProgram::ChildProgram(std::vector<std::string> arguments, std::vector<std::string> environment)
    : ChildProgram([words = wordsOf(arguments), variables = wordsOf(environment)] {
          ::execve(words[0], words.data(), variables.data());
      }) {}

ChildProgram::~ChildProgram() {
    end();
    for (const int fd : {in_[0], in_[1], out_[0], out_[1]}) {
        ::close(fd);
    }
}

void ChildProgram::tell(std::string_view text) const {
    EXPECT_EQ(::write(in_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string ChildProgram::awaitAnswer() const {
    std::array<char, 64> answer{};
    const ssize_t size = ::read(out_[0], answer.data(), answer.size());
    EXPECT_GT(size, 0);
    return {answer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

AuditToken ChildProgram::token() const {
    return *host::auditTokenForPid(pid_);
}

void ChildProgram::end() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
}

ChildCat::ChildCat(const std::string& path) : program_({path}) {
    awaitStart();
}

ChildCat::ChildCat(const std::string& path, std::vector<std::string> environment)
    : program_({path}, std::move(environment)) {
    awaitStart();
}

void ChildCat::awaitStart() const {
    program_.tell("hello\n");
    EXPECT_EQ(program_.awaitAnswer(), "hello\n");
}

}  // namespace ksw::test
