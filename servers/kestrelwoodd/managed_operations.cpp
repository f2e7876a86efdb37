// The requests of device management, and the service manager's notes.
#include <algorithm>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/garbage.h"
#include "servers/kestrelwoodd/housekeeping.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/managed_job_file.h"

namespace ksw::daemon {

namespace {

bool isName(const std::optional<std::string>& identifier) {
    return identifier && !identifier->empty() && identifier->size() <= Housekeeping::kPayloadIdentifierMax;
}

/// A folder's path without slashes at its end; absent for what is none.
std::optional<std::string> folderIn(const std::optional<std::string>& path) {
    if (!path || !path->starts_with('/') || path->size() > limits::kBookmarkPathMax) {
        return std::nullopt;
    }
    return path->substr(0, path->find_last_not_of('/') + 1);
}

}  // namespace

Report reportOf(Outcome outcome) {
    Report report = reportOf(outcome.code);
    report.item = std::move(outcome.item);
    report.changes = std::move(outcome.changes);
    report.replaced = std::move(outcome.replaced);
    return report;
}

Report Housekeeping::payload(const Caller& /*caller*/, const std::optional<std::string>& identifier) {
    if (!isName(identifier)) {
        return reportOf(KSWErrorInvalidParameter);
    }
    const Managed::Pointer managed = registry_.managed();
    const auto found = managed->payloads().find(*identifier);
    Report report = reportOf(found == managed->payloads().end() ? KSWErrorRecordNotFound : KSWErrorNone);
    if (report.code == KSWErrorNone) {
        report.dictionary = *found->second;
    }
    return report;
}

Report Housekeeping::setPayload(const Caller& /*caller*/, const std::optional<Dictionary>& payload,
                                const std::optional<std::string>& identifier, const bool& isImmediate) {
    if (!isName(identifier)) {
        return reportOf(KSWErrorInvalidParameter);
    }
    const bool isThere = payload && !payload->empty();
    return reportOf(registry_.setPayload(
        *identifier, isThere ? std::make_shared<const Dictionary>(*payload) : nullptr, isImmediate));
}

Report Housekeeping::submitJob(const Caller& caller, const std::optional<std::string>& path) {
    const Result<JobOfFile> job =
        path ? readManagedJob(*path, caller) : Result<JobOfFile>(KSWErrorWithCode(KSWErrorInvalidParameter));
    if (!job) {
        return reportOf(job.error().code());
    }
    return reportOf(registry_.submitJob(*path, job->label, job->facts.item, job->facts.application));
}

Report Housekeeping::removeJobAtPath(const Caller& /*caller*/, const std::optional<std::string>& path) {
    return path ? reportOf(registry_.removeJob(*path)) : reportOf(KSWErrorInvalidParameter);
}

Report Housekeeping::removeJobWithLabel(const Caller& /*caller*/, const std::optional<std::string>& label) {
    if (!label) {
        return reportOf(KSWErrorInvalidParameter);
    }
    const Managed::Pointer managed = registry_.managed();
    const ManagedJobs& jobs = managed->jobs();
    const auto found =
        std::find_if(jobs.begin(), jobs.end(), [&label](const auto& job) { return job.second.label == *label; });
    return found == jobs.end() ? reportOf(KSWErrorRecordNotFound) : reportOf(registry_.removeJob(found->first));
}

Report Housekeeping::willScan(const Caller& /*caller*/, const std::optional<std::string>& path) {
    const std::optional<std::string> folder = folderIn(path);
    const std::lock_guard lock(mutex_);
    if (!folder || scanned_.size() >= kScannedFoldersMax) {
        return reportOf(KSWErrorInvalidParameter);
    }
    scanned_.insert(*folder);
    return {};
}

Report Housekeeping::didScan(const Caller& /*caller*/, const std::optional<std::string>& path) {
    const std::optional<std::string> folder = folderIn(path);
    if (!folder) {
        return reportOf(KSWErrorInvalidParameter);
    }
    {
        const std::lock_guard lock(mutex_);
        scanned_.erase(*folder);
    }
    Report removed = reportOf(registry_.removeGone(goneJobsIn(registry_.records(), *folder)));
    Report ruled = reportOf(registry_.applyRules());
    removed.changes.insert(removed.changes.end(), ruled.changes.begin(), ruled.changes.end());
    removed.replaced.insert(removed.replaced.end(), ruled.replaced.begin(), ruled.replaced.end());
    return removed;
}

}  // namespace ksw::daemon
