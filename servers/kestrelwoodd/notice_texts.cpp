#include "servers/kestrelwoodd/notice_texts.h"

#include "platform/base/text.h"
#include "platform/host/printable.h"

namespace ksw::daemon {

namespace {

constexpr std::size_t kNameMax = 200;
constexpr KSWItemType kExtensions = KSWItemTypeLodestar | KSWItemTypeShelfTile | KSWItemTypeInputMethod |
                                    KSWItemTypeSmartCard | KSWItemTypeColorPicker | KSWItemTypeGlimpse;

/// "1 thing", "2 things"; empty for none.
std::string counted(std::int64_t count, std::string_view thing) {
    if (count <= 0) {
        return "";
    }
    return format(count == 1 ? "%ld %@" : "%ld %@s", count, thing);
}

/// The words for each kind, with commas between.
std::string kindsIn(KSWItemType types) {
    std::string words;
    for (KSWItemType kind = 1; kind <= KSWItemTypeAll; kind <<= 1U) {
        if ((types & kind) != 0) {
            words += (words.empty() ? "" : ", ") + KSWItemTypeBaseDescription(kind);
        }
    }
    return words;
}

}  // namespace

bool isExtension(KSWItemType type) {
    return (type & kExtensions) != 0;
}

std::string noticeName(std::string_view name) {
    return host::printable(host::cutText(name, kNameMax));
}

std::string noticeName(const KSWItem& item) {
    const std::optional<std::string>& name = item.name() && !item.name()->empty() ? item.name() : item.identifier();
    return name && !name->empty() ? noticeName(*name) : "An item without a name";
}

std::string nameWithOwner(const std::string& name, const std::string& owner) {
    return owner.empty() ? name : format("%@ of %@", name, owner);
}

host::DesktopNotice containerNotice(const std::string& name) {
    return {"New background items", format("What belongs to %@ may start by itself.", name)};
}

host::DesktopNotice itemNotice(const std::string& name, const std::string& owner) {
    return {"New background item", format("%@ may start by itself.", nameWithOwner(name, owner))};
}

host::DesktopNotice alertNotice(const std::string& name, const std::string& owner) {
    return {"A background item waits for you",
            format("%@ does not start before you allow it.", nameWithOwner(name, owner)), host::Urgency::Critical};
}

host::DesktopNotice countsNotice(const NoticeCounts& counts, const std::string& owner) {
    const std::string background = counted(counts.background, "background item");
    const std::string extensions = counted(counts.extensions, "extension");
    const std::string both = background.empty()   ? extensions
                             : extensions.empty() ? background
                                                  : format("%@ and %@", background, extensions);
    const std::string kinds = kindsIn(counts.types);
    const bool isOne = counts.background + counts.extensions == 1;
    return {"New background items",
            format("%@ may start by %@%@.", nameWithOwner(both, owner), isOne ? "itself" : "themselves",
                   kinds.empty() ? "" : format(" (%@)", kinds))};
}

}  // namespace ksw::daemon
