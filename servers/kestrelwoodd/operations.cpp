#include "servers/kestrelwoodd/operations.h"

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/bundle_of_process.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

Answer failure(std::int64_t code) {
    return {code, nullptr, 0, std::nullopt};
}

Answer answerOf(Outcome outcome) {
    return {outcome.code, std::move(outcome.item), 0, std::nullopt};
}

bool isOfKind(const KSWItem& item, KSWItemType type) {
    return ((item.type() ^ type) & KSWItemTypeAll) == 0;
}

}  // namespace

Answer Operations::perform(Operation operation, Rule rule, const Subject& subject, const Caller& caller) {
    if (!isAllowed(rule, caller, subject.type, subject.uid)) {
        return failure(KSWErrorPermissionDenied);
    }
    return (this->*operation)(subject, caller);
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

Found Operations::find(const LaunchItem& item, const std::string& identifier) const {
    Found found = registry_.records().find(item.scope, identifier);
    if (found.item == nullptr && !found.isDamaged && item.scope != kEveryUser) {
        found = registry_.records().find(kEveryUser, identifier);
    }
    if (found.item != nullptr && !isOfKind(*found.item, item.type)) {
        found.item = nullptr;
    }
    return found;
}

Answer Operations::enter(const Subject& subject, const Caller& caller) {
    const Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    const std::optional<std::string> identifier = identifierOf(*item, caller);
    if (!identifier) {
        return failure(KSWErrorInvalidParameter);
    }
    return answerOf(registry_.enter(item->scope, recordOf(*item, *identifier, FileDates::Read, caller)));
}

Answer Operations::enterQuietly(const Subject& subject, const Caller& caller) {
    Answer answer = enter(subject, caller);
    if (answer.code == KSWErrorRecordExists || answer.code == KSWErrorRecordUpdated) {
        answer.code = KSWErrorNone;
    }
    return answer;
}

Answer Operations::remove(const Subject& subject, const Caller& caller) {
    const Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    // The job's file may be gone, or have another label by now; the record knows where it was.
    const Found recorded = registry_.records().findByURL(item->scope, item->type & KSWItemTypeAll, *item->url);
    const std::optional<std::string> identifier =
        recorded.item != nullptr ? recorded.item->identifier() : identifierOf(*item, caller);
    if (!identifier) {
        return failure(KSWErrorRecordNotFound);
    }
    return failure(registry_.remove(item->scope, *identifier));
}

Answer Operations::refresh(const Subject& subject, const Caller& caller) {
    const Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    const std::optional<std::string> identifier = identifierOf(*item, caller);
    if (!identifier) {
        return failure(KSWErrorRecordNotFound);
    }
    const Found current = registry_.records().find(item->scope, *identifier);
    if (current.item == nullptr) {
        return failure(current.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound);
    }
    if (item->hasConfiguration) {
        return answerOf(registry_.refresh(item->scope, recordOf(*item, *identifier, FileDates::Read, caller)));
    }
    const ItemPointer facts = copyOfRecord(*current.item);
    readFileDates(*facts, caller);
    return answerOf(registry_.refresh(item->scope, facts));
}

Answer Operations::fetch(const Subject& subject, const Caller& caller) {
    const Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    const std::optional<std::string> identifier = identifierOf(*item, caller);
    if (!identifier) {
        return failure(KSWErrorInvalidParameter);
    }
    Found found = find(*item, *identifier);
    if (found.item == nullptr) {
        return failure(found.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound);
    }
    return {KSWErrorNone, std::move(found.item), 0, std::nullopt};
}

Answer Operations::recordedOrExpected(const Subject& subject, const Caller& caller) const {
    const Result<LaunchItem> item = itemOf(subject, caller);
    if (!item) {
        return failure(item.error().code());
    }
    const std::optional<std::string> identifier = identifierOf(*item, caller);
    if (!identifier) {
        return failure(KSWErrorInvalidParameter);
    }
    Found found = find(*item, *identifier);
    if (found.isDamaged) {
        return failure(KSWErrorGeneric);
    }
    if (found.item == nullptr) {
        found.item = asIfEntered(recordOf(*item, *identifier, FileDates::LeftOut, caller));
    }
    return {KSWErrorNone, std::move(found.item), 0, std::nullopt};
}

Answer Operations::storedDisposition(const Subject& subject, const Caller& caller) {
    Answer answer = recordedOrExpected(subject, caller);
    if (answer.item != nullptr) {
        answer.disposition = answer.item->disposition();
    }
    return answer;
}

Answer Operations::effectiveDisposition(const Subject& subject, const Caller& caller) {
    Answer answer = recordedOrExpected(subject, caller);
    if (answer.item != nullptr) {
        // It looks whether a file that the caller may have named lies in a trash.
        const ReadingAs rights(caller);
        if (!rights.ok()) {
            return failure(KSWErrorGeneric);
        }
        answer.disposition = answer.item->effectiveDisposition();
        answer.requirement = answer.item->lightweightRequirement();
    }
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
