#include "servers/kestrelwoodd/operations.h"

#include <kestrelwood/KSWErrors.h>

#include "platform/host/sys.h"
#include "servers/kestrelwoodd/bundle_of_process.h"
#include "servers/kestrelwoodd/changed_files.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/making_answers.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

/// Whose rights a record's files are looked at with: its user's, without any group's; uid 0's for the system's.
Caller ownerOf(Uid uid) {
    constexpr gid_t kNoGroup = 65534;
    return uid == kEveryUser ? Caller{0, 0} : Caller{uid, kNoGroup};
}

/// Whether the item's file can come into a trash, or leave it, only when a link is laid on its way: its path leads
/// through none now and names no trash.
bool staysWhereItIs(const KSWItem& item) {
    const bool isLegacyJob = item.intersectsType(KSWItemTypeAgent | KSWItemTypeDaemon, KSWItemTypeLegacyBit);
    const std::optional<std::string> path = isLegacyJob ? item.executablePath() : item.fullPath();
    if (!path) {
        return true;
    }
    const Result<bool> isWithoutLinks = host::sys::isWithoutLinks(*path);
    return isWithoutLinks && *isWithoutLinks && path->find("Trash") == std::string::npos;
}

/// What device management allows is allowed whatever its family is.
KSWDisposition inForce(const KSWItem& item) {
    const KSWDisposition disposition = item.effectiveDisposition();
    return disposition | ((item.flags() & kAllowedByRule) != 0 ? KSWDispositionAllowed : 0);
}

bool isOfKind(const KSWItem& item, KSWItemType type) {
    return ((item.type() ^ type) & KSWItemTypeAll) == 0;
}

}  // namespace

Answer Operations::perform(Operation operation, Rule rule, const Subject& subject, const Caller& caller) {
    const Answer refusal = refusalOf(rule, caller, subject.type, subject.uid);
    return refusal.code == 0 ? (this->*operation)(subject, caller) : refusal;
}

Answer Operations::perform(PlainOperation operation, Rule rule, const Caller& caller) {
    const Answer refusal = refusalOf(rule, caller, 0, caller.uid);
    return refusal.code == 0 ? (this->*operation)(caller) : refusal;
}

Answer Operations::refusalOf(Rule rule, const Caller& caller, KSWItemType type, Uid uid) {
    return failure(isAllowed(rule, caller, type, uid) ? KSWErrorNone : KSWErrorPermissionDenied);
}

Result<LaunchItem> Operations::itemOf(const Subject& subject, const Caller& caller) const {
    if (!subject.token) {
        if (subject.owner == Owner::Process) {
            return KSWErrorWithCode(KSWErrorInvalidParameter);
        }
        return checked(subject, subject.bundleURL, caller);
    }
    if (subject.bundleURL) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    Result<std::optional<URL>> bundle = bundleOfProcess(*subject.token, caller);
    if (!bundle) {
        return bundle.error();
    }
    return checked(subject, *bundle, caller);
}

Result<Operations::Named> Operations::namedItemOf(const Subject& subject, const Caller& caller,
                                                  std::int64_t codeWithout) const {
    Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return item.error();
    }
    std::optional<std::string> identifier = identify(*item, caller);
    if (!identifier) {
        return KSWErrorWithCode(codeWithout);
    }
    return Named{std::move(*item), std::move(*identifier)};
}

Found Operations::find(const LaunchItem& item, const std::string& identifier) const {
    Found found = registry_.records().findOwnOrSystems(item.scope, identifier);
    if (found.item != nullptr && !isOfKind(*found.item, item.type)) {
        found.item = nullptr;
    }
    return found;
}

Answer Operations::enter(const Subject& subject, const Caller& caller) {
    Answer answer = entered(subject, caller);
    answer.family = Family::Deciding;
    return answer;
}

Answer Operations::entered(const Subject& subject, const Caller& caller) {
    const Result<Named> named = namedItemOf(subject, caller, KSWErrorInvalidParameter);
    return named ? enterItem(named->item, named->identifier, caller) : failure(named.error().code());
}

