// managed_bench.cpp: what it takes to bring 10,000 items under 1,000 managed rules, and out of them again.
// Prints the time of each, in one transaction with all that the daemon does, beside that of rewriting the same rows
// with SQLite alone. All share one CPU. With --strict it ends with 1 when a figure is over its target.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/items.h"
#include "bench/support/question.h"
#include "bench/support/rounds.h"
#include "servers/kestrelwoodd/open_registry.h"

namespace {

using ksw::daemon::ItemRow;
using ksw::daemon::Registry;
using ksw::daemon::Store;

constexpr int kItems = 10'000;
constexpr int kRules = 1'000;
constexpr double kTarget = 2.0;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(2);
}

template <class T>
T orFail(ksw::Result<T> result) {
    if (!result) {
        fail(result.error().description());
    }
    return *std::move(result);
}

/// Rules that concern each of the items: by the label's beginning, up to the number that it has.
std::shared_ptr<const ksw::Dictionary> payload() {
    ksw::Array rules;
    for (int number = 0; number < kRules; ++number) {
        rules.emplace_back(ksw::Dictionary{{"Match", "LabelPrefix"},
                                           {"Value", "com.example.application" + std::to_string(number)},
                                           {"Effect", "Disallow"}});
    }
    return std::make_shared<const ksw::Dictionary>(ksw::Dictionary{{"Rules", std::move(rules)}});
}

/// What the change has replaced. The daemon takes it apart when the caller has his answer.
ksw::daemon::Outcome set(Registry& registry, const std::shared_ptr<const ksw::Dictionary>& rules) {
    ksw::daemon::Outcome outcome = registry.setPayload("bench", rules, true);
    if (outcome.code != 0) {
        fail("the rules were refused");
    }
    return outcome;
}

void expectManaged(const Registry& registry, bool isManaged) {
    const auto items = registry.records().list(::getuid(), KSWItemTypeAgent).items;
    if (items.size() != kItems) {
        fail("the items are not there");
    }
    for (const auto& item : items) {
        if (item->isManaged() != isManaged || item->isAllowed() == isManaged) {
            fail("an item is not as the rules have it");
        }
    }
}

/// The same rows in a store of its own, rewritten with what the rules make of them.
class Floor {
public:
    explicit Floor(const std::string& path) : store_(orFail(Store::open(path))) {
        const auto read = store_.readItems([this](ksw::daemon::StoredItem item) {
            if ((item.row.type & KSWItemTypeAgent) != 0) {
                change_.put.push_back(std::move(item.row));
            }
        });
        if (!read.ok() || change_.put.size() != kItems) {
            fail("the floor's rows are not there");
        }
    }

    void rewrite() {
        for (ItemRow& row : change_.put) {
            row.disposition ^= KSWDispositionAllowed;
            row.flags ^= KSWItemFlagManaged;
            ++row.generation;
            row.choice =
                row.choice ? std::nullopt : std::optional(ksw::daemon::OwnChoice{row.disposition, row.flags});
        }
        if (!store_.apply(change_)) {
            fail("the floor's store does not store");
        }
    }

private:
    Store store_;
    ksw::daemon::Change change_;
};

bool report(const char* what, double figure, double floor) {
    std::printf("%s: %.1f ms, floor %.1f ms, ratio %.2f (target: at most %.1f)\n", what, figure / 1e6, floor / 1e6,
                figure / floor, kTarget);
    return figure / floor <= kTarget;
}

}  // namespace

int main(int count, char** words) {
    ksw::bench::stayOnOneCpu();
    const ksw::bench::BenchRoot root;
    ksw::bench::recordAgents(kItems, ::getuid());
    const std::string path = root.path() + "/var/lib/kestrelwood/kestrelwood.db";
    const std::string copy = root.path() + "/floor.db";
    if (std::system(("cp '" + path + "' '" + copy + "'").c_str()) != 0) {
        fail("cp");
    }
    Floor floor(copy);
    auto opened = orFail(ksw::daemon::openRegistry(path));
    Registry& registry = *opened.registry;
    const auto rules = payload();
    ksw::daemon::Outcome replaced = set(registry, rules);
    expectManaged(registry, true);
    replaced = set(registry, nullptr);
    expectManaged(registry, false);
    const auto takeApart = [&replaced] { replaced = {}; };
    const auto middles =
        ksw::bench::middleRounds(9, {[&] { floor.rewrite(); }, takeApart, [&] { replaced = set(registry, rules); },
                                     takeApart, [&] { replaced = set(registry, nullptr); }});
    std::printf("taking apart what was replaced, after the answer: %.1f ms\n", middles[3] / 1e6);
    const bool setHolds = report("1,000 rules over 10,000 items", middles[2], middles[0]);
    const bool liftHolds = report("the rules lifted again", middles[4], middles[0]);
    return ksw::bench::exitStatus(setHolds && liftHolds, count, words);
}
