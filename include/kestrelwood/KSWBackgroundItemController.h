// KSWBackgroundItemController.h: a user's background items, kept current for a user interface.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/agent_item_set.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/notification.h>
#include <kestrelwood/values/url.h>

class KSWBackgroundItemController;

/// Is told when the items of a controller have been fetched anew. A controller does not own its delegate.
class KSW_EXPORT KSWBackgroundItemControllerDelegate {
public:
    virtual ~KSWBackgroundItemControllerDelegate();
    /// Called on the main queue (main_queue.h). May use the controller, and let it go. Must not throw.
    virtual void backgroundItemControllerDidChangeItems(
        const std::shared_ptr<KSWBackgroundItemController>& controller);
    /// Whether the call above is wanted; where it is not, it is not made.
    virtual bool wantsBackgroundItemControllerDidChangeItems() const { return true; }
};

/// Holds the background items that the agent has, and fetches them anew when it announces a change, whoever made
/// it. The announcement `kKSWBackgroundItemsChangeNotification` is observed from the end of the construction on.
///
/// Threads: any thread may call anything. A fetch holds up nobody: its answer comes on the agent connection's own
/// thread. The delegate is called on the main queue. When the last owner lets go of the controller, nothing is
/// called any more for it, whatever is under way, but for the completions of elections. A forked child makes
/// controllers of its own.
class KSW_EXPORT KSWBackgroundItemController {
public:
    /// Who is told, the items at one time, and what is called with whether a decision was taken over, once.
    using Delegate = KSWBackgroundItemControllerDelegate;
    using Items = ksw::AgentItemSet<KSWBackgroundItem>;
    using Completion = std::function<void(bool success)>;

    /// A controller that starts without items, and has them when the agent has answered. Never null.
    static std::shared_ptr<KSWBackgroundItemController> initWithDelegate(const std::shared_ptr<Delegate>& delegate);
    ~KSWBackgroundItemController();
    KSWBackgroundItemController(const KSWBackgroundItemController&) = delete;
    KSWBackgroundItemController& operator=(const KSWBackgroundItemController&) = delete;

    /// Null when there is none, or none any more.
    std::shared_ptr<Delegate> delegate() const;
    void setDelegate(const std::shared_ptr<Delegate>& delegate);
    /// The items of the last fetch that the agent answered.
    Items items() const;

    /// Tell the agent what the user decided. `completion` runs once, on the agent connection's own thread, with
    /// whether the agent took it; a failure is logged. For null instead of an item it has run when this returns.
    void setUserElection(std::int64_t election, const std::shared_ptr<const KSWBackgroundItem>& item,
                         Completion completion);
    void setUserElection(std::int64_t election, const std::optional<ksw::URL>& url, Completion completion);

    /// What happens when a notification comes: with the announcement's name, a fetch.
    void handleBackgroundItemsChangeNotification(const ksw::Notification& notification);

private:
    struct State;

    explicit KSWBackgroundItemController(std::shared_ptr<State> state);

    const std::shared_ptr<State> state_;
};
