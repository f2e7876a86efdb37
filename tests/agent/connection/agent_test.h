// agent_test.h: what the tests of the agent's connection share. Each test needs a process of its own: there is one
// connection in a process, and it does not dial again.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <latch>
#include <thread>

#include "platform/base/text.h"
#include "platform/ipc/service.h"
#include "tests/support/host_root.h"
#include "tests/support/scripted_agent.h"

namespace ksw::test {

namespace methods = protocol::agent;

using host::LogLevel;
using LoginItemsReply = ItemsReply<LoginItemList>;
using BackgroundItemsReply = ItemsReply<BackgroundItemList>;

/// A program with an agent's connection, before it has been used.
class AgentTest : public ::testing::Test {
protected:
    std::vector<std::string> debugLines() const { return linesLike(log_, LogLevel::Debug, "#"); }
    static bool isConnectionError(const MaybeError& error, ConnectionError code) {
        return error && error->domain() == kConnectionErrorDomain &&
               error->code() == static_cast<std::int64_t>(code);
    }
    /// The error that a request ends with that blocks.
    MaybeError errorOfGetting() {
        Collected<LoginItemsReply> replies;
        agent_.getLoginItemsWithTypeMask(1, into(replies));
        const auto all = replies.all();
        EXPECT_THAT(all, ::testing::SizeIs(1));
        EXPECT_EQ(all.front().items.has_value(), !all.front().error.has_value());
        return all.front().error;
    }

    HostRoot root_;
    host::LogCapture log_;
    KSWAgentConnection& agent_ = KSWAgentConnection::sharedInstance();
    std::shared_ptr<KSWLoginItem> item_ = KSWLoginItem::initWithType(4, std::nullopt, Data{1, 2}, true);
    Error error_{"com.example.agent", 7, "not today"};
};

}  // namespace ksw::test
