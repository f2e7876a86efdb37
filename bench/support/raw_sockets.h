// raw_sockets.h: the machine's own limit: bytes to and fro over a Unix stream socket, and nothing else.
#pragma once

#include <cstddef>
#include <memory>

#include "bench/support/child_process.h"

namespace ksw::bench {

/// How long a request and its reply are, in bytes.
struct Sizes {
    std::size_t request;
    std::size_t reply;
};

/// A socket to a child process that answers every request of these sizes.
class RawSocket {
public:
    explicit RawSocket(Sizes sizes);
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    /// One request and its reply.
    void exchange();

private:
    Sizes sizes_;
    int fd_ = -1;
    std::unique_ptr<ChildProcess> peer_;
    std::unique_ptr<char[]> buffer_;
};

/// Reads exactly so many bytes; false at the end of the stream.
bool readAll(int fd, void* buffer, std::size_t size);
/// Writes them all; ends the program when it cannot.
void writeAll(int fd, const void* bytes, std::size_t size);

}  // namespace ksw::bench