Answer Operations::enterItem(const LaunchItem& item, const std::string& identifier, const Caller& caller) {
    const std::optional<JobFiles> files = filesOfPlainJob(item, caller);
    const Found recorded = files ? registry_.records().find(item.scope, identifier) : Found();
    if (recorded.item != nullptr && knownJobs_.isKnown(*recorded.item, item, *files)) {
        return answerOf(Outcome{KSWErrorRecordExists, recorded.item});
    }
    const Result<ItemFacts> facts = factsOf(item, identifier, Purpose::Record, caller);
    if (!facts) {
        return failure(facts.error().code());
    }
    Answer answer = answerOf(registry_.enter(item.scope, facts->item, facts->application));
    if (files && facts->application == nullptr && answer.item != nullptr) {
        knownJobs_.remember(*answer.item, *files);
    }
    return answer;
}

Answer Operations::enterQuietly(const Subject& subject, const Caller& caller) {
    Answer answer = entered(subject, caller);
    if (answer.code == KSWErrorRecordExists || answer.code == KSWErrorRecordUpdated) {
        answer.code = KSWErrorNone;
    }
    return answer;
}

Answer Operations::enterAllowed(const Subject& subject, const Caller& caller, KSWItemFlags flags) {
    const Result<Named> named = namedItemOf(subject, caller, KSWErrorInvalidParameter);
    if (!named) {
        return failure(named.error().code());
    }
    const auto& [item, identifier] = *named;
    const Result<ItemFacts> facts = factsOf(item, identifier, Purpose::Record, caller);
    if (!facts) {
        return failure(facts.error().code());
    }
    facts->item->setFlags(facts->item->flags() | flags);
    Answer answer = answerOf(registry_.enter(item.scope, facts->item, facts->application));
    if (answer.code != KSWErrorRecordExists && answer.code != KSWErrorRecordUpdated) {
        return answer;
    }
    return answerOf(registry_.allow(item.scope, identifier, reachOf(caller)));
}

Answer Operations::remove(const Subject& subject, const Caller& caller) {
    Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    // The job's file may be gone, or have another label by now; the record knows where it was.
    const Found recorded = registry_.records().findByURL(item->scope, item->type & KSWItemTypeAll, *item->url);
    const std::optional<std::string> identifier =
        recorded.item != nullptr ? recorded.item->identifier() : identify(*item, caller);
    if (!identifier) {
        return failure(KSWErrorRecordNotFound);
    }
    return answerOf(registry_.remove(item->scope, *identifier));
}

Answer Operations::refresh(const Subject& subject, const Caller& caller) {
    const Result<Named> named = namedItemOf(subject, caller, KSWErrorRecordNotFound);
    if (!named) {
        return failure(named.error().code());
    }
    const auto& [item, identifier] = *named;
    const Found current = registry_.records().find(item.scope, identifier);
    if (current.item == nullptr) {
        return failure(current.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound);
    }
    const std::optional<LaunchItem> asked = item.configuration ? std::optional(item) : std::nullopt;
    return refreshed(current, asked ? asked : recordedItem(*current.item, item.scope, caller), caller);
}

Answer Operations::refreshed(const Found& current, const std::optional<LaunchItem>& item, const Caller& caller) {
    if (!item) {
        return answerOf(current);
    }
    const Result<ItemFacts> facts = factsOf(*item, *current.item->identifier(), Purpose::Answer, caller);
    if (facts) {
        facts->item->setFlags(facts->item->flags() | (current.item->flags() & kContainsOnly));
    }
    return facts ? answerOf(registry_.refresh(current.uid, facts->item, facts->application))
                 : failure(facts.error().code());
}

