// code_file.h: an open file whose signature is in question. Opened once; everything that is said of it is read by
// its descriptor, so that what takes its name meanwhile is not looked at.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <sys/stat.h>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/facts/code_directory.h"
#include "platform/facts/libcrypto.h"

namespace ksw::facts {

/// What tells a file, and the state of it, from others: times in nanoseconds since 1970.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;

    friend auto operator<=>(const FileStamp&, const FileStamp&) = default;
};

FileStamp stampOf(const struct ::stat& facts);

/// The stamp of what stands at a path, links followed; all zero when nothing does, or it cannot be examined.
FileStamp stampAt(const std::string& path);

/// A regular file, open for reading. Moves, does not copy. `const` operations may be called from any thread.
/// Errors have the domain of `CodeStatus`.
class CodeFile {
public:
    /// Opens a path; links are followed. Neither opens nor waits for a pipe, socket or device, also when one takes
    /// the file's name meanwhile.
    static Result<CodeFile> open(const std::string& path);
    /// The same for a name in an open folder, following no link.
    static Result<CodeFile> openAt(int folder, const std::string& name);
    /// A descriptor that is open already.
    static Result<CodeFile> adopt(UniqueFd fd);

    int fd() const { return fd_.get(); }

    /// How the file is now.
    Result<FileStamp> stamp() const;

    /// Fills the buffer from an offset. `ChangedMeanwhile` when the file ends before.
    Status read(std::uint64_t offset, std::span<std::uint8_t> buffer) const;

private:
    static Result<CodeFile> judge(Result<std::optional<UniqueFd>> opened, const std::string& name);
    explicit CodeFile(UniqueFd fd) : fd_(std::move(fd)) {}
    UniqueFd fd_;
};

/// A digest that grows.
class Sha256Stream {
public:
    explicit Sha256Stream(const LibCrypto& crypto);
    /// Does nothing once something has failed.
    void add(Bytes bytes);
    /// Error: `NoMemory`.
    Result<Sha256> finish();

private:
    const LibCrypto& crypto_;
    OwnedDigest digest_;
    bool ok_;
};

Result<Sha256> sha256Of(const LibCrypto& crypto, Bytes bytes);
/// The digest of a file's first bytes.
Result<Sha256> sha256Of(const LibCrypto& crypto, const CodeFile& file, std::uint64_t size);

/// How much of a file is read at a time: it stays in a processor's second cache until it is hashed.
inline constexpr std::size_t kCodeChunkSize = 128U * 1024U;

}  // namespace ksw::facts
