// Messages of the session's bus as bytes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "platform/host/bus_message.h"

namespace ksw::host {
namespace {

using ::testing::ElementsAre;

/// A call without a body as the bus's own programs write it.
const Data kHello = {
    'l', 1,   0,   1,   0,   0,   0,   0,   1,   0,   0,   0,   109, 0,   0,   0,    // header, 109 bytes of fields
    1,   1,   'o', 0,   21,  0,   0,   0,   '/', 'o', 'r', 'g', '/', 'f', 'r', 'e',  //
    'e', 'd', 'e', 's', 'k', 't', 'o', 'p', '/', 'D', 'B', 'u', 's', 0,   0,   0,    //
    2,   1,   's', 0,   20,  0,   0,   0,   'o', 'r', 'g', '.', 'f', 'r', 'e', 'e',  //
    'd', 'e', 's', 'k', 't', 'o', 'p', '.', 'D', 'B', 'u', 's', 0,   0,   0,   0,    //
    3,   1,   's', 0,   5,   0,   0,   0,   'H', 'e', 'l', 'l', 'o', 0,   0,   0,    //
    6,   1,   's', 0,   20,  0,   0,   0,   'o', 'r', 'g', '.', 'f', 'r', 'e', 'e',  //
    'd', 'e', 's', 'k', 't', 'o', 'p', '.', 'D', 'B', 'u', 's', 0,   0,   0,   0};

/// A return of one number.
const Data kReturn = {'l', 2, 0,   1, 4, 0, 0, 0, 9, 0, 0,   0, 15, 0,   0, 0,  //
                      5,   1, 'u', 0, 3, 0, 0, 0, 8, 1, 'g', 0, 1,  'u', 0, 0, 42, 0, 0, 0};

TEST(ACallOverTheBus, IsWrittenAsTheBusReadsIt) {
    EXPECT_EQ(encodeBusCall({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "Hello"}, 1),
              kHello);
}

TEST(ACallOverTheBus, HasItsBodyAtItsEnd) {
    BusWriter body;
    body.number(7);
    const Data call = encodeBusCall({"a.b", "/", "a.b", "C", "u", body.bytes()}, 2);
    EXPECT_EQ(busMessageSize(call).value(), call.size());
    EXPECT_EQ(call[4], 4);
    EXPECT_THAT(Bytes(call).last(4), ElementsAre(7, 0, 0, 0));
    EXPECT_EQ(readBusMessage(call)->kind, BusMessageKind::Call);
    EXPECT_EQ(readBusMessage(call)->firstNumber, 7U);
}

TEST(AnArrayOnTheBus, SaysHowLongItIsWithoutWhatAlignsIt) {
    BusWriter writer;
    const std::size_t begun = writer.beginArray(8);
    writer.byte(1);
    writer.endArray(begun);
    EXPECT_THAT(writer.bytes(), ElementsAre(1, 0, 0, 0, 0, 0, 0, 0, 1));
    BusWriter empty;
    empty.endArray(empty.beginArray(4));
    EXPECT_THAT(empty.bytes(), ElementsAre(0, 0, 0, 0));
}

TEST(AMessageOfTheBus, IsRead) {
    EXPECT_EQ(busMessageSize(kReturn).value(), kReturn.size());
    const Result<BusMessage> message = readBusMessage(kReturn);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->kind, BusMessageKind::Return);
    EXPECT_EQ(message->replySerial, 3U);
    EXPECT_EQ(message->firstNumber, 42U);
    EXPECT_EQ(message->errorName, "");
}

TEST(AMessageOfTheBus, IsReadWholeOrNotAtAll) {
    for (std::size_t size = 0; size < kReturn.size(); ++size) {
        EXPECT_FALSE(readBusMessage(Bytes(kReturn).first(size))) << size;
    }
    Data longer = kReturn;
    longer.push_back(0);
    EXPECT_FALSE(readBusMessage(longer));
}

TEST(AMessageOfTheBus, IsRefusedWithAnyDamageThatMatters) {
    const std::pair<std::size_t, std::uint8_t> damages[] = {
        {0, 'x'},              // byte order
        {1, 0},                // kind
        {1, 5},    {3, 2},     // version
        {4, 5},                // length of the body
        {12, 16},              // length of the fields
        {18, 'v'},             // a field's type
        {19, 1},   {28, 200},  // length of a text
    };
    for (const auto& [place, value] : damages) {
        Data damaged = kReturn;
        damaged[place] = value;
        const Result<BusMessage> message = readBusMessage(damaged);
        ASSERT_FALSE(message) << place;
        EXPECT_EQ(message.error().code(), static_cast<std::int64_t>(ConnectionError::ReplyInvalid));
    }
}

Data headWithBody(std::size_t body) {
    BusWriter writer;
    for (const int byte : {int{'l'}, 2, 0, 1}) {
        writer.byte(static_cast<std::uint8_t>(byte));
    }
    writer.number(static_cast<std::uint32_t>(body));
    writer.number(1);
    writer.number(0);
    return writer.bytes();
}

TEST(AMessageOfTheBus, MayHaveSoManyBytes) {
    const std::size_t most = limits::kBusMessageMax - kBusHeadSize;
    EXPECT_EQ(busMessageSize(headWithBody(most)).value(), limits::kBusMessageMax);
    EXPECT_FALSE(busMessageSize(headWithBody(most + 1)));
    EXPECT_FALSE(busMessageSize(headWithBody(0xFFFFFFFF)));
}

}  // namespace
}  // namespace ksw::host
