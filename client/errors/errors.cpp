#include <kestrelwood/KSWErrors.h>

namespace {

struct CodeText {
    std::int64_t code;
    std::string_view text;
};

constexpr CodeText kCodeTexts[] = {
    {KSWErrorNone, "no error"},
    {KSWErrorGeneric, "generic"},
    {KSWErrorBookmarkInTrash, "bookmark resolved to URL in the trash"},
    {KSWErrorInvalidParameter, "invalid parameter"},
    {KSWErrorPermissionDenied, "permission denied"},
    {KSWErrorRecordExists, "record exists"},
    {KSWErrorRecordNotFound, "record not found"},
    {KSWErrorInvalidGeneration, "invalid record generation"},
    {KSWErrorRecordUpdated, "record updated"},
    {KSWErrorTargetNotSandboxed,
     "PellucidService target executable must be sandboxed because the app is sandboxed"},
};

}  // namespace

std::string KSWErrorString(std::int64_t code) {
    for (const CodeText& row : kCodeTexts) {
        if (row.code == code) {
            return std::string(row.text);
        }
    }
    return "unknown error (" + std::to_string(code) + ")";
}

ksw::Error KSWErrorWithCode(std::int64_t code) {
    return {KSWErrorDomain, code, KSWErrorString(code)};
}
