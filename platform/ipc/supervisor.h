// supervisor.h: the thread of a server that accepts connections and keeps the time.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/base/unique_fd.h"
#include "platform/ipc/listener.h"
#include "platform/ipc/server_core.h"

namespace ksw::ipc {

/// One thread runs it; it ends when the core stops.
class Supervisor {
public:
    /// A listening socket and what is served there; both are borrowed.
    struct Post {
        const Listener* listener;
        const Service* service;
    };

    /// Error: a descriptor that the kernel denies.
    static Result<std::unique_ptr<Supervisor>> create(std::shared_ptr<ServerCore> core, std::vector<Post> posts);

    /// Works until the core stops.
    void run();

private:
    Supervisor(std::shared_ptr<ServerCore> core, std::vector<Post> posts, UniqueFd events);

    Status watchAll();
    void acceptAll(const Post& post);
    bool admit(UniqueFd socket, const Service& service);
    void pauseAccepting();
    void resumeAccepting();
    void expire();

    const std::shared_ptr<ServerCore> core_;
    const std::vector<Post> posts_;
    const UniqueFd events_;
    bool isPaused_ = false;
};

}  // namespace ksw::ipc
