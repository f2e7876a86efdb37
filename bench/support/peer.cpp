#include "bench/support/peer.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/base/limits.h"
#include "platform/host/sys.h"
#include "platform/ipc/listener.h"
#include "platform/ipc/stream.h"

namespace ksw::bench {

namespace {

void serve(ipc::Stream stream, const AnswerFrame& answer) {
    Data buffer;
    while (true) {
        const Result<ipc::Received> received = stream.receive(1);
        if (!received || *received == ipc::Received::End) {
            return;
        }
        while (true) {
            const Result<ipc::FrameSearch> found = ipc::findFrame(stream.buffer().bytes(), limits::kFrameBodyMax);
            if (!found || !found->frame) {
                break;
            }
            answer(*found->frame, buffer);
            stream.buffer().consume(found->frame->size());
            if (!stream.sendAll(buffer)) {
                return;
            }
        }
    }
}

void listen(std::string_view service, ipc::Domain domain, const AnswerFrame& answer, const Readiness& readiness) {
    const Result<ipc::Listener> listener = ipc::Listener::open(service, domain, std::nullopt);
    if (!listener) {
        std::fprintf(stderr, "%s\n", listener.error().description().c_str());
        std::exit(2);
    }
    readiness.say();
    while (true) {
        pollfd waiting{listener->fd(), POLLIN, 0};
        (void)host::sys::poll({&waiting, 1}, std::nullopt);
        Result<std::optional<UniqueFd>> accepted = host::sys::accept(listener->fd(), false);
        if (accepted && *accepted) {
            serve(ipc::Stream(std::move(**accepted)), answer);
        }
    }
}

}  // namespace

std::unique_ptr<ChildProcess> peerThat(std::string_view service, ipc::Domain domain, const AnswerFrame& answer) {
    Readiness readiness;
    auto peer = std::make_unique<ChildProcess>([&] { listen(service, domain, answer, readiness); });
    readiness.await();
    return peer;
}

Readiness::Readiness() {
    if (::pipe(ends_) != 0) {
        std::exit(2);
    }
}

void Readiness::say() const {
    if (::write(ends_[1], "!", 1) != 1) {
        std::exit(2);
    }
}

void Readiness::await() {
    ::close(ends_[1]);
    char byte = 0;
    if (::read(ends_[0], &byte, 1) != 1) {
        std::exit(2);
    }
    ::close(ends_[0]);
}

}  // namespace ksw::bench
