#include "tests/servers/kestrelwoodd/durability/changing_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include <kestrelwood/KSWErrors.h>

#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {

namespace {

constexpr unsigned kItems = 6;
constexpr KSWDisposition kInitial = KSWDispositionEnabled | KSWDispositionAllowed;
constexpr std::array<KSWDisposition, 4> kDispositions = {kInitial, KSWDispositionEnabled, KSWDispositionAllowed, 0};

std::string identifierOf(const std::string& label) {
    return "8." + label;
}

Dictionary configurationOf(const std::string& label, const std::string& path) {
    return {{std::string(KSWConfigLabel), Value(label)}, {std::string(KSWConfigExecutablePath), Value(path)}};
}

/// What is compared of a record. The path tells by which change it was made.
std::string textOf(const ItemPointer& item) {
    if (item == nullptr) {
        return "none";
    }
    return item->executablePath().value_or("no path") + ", disposition " + std::to_string(item->disposition()) +
           ", generation " + std::to_string(item->generation());
}

/// The code that an operation's error tells; absent when the connection failed.
std::optional<std::int64_t> codeOf(const std::optional<Error>& error, std::int64_t codeOfSuccess) {
    if (!error) {
        return codeOfSuccess;
    }
    return error->domain() == KSWErrorDomain ? std::optional<std::int64_t>(error->code()) : std::nullopt;
}

std::optional<std::int64_t> codeUnlessUnanswered(std::int64_t code) {
    return code == KSWErrorGeneric ? std::nullopt : std::optional<std::int64_t>(code);
}

ItemPointer newItem(const std::string& label, const std::string& path, KSWDisposition disposition) {
    ItemPointer item = KSWItem::initWithType(kLegacyAgent, identifierOf(label));
    item->setUrl(jobURL(label));
    item->setExecutablePath(path);
    item->setDisposition(disposition);
    return item;
}

/// As it is after one more change.
ItemPointer raised(const KSWItem& record) {
    ItemPointer item = copyOfRecord(record);
    item->setGeneration(record.generation() + 1);
    return item;
}

}  // namespace

ChangingClient::ChangingClient(unsigned seed, unsigned number) : random_(seed + number) {
    for (unsigned item = 0; item < kItems; ++item) {
        items_["client." + std::to_string(number) + ".item." + std::to_string(item)];
    }
}

void ChangingClient::change(const std::function<void()>& acknowledged) {
    while (changeOne()) {
        acknowledged();
    }
}

void ChangingClient::compare(const RecordIndex& records) {
    std::map<std::string, std::string> undone;
    std::map<std::string, std::string> done;
    std::map<std::string, std::string> there;
    for (auto& [label, record] : items_) {
        const Found found = records.find(geteuid(), identifierOf(label));
        EXPECT_FALSE(found.isDamaged) << label;
        const auto change = inFlight_.find(label);
        undone[label] = textOf(record);
        done[label] = change == inFlight_.end() ? undone[label] : textOf(change->second);
        there[label] = textOf(found.item);
        record = found.item == nullptr ? nullptr : copyOfRecord(*found.item);
        if (found.item != nullptr) {
            ASSERT_NE(found.item->container(), nullptr) << label;
            EXPECT_TRUE(found.item->container()->isUnknownDeveloperRecord()) << label;
        }
    }
    EXPECT_THAT(there, testing::AnyOf(undone, done));
    inFlight_.clear();
}

void ChangingClient::compareAnswers() const {
    for (const auto& [label, record] : items_) {
        const ItemPointer item = manager_->fetchItemWithAppURL(kNoURL, kLegacyAgent, jobURL(label),
                                                               configurationOf(label, "/opt/any"), geteuid());
        EXPECT_EQ(textOf(item), textOf(record)) << label;
    }
}

bool ChangingClient::changeOne() {
    const auto place = std::next(items_.begin(), static_cast<std::ptrdiff_t>(random_() % kItems));
    const auto& [label, record] = *place;
    if (record == nullptr) {
        return random_() % 2 == 0 ? enter(label) : add(label);
    }
    switch (random_() % 6) {
        case 0:
            return unregister(label);
        case 1:
            return remove(label);
        case 2:
        case 3:
            return enter(label);
        default:
            return updateWithOthers(label);
    }
}

