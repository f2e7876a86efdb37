// question.h: the request that the benchmarks send: may this job load? And a peer that answers it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "bench/support/child_process.h"
#include "bench/support/raw_sockets.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/dispatcher.h"

namespace ksw::bench {

inline constexpr std::string_view kQuestionService = "com.velmont.bench";

/// The same arguments and reply as the management daemon's question of that name.
inline constexpr ipc::Method<ipc::Reply<std::int64_t, std::optional<Data>, std::int64_t>(
    std::optional<URL>, std::int64_t, std::optional<URL>, std::optional<Dictionary>, Uid)>
    kQuestion{10, "effectiveItemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:"};

/// Arguments like those of a real agent.
struct Question {
    std::optional<URL> app = URL::fileURL("/Applications/Example.app", PathKind::Directory);
    std::int64_t type = 0x8;
    std::optional<URL> relative =
        URL::fileURL("Contents/Library/LaunchAgents/com.example.agent.plist", *app, PathKind::File);
    std::optional<Dictionary> configuration = Dictionary{{"KSWConfigLabel", "com.example.agent"}};
    Uid uid = 501;

    /// Bytes of the frames of the question and of its answer.
    Sizes sizes() const;
    /// Asks once; ends the program when the answer is not the right one.
    void ask(ipc::Connection& connection) const;
};

/// A connection to a peer in the host root.
std::unique_ptr<ipc::Connection> questionConnection();

/// A bare loop that reads a request, decodes it, encodes the reply and writes it, for one connection at a time; in
/// a child process that listens in the host root.
std::unique_ptr<ChildProcess> scriptedPeer();

/// A real server for the question, in a child process.
std::unique_ptr<ChildProcess> questionServer();

/// Sets KESTRELWOOD_ROOT to a folder of its own. For the whole program.
class BenchRoot {
public:
    BenchRoot();
    /// Removes the folder.
    ~BenchRoot();
    BenchRoot(const BenchRoot&) = delete;
    BenchRoot& operator=(const BenchRoot&) = delete;

private:
    std::string path_;
};

}  // namespace ksw::bench
