#include <kestrelwood/KSWTypes.h>

namespace {

struct FlagText {
    KSWItemFlags flag;
    std::string_view text;
};

// In the order in which they stand in a text, which is not the order of the bits.
constexpr FlagText kFlagTexts[] = {
    {KSWItemFlagLegacy, ", legacy"},       {KSWItemFlagProfileAdded, ", profile added"},
    {KSWItemFlagQDMAdded, ", QDM added"},  {KSWItemFlagManaged, ", managed"},
    {KSWItemFlagGlobal, ", global"},       {KSWItemFlagCurated, ", curated"},
    {KSWItemFlagSandboxed, ", sandboxed"},
};

}  // namespace

std::string KSWItemFlagsDescription(KSWItemFlags flags) {
    std::string texts;
    for (const FlagText& row : kFlagTexts) {
        if ((flags & row.flag) != 0) {
            texts += row.text;
        }
    }
    constexpr std::size_t separatorLength = 2;
    if (!texts.empty()) {
        texts.erase(0, separatorLength);
    }
    return "[ " + texts + " ]";
}
