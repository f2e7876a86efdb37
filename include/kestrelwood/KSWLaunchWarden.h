// KSWLaunchWarden.h: what applications ask that want to know whether they may launch something.
#pragma once

#include <functional>
#include <vector>

#include <kestrelwood/export.h>
#include <kestrelwood/values/url.h>

/// Answers that everything may be loaded: whether it launches is decided when it does, and by others. The one thing
/// that it does is to open the user's settings. Has no state.
///
/// Threads: any. Each completion runs exactly once; an empty one is not called. All but that of
/// `openLoginItemsWithCompletion` run on the calling thread before the operation returns.
class KSW_EXPORT KSWLaunchWarden {
public:
    /// Files, and what is called with an answer, once.
    using URLs = std::vector<ksw::URL>;
    using BoolCompletion = std::function<void(bool)>;
    using URLsCompletion = std::function<void(URLs urls)>;
    using Completion = std::function<void()>;

    KSWLaunchWarden(const KSWLaunchWarden&) = delete;
    KSWLaunchWarden& operator=(const KSWLaunchWarden&) = delete;

    /// The process's only one, made on first use and never destroyed.
    static KSWLaunchWarden& sharedInstance();

    /// Completes with true.
    void canLoadStewardJobWithURL(const ksw::URL& url, const BoolCompletion& completion);
    /// Completes with the same URLs.
    void canLoadStewardJobWithURLs(const URLs& urls, const URLsCompletion& completion);
    /// Completes with true.
    void canLoadServiceLoginItemWithURL(const ksw::URL& url, const BoolCompletion& completion);
    /// Completes with the same URLs.
    void canLoadServiceLoginItemWithURLs(const URLs& urls, const URLsCompletion& completion);
    /// Completes, and changes nothing.
    void setPromptingEnabled(bool enabled, const Completion& completion);
    /// Completes with false.
    void getPromptingEnabledWithCompletion(const BoolCompletion& completion);

    /// Asks the agent to open the user's settings of login items, and returns at once. The completion runs on the
    /// agent connection's own thread, also when that failed, which is only logged.
    void openLoginItemsWithCompletion(Completion completion);

private:
    static KSWLaunchWarden _init() { return {}; }
    KSWLaunchWarden() = default;
};
