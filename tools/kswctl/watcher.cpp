#include "tools/kswctl/watcher.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include "tools/common/text.h"

namespace tools::kswctl {
namespace {

std::string keyOf(const KSWItem& item) {
    return item.uuid() ? item.uuid()->string() : item.identifier().value_or("");
}

std::string textOf(const Record& record, const char* key) {
    return record[key].is_string() ? printable(record[key].get_ref<const std::string&>()) : "-";
}

std::string lineFor(const char* change, const Record& item, const Record* before) {
    std::string line = change;
    for (const char* key : {"identifier", "typeText", "dispositionText"}) {
        line += "  " + textOf(item, key);
    }
    if (before != nullptr) {
        line += ", was " + textOf(*before, "dispositionText");
    }
    return line;
}

std::string jsonFor(const char* change, const Record& item, const Record* before) {
    Record object = Record::object({{"change", change}, {"item", item}});
    if (before != nullptr) {
        object["before"] = *before;
    }
    return compactJson(object);
}

/// 0, or the errno value of why not all of it could be written.
int writeWhole(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

std::shared_ptr<Watcher> Watcher::create(Form form, const std::shared_ptr<KSWList>& list) {
    Descriptor failed(eventfd(0, EFD_CLOEXEC));
    if (failed.number() < 0) {
        return nullptr;
    }
    const std::shared_ptr<Watcher> watcher(new Watcher(form, std::move(failed)));
    watcher->known_ = recordsOf(*list);
    return watcher;
}

void Watcher::listDidChange(const std::shared_ptr<KSWList>& list) {
    // A list that stays as it was has perhaps not been refreshed: that can be turned off.
    if (!tellDifferences(*list) && list->refreshWithError()) {
        tellDifferences(*list);
    }
}

int Watcher::failure() const {
    const std::lock_guard lock(mutex_);
    return failure_;
}

Watcher::Known Watcher::recordsOf(KSWList& list) {
    Known records;
    for (const KSWItem::Pointer& item : list.items()) {
        records.insert_or_assign(keyOf(*item), listedRecordOf(*item, list.uid()));
    }
    return records;
}

bool Watcher::tellDifferences(KSWList& list) {
    const std::lock_guard lock(mutex_);
    const Known before = std::exchange(known_, recordsOf(list));
    bool differs = false;
    for (const auto& [key, record] : before) {
        if (!known_.contains(key)) {
            tell("removed", record);
            differs = true;
        }
    }
    for (const auto& [key, record] : known_) {
        const auto former = before.find(key);
        if (former == before.end()) {
            tell("added", record);
            differs = true;
        } else if (former->second != record) {
            tell("changed", record, &former->second);
            differs = true;
        }
    }
    return differs;
}

void Watcher::tell(const char* change, const Record& item, const Record* before) {
    write(form_ == Form::Json ? jsonFor(change, item, before) : lineFor(change, item, before));
}

void Watcher::write(const std::string& line) {
    if (failure_ != 0) {
        return;
    }
    failure_ = writeWhole(line + "\n");
    if (failure_ != 0) {
        eventfd_write(failed_.number(), 1);
    }
}

}  // namespace tools::kswctl
