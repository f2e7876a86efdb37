#include "tools/kswctl/watch_output.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include "tools/common/text.h"

namespace tools::kswctl {
namespace {

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

std::string lineFor(const Wording& wording, const char* change, const Record& item, const Record* before) {
    std::string line = std::string(change) + "  " + wording.text(item);
    if (before != nullptr) {
        line += ", was " + wording.formerText(*before);
    }
    return line;
}

std::string jsonFor(const Wording& wording, const char* change, const Record& item, const Record* before) {
    Record object = Record::object({{"change", change}, {wording.key, item}});
    if (before != nullptr) {
        object["before"] = *before;
    }
    return compactJson(object);
}

void tell(WatchOutput& output, const Wording& wording, const char* change, const Record& item,
          const Record* before = nullptr) {
    output.write(output.form() == Form::Json ? jsonFor(wording, change, item, before)
                                             : lineFor(wording, change, item, before));
}

}  // namespace

std::shared_ptr<WatchOutput> WatchOutput::create(Form form) {
    Descriptor failed(eventfd(0, EFD_CLOEXEC));
    return failed.number() < 0 ? nullptr : std::shared_ptr<WatchOutput>(new WatchOutput(form, std::move(failed)));
}

int WatchOutput::failure() const {
    const std::lock_guard lock(mutex_);
    return failure_;
}

void WatchOutput::write(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (failure_ != 0) {
        return;
    }
    failure_ = writeWhole(line + "\n");
    if (failure_ != 0) {
        eventfd_write(failed_.number(), 1);
    }
}

std::string textOf(const Record& record, const char* key) {
    return record[key].is_string() ? printable(record[key].get_ref<const std::string&>()) : "-";
}

bool tellDifferences(WatchOutput& output, const Wording& wording, const Known& before, const Known& after) {
    bool differs = false;
    for (const auto& [key, record] : before) {
        if (!after.contains(key)) {
            tell(output, wording, "removed", record);
            differs = true;
        }
    }
    for (const auto& [key, record] : after) {
        const auto former = before.find(key);
        if (former == before.end()) {
            tell(output, wording, "added", record);
            differs = true;
        } else if (former->second != record) {
            tell(output, wording, "changed", record, &former->second);
            differs = true;
        }
    }
    return differs;
}

}  // namespace tools::kswctl