void Operations::follow(Found& found, Answer& told) {
    const bool isFresh = found.judgement != nullptr && found.judgement->at(clock_.monotonic());
    const Caller owner = ownerOf(found.uid);
    if (found.item == nullptr || isFresh || !haveFilesChanged(*found.item, owner)) {
        return;
    }
    Answer renewed = refreshed(found, recordedItem(*found.item, found.uid, owner), owner);
    if (renewed.code != KSWErrorNone) {
        logError("the files of \"" + *found.item->identifier() +
                 "\" have changed, and its record could not: code " + std::to_string(renewed.code));
        return;
    }
    found = registry_.records().find(found.uid, *found.item->identifier());
    told.changes = std::move(renewed.changes);
    told.replaced = std::move(renewed.replaced);
}

Answer Operations::fetch(const Subject& subject, const Caller& caller) {
    const Result<Named> named = namedItemOf(subject, caller, KSWErrorInvalidParameter);
    if (!named) {
        return failure(named.error().code());
    }
    Answer told;
    Found found = find(named->item, named->identifier);
    follow(found, told);
    Answer answer = answerOf(std::move(found));
    answer.changes = std::move(told.changes);
    answer.replaced = std::move(told.replaced);
    return answer;
}

Result<Found> Operations::recordedOrExpected(const Subject& subject, const Caller& caller, Answer& told) {
    const Result<Named> named = namedItemOf(subject, caller, KSWErrorInvalidParameter);
    if (!named) {
        return named.error();
    }
    const auto& [item, identifier] = *named;
    Found found = find(item, identifier);
    if (found.isDamaged) {
        return KSWErrorWithCode(KSWErrorGeneric);
    }
    follow(found, told);
    if (found.item == nullptr) {
        const Result<ItemFacts> facts = factsOf(item, identifier, Purpose::Answer, caller);
        if (!facts) {
            return facts.error();
        }
        Result<ItemPointer> expected = registry_.asIfEntered(item.scope, facts->item, facts->application);
        if (!expected) {
            return expected.error();
        }
        found.judgement = nullptr;
        found.item = *std::move(expected);
    }
    return found;
}

std::optional<KSWDisposition> Operations::judged(const Found& found, const Caller& caller) const {
    if (found.judgement == nullptr) {
        const ReadingAs rights(caller);
        return rights.ok() ? std::optional(inForce(*found.item)) : std::nullopt;
    }
    const std::chrono::nanoseconds now = clock_.monotonic();
    std::optional<KSWDisposition> disposition = found.judgement->at(now);
    if (!disposition) {
        // The answer is for everybody who asks, so the rights are those of whom the record belongs to.
        const ReadingAs rights(ownerOf(found.uid));
        if (!rights.ok()) {
            return std::nullopt;
        }
        disposition = inForce(*found.item);
        if (staysWhereItIs(*found.item)) {
            found.judgement->remember(*disposition, now);
        }
    }
    return disposition;
}

Answer Operations::storedDisposition(const Subject& subject, const Caller& caller) {
    Answer answer;
    Result<Found> found = recordedOrExpected(subject, caller, answer);
    if (!found) {
        return failure(found.error().code());
    }
    answer.disposition = found->item->disposition();
    answer.item = std::move(found->item);
    return answer;
}

Answer Operations::effectiveDisposition(const Subject& subject, const Caller& caller) {
    Answer answer;
    Result<Found> found = recordedOrExpected(subject, caller, answer);
    if (!found) {
        return failure(found.error().code());
    }
    const std::optional<KSWDisposition> disposition = judged(*found, caller);
    if (!disposition) {
        return failure(KSWErrorGeneric);
    }
    answer.disposition = *disposition;
    answer.requirement = found->item->lightweightRequirement();
    answer.item = std::move(found->item);
    return answer;
}

Answer Operations::listUsers(const Caller& caller) {
    Answer answer;
    answer.users = users(caller);
    return answer;
}

Dictionary Operations::users(const Caller& caller) const {
    Dictionary users;
    for (auto& [uid, name] : registry_.records().users()) {
        if (maySee(caller, uid)) {
            users.emplace(std::move(name), Value(uid));
        }
    }
    return users;
}

}  // namespace ksw::daemon
