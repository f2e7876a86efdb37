#include "platform/ipc/responder.h"

#include <new>
#include <utility>

#include "platform/ipc/body.h"
#include "platform/ipc/peer.h"

namespace ksw::ipc {

PendingAnswer::PendingAnswer(std::unique_ptr<PendingRequest> request) : request_(std::move(request)) {}

PendingAnswer::PendingAnswer(PendingAnswer&& other) noexcept = default;

PendingAnswer& PendingAnswer::operator=(PendingAnswer&& other) noexcept {
    std::swap(request_, other.request_);
    std::swap(isAnswered_, other.isAnswered_);
    return *this;
}

PendingAnswer::~PendingAnswer() {
    if (request_ == nullptr) {
        return;
    }
    if (!isAnswered_) {
        refuse(static_cast<std::int64_t>(Refusal::NotAnswered), "the server has not answered the request");
    }
    const std::shared_ptr<Peer> peer = request_->peer;
    peer->release(std::move(request_));
}

const host::PeerIdentity& PendingAnswer::peer() const {
    return request_->peer->identity();
}

void PendingAnswer::reply(std::span<const ArgumentSource> arguments) {
    if (std::exchange(isAnswered_, true)) {
        return;
    }
    try {
        if (Status status = encodeReply(arguments, request_->frame); !status) {
            request_->peer->refuse(*request_, static_cast<std::int64_t>(Refusal::NotAnswered),
                                   status.error().localizedDescription());
            return;
        }
        request_->peer->answer(*request_, FrameKind::Reply);
    } catch (const std::bad_alloc&) {
        request_->peer->refuse(*request_, static_cast<std::int64_t>(Refusal::Overloaded),
                               "no memory for the reply");
    }
}

void PendingAnswer::replyEncoded(const Data& frame) {
    if (std::exchange(isAnswered_, true)) {
        return;
    }
    try {
        request_->frame = frame;
        request_->peer->answer(*request_, FrameKind::Reply);
    } catch (const std::bad_alloc&) {
        request_->peer->refuse(*request_, static_cast<std::int64_t>(Refusal::Overloaded),
                               "no memory for the reply");
    }
}

void PendingAnswer::refuse(std::int64_t code, std::string_view text) {
    isAnswered_ = true;
    request_->peer->refuse(*request_, code, text);
}

}  // namespace ksw::ipc
