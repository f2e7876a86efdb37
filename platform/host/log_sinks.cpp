#include "platform/host/log_sinks.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "platform/base/guarded.h"
#include "platform/base/never_destroyed.h"
#include "platform/host/host_root.h"
#include "platform/host/journal.h"
#include "platform/host/standard_error.h"

namespace ksw::host {

struct CapturedLines {
    Guarded<std::vector<LogLine>> list;
};

namespace {

constexpr std::uint32_t bitOf(LogLevel level) {
    return 1U << static_cast<unsigned>(level);
}
constexpr std::uint32_t kAllLevels = 0x1FU;
constexpr std::uint32_t kFailureLevels = bitOf(LogLevel::Error) | bitOf(LogLevel::Fault);
constexpr std::uint32_t kJournalLevels = kAllLevels & ~bitOf(LogLevel::Debug);

/// Settings with the journal that they name. Immutable, so that a line can be written without a lock.
struct Sinks {
    explicit Sinks(const LogSettings& wanted) : settings(wanted), journal(wanted.journalPath) {
        if (settings.isVerbose) {
            levels = kAllLevels;
        } else {
            levels = journal.isThere() ? kJournalLevels : kFailureLevels;
        }
    }

    LogSettings settings;
    Journal journal;
    std::uint32_t levels = 0;
};

/// The sinks in force; null until the first line. Read without a lock, since a fork would leave one locked for
/// ever when another thread logs meanwhile; so those that were replaced are kept, not freed.
constinit std::atomic<const Sinks*> sinksInForce{nullptr};
/// How many captures there are: the list behind its lock is looked at only when there are any.
constinit std::atomic<std::size_t> captureCount{0};

using SinksList = std::vector<std::unique_ptr<const Sinks>>;
using CaptureList = std::vector<std::shared_ptr<CapturedLines>>;

Guarded<SinksList>& allSinks() {
    static NeverDestroyed<Guarded<SinksList>> list;
    return *list;
}

Guarded<CaptureList>& captures() {
    static NeverDestroyed<Guarded<CaptureList>> list;
    return *list;
}

void updateLevels(const CaptureList& list) {
    const Sinks* sinks = sinksInForce.load(std::memory_order_acquire);
    const std::uint32_t sinkLevels = sinks == nullptr ? kAllLevels : sinks->levels;
    logLevelsOn.store(list.empty() ? sinkLevels : kAllLevels, std::memory_order_relaxed);
}

std::atomic<std::uint64_t>& dropped() {
    static std::atomic<std::uint64_t> count{0};
    return count;
}

bool isSet(const char* variable, std::string_view value) {
    const char* text = ::secure_getenv(variable);
    return text != nullptr && value == text;
}

/// The sinks in force, made from the environment when there are none yet.
const Sinks& currentSinks() {
    if (const Sinks* sinks = sinksInForce.load(std::memory_order_acquire); sinks != nullptr) {
        return *sinks;
    }
    auto made = std::make_unique<const Sinks>(LogSettings::fromEnvironment());
    const auto all = allSinks().lock();
    const Sinks* expected = nullptr;
    if (sinksInForce.compare_exchange_strong(expected, made.get())) {
        expected = made.get();
        all->push_back(std::move(made));
        updateLevels(*captures().lock());
    }
    return *expected;
}

void writeToSinks(const Sinks& sinks, const LogLine& line) {
    if ((sinks.levels & bitOf(line.level)) == 0) {
        return;
    }
    const std::string& message = sinks.settings.showsPrivate ? line.fullForm : line.publicForm;
    const bool inJournal = sinks.journal.isThere() && sinks.journal.write(line, message);
    const bool isFailure = (kFailureLevels & bitOf(line.level)) != 0;
    bool onStandardError = false;
    if (sinks.settings.isVerbose || (!inJournal && isFailure)) {
        onStandardError = writeToStandardError(sinks.settings.standardError, line, message);
    }
    if (!inJournal && !onStandardError) {
        dropped().fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace

LogSettings LogSettings::fromEnvironment() {
    LogSettings settings;
    settings.journalPath = hostPath("/run/systemd/journal/socket");
    settings.isVerbose = isSet("KESTRELWOOD_LOG", "debug");
    settings.showsPrivate = isSet("KESTRELWOOD_LOG_PRIVATE", "1");
    return settings;
}

void setLogSettings(const LogSettings& settings) {
    auto sinks = std::make_unique<const Sinks>(settings);
    const auto all = allSinks().lock();
    sinksInForce.store(sinks.get(), std::memory_order_release);
    all->push_back(std::move(sinks));
    updateLevels(*captures().lock());
}

void routeLogLine(const LogLine& line) {
    const Sinks& sinks = currentSinks();
    if (captureCount.load(std::memory_order_acquire) > 0) {
        const CaptureList list = *captures().lock();
        for (const auto& capture : list) {
            capture->list.lock()->push_back(line);
        }
    }
    writeToSinks(sinks, line);
}

std::uint64_t droppedLogLines() {
    return dropped().load(std::memory_order_relaxed);
}

LogCapture::LogCapture() : lines_(std::make_shared<CapturedLines>()) {
    const auto list = captures().lock();
    list->push_back(lines_);
    captureCount.store(list->size(), std::memory_order_release);
    updateLevels(*list);
}

LogCapture::~LogCapture() {
    const auto list = captures().lock();
    std::erase(*list, lines_);
    captureCount.store(list->size(), std::memory_order_release);
    updateLevels(*list);
}

std::vector<LogLine> LogCapture::lines() const {
    return *lines_->list.lock();
}

std::vector<std::string> LogCapture::at(LogLevel level) const {
    std::vector<std::string> texts;
    const auto list = lines_->list.lock();
    for (const LogLine& line : *list) {
        if (line.level == level) {
            texts.push_back(line.fullForm);
        }
    }
    return texts;
}

std::size_t LogCapture::count(std::string_view fullForm) const {
    const auto list = lines_->list.lock();
    return static_cast<std::size_t>(
        std::count_if(list->begin(), list->end(), [&](const LogLine& line) { return line.fullForm == fullForm; }));
}

void LogCapture::clear() {
    lines_->list.lock()->clear();
}

}  // namespace ksw::host
