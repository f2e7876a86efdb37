#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "tests/model/item/items.h"

namespace {

using ksw::test::fullItem;
using ksw::test::item;

std::string uuidOf(const KSWItem::Pointer& item) {
    return item->uuid()->string();
}

TEST(TheDescription, NamesTheItemInOneLine) {
    EXPECT_EQ(
        fullItem()->description(),
        "uuid=00112233-4455-6677-8899-AABBCCDDEEFF, name=Job, type=legacy agent, disposition=[enabled, allowed, "
        "visible, not notified] (pending authorization), identifier=8.com.example.job, "
        "url=file:///etc/jobs/com.example.job.plist");
}

TEST(TheDescription, OfABareItemSaysWhatIsMissing) {
    EXPECT_EQ(KSWItem().description(),
              "uuid=(null), name=(null), type=unknown, disposition=[disabled, disallowed, visible, not notified], "
              "identifier=(null), url=(null)");
}

TEST(TheDump, HasEveryLineInItsOrder) {
    const auto parent = item(0x20, "Example Works");
    const auto made = fullItem();
    made->setContainer(parent);
    made->addEmbeddedItemsObject(item(0x4, "4.first"));
    made->addEmbeddedItemsObject(item(0x4, "4.second"));
    EXPECT_EQ(made->dumpVerboseDescription(),
              "                 UUID: 00112233-4455-6677-8899-AABBCCDDEEFF\n"
              "                 Name: Job\n"
              "       Developer Name: Example Works\n"
              "      Team Identifier: TEAM42\n"
              "                 Type: legacy agent (0x10008)\n"
              "                Flags: [ legacy, managed ] (0x9)\n"
              "          Disposition: [enabled, allowed, visible, not notified] (pending authorization) (0x13)\n"
              "  Pending Authorization: Yes\n"
              "           Identifier: 8.com.example.job\n"
              "                  URL: file:///etc/jobs/com.example.job.plist\n"
              "    Bundle Identifier: com.example.app\n"
              "           Generation: -7\n"
              "\n"
              "      Executable Path: /usr/lib/example/job\n"
              "  Executable Mod Date: 2001-01-02 00:00:00 +0000\n"
              "               SHA256: 00AB\n"
              "                 LWCR: {length = 2, bytes = 0xcafe}\n"
              "\n"
              "    Assoc. Bundle IDs: [com.example.app, com.example.other ]\n"
              "    Parent Identifier: Example Works\n"
              "  Embedded Item Identifiers:\n"
              "    #1: 4.first\n"
              "    #2: 4.second\n");
}

TEST(TheDump, OfABareItemShowsWhatIsAlwaysShown) {
    EXPECT_EQ(KSWItem().dumpVerboseDescription(),
              "                 UUID: (null)\n"
              "                 Name: (null)\n"
              "       Developer Name: (null)\n"
              "                 Type: unknown (0)\n"
              "                Flags: [  ] (0)\n"
              "          Disposition: [disabled, disallowed, visible, not notified] (0)\n"
              "           Identifier: (null)\n"
              "                  URL: (null)\n"
              "           Generation: 0\n"
              "\n"
              "\n");
}

TEST(TheDump, HasATypeLineOfItsOwnForm) {
    const std::string line = "  " + std::string(15, ' ') + "Type: agent (0x8)\n";
    EXPECT_NE(item(0x8, "8.a")->dumpVerboseDescription().find("\n" + line), std::string::npos);
}

TEST(TheDump, ShowsTheDateOfTheItemsFileAndNotOfItsExecutable) {
    const auto made = item(0x8, "8.a");
    made->setExecutableModificationDate(86400);
    EXPECT_EQ(made->dumpVerboseDescription().find("Mod Date"), std::string::npos);
    made->setModificationDate(60);
    EXPECT_NE(made->dumpVerboseDescription().find("  Executable Mod Date: 2001-01-01 00:01:00 +0000\n"),
              std::string::npos);
}

TEST(TheDump, ShowsTheRelativeTextOfAURL) {
    const auto made = item(0x8, "8.a");
    made->setUrl(ksw::URL::fileURL("Contents/x.plist", ksw::URL::fileURL("/A.app", ksw::PathKind::Directory)));
    EXPECT_NE(made->dumpVerboseDescription().find("                  URL: Contents/x.plist\n"), std::string::npos);
}

TEST(TheDump, LeavesOutEmptyListsOfBundlesAndChildren) {
    const auto made = item(0x8, "8.a");
    made->setAssociatedBundleIdentifiers(KSWItem::Strings{});
    const std::string text = made->dumpVerboseDescription();
    EXPECT_EQ(text.find("Assoc."), std::string::npos);
    EXPECT_EQ(text.find("Embedded"), std::string::npos);
}

TEST(TheDump, ShowsTheStoredDeveloperName) {
    const auto made = item(0x8, "8.a");
    made->setDeveloperName("");
    EXPECT_NE(made->dumpVerboseDescription().find("       Developer Name: (null)\n"), std::string::npos);
    EXPECT_NE(made->dumpVerboseDescription().find("                 UUID: " + uuidOf(made)), std::string::npos);
}

}  // namespace
