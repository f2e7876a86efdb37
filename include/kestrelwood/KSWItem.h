// KSWItem.h: the record of one background item.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/item_set.h>
#include <kestrelwood/values.h>

namespace ksw {
struct ItemFields;
struct ItemAccess;
}  // namespace ksw

/// A login item, agent, daemon, extension or application, or the parent that groups a developer's items. The
/// framework and the management daemon exchange these.
///
/// Held by `std::shared_ptr` only. An item owns its children (`embeddedItems`) and refers weakly to its parent
/// (`container`): whoever needs the parent holds it. Absent fields are `std::nullopt`. No operation locks: one item
/// may be read by many threads as long as none writes it or one of its relatives.
class KSW_EXPORT KSWItem : public std::enable_shared_from_this<KSWItem> {
public:
    /// An item, held; texts that may be absent; lists of texts; and what is called with each item of a family.
    using Pointer = std::shared_ptr<KSWItem>;
    using OptionalString = std::optional<std::string>;
    using Strings = std::vector<std::string>;
    using Visitor = std::function<void(const Pointer& item)>;

    /// An item with nothing in it, not even a UUID or a set of children: what decoding starts from.
    KSWItem();
    ~KSWItem();
    KSWItem(const KSWItem&) = delete;
    KSWItem& operator=(const KSWItem&) = delete;

