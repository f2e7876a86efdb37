// hog.h: a client that takes all it can get of a server and gives nothing back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/base/unique_fd.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"
#include "tests/servers/load/load.h"

namespace ksw::test {

/// The frame of a request.
template <class... R, class... A>
Data frameOf(const ipc::Method<ipc::Reply<R...>(A...)>& method, const std::type_identity_t<A>&... arguments) {
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(arguments)..., {}};
    Data frame;
    if (ipc::encodeRequest(method.selector, {sources, sizeof...(A)}, frame)) {
        const auto length = static_cast<std::uint32_t>(frame.size() - ipc::kHeaderSize);
        ipc::writeHeader({ipc::FrameKind::Request, length, 1},
                         std::span<std::uint8_t>(frame).first<ipc::kHeaderSize>());
    }
    return frame;
}

/// What a hog opens, in connections.
struct Greed {
    std::size_t started;  ///< Frames that lack their last byte.
    std::size_t silent;   ///< Questions whose answers are never read.
    std::size_t busy;     ///< Changes without a pause, as many under way as the socket takes.
};

/// One thread. Its calls are the test's own process's or, better, a child's.
class Hog {
public:
    /// Every connection is open when this returns, as far as the server lets it; of each started frame half has
    /// been sent, and no change yet.
    explicit Hog(const Greed& greed);
    ~Hog();
    Hog(const Hog&) = delete;
    Hog& operator=(const Hog&) = delete;

    /// Asks and changes until the line can be read; tells it when the first change has been answered. Connections
    /// that the server closes stay closed.
    void goOn(const Line& line);

    /// Whether the server closes one more connection instead of serving it.
    bool isAtItsLastConnection() const;
    /// Sends the started frames but for their last byte, until the server takes no more bytes and closes one of
    /// them. Whether it has.
    bool reachesItsLastByte();

private:
    struct Connection {
        UniqueFd fd;
        const Data* stream;  ///< What is sent, again and again or once.
        bool isEndless;
        bool reads;
        std::size_t sent = 0;
    };

    static Data startedFrame();
    void add(const Data& stream, bool isEndless, bool reads);
    static void write(Connection& connection, std::size_t most);
    void read(Connection& connection);

    const Data started_;
    const Data question_;
    const Data changes_;
    std::vector<Connection> connections_;
    std::size_t answered_ = 0;  // of changes, in bytes
};

}  // namespace ksw::test
