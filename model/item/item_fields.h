// item_fields.h: what an item holds. For the files of this folder alone.
#pragma once

#include <kestrelwood/KSWItem.h>

namespace ksw {

/// The stored fields of an item; what they mean stands at the accessors.
struct ItemFields {
    using OptionalString = KSWItem::OptionalString;
    using OptionalStrings = std::optional<KSWItem::Strings>;

    KSWItemType type = 0;
    KSWItemFlags flags = 0;
    OptionalString name;
    OptionalString developerName;
    std::weak_ptr<KSWItem> container;
    ItemSet::Pointer embeddedItems;
    bool editable = false;
    bool canHide = false;
    bool isResolvedURLStale = false;
    std::optional<UUID> uuid;
    OptionalString identifier;
    std::optional<URL> url;
    double modificationDate = 0;
    std::optional<Data> sha256;
    OptionalString executablePath;
    double executableModificationDate = 0;
    OptionalStrings programArguments;
    KSWDisposition disposition = 0;
    OptionalString bundleIdentifier;
    OptionalStrings associatedBundleIdentifiers;
    std::optional<Data> bookmark;
    OptionalString teamIdentifier;
    OptionalString designatedRequirement;
    std::optional<Data> lightweightRequirement;
    std::int64_t generation = 0;
};

/// The way from an item to its fields.
struct ItemAccess {
    static ItemFields& fields(KSWItem& item) { return *item.fields_; }
    static const ItemFields& fields(const KSWItem& item) { return *item.fields_; }
    /// A set of these items as they are: nobody has looked yet whether some are equal. None is null.
    static ItemSet::Pointer uncheckedSet(std::vector<ItemSet::Member> members) {
        auto set = std::make_shared<ItemSet>();
        set->members_ = std::move(members);
        return set;
    }
    /// The members of a set, in their order.
    static std::span<const ItemSet::Member> members(const ItemSet& set) { return set.members_; }
};

/// Stands where no developer is known; never stored.
inline constexpr std::string_view kUnknownDeveloper = "Unknown Developer";

}  // namespace ksw
