// known_jobs.h: which recorded jobs were found to be as their files say, and how those files were then: whoever
// registers such a job again gets the record without a second look at what the files hold.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "platform/base/guarded.h"
#include "platform/facts/verifier.h"
#include "servers/kestrelwoodd/launch_item.h"

namespace ksw::daemon {

/// How a job's files are, as a caller sees them.
struct JobFiles {
    facts::FileStamp job;
    facts::FileStamp program;
    Uid uid = kNoUser;
    gid_t gid = static_cast<gid_t>(-1);

    friend bool operator==(const JobFiles&, const JobFiles&) = default;
};

/// The files of a job about which nothing but these files and its request can say anything: a legacy one whose
/// configuration comes with the request and names a program that is no launcher, lies in no application and is
/// claimed by none. Absent for any other item.
std::optional<JobFiles> filesOfPlainJob(const LaunchItem& item, const Caller& caller);

/// Any thread. Bounded.
class KnownJobs {
public:
    explicit KnownJobs(facts::Verifier& verifier = facts::Verifier::shared()) : verifier_(verifier) {}

    /// Whether making a record of the item anew would give what this record says: it was found right with these
    /// files, neither it nor what the program's signature rests on has changed since, and the request says the
    /// same.
    bool isKnown(const KSWItem& record, const LaunchItem& item, const JobFiles& files);

    /// Remembers that the record was found right. `files`: looked at before its facts were read.
    void remember(const KSWItem& record, const JobFiles& files);

private:
    struct Known {
        std::int64_t generation;
        JobFiles files;
        facts::VerifiedState program;
    };

    facts::Verifier& verifier_;
    Guarded<std::unordered_map<UUID, Known>> known_;
};

}  // namespace ksw::daemon
