#include "platform/facts/signed_file.h"

#include "platform/base/base64.h"
#include "platform/base/limits.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

constexpr CodeKind kKinds[] = {CodeKind::Elf, CodeKind::Script, CodeKind::Other};

SignatureParts someParts() {
    return {bytesOf("directory"), bytesOf("message")};
}

/// The signature behind `code`, read back.
Result<SignatureParts> readBack(CodeKind kind, const Data& file, std::size_t codeSize) {
    const std::size_t tail = std::min(file.size(), kSignatureTailSize);
    const auto place = findSignature(kind, Bytes(file).last(tail), file.size());
    if (!place) {
        return place.error();
    }
    EXPECT_TRUE(place->has_value());
    EXPECT_EQ((*place)->codeSize, codeSize);
    return decodeSignature(kind, Bytes(file).subspan((*place)->codeSize, (*place)->storedSize));
}

Data fileOf(CodeKind kind, const std::string& code, const SignatureParts& parts) {
    Data file = bytesOf(code);
    const Data signature = *encodeSignature(kind, parts);
    file.insert(file.end(), signature.begin(), signature.end());
    return file;
}

TEST(CodeOfAFile, IsToldByItsFirstBytes) {
    EXPECT_EQ(codeKindOf(bytesOf("\x7F"
                                 "ELF")),
              CodeKind::Elf);
    EXPECT_EQ(codeKindOf(bytesOf("#!/b")), CodeKind::Script);
    EXPECT_EQ(codeKindOf(bytesOf("#!")), CodeKind::Script);
    EXPECT_EQ(codeKindOf(bytesOf("\x7F"
                                 "EL")),
              CodeKind::Other);
    EXPECT_EQ(codeKindOf({}), CodeKind::Other);
    EXPECT_EQ(formatOf(CodeKind::Elf), "elf executable");
    EXPECT_EQ(formatOf(CodeKind::Script), "generic script");
    EXPECT_EQ(formatOf(CodeKind::Other), "generic file");
}

TEST(ASignatureInAFile, IsFoundBehindTheCode) {
    for (const CodeKind kind : kKinds) {
        for (const SignatureParts& parts : {someParts(), SignatureParts{bytesOf("d"), std::nullopt}}) {
            const auto read = readBack(kind, fileOf(kind, "#!code", parts), 6);
            ASSERT_TRUE(read.ok()) << read.error().description();
            EXPECT_EQ(*read, parts);
        }
    }
}

TEST(ASignatureInAFile, IsALineOfCommentInAScript) {
    const std::string text = textOf(*encodeSignature(CodeKind::Script, {bytesOf("dir"), std::nullopt}));
    EXPECT_EQ(text, "\n# gkNkaXL2 0000000c~Kestrelwood signature~\n");
}

TEST(ASignatureInAFile, StandsAsBytesWithTheirLengthElsewhere) {
    const std::string text = textOf(*encodeSignature(CodeKind::Elf, {bytesOf("dir"), std::nullopt}));
    EXPECT_EQ(text, std::string("\x82\x43"
                                "dir\xF6") +
                        std::string("\0\0\0\0\0\0\0\x06", 8) + "~Kestrelwood signature~\n");
}

TEST(ASignatureInAFile, IsAbsentWithoutTheTail) {
    for (const CodeKind kind : kKinds) {
        for (const std::string& file : {std::string(), std::string(31, 'x'), std::string(100, 'x'),
                                        std::string("~Kestrelwood signature~\n")}) {
            const Data bytes = bytesOf(file);
            const auto place =
                findSignature(kind, Bytes(bytes).last(std::min(bytes.size(), kSignatureTailSize)), bytes.size());
            ASSERT_TRUE(place.ok());
            EXPECT_FALSE(place->has_value());
        }
    }
}

