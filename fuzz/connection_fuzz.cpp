// Both directions of a connection: any bytes as what a server sends a client, and as what a client sends a server,
// in pieces of odd sizes. The first byte chooses the direction, the second how the bytes are cut.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "platform/base/limits.h"
#include "platform/host/sys.h"
#include "platform/ipc/body.h"
#include "platform/ipc/link.h"
#include "platform/ipc/peer.h"

namespace {

using namespace ksw;

constexpr std::size_t kInputMax = 32 * limits::kKiB;  // fits into a socket's buffer

constexpr ipc::Method<ipc::Reply<std::int64_t, std::optional<Data>>(std::optional<URL>, std::int64_t,
                                                                    std::optional<Dictionary>, Uid)>
    kAsk{1, "ask:reply:"};
constexpr ipc::Method<ipc::Reply<std::optional<Error>>(std::optional<UUID>, std::optional<AuditToken>, bool)> kTell{
    2, "tell:reply:"};

/// Moves few bytes at a time.
class Cutter final : public host::sys::Hook {
public:
    void setPiece(std::size_t piece) { piece_ = piece; }
    host::sys::Outcome before(host::sys::Call call) noexcept override {
        const bool isTransfer = call == host::sys::Call::Recv || call == host::sys::Call::Send;
        return {0, isTransfer ? piece_ : SIZE_MAX};
    }

private:
    std::size_t piece_ = SIZE_MAX;
};

Cutter& cutter() {
    static Cutter* const instance = [] {
        auto* made = new Cutter;
        host::sys::hook.store(made);
        return made;
    }();
    return *instance;
}

class NoQueue final : public ipc::AsyncSink {
public:
    void over(ipc::Call* /*call*/) noexcept override { std::abort(); }
    void needsReader() noexcept override {}
};

std::pair<UniqueFd, UniqueFd> sockets(int type) {
    auto pair = host::sys::socketPair(type);
    if (!pair) {
        std::abort();
    }
    return std::move(*pair);
}

void write(int fd, Bytes bytes) {
    if (!bytes.empty() && ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0 && errno != EPIPE &&
        errno != ECONNRESET) {
        std::abort();
    }
}

/// The client must end its request once, whatever the server sends.
void feedClient(Bytes bytes) {
    auto [mine, peers] = sockets(SOCK_STREAM);
    NoQueue queue;
    ipc::Call call;
    ipc::Link link(std::move(mine), limits::kRequestBodyMax, queue);
    if (!ipc::encodeRequest("ask:reply:", {}, call.request) || link.send(call) != ipc::Link::Sent::Whole) {
        std::abort();
    }
    write(peers.get(), bytes);
    ::shutdown(peers.get(), SHUT_WR);
    link.await(call);
    if (!call.isOver) {
        std::abort();
    }
    (void)ipc::bodyOf(call);
}

const ipc::Service& service() {
    static const auto* const made = [] {
        auto* fresh = new ipc::Service{"com.velmont.fuzz", {}};
        fresh->dispatcher.on(
            kAsk, [](const ipc::RequestContext&, ipc::Responder<std::int64_t, std::optional<Data>> responder,
                     const auto&...) { responder.answer(1, std::nullopt); });
        fresh->dispatcher.on(
            kTell, [](const ipc::RequestContext&, const ipc::Responder<std::optional<Error>>&, const auto&...) {});
        return fresh;
    }();
    return *made;
}

/// The server's answers, as far as they have come, must be frames of answers.
void checkAnswers(int fd) {
    Data answers(64 * limits::kKiB);
    const ssize_t got = ::recv(fd, answers.data(), answers.size(), MSG_DONTWAIT);
    Bytes rest(answers.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    while (true) {
        const auto found = ipc::findFrame(rest, limits::kFrameBodyMax);
        if (!found || (found->frame && found->frame->header.kind == ipc::FrameKind::Request)) {
            std::abort();
        }
        if (!found->frame) {
            return;
        }
        rest = rest.subspan(found->frame->size());
    }
}

/// As a worker does, turn after turn.
void serveArrived(ipc::Peer& peer) {
    (void)peer.note(EPOLLIN);
    while (peer.work()) {
    }
}

void feedServer(Bytes bytes) {
    auto [mine, peers] = sockets(SOCK_STREAM | SOCK_NONBLOCK);
    static const auto* const identity =
        new host::PeerIdentity(std::move(host::PeerIdentity::ofSocket(mine.get())).value());
    auto core = std::make_shared<ipc::ServerCore>(ipc::ServerLimits{}, /*workers=*/1);
    if (!core->open() || !core->quotas.tryConnect(identity->uid())) {
        std::abort();
    }
    const auto peer = std::make_shared<ipc::Peer>(std::move(mine), *identity, core, service());
    if (!core->add(peer)) {
        std::abort();
    }
    const std::size_t half = bytes.size() / 2;
    write(peers.get(), bytes.first(half));
    serveArrived(*peer);
    write(peers.get(), bytes.subspan(half));
    serveArrived(*peer);
    checkAnswers(peers.get());
    peer->close();
    if (core->quotas.connections() != 0) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > kInputMax) {
        return 0;
    }
    const std::size_t piece = data[1];
    cutter().setPiece(piece == 0 ? SIZE_MAX : piece);
    const Bytes bytes(data + 2, size - 2);
    if ((data[0] & 1U) == 0) {
        feedClient(bytes);
    } else {
        feedServer(bytes);
    }
    return 0;
}
