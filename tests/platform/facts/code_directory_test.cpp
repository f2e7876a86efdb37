#include "platform/facts/code_directory.h"

#include <functional>

#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

CodeDirectory smallDirectory() {
    CodeDirectory directory;
    directory.identifier = "com.example.tool";
    directory.format = "generic file";
    directory.codeSize = 9;
    directory.codeDigest.fill(7);
    return directory;
}

CodeDirectory fullDirectory() {
    CodeDirectory directory = smallDirectory();
    directory.team = "TEAM000001";
    directory.information = SealedInformation{{}, bytesOf("<plist/>")};
    directory.entitlements = bytesOf("<plist/>");
    directory.requirement = "anchor trusted";
    directory.constraint = bytesOf("constraint");
    return directory;
}

void expectRefused(Bytes bytes, FormatError code, std::string_view text) {
    const Result<CodeDirectory> result = decodeDirectory(bytes);
    ASSERT_FALSE(result.ok()) << text;
    EXPECT_EQ(result.error(), Error(code, "code directory: " + std::string(text)));
}

/// A directory whose map holds what the function writes.
Data written(std::size_t pairs, const std::function<void(archive::Writer&)>& write) {
    archive::Writer writer;
    writer.map(pairs);
    write(writer);
    return *writer.take();
}

void writeStart(archive::Writer& writer, std::uint64_t version = 1) {
    writer.unsignedInteger(1);
    writer.unsignedInteger(version);
    writer.unsignedInteger(2);
    writer.text("id");
}

TEST(ACodeDirectory, IsReadAsItWasWritten) {
    for (const CodeDirectory& directory : {smallDirectory(), fullDirectory()}) {
        const Result<Data> bytes = encodeDirectory(directory);
        ASSERT_TRUE(bytes.ok());
        const Result<CodeDirectory> read = decodeDirectory(*bytes);
        ASSERT_TRUE(read.ok()) << read.error().description();
        EXPECT_EQ(*read, directory);
        EXPECT_EQ(*encodeDirectory(*read), *bytes);
    }
}

TEST(ACodeDirectory, IsRefusedAtEachLengthButItsOwn) {
    Data bytes = *encodeDirectory(fullDirectory());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_FALSE(decodeDirectory(Bytes(bytes).first(length)).ok()) << length;
    }
    bytes.push_back(0);
    EXPECT_FALSE(decodeDirectory(bytes).ok());
}

TEST(ACodeDirectory, HasItsKeysInOneOrderAndNoOthers) {
    constexpr std::string_view kText = "a key is missing, unknown or out of its order";
    expectRefused(written(0, [](auto&) {}), FormatError::Malformed, kText);
    expectRefused(written(2, [](auto& writer) { writeStart(writer); }), FormatError::Malformed, kText);
    const CodeDirectory small = smallDirectory();
    Data bytes = *encodeDirectory(small);
    ++bytes[0];
    for (const char key : {'\1', '\6', '\12', '\14', '\27'}) {
        Data more = bytes;
        const Data pair = bytesOf(std::string({key, '\x61', 'x'}));
        more.insert(more.end(), pair.begin(), pair.end());
        if (key == '\12') {
            EXPECT_TRUE(decodeDirectory(more).ok());
        } else {
            expectRefused(more, FormatError::Malformed, kText);
        }
    }
}

TEST(ACodeDirectory, HasOneVersion) {
    expectRefused(written(2, [](auto& writer) { writeStart(writer, 2); }), FormatError::Unsupported,
                  "another version");
}

TEST(ACodeDirectory, HasIdentifiersOfOneTo1024Bytes) {
    CodeDirectory directory = smallDirectory();
    directory.identifier.assign(limits::kCodeIdentifierMax, 'x');
    EXPECT_TRUE(encodeDirectory(directory).ok());
    directory.identifier += 'x';
    EXPECT_FALSE(encodeDirectory(directory).ok());
    directory = smallDirectory();
    directory.team.emplace(limits::kCodeIdentifierMax, 'x');
    EXPECT_TRUE(encodeDirectory(directory).ok());
    *directory.team += 'x';
    EXPECT_EQ(encodeDirectory(directory).error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
    for (const std::string_view bad : {std::string_view(""), std::string_view("a\nb"), std::string_view("a\0b", 3),
                                       std::string_view("\x7F"), std::string_view("\xFF")}) {
        directory = smallDirectory();
        directory.identifier = bad;
        EXPECT_FALSE(encodeDirectory(directory).ok()) << bad;
    }
}

TEST(ACodeDirectory, HasBoundedContent) {
    const auto bounds = [](std::size_t sizeMax, auto set) {
        CodeDirectory directory = smallDirectory();
        set(directory, sizeMax);
        EXPECT_TRUE(encodeDirectory(directory).ok()) << sizeMax;
        set(directory, sizeMax + 1);
        EXPECT_EQ(encodeDirectory(directory).error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
    };
    bounds(limits::kPropertyListFileMax, [](CodeDirectory& directory, std::size_t size) {
        directory.information = SealedInformation{{}, Data(size)};
    });
    bounds(limits::kPropertyListFileMax,
           [](CodeDirectory& directory, std::size_t size) { directory.entitlements = Data(size); });
    bounds(limits::kFieldMax,
           [](CodeDirectory& directory, std::size_t size) { directory.requirement = std::string(size, 'x'); });
    bounds(limits::kFieldMax,
           [](CodeDirectory& directory, std::size_t size) { directory.constraint = Data(size); });
}

TEST(ACodeDirectory, HasDigestsOf32Bytes) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{31}, std::size_t{33}}) {
        const Data bytes = written(5, [&](auto& writer) {
            writeStart(writer);
            writer.unsignedInteger(4);
            writer.text("generic file");
            writer.unsignedInteger(5);
            writer.unsignedInteger(9);
            writer.unsignedInteger(6);
            writer.bytes(Data(size));
        });
        EXPECT_FALSE(decodeDirectory(bytes).ok()) << size;
    }
}

}  // namespace
}  // namespace ksw::facts
