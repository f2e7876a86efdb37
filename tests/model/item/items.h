// items.h: items for tests.
#pragma once

#include <kestrelwood/KSWItem.h>

namespace ksw::test {

inline KSWItem::Pointer item(KSWItemType type, KSWItem::OptionalString identifier) {
    return KSWItem::itemWithType(type, std::move(identifier));
}

/// An item with every field filled but its relatives.
inline KSWItem::Pointer fullItem() {
    auto made = item(0x10008, "8.com.example.job");
    made->setUuid(UUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF"));
    made->setFlags(KSWItemFlagLegacy | KSWItemFlagManaged);
    made->setDisposition(KSWDispositionEnabled | KSWDispositionAllowed | KSWDispositionPendingAuthorization);
    made->setName("Job");
    made->setDeveloperName("Example Works");
    made->setEditable(true);
    made->setCanHide(true);
    made->setUrl(URL::fileURL("/etc/jobs/com.example.job.plist"));
    made->setModificationDate(86400.5);
    made->setSha256(Data{0x00, 0xAB});
    made->setExecutablePath("/usr/lib/example/job");
    made->setExecutableModificationDate(172800.25);
    made->setProgramArguments(KSWItem::Strings{"job", "--quiet"});
    made->setBundleIdentifier("com.example.app");
    made->setAssociatedBundleIdentifiers(KSWItem::Strings{"com.example.app", "com.example.other"});
    made->setBookmark(Data{1, 2, 3});
    made->setTeamIdentifier("TEAM42");
    made->setDesignatedRequirement("identifier \"com.example.job\"");
    made->setLightweightRequirement(Data{0xCA, 0xFE});
    made->setGeneration(-7);
    return made;
}

}  // namespace ksw::test
