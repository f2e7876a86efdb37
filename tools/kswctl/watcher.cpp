#include "tools/kswctl/watcher.h"

#include <utility>

namespace tools::kswctl {
namespace {

std::string keyOf(const KSWItem& item) {
    return item.uuid() ? item.uuid()->string() : item.identifier().value_or("");
}

Known recordsOf(KSWList& list) {
    Known records;
    for (const KSWItem::Pointer& item : list.items()) {
        records.insert_or_assign(keyOf(*item), listedRecordOf(*item, list.uid()));
    }
    return records;
}

std::string lineOf(const Record& item) {
    return textOf(item, "identifier") + "  " + textOf(item, "typeText") + "  " + textOf(item, "dispositionText");
}

std::string dispositionOf(const Record& item) {
    return textOf(item, "dispositionText");
}

constexpr Wording kWording{"item", &lineOf, &dispositionOf};

}  // namespace

Watcher::Watcher(std::shared_ptr<WatchOutput> output, KSWList& list)
    : output_(std::move(output)), known_(recordsOf(list)) {}

void Watcher::listDidChange(const std::shared_ptr<KSWList>& list) {
    // A list that stays as it was has perhaps not been refreshed: that can be turned off.
    if (!compare(*list) && list->refreshWithError()) {
        compare(*list);
    }
}

bool Watcher::compare(KSWList& list) {
    const std::lock_guard lock(mutex_);
    const Known before = std::exchange(known_, recordsOf(list));
    return tellDifferences(*output_, kWording, before, known_);
}

}  // namespace tools::kswctl
