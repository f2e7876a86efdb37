// openings.h: who opens a file.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>

#include <sys/inotify.h>
#include <unistd.h>

#include "platform/base/unique_fd.h"

namespace ksw::test {

/// Hears of every opening of one file, but of those that only hold it.
class Openings {
public:
    explicit Openings(const std::string& path) : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_GE(::inotify_add_watch(fd_.get(), path.c_str(), IN_OPEN), 0);
    }
    bool heard() const {
        std::array<char, 4'096> events{};
        return ::read(fd_.get(), events.data(), events.size()) > 0;
    }

private:
    UniqueFd fd_;
};

}  // namespace ksw::test
