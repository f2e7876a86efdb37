// activity.h: names what a thread is doing, so that its log lines can be told from those of another request.
#pragma once

#include <cstdint>
#include <string_view>

namespace ksw::host {

/// An activity of a thread. Id 0: none.
struct Activity {
    std::uint64_t id = 0;
    std::string_view name;  ///< Borrowed from the scope.
};

/// The innermost activity of the calling thread.
Activity currentActivity();

/// Puts the calling thread inside an activity until the scope ends. Scopes nest; each is left on the thread that
/// entered it, innermost first.
class ActivityScope {
public:
    /// Whether a thread that is inside an activity enters another.
    enum class Rule {
        Always,
        OnlyIfNone  ///< The scope does nothing inside another one.
    };

    /// `name` is borrowed for as long as the scope lives.
    explicit ActivityScope(std::string_view name, Rule rule = Rule::Always);
    ~ActivityScope();
    ActivityScope(const ActivityScope&) = delete;
    ActivityScope& operator=(const ActivityScope&) = delete;

private:
    friend Activity currentActivity();

    Activity activity_;
    const ActivityScope* outer_ = nullptr;
};

}  // namespace ksw::host
