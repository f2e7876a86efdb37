// served_methods.h: the methods that the daemon serves, each with its rule and its operation.
// The one table from which the services are built; a method that is not in it is refused by name.
#pragma once

#include <tuple>

#include "client/protocol/manager_service.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/roster_service.h"
#include "servers/kestrelwoodd/housekeeping.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// A method; a row cannot be made without its rule.
template <class Method, class Operation>
struct ServedMethod {
    const Method& method;
    Rule rule;
    Operation operation;
};
template <class Method, class Operation>
ServedMethod(const Method&, Rule, Operation) -> ServedMethod<Method, Operation>;

namespace manager = protocol::manager;
namespace registrar = protocol::registrar;
namespace roster = protocol::roster;

inline constexpr std::tuple kManagerMethods{
    ServedMethod{manager::kRegisterLaunchItem, Rule::Change, &Operations::enterQuietly},
    ServedMethod{manager::kUnregisterLaunchItem, Rule::Change, &Operations::remove},
    ServedMethod{manager::kInvalidateLaunchItem, Rule::Change, &Operations::refresh},
    ServedMethod{manager::kCanLaunchItem, Rule::Ask, &Operations::effectiveDisposition},
    ServedMethod{manager::kItemDisposition, Rule::Ask, &Operations::storedDisposition},
    ServedMethod{manager::kEffectiveDispositionOfURL, Rule::Ask, &Operations::effectiveDisposition},
    ServedMethod{manager::kEffectiveDispositionOfProcess, Rule::Ask, &Operations::effectiveDisposition},
    ServedMethod{manager::kRegisterItemOfProcess, Rule::Change, &Operations::enter},
    ServedMethod{manager::kRegisterItemOfURL, Rule::Change, &Operations::enter},
    ServedMethod{manager::kUnregisterItemOfProcess, Rule::Change, &Operations::remove},
    ServedMethod{manager::kUnregisterItemOfURL, Rule::Change, &Operations::remove},
    ServedMethod{manager::kGetItemWithIdentifier, Rule::Ask, &Operations::itemWithIdentifier},
    ServedMethod{manager::kGetItemsMatching, Rule::Ask, &Operations::itemsMatching},
    ServedMethod{manager::kGetItemWithUUID, Rule::Ask, &Operations::itemWithUUID},
    ServedMethod{manager::kItemOfURL, Rule::Ask, &Operations::fetch},
    ServedMethod{manager::kAddItem, Rule::Change, &Operations::add},
    ServedMethod{manager::kUpdateItem, Rule::Change, &Operations::updateItem},
    ServedMethod{manager::kUpdateItems, Rule::Change, &Operations::updateItems},
    ServedMethod{manager::kRemoveItemWithIdentifier, Rule::Change, &Operations::removeWithIdentifier},
    ServedMethod{manager::kRemoveItemWithUUID, Rule::Change, &Operations::removeWithUUID},
    ServedMethod{manager::kFetchUserIdentifiersAndUIDs, Rule::List, &Operations::listUsers},
};

/// Those of the manager that are not about items.
inline constexpr std::tuple kHouseholdMethods{
    ServedMethod{manager::kFetchUserSettings, Rule::Ask, &Housekeeping::fetchSettings},
    ServedMethod{manager::kSaveUserSettings, Rule::Change, &Housekeeping::saveSettings},
    ServedMethod{manager::kStewardWillScanPath, Rule::Manage, &Housekeeping::willScan},
    ServedMethod{manager::kStewardDidScanPath, Rule::Manage, &Housekeeping::didScan},
    ServedMethod{manager::kScheduleGarbageCollection, Rule::Manage, &Housekeeping::scheduleCollection},
    ServedMethod{manager::kMDMPayload, Rule::Manage, &Housekeeping::payload},
    ServedMethod{manager::kSetMDMPayload, Rule::Manage, &Housekeeping::setPayload},
    ServedMethod{manager::kSubmitManagedJob, Rule::Manage, &Housekeeping::submitJob},
    ServedMethod{manager::kRemoveManagedJobAtPath, Rule::Manage, &Housekeeping::removeJobAtPath},
    ServedMethod{manager::kRemoveManagedJobWithLabel, Rule::Manage, &Housekeeping::removeJobWithLabel},
    ServedMethod{manager::kNoteLogout, Rule::Change, &Housekeeping::noteLogout},
    ServedMethod{manager::kDumpDatabase, Rule::Maintain, &Housekeeping::dump},
    ServedMethod{manager::kEraseDatabase, Rule::Maintain, &Housekeeping::erase},
    ServedMethod{manager::kSetAlwaysPostNotifications, Rule::Manage, &Housekeeping::setAlwaysPosts},
    ServedMethod{manager::kGetAlwaysPostNotifications, Rule::List, &Housekeeping::alwaysPosts},
    ServedMethod{manager::kGetHaveEnablementStatus, Rule::Ask, &Housekeeping::haveEnablement},
    ServedMethod{manager::kResetEnablementStatus, Rule::Change, &Housekeeping::resetEnablement},
    ServedMethod{manager::kGetEnablementStatus, Rule::Ask, &Housekeeping::enablement},
    ServedMethod{manager::kSetEnablementStatus, Rule::Change, &Housekeeping::setEnablement},
};

inline constexpr std::tuple kRosterMethods{
    ServedMethod{roster::kFetchRosterItemsMatching, Rule::Ask, &Housekeeping::fetchRoster},
    ServedMethod{roster::kAddURL, Rule::Change, &Housekeeping::addToRoster},
    ServedMethod{roster::kUpdateItem, Rule::Change, &Housekeeping::updateInRoster},
    ServedMethod{roster::kRemoveItem, Rule::Change, &Housekeeping::removeFromRoster},
};

inline constexpr std::tuple kRegistrarMethods{
    ServedMethod{registrar::kRegisterItemOfURL, Rule::Change, &Operations::enter},
    ServedMethod{registrar::kEffectiveDispositionOfURL, Rule::Ask, &Operations::effectiveDisposition},
    ServedMethod{registrar::kItemOfURL, Rule::Ask, &Operations::fetch},
};

}  // namespace ksw::daemon
