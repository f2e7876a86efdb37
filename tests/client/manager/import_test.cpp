// The login items from before there was an agent are taken over by the agent, when there are any.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>

#include <unistd.h>

#include "client/protocol/agent_service.h"
#include "tests/client/manager/answering.h"
#include "tests/support/environment.h"
#include "tests/support/in_child.h"

namespace ksw::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class AnImport : public ClientTest {
protected:
    void makeFile() { root_.folder().writeFile(kFile, "items"); }

    static constexpr const char* kFile =
        "home/somebody/.local/share/com.velmont.kestrelwoodagent/backgrounditems.ksw";
    ScopedVariable home_{"HOME", "/home/somebody"};
    ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    ScopedVariable run_{"XDG_RUNTIME_DIR", std::nullopt};
};

TEST_F(AnImport, WithoutAFileHasNothingToDoAndAsksNobody) {
    EXPECT_TRUE(manager()->importRosterLoginItemsAndDeleteWhenDone(true));
    const auto lines = log_.lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].level, host::LogLevel::Notice);
    EXPECT_EQ(lines[0].category, "import");
    EXPECT_EQ(lines[0].activity, "Import Roster Login Items");
    EXPECT_EQ(lines[0].fullForm,
              "skipping call to agent, data file not found at " + root_.folder().path() + "/" + kFile);
    EXPECT_EQ(lines[0].publicForm, "skipping call to agent, data file not found at <private>");
}

TEST_F(AnImport, LooksWhereTheUserKeepsData) {
    const ScopedVariable data("XDG_DATA_HOME", "/elsewhere");
    makeFile();
    EXPECT_TRUE(manager()->importRosterLoginItemsAndDeleteWhenDone(false));
    EXPECT_EQ(log_.count("skipping call to agent, data file not found at " + root_.folder().path() +
                         "/elsewhere/com.velmont.kestrelwoodagent/backgrounditems.ksw"),
              1U);
}

TEST_F(AnImport, OfAUserWithoutAFolderFails) {
    // Of uids that nobody has there is no home. Only uid 0 can be somebody else.
    if (::getuid() != 0) {
        return;
    }
    const ScopedVariable none("HOME", std::nullopt);
    const auto asStranger = [this] {
        ASSERT_EQ(::setresuid(54'321, 54'321, 54'321), 0);
        EXPECT_FALSE(manager()->importRosterLoginItemsAndDeleteWhenDone(true));
        // Beside it stands what else this user may not read.
        EXPECT_THAT(errors(), Contains("failed to get application support directory"));
    };
    withOwnMounts(asStranger);  // for the process of its own
}

TEST_F(AnImport, OfAFileIsTheAgentsWhoIsToldWhetherToDeleteIt) {
    makeFile();
    Seen<bool> told;
    std::atomic<bool> refuses = false;
    ipc::Dispatcher dispatcher;
    dispatcher.on(protocol::agent::kImportRosterLoginItems,
                  [&](const ipc::RequestContext&, ipc::Responder<std::optional<Error>> responder, bool isDeleted) {
                      told.add(isDeleted);
                      responder.answer(refuses ? std::optional(KSWErrorWithCode(-1)) : std::nullopt);
                  });
    ipc::Server agent;
    ASSERT_TRUE(agent.listen(kAgentService, ipc::Domain::Session, std::move(dispatcher)).ok());
    ASSERT_TRUE(agent.start().ok());
    const auto importer = manager();
    EXPECT_TRUE(importer->importRosterLoginItemsAndDeleteWhenDone(true));
    EXPECT_TRUE(importer->importRosterLoginItemsAndDeleteWhenDone(false));
    EXPECT_THAT(told.all(), ElementsAre(true, false));
    EXPECT_THAT(errors(), IsEmpty());
    refuses = true;
    EXPECT_FALSE(importer->importRosterLoginItemsAndDeleteWhenDone(true));
    EXPECT_TRUE(std::filesystem::exists(root_.folder().path() + "/" + kFile));
    agent.stop();
}

}  // namespace
}  // namespace ksw::test
