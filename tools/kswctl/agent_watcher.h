// agent_watcher.h: tells what became different in the lists of the session's agent, a line for each item.
#pragma once

#include <memory>

#include "tools/kswctl/watch_output.h"

namespace tools::kswctl {

/// Watches login items and background items from the lists as they were at its making. Differences are told on the
/// main queue, by whoever runs it.
class AgentWatcher {
public:
    /// Null when no agent answers.
    static std::unique_ptr<AgentWatcher> create(const std::shared_ptr<WatchOutput>& output);
    ~AgentWatcher();
    AgentWatcher(const AgentWatcher&) = delete;
    AgentWatcher& operator=(const AgentWatcher&) = delete;

private:
    struct State;
    explicit AgentWatcher(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

}  // namespace tools::kswctl
