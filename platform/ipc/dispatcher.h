// dispatcher.h: which handler serves which method.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/ipc/method.h"
#include "platform/ipc/responder.h"
#include "platform/ipc/wire_objects.h"

namespace ksw::ipc {

/// What a handler is told besides the arguments. Borrowed for the handler's run; a responder that is kept
/// knows its peer itself.
struct RequestContext {
    /// Who asks, by the kernel's word; the only thing to authorise by.
    const host::PeerIdentity& peer;
    std::string_view service;   ///< The service's name.
    std::string_view selector;  ///< The method's.
    /// What the service keeps for the connection; see `keep`.
    std::shared_ptr<void>& kept;

    /// What the service keeps for this connection: `make()`, a std::shared_ptr<T>, on first use. Released when the
    /// connection ends, which is also how the service learns of that; it may hold responders of the connection.
    /// The same T in all of a service's handlers, which use it one at a time.
    template <class T, class Make>
    T& keep(Make make) const {
        if (kept == nullptr) {
            kept = std::shared_ptr<T>(make());
        }
        return *static_cast<T*>(kept.get());
    }
};

/// The handlers of one service. Filled before the server starts, constant afterwards.
class Dispatcher {
public:
    /// Serves `method` with `handler(const RequestContext&, Responder<R...>, A...)`, which runs on the server's
    /// threads, for several requests at once, and should not block for long. A row that is given twice: the last
    /// handler holds. `method.selector` must be static. A handler that throws answers Refusal::NotAnswered.
    template <class... R, class... A, class Handler>
    void on(const Method<Reply<R...>(A...)>& method, Handler handler) {
        entries_[method.selector] =
            Entry{method.patience, [handler = std::move(handler)](const RequestContext& context,
                                                                  PendingAnswer answer, archive::Reader& reader) {
                      std::tuple<A...> arguments;
                      std::apply(
                          [&](A&... slots) {
                              const ArgumentPlace places[] = {placeOf(slots)..., {}};
                              if (Status status = decodeArguments(reader, {places, sizeof...(A)}); !status) {
                                  refuseArguments(context, answer, status.error());
                                  return;
                              }
                              handler(context, Responder<R...>(std::move(answer)), std::move(slots)...);
                          },
                          arguments);
                  }};
    }

    /// Refuses a method of the contract that this server does not serve, whatever its arguments. `selector` must be
    /// static; `text` says why, for people.
    void refuse(std::string_view selector, std::string text) {
        entries_[selector] =
            Entry{Patience::Ordinary,
                  [text = std::move(text)](const RequestContext&, PendingAnswer answer, archive::Reader&) {
                      answer.refuse(static_cast<std::int64_t>(Refusal::NotBuilt), text);
                  }};
    }

    /// Whether a method's handler came back at once when it ran last; until it has run, no.
    class Pace {
    public:
        Pace() = default;
        Pace(const Pace& other) : isQuick_(other.isQuick()) {}
        Pace& operator=(const Pace& other) {
            setQuick(other.isQuick());
            return *this;
        }
        bool isQuick() const { return isQuick_.load(std::memory_order_relaxed); }
        void setQuick(bool isQuick) { isQuick_.store(isQuick, std::memory_order_relaxed); }

    private:
        std::atomic<bool> isQuick_{false};
    };

    /// What serves one method: decodes the arguments that the reader stands before, and runs the handler.
    struct Entry {
        Patience patience = Patience::Ordinary;
        std::function<void(const RequestContext&, PendingAnswer, archive::Reader&)> serve;
        mutable Pace pace{};
    };

    /// The entry of a selector; null when there is none.
    const Entry* find(std::string_view selector) const;

private:
    static Status decodeArguments(archive::Reader& reader, std::span<const ArgumentPlace> places);
    static void refuseArguments(const RequestContext& context, PendingAnswer& answer, const Error& error);

    std::map<std::string_view, Entry, std::less<>> entries_;
};

}  // namespace ksw::ipc
