#include <gtest/gtest.h>

#include <cerrno>

#include <sys/stat.h>

#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::Error;
using ksw::FormatError;
using ksw::URL;

std::string plist(std::string_view content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">" + std::string(content) + "</plist>";
}

std::string job(std::string_view entries) {
    return plist("<dict>" + std::string(entries) + "</dict>");
}

struct APropertyListFile : testing::Test {
    ksw::test::TempFolder folder;

    URL write(std::string_view content) { return URL::fileURL(folder.writeFile("job.plist", content)); }

    std::optional<Error> errorFor(const URL& url) {
        std::optional<Error> error;
        EXPECT_EQ(ksw::readPropertyListFile(url, &error), std::nullopt);
        EXPECT_EQ(ksw::readPropertyListFile(url), std::nullopt);
        return error;
    }
};

TEST_F(APropertyListFile, IsReadAsADictionary) {
    const auto read = ksw::readPropertyListFile(write(job("<key>Label</key><string>my.job</string>")));
    EXPECT_EQ(read, (ksw::Dictionary{{"Label", "my.job"}}));
}

TEST_F(APropertyListFile, LeavesTheErrorAsItWasWhenItCanBeRead) {
    std::optional<Error> error = Error("d", 1);
    EXPECT_TRUE(ksw::readPropertyListFile(write(job("")), &error).has_value());
    EXPECT_EQ(error, Error("d", 1));
}

TEST_F(APropertyListFile, ThatIsMissingSaysSo) {
    const auto error = errorFor(URL::fileURL(folder.at("missing")));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), ksw::kPosixErrorDomain);
    EXPECT_EQ(error->code(), ENOENT);
}

TEST_F(APropertyListFile, ThatIsNoRegularFileSaysSo) {
    ASSERT_EQ(mkfifo(folder.at("pipe").c_str(), 0600), 0);
    const auto error = errorFor(URL::fileURL(folder.at("pipe")));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code(), EINVAL);
}

TEST_F(APropertyListFile, OfTheGreatestSizeIsRead) {
    std::string content = job("<key>Label</key><string>x</string>");
    content.resize(ksw::limits::kPropertyListFileMax, '\n');
    EXPECT_TRUE(ksw::readPropertyListFile(write(content)).has_value());
}

TEST_F(APropertyListFile, OneByteLargerIsRefused) {
    std::string content = job("<key>Label</key><string>x</string>");
    content.resize(ksw::limits::kPropertyListFileMax + 1, '\n');
    const auto error = errorFor(write(content));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), ksw::kPosixErrorDomain);
    EXPECT_EQ(error->code(), EFBIG);
}

TEST_F(APropertyListFile, ThatIsNoPropertyListSaysSo) {
    const auto error = errorFor(write("Label=x"));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), ksw::kFormatErrorDomain);
}

TEST_F(APropertyListFile, ThatIsNoDictionarySaysSo) {
    const auto error = errorFor(write(plist("<array/>")));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), ksw::kFormatErrorDomain);
    EXPECT_EQ(error->code(), static_cast<std::int64_t>(FormatError::WrongType));
}

TEST_F(APropertyListFile, IsFoundByAFileURLOnly) {
    const auto error = errorFor(URL::fromString("https://example.com/job.plist").value());
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code(), static_cast<std::int64_t>(FormatError::Unsupported));
}

TEST_F(APropertyListFile, HasTheJobsLabel) {
    EXPECT_EQ(LabelForStewardPlist(write(job("<key>Label</key><string>my.job</string>"))), "my.job");
}

TEST_F(APropertyListFile, WithoutALabelHasNone) {
    EXPECT_EQ(LabelForStewardPlist(write(job(""))), std::nullopt);
    EXPECT_EQ(LabelForStewardPlist(write(job("<key>label</key><string>x</string>"))), std::nullopt);
    EXPECT_EQ(LabelForStewardPlist(write(job("<key>Label</key><integer>1</integer>"))), std::nullopt);
}

TEST_F(APropertyListFile, ThatCannotBeReadAsADictionaryHasNoLabel) {
    EXPECT_EQ(LabelForStewardPlist(write(plist("<string>Label</string>"))), std::nullopt);
    EXPECT_EQ(LabelForStewardPlist(write("")), std::nullopt);
    EXPECT_EQ(LabelForStewardPlist(URL::fileURL(folder.at("missing"))), std::nullopt);
}

}  // namespace
