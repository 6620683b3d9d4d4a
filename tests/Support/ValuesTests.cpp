#include <cmath>
#include <limits>
#include <regex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "Support/ByteCount.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Dates.hpp"
#include "Support/Json.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;

TEST(UuidTest, RandomIsVersion4InCanonicalUpperCaseAndParsesBack) {
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    const Uuid id = Uuid::random();
    EXPECT_TRUE(std::regex_match(id.string(), canonical)) << id.string();
    EXPECT_EQ(Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f").value().string(),
              "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    for (const char* text : {"", "E621E1F8C-36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5G"})
        EXPECT_FALSE(Uuid::parse(text)) << text;
}

// Ids made many at once are as random and as well formed as one made alone.
TEST(UuidTest, ABatchIsVersion4AndEveryIdDiffers) {
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::vector<Uuid> ids(1000);
    Uuid::fillRandom(ids);
    std::set<Uuid> distinct(ids.begin(), ids.end());
    EXPECT_EQ(distinct.size(), ids.size());
    for (const Uuid& id : ids) EXPECT_TRUE(std::regex_match(id.string(), canonical)) << id.string();
}

Date utc(int y, unsigned mo, unsigned d, int h = 0, int mi = 0, int s = 0) {
    return Date{sys_days{year{y} / month{mo} / day{d}} + hours{h} + minutes{mi} + seconds{s}};
}

TEST(DatesTest, IsoTextAndSecondsSince2001) {
    const Date base = utc(2026, 3, 1, 10, 15, 30);
    EXPECT_EQ(dates::iso8601(base + milliseconds{999}), "2026-03-01T10:15:30Z"); // dropped, not rounded
    EXPECT_EQ(dates::iso8601Milliseconds(base + microseconds{5999}), "2026-03-01T10:15:30.005Z");
    for (const char* text : {"2026-03-01T11:15:30+01:00", "2026-03-01T08:45:30-0130", "2026-03-02T00:15:30+14:00"})
        EXPECT_EQ(dates::parseISO8601(text), base) << text;
    // The last is beyond what a Date holds: refused, never wrapped round.
    for (const char* text : {"2025-02-29T00:00:00Z", "2026-03-01T10:15:30Zjunk", "2026-03-01T10:15:30+99:99"})
        EXPECT_FALSE(dates::parseISO8601(text)) << text;

    EXPECT_EQ(dates::secondsSinceReferenceDate(utc(2001, 1, 1) + milliseconds{1500}), 1.5);
    // Beyond what a Date holds: refused, never wrapped round.
    for (const Json& outOfRange : {Json(1e300), Json("2300-01-01T00:00:00Z")}) EXPECT_FALSE(dates::decode(outOfRange));
    EXPECT_EQ(dates::decode(Json(794052930)), base);
}

TEST(ByteCountTest, DecimalUnitsWithOneFractionalDigitAtMost) {
    const std::int64_t max = std::numeric_limits<std::int64_t>::max(), min = std::numeric_limits<std::int64_t>::min();
    const std::vector<std::pair<std::int64_t, std::string>> rows{
        {0, "Zero KB"}, {1, "1 byte"}, {999, "999 bytes"}, {1000, "1 KB"}, {999'999, "1 MB"}, // 1,000 KB moves up
        {1'234'567, "1.2 MB"}, {1'260'000'000, "1.3 GB"}, {2'000'000'000, "2 GB"}, {max, "9.2 EB"}, {min, "-9.2 EB"}};
    for (const auto& [bytes, expected] : rows) EXPECT_EQ(decimalByteCount(bytes), expected) << bytes;
}

TEST(JsonTest, SortedOutputAndInvalidUtf8ReplacedNotThrown) {
    const Json value{{"zeta", 1}, {"alpha", {{"y", true}, {"b", nullptr}}}, {"name", "bad\xFF\xFEname"}};
    EXPECT_EQ(json::compact(value),
              "{\"alpha\":{\"b\":null,\"y\":true},\"name\":\"bad\xEF\xBF\xBD\xEF\xBF\xBDname\",\"zeta\":1}");
    EXPECT_NO_THROW(json::pretty(value));
}

// Command output, tool results and audit lines read the same to a consumer.
TEST(JsonTest, BothWritersEscapeSlashesAndLineBreakingCharactersAlike) {
    const Json value{{"p", "/a\x7F\xC2\x85\xE2\x80\xA8"}};
    EXPECT_EQ(json::compact(value), R"({"p":"\/a\u007f\u0085\u2028"})");
    EXPECT_EQ(json::pretty(value), "{\n  \"p\": \"\\/a\\u007f\\u0085\\u2028\"\n}");
}

// A Double goes out as the platform's encoder writes it: a whole one without
// a fraction, anything else untouched, and text that looks like a number
// inside a string left alone.
TEST(JsonTest, WholeDoublesAreWrittenWithoutAFraction) {
    const Json value{{"a", 60.0}, {"b", -2.0}, {"c", 1.5}, {"d", 0.0}, {"e", 1e300}, {"f", 10.05}, {"g", "7.0"},
                     {"h", {2.0, 3.0}}, {"i", "a\\\"1.0"}};
    EXPECT_EQ(json::compact(value), R"({"a":60,"b":-2,"c":1.5,"d":0,"e":1e+300,"f":10.05,"g":"7.0","h":[2,3],)"
                                    R"("i":"a\\\"1.0"})");
    EXPECT_EQ(json::pretty(Json{{"a", 60.0}}), "{\n  \"a\": 60\n}");
}

// A document written piece by piece reads exactly as the writers write it
// whole: the same escapes, the same replacement of bytes that are not
// UTF-8, the same numbers.
TEST(JsonTest, PiecesAreWrittenAsTheWholeDocumentWritersWriteThem) {
    const std::string texts[] = {"", "plain", "/a/b c", "quote\"back\\slash", "\t\n\x01\x1F", "del\x7F",
                                 "\xC2\x85\xC2\x9F\xC2\xA0", "\xE2\x80\xA8\xE2\x80\xA9", "bad\xFF\xC3",
                                 "\xC3\xA9\xF0\x9F\x93\x81", "1.0"};
    for (const std::string& text : texts) {
        std::string out;
        json::appendString(out, text);
        EXPECT_EQ(out, json::compact(Json(text))) << text;
    }
    const double numbers[] = {0.0, -0.0, 1.0, 60.0, -2.0, 1.5, 10.05, 1e300, 1e-7, 123456789.125,
                              801234567.891234, std::numeric_limits<double>::max(), std::nan("")};
    for (const double number : numbers) {
        std::string out;
        json::appendNumber(out, number);
        EXPECT_EQ(out, json::compact(Json(number))) << number;
    }
    for (const std::int64_t number : {std::int64_t{0}, std::int64_t{-1}, INT64_MAX, INT64_MIN}) {
        std::string out;
        json::appendNumber(out, number);
        EXPECT_EQ(out, json::compact(Json(number)));
    }
}

// A string's content cut between characters reads as the whole string.
TEST(JsonTest, StringContentCutBetweenCharactersIsTheWholeString) {
    const std::string text = "{\n  \"p\": \"\\/x\xC3\xA9\xE2\x80\xA8\"\n}";
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        if (cut < text.size() && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) continue;
        std::string out = "\"";
        json::appendStringContent(out, text.substr(0, cut));
        json::appendStringContent(out, text.substr(cut));
        out += '"';
        EXPECT_EQ(out, json::compact(Json(text))) << cut;
    }
}

