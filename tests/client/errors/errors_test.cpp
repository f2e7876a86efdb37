#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/values/value.h>

namespace {

TEST(TheErrorDomain, IsNamedAfterItself) {
    EXPECT_EQ(KSWErrorDomain, "KSWErrorDomain");
}

TEST(TheCodes, HaveTheNumbersThatTheDaemonKnows) {
    EXPECT_EQ(KSWErrorNone, 0);
    EXPECT_EQ(KSWErrorGeneric, -1);
    EXPECT_EQ(KSWErrorBookmarkInTrash, -99);
    EXPECT_EQ(KSWErrorInvalidParameter, -98);
    EXPECT_EQ(KSWErrorPermissionDenied, -97);
    EXPECT_EQ(KSWErrorRecordExists, -96);
    EXPECT_EQ(KSWErrorRecordNotFound, -95);
    EXPECT_EQ(KSWErrorInvalidGeneration, -94);
    EXPECT_EQ(KSWErrorRecordUpdated, -93);
    EXPECT_EQ(KSWErrorTargetNotSandboxed, -92);
}

TEST(TheErrorString, SaysWhatEachCodeMeans) {
    EXPECT_EQ(KSWErrorString(0), "no error");
    EXPECT_EQ(KSWErrorString(-1), "generic");
    EXPECT_EQ(KSWErrorString(-99), "bookmark resolved to URL in the trash");
    EXPECT_EQ(KSWErrorString(-98), "invalid parameter");
    EXPECT_EQ(KSWErrorString(-97), "permission denied");
    EXPECT_EQ(KSWErrorString(-96), "record exists");
    EXPECT_EQ(KSWErrorString(-95), "record not found");
    EXPECT_EQ(KSWErrorString(-94), "invalid record generation");
    EXPECT_EQ(KSWErrorString(-93), "record updated");
    EXPECT_EQ(KSWErrorString(-92),
              "PellucidService target executable must be sandboxed because the app is sandboxed");
}

TEST(TheErrorString, GivesTheNumberOfAnUnknownCode) {
    EXPECT_EQ(KSWErrorString(-100), "unknown error (-100)");
    EXPECT_EQ(KSWErrorString(-91), "unknown error (-91)");
    EXPECT_EQ(KSWErrorString(-2), "unknown error (-2)");
    EXPECT_EQ(KSWErrorString(5), "unknown error (5)");
    EXPECT_EQ(KSWErrorString(std::numeric_limits<std::int64_t>::max()), "unknown error (9223372036854775807)");
    EXPECT_EQ(KSWErrorString(std::numeric_limits<std::int64_t>::min()), "unknown error (-9223372036854775808)");
}

TEST(AnErrorOfACode, HasTheDomainTheCodeAndItsTextAlone) {
    const ksw::Error error = KSWErrorWithCode(-95);
    EXPECT_EQ(error.domain(), "KSWErrorDomain");
    EXPECT_EQ(error.code(), -95);
    EXPECT_EQ(error.localizedDescription(), "record not found");
    EXPECT_EQ(error.userInfo(), (ksw::Dictionary{{"KSWLocalizedDescription", "record not found"}}));
}

TEST(AnErrorOfACode, ExistsForSuccessToo) {
    const ksw::Error error = KSWErrorWithCode(0);
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(error.localizedDescription(), "no error");
}

}  // namespace
