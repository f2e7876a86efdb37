// KSWList.h: the items of one user that match a type mask, as the management daemon last told them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values.h>

class KSWList;
class KSWManager;

/// Is told when the items of a list may have changed. A list owns its observers.
class KSW_EXPORT KSWListObserver {
public:
    virtual ~KSWListObserver();
    /// Called when a change was announced that concerns the list, on the thread on which all managers of the
    /// process are told, which it holds up for as long as it runs. The list has been refreshed before, unless that
    /// failed or the feature "AutoRefreshLists" is off: then it is as it was. May use the list and its manager, and
    /// add or remove observers. Must not throw.
    virtual void listDidChange(const std::shared_ptr<KSWList>& list) = 0;
};

/// A snapshot of items. A list that `KSWManager::getItemsMatching` handed out is refreshed, and its observers told,
/// when the daemon announces a change of its user's items; any other list changes by `refresh` and `setItems` only.
/// Changes made through a list go to the daemon under the list's uid, and show in the list after its next refresh.
///
/// Threads: any thread may call anything, at the same time too. What `items` and `containers` hand out is a copy of
/// the list's pointers; the items themselves follow the rule of `KSWItem`.
class KSW_EXPORT KSWList : public std::enable_shared_from_this<KSWList> {
public:
    /// The items in their order, and who is told of changes.
    using Items = std::vector<std::shared_ptr<KSWItem>>;
    using Observers = std::set<std::shared_ptr<KSWListObserver>>;

    ~KSWList();
    KSWList(const KSWList&) = delete;
    KSWList& operator=(const KSWList&) = delete;

    /// An empty list of all kinds (4095) of the calling process's real user, with the shared manager. Never null.
    static std::shared_ptr<KSWList> init();
    /// A list of these items; null ones are left out. Without a manager: the shared one. Never null. A null
    /// `manager` makes a list whose changes answer false and whose refresh finds nothing.
    static std::shared_ptr<KSWList> initWithItems(const Items& items, ksw::Uid uid, std::int64_t type);
    static std::shared_ptr<KSWList> initWithItems(const Items& items, ksw::Uid uid, std::int64_t type,
                                                  std::shared_ptr<KSWManager> manager);
    /// Reads a list from a keyed archive, with the shared manager and without observers. Null when the archive
    /// cannot be read or has no "items"; `error`, when given, receives the reason then.
    static std::shared_ptr<KSWList> initWithCoder(ksw::Bytes archive, std::optional<ksw::Error>* error = nullptr);
    /// The list's keyed archive: uid, type and items. Absent when an item cannot be archived.
    std::optional<ksw::Data> encodeWithCoder(std::optional<ksw::Error>* error = nullptr) const;

    /// The user whose items these are; refreshing uses it.
    ksw::Uid uid() const;
    void setUid(ksw::Uid uid);
    /// The mask of the item types that the list holds (KSWTypes.h).
    std::int64_t type() const;
    /// The items in the daemon's order. Each keeps its containers alive.
    Items items() const;
    /// Shows these items until the next refresh; null ones are left out. The daemon is not told.
    void setItems(Items items);
    /// Every container of an item, once.
    Items containers() const;
    /// The observers themselves, not a copy: not while another thread adds or removes one.
    const Observers& observers() const;

    /// How many items the list has now.
    std::size_t count() const;
    /// Throws `std::out_of_range` for an index that is not below `count`.
    std::shared_ptr<KSWItem> itemAtIndex(std::size_t index) const;
    /// The index of the first item that equals this one (by identifier); absent when there is none.
    std::optional<std::size_t> indexOfItem(const std::shared_ptr<const KSWItem>& item) const;
    bool containsItem(const std::shared_ptr<const KSWItem>& item) const;
    /// One line for messages.
    std::string description() const;

    // Changes. As the operations of KSWManager of the same names, for the list's user.

    bool addItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error = nullptr);
    bool removeItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error = nullptr);
    bool updateItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error = nullptr);
    bool updateItems(const ksw::ItemSet::Pointer& items, std::optional<ksw::Error>* error = nullptr);

    /// Asks the daemon anew and takes over what it answers. False after a failure, and then the list is as it was;
    /// `refresh` logs it, `refreshWithError` hands out the error.
    bool refresh();
    bool refreshWithError(std::optional<ksw::Error>* error = nullptr);

    /// The same observer twice counts once; null is left out. One that is removed while another thread is telling
    /// the observers of a change may be called once more after `removeListObserver` has returned.
    void addListObserver(const std::shared_ptr<KSWListObserver>& observer);
    void removeListObserver(const std::shared_ptr<KSWListObserver>& observer);

private:
    friend class KSWManager;
    struct State;

    explicit KSWList(std::unique_ptr<State> state);
    /// The observers at this moment.
    std::vector<std::shared_ptr<KSWListObserver>> currentObservers() const;

    std::unique_ptr<State> state_;
};
