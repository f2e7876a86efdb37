// manager_service.h: the 40 methods of the service "com.velmont.kestrelwood", in the order of their numbers.
#pragma once

#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWUserSettings.h>

#include "client/protocol/wire_arguments.h"
#include "client/values/fetch_result_archive.h"
#include "client/values/user_settings_archive.h"
#include "model/item/item_archive.h"
#include "platform/ipc/interface.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"

namespace ksw::protocol::manager {

using ipc::Method;
using ipc::Patience;
using ipc::Reply;
using ResultPointer = std::shared_ptr<KSWFetchResult>;
using SettingsPointer = std::shared_ptr<KSWUserSettings>;

// What several methods have in common: an item named by its application or by a process, and what is asked of it.
template <class Answer>
using AboutItemOfURL = Method<Answer(MaybeURL, Type, MaybeURL, MaybeDictionary, Uid)>;
template <class Answer>
using AboutItemOfProcess = Method<Answer(MaybeToken, Type, MaybeURL, MaybeDictionary, Uid)>;
template <class Answer>
using AboutSubsystem = Method<Answer(MaybeString, Uid)>;

inline constexpr Method<Reply<Code, SettingsPointer>(Uid)> kFetchUserSettings{1, "fetchUserSettingsForUID:reply:"};
inline constexpr Method<Reply<Code>(SettingsPointer, Uid)> kSaveUserSettings{2, "saveUserSettings:uid:reply:"};
inline constexpr Method<Reply<>(MaybeString)> kStewardWillScanPath{3, "stewardWillScanPath:reply:"};
inline constexpr Method<Reply<>(MaybeString)> kStewardDidScanPath{4, "stewardDidScanPath:reply:"};
// Exactly one of token and parent URL is given.
inline constexpr Method<Reply<Code>(MaybeToken, MaybeURL, Type, MaybeURL, MaybeDictionary, Uid)>
    kRegisterLaunchItem{5, "registerLaunchItemWithAuditToken:parentURL:type:relativeURL:configuration:uid:reply:"};
inline constexpr Method<Reply<Code>(MaybeToken, MaybeURL, Type, MaybeURL, Uid)> kUnregisterLaunchItem{
    6, "unregisterLaunchItemWithAuditToken:parentURL:type:relativeURL:uid:reply:"};
inline constexpr AboutItemOfURL<Reply<ResultPointer>> kInvalidateLaunchItem{
    7, "invalidateLaunchItemWithBundleURL:type:itemURL:configuration:uid:reply:"};
inline constexpr AboutItemOfURL<Reply<bool, Code>> kCanLaunchItem{
    8, "canLaunchItemWithAppURL:type:relativeURL:configuration:uid:reply:", {}, Patience::LaunchQuestion};
inline constexpr AboutItemOfURL<Reply<Disposition, Code>> kItemDisposition{
    9, "itemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:", {}, Patience::LaunchQuestion};
inline constexpr AboutItemOfURL<Reply<Disposition, MaybeData, Code>> kEffectiveDispositionOfURL{
    10,
    "effectiveItemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:",
    {},
    Patience::LaunchQuestion};
inline constexpr AboutItemOfProcess<Reply<Disposition, MaybeData, Code>> kEffectiveDispositionOfProcess{
    11,
    "effectiveItemDispositionWithAuditToken:type:relativeURL:configuration:uid:reply:",
    {},
    Patience::LaunchQuestion};
inline constexpr AboutItemOfProcess<Reply<ResultPointer>> kRegisterItemOfProcess{
    12, "registerItemWithAuditToken:type:relativeURL:configuration:uid:reply:"};
inline constexpr AboutItemOfURL<Reply<ResultPointer>> kRegisterItemOfURL{
    13, "registerItemWithBundleURL:type:relativeURL:configuration:uid:reply:"};
inline constexpr Method<Reply<Code>(MaybeToken, Type, MaybeURL, Uid)> kUnregisterItemOfProcess{
    14, "unregisterItemWithAuditToken:type:relativeURL:uid:reply:"};
inline constexpr Method<Reply<Code>(MaybeURL, Type, MaybeURL, Uid)> kUnregisterItemOfURL{
    15, "unregisterItemWithBundleURL:type:relativeURL:uid:reply:"};
inline constexpr Method<Reply<Code>(double)> kScheduleGarbageCollection{
    16, "scheduleGarbageCollectionWithDelay:reply:"};
inline constexpr Method<Reply<ResultPointer>(MaybeString, Uid)> kGetItemWithIdentifier{
    17, "getItemWithIdentifier:uid:reply:"};
inline constexpr Method<Reply<MaybeData, MaybeError>(Type, Uid)> kGetItemsMatching{18,
                                                                                   "getItemsMatching:uid:reply:"};
inline constexpr Method<Reply<ResultPointer>(MaybeUUID, Uid)> kGetItemWithUUID{19, "getItemWithUUID:uid:reply:"};
inline constexpr AboutItemOfURL<Reply<ResultPointer>> kItemOfURL{
    20, "itemWithAppURL:type:relativeURL:configuration:uid:reply:"};
inline constexpr Method<Reply<Code>(ItemPointer, Uid)> kAddItem{21, "addItem:uid:reply:"};
inline constexpr Method<Reply<Code>(ItemPointer, Uid)> kUpdateItem{22, "updateItem:uid:reply:"};
inline constexpr Method<Reply<Code>(MaybeData, Uid)> kUpdateItems{23, "updateItems:uid:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeString, Uid)> kRemoveItemWithIdentifier{
    24, "removeItemWithIdentifier:uid:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeUUID, Uid)> kRemoveItemWithUUID{25, "removeItemWithUUID:uid:reply:"};
inline constexpr Method<Reply<MaybeDictionary>(MaybeString)> kMDMPayload{26, "mdmPayloadForIdentifier:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeDictionary, MaybeString, bool)> kSetMDMPayload{
    27, "setMDMPayload:identifier:updateImmediately:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeString)> kSubmitManagedJob{28, "submitManagedJobAtPath:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeString)> kRemoveManagedJobAtPath{29,
                                                                                "removeManagedJobAtPath:reply:"};
inline constexpr Method<Reply<MaybeError>(MaybeString)> kRemoveManagedJobWithLabel{
    30, "removeManagedJobWithLabel:reply:"};
inline constexpr Method<Reply<Code>(Uid)> kNoteLogout{31, "noteLogoutForUID:reply:"};
inline constexpr Method<Reply<MaybeDictionary>()> kFetchUserIdentifiersAndUIDs{
    32, "fetchUserIdentifiersAndUIDsWithReply:"};
inline constexpr Method<Reply<MaybeString, MaybeError>(Authorization)> kDumpDatabase{
    33, "dumpDatabaseWithAuthorization:reply:", {}, Patience::Long};
inline constexpr Method<Reply<MaybeError>(Authorization)> kEraseDatabase{34,
                                                                         "eraseDatabaseWithAuthorization:reply:"};
inline constexpr Method<Reply<bool>(bool)> kSetAlwaysPostNotifications{35, "setAlwaysPostNotifications:reply:"};
inline constexpr Method<Reply<bool>()> kGetAlwaysPostNotifications{36, "getAlwaysPostNotificationsWithReply:"};
inline constexpr AboutSubsystem<Reply<Code, bool>> kGetHaveEnablementStatus{
    37, "getHaveEnablementStatusForSubsystem:uid:reply:"};
inline constexpr AboutSubsystem<Reply<Code>> kResetEnablementStatus{38,
                                                                    "resetEnablementStatusForSubsystem:uid:reply:"};
inline constexpr AboutSubsystem<Reply<Code, bool>> kGetEnablementStatus{
    39, "getEnablementStatusForSubsystem:uid:reply:"};
inline constexpr Method<Reply<Code>(bool, MaybeString, Uid)> kSetEnablementStatus{
    40, "setEnablementStatus:subsystem:uid:reply:"};

}  // namespace ksw::protocol::manager

/// The interface of the service "com.velmont.kestrelwood": the classes of arguments and replies are exactly those
/// of the methods' types. A new one on every call.
ksw::ipc::ServiceInterface GetManagerServiceInterface();
