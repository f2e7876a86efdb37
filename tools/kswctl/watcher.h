// watcher.h: tells what became different in a list, a line for each item.
#pragma once

#include <memory>
#include <mutex>

#include <kestrelwood/KSWList.h>

#include "tools/kswctl/watch_output.h"

namespace tools::kswctl {

/// Compares a list with what it last knew of it, and writes a line for each difference. The list may be told to it
/// by several threads; a reader that is slow holds them up.
class Watcher final : public KSWListObserver {
public:
    /// Knows the list as it is now.
    Watcher(std::shared_ptr<WatchOutput> output, KSWList& list);

    void listDidChange(const std::shared_ptr<KSWList>& list) override;

private:
    /// Whether something is different now.
    bool compare(KSWList& list);

    const std::shared_ptr<WatchOutput> output_;
    std::mutex mutex_;
    Known known_;  // guarded by mutex_
};

}  // namespace tools::kswctl
