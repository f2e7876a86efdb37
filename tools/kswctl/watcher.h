// watcher.h: tells what became different in a list, a line for each item.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <kestrelwood/KSWList.h>

#include "tools/common/descriptor.h"
#include "tools/kswctl/record.h"

namespace tools::kswctl {

/// Compares a list with what it last knew of it, and writes a line for each difference to standard output at once.
/// The list may be told to it by several threads; a reader that is slow holds them up.
class Watcher final : public KSWListObserver {
public:
    /// Knows the list as it is now. Null when the system has no descriptor left to give.
    static std::shared_ptr<Watcher> create(Form form, const std::shared_ptr<KSWList>& list);

    void listDidChange(const std::shared_ptr<KSWList>& list) override;

    /// Can be read once writing has failed; nothing is written any more then.
    int failed() const { return failed_.number(); }
    /// Why writing failed: an errno value; 0 as long as it has not.
    int failure() const;

private:
    /// Each item's record by what stays the same of it.
    using Known = std::map<std::string, Record>;

    Watcher(Form form, Descriptor failed) : form_(form), failed_(std::move(failed)) {}

    static Known recordsOf(KSWList& list);
    /// Whether something is different now.
    bool tellDifferences(KSWList& list);
    void tell(const char* change, const Record& item, const Record* before = nullptr);
    void write(const std::string& line);

    const Form form_;
    const Descriptor failed_;
    mutable std::mutex mutex_;
    Known known_;      // guarded by mutex_
    int failure_ = 0;  // guarded by mutex_
};

}  // namespace tools::kswctl
