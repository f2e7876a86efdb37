// Registering and withdrawing a job: both answer with a result code.
#include <memory>
#include <utility>
#include <variant>

#include <kestrelwood/KSWErrors.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/subject.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

ExitStatus answered(std::int64_t code, const Asker& asker) {
    if (code == KSWErrorGeneric) {
        // A lost connection reads as this code too.
        if (const auto status = complainWhenSilent(asker.connection())) {
            return *status;
        }
    }
    const ExitStatus status = exitStatusOfCode(code);
    if (status != ExitStatus::Done) {
        complain(KSWErrorString(code));
    }
    return status;
}

}  // namespace

ExitStatus registerJob(const Options& options) {
    const Outcome<Subject> outcome = subjectOf(options, JobFile::Read);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return complain(*complaint);
    }
    const Asker asker(options.road);
    std::shared_ptr<KSWItem> item;
    const std::int64_t code = asker.registerItem(std::get<Subject>(outcome), &item);
    print(answerRecord(code, item.get(), options.uid), formOf(options));
    return answered(code, asker);
}

ExitStatus unregisterJob(const Options& options) {
    const Outcome<Subject> outcome = subjectOf(options, JobFile::LeftAlone);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return complain(*complaint);
    }
    const Asker asker(options.road);
    const std::int64_t code = asker.unregisterItem(std::get<Subject>(outcome));
    print(Record::object({{"code", code}, {"message", KSWErrorString(code)}}), formOf(options));
    return answered(code, asker);
}

}  // namespace tools::kswctl
