// file_times.h: files changed at a given moment.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace ksw::test {

/// Sets when the content of a file was last changed, in seconds and nanoseconds of the Unix time.
inline void setChanged(const std::string& path, std::int64_t seconds, long nanoseconds) {
    const struct ::timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
                                       {.tv_sec = seconds, .tv_nsec = nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

}  // namespace ksw::test
