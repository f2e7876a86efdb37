// KSWLoginItemController.h: a user's login items, kept current for a user interface.
#pragma once

#include <cstdint>
#include <memory>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/agent_item_set.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/notification.h>

class KSWLoginItemController;

/// Is told when the items of a controller have been fetched anew. A controller does not own its delegate.
class KSW_EXPORT KSWLoginItemControllerDelegate {
public:
    virtual ~KSWLoginItemControllerDelegate();
    /// Called on the main queue (main_queue.h). May use the controller, and let it go. Must not throw.
    virtual void loginItemControllerDidChangeItems(const std::shared_ptr<KSWLoginItemController>& controller);
    /// Whether the call above is wanted; where it is not, it is not made.
    virtual bool wantsLoginItemControllerDidChangeItems() const { return true; }
};

/// Holds the login items of some types, and fetches them anew when the agent announces a change, whoever made it.
/// The announcement `kKSWBackgroundItemsChangeNotification` is observed from the end of the construction on.
///
/// Threads: any thread may call anything. Items are fetched on the thread that constructs the controller, then on
/// the one on which the process is told of its session's notifications; a fetch blocks it until the agent has
/// answered. The delegate is called on the main queue. When the last owner lets go of the controller, nothing is
/// called any more for it, whatever is under way. A forked child makes controllers of its own.
class KSW_EXPORT KSWLoginItemController {
public:
    /// Who is told, and the items at one time.
    using Delegate = KSWLoginItemControllerDelegate;
    using Items = ksw::AgentItemSet<KSWLoginItem>;

    /// A controller of the items whose type has a bit of the mask (KSWTypes.h). Blocks for the first fetch; without
    /// an agent there are no items. Never null.
    static std::shared_ptr<KSWLoginItemController> initWithTypeMask(std::uint64_t typeMask,
                                                                    const std::shared_ptr<Delegate>& delegate);
    ~KSWLoginItemController();
    KSWLoginItemController(const KSWLoginItemController&) = delete;
    KSWLoginItemController& operator=(const KSWLoginItemController&) = delete;

    /// Null when there is none any more.
    std::shared_ptr<Delegate> delegate() const;
    std::uint64_t typeMask() const;
    /// The items of the last fetch that the agent answered.
    Items items() const;

    /// Have the agent add or remove a login item. Block until it has answered. A failure is only logged; what
    /// became of it shows in `items` after the agent's announcement.
    void addLoginItem(const std::shared_ptr<KSWLoginItem>& item);
    void removeLoginItem(const std::shared_ptr<KSWLoginItem>& item);

    /// What happens when a notification comes: with the announcement's name, a fetch.
    void handleLoginItemsChangeNotification(const ksw::Notification& notification);

private:
    struct State;

    explicit KSWLoginItemController(std::shared_ptr<State> state);

    const std::shared_ptr<State> state_;
};
