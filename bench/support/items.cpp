#include "bench/support/items.h"

#include <cstdio>
#include <cstdlib>

#include "servers/kestrelwoodd/open_registry.h"
#include "servers/kestrelwoodd/record.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::bench {

namespace {

Data bytes(std::size_t size, int seed) {
    Data data(size);
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<std::uint8_t>(seed + static_cast<int>(i));
    }
    return data;
}

template <class T>
T orExit(Result<T> result) {
    if (!result) {
        std::fprintf(stderr, "%s\n", result.error().description().c_str());
        std::exit(2);
    }
    return *std::move(result);
}

}  // namespace

std::shared_ptr<KSWItem> makeItem(int number, KSWItemType type) {
    const std::string text = std::to_string(number);
    const std::string bundle = "com.example.application" + text;
    auto item = KSWItem::initWithType(type, "8." + bundle + ".agent");
    item->setFlags(KSWItemFlagGlobal);
    item->setName("Agent number " + text);
    item->setDeveloperName("Example Software Incorporated");
    item->setEditable(true);
    item->setCanHide(true);
    item->setUrl(URL::fileURL("/Applications/Example" + text + ".app/Contents/Library/Agents/agent.plist"));
    item->setModificationDate(700'000'000.5 + number);
    item->setSha256(bytes(32, number));
    item->setExecutablePath("/Applications/Example" + text + ".app/Contents/Linux/agent");
    item->setExecutableModificationDate(700'000'001.5 + number);
    item->setProgramArguments(KSWItem::Strings{"/usr/libexec/agent", "--label", bundle});
    item->setDisposition(0xB);
    item->setBundleIdentifier(bundle);
    item->setAssociatedBundleIdentifiers(KSWItem::Strings{bundle, "com.example.suite"});
    item->setBookmark(bytes(120, number));
    item->setTeamIdentifier("ABCDE12345");
    item->setDesignatedRequirement("identifier \"" + bundle + "\" and anchor trusted and team \"ABCDE12345\"");
    item->setLightweightRequirement(bytes(64, number));
    item->setGeneration(number);
    return item;
}

Items copies(const Items& items) {
    Items made;
    made.reserve(items.size());
    for (const auto& item : items) {
        made.push_back(item->copy());
    }
    return made;
}

namespace {

/// Puts agents into a store under the unknown developer; the last one's row.
daemon::ItemRow putAgents(daemon::Store& store, int count, Uid uid) {
    daemon::Change change;
    change.users.push_back({uid, "bench"});
    const auto developer = daemon::newUnknownDeveloper(UUID::random());
    change.put.push_back(orExit(daemon::rowOf(uid, *developer)));
    for (int number = 0; number < count; ++number) {
        const auto item = makeItem(number, KSWItemTypeAgent);
        item->_setContainer(developer);
        change.put.push_back(orExit(daemon::rowOf(uid, *item)));
    }
    if (const Status done = store.apply(change); !done) {
        std::fprintf(stderr, "%s\n", done.error().description().c_str());
        std::exit(2);
    }
    return change.put.back();
}

}  // namespace

void recordAgents(int count, Uid uid) {
    const servers::StateFolder folder = orExit(daemon::takeStateFolder());
    daemon::Store store = orExit(daemon::Store::open(folder.at(daemon::kStoreFile)));
    (void)putAgents(store, count, uid);
}

daemon::Store storeWithAgent(const std::string& path, daemon::ItemRow& row) {
    daemon::Store store = orExit(daemon::Store::open(path));
    row = putAgents(store, 1, 0);
    return store;
}

}  // namespace ksw::bench
