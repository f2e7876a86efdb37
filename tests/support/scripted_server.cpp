#include "tests/support/scripted_server.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/archive/cbor_reader.h"
#include "platform/base/limits.h"
#include "platform/host/sys.h"

namespace ksw::test {

namespace {

std::string selectorOf(Bytes body) {
    archive::DecodeBudget budget(body.size());
    archive::Reader reader(body, budget);
    std::size_t count = 0;
    std::string selector;
    return reader.enterArray(count) && reader.text(selector) ? selector : std::string();
}

}  // namespace

Data frameAround(ipc::FrameKind kind, std::uint32_t serial, Bytes body) {
    Data frame(ipc::kHeaderSize + body.size());
    ipc::writeHeader({kind, static_cast<std::uint32_t>(body.size()), serial},
                     std::span(frame).first<ipc::kHeaderSize>());
    std::copy(body.begin(), body.end(), frame.begin() + ipc::kHeaderSize);
    return frame;
}

std::optional<ScriptedRequest> ScriptedConnection::next() {
    while (true) {
        const Result<ipc::FrameSearch> found = ipc::findFrame(stream_.buffer().bytes(), limits::kFrameBodyMax);
        if (!found) {
            return std::nullopt;
        }
        if (found->frame) {
            const Bytes body = found->frame->body;
            ScriptedRequest request{found->frame->header.serial, selectorOf(body), Data(body.begin(), body.end())};
            stream_.buffer().consume(found->frame->size());
            return request;
        }
        const std::size_t before = stream_.buffer().bytes().size();
        const Result<ipc::Received> received = stream_.receive(found->bytesMissing);
        if (!received || *received == ipc::Received::End) {
            return std::nullopt;
        }
        received_ += stream_.buffer().bytes().size() - before;
    }
}

void ScriptedConnection::send(Bytes bytes) {
    (void)stream_.sendAll(bytes);
}

void ScriptedConnection::refuse(std::uint32_t serial, std::int64_t code, std::string_view text) {
    Data frame;
    if (!ipc::encodeRefusal(code, text, frame)) {
        throw std::runtime_error("a refusal that cannot be written");
    }
    send(frameAround(ipc::FrameKind::Refusal, serial, Bytes(frame).subspan(ipc::kHeaderSize)));
}

Data ScriptedConnection::frameOf(std::uint32_t serial, std::span<const ipc::ArgumentSource> sources) {
    Data frame;
    if (Status status = ipc::encodeReply(sources, frame); !status) {
        throw std::runtime_error(status.error().description());
    }
    ipc::writeHeader({ipc::FrameKind::Reply, static_cast<std::uint32_t>(frame.size() - ipc::kHeaderSize), serial},
                     std::span(frame).first<ipc::kHeaderSize>());
    return frame;
}

ScriptedServer::ScriptedServer(std::string_view service, Script script, ipc::Domain domain,
                               std::optional<Uid> targetUid)
    : script_(std::move(script)) {
    Result<ipc::Listener> listener = ipc::Listener::open(service, domain, targetUid);
    Result<UniqueFd> stop = host::sys::eventDescriptor();
    if (!listener || !stop) {
        throw std::runtime_error("no listener: " + (listener ? stop.error() : listener.error()).description());
    }
    listener_.emplace(std::move(*listener));
    stop_ = std::move(*stop);
    acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
    (void)host::sys::signalEvent(stop_.get());
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const int fd : open_) {
            (void)host::sys::shutdown(fd, SHUT_RDWR);
        }
    }
    for (std::thread& script : scripts_) {
        script.join();
    }
}

void ScriptedServer::acceptAll() {
    while (true) {
        pollfd waiting[] = {{listener_->fd(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        (void)host::sys::poll(waiting, std::nullopt);
        if (waiting[1].revents != 0) {
            return;
        }
        Result<std::optional<UniqueFd>> accepted = host::sys::accept(listener_->fd(), false);
        if (accepted && *accepted) {
            ++connections_;
            const std::lock_guard lock(mutex_);
            open_.push_back((*accepted)->get());
            scripts_.emplace_back([this, fd = (*accepted)->release()] { run(UniqueFd(fd)); });
        }
    }
}

void ScriptedServer::run(UniqueFd fd) {
    const int number = fd.get();
    ScriptedConnection connection(std::move(fd), received_);
    script_(connection);
    const std::lock_guard lock(mutex_);
    std::erase(open_, number);
    connection.stream().close();
}

}  // namespace ksw::test
