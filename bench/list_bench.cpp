// list_bench.cpp: lists of items from kestrelwoodd, and how soon a change is seen.
// Prints three figures, each beside its floor: a fetch of 10,000 items beside the raw transfer of the same bytes
// and the copying of the objects; one notification that touches one of 10,000 lists beside one refresh and a look
// at each; and a change as an observer in another process sees it beside two raw round trips and a commit. All
// share one CPU. With --strict it ends with 1 when a figure is over its target.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <kestrelwood/KSWList.h>
#include <kestrelwood/KSWManager.h>

#include "bench/support/child_process.h"
#include "bench/support/items.h"
#include "bench/support/question.h"
#include "bench/support/raw_sockets.h"
#include "bench/support/rounds.h"
#include "client/protocol/user_data_change.h"
#include "platform/ipc/notification_center.h"
#include "servers/kestrelwoodd/store.h"

namespace {

using ksw::bench::ChildProcess;
using ksw::bench::middleRounds;
using ksw::bench::RawSocket;

constexpr int kItems = 10'000;
constexpr int kLists = 10'000;
constexpr double kFetchTarget = 2.0;
constexpr double kNotificationTarget = 2.0;
constexpr double kChangeTarget = 1.0;
constexpr double kListedTarget = 1.5;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

std::shared_ptr<KSWList> fetched(KSWManager& manager, std::size_t count) {
    auto list = manager.getItemsMatching(static_cast<std::int64_t>(KSWItemTypeAgent), ::getuid());
    if (list == nullptr || list->count() != count) {
        fail("the list is not what it should be");
    }
    return list;
}

bool report(const char* what, double figure, double floor, double target) {
    std::printf("%s: %.3f ms, floor %.3f ms, ratio %.2f (target: at most %.1f)\n", what, figure / 1e6, floor / 1e6,
                figure / floor, target);
    return figure / floor <= target;
}

/// Both directions of a raw exchange as short as a request.
constexpr ksw::bench::Sizes kShort{100, 100};

bool measureFetch() {
    const ksw::bench::BenchRoot root;
    ksw::bench::recordAgents(kItems, ::getuid());
    const auto daemon = ksw::bench::managementDaemon();
    const auto manager = KSWManager::initWithMode(0);
    const auto list = fetched(*manager, kItems);
    const ksw::bench::Items items = list->items();
    const auto archive = list->encodeWithCoder();
    if (!archive) {
        fail("the list cannot be archived");
    }
    RawSocket raw({kShort.request, archive->size()});
    const auto middles = middleRounds(15, {[&] { raw.exchange(); }, [&] { (void)ksw::bench::copies(items); },
                                           [&] { (void)fetched(*manager, kItems); }});
    std::printf("%d items, %zu bytes; raw transfer %.3f ms, copying %.3f ms\n", kItems, archive->size(),
                middles[0] / 1e6, middles[1] / 1e6);
    const bool holds = report("a fetch", middles[2], middles[0] + middles[1], kFetchTarget);
    // What a fetch costs when the daemon cannot give out again what it gave out before.
    const auto item = items.front();
    const auto afterChange = middleRounds(5, {[&] {
                                                  item->setNotified(!item->notified());
                                                  if (!manager->updateItem(item, ::getuid())) {
                                                      fail("the change was refused");
                                                  }
                                              },
                                              [&] { (void)fetched(*manager, kItems); }});
    std::printf("a change of one of them: %.3f ms; the first fetch after it: %.3f ms\n", afterChange[0] / 1e6,
                afterChange[1] / 1e6);
    return holds;
}

bool measureNotification() {
    const ksw::bench::BenchRoot root;
    ksw::bench::recordAgents(1, ::getuid());
    const auto daemon = ksw::bench::managementDaemon();
    const auto manager = KSWManager::initWithMode(0);
    std::vector<std::shared_ptr<KSWList>> lists;
    for (int number = 0; number < kLists; ++number) {
        lists.push_back(fetched(*manager, 1));
        lists.back()->setUid(::getuid() + static_cast<ksw::Uid>(number));
    }
    const auto notification = ksw::protocol::notificationOf({::getuid(), KSWItemTypeAgent});
    // What cannot be spared: one refresh, and a look at every list whether somebody still holds it.
    const std::vector<std::weak_ptr<KSWList>> known(lists.begin(), lists.end());
    const auto middles = middleRounds(101, {[&] {
                                                std::vector<std::shared_ptr<KSWList>> held;
                                                held.reserve(known.size());
                                                for (const auto& list : known) {
                                                    held.push_back(list.lock());
                                                }
                                                (void)lists.front()->refresh();
                                            },
                                            [&] { manager->handleUserDataDidChangeNotification(notification); }});
    return report("one notification, 10,000 lists", middles[1], middles[0], kNotificationTarget);
}

double middle(std::vector<double>& times) {
    const auto half = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), half, times.end());
    return *half;
}

