// shown_item.h: an item of the management daemon's as its user sees it. Looks at the item's file, and blocks as
// long as the file system does. Any thread.
#pragma once

#include <memory>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values/url.h>

namespace ksw::agentserver {

std::shared_ptr<KSWBackgroundItem> shownItem(const KSWItem& item);

/// Tells whether items have the file of a URL.
class FileAsked {
public:
    explicit FileAsked(const URL& url);

    /// By its path, or by its bookmark where the record has one.
    bool isOf(const KSWItem& item) const;

private:
    std::string path_;
    std::optional<Data> bookmark_;
};

}  // namespace ksw::agentserver
