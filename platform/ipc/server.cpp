#include "platform/ipc/server.h"

#include <array>
#include <list>
#include <span>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/sys.h"
#include "platform/ipc/listener.h"
#include "platform/ipc/peer.h"
#include "platform/ipc/server_core.h"
#include "platform/ipc/service.h"
#include "platform/ipc/supervisor.h"

namespace ksw::ipc {

namespace {

/// Events that a worker takes at once when it need not wait for them.
constexpr std::size_t kEventsMax = 16;

/// Looks for events, and waits for one if nobody waits who may be served. Whose turn it is then.
Turns::Turn nextTurn(ServerCore& core) {
    const bool rests = core.turns.rest();
    std::array<epoll_event, kEventsMax> events;
    const Result<std::size_t> count =
        rests ? host::sys::epollWait(core.events(), std::span(events).first<1>(), std::nullopt)
              : host::sys::epollWait(core.events(), events, std::chrono::milliseconds(0));
    std::array<std::shared_ptr<Peer>, kEventsMax> arrived;
    std::size_t arrivals = 0;
    for (std::size_t index = 0; index < (count ? *count : 0); ++index) {
        std::shared_ptr<Peer> peer = core.find(events[index].data.u64);
        if (peer != nullptr && peer->note(events[index].events)) {
            arrived[arrivals++] = std::move(peer);
        }
    }
    return core.turns.take(std::span(arrived).first(arrivals), rests);
}

/// Serves peers until the server stops. Who has come meanwhile is noted before each turn, so that whoever waits
/// hides nobody.
void work(ServerCore& core) {
    while (!core.isStopping()) {
        Turns::Turn turn = nextTurn(core);
        if (turn.isMore) {
            core.wakeWorker();
        }
        if (turn.peer != nullptr) {
            const bool hasMore = !core.isStopping() && turn.peer->work();
            core.turns.end(std::move(turn.peer), hasMore);
        }
    }
}

Dictionary statusOf(const ServerCounters& counters) {
    return {{"served", counters.served},
            {"refused", counters.refused},
            {"dropped", counters.dropped},
            {"quotaHits", counters.quotaHits},
            {"connections", counters.connections}};
}

}  // namespace

class Server::Inside {
public:
    explicit Inside(const ServerOptions& options)
        : core_(std::make_shared<ServerCore>(options.limits, options.workers)),
          workers_(options.workers == 0 ? 1 : options.workers) {}
    ~Inside() { stop(); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    Status listen(std::string_view name, Domain domain, Dispatcher dispatcher, std::optional<Uid> targetUid);
    Status start();
    void stop();
    ServerCounters counters() const { return core_->counters(); }

private:
    Status startThreads();

    const std::shared_ptr<ServerCore> core_;
    const unsigned workers_;
    std::list<Service> services_;  // peers refer to them
    std::vector<Listener> listeners_;
    std::unique_ptr<Supervisor> supervisor_;
    std::vector<std::thread> threads_;
};

Status Server::Inside::listen(std::string_view name, Domain domain, Dispatcher dispatcher,
                              std::optional<Uid> targetUid) {
    Result<Listener> listener = Listener::open(name, domain, targetUid);
    if (!listener) {
        return listener.error();
    }
    dispatcher.on(kServerStatus,
                  [core = core_.get()](const RequestContext&, Responder<std::optional<Dictionary>> responder) {
                      responder.answer(statusOf(core->counters()));
                  });
    services_.push_back({std::string(name), std::move(dispatcher)});
    listeners_.push_back(std::move(*listener));
    return {};
}

Status Server::Inside::start() {
    if (Status status = core_->open(); !status) {
        return status;
    }
    std::vector<Supervisor::Post> posts;
    auto service = services_.begin();
    for (const Listener& listener : listeners_) {
        posts.push_back({&listener, &*service++});
    }
    Result<std::unique_ptr<Supervisor>> supervisor = Supervisor::create(core_, std::move(posts));
    if (!supervisor) {
        return supervisor.error();
    }
    supervisor_ = std::move(*supervisor);
    return startThreads();
}

Status Server::Inside::startThreads() {
    try {
        threads_.emplace_back([this] { supervisor_->run(); });
        for (unsigned index = 0; index < workers_; ++index) {
            threads_.emplace_back([this] { work(*core_); });
        }
    } catch (const std::system_error& failure) {
        stop();
        return host::sys::callError(failure.code().value(), "clone");
    }
    return {};
}

void Server::Inside::stop() {
    if (!threads_.empty()) {
        core_->stop();
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }
    core_->turns.clear();
    for (const std::shared_ptr<Peer>& peer : core_->peers()) {
        peer->close();
    }
    supervisor_.reset();
    listeners_.clear();
}

Server::Server(const ServerOptions& options) : inside_(std::make_unique<Inside>(options)) {}

Server::~Server() = default;

Status Server::listen(std::string_view name, Domain domain, Dispatcher dispatcher, std::optional<Uid> targetUid) {
    return inside_->listen(name, domain, std::move(dispatcher), targetUid);
}

Status Server::start() {
    return inside_->start();
}

void Server::stop() {
    inside_->stop();
}

ServerCounters Server::counters() const {
    return inside_->counters();
}

}  // namespace ksw::ipc
