// watch_output.h: where `watch` tells of changes: standard output, a line for each, at once.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "tools/common/descriptor.h"
#include "tools/kswctl/record.h"

namespace tools::kswctl {

/// Records of things by what stays the same of each.
using Known = std::map<std::string, Record>;

/// Writes lines. Any thread; a reader that is slow holds all of them up.
class WatchOutput {
public:
    /// Null when the system has no descriptor left to give.
    static std::shared_ptr<WatchOutput> create(Form form);

    Form form() const { return form_; }

    /// Writes the line and a line break; once that has failed, nothing.
    void write(const std::string& line);

    /// Can be read once writing has failed.
    int failed() const { return failed_.number(); }
    /// Why writing failed: an errno value; 0 as long as it has not.
    int failure() const;

private:
    WatchOutput(Form form, Descriptor failed) : form_(form), failed_(std::move(failed)) {}

    const Form form_;
    const Descriptor failed_;
    mutable std::mutex mutex_;
    int failure_ = 0;  // guarded by mutex_
};

/// How a kind of thing is told of.
struct Wording {
    const char* key;                                  ///< Of the record, in JSON.
    std::string (*text)(const Record& record);        ///< Of the record, in a line.
    std::string (*formerText)(const Record& record);  ///< Of what has changed of it.
};

/// A text of a record, fit for a terminal; "-" when there is none.
std::string textOf(const Record& record, const char* key);

/// Tells what is different in `after`. Whether anything is.
bool tellDifferences(WatchOutput& output, const Wording& wording, const Known& before, const Known& after);

}  // namespace tools::kswctl
