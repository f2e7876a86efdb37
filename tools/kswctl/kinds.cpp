#include "tools/kswctl/kinds.h"

#include <algorithm>
#include <array>

namespace tools::kswctl {
namespace {

struct Kind {
    std::string_view name;
    KSWItemType type;
};

constexpr std::array<Kind, 12> kKinds{{
    {"user-item", KSWItemTypeUserItem},
    {"app", KSWItemTypeApp},
    {"login-item", KSWItemTypeLoginItem},
    {"agent", KSWItemTypeAgent},
    {"daemon", KSWItemTypeDaemon},
    {"developer", KSWItemTypeDeveloper},
    {"lodestar", KSWItemTypeLodestar},
    {"shelf-tile", KSWItemTypeShelfTile},
    {"input-method", KSWItemTypeInputMethod},
    {"smart-card", KSWItemTypeSmartCard},
    {"color-picker", KSWItemTypeColorPicker},
    {"glimpse", KSWItemTypeGlimpse},
}};

}  // namespace

std::optional<KSWItemType> kindNamed(std::string_view name) {
    const auto* kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& each) { return each.name == name; });
    return kind != kKinds.end() ? std::optional(kind->type) : std::nullopt;
}

std::optional<KSWItemType> kindsNamed(std::string_view names) {
    KSWItemType mask = 0;
    while (true) {
        const std::size_t comma = names.find(',');
        const std::optional<KSWItemType> kind = kindNamed(names.substr(0, comma));
        if (!kind) {
            return std::nullopt;
        }
        mask |= *kind;
        if (comma == std::string_view::npos) {
            return mask;
        }
        names.remove_prefix(comma + 1);
    }
}

std::string kindNames() {
    std::string names;
    for (const Kind& kind : kKinds) {
        names += (names.empty() ? "" : ", ");
        names += kind.name;
    }
    return names;
}

}  // namespace tools::kswctl
