// The file that shows a person what an item is.

#include <filesystem>

#include "tests/model/config/jobs/job_world.h"

namespace ksw::config {
namespace {

class AnIcon : public JobTest {
protected:
    Item legacyJob() const {
        const Item item = KSWItem::itemWithType(KSWItemTypeAgent | KSWItemTypeLegacyBit, "8.x");
        item->setUrl(URL::fileURL(job));
        return item;
    }
    Item inTool(KSWItemType type, const std::string& path) {
        container = KSWItem::itemWithType(KSWItemTypeApp, world.applicationURL("Tool"), "2.com.example.tool");
        return KSWItem::itemWithType(type, URL::fileURL(path), "x", container);
    }
    std::string iconOf(const Item& item) const {
        const std::optional<URL> url = item->iconURL();
        return url ? url->path() : "";
    }
    const std::string job = world.write("/etc/jobs/icon.plist", "");
    const std::string tool = world.application("Tool");
};

TEST_F(AnIcon, OfALegacyJobIsItsApplicationElseOneItBelongsToElseItsProgramElseItself) {
    const Item item = legacyJob();
    EXPECT_EQ(iconOf(item), job);
    item->setExecutablePath(world.program("tool"));
    EXPECT_EQ(iconOf(item), world.program("tool"));
    item->setAssociatedBundleIdentifiers({{"com.example.nowhere", "com.example.other", "com.example.tool"}});
    EXPECT_EQ(iconOf(item), world.application("Other"));
    item->setBundleIdentifier("com.example.waiting");
    EXPECT_EQ(iconOf(item), world.application("Other")) << "a placeholder is none yet";
    item->setBundleIdentifier("com.example.plain");
    EXPECT_EQ(iconOf(item), world.application("Plain"));
}

TEST_F(AnIcon, MayNameAFileThatIsNotThere) {
    const Item item = legacyJob();
    item->setExecutablePath("/missing");
    EXPECT_EQ(iconOf(item), "/missing");
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeAgent | KSWItemTypeLegacyBit, "8.x")->iconURL(), std::nullopt);
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeApp, "2.x")->iconURL(), std::nullopt);
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeAgent, "8.x")->iconURL(), std::nullopt);
}

TEST_F(AnIcon, OfAJobInAnApplicationIsItsFileThere) {
    EXPECT_EQ(iconOf(inTool(KSWItemTypeAgent, "Contents/Info.plist")), tool + "/Contents/Info.plist");
    EXPECT_EQ(iconOf(inTool(KSWItemTypeDaemon, "Contents/missing")), tool + "/Contents/missing");
    const Item alone = KSWItem::itemWithType(KSWItemTypeAgent, "8.x");
    alone->setUrl(URL::fileURL(job));
    EXPECT_EQ(iconOf(alone), job);
}

TEST_F(AnIcon, IsNoFileOutsideTheApplicationThatShouldHoldIt) {
    for (const KSWItemType type : {KSWItemTypeAgent, KSWItemTypeLoginItem, KSWItemTypeGlimpse}) {
        EXPECT_EQ(inTool(type, "../Other.app")->iconURL(), std::nullopt) << type;
        EXPECT_EQ(inTool(type, "Contents/Helpers/stray")->iconURL(), std::nullopt) << type;
    }
}

TEST_F(AnIcon, OfAnyOtherItemIsItsFile) {
    EXPECT_EQ(iconOf(inTool(KSWItemTypeLoginItem, "Contents/Helpers/helper")), tool + "/Contents/Helpers/helper");
    EXPECT_EQ(iconOf(inTool(KSWItemTypeGlimpse, tool)), tool) << "an absolute path stands for itself";
    EXPECT_EQ(iconOf(KSWItem::itemWithType(KSWItemTypeApp, world.applicationURL("Plain"), "2.x")),
              world.application("Plain"));
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeUserItem, *URL::fromString("https://example.com/"), "x")->iconURL(),
              URL::fromString("https://example.com/"));
}

TEST_F(AnIcon, OfADeveloperIsAnApplicationOfItsOwnOrOfAChild) {
    const Item developer = KSWItem::itemWithType(KSWItemTypeDeveloper, "Example Works");
    const Item first = KSWItem::itemWithType(KSWItemTypeAgent, "8.first");
    const Item second = KSWItem::itemWithType(KSWItemTypeAgent, "8.second");
    developer->setEmbeddedItems({first, second});
    EXPECT_EQ(developer->iconURL(), std::nullopt);
    first->setBundleIdentifier("com.example.other");
    EXPECT_EQ(developer->iconURL(), std::nullopt) << "a child's own bundle is not the developer's";
    second->setAssociatedBundleIdentifiers({{"com.example.nowhere", "com.example.plain"}});
    EXPECT_EQ(iconOf(developer), world.application("Plain"));
    developer->setAssociatedBundleIdentifiers({{"com.example.nowhere", "com.example.other"}});
    EXPECT_EQ(iconOf(developer), world.application("Other"));
    developer->setBundleIdentifier("com.example.tool");
    EXPECT_EQ(iconOf(developer), tool);
}

TEST_F(AnIcon, FollowsAnApplicationThatWasMoved) {
    const std::string before = world.at("/movable/Before.app");
    const std::string after = world.at("/movable/After.app");
    world.write("/movable/Before.app/Contents/job.plist", "");
    const Item app = KSWItem::itemWithType(KSWItemTypeApp, URL::fileURL(before, PathKind::Directory), "2.x");
    const Item agent = KSWItem::itemWithType(KSWItemTypeAgent, URL::fileURL("Contents/job.plist"), "8.x", app);
    std::filesystem::rename(before, after);
    EXPECT_EQ(iconOf(agent), after + "/Contents/job.plist");
    EXPECT_EQ(app->url()->path(), after);
    std::filesystem::rename(after, before);
    EXPECT_EQ(iconOf(app), before);
    std::filesystem::remove_all(before);
    EXPECT_EQ(iconOf(app), before) << "gone, and answered all the same";
}

TEST_F(AnIcon, OfAnItemThatIsItsOwnContainerDoesNotHang) {
    const Item item = KSWItem::itemWithType(KSWItemTypeAgent, URL::fileURL("Contents/Info.plist"), "8.x");
    item->setContainer(item);
    EXPECT_EQ(item->iconURL(), std::nullopt);
    item->setContainer(nullptr);
}

TEST_F(AnIcon, IsAskedOfTheRegistryByIdentifierAlone) {
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier("com.example.tool"), world.applicationURL("Tool"));
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier("com.example.waiting"), std::nullopt);
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier("com.example.nowhere"), std::nullopt);
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier(std::nullopt), std::nullopt);
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier(""), std::nullopt);
}

}  // namespace
}  // namespace ksw::config
