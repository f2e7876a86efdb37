#include "platform/ipc/server.h"

#include <list>
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

/// Handles events until the server stops. One event at a time, so that no peer waits behind another's handler.
void work(ServerCore& core) {
    while (true) {
        epoll_event event{};
        const Result<std::size_t> count = host::sys::epollWait(core.events(), {&event, 1}, std::nullopt);
        if (core.isStopping()) {
            return;
        }
        if (!count || *count == 0) {
            continue;
        }
        if (const std::shared_ptr<Peer> peer = core.find(event.data.u64)) {
            peer->work(event.events);
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
        : core_(std::make_shared<ServerCore>(options.limits)),
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
