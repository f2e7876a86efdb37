// KSWTypes.h: the kinds, flags and dispositions of items, the keys of launch configurations, and their texts.
// The numbers and texts are exchanged with the management daemon and never change. All functions: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/export.h>
#include <kestrelwood/values/string_constant.h>
#include <kestrelwood/values/url.h>

/// What an item is: one base kind in the low 12 bits (KSWItemTypeAll), and provenance bits above them.
using KSWItemType = std::uint64_t;

inline constexpr KSWItemType KSWItemTypeUserItem = 0x1;
inline constexpr KSWItemType KSWItemTypeApp = 0x2;
inline constexpr KSWItemType KSWItemTypeLoginItem = 0x4;
inline constexpr KSWItemType KSWItemTypeAgent = 0x8;
inline constexpr KSWItemType KSWItemTypeDaemon = 0x10;
/// Not a thing that launches: the parent of all items that are attributed to one developer.
inline constexpr KSWItemType KSWItemTypeDeveloper = 0x20;
inline constexpr KSWItemType KSWItemTypeLodestar = 0x40;
inline constexpr KSWItemType KSWItemTypeShelfTile = 0x80;
inline constexpr KSWItemType KSWItemTypeInputMethod = 0x100;
inline constexpr KSWItemType KSWItemTypeSmartCard = 0x200;
inline constexpr KSWItemType KSWItemTypeColorPicker = 0x400;
inline constexpr KSWItemType KSWItemTypeGlimpse = 0x800;
/// Every base kind. A mask for queries, and for taking the base kind out of a type; no item's own type.
inline constexpr KSWItemType KSWItemTypeAll = 0xFFF;

// Provenance bits, beside the base kind.
inline constexpr KSWItemType KSWItemTypeLegacyBit = 0x10000;
inline constexpr KSWItemType KSWItemTypeManagedBit = 0x20000;
inline constexpr KSWItemType KSWItemTypeCuratedBit = 0x80000;
inline constexpr KSWItemType KSWItemTypeProfileAddedBit = 0x100000;
inline constexpr KSWItemType KSWItemTypeGlobalBit = 0x200000;

/// Where an item comes from and which policy holds for it.
using KSWItemFlags = std::uint64_t;

inline constexpr KSWItemFlags KSWItemFlagLegacy = 0x1;
inline constexpr KSWItemFlags KSWItemFlagGlobal = 0x2;
inline constexpr KSWItemFlags KSWItemFlagCurated = 0x4;
inline constexpr KSWItemFlags KSWItemFlagManaged = 0x8;
inline constexpr KSWItemFlags KSWItemFlagProfileAdded = 0x10;
inline constexpr KSWItemFlags KSWItemFlagQDMAdded = 0x20;
inline constexpr KSWItemFlags KSWItemFlagSandboxed = 0x40;

/// The state of an item that its user sees and decides.
using KSWDisposition = std::uint64_t;

inline constexpr KSWDisposition KSWDispositionEnabled = 0x1;
inline constexpr KSWDisposition KSWDispositionAllowed = 0x2;
inline constexpr KSWDisposition KSWDispositionHidden = 0x4;
inline constexpr KSWDisposition KSWDispositionNotified = 0x8;
inline constexpr KSWDisposition KSWDispositionPendingAuthorization = 0x10;

/// How a family of items is walked: a bit set.
using KSWFamilyTreeOptions = std::uint64_t;

inline constexpr KSWFamilyTreeOptions KSWFamilyTreeFromRoot = 0x1;
inline constexpr KSWFamilyTreeOptions KSWFamilyTreeChildrenFirst = 0x2;

// Keys of a launch configuration; each key's text is its own name.
inline constexpr ksw::StringConstant KSWConfigLabel = "KSWConfigLabel";
inline constexpr ksw::StringConstant KSWConfigArguments = "KSWConfigArguments";
inline constexpr ksw::StringConstant KSWConfigExecutablePath = "KSWConfigExecutablePath";
inline constexpr ksw::StringConstant KSWConfigBundleIdentifiers = "KSWConfigBundleIdentifiers";
inline constexpr ksw::StringConstant KSWConfigBundleProgram = "KSWConfigBundleProgram";
inline constexpr ksw::StringConstant KSWConfigSHA256Checksum = "KSWConfigSHA256Checksum";

/// The text of a base kind or of a composite that queries use: "agent", "login item or agent", "all"; "unknown"
/// for any other. Bits above the base kind are ignored.
KSW_EXPORT std::string KSWItemTypeBaseDescription(KSWItemType type);

/// The base text behind the words of the provenance bits: "legacy agent".
KSW_EXPORT std::string KSWItemTypeDescription(KSWItemType type);

/// "[ legacy, managed ]"; "[  ]" for none.
KSW_EXPORT std::string KSWItemFlagsDescription(KSWItemFlags flags);

/// "[enabled, allowed, visible, not notified]", and " (pending authorization)" behind it when that bit is set.
KSW_EXPORT std::string KSWDispositionDescription(KSWDisposition disposition);

/// Whether an item with this disposition may launch: it is enabled and allowed.
KSW_EXPORT bool KSWDispositionIsLaunchable(KSWDisposition disposition);

/// Whether an item may be of this type: exactly one base kind; provenance bits do not matter.
KSW_EXPORT bool ValidateItemType(KSWItemType type);

/// Whether a registration may name these two URLs for an item of this type. `bundleURL` is the application that
/// carries the item, `url` the item's file. Only texts are looked at, no file.
KSW_EXPORT bool KSWItemTypeValidateRegistrationParameters(KSWItemType type,
                                                          const std::optional<ksw::URL>& bundleURL,
                                                          const std::optional<ksw::URL>& url);

namespace ksw {

using ::ValidateItemType;

/// Where an operation stores a disposition: a number of the caller's, signed as dispositions travel or unsigned as
/// items hold them, or nowhere (null). Borrows the number for the call.
class DispositionPlace {
public:
    /// The place that a pointer names; it must outlive the call.
    DispositionPlace(std::nullptr_t /*nowhere*/) {}
    DispositionPlace(std::int64_t* place) : place_(place) {}
    DispositionPlace(KSWDisposition* place) : place_(reinterpret_cast<std::int64_t*>(place)) {}

    /// Writes the disposition there; nothing when the place is nowhere.
    void store(std::int64_t disposition) const {
        if (place_ != nullptr) {
            *place_ = disposition;
        }
    }

private:
    std::int64_t* place_ = nullptr;
};

}  // namespace ksw
