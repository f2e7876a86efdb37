// items.h: the records that the daemon holds, the one that the command line means, and how lists of them are
// printed.
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWList.h>

#include "tools/common/exit_status.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

/// The items of the kinds and of the user that the command line names, in a list that stays current. When there is
/// none standard error says why, and the status that follows from it is the answer.
std::variant<std::shared_ptr<KSWList>, ExitStatus> listOrComplaint(const Options& options);

/// The one item that the command line names, with its containers. Standard error says when there is none, and lists
/// the candidates when there are several; then the status that follows from it is the answer.
std::variant<KSWItem::Pointer, ExitStatus> itemOrComplaint(const Options& options);
/// The same among these items.
std::variant<KSWItem::Pointer, ExitStatus> itemAmong(const std::vector<KSWItem::Pointer>& items,
                                                     const std::string& text);

/// Prints items as `list` shows them.
void printItems(const std::vector<KSWItem::Pointer>& items, const Options& options);

}  // namespace tools::kswctl
