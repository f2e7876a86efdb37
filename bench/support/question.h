// question.h: the request that the benchmarks send: may this job load? And a peer that answers it.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWTypes.h>

#include "bench/support/child_process.h"
#include "bench/support/raw_sockets.h"

namespace ksw::bench {

/// The question about an agent that may load.
struct Question {
    std::optional<URL> app;
    std::int64_t type = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
    std::optional<URL> job = URL::fileURL("/usr/share/jobs/com.example.agent.plist");
    std::optional<Dictionary> configuration =
        Dictionary{{std::string(KSWConfigLabel), "com.example.agent"},
                   {std::string(KSWConfigExecutablePath), "/usr/bin/true"},
                   {std::string(KSWConfigArguments), Array{"/usr/bin/true", "--quiet"}}};
    Uid uid = ::getuid();

    /// Bytes of the frames of the question and of its answer.
    Sizes sizes() const;
    /// Asks once; ends the program when the answer is not that the agent may load.
    void ask(KSWManager& manager) const;
    /// Has the daemon record the agent; ends the program when it does not.
    void enter(KSWManager& manager) const;
};

/// A bare loop that reads a request, decodes it, encodes the reply and writes it, for one connection at a time; in
/// a child process that listens in the host root.
std::unique_ptr<ChildProcess> scriptedPeer();

/// The management daemon, from the folder of the running program, in a child process.
std::unique_ptr<ChildProcess> managementDaemon();

/// Sets KESTRELWOOD_ROOT to a folder of its own. For the whole program.
class BenchRoot {
public:
    BenchRoot();
    /// Removes the folder.
    ~BenchRoot();
    BenchRoot(const BenchRoot&) = delete;
    BenchRoot& operator=(const BenchRoot&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace ksw::bench
