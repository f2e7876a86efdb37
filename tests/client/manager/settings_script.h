// settings_script.h: a few lines that keep users' settings and switches as the daemon does.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWUserSettings.h>

#include "tests/client/manager/daemons.h"

namespace ksw::test {

class SettingsScript final : public AnyDaemon {
public:
    void start() override {
        server_ = std::make_unique<ipc::Server>();
        ipc::Dispatcher dispatcher;
        serveSettings(dispatcher);
        serveSwitches(dispatcher);
        ASSERT_TRUE(server_->listen(kManagerService, ipc::Domain::System, std::move(dispatcher)).ok());
        ASSERT_TRUE(server_->start().ok());
    }
    void stop() override { server_.reset(); }

private:
    using Settings = std::shared_ptr<KSWUserSettings>;
    using Name = std::optional<std::string>;
    using CodeResponder = ipc::Responder<std::int64_t>;
    using SwitchResponder = ipc::Responder<std::int64_t, bool>;

    KSWUserSettings& of(Uid uid) {
        Settings& settings = settings_[uid];
        if (settings == nullptr) {
            settings = KSWUserSettings::init();
        }
        return *settings;
    }
    std::optional<bool> switched(const Name& name, Uid uid) {
        const std::lock_guard lock(mutex_);
        const Dictionary status = of(uid).enablementStatusByIdentifier().value();
        const auto found = status.find(name.value());
        return found == status.end() ? std::nullopt : std::optional(found->second != Value(0));
    }
    void change(const Name& name, Uid uid, std::optional<std::int64_t> status) {
        const std::lock_guard lock(mutex_);
        KSWUserSettings& settings = of(uid);
        Dictionary& switches = settings.enablementStatusByIdentifier().value();
        switches.erase(name.value());
        if (status) {
            switches.emplace(name.value(), *status);
        }
        settings.setGeneration(settings.generation() + 1);
    }

    void serveSettings(ipc::Dispatcher& dispatcher) {
        namespace methods = protocol::manager;
        dispatcher.on(
            methods::kFetchUserSettings,
            [this](const ipc::RequestContext&, ipc::Responder<std::int64_t, Settings> responder, Uid uid) {
                const std::lock_guard lock(mutex_);
                responder.answer(0, of(uid).copy());
            });
        dispatcher.on(methods::kSaveUserSettings, [this](const ipc::RequestContext&, CodeResponder responder,
                                                         const Settings& settings, Uid uid) {
            const std::lock_guard lock(mutex_);
            if (settings->generation() != of(uid).generation()) {
                responder.answer(KSWErrorInvalidGeneration);
                return;
            }
            settings->setGeneration(settings->generation() + 1);
            settings_[uid] = settings->copy();
            responder.answer(0);
        });
    }
    void serveSwitches(ipc::Dispatcher& dispatcher) {
        namespace methods = protocol::manager;
        dispatcher.on(methods::kGetHaveEnablementStatus,
                      [this](const ipc::RequestContext&, SwitchResponder responder, const Name& name, Uid uid) {
                          responder.answer(0, switched(name, uid).has_value());
                      });
        dispatcher.on(methods::kGetEnablementStatus,
                      [this](const ipc::RequestContext&, SwitchResponder responder, const Name& name, Uid uid) {
                          const std::optional<bool> status = switched(name, uid);
                          responder.answer(status ? KSWErrorNone : KSWErrorRecordNotFound, status.value_or(false));
                      });
        dispatcher.on(methods::kSetEnablementStatus, [this](const ipc::RequestContext&, CodeResponder responder,
                                                            bool isOn, const Name& name, Uid uid) {
            change(name, uid, isOn ? 1 : 0);
            responder.answer(0);
        });
        dispatcher.on(methods::kResetEnablementStatus,
                      [this](const ipc::RequestContext&, CodeResponder responder, const Name& name, Uid uid) {
                          change(name, uid, std::nullopt);
                          responder.answer(0);
                      });
        dispatcher.on(methods::kSetAlwaysPostNotifications,
                      [this](const ipc::RequestContext&, ipc::Responder<bool> responder, bool always) {
                          const std::lock_guard lock(mutex_);
                          always_ = always;
                          responder.answer(true);
                      });
        dispatcher.on(methods::kGetAlwaysPostNotifications,
                      [this](const ipc::RequestContext&, ipc::Responder<bool> responder) {
                          const std::lock_guard lock(mutex_);
                          responder.answer(always_);
                      });
    }

    HostRoot root_;
    std::mutex mutex_;  // guards the two below
    std::map<Uid, Settings> settings_;
    bool always_ = false;
    std::unique_ptr<ipc::Server> server_;
};

}  // namespace ksw::test
