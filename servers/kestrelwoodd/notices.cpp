#include "servers/kestrelwoodd/notices.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "platform/base/paths.h"
#include "platform/facts/localized_name.h"
#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"
#include "platform/host/log.h"
#include "servers/kestrelwoodd/notice_texts.h"

namespace ksw::daemon {

namespace {

constexpr std::int64_t kCountMax = 1'000'000;  // more is nobody's true number

std::int64_t plausible(std::int64_t count) {
    return std::clamp<std::int64_t>(count, 0, kCountMax);
}

/// The outermost application on the way to the path; empty when there is none.
std::string enclosingApplication(std::string_view path) {
    std::vector<std::string> applications = host::applicationsOnWay(path);
    return applications.empty() ? std::string() : std::move(applications.front());
}

std::string applicationName(const std::string& path) {
    const Result<host::FileFacts> facts = host::fileFacts(path);
    return noticeName(facts ? facts::localizedName(path, *facts) : std::string(lastComponent(path)));
}

std::string keyOf(const KSWItem& item) {
    return item.uuid() ? item.uuid()->string() : item.identifier().value_or("").substr(0, kKeyMax);
}

}  // namespace

Notices::Owner Notices::ownerOf(const KSWItem& container) {
    return {keyOf(container), noticeName(container)};
}

/// The container, else a parent application that has the item's executable, else nobody.
Notices::Owner Notices::ownerOf(const KSWItem& item, const ItemPointer& container) {
    if (container != nullptr) {
        return ownerOf(*container);
    }
    const std::string app = enclosingApplication(item.executablePath().value_or(""));
    if (!app.empty() && state_.lock()->parentApps.contains(app)) {
        return {app, applicationName(app)};
    }
    return {keyOf(item), ""};
}

/// What was told lately; else a fresh place, for which the one told longest ago makes room.
Notices::Told& Notices::toldOf(State& state, const std::string& key) const {
    const std::chrono::nanoseconds now = clock_.monotonic();
    std::erase_if(state.told, [&](const auto& entry) { return now - entry.second.at >= kTogether; });
    if (state.told.size() >= kContainersMax && !state.told.contains(key)) {
        state.told.erase(
            std::min_element(state.told.begin(), state.told.end(),
                             [](const auto& left, const auto& right) { return left.second.at < right.second.at; }));
    }
    Told& told = state.told[key];
    told.at = now;
    return told;
}

bool Notices::tell(host::DesktopNotice notice, Told* told) const {
    notice.replaces = told == nullptr ? 0 : told->number;
    const Result<std::uint32_t> shown = show_(notice);
    if (!shown) {
        host::mainLog.info("Notice not shown: %{public}@", shown.error());
        host::mainLog.notice("%{public}@: %{public}@", notice.summary, notice.body);
        return false;
    }
    if (told != nullptr) {
        told->number = *shown;
    }
    return true;
}

bool Notices::remember(const State& state, Told& told, const KSWItem& item) {
    std::string key = keyOf(item);
    if (told.items.contains(key)) {
        return false;
    }
    const std::size_t known =
        std::accumulate(state.told.begin(), state.told.end(), std::size_t{0},
                        [](std::size_t sum, const auto& entry) { return sum + entry.second.bytes; });
    if (known + key.size() <= kItemKeysMax) {
        told.bytes += key.size();
        told.items.insert(std::move(key));
    }
    return true;
}

bool Notices::advise(const KSWItem& item, const Owner& owner) {
    auto state = state_.lock();
    Told& told = toldOf(*state, owner.key);
    if (remember(*state, told, item)) {
        ++(isExtension(item.type()) ? told.extensions : told.background);
    }
    if (told.background + told.extensions == 1) {
        return tell(itemNotice(noticeName(item), owner.name), &told);
    }
    return tell(countsNotice({told.background, told.extensions, told.types}, owner.name), &told);
}

bool Notices::adviseOfContainer(const ItemPointer& container) {
    if (container == nullptr) {
        return false;
    }
    const Owner owner = ownerOf(*container);
    auto state = state_.lock();
    return tell(containerNotice(owner.name), &toldOf(*state, owner.key));
}

bool Notices::adviseOfItem(const ItemPointer& item, const ItemPointer& container) {
    return item == nullptr ? adviseOfContainer(container) : advise(*item, ownerOf(*item, container));
}

bool Notices::adviseOfItemOfApp(const ItemPointer& item, const MaybeURL& appURL) {
    if (item == nullptr) {
        return false;
    }
    const std::string path = appURL ? appURL->path() : "";
    const bool isKnown = !path.empty() && path.size() <= kKeyMax;
    return advise(*item, isKnown ? Owner{path, applicationName(path)} : ownerOf(*item, nullptr));
}

bool Notices::alertOfItem(const ItemPointer& item, const ItemPointer& container) {
    if (item == nullptr) {
        return false;
    }
    const Owner owner = ownerOf(*item, container);
    const auto state = state_.lock();
    return tell(alertNotice(noticeName(*item), owner.name), nullptr);
}

bool Notices::adviseOfMany(const ItemPointer& item, const ItemPointer& container, std::int64_t backgroundCount,
                           std::int64_t extensionsCount, std::int64_t types) {
    const NoticeCounts counts{plausible(backgroundCount), plausible(extensionsCount),
                              static_cast<KSWItemType>(types) & KSWItemTypeAll};
    if ((item == nullptr && container == nullptr) || counts.background + counts.extensions == 0) {
        return false;
    }
    const Owner owner = item == nullptr ? ownerOf(*container) : ownerOf(*item, container);
    auto state = state_.lock();
    Told& told = toldOf(*state, owner.key);
    told.background = counts.background;
    told.extensions = counts.extensions;
    told.types = counts.types;
    if (item != nullptr) {
        remember(*state, told, *item);
    }
    return tell(countsNotice(counts, owner.name.empty() && item != nullptr ? noticeName(*item) : owner.name),
                &told);
}

bool Notices::registerParentApps(const MaybeString& path) {
    std::string app = enclosingApplication(path.value_or(""));
    if (app.empty() || app.size() > kKeyMax) {
        return false;
    }
    auto state = state_.lock();
    if (state->parentApps.size() < kParentAppsMax || state->parentApps.contains(app)) {
        state->parentApps.insert(std::move(app));
        return true;
    }
    return false;
}

}  // namespace ksw::daemon