TEST(CancellationTest, StopEndsTheSleepAtOnce) {
    StopSource source;
    std::thread stopper([&source] { std::this_thread::sleep_for(milliseconds{50}); source.requestStop(); });
    const auto start = steady_clock::now();
    EXPECT_THROW(cancellableSleep(seconds{30}, source.token()), CancellationError);
    EXPECT_LT(steady_clock::now() - start, seconds{5});
    EXPECT_THROW(cancellableSleep(seconds{30}, source.token()), CancellationError); // already stopped
    EXPECT_STREQ(CancellationError{}.what(), "The operation was cancelled.");
    stopper.join();
}

TEST(CancellationTest, CallbacksRunOnceOnRequestOrAtOnceWhenLate) {
    StopSource source;
    int early = 0, dropped = 0, late = 0;
    StopCallback first(source.token(), [&] { ++early; });
    { StopCallback gone(source.token(), [&] { ++dropped; }); }
    EXPECT_FALSE(source.token().stopRequested());
    EXPECT_TRUE(source.requestStop());
    EXPECT_FALSE(source.requestStop()); // the second request runs nothing again
    StopCallback after(source.token(), [&] { ++late; });
    EXPECT_EQ(std::tuple(early, dropped, late), std::tuple(1, 0, 1));
    EXPECT_TRUE(source.token().stopRequested());
    EXPECT_FALSE(StopToken{}.stopPossible());
}

TEST(CancellationTest, DeregisteringWaitsForACallbackRunningOnAnotherThread) {
    StopSource source;
    std::atomic<bool> entered{false}, finished{false};
    auto callback = std::make_unique<StopCallback>(source.token(), [&] {
        entered = true;
        std::this_thread::sleep_for(milliseconds{100});
        finished = true;
    });
    std::thread requester([&] { source.requestStop(); });
    while (!entered) std::this_thread::yield();
    callback.reset(); // must not return while the callback still runs
    EXPECT_TRUE(finished);
    requester.join();
}

} // namespace
} // namespace unbulk
