// daemons.h: the two daemons that one suite of requests runs against: a script and the real one.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client/protocol/manager_service.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/services.h"
#include "platform/ipc/server.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/support/host_root.h"

namespace ksw::test {

/// A daemon that can be started and stopped any number of times and remembers its records.
class AnyDaemon {
public:
    virtual ~AnyDaemon() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
};

/// The program itself.
class RealDaemon final : public AnyDaemon {
public:
    void start() override;
    void stop() override;

private:
    daemon::test::DaemonHost host_;
    std::unique_ptr<daemon::test::Process> process_;
};

/// A few lines that answer what a daemon answers about jobs that are named by their configuration, and about
/// records.
class ScriptDaemon final : public AnyDaemon {
public:
    void start() override;
    void stop() override { server_.reset(); }

private:
    using Records = std::map<std::string, std::shared_ptr<KSWItem>>;

    std::shared_ptr<KSWFetchResult> enter(std::int64_t type, const std::optional<URL>& bundle,
                                          const std::optional<URL>& url,
                                          const std::optional<Dictionary>& configuration);
    std::int64_t remove(std::int64_t type, const std::optional<URL>& url);
    /// The record; without one, what it would be.
    std::shared_ptr<KSWItem> recordedOrNew(std::int64_t type, const std::optional<URL>& url,
                                           const std::optional<Dictionary>& configuration);
    void serveLookups(ipc::Dispatcher& dispatcher);
    void serveChanges(ipc::Dispatcher& dispatcher);
    std::int64_t add(const std::shared_ptr<KSWItem>& item);
    std::int64_t update(const std::vector<std::shared_ptr<KSWItem>>& items);
    std::shared_ptr<KSWItem> withUUID(const std::optional<UUID>& uuid) const;
    ipc::Dispatcher managerMethods();
    ipc::Dispatcher registrarMethods();

    HostRoot root_;
    std::mutex mutex_;
    Records records_;
    std::unique_ptr<ipc::Server> server_;
};

}  // namespace ksw::test