double now() {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// What the observing process says: when it was notified of a change, and when a list's observer was told of it,
/// with the generation of the item that the list shows then.
struct Sighting {
    double time = 0;
    std::int64_t generation = kNotified;

    static constexpr std::int64_t kNotified = -1;
};

void say(int pipe, const Sighting& sighting) {
    if (::write(pipe, &sighting, sizeof sighting) != sizeof sighting) {
        ::_exit(2);
    }
}

class Watcher final : public KSWListObserver {
public:
    explicit Watcher(int pipe) : pipe_(pipe) {}
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        say(pipe_, {now(), list->itemAtIndex(0)->generation()});
    }

private:
    int pipe_;
};

/// When the process was notified of a change, and when its list showed it.
struct Seen {
    double notified = 0;
    double listed = 0;
};

/// Waits until the list shows this generation.
Seen sightingOf(int pipe, std::int64_t generation) {
    Seen seen;
    Sighting sighting;
    while (sighting.generation != generation) {
        if (::read(pipe, &sighting, sizeof sighting) != sizeof sighting) {
            fail("the observing process has gone");
        }
        if (sighting.generation == Sighting::kNotified) {
            seen.notified = sighting.time;
        }
    }
    seen.listed = sighting.time;
    return seen;
}

bool isReadable(int pipe, int milliseconds) {
    pollfd waiting{pipe, POLLIN, 0};
    return ::poll(&waiting, 1, milliseconds) == 1;
}

/// What the daemon's store does for a change of one record, in a store of its own whose journal grows with each
/// commit, as the database library leaves it by itself.
class CommitFloor {
public:
    explicit CommitFloor(const std::string& path) : store_(ksw::bench::storeWithAgent(path, row_)) {}

    /// From here on commits find room in the journal, as the daemon's do.
    void makeRoom() {
        if (!store_.makeRoomInJournal().ok()) {
            fail("the floor's journal takes no room");
        }
    }

    void commit() {
        ++row_.generation;
        if (!store_.apply({{}, {row_}, {}})) {
            fail("the floor's store does not store");
        }
    }

private:
    ksw::daemon::ItemRow row_;
    ksw::daemon::Store store_;
};

bool measureChange() {
    const ksw::bench::BenchRoot root;
    ksw::bench::recordAgents(1, ::getuid());
    const auto daemon = ksw::bench::managementDaemon();
    int pipe[2];
    if (::pipe(pipe) != 0) {
        fail("pipe");
    }
    const ChildProcess observer([&] {
        const auto observation =
            ksw::ipc::NotificationCenter::of(ksw::ipc::Domain::System)
                .observe(std::string(KSWUserDataDidChangeNotification), [&](const ksw::Notification&) {
                    say(pipe[1], {now(), Sighting::kNotified});
                });
        const auto manager = KSWManager::initWithMode(0);
        const auto list = fetched(*manager, 1);
        list->addListObserver(std::make_shared<Watcher>(pipe[1]));
        while (true) {
            ::pause();
        }
    });
    const auto manager = KSWManager::initWithMode(0);
    const auto item = fetched(*manager, 1)->itemAtIndex(0);
    const auto changeOnce = [&] {
        item->setNotified(!item->notified());
        if (!manager->updateItem(item, ::getuid())) {
            fail("the change was refused");
        }
    };
    // Nobody says when the other process observes; so changes go on until it has seen one.
    do {
        changeOnce();
    } while (!isReadable(pipe[0], 20));
    changeOnce();
    (void)sightingOf(pipe[0], item->generation());
    RawSocket raw(kShort);
    CommitFloor floor(root.path() + "/floor.db");
    CommitFloor roomy(root.path() + "/roomy.db");
    roomy.makeRoom();
    std::vector<double> notified;
    std::vector<double> listed;
    const auto middles =
        middleRounds(301, {[&] { raw.exchange(); }, [&] { floor.commit(); }, [&] { roomy.commit(); },
                           [&] {
                               const double start = now();
                               changeOnce();
                               const Seen seen = sightingOf(pipe[0], item->generation());
                               notified.push_back(seen.notified - start);
                               listed.push_back(seen.listed - start);
                           }});
    std::printf("raw round trip %.3f ms, commit %.3f ms, into a journal with room %.3f ms\n", middles[0] / 1e6,
                middles[1] / 1e6, middles[2] / 1e6);
    const double bound = 2 * middles[0] + middles[1];
    const bool holds = report("a change observed in another process", middle(notified), bound, kChangeTarget);
    return report("the same in a list, refreshed", middle(listed), bound, kListedTarget) && holds;
}

}  // namespace

int main(int count, char** words) {
    ksw::bench::stayOnOneCpu();
    const bool fetchHolds = measureFetch();
    const bool notificationHolds = measureNotification();
    const bool changeHolds = measureChange();
    return ksw::bench::exitStatus(fetchHolds && notificationHolds && changeHolds, count, words);
}
