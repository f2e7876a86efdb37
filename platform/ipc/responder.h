// responder.h: the one answer that a server owes to a request.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/ipc/wire_types.h"

namespace ksw::host {
class PeerIdentity;
}  // namespace ksw::host

namespace ksw::ipc {

/// Codes of the refusals that this layer sends. Servers may use codes of their own, from 100 on.
enum class Refusal : std::int64_t {
    UnknownMethod = 1,     ///< The service has no such method.
    ArgumentsInvalid = 2,  ///< The arguments do not fit the method.
    NotAnswered = 3,       ///< The server dropped the request without an answer.
    TooLate = 4,           ///< The answer took longer than the server allows itself.
    Overloaded = 5,        ///< The server has no memory to spare for the request.
    NotBuilt = 6,          ///< The method is known, and this server does not serve it.
};

struct PendingRequest;

/// A request that waits for its answer. Moves, does not copy; may be kept, and answered from any thread, also
/// after the server has stopped or has answered for it (then the answer is dropped). Destroyed unanswered it
/// answers Refusal::NotAnswered.
class PendingAnswer {
public:
    explicit PendingAnswer(std::unique_ptr<PendingRequest> request);
    PendingAnswer(PendingAnswer&& other) noexcept;
    PendingAnswer& operator=(PendingAnswer&& other) noexcept;
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;
    ~PendingAnswer();

    /// Who asked; lives as long as this.
    const host::PeerIdentity& peer() const;

    /// The first answer counts, later ones are dropped. Never blocks on the peer.
    void reply(std::span<const ArgumentSource> arguments);
    void replyEncoded(const Data& frame);
    void refuse(std::int64_t code, std::string_view text);

private:
    std::unique_ptr<PendingRequest> request_;
    bool isAnswered_ = false;
};

/// The same, typed by the method's reply.
template <class... R>
class Responder {
public:
    explicit Responder(PendingAnswer answer) : answer_(std::move(answer)) {}

    const host::PeerIdentity& peer() const { return answer_.peer(); }

    void answer(const std::type_identity_t<R>&... arguments) {
        const ArgumentSource sources[] = {sourceOf<R>(arguments)..., {}};
        answer_.reply({sources, sizeof...(R)});
    }
    /// The same with a reply that `encodeReply` has written, for one that many get.
    void answerEncoded(const Data& frame) { answer_.replyEncoded(frame); }
    /// An error instead of a reply. `text` says what is wrong, for people.
    void refuse(std::int64_t code, std::string_view text) { answer_.refuse(code, text); }
    void refuse(Refusal code, std::string_view text) { refuse(static_cast<std::int64_t>(code), text); }

private:
    PendingAnswer answer_;
};

}  // namespace ksw::ipc
