#include "platform/facts/attributions.h"

#include <cerrno>
#include <utility>

#include "platform/base/limits.h"
#include "platform/facts/resources.h"
#include "platform/host/file_rights.h"
#include "platform/host/log.h"
#include "platform/host/sys_call.h"

namespace ksw::facts {

namespace {

constexpr std::string_view kInternalBundle = "/VelmontInternal/Library/Bundles/KestrelwoodInternal.bundle";

Dictionary readTable(const std::string& folder, std::string_view name) {
    Result<Dictionary> table = readResource(folder, name, limits::kAttributionTableMax);
    if (table) {
        return std::move(*table);
    }
    if (!host::sys::isErrno(table.error(), ENOENT)) {
        host::mainLog.error("Table %{public}@ in %{public}@ cannot be read: %{public}@", name, folder,
                            table.error());
    }
    return {};
}

Dictionary readPublicTable() {
    const std::optional<std::string> folder = resourceFolder(kFrameworkBundle);
    return folder.has_value() ? readTable(*folder, "attributions") : Dictionary();
}

/// The value, after what is wrong with it has been logged.
template <class T>
std::optional<T> reported(Curated<T> curated, std::string_view function, const std::string& label) {
    if (curated.isUnexpected) {
        host::mainLog.error("%s: unexpected class %{public}@ for label %{public}@", Literal{function},
                            curated.className, label);
    }
    return std::move(curated.value);
}

}  // namespace

const Dictionary& AttributionTables::merged() {
    std::call_once(mergedOnce_, [this] {
        const host::OwnRights own;
        const Dictionary* internalTable = internal();
        Dictionary publicTable = readPublicTable();
        merged_ =
            internalTable == nullptr ? std::move(publicTable) : mergedTable(std::move(publicTable), *internalTable);
    });
    return merged_;
}

const Dictionary* AttributionTables::internal() {
    const host::OwnRights own;
    if (!hasInternalContent(host::kLogSubsystem)) {
        return nullptr;
    }
    std::call_once(internalOnce_, [this] {
        internal_ = readTable(resourceFolderAtPath(kInternalBundle), "attributions-internal");
    });
    return &internal_;
}

const Dictionary* AttributionTables::entry(const Text& label, const Text& team) {
    return label.has_value() && team.has_value() ? entryOf(merged(), *label, *team) : nullptr;
}

const Dictionary* AttributionTables::internalEntry(const std::string& label) {
    const Dictionary* table = internal();
    return table == nullptr ? nullptr : entryOf(*table, label);
}

AttributionTables::Text AttributionTables::developerName(std::string_view function, const Text& label,
                                                         const Text& team) {
    return label.has_value() ? reported(attributionIn(entry(label, team)), function, *label) : std::nullopt;
}

AttributionTables::Text AttributionTables::internalName(std::string_view function, const Text& label) {
    return label.has_value() ? reported(attributionIn(internalEntry(*label)), function, *label) : std::nullopt;
}

AttributionTables::Texts AttributionTables::associatedBundleIdentifiers(std::string_view function,
                                                                        const Text& label, const Text& team) {
    return label.has_value() ? reported(associatedBundleIdentifiersIn(entry(label, team)), function, *label)
                             : std::nullopt;
}

AttributionTables::Texts AttributionTables::internalAssociatedBundleIdentifiers(std::string_view function,
                                                                                const Text& label) {
    return label.has_value() ? reported(associatedBundleIdentifiersIn(internalEntry(*label)), function, *label)
                             : std::nullopt;
}

bool AttributionTables::containsLabelOrName(const Text& text) {
    std::call_once(namesOnce_, [this] { names_.emplace(merged()); });
    return text.has_value() && names_->contains(*text);
}

}  // namespace ksw::facts
