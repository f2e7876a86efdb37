// contract_rows.h: the wire contract written out once more, by hand, so that a row changed by accident is noticed.
#pragma once

#include <string_view>

namespace ksw::protocol::contract {

struct Row {
    int number;
    std::string_view selector;
    std::string_view arguments;  ///< type names, separated by ", "
    std::string_view reply;
};

constexpr Row kManagerMethods[] = {
    {1, "fetchUserSettingsForUID:reply:", "uid", "int64, KSWUserSettings"},
    {2, "saveUserSettings:uid:reply:", "KSWUserSettings, uid", "int64"},
    {3, "stewardWillScanPath:reply:", "string", ""},
    {4, "stewardDidScanPath:reply:", "string", ""},
    {5, "registerLaunchItemWithAuditToken:parentURL:type:relativeURL:configuration:uid:reply:",
     "audit token, URL, int64, URL, dictionary, uid", "int64"},
    {6, "unregisterLaunchItemWithAuditToken:parentURL:type:relativeURL:uid:reply:",
     "audit token, URL, int64, URL, uid", "int64"},
    {7, "invalidateLaunchItemWithBundleURL:type:itemURL:configuration:uid:reply:",
     "URL, int64, URL, dictionary, uid", "KSWFetchResult"},
    {8, "canLaunchItemWithAppURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "bool, int64"},
    {9, "itemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "int64, int64"},
    {10, "effectiveItemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:",
     "URL, int64, URL, dictionary, uid", "int64, byte data, int64"},
    {11, "effectiveItemDispositionWithAuditToken:type:relativeURL:configuration:uid:reply:",
     "audit token, int64, URL, dictionary, uid", "int64, byte data, int64"},
    {12, "registerItemWithAuditToken:type:relativeURL:configuration:uid:reply:",
     "audit token, int64, URL, dictionary, uid", "KSWFetchResult"},
    {13, "registerItemWithBundleURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "KSWFetchResult"},
    {14, "unregisterItemWithAuditToken:type:relativeURL:uid:reply:", "audit token, int64, URL, uid", "int64"},
    {15, "unregisterItemWithBundleURL:type:relativeURL:uid:reply:", "URL, int64, URL, uid", "int64"},
    {16, "scheduleGarbageCollectionWithDelay:reply:", "double", "int64"},
    {17, "getItemWithIdentifier:uid:reply:", "string, uid", "KSWFetchResult"},
    {18, "getItemsMatching:uid:reply:", "int64, uid", "byte data, error"},
    {19, "getItemWithUUID:uid:reply:", "UUID, uid", "KSWFetchResult"},
    {20, "itemWithAppURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "KSWFetchResult"},
    {21, "addItem:uid:reply:", "KSWItem, uid", "int64"},
    {22, "updateItem:uid:reply:", "KSWItem, uid", "int64"},
    {23, "updateItems:uid:reply:", "byte data, uid", "int64"},
    {24, "removeItemWithIdentifier:uid:reply:", "string, uid", "error"},
    {25, "removeItemWithUUID:uid:reply:", "UUID, uid", "error"},
    {26, "mdmPayloadForIdentifier:reply:", "string", "dictionary"},
    {27, "setMDMPayload:identifier:updateImmediately:reply:", "dictionary, string, bool", "error"},
    {28, "submitManagedJobAtPath:reply:", "string", "error"},
    {29, "removeManagedJobAtPath:reply:", "string", "error"},
    {30, "removeManagedJobWithLabel:reply:", "string", "error"},
    {31, "noteLogoutForUID:reply:", "uid", "int64"},
    {32, "fetchUserIdentifiersAndUIDsWithReply:", "", "dictionary"},
    {33, "dumpDatabaseWithAuthorization:reply:", "byte data", "string, error"},
    {34, "eraseDatabaseWithAuthorization:reply:", "byte data", "error"},
    {35, "setAlwaysPostNotifications:reply:", "bool", "bool"},
    {36, "getAlwaysPostNotificationsWithReply:", "", "bool"},
    {37, "getHaveEnablementStatusForSubsystem:uid:reply:", "string, uid", "int64, bool"},
    {38, "resetEnablementStatusForSubsystem:uid:reply:", "string, uid", "int64"},
    {39, "getEnablementStatusForSubsystem:uid:reply:", "string, uid", "int64, bool"},
    {40, "setEnablementStatus:subsystem:uid:reply:", "bool, string, uid", "int64"},
};

constexpr Row kRosterMethods[] = {
    {1, "fetchRosterItemsMatching:reply:", "int64", "byte data, error"},
    {2, "addURL:type:global:managed:reply:", "URL, int64, bool, bool", "int64, KSWItem"},
    {3, "updateItem:reply:", "KSWItem", "int64"},
    {4, "removeItem:reply:", "KSWItem", "int64"},
};

constexpr Row kRegistrarMethods[] = {
    {1, "registerItemWithBundleURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "KSWFetchResult"},
    {2, "effectiveItemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:",
     "URL, int64, URL, dictionary, uid", "int64, byte data, int64"},
    {3, "itemWithAppURL:type:relativeURL:configuration:uid:reply:", "URL, int64, URL, dictionary, uid",
     "KSWFetchResult"},
};

constexpr Row kNotificationMethods[] = {
    {1, "postAdvisoryForContainer:reply:", "KSWItem", "bool"},
    {2, "postAdvisoryForItem:container:reply:", "KSWItem, KSWItem", "bool"},
    {3, "postAdvisoryForItem:appURL:reply:", "KSWItem, URL", "bool"},
    {4, "postAlertForItem:container:reply:", "KSWItem, KSWItem", "bool"},
    {5, "postCoalescedNotificationForItem:container:backgroundCount:extensionsCount:types:reply:",
     "KSWItem, KSWItem, int64, int64, int64", "bool"},
    {6, "registerParentApps:reply:", "string", "bool"},
};

constexpr Row kAgentMethods[] = {
    {1, "getLoginItemsWithTypeMask:reply:", "uint64", "array, error"},
    {2, "addLoginItem:reply:", "KSWLoginItem", "error"},
    {3, "removeLoginItem:reply:", "KSWLoginItem", "error"},
    {4, "getBackgroundItemsWithReply:", "", "array, error"},
    {5, "setUserElection:forURL:reply:", "int64, URL", "error"},
    {6, "setUserElection:forBackgroundItemIdentifier:reply:", "int64, UUID", "error"},
    {7, "openLoginItemsWithReply:", "", "error"},
    {8, "importRosterLoginItemsAndDeleteWhenDone:reply:", "bool", "error"},
};

}  // namespace ksw::protocol::contract
