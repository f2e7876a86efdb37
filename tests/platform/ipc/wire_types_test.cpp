// Each type of a method's row, there and back, and what is refused in its place.
#include <gtest/gtest.h>

#include <limits>

#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/interface.h"

namespace ksw::ipc {
namespace {

Bytes bodyOfFrame(const Data& frame) {
    return Bytes(frame).subspan(kHeaderSize);
}

template <class T>
Data written(const T& value) {
    const ArgumentSource sources[] = {sourceOf(value)};
    Data frame;
    EXPECT_TRUE(encodeReply(sources, frame).ok());
    return frame;
}

template <class T>
Status readInto(const Data& frame, T& value, std::span<const ReplyClasses> classes = {}) {
    const ArgumentPlace places[] = {placeOf(value)};
    return decodeReplyBody(bodyOfFrame(frame), places, classes);
}

template <class T>
void expectRoundTrip(const T& value) {
    T read{};
    const Status status = readInto(written(value), read);
    ASSERT_TRUE(status.ok()) << status.error().description();
    EXPECT_EQ(read, value);
}

TEST(AWireType, ReadsBackAsItWasWritten) {
    expectRoundTrip(true);
    expectRoundTrip(std::numeric_limits<std::int64_t>::min());
    expectRoundTrip(std::numeric_limits<std::int64_t>::max());
    expectRoundTrip(std::numeric_limits<std::uint64_t>::max());
    expectRoundTrip(std::numeric_limits<Uid>::max());
    expectRoundTrip(0.1);
    expectRoundTrip(std::optional<std::string>("Grüße"));
    expectRoundTrip(std::optional<Data>(Data{0, 1, 255}));
    expectRoundTrip(URL::fromString("file:///Applications/Example.app/"));
    expectRoundTrip(URL::fromString("Contents/Info.plist", *URL::fromString("file:///Applications/Example.app/")));
    expectRoundTrip(std::optional<UUID>(UUID{{1, 2, 3}}));
    expectRoundTrip(std::optional<AuditToken>(AuditToken{{1, 2, 3, 4, 5, 6, 7, 4294967295U}}));
    expectRoundTrip(std::optional<Dictionary>(Dictionary{{"a", 1}, {"b", Array{Value("c"), Value(Data{1})}}}));
    expectRoundTrip(std::optional<Error>(Error("domain", -97, Dictionary{{"key", "value"}})));
}

TEST(AWireType, ThatIsAbsentReadsBackAsAbsent) {
    expectRoundTrip(std::optional<std::string>());
    expectRoundTrip(std::optional<Data>());
    expectRoundTrip(std::optional<URL>());
    expectRoundTrip(std::optional<UUID>());
    expectRoundTrip(std::optional<AuditToken>());
    expectRoundTrip(std::optional<Dictionary>());
    expectRoundTrip(std::optional<Error>());
}

TEST(AWireType, IsRefusedInThePlaceOfAnother) {
    std::int64_t number = 0;
    EXPECT_FALSE(readInto(written(std::optional<std::string>("1")), number).ok());
    EXPECT_FALSE(readInto(written(1.0), number).ok());
    double real = 0;
    EXPECT_FALSE(readInto(written(std::int64_t{1}), real).ok());
    std::optional<Data> bytes;
    EXPECT_FALSE(readInto(written(std::optional<std::string>("text")), bytes).ok());
    std::optional<URL> url;
    EXPECT_FALSE(readInto(written(std::optional<std::string>("file:///")), url).ok());
    bool flag = false;
    EXPECT_FALSE(readInto(written(std::int64_t{1}), flag).ok());
}

TEST(AUid, IsRefusedBeyondItsLastValue) {
    Uid uid = 0;
    EXPECT_TRUE(readInto(written(std::uint64_t{4'294'967'295}), uid).ok());
    EXPECT_FALSE(readInto(written(std::uint64_t{4'294'967'296}), uid).ok());
    EXPECT_FALSE(readInto(written(std::int64_t{-1}), uid).ok());
}

constexpr std::string_view kErrorSet[] = {"error", "dictionary", "array", "string", "value"};
constexpr ReplyClasses kAllowed[] = {{0, kErrorSet}};

TEST(AnErrorWithAnAllowList, MayCarryWhatTheListNames) {
    const Error cause("cause", 2);
    std::optional<Error> read;
    const std::optional<Error> error =
        Error("domain", 1, Dictionary{{"array", Array{Value("text"), Value(1)}}, {"cause", Value(cause)}});
    const Status status = readInto(written(error), read, kAllowed);
    ASSERT_TRUE(status.ok()) << status.error().description();
    EXPECT_EQ(read, error);
}

TEST(AnErrorWithAnAllowList, IsRefusedWithAnythingElse) {
    std::optional<Error> read;
    const std::optional<Error> bytes = Error("domain", 1, Dictionary{{"bytes", Value(Data{1})}});
    EXPECT_FALSE(readInto(written(bytes), read, kAllowed).ok());
    EXPECT_TRUE(readInto(written(bytes), read).ok());
    const std::optional<Error> deeper =
        Error("domain", 1, Dictionary{{"array", Array{Value(Dictionary{{"date", Value(Date{1})}})}}});
    EXPECT_FALSE(readInto(written(deeper), read, kAllowed).ok());
}

TEST(AnInterface, ShowsItsMethodsAndWhatTheirRepliesAllow) {
    constexpr Method<Reply<std::int64_t, std::optional<Error>>(std::optional<URL>, Uid)> kMethod{3, "a:b:reply:"};
    static constexpr ReplyClasses kNarrow[] = {{1, kErrorSet}};
    constexpr Method<Reply<std::int64_t, std::optional<Error>>(std::optional<URL>, Uid)> kNarrowed{
        3, "a:b:reply:", kNarrow};
    const ServiceInterface interface = makeInterface("Interface", kMethod);
    const InterfaceMethod* method = interface.find("a:b:reply:");
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(method->number, 3);
    ASSERT_EQ(method->arguments.size(), 2U);
    EXPECT_EQ(method->arguments[0].name, "URL");
    EXPECT_EQ(method->arguments[1].name, "uid");
    EXPECT_EQ(method->reply[0].classes.size(), 0U);
    EXPECT_EQ(interface.find("other"), nullptr);
    const ServiceInterface narrowed = makeInterface("Interface", kNarrowed);
    EXPECT_EQ(narrowed.methods[0].reply[1].classes,
              std::vector<std::string_view>(std::begin(kErrorSet), std::end(kErrorSet)));
    EXPECT_FALSE(narrowed == interface);
    EXPECT_TRUE(interface == makeInterface("Interface", kMethod));
}

}  // namespace
}  // namespace ksw::ipc
