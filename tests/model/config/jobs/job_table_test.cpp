// Job files and the items that come of them: NAME.plist is a job, NAME.expected says how it is taken and what is
// then in its item; "@ROOT@" stands for the host's root in both. "kind" is that of the item; "app" the application
// that a job which is not legacy lies in; "internal" whether the host has internal content. "item" holds every fact
// that is there, and "error" stands in its place for a file that is no job.

#include <algorithm>
#include <filesystem>

#include "platform/plist/property_list.h"
#include "tests/model/config/jobs/job_world.h"

namespace ksw::config {
namespace {

const std::string kFolder = KSW_SOURCE_DIR "/tests/model/config/jobs/";

/// One fact of an item, when it is there.
template <class T>
void put(Dictionary& facts, const char* key, const std::optional<T>& fact) {
    if (fact) {
        facts.emplace(key, *fact);
    }
}

std::optional<Value> arrayOf(const std::optional<KSWItem::Strings>& texts) {
    return texts ? std::optional(Value(Array(texts->begin(), texts->end()))) : std::nullopt;
}

class AJobTable : public JobTest {
protected:
    static std::vector<std::string> names() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
            if (entry.path().extension() == ".plist") {
                names.push_back(entry.path().stem());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The property list in a file of the table.
    Dictionary read(const std::string& file) const {
        std::string text = facts::textOf(facts::contentOf(kFolder + file));
        for (std::size_t at = 0; (at = text.find("@ROOT@", at)) != std::string::npos;) {
            text.replace(at, 6, world.at(""));
        }
        const Result<Value> value = plist::readXml(facts::bytesOf(text));
        EXPECT_TRUE(value.ok()) << file;
        return value ? *value->as<Dictionary>() : Dictionary();
    }

    /// What comes of the job file: the facts of its item, or an error.
    Dictionary taken(const std::string& path, const std::string& name, const Dictionary& expected) {
        std::optional<Error> error;
        const std::optional<Dictionary> job = readPropertyListFile(URL::fileURL(path), &error);
        const std::optional<Dictionary> config = job ? configurationFromJob(*job, &error) : std::nullopt;
        if (!config) {
            return {{"error", error->localizedDescription()}};
        }
        const std::string kind = *find<std::string>(expected, "kind");
        std::optional<URL> vouches;
        const Item item = kind.starts_with("legacy") ? legacyJob(kind, path, *config, vouches)
                                                     : jobInside(kind, name, expected, *config, vouches);
        return factsOf(*item, vouches);
    }

    static Item legacyJob(const std::string& kind, const std::string& path, const Dictionary& config,
                          std::optional<URL>& vouches) {
        const KSWItemType type =
            (kind == "legacy agent" ? KSWItemTypeAgent : KSWItemTypeDaemon) | KSWItemTypeLegacyBit;
        const URL url = URL::fileURL(path);
        return KSWItem::legacyAgentOrDaemonItemWithType(
            type, url, ItemIdentifierWithRegistrationInfo(type, std::nullopt, url, config), config, &vouches,
            kEveryUser);
    }

    static std::string placeInside(const std::string& kind, const std::string& name) {
        return std::string("Contents/Library/") + (kind == "agent" ? "Agents/" : "Daemons/") + name + ".plist";
    }
    static std::string appOf(const Dictionary& expected) { return *find<std::string>(expected, "app"); }

    Item jobInside(const std::string& kind, const std::string& name, const Dictionary& expected,
                   const Dictionary& config, std::optional<URL>& vouches) {
        const KSWItemType type = kind == "agent" ? KSWItemTypeAgent : KSWItemTypeDaemon;
        const URL bundle = world.applicationURL(appOf(expected));
        const URL url = URL::fileURL(placeInside(kind, name));
        container = KSWItem::itemWithType(KSWItemTypeApp, bundle, "2.app");
        container->setDeveloperName(DeveloperNameForURL(bundle));
        Item item = KSWItem::itemWithType(type, url, ItemIdentifierWithRegistrationInfo(type, bundle, url, config),
                                          container);
        vouches = item->setPropertiesWithKSWConfig(config);
        return item;
    }

    static Dictionary factsOf(const KSWItem& item, const std::optional<URL>& vouches) {
        EXPECT_NE(item.modificationDate(), 0);
        EXPECT_EQ(item.bookmark(), std::nullopt);
        EXPECT_EQ(item.bundleIdentifier(), std::nullopt);
        EXPECT_EQ(item.sha256(), std::nullopt);
        Dictionary facts{{"type", KSWItemTypeDescription(item.type())},
                         {"flags", KSWItemFlagsDescription(item.flags())},
                         {"disposition", KSWDispositionDescription(item.disposition())},
                         {"url", item.url()->relativePath()}};
        put(facts, "identifier", item.identifier());
        put(facts, "name", item.name());
        put(facts, "executablePath", item.executablePath());
        put(facts, "programArguments", arrayOf(item.programArguments()));
        put(facts, "teamIdentifier", item.teamIdentifier());
        put(facts, "requirement", item.designatedRequirement());
        put(facts, "associatedBundleIdentifiers", arrayOf(item.associatedBundleIdentifiers()));
        put(facts, "vouching", vouches ? std::optional(vouches->path()) : std::nullopt);
        put(facts, "developerName",
            item.developerName().empty() ? std::nullopt : std::optional(item.developerName()));
        put(facts, "constraint", item.lightweightRequirement() ? std::optional(true) : std::nullopt);
        put(facts, "executableDated", item.executableModificationDate() != 0 ? std::optional(true) : std::nullopt);
        return {{"item", facts}};
    }

    /// Each fact that is not as expected.
    static void compare(const std::string& name, const Dictionary& expected, const Dictionary& taken) {
        EXPECT_EQ(expected.contains("error"), taken.contains("error")) << name << ": " << describe(taken);
        for (const char* part : {"error", "item"}) {
            const Value expectedPart = expected.contains(part) ? expected.at(part) : Value();
            const Value takenPart = taken.contains(part) ? taken.at(part) : Value();
            if (expectedPart == takenPart) {
                continue;
            }
            const auto* left = expectedPart.as<Dictionary>();
            const auto* right = takenPart.as<Dictionary>();
            if (left == nullptr || right == nullptr) {
                ADD_FAILURE() << name << ": " << describe(takenPart) << ", not " << describe(expectedPart);
                continue;
            }
            compareFacts(name, *left, *right);
        }
    }
    static void compareFacts(const std::string& name, const Dictionary& expected, const Dictionary& taken) {
        Dictionary keys = expected;
        keys.insert(taken.begin(), taken.end());
        for (const auto& [key, ignored] : keys) {
            const Value left = expected.contains(key) ? expected.at(key) : Value();
            const Value right = taken.contains(key) ? taken.at(key) : Value();
            EXPECT_TRUE(left == right) << name << ", " << key << ": " << describe(right) << ", not "
                                       << describe(left);
        }
    }
};

TEST_F(AJobTable, GivesTheExpectedItemsFromXmlAndFromBinaryFiles) {
    const std::vector<std::string> all = names();
    EXPECT_GE(all.size(), 60U);
    for (const std::string& name : all) {
        const Dictionary job = read(name + ".plist");
        const Dictionary expected = read(name + ".expected");
        world.setInternal(expected.contains("internal"));
        const auto* kind = find<std::string>(expected, "kind");
        const bool isInside = expected.contains("app");
        const std::string path = isInside ? "/Applications/" + appOf(expected) + ".app/" + placeInside(*kind, name)
                                          : "/etc/jobs/" + name + ".plist";
        for (const auto& bytes : {plist::writeXml(job), plist::writeBinary(job)}) {
            ASSERT_TRUE(bytes.ok()) << name;
            compare(name, expected, taken(world.write(path, facts::textOf(*bytes)), name, expected));
        }
    }
}

TEST_F(AJobTable, HasAnExpectationForEveryJob) {
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        if (entry.path().extension() == ".expected") {
            EXPECT_TRUE(std::filesystem::exists(entry.path().string().substr(0, entry.path().string().size() - 8) +
                                                "plist"));
        }
    }
}

}  // namespace
}  // namespace ksw::config
