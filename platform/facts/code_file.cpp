#include "platform/facts/code_file.h"

#include <algorithm>
#include <utility>

#include <sys/sysmacros.h>

#include "platform/facts/status.h"
#include "platform/host/regular_file.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

template <class Time>
std::int64_t nanoseconds(const Time& time) {
    constexpr std::int64_t kPerSecond = 1'000'000'000;
    return static_cast<std::int64_t>(time.tv_sec) * kPerSecond + time.tv_nsec;
}

}  // namespace

FileStamp stampOf(const struct ::stat& facts) {
    return {static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino),
            static_cast<std::uint64_t>(facts.st_size), nanoseconds(facts.st_mtim), nanoseconds(facts.st_ctim)};
}

FileStamp stampAt(const std::string& path) {
    const Result<struct ::statx> facts =
        host::sys::statx(path, 0, STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME);
    if (!facts) {
        return {};
    }
    return {::makedev(facts->stx_dev_major, facts->stx_dev_minor), facts->stx_ino, facts->stx_size,
            nanoseconds(facts->stx_mtime), nanoseconds(facts->stx_ctime)};
}

Result<CodeFile> CodeFile::open(const std::string& path) {
    return judge(host::openRegularFile(path), path);
}

Result<CodeFile> CodeFile::openAt(int folder, const std::string& name) {
    return judge(host::openRegularFileIn(folder, name), name);
}

Result<CodeFile> CodeFile::judge(Result<std::optional<UniqueFd>> opened, const std::string& name) {
    if (!opened) {
        return fileError(opened.error());
    }
    return *opened ? Result(CodeFile(std::move(**opened))) : statusError(CodeStatus::NotCode, name);
}

Result<CodeFile> CodeFile::adopt(UniqueFd fd) {
    const Result<struct ::stat> facts = host::sys::fileStatus(fd.get());
    if (!facts) {
        return fileError(facts.error());
    }
    if (!S_ISREG(facts->st_mode)) {
        return statusError(CodeStatus::NotCode);
    }
    return CodeFile(std::move(fd));
}

Result<FileStamp> CodeFile::stamp() const {
    const Result<struct ::stat> facts = host::sys::fileStatus(fd_.get());
    return facts ? Result<FileStamp>(stampOf(*facts)) : fileError(facts.error());
}

Status CodeFile::read(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    while (!buffer.empty()) {
        const Result<host::sys::Transfer> transfer =
            host::sys::readAt(fd_.get(), buffer.data(), buffer.size(), offset);
        if (!transfer) {
            return fileError(transfer.error());
        }
        if (transfer->wouldBlock) {
            return statusError(CodeStatus::NotReadable);
        }
        if (transfer->bytes == 0) {
            return statusError(CodeStatus::ChangedMeanwhile);
        }
        buffer = buffer.subspan(transfer->bytes);
        offset += transfer->bytes;
    }
    return {};
}

Sha256Stream::Sha256Stream(const LibCrypto& crypto)
    : crypto_(crypto),
      digest_(owned<OwnedDigest>(crypto, crypto.EVP_MD_CTX_new())),
      ok_(digest_ != nullptr && crypto.EVP_DigestInit_ex(digest_.get(), crypto.sha256(), nullptr) == 1) {}

void Sha256Stream::add(Bytes bytes) {
    ok_ = ok_ && crypto_.EVP_DigestUpdate(digest_.get(), bytes.data(), bytes.size()) == 1;
}

Result<Sha256> Sha256Stream::finish() {
    Sha256 digest{};
    if (!ok_ || crypto_.EVP_DigestFinal_ex(digest_.get(), digest.data(), nullptr) != 1) {
        return statusError(CodeStatus::NoMemory);
    }
    return digest;
}

Result<Sha256> sha256Of(const LibCrypto& crypto, Bytes bytes) {
    Sha256Stream stream(crypto);
    stream.add(bytes);
    return stream.finish();
}

Result<Sha256> sha256Of(const LibCrypto& crypto, const CodeFile& file, std::uint64_t size) {
    Sha256Stream stream(crypto);
    Data chunk(static_cast<std::size_t>(std::min<std::uint64_t>(size, kCodeChunkSize)));
    for (std::uint64_t done = 0; done < size;) {
        const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, chunk.size()));
        const std::span<std::uint8_t> buffer = std::span(chunk).first(part);
        if (Status status = file.read(done, buffer); !status) {
            return status.error();
        }
        stream.add(buffer);
        done += part;
    }
    return stream.finish();
}

}  // namespace ksw::facts
