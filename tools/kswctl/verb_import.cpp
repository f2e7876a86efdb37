// Registering all jobs of job folders, and saying of each file what came of it.
#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWItem.h>

#include "tools/common/progress.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/subject.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

namespace fs = std::filesystem;

/// Registers files one after the other and keeps a line for each.
class Import {
public:
    Import(const Options& options, Progress& progress)
        : options_(options), asker_(options.road), progress_(progress) {}

    void take(const std::string& folder) {
        std::error_code problem;
        std::vector<fs::path> files;
        for (fs::directory_iterator entry(folder, problem), end; !problem && entry != end;
             entry.increment(problem)) {
            files.push_back(entry->path());
        }
        if (problem) {
            fail(folder, problem.message());
        }
        std::sort(files.begin(), files.end());
        const KSWItemType kind = options_.kindOfFile.value_or(
            settled(folder).filename().native().ends_with("Daemons") ? KSWItemTypeDaemon : KSWItemTypeAgent);
        for (std::size_t done = 0; done < files.size(); ++done) {
            progress_.reach(done, files.size());
            takeFile(files[done], kind);
        }
    }

    const Record& lines() const { return lines_; }
    /// Why no daemon answers, when none does.
    const std::optional<Complaint>& silence() const { return silence_; }

    ExitStatus status() const {
        return silence_ ? ExitStatus::Unreachable : hasFailed_ ? ExitStatus::Partial : ExitStatus::Done;
    }

private:
    void takeFile(const fs::path& file, KSWItemType kind) {
        std::error_code problem;
        const fs::file_status found = fs::status(file, problem);
        if (file.extension() != ".plist") {
            tell(file, "skipped", "its name does not end in .plist");
        } else if (fs::exists(found) && !fs::is_regular_file(found)) {
            tell(file, "skipped", "is no file");
        } else if (silence_) {
            fail(file, "no daemon answers");
        } else {
            registerFile(file, kind);
        }
    }

    void registerFile(const fs::path& file, KSWItemType kind) {
        Options options = options_;
        options.job = file.native();
        options.kind = kind;
        const Outcome<Subject> outcome = subjectOf(options, JobFile::Read);
        if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
            fail(file, complaint->text);
            return;
        }
        const auto& subject = std::get<Subject>(outcome);
        const auto* label = ksw::find<std::string>(*subject.configuration, KSWConfigLabel);
        // A second one would take the first one's record over.
        const auto [taken, isNew] = files_.try_emplace({kind, *label}, file.native());
        if (!isNew) {
            fail(file, "has the label of " + taken->second);
            return;
        }
        std::shared_ptr<KSWItem> item;
        const std::int64_t code = asker_.registerItem(subject, &item);
        if (exitStatusOfCode(code) == ExitStatus::Done) {
            tell(file, "registered", KSWErrorString(code), item.get());
            return;
        }
        // A lost connection reads as the general code too.
        if (code == KSWErrorGeneric) {
            silence_ = complaintOfSilence(asker_.connection());
        }
        fail(file, silence_ ? "no daemon answers" : KSWErrorString(code));
    }

    void fail(const fs::path& file, const std::string& message) {
        hasFailed_ = true;
        tell(file, "failed", message);
    }

    void tell(const fs::path& file, const char* outcome, const std::string& message,
              const KSWItem* item = nullptr) {
        lines_.push_back(
            Record::object({{"file", file.native()},
                            {"outcome", outcome},
                            {"identifier", item != nullptr ? orNull(item->identifier()) : Record(nullptr)},
                            {"message", message}}));
    }

    const Options& options_;
    const Asker asker_;
    Progress& progress_;
    Record lines_ = Record::array();
    std::map<std::pair<KSWItemType, std::string>, std::string> files_;  ///< By kind and label.
    bool hasFailed_ = false;
    std::optional<Complaint> silence_;
};

}  // namespace

ExitStatus importJobs(const Options& options) {
    std::optional<Progress> progress(std::in_place, "Registering the jobs");
    Import import(options, *progress);
    for (const std::string& folder : options.folders) {
        import.take(folder);
    }
    progress.reset();
    if (import.silence()) {
        complain(*import.silence());
    }
    if (options.json) {
        print(import.lines(), Form::Json);
    } else {
        printLines(import.lines());
    }
    return import.status();
}

}  // namespace tools::kswctl
