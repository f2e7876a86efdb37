// job_fuzz.cpp: any bytes as a job's property list: an error of the format, or a configuration that makes an item
// of every kind of job, with no fact longer than a field, no program outside of its application, and fit to be
// sent.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/facts/file_inside.h"
#include "platform/plist/property_list.h"

namespace {

using namespace ksw;

constexpr const char* kBundle = "/nonexistent/A.app";

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void requireField(const std::optional<std::string>& text) {
    require(!text || text->size() <= limits::kFieldMax);
}

void check(KSWItem& item, const Dictionary& configuration) {
    if (auto name = ItemNameForStewardPlist(configuration)) {
        item.setName(std::move(name));
    }
    item.setPropertiesWithKSWConfig(configuration);
    requireField(item.executablePath());
    for (const std::string& argument : item.programArguments().value_or(KSWItem::Strings())) {
        requireField(argument);
    }
    // Nothing is signed where nothing is.
    require(item.associatedBundleIdentifiers() || !item.isCurated());
    const auto bytes = archive::archive(item, archive::Coder::Ordinary);
    require(bytes.ok() || bytes.error().domain() == kFormatErrorDomain);
}

void checkInApplication(const std::string& label, KSWItemType type, const Dictionary& configuration) {
    const auto application = KSWItem::itemWithType(KSWItemTypeApp, "2.app");
    application->setUrl(URL::fileURL(kBundle, PathKind::Directory));
    const auto item = KSWItem::itemWithType(type, URL::fileURL("Contents/job.plist"),
                                            ComposedItemIdentifier(type, label), application);
    check(*item, configuration);
    const auto& path = item->executablePath();
    if (path && !path->starts_with('/')) {
        require(facts::fileInside(*application->url(), *path).has_value());
    }
}

/// No part of the host is looked at but what a job names.
void leaveHostAlone() {
    static const bool isSet = ::setenv("KESTRELWOOD_ROOT", "/nonexistent", 1) == 0;
    require(isSet);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    leaveHostAlone();
    const Result<Value> list = plist::read({data, size});
    const Dictionary* job = list ? list->as<Dictionary>() : nullptr;
    if (job == nullptr) {
        require(list.ok() || list.error().domain() == kFormatErrorDomain);
        return 0;
    }
    std::optional<Error> error;
    const std::optional<Dictionary> configuration = configurationFromJob(*job, &error);
    require(configuration.has_value() != error.has_value());
    if (!configuration) {
        require(error->domain() == kFormatErrorDomain && !error->localizedDescription().empty());
        return 0;
    }
    const auto* label = find<std::string>(*configuration, KSWConfigLabel);
    require(label != nullptr && label->size() <= limits::kFieldMax && label->find('\n') == std::string::npos);
    for (const KSWItemType type : {KSWItemTypeAgent, KSWItemTypeDaemon}) {
        check(*KSWItem::itemWithType(type | KSWItemTypeLegacyBit, ComposedItemIdentifier(type, *label)),
              *configuration);
        checkInApplication(*label, type, *configuration);
    }
    return 0;
}
