#include "client/values/list_record.h"

#include <utility>

#include "model/item/item_archive.h"
#include "platform/archive/class_table.h"
#include "platform/base/limits.h"

namespace ksw::archive {

template <>
struct MembersOf<ListRecord::Items> {
    using Object = KSWItem;
    static bool isPresent(const ListRecord::Items& member) { return member.isThere; }
    static std::span<const std::shared_ptr<KSWItem>> span(const ListRecord::Items& member) { return member.items; }
    static ListRecord::Items from(std::vector<std::shared_ptr<KSWItem>> items) { return {std::move(items), true}; }
};

}  // namespace ksw::archive

namespace ksw {

namespace {

constexpr auto kFields =
    archive::fieldTable(archive::field<&ListRecord::uid>("uid"), archive::field<&ListRecord::type>("type"),
                        archive::objects<&ListRecord::items>("items"));

Status finishDecoding(ListRecord& list, const archive::FinishContext& /*context*/) {
    if (!list.items.isThere) {
        return Error(FormatError::WrongType, "items: missing");
    }
    if (list.items.items.size() > limits::kListItemsMax) {
        return Error(FormatError::LimitPassed, "items: more than 16384");
    }
    return {};
}

constexpr archive::ClassInfo kClass =
    archive::describeClass<ListRecord, &archive::detail::itself<ListRecord>, &finishDecoding>("KSWList", kFields);

}  // namespace

const archive::ClassInfo& archiveClass(const ListRecord* /*list*/) {
    return kClass;
}

}  // namespace ksw
