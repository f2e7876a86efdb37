// scripted_daemon.h: a daemon that answers what a test tells it to, over the real socket in a host root of its own.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/host/log_capture.h"
#include "platform/ipc/server.h"
#include "tests/support/host_root.h"

namespace ksw::test {

namespace methods = protocol::manager;

/// What one request asked about, as the daemon saw it.
struct SeenRequest {
    std::optional<AuditToken> token;
    std::optional<URL> bundle;
    std::int64_t type = 0;
    std::optional<URL> relative;
    std::optional<Dictionary> configuration;
    Uid uid = 0;
};

/// A running daemon. Handlers are given before `start`.
class ScriptedDaemon {
public:
    explicit ScriptedDaemon(std::string_view service = kManagerService) : service_(service) {}

    /// Answers a method that names the item's application by its URL, and keeps what was asked.
    template <class... R>
    void answer(const ipc::Method<ipc::Reply<R...>(protocol::MaybeURL, protocol::Type, protocol::MaybeURL,
                                                   protocol::MaybeDictionary, Uid)>& method,
                std::type_identity_t<R>... reply) {
        dispatcher_.on(
            method, [this, reply...](const ipc::RequestContext&, ipc::Responder<R...> responder,
                                     std::optional<URL> bundle, std::int64_t type, std::optional<URL> relative,
                                     std::optional<Dictionary> configuration, Uid uid) {
                keep({std::nullopt, std::move(bundle), type, std::move(relative), std::move(configuration), uid});
                responder.answer(reply...);
            });
    }
    /// The same for one that names a process.
    template <class... R>
    void answer(const ipc::Method<ipc::Reply<R...>(protocol::MaybeToken, protocol::Type, protocol::MaybeURL,
                                                   protocol::MaybeDictionary, Uid)>& method,
                std::type_identity_t<R>... reply) {
        dispatcher_.on(method, [this, reply...](const ipc::RequestContext&, ipc::Responder<R...> responder,
                                                std::optional<AuditToken> token, std::int64_t type,
                                                std::optional<URL> relative,
                                                std::optional<Dictionary> configuration, Uid uid) {
            keep({token, std::nullopt, type, std::move(relative), std::move(configuration), uid});
            responder.answer(reply...);
        });
    }
    /// Any other handler.
    template <class Method, class Handler>
    void on(const Method& method, Handler handler) {
        dispatcher_.on(method, std::move(handler));
    }

    void start() {
        ASSERT_TRUE(server_.listen(service_, ipc::Domain::System, std::move(dispatcher_)).ok());
        ASSERT_TRUE(server_.start().ok());
    }
    void stop() { server_.stop(); }

    void keep(SeenRequest request) {
        const std::lock_guard lock(mutex_);
        seen_.push_back(std::move(request));
    }
    /// The only request so far.
    SeenRequest onlyRequest() {
        const std::lock_guard lock(mutex_);
        EXPECT_EQ(seen_.size(), 1U);
        return seen_.empty() ? SeenRequest{} : seen_.front();
    }

private:
    std::string_view service_;
    std::mutex mutex_;
    std::vector<SeenRequest> seen_;
    ipc::Dispatcher dispatcher_;
    ipc::Server server_;
};

/// A manager or registrar, its daemon, and the log; every test has a host root of its own.
class ClientTest : public ::testing::Test {
protected:
    std::shared_ptr<KSWManager> manager() { return KSWManager::initWithMode(0); }

    /// The error lines of the log. None of them holds anything back.
    std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        for (const host::LogLine& line : log_.lines()) {
            if (line.level == host::LogLevel::Error) {
                EXPECT_EQ(line.publicForm, line.fullForm);
                errors.push_back(line.publicForm);
            }
        }
        return errors;
    }

    HostRoot root_;
    host::LogCapture log_;

    const std::optional<URL> app_ = URL::fileURL("/Apps/Tool.app", PathKind::Directory);
    const std::optional<URL> job_ = URL::fromString("Contents/Library/Agents/a.plist");
    const std::optional<Dictionary> configuration_ =
        Dictionary{{std::string(KSWConfigLabel), "com.example.agent"},
                   {std::string(KSWConfigArguments), Array{"/usr/bin/true", "-v"}}};
};

/// An item like those that a daemon keeps.
inline std::shared_ptr<KSWItem> someItem(const std::string& name = "Tool Helper") {
    auto item = KSWItem::itemWithType(KSWItemTypeAgent, "8.com.example.agent");
    item->setName(name);
    return item;
}

}  // namespace ksw::test
