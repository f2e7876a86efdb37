#include "platform/facts/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include <kestrelwood/code_signing.h>

namespace ksw::facts {
namespace {

TEST(AStatus, HasANumberAndATextOfItsOwn) {
    std::int64_t previous = 0;
    for (const StatusText& row : statusTexts()) {
        const auto code = static_cast<std::int64_t>(row.status);
        EXPECT_LT(code, previous) << row.text;
        EXPECT_FALSE(row.text.empty());
        EXPECT_EQ(statusText(code), row.text);
        previous = code;
    }
    EXPECT_EQ(statusText(-50), "a parameter is wrong");
    EXPECT_EQ(statusText(-67062), "the code is not signed");
    EXPECT_EQ(statusText(1), "unknown status");
    EXPECT_EQ(codeStatusText(-67062), "the code is not signed");
}

TEST(AStatus, IsDocumented) {
    std::ifstream file(std::string(KSW_SOURCE_DIR) + "/docs/signatures.md");
    std::stringstream text;
    text << file.rdbuf();
    for (const StatusText& row : statusTexts()) {
        const std::string line =
            "| " + std::to_string(static_cast<int>(row.status)) + " | " + std::string(row.text) + " |";
        EXPECT_NE(text.str().find(line), std::string::npos) << line;
    }
}

TEST(AStatus, SaysWhatAFailedCallMeans) {
    const auto statusOf = [](int number) { return fileError(Error(kPosixErrorDomain, number, "open()")); };
    EXPECT_EQ(statusOf(ENOENT), Error(kStatusErrorDomain, -70001, "there is no such file: open()"));
    EXPECT_TRUE(isStatus(statusOf(EACCES), CodeStatus::NotPermitted));
    EXPECT_TRUE(isStatus(statusOf(EIO), CodeStatus::NotReadable));
    EXPECT_TRUE(isStatus(statusOf(ENXIO), CodeStatus::NotCode));
    EXPECT_TRUE(isStatus(statusOf(ENOMEM), CodeStatus::NoMemory));
}

}  // namespace
}  // namespace ksw::facts
