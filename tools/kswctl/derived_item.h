// derived_item.h: the item that a job file stands for, made from files alone.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

/// An item with what it belongs to, none of it recorded anywhere.
struct DerivedItem {
    KSWItem::Pointer item;
    KSWItem::Pointer application;  ///< What carries the item; null for a legacy job.
    KSWItem::Pointer developer;    ///< Under whom the item is grouped.
    std::optional<ksw::URL> vouching;
    std::optional<ksw::Dictionary> configuration;  ///< Absent for a login item.
    bool isLauncher = false;                       ///< The job only has an application opened.
    std::string executable;  ///< Where the code is whose maker counts; empty when that cannot be told.
    std::string program;     ///< Where what the job starts is; the same unless it is a launcher.
};

/// Asks no daemon and tells none. Complaint (wrong usage): the places do not go with the kind. Complaint (failed):
/// the job file cannot be read, or is no job.
Outcome<DerivedItem> derivedItemOf(const Options& options);

}  // namespace tools::kswctl
