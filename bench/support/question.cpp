#include "bench/support/question.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <tuple>

#include <kestrelwood/KSWErrors.h>

#include "bench/support/peer.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/archive/cbor_reader.h"
#include "platform/base/unique_fd.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"

namespace ksw::bench {

namespace {

using protocol::manager::kEffectiveDispositionOfURL;

constexpr std::int64_t kDisposition = 0x3;

[[noreturn]] void fail(const Error& error) {
    std::fprintf(stderr, "%s\n", error.description().c_str());
    std::exit(2);
}

std::size_t encodeAnswer(Data& frame) {
    const std::int64_t disposition = kDisposition;
    const std::optional<Data> constraint;
    const std::int64_t code = 0;
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(disposition), ipc::sourceOf(constraint),
                                           ipc::sourceOf(code)};
    if (Status status = ipc::encodeReply(sources, frame); !status) {
        fail(status.error());
    }
    return frame.size();
}

void answer(const ipc::Frame& frame, Data& buffer) {
    archive::DecodeBudget budget(frame.body.size());
    archive::Reader reader(frame.body, budget);
    std::size_t count = 0;
    std::string_view selector;
    std::tuple<std::optional<URL>, std::int64_t, std::optional<URL>, std::optional<Dictionary>, Uid> arguments;
    const Status status = std::apply(
        [&](auto&... slots) -> Status {
            const ipc::ArgumentPlace places[] = {ipc::placeOf(slots)...};
            if (!reader.enterArray(count) || !reader.text(selector)) {
                return reader.error("request");
            }
            return ipc::decodeArguments(reader, places, {});
        },
        arguments);
    if (!status || selector != kEffectiveDispositionOfURL.selector) {
        std::exit(2);
    }
    encodeAnswer(buffer);
    ipc::writeHeader(
        {ipc::FrameKind::Reply, static_cast<std::uint32_t>(buffer.size() - ipc::kHeaderSize), frame.header.serial},
        std::span(buffer).first<ipc::kHeaderSize>());
}

/// Where a service manager would hear that its service is ready.
UniqueFd newsSocket(const std::string& path) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        std::exit(2);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror("bind");
        std::exit(2);
    }
    return fd;
}

void awaitReady(int news) {
    std::string text;
    while (text.find("READY=1") == std::string::npos) {
        text.resize(4096);
        const ssize_t size = ::recv(news, text.data(), text.size(), 0);
        if (size < 0) {
            std::exit(2);
        }
        text.resize(static_cast<std::size_t>(size));
    }
}

}  // namespace

Sizes Question::sizes() const {
    Data request;
    Data reply;
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(app), ipc::sourceOf(type), ipc::sourceOf(job),
                                           ipc::sourceOf(configuration), ipc::sourceOf(uid)};
    if (Status status = ipc::encodeRequest(kEffectiveDispositionOfURL.selector, sources, request); !status) {
        fail(status.error());
    }
    return {request.size(), encodeAnswer(reply)};
}

void Question::ask(KSWManager& manager) const {
    std::int64_t disposition = 0;
    std::optional<Data> constraint;
    if (!manager.getEffectiveDisposition(&disposition, &constraint, app, type, job, configuration, uid) ||
        disposition != kDisposition) {
        std::fputs("the question was not answered as it should be\n", stderr);
        std::exit(2);
    }
}

void Question::enter(KSWManager& manager) const {
    if (manager.registerItem(nullptr, app, type, job, configuration, uid) != KSWErrorNone) {
        std::fputs("the agent was not recorded\n", stderr);
        std::exit(2);
    }
}

std::unique_ptr<ChildProcess> scriptedPeer() {
    return peerThat(kManagerService, ipc::Domain::System, answer);
}

std::unique_ptr<ChildProcess> managementDaemon() {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").replace_filename("kestrelwoodd");
    const std::string path = std::string(::secure_getenv("KESTRELWOOD_ROOT")) + "/news";
    const UniqueFd news = newsSocket(path);
    auto daemon = std::make_unique<ChildProcess>([&] {
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
        ::execl(program.c_str(), program.c_str(), nullptr);
        std::perror(program.c_str());
        ::_exit(2);
    });
    awaitReady(news.get());
    return daemon;
}

BenchRoot::BenchRoot()
    : path_(std::filesystem::canonical(std::filesystem::temp_directory_path()) / "ksw-bench-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        std::perror("mkdtemp");
        std::exit(2);
    }
    ::setenv("KESTRELWOOD_ROOT", path_.c_str(), 1);
}

BenchRoot::~BenchRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace ksw::bench
