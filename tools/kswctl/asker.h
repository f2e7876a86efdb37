// asker.h: the operations on one item, over either road to the daemon.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/options.h"
#include "tools/kswctl/subject.h"

namespace tools::kswctl {

/// Asks the manager or the registrar, as chosen; each is made on first use. For one thread.
class Asker {
public:
    explicit Asker(Road road) : road_(road) {}

    /// Null when the feature that turns the manager on is off.
    ksw::ServiceConnection* connection() const;

    std::int64_t registerItem(const Subject& subject, std::shared_ptr<KSWItem>* item) const;
    /// The manager's road only: the registrar withdraws nothing.
    std::int64_t unregisterItem(const Subject& subject) const;
    bool effectiveDisposition(const Subject& subject, std::int64_t* disposition,
                              std::optional<ksw::Data>* LWCR) const;

private:
    Road road_;
};

/// The counters of the server behind the connection. When no server answers, or `connection` is null, standard
/// error says why, and the status that follows from it is the answer.
std::variant<ksw::Dictionary, ExitStatus> countersOrComplaint(ksw::ServiceConnection* connection);

/// For a request that failed: what is to be said when no server answers, or `connection` is null. Absent when the
/// server answers and the failure has another reason.
std::optional<Complaint> complaintOfSilence(ksw::ServiceConnection* connection);

/// The same, said on standard error; the status that follows.
std::optional<ExitStatus> complainWhenSilent(ksw::ServiceConnection* connection);

/// For a request whose error may be absent: says on standard error why it failed, and the status that follows.
ExitStatus complainOf(const std::optional<ksw::Error>& error, ksw::ServiceConnection* connection);

/// For a request about a user that failed and did not say why: another one, which changes nothing, says whether the
/// caller may ask about the user at all. If it may, `otherwise` is what is said.
ExitStatus complainOfRefusal(ksw::Uid uid, std::string_view otherwise);

/// For a request that failed with a result code, which is also -1 when nobody answers.
ExitStatus complainOfResult(std::int64_t code, ksw::ServiceConnection* connection);

/// What an error is as a result code: its own when it is the daemon's, -1 for any other, 0 for none.
std::int64_t resultCodeOf(const std::optional<ksw::Error>& error);

/// The exit status that a result code stands for, -1 aside, which a lost connection shares.
ExitStatus exitStatusOfCode(std::int64_t code);

}  // namespace tools::kswctl
