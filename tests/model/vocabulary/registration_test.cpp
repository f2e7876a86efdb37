#include <gtest/gtest.h>

#include <kestrelwood/KSWTypes.h>

namespace {

using ksw::URL;
using OptionalURL = std::optional<URL>;

const OptionalURL kNone;
constexpr KSWItemType kLegacy = KSWItemTypeLegacyBit;

OptionalURL bundle() {
    return URL::fileURL("/Applications/A.app", ksw::PathKind::Directory);
}
OptionalURL inside() {
    return URL::fromString("Contents/Library/x.plist");
}
OptionalURL insideByBase() {
    return URL::fileURL("Contents/Library/x.plist", *bundle());
}
OptionalURL absolute() {
    return URL::fileURL("/etc/jobs/x.plist");
}

bool isValid(KSWItemType type, const OptionalURL& bundleURL, const OptionalURL& url) {
    return KSWItemTypeValidateRegistrationParameters(type, bundleURL, url);
}

TEST(ARegistration, OfALegacyJobNamesItsFileAlone) {
    for (KSWItemType type : {kLegacy | 0x8, kLegacy | 0x10, kLegacy | 0x18}) {
        EXPECT_TRUE(isValid(type, kNone, absolute())) << type;
        EXPECT_TRUE(isValid(type, kNone, inside())) << type;
        EXPECT_FALSE(isValid(type, bundle(), absolute())) << type;
        EXPECT_FALSE(isValid(type, kNone, kNone)) << type;
    }
}

TEST(ARegistration, OfALegacyLoginItemNamesBoth) {
    EXPECT_TRUE(isValid(kLegacy | 0x4, bundle(), inside()));
    EXPECT_TRUE(isValid(kLegacy | 0x4, bundle(), absolute()));
    EXPECT_FALSE(isValid(kLegacy | 0x4, kNone, absolute()));
    EXPECT_FALSE(isValid(kLegacy | 0x4, bundle(), kNone));
}

TEST(ARegistration, OfAnyOtherLegacyKindIsInvalid) {
    for (KSWItemType type : {kLegacy | 0x0, kLegacy | 0x1, kLegacy | 0x2, kLegacy | 0x20, kLegacy | 0x40}) {
        EXPECT_FALSE(isValid(type, kNone, absolute())) << type;
        EXPECT_FALSE(isValid(type, bundle(), inside())) << type;
    }
}

TEST(ARegistration, OfAUserItemNamesTheItemAlone) {
    EXPECT_TRUE(isValid(0x1, kNone, absolute()));
    EXPECT_FALSE(isValid(0x1, bundle(), absolute()));
    EXPECT_FALSE(isValid(0x1, kNone, kNone));
}

TEST(ARegistration, OfAnAppNamesTheBundleAlone) {
    EXPECT_TRUE(isValid(0x2, bundle(), kNone));
    EXPECT_FALSE(isValid(0x2, bundle(), inside()));
    EXPECT_FALSE(isValid(0x2, kNone, absolute()));
}

TEST(ARegistration, OfWhatLivesInAnAppNeedsARelativeURLAndTheBundle) {
    for (KSWItemType type : {0x4U, 0x8U, 0x10U, 0x80U, 0x800U}) {
        EXPECT_TRUE(isValid(type, bundle(), inside())) << type;
        EXPECT_TRUE(isValid(type, bundle(), insideByBase())) << type;
        EXPECT_FALSE(isValid(type, bundle(), absolute())) << type;
        EXPECT_FALSE(isValid(type, kNone, inside())) << type;
        EXPECT_FALSE(isValid(type, bundle(), kNone)) << type;
    }
}

TEST(ARegistration, OfOtherExtensionsMayStandAloneOrInABundle) {
    for (KSWItemType type : {0x40U, 0x100U, 0x200U, 0x400U}) {
        EXPECT_TRUE(isValid(type, kNone, absolute())) << type;
        EXPECT_TRUE(isValid(type, kNone, inside())) << type;
        EXPECT_TRUE(isValid(type, bundle(), inside())) << type;
        EXPECT_FALSE(isValid(type, bundle(), absolute())) << type;
        EXPECT_FALSE(isValid(type, bundle(), kNone)) << type;
        EXPECT_FALSE(isValid(type, kNone, kNone)) << type;
    }
}

TEST(ARegistration, OfADeveloperOrACompositeIsInvalid) {
    for (KSWItemType type : {0x0U, 0x20U, 0xCU, 0x18U, 0xFFFU}) {
        EXPECT_FALSE(isValid(type, bundle(), inside())) << type;
        EXPECT_FALSE(isValid(type, kNone, absolute())) << type;
        EXPECT_FALSE(isValid(type, bundle(), kNone)) << type;
    }
}

TEST(ARegistration, IgnoresProvenanceOtherThanLegacy) {
    EXPECT_TRUE(isValid(0x20008, bundle(), inside()));
    EXPECT_FALSE(isValid(0x20008, kNone, absolute()));
}

}  // namespace