bool ChangingClient::carryOut(Records changes, std::int64_t expected, const std::function<Code()>& request) {
    inFlight_ = std::move(changes);
    const Code code = request();
    if (!code) {
        return false;
    }
    EXPECT_EQ(*code, expected) << inFlight_.begin()->first;
    if (*code == expected) {
        for (const auto& [label, record] : inFlight_) {
            items_[label] = record;
        }
    }
    inFlight_.clear();
    return true;
}

bool ChangingClient::enter(const std::string& label) {
    const ItemPointer& record = items_[label];
    const std::string path = nextPath();
    const ItemPointer entered = record == nullptr ? newItem(label, path, kInitial) : raised(*record);
    entered->setExecutablePath(path);
    const std::int64_t expected = record == nullptr ? KSWErrorNone : KSWErrorRecordUpdated;
    return carryOut({{label, entered}}, expected, [&] {
        ItemPointer answered;
        const std::int64_t code = manager_->registerItem(&answered, kNoURL, kLegacyAgent, jobURL(label),
                                                         configurationOf(label, path), geteuid());
        if (answered != nullptr) {
            EXPECT_EQ(textOf(answered), textOf(entered)) << label;
            entered->setUuid(answered->uuid());
        }
        return codeUnlessUnanswered(code);
    });
}

bool ChangingClient::add(const std::string& label) {
    const ItemPointer added = newItem(label, nextPath(), anyDisposition());
    return carryOut({{label, added}}, KSWErrorNone, [&] {
        std::optional<Error> error;
        const bool isThere = manager_->addItem(added, geteuid(), &error);
        EXPECT_EQ(isThere, !error.has_value()) << label;
        return codeOf(error, KSWErrorNone);
    });
}

bool ChangingClient::updateWithOthers(const std::string& label) {
    std::vector<std::string> labels;
    for (const auto& [other, record] : items_) {
        if (record != nullptr && other != label) {
            labels.push_back(other);
        }
    }
    std::shuffle(labels.begin(), labels.end(), random_);
    labels.resize(std::min<std::size_t>(labels.size(), 1 + random_() % 2));
    labels.push_back(label);
    Records changes;
    std::vector<ItemPointer> given;
    for (const std::string& each : labels) {
        const ItemPointer item = copyOfRecord(*items_[each]);
        item->setExecutablePath(nextPath());
        item->setDisposition(anyDisposition());
        given.push_back(item);
        changes[each] = raised(*item);
    }
    return carryOut(changes, KSWErrorRecordUpdated, [&] {
        std::optional<Error> error;
        const bool areStored = manager_->updateItems(given, geteuid(), &error);
        EXPECT_EQ(areStored, !error.has_value()) << label;
        for (std::size_t number = 0; number < labels.size() && !error; ++number) {
            EXPECT_EQ(textOf(given[number]), textOf(changes[labels[number]])) << labels[number];
        }
        return codeOf(error, KSWErrorRecordUpdated);
    });
}

bool ChangingClient::unregister(const std::string& label) {
    return carryOut({{label, nullptr}}, KSWErrorNone, [&] {
        return codeUnlessUnanswered(
            manager_->unregisterItemWithBundleURL(kNoURL, kLegacyAgent, jobURL(label), geteuid()));
    });
}

bool ChangingClient::remove(const std::string& label) {
    const ItemPointer record = items_[label];
    return carryOut({{label, nullptr}}, KSWErrorNone, [&] {
        std::optional<Error> error;
        EXPECT_TRUE(manager_->removeItem(record, geteuid(), &error)) << label;
        return codeOf(error, KSWErrorNone);
    });
}

KSWDisposition ChangingClient::anyDisposition() {
    return kDispositions[random_() % kDispositions.size()];
}

}  // namespace ksw::daemon::test