TEST(ASignatureInAFile, HasALengthThatLeavesCode) {
    for (const CodeKind kind : kKinds) {
        const Data signature = *encodeSignature(kind, someParts());
        const Bytes tail = Bytes(signature).last(kSignatureTailSize);
        EXPECT_TRUE(findSignature(kind, tail, signature.size() + 1).ok());
        const auto place = findSignature(kind, tail, signature.size());
        ASSERT_FALSE(place.ok());
        EXPECT_EQ(place.error(), Error(FormatError::Malformed, "signature: the length in its tail leaves no code"));
        EXPECT_FALSE(findSignature(kind, tail, kSignatureTailSize).ok());
    }
}

TEST(ASignatureInAFile, HasABoundedLength) {
    constexpr std::uint64_t kHuge = std::uint64_t{1} << 40U;
    const auto tailOf = [](std::uint64_t length) {
        Data tail = *encodeSignature(CodeKind::Other, someParts());
        tail.erase(tail.begin(), tail.end() - kSignatureTailSize);
        for (unsigned index = 0; index < 8; ++index) {
            tail[index] = static_cast<std::uint8_t>(length >> (56U - 8U * index));
        }
        return tail;
    };
    EXPECT_TRUE(findSignature(CodeKind::Other, tailOf(limits::kSignatureMax), kHuge).ok());
    for (const std::uint64_t length : {std::uint64_t{limits::kSignatureMax} + 1, UINT64_MAX}) {
        const auto place = findSignature(CodeKind::Other, tailOf(length), kHuge);
        ASSERT_FALSE(place.ok());
        EXPECT_EQ(place.error(), Error(FormatError::LimitPassed, "signature: the length in its tail is too large"));
    }
}

TEST(ASignatureInAFile, IsWrittenInOneWay) {
    const std::string good = textOf(*encodeSignature(CodeKind::Script, {bytesOf("dire"), std::nullopt}));
    const std::string stored = good.substr(0, good.size() - kSignatureTailSize);
    ASSERT_EQ(stored, "\n# gkRkaXJl9g== ");
    EXPECT_TRUE(decodeSignature(CodeKind::Script, bytesOf(stored)).ok());
    for (const char* bad : {"\n# gkRkaXJl9h== ", "\n# gkRkaXJl9g= ", "\n# gkRkaXJl9g==  ", "\n# gkRk aXJl9g== ",
                            "\n#  gkRkaXJl9g== ", "\n# gkRkaXJl9g==", "# gkRkaXJl9g== ", "\n#\n", "", "\n# "}) {
        EXPECT_FALSE(decodeSignature(CodeKind::Script, bytesOf(bad)).ok()) << bad;
    }
    for (const std::string_view bad : {std::string_view("\x82\x41"
                                                        "d\xF6\x00",
                                                        5),
                                       std::string_view("\x81\x41"
                                                        "d"),
                                       std::string_view("\x83\x41"
                                                        "d\xF6\xF6"),
                                       std::string_view("\x82\x58\x01"
                                                        "d\xF6"),
                                       std::string_view("\x82\x61"
                                                        "d\xF6"),
                                       std::string_view("\x82\x41"
                                                        "d\xF5")}) {
        EXPECT_FALSE(decodeSignature(CodeKind::Other, bytesOf(bad)).ok());
    }
}

TEST(ASignatureInAFile, HasABoundedDirectory) {
    EXPECT_TRUE(encodeSignature(CodeKind::Other, {Data(limits::kCodeDirectoryMax), std::nullopt}).ok());
    const auto tooLarge = encodeSignature(CodeKind::Other, {Data(limits::kCodeDirectoryMax + 1), std::nullopt});
    ASSERT_FALSE(tooLarge.ok());
    EXPECT_EQ(tooLarge.error(), Error(FormatError::LimitPassed, "signature: too many bytes"));
    for (const CodeKind kind : kKinds) {
        const SignatureParts largest{Data(limits::kCodeDirectoryMax), Data(limits::kSignatureMessageMax)};
        const auto read = readBack(kind, fileOf(kind, "#!", largest), 2);
        ASSERT_TRUE(read.ok()) << read.error().description();
        EXPECT_EQ(*read, largest);
    }
}

}  // namespace
}  // namespace ksw::facts
