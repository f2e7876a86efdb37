// faulty_disk.h: a disk under the database library that fails, fills up, loses power, or on which the process dies
// at a chosen moment. It is the library's default while an object of this class lives, so the store needs no seam
// for it.
#pragma once

#include <cstdint>
#include <string_view>

namespace ksw::daemon::test {

/// What counts as one access; each is one bit.
enum Access : unsigned {
    kWrite = 1U << 0U,
    kSync = 1U << 1U,
    kTruncate = 1U << 2U,
    kOpen = 1U << 3U,
    kDelete = 1U << 4U,
    kSharedMemory = 1U << 5U,
    kRead = 1U << 6U,
};
inline constexpr unsigned kChanging = kWrite | kSync | kTruncate | kDelete;

/// The library's code for a synchronisation that failed.
extern const int kSynchronisationFailed;

/// How the process dies: its written bytes stay, or the power goes and what was written since the last
/// synchronisation of each file is lost: all of it, all after some moment, or here and there. What a
/// synchronisation that failed has left unwritten is lost whatever is synchronised later, as the kernel has it.
enum class Death : std::uint8_t { Killed, LosingAll, LosingTheEnd, LosingHereAndThere };

/// One at a time in a process, not while databases are open. One thread.
class FaultyDisk {
public:
    FaultyDisk();
    ~FaultyDisk();
    FaultyDisk(const FaultyDisk&) = delete;
    FaultyDisk& operator=(const FaultyDisk&) = delete;

    /// From now on the `nth` access (1 is the next) of the kinds in `accesses` fails with this result code of the
    /// library, a write after half of its bytes; with `forGood` all later ones too, until `heal`.
    void failNth(unsigned nth, unsigned accesses, int code, bool forGood = false);
    /// The same for accesses to files whose name ends so.
    void failNthTo(std::string_view ending, unsigned nth, unsigned accesses, int code, bool forGood = false);
    /// The process dies at the `nth` changing access from now on, a write after half of its bytes. Before any
    /// database is opened. What is lost is drawn by `seed`.
    void dieAtNth(unsigned nth, Death death, unsigned seed);
    void heal();
    /// The process dies now.
    [[noreturn]] void die(Death death, unsigned seed);

    /// Accesses of the kinds asked for since the last call of `failNth` or `dieAtNth`.
    unsigned count() const;
};

}  // namespace ksw::daemon::test
