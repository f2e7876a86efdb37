#include "servers/kestrelwoodd/item_facts.h"

#include "servers/kestrelwoodd/maker.h"
#include "servers/kestrelwoodd/record.h"

namespace ksw::daemon {

namespace {

bool containsOnly(const KSWItem& item) {
    return (item.flags() & kContainsOnly) != 0;
}

}  // namespace

bool haveSameFacts(const KSWItem& item, const KSWItem& other) {
    return item.type() == other.type() && item.url() == other.url() && item.name() == other.name() &&
           item.executablePath() == other.executablePath() && item.programArguments() == other.programArguments() &&
           item.sha256() == other.sha256() && item.modificationDate() == other.modificationDate() &&
           item.executableModificationDate() == other.executableModificationDate() && haveSameMaker(item, other) &&
           item.associatedBundleIdentifiers() == other.associatedBundleIdentifiers() &&
           item.isCurated() == other.isCurated() && (item.isManaged() || !other.isManaged()) &&
           (!containsOnly(item) || containsOnly(other)) &&
           (!other.bookmark() || item.bookmark() == other.bookmark());
}

void takeFacts(KSWItem& item, const KSWItem& source) {
    // The flag of a legacy type is raised with the type and would stay when the type is legacy no longer.
    item.setFlags(item.flags() & ~(KSWItemFlagLegacy | (containsOnly(source) ? 0 : kContainsOnly)));
    item.setType(source.type());
    item.setUrl(source.url());
    item.setName(source.name());
    item.setExecutablePath(source.executablePath());
    item.setProgramArguments(source.programArguments());
    item.setSha256(source.sha256());
    item.setModificationDate(source.modificationDate());
    item.setExecutableModificationDate(source.executableModificationDate());
    takeMaker(item, source);
    item.setAssociatedBundleIdentifiers(source.associatedBundleIdentifiers());
    item.setCurated(source.isCurated());
    item.setManaged(item.isManaged() || source.isManaged());
    if (source.bookmark()) {
        item.setBookmark(source.bookmark());
    }
}

}  // namespace ksw::daemon
