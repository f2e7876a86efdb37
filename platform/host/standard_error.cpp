#include "platform/host/standard_error.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <csignal>
#include <ctime>

#include <pthread.h>

#include "platform/base/limits.h"
#include "platform/host/printable.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::string_view levelName(LogLevel level) {
    constexpr std::array<std::string_view, 5> names{"debug", "info", "notice", "error", "fault"};
    return names.at(static_cast<std::size_t>(level));
}

std::string lineText(const LogLine& line, std::string_view message) {
    std::string text = "kestrelwood[" + line.category + "] ";
    text += levelName(line.level);
    if (line.activityId != 0) {
        text += " (" + printable(line.activity) + ")";
    }
    text += ": ";
    text += printable(message);
    text.resize(cutText(text, limits::kLogFieldMax).size());
    text += '\n';
    return text;
}

/// Keeps SIGPIPE from this thread, and takes back one that a write of this thread raised.
class BrokenPipeSilencer {
public:
    BrokenPipeSilencer() {
        ::sigemptyset(&brokenPipe_);
        ::sigaddset(&brokenPipe_, SIGPIPE);
        sigset_t pending;
        ::sigpending(&pending);
        wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &brokenPipe_, &before_);
    }
    ~BrokenPipeSilencer() {
        if (!wasPending_) {
            const timespec noTime{};
            ::sigtimedwait(&brokenPipe_, nullptr, &noTime);
        }
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    BrokenPipeSilencer(const BrokenPipeSilencer&) = delete;
    BrokenPipeSilencer& operator=(const BrokenPipeSilencer&) = delete;

private:
    sigset_t brokenPipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
};

}  // namespace

bool writeToStandardError(int fd, const LogLine& line, std::string_view message) {
    const std::string text = lineText(line, message);
    const BrokenPipeSilencer silencer;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(limits::kLogSendMilliseconds);
    for (std::size_t done = 0; done < text.size();) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting{fd, POLLOUT, 0};
        const Result<std::size_t> ready = sys::poll({&waiting, 1}, std::max(left, std::chrono::milliseconds(0)));
        if (!ready || *ready == 0) {
            return false;
        }
        // A pipe that is writable takes PIPE_BUF bytes without blocking.
        const Result<sys::Transfer> written =
            sys::write(fd, text.data() + done, std::min<std::size_t>(text.size() - done, PIPE_BUF));
        if (!written || written->bytes == 0) {
            return false;
        }
        done += written->bytes;
    }
    return true;
}

}  // namespace ksw::host
