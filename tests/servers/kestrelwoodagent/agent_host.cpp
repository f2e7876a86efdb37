#include "tests/servers/kestrelwoodagent/agent_host.h"

namespace ksw::agentserver::test {

namespace {

/// The first item of the daemon's answer.
template <class... A, class... Given>
std::shared_ptr<KSWItem> answerOf(const ipc::Method<ipc::Reply<manager::ResultPointer>(A...)>& method,
                                  const Given&... arguments) {
    ipc::Connection connection(kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface());
    const auto reply = connection.call(method, arguments...);
    EXPECT_TRUE(reply.ok());
    return reply.ok() ? std::get<0>(*reply)->firstItem() : nullptr;
}

}  // namespace

std::optional<URL> jobURL(const std::string& label) {
    return URL::fileURL("/nowhere/" + label + ".plist");
}

std::shared_ptr<KSWItem> registerJob(const std::string& label) {
    constexpr std::int64_t kType = KSWItemTypeAgent | KSWItemTypeLegacyBit;
    const std::optional<Dictionary> job = Dictionary{{std::string(KSWConfigLabel), Value(label)},
                                                     {std::string(KSWConfigExecutablePath), Value("/opt/tool")}};
    return answerOf(manager::kRegisterItemOfURL, std::optional<URL>(), kType, jobURL(label), job, ::geteuid());
}

std::shared_ptr<KSWItem> recordOf(const KSWItem& item) {
    return answerOf(manager::kGetItemWithUUID, item.uuid(), ::geteuid());
}

std::unique_ptr<Process> AgentHost::launchAgent() const {
    const std::vector<std::string> variables{"NOTIFY_SOCKET=" + root().at("notify")};
    return std::make_unique<Process>(KSW_BINARY_DIR "/bin/kestrelwoodagent", std::vector<std::string>(), variables);
}

}  // namespace ksw::agentserver::test
