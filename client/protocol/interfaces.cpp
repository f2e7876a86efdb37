// interfaces.cpp: the management daemon's four interfaces, collected from their methods.

#include "client/protocol/manager_service.h"
#include "client/protocol/notification_service.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/roster_service.h"

ksw::ipc::ServiceInterface GetManagerServiceInterface() {
    using namespace ksw::protocol::manager;
    return ksw::ipc::makeInterface(
        "KSWManagerServiceInterface", kFetchUserSettings, kSaveUserSettings, kStewardWillScanPath,
        kStewardDidScanPath, kRegisterLaunchItem, kUnregisterLaunchItem, kInvalidateLaunchItem, kCanLaunchItem,
        kItemDisposition, kEffectiveDispositionOfURL, kEffectiveDispositionOfProcess, kRegisterItemOfProcess,
        kRegisterItemOfURL, kUnregisterItemOfProcess, kUnregisterItemOfURL, kScheduleGarbageCollection,
        kGetItemWithIdentifier, kGetItemsMatching, kGetItemWithUUID, kItemOfURL, kAddItem, kUpdateItem,
        kUpdateItems, kRemoveItemWithIdentifier, kRemoveItemWithUUID, kMDMPayload, kSetMDMPayload,
        kSubmitManagedJob, kRemoveManagedJobAtPath, kRemoveManagedJobWithLabel, kNoteLogout,
        kFetchUserIdentifiersAndUIDs, kDumpDatabase, kEraseDatabase, kSetAlwaysPostNotifications,
        kGetAlwaysPostNotifications, kGetHaveEnablementStatus, kResetEnablementStatus, kGetEnablementStatus,
        kSetEnablementStatus);
}

namespace ksw::protocol {

ipc::ServiceInterface registrar::serviceInterface() {
    return ipc::makeInterface("KSWRegistrarServiceInterface", kRegisterItemOfURL, kEffectiveDispositionOfURL,
                              kItemOfURL);
}

ipc::ServiceInterface roster::serviceInterface() {
    return ipc::makeInterface("KSWRosterInterface", kFetchRosterItemsMatching, kAddURL, kUpdateItem, kRemoveItem);
}

ipc::ServiceInterface notifications::serviceInterface() {
    return ipc::makeInterface("KSWNotificationServiceInterface", kPostAdvisoryForContainer, kPostAdvisoryForItem,
                              kPostAdvisoryForItemOfApp, kPostAlertForItem, kPostCoalescedNotification,
                              kRegisterParentApps);
}

}  // namespace ksw::protocol
