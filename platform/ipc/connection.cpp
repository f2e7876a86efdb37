#include "platform/ipc/connection.h"

#include <mutex>
#include <new>
#include <utility>

#include <unistd.h>

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/host/process_epoch.h"
#include "platform/ipc/async_queue.h"
#include "platform/ipc/body.h"
#include "platform/ipc/dialer.h"
#include "platform/ipc/link.h"

namespace ksw::ipc {

namespace {

/// What a server takes from this process. Its user is asked for once per link, as the server does.
std::size_t requestMaxOfProcess() {
    return ::geteuid() == 0 ? limits::kRootRequestBodyMax : limits::kRequestBodyMax;
}

Error tooLarge(std::size_t size, std::size_t sizeMax) {
    return Error(ConnectionError::RequestTooLarge,
                 format("a request of %ld bytes, at most %ld are allowed", size, sizeMax));
}

/// Why a request could not be written: a bound was passed, or the argument's own error.
Error encodingError(const Error& error) {
    const bool isLimit =
        error.domain() == kFormatErrorDomain && error.code() == static_cast<std::int64_t>(FormatError::LimitPassed);
    return isLimit ? Error(ConnectionError::RequestTooLarge, error.localizedDescription()) : error;
}

}  // namespace

/// What a connection has in one process.
struct Connection::State {
    State(const Connection& owner, std::uint64_t processEpoch)
        : connection(owner),
          epoch(processEpoch),
          pool(std::make_shared<CallPool>()),
          queue(std::make_shared<AsyncQueue>(pool)) {}

    /// Sends an encoded call, dialling first where that is due. The link to wait on.
    Result<std::shared_ptr<Link>> send(Call& call);
    Status dialLink();
    std::shared_ptr<Link> currentLink() {
        const std::lock_guard lock(sending);
        return link;
    }
    bool hasQueue() { return connection.options_.handlers == Handlers::OnCallers || queue->start(); }
    bool mayDial() const {
        return !hasEnded && (!wasReached || connection.options_.redial == Redial::AfterInterruption);
    }
    void end();

    // Constant after construction.
    const Connection& connection;
    const std::uint64_t epoch;
    const std::shared_ptr<CallPool> pool;
    const std::shared_ptr<AsyncQueue> queue;

    std::mutex sending;  // guards all below, and is held while a request is written
    std::shared_ptr<Link> link;
    bool wasReached = false;
    bool hasEnded = false;
};

void Connection::State::end() {
    const std::lock_guard lock(sending);
    hasEnded = true;
    if (link != nullptr) {
        try {
            link->end(Error(ConnectionError::Invalidated, "the connection has ended"));
        } catch (const std::bad_alloc&) {
            link->end(noMemoryError());
        }
    }
}

Status Connection::State::dialLink() {
    Result<ServicePlace> place =
        servicePlace(connection.serviceName_, connection.options_.domain, connection.options_.targetUid);
    if (!place) {
        return place.error();
    }
    Result<UniqueFd> socket = dial(*place);
    if (!socket) {
        return socket.error();
    }
    auto dialled = std::make_shared<Link>(std::move(*socket), requestMaxOfProcess(), *queue);
    queue->addLink(dialled);
    link = std::move(dialled);
    wasReached = true;
    return {};
}

Result<std::shared_ptr<Link>> Connection::State::send(Call& call) {
    const std::lock_guard lock(sending);
    bool hasDialled = false;
    while (true) {
        if (link == nullptr || !link->isAlive()) {
            if (hasDialled) {
                return Error(ConnectionError::Interrupted, "the server closed the connection");
            }
            if (!mayDial()) {
                return Error(ConnectionError::Invalidated, "the connection has ended");
            }
            hasDialled = true;
            if (Status status = dialLink(); !status) {
                return status.error();
            }
        }
        const std::size_t size = call.request.size() - kHeaderSize;
        if (size > link->requestMax()) {
            return tooLarge(size, link->requestMax());
        }
        switch (link->send(call)) {
            case Link::Sent::Whole:
                return link;
            case Link::Sent::Crowded:
                return Error(ConnectionError::RequestTooLarge, "too many requests in flight");
            case Link::Sent::Gone:
                break;
        }
        if (!mayDial()) {
            return Error(ConnectionError::Interrupted, "the server closed the connection");
        }
    }
}

Connection::Connection(std::string_view serviceName, const ConnectionOptions& options, ServiceInterface interface)
    : serviceName_(serviceName), options_(options), interface_(std::move(interface)) {}

Connection::~Connection() {
    State* state = state_.load(std::memory_order_acquire);
    // The state of a process that this one was forked from is left alone: its locks may be held for ever.
    if (state == nullptr || state->epoch != host::processEpoch()) {
        return;
    }
    const std::unique_ptr<State> owner(state);
    state->end();
    state->queue->stop();
    runHandlersOf(*state);
}

void Connection::end() {
    current().end();
}

int Connection::answersFd() {
    const std::shared_ptr<Link> link = current().currentLink();
    return link == nullptr ? -1 : link->fd();
}

void Connection::readAnswers() {
    if (const std::shared_ptr<Link> link = current().currentLink()) {
        link->readForAsync();
    }
}

void Connection::runHandlers() {
    runHandlersOf(current());
}

void Connection::runHandlersOf(State& state) const {
    if (options_.handlers == Handlers::OnCallers) {
        state.queue->runWaiting();
    }
}

const std::string& Connection::serviceName() const {
    return serviceName_;
}

const ServiceInterface& Connection::interface() const {
    return interface_;
}

Connection::State& Connection::current() {
    const std::uint64_t epoch = host::processEpoch();
    State* state = state_.load(std::memory_order_acquire);
    if (state != nullptr && state->epoch == epoch) {
        return *state;
    }
    auto fresh = std::make_unique<State>(*this, epoch);
    return state_.compare_exchange_strong(state, fresh.get()) ? *fresh.release() : *state;
}

Status Connection::exchange(const Outgoing& request, const Expected& expected) try {
    State& state = current();
    const BorrowedCall call(state.pool->borrow(), {state.pool.get()});
    if (call == nullptr) {
        return noMemoryError();
    }
    if (Status status = encodeRequest(request.selector, request.arguments, call->request); !status) {
        return encodingError(status.error());
    }
    const Result<std::shared_ptr<Link>> link = state.send(*call);
    if (!link) {
        return link.error();
    }
    (*link)->await(*call);
    const Result<Bytes> body = bodyOf(*call);
    if (!body) {
        return body.error();
    }
    return decodeReply(*body, expected);
} catch (const std::bad_alloc&) {
    return noMemoryError();
}

void Connection::post(const Outgoing& request, BodyHandler handler) {
    State& state = current();
    BorrowedCall call(state.pool->borrow(), {state.pool.get()});
    if (call == nullptr || !state.hasQueue()) {
        handler(Error(ConnectionError::Unreachable, "no memory or no thread for an asynchronous request"));
        return;
    }
    call->handler = std::move(handler);
    try {
        if (Status status = encodeRequest(request.selector, request.arguments, call->request); !status) {
            call->error = encodingError(status.error());
        } else if (Result<std::shared_ptr<Link>> link = state.send(*call); !link) {
            call->error = link.error();
        } else {
            (*link)->post(*call.release());
            return;
        }
    } catch (const std::bad_alloc&) {
        call->error = noMemoryError();
    }
    state.queue->over(call.release());
}

Status Connection::decodeReply(Bytes body, const Expected& expected) {
    return decodeReplyBody(body, expected.places, expected.classes);
}

}  // namespace ksw::ipc
