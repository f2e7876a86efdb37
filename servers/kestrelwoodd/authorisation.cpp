#include "servers/kestrelwoodd/authorisation.h"

#include "servers/kestrelwoodd/record.h"

namespace ksw::daemon {

bool isAllowed(Rule rule, const Caller& caller, KSWItemType type, Uid uid) {
    if (caller.isAdministrator()) {
        return true;
    }
    const bool isOwn = caller.uid == uid && uid != kEveryUser && uid != kNoUser;
    switch (rule) {
        case Rule::Ask:
        case Rule::Tell:
            return isOwn;
        case Rule::Change:
            return isOwn && scopeOf(type, uid) == uid;
        case Rule::List:
        case Rule::Maintain:
            return true;
        case Rule::Manage:
            return false;
    }
    return false;
}

bool maySee(const Caller& caller, Uid uid) {
    return caller.isAdministrator() || uid == caller.uid || uid == kEveryUser;
}

}  // namespace ksw::daemon
