#include "tests/servers/kestrelwoodd/durability/script.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <random>

#include "platform/host/log_sinks.h"
#include "servers/kestrelwoodd/open_registry.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon::test {

using namespace servers;

namespace {

constexpr std::array<Uid, 3> kUsers = {4501, 4502, kEveryUser};
constexpr std::size_t kItems = 5;

std::string identifierOf(std::size_t number) {
    return "8.agent." + std::to_string(number);
}

ItemPointer itemOf(const Step& step) {
    ItemPointer item = KSWItem::initWithType(KSWItemTypeAgent, step.identifier);
    item->setExecutablePath("/opt/version-" + std::to_string(step.version));
    // Now and then more than fits into a page.
    const std::size_t length = step.version % 4 == 0 ? 9'000 : 10;
    item->setProgramArguments(std::vector<std::string>{std::string(length, 'a')});
    return item;
}

std::string describe(const Registry& registry, Uid uid, const std::string& identifier) {
    const Found found = registry.records().find(uid, identifier);
    std::string text = std::to_string(uid) + " " + identifier + ": ";
    if (found.item == nullptr) {
        return text + (found.isDamaged ? "damaged\n" : "none\n");
    }
    const KSWItem& item = *found.item;
    text += std::to_string(item.generation()) + " " + std::to_string(item.disposition()) + " " +
            item.executablePath().value_or("-");
    if (const ItemPointer container = item.container()) {
        text += " in " + container->identifier().value_or("-");
    }
    return text + " with " + std::to_string(item.countOfEmbeddedItems()) + "\n";
}

}  // namespace

std::string placeForManyStores() {
    constexpr const char* kInMemory = "/dev/shm";
    return access(kInMemory, W_OK) == 0 ? kInMemory : std::filesystem::temp_directory_path().string();
}

void silenceLog() {
    static const int kNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    host::LogSettings settings = host::LogSettings::fromEnvironment();
    settings.standardError = kNowhere;
    host::setLogSettings(settings);
}

std::vector<Step> script(std::size_t steps) {
    std::vector<Step> all;
    std::mt19937 random(20260731);
    while (all.size() < steps) {
        const Uid uid = kUsers[random() % kUsers.size()];
        all.push_back({uid, identifierOf(random() % kItems), random() % 4 == 0, static_cast<int>(all.size())});
    }
    return all;
}

std::int64_t perform(Registry& registry, const Step& step) {
    const Outcome outcome =
        step.removes ? registry.remove(step.uid, step.identifier) : registry.enter(step.uid, itemOf(step));
    return outcome.code;
}

std::string snapshot(const Registry& registry) {
    std::string text;
    for (const Uid uid : kUsers) {
        text += describe(registry, uid, std::string(kUnknownDeveloper));
        for (std::size_t number = 0; number < kItems; ++number) {
            text += describe(registry, uid, identifierOf(number));
        }
    }
    return text;
}

std::string quickCheck(const std::string& path) {
    Result<Database> database = Database::open(path);
    if (!database) {
        return std::string(database.error().localizedDescription());
    }
    database->leaveUntouched();
    Result<Statement> check = database->prepare("PRAGMA quick_check");
    const Result<bool> row = check ? check->step() : Result<bool>(check.error());
    return row && *row ? std::string(check->text(0, 4096).value_or("")) : "no answer";
}

std::vector<std::string> snapshotsOf(const std::vector<Step>& steps) {
    const ksw::test::TempFolder folder;
    const Result<OpenedRegistry> opened = openRegistry(folder.at("kestrelwood.db"));
    EXPECT_TRUE(opened.ok());
    std::vector<std::string> snapshots{snapshot(*opened->registry)};
    for (const Step& step : steps) {
        perform(*opened->registry, step);
        snapshots.push_back(snapshot(*opened->registry));
    }
    return snapshots;
}

}  // namespace ksw::daemon::test