    /// A new item of class `Item` with a random UUID, an empty set of children, and the flag of a legacy item when
    /// the type has that bit. The type is taken as it is. Never null.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> initWithType(KSWItemType type, OptionalString identifier) {
        auto item = std::make_shared<Item>();
        item->startWithType(type, std::move(identifier));
        return item;
    }
    template <class Item = KSWItem>
    static std::shared_ptr<Item> itemWithType(KSWItemType type, OptionalString identifier) {
        return initWithType<Item>(type, std::move(identifier));
    }

    // Items of files. What cannot be read of a file stays empty. Each blocks for the reading.

    /// A new item for the file at the URL, with what `_initPropertiesWithURL` fills in. Null when no identifier can
    /// be computed for it. Throws `std::invalid_argument` for a developer's type and for one that is no single base
    /// kind.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> initWithType(KSWItemType type, const ksw::URL& url) {
        OptionalString identifier = identifierOfFile(type, url);
        return identifier ? itemWithType<Item>(type, url, std::move(identifier)) : nullptr;
    }
    template <class Item = KSWItem>
    static std::shared_ptr<Item> itemWithType(KSWItemType type, const ksw::URL& url) {
        return initWithType<Item>(type, url);
    }
    /// The same under a given identifier; never null.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> itemWithType(KSWItemType type, const ksw::URL& url, OptionalString identifier) {
        auto item = initWithType<Item>(type, std::move(identifier));
        item->_initPropertiesWithURL(url, std::nullopt);
        return item;
    }
    /// The same in a container, whose child it becomes and whose developer's name it takes. Enabled; allowed too,
    /// unless it is a daemon and the container does not have a daemon yet, or not all of its children are allowed.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> itemWithType(KSWItemType type, const ksw::URL& url, OptionalString identifier,
                                              const Pointer& container) {
        auto item = initWithType<Item>(type, std::move(identifier));
        item->startInContainer(url, container);
        return item;
    }
    /// Fills a new item from its file: URL, name, date; the bookmark of a user item and an application; and unless
    /// it is an agent or daemon, what the signature of its code says. With a container's URL the file is looked for
    /// in there by its relative path, and not looked at when that leads out of it.
    void _initPropertiesWithURL(const ksw::URL& url, const std::optional<ksw::URL>& containerURL);

    // Items of other items and of jobs. Never null.

    /// The item that groups what the same developer has made; that of the unknown developer for what nobody signed.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> developerItemForItem(const KSWItem& item) {
        auto developer = initWithType<Item>(KSWItemTypeDeveloper, identifierOfDeveloper(item));
        developer->startAsDeveloperOf(item);
        return developer;
    }
    /// A copy of a record, flags and UUID included, without its container and children.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> baseItemFromItemRecord(const KSWItem& record) {
        auto item = initWithType<Item>(record.type(), record.identifier());
        item->startAsCopyOf(record);
        return item;
    }
    /// The item of an agent or daemon of the old kind, by its job file and launch configuration; enabled and
    /// allowed. The user's parent applications are registered first (`RegisterParentApps`). With `containerURL`
    /// given, the configuration's properties are applied, and it receives what that gives.
    template <class Item = KSWItem>
    static std::shared_ptr<Item> legacyAgentOrDaemonItemWithType(KSWItemType type, const ksw::URL& url,
                                                                 OptionalString identifier,
                                                                 const std::optional<ksw::Dictionary>& config,
                                                                 std::optional<ksw::URL>* containerURL,
                                                                 ksw::Uid uid) {
        registerParentApps(config, uid);
        auto item = itemWithType<Item>(type, url, std::move(identifier));
        item->startAsLegacyJob(config, containerURL);
        return item;
    }

    /// A plain item with the same UUID, values, parent and children (which still name the source as their parent).
    /// Flags do not come along: a copy starts with none.
    Pointer copyWithZone() const;
    Pointer copy() const { return copyWithZone(); }

    /// Whether the other is an item with the same identifier. An item without identifier equals nothing.
    bool isEqual(const KSWItem* other) const;
    bool isEqual(const KSWItem& other) const { return isEqual(&other); }
    bool isEqual(const std::shared_ptr<const KSWItem>& other) const { return isEqual(other.get()); }
    /// The hash of the identifier.
    std::size_t hash() const;

    /// One line for messages.
    std::string description() const;
    /// Several lines, one field each, for a person.
    std::string dumpVerboseDescription() const;

    // The stored fields, in the order of their declaration. Byte strings, texts and lists are copied in.

    KSWItemType type() const;
    /// Throws `std::invalid_argument` unless exactly one base kind is set. The bit of a legacy type raises the flag
    /// of a legacy item; nothing lowers it again.
    void setType(KSWItemType type);
    KSWItemFlags flags() const;
    void setFlags(KSWItemFlags flags);
    const OptionalString& name() const;
    /// Stores the name; the placeholder "Unknown Developer" is stored as none.
    void setName(OptionalString name);
    /// The stored developer name, empty when none is stored.
    const std::string& developerName() const;
    /// Stores the name; an empty one and the placeholder "Unknown Developer" are stored as none.
    void setDeveloperName(OptionalString developerName);
    /// The parent; null when there is none or it is gone. The caller owns what it gets.
    Pointer container() const;
    /// Links the item to its parent and adds it to the parent's children; null removes it from its parent's
    /// children. A former parent keeps the item when a new one is set.
    void setContainer(const Pointer& container);
    void _setContainer(const Pointer& container);
    /// The children; null for an item that came without them, which differs from having none.
    const ksw::ItemSet::Pointer& embeddedItems() const;
    void setEmbeddedItems(ksw::ItemSet::Pointer embeddedItems);
    void setEmbeddedItems(const std::vector<Pointer>& items) { setEmbeddedItems(ksw::ItemSet::of(items)); }
    void setEmbeddedItems(std::initializer_list<Pointer> items) { setEmbeddedItems(ksw::ItemSet::of(items)); }
    bool isEditable() const;
    void setEditable(bool editable);
    bool canHide() const;
    void setCanHide(bool canHide);
    /// Whether `resolvedURL` last found the file elsewhere, or another one in its place.
    bool isResolvedURLStale() const;
    void setIsResolvedURLStale(bool stale);
    const std::optional<ksw::UUID>& uuid() const;
    void setUuid(std::optional<ksw::UUID> uuid);
    const OptionalString& identifier() const;
    void setIdentifier(OptionalString identifier);
    const std::optional<ksw::URL>& url() const;
    void setUrl(std::optional<ksw::URL> url);
    /// Seconds since 2001-01-01 00:00:00 UTC; 0 when unknown.
    double modificationDate() const;
    void setModificationDate(double modificationDate);
    const std::optional<ksw::Data>& sha256() const;
    void setSha256(std::optional<ksw::Data> sha256);
    const OptionalString& executablePath() const;
    void setExecutablePath(OptionalString executablePath);
    /// Seconds since 2001-01-01 00:00:00 UTC; 0 when unknown.
    double executableModificationDate() const;
    void setExecutableModificationDate(double executableModificationDate);
    const std::optional<Strings>& programArguments() const;
    void setProgramArguments(std::optional<Strings> programArguments);
    KSWDisposition disposition() const;
    void setDisposition(KSWDisposition disposition);
    const OptionalString& bundleIdentifier() const;
    void setBundleIdentifier(OptionalString bundleIdentifier);
    const std::optional<Strings>& associatedBundleIdentifiers() const;
    void setAssociatedBundleIdentifiers(std::optional<Strings> associatedBundleIdentifiers);
    const std::optional<ksw::Data>& bookmark() const;
    void setBookmark(std::optional<ksw::Data> bookmark);
    const OptionalString& teamIdentifier() const;
    void setTeamIdentifier(OptionalString teamIdentifier);
    const OptionalString& designatedRequirement() const;
    void setDesignatedRequirement(OptionalString designatedRequirement);
    const std::optional<ksw::Data>& lightweightRequirement() const;
    void setLightweightRequirement(std::optional<ksw::Data> lightweightRequirement);
    /// A change counter that the management daemon keeps.
    std::int64_t generation() const;
    void setGeneration(std::int64_t generation);

    /// The identifier without the number of its kind.
    OptionalString baseIdentifier() const;
    /// The digest in upper-case hexadecimal; empty when there is none.
    std::string sha256String() const;

    // One bit of the disposition each; a setter leaves the others.

    bool isEnabled() const;
    void setEnabled(bool enabled);
    bool isAllowed() const;
    void setAllowed(bool allowed);
    bool isHidden() const;
    void setHidden(bool hidden);
    bool notified() const;
    void setNotified(bool notified);
    bool hasPendingAuthorization() const;
    void setPendingAuthorization(bool pendingAuthorization);

    // One bit of the flags each; a setter leaves the others. Whether an item is legacy is told by its type.

    bool isLegacy() const;
    bool isGlobal() const;
    void setGlobal(bool global);
    bool isCurated() const;
    void setCurated(bool curated);
    bool isManaged() const;
    void setManaged(bool managed);
    bool addedByProfile() const;
    void setAddedByProfile(bool addedByProfile);
    bool addedByQDM() const;
    void setAddedByQDM(bool addedByQDM);
    bool isSandboxed() const;
    void setSandboxed(bool sandboxed);

    // Questions to the type, provenance bits included.

    /// Equal; any bit in common; every bit of `mask` set; every bit of `included` and any of `mask` set.
    bool isType(KSWItemType type) const;
    bool intersectsType(KSWItemType mask) const;
    bool matchesType(KSWItemType mask) const;
    bool includesType(KSWItemType mask) const;
    bool intersectsType(KSWItemType mask, KSWItemType included) const;
    bool isDaemon() const;
    /// Whether items of the kind keep their data in a place of the system's and not of a user's.
    bool hasGlobalDataType() const;
    /// Whether the developer's name is missing or empty: a developer's own name, any other item's developer name.
    bool isUnknownDeveloper() const;
    /// Whether it is a developer item that no developer name was ever stored in.
    bool isUnknownDeveloperRecord() const;

    // The children. A change replaces the set by a changed copy, so whoever holds the former set keeps it as it
    // was.

    std::size_t countOfEmbeddedItems() const;
    ksw::ItemEnumerator enumeratorOfEmbeddedItems() const;
    /// The child that equals the item; null when there is none.
    Pointer memberOfEmbeddedItems(const std::shared_ptr<const KSWItem>& item) const;
    void addEmbeddedItemsObject(const Pointer& item);
    void removeEmbeddedItemsObject(const std::shared_ptr<const KSWItem>& item);
    void intersectEmbeddedItems(const ksw::ItemSet::Pointer& items);
    void intersectEmbeddedItems(const std::vector<Pointer>& items) {
        intersectEmbeddedItems(ksw::ItemSet::of(items));
    }
    void intersectEmbeddedItems(std::initializer_list<Pointer> items) {
        intersectEmbeddedItems(ksw::ItemSet::of(items));
    }

    /// Calls `visit` once for each item of the item's tree: from the item down, or from the outermost parent that
    /// is not the record of the unknown developer; parents first unless the options say otherwise.
    void enumerateFamilyTreeWithOptions(KSWFamilyTreeOptions options, const Visitor& visit);
    /// From the root, parents first.
    void enumerateFamilyTreeUsingBlock(const Visitor& visit);

    // The direct children together; the item itself is not asked.

    /// Every child is allowed; true without children.
    bool isAggregateAllowed() const;
    void setAggregateAllowed(bool allowed);
    /// Any child is notified.
    bool isAggregateNotified() const;
    void setAggregateNotified(bool notified);
    /// Any child is managed.
    bool isAggregateManaged() const;
    void setAggregateManaged(bool managed);
    /// Any child is a daemon.
    bool containsDaemon() const;

    /// The path of the item's file, through its parents for one that lives inside its application; absent when it
    /// has none. Logs a fault for an item that is its own parent.
    OptionalString fullPath() const;
    /// The disposition that holds, from the item, its parent, the parent's children, and whether its file lies in
    /// the trash (which reads the file system). Never has the bit of pending authorization.
    KSWDisposition effectiveDisposition() const;

    // What the file system says of the item's files now. Each looks at them on every call, and blocks as long as
    // the file system does. None fails: what cannot be read is absent or false.

    /// Where the item's file is: of a user item and an application by its bookmark, of any other below its parent's
    /// place. Stores whether the bookmark asks to be replaced (`isResolvedURLStale`), the parent's too. Absent for
    /// a legacy item, whose files do not move, and when the file is not found.
    std::optional<ksw::URL> resolvedURL();
    /// The name to show to a person, in the user's language; the stored name where the file system has none.
    OptionalString localizedName() const;
    /// Whether the file at `url` has exactly the stored date.
    bool modificationDateMatchesFileSystem() const;
    /// The same of the file at `executablePath`.
    bool executableModificationDateMatchesFileSystem() const;
    /// Stores the date of the file at the URL as the executable's; leaves the stored one when it cannot be read.
    void _setExecutableModificationDateFromURL(const ksw::URL& url);
    /// Brings `url` and `bookmark` of a user item or an application back in line after its file was moved or
    /// replaced: a new bookmark while there is a file at `url`, else the new place as `url`. Whether it changed the
    /// item.
    bool syncURLAndBookmark();
    /// The file that shows a person what the item is: an application, its own file, or none. One that is not there
    /// is looked for once more after `syncURLAndBookmark` of the container and the item, and answered all the same.
    std::optional<ksw::URL> iconURL();
    /// The application of this identifier that the calling user has; absent without one.
    static std::optional<ksw::URL> _urlForBundleIdentifier(const OptionalString& bundleIdentifier);

    // What an agent's or daemon's launch configuration (the keys in KSWTypes.h) says of it. A value of another kind
    // than its key asks for, or longer than 64 KiB, counts as absent. Both block for the files and applications
    // that it names, and for the verification of signatures.

    /// Takes the program that the job runs, its arguments and digest, what its signature says, who its developer
    /// is, and which applications it belongs to. A relative program of an item that is not legacy is one inside the
    /// container; one that leads out of it counts as none. The result is the application that vouches for the item:
    /// the first that the job names and that the same team has signed; absent when there is none.
    std::optional<ksw::URL> setPropertiesWithKSWConfig(const std::optional<ksw::Dictionary>& config);
    /// When the job only opens an application ("open -a /Applications/X.app"), takes that application's path, date
    /// and name as the item's. Whether it was so, and the application found.
    bool setExecutablePathFromLauncherTargetWithConfig(const std::optional<ksw::Dictionary>& config);

private:
    friend struct ksw::ItemAccess;

    void startWithType(KSWItemType type, OptionalString identifier);
    void startInContainer(const ksw::URL& url, const Pointer& container);
    void startAsDeveloperOf(const KSWItem& item);
    void startAsCopyOf(const KSWItem& record);
    void startAsLegacyJob(const std::optional<ksw::Dictionary>& config, std::optional<ksw::URL>* containerURL);
    static OptionalString identifierOfFile(KSWItemType type, const ksw::URL& url);
    static OptionalString identifierOfDeveloper(const KSWItem& item);
    static void registerParentApps(const std::optional<ksw::Dictionary>& config, ksw::Uid uid);

    std::unique_ptr<ksw::ItemFields> fields_;
};
