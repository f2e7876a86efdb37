// unsynchronised.h: what a disk that loses power may forget: everything written to a file since it was last
// synchronised, and that it was made or removed since then.
// What was not synchronised when a synchronisation failed never comes to the disk.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/servers/kestrelwoodd/durability/faulty_disk.h"

namespace ksw::daemon::test {

/// Follows files by their paths. Told before each thing is done. One thread.
class Unsynchronised {
public:
    void opened(const std::string& path);
    void wrote(const std::string& path, const void* bytes, std::size_t size, std::size_t offset);
    void cut(const std::string& path, std::size_t size);
    void synchronised(const std::string& path);
    void failed(const std::string& path);
    void removed(const std::string& path);

    /// Brings every file into a state in which the disk may have it.
    void lose(Death death, unsigned seed) const;

private:
    using Content = std::vector<char>;
    struct Step {
        std::size_t offset = 0;
        std::optional<Content> bytes;  ///< Absent: the file was cut to `offset`.
        unsigned number = 0;           ///< Counted over all files.
    };
    struct Copy {
        std::optional<Content> kept;  ///< On the disk for certain; absent: it may be that there is no such file.
        std::vector<Step> steps;
        bool isRemoved = false;
    };

    static void carryOut(Content& content, const Step& step, std::size_t size);
    static Content remains(const Copy& copy, Death death, unsigned last, std::mt19937& random);

    std::map<std::string, Copy> copies_;
    unsigned steps_ = 0;
};

}  // namespace ksw::daemon::test
