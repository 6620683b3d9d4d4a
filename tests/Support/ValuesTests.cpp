#include <chrono>
#include <cstdint>
#include <limits>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/ByteCount.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Dates.hpp"
#include "Support/Json.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;

bool isCanonicalUpperCase(const std::string& text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return false;
        } else if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) {
            return false;
        }
    }
    return true;
}

// ---- Uuid

TEST(UuidTest, RandomIsVersion4WithTheRfcVariantAndCanonicalText) {
    std::set<std::string> seen;
    for (int i = 0; i < 64; ++i) {
        Uuid id = Uuid::random();
        EXPECT_EQ(id.bytes()[6] >> 4, 4);
        EXPECT_EQ(id.bytes()[8] & 0xC0, 0x80);
        EXPECT_TRUE(isCanonicalUpperCase(id.string())) << id.string();
        EXPECT_EQ(id.string()[14], '4');
        seen.insert(id.string());
    }
    EXPECT_EQ(seen.size(), 64u);
}

TEST(UuidTest, ParseAcceptsEitherCaseAndRoundTrips) {
    auto lower = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower.has_value());
    EXPECT_EQ(lower->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), lower);

    auto ordered = Uuid::parse("00112233-4455-6677-8899-AaBbCcDdEeFf");
    ASSERT_TRUE(ordered.has_value());
    for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(ordered->bytes()[i], i * 0x11) << i;

    Uuid id = Uuid::random();
    EXPECT_EQ(Uuid::parse(id.string()), id);
}

TEST(UuidTest, ParseRejectsMalformedText) {
    const std::vector<std::string> rejected{
        "",
        "E621E1F8-C36C-495A-93FC-0C247A3E6E5",    // short
        "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0",  // long
        "E621E1F8C-36C-495A-93FC-0C247A3E6E5F",   // dash moved
        "E621E1F8-C36C-495A-93FC 0C247A3E6E5F",   // blank for a dash
        "E621E1F8-C36C-495A-93FC-0C247A3E6E5G",   // not hex
        "E621E1F8-C36C-495A-93FC-0C247A3E6E-F",   // dash inside a group
        "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}", // braces
        "E621E1F8C36C495A93FC0C247A3E6E5F",       // no dashes
    };
    for (const auto& text : rejected) EXPECT_FALSE(Uuid::parse(text).has_value()) << text;
}

// ---- Dates

Date utc(int y, unsigned mo, unsigned d, int h = 0, int mi = 0, int s = 0) {
    return Date{sys_days{year{y} / month{mo} / day{d}} + hours{h} + minutes{mi} + seconds{s}};
}

TEST(DatesTest, IsoTextDropsOrKeepsMilliseconds) {
    const Date base = utc(2026, 3, 1, 10, 15, 30);
    EXPECT_EQ(dates::iso8601(base), "2026-03-01T10:15:30Z");
    EXPECT_EQ(dates::iso8601(base + milliseconds{999}), "2026-03-01T10:15:30Z");
    EXPECT_EQ(dates::iso8601Milliseconds(base), "2026-03-01T10:15:30.000Z");
    EXPECT_EQ(dates::iso8601Milliseconds(base + milliseconds{5}), "2026-03-01T10:15:30.005Z");
    EXPECT_EQ(dates::iso8601Milliseconds(base + microseconds{123999}), "2026-03-01T10:15:30.123Z");

    // Before 1970 the second and the fraction still come out right.
    const Date early = utc(1970, 1, 1) - milliseconds{500};
    EXPECT_EQ(dates::iso8601(early), "1969-12-31T23:59:59Z");
    EXPECT_EQ(dates::iso8601Milliseconds(early), "1969-12-31T23:59:59.500Z");
}

TEST(DatesTest, ParseReadsZoneOffsetsAndFractions) {
    const Date instant = utc(2026, 3, 1, 10, 15, 30);
    struct Row {
        std::string text;
        Date expected;
    };
    const std::vector<Row> rows{
        {"2026-03-01T10:15:30Z", instant},
        {"2026-03-01T11:15:30+01:00", instant},
        {"2026-03-01T11:15:30+0100", instant},
        {"2026-03-01T08:45:30-0130", instant},
        {"2026-03-01T08:45:30-01:30", instant},
        {"2026-03-01T10:15:30.250Z", instant + milliseconds{250}},
        {"2026-03-01T10:15:30.5Z", instant + milliseconds{500}},
        {"2026-03-01T10:15:30.123456789Z", instant + nanoseconds{123456789}},
        {"2026-03-02T00:15:30+14:00", instant},
        {"2024-02-29T00:00:00Z", utc(2024, 2, 29)},
    };
    for (const auto& row : rows) {
        auto parsed = dates::parseISO8601(row.text);
        ASSERT_TRUE(parsed.has_value()) << row.text;
        EXPECT_EQ(*parsed, row.expected) << row.text;
    }
}

TEST(DatesTest, ParseRejectsWhatIsNotAnIsoInstant) {
    const std::vector<std::string> rejected{
        "",
        "garbage",
        "2026-13-01T00:00:00Z",
        "2026-00-01T00:00:00Z",
        "2026-02-30T00:00:00Z",
        "2025-02-29T00:00:00Z",
        "2026-03-01T24:00:00Z",
        "2026-03-01T10:60:00Z",
        "2026-03-01 10:15:30Z",
        "2026-03-01T10:15:30",
        "2026-03-01T10:15:30.Z",
        "2026-03-01T10:15:30Zjunk",
        "2026-03-01T10:15:30+1",
        "2026-03-01T10:15Z",
        "2026-3-01T10:15:30Z",
    };
    for (const auto& text : rejected) EXPECT_FALSE(dates::parseISO8601(text).has_value()) << text;
}

TEST(DatesTest, SecondsCountFromTheStartOf2001) {
    EXPECT_EQ(dates::secondsSinceReferenceDate(utc(2001, 1, 1)), 0.0);
    EXPECT_EQ(dates::secondsSinceReferenceDate(utc(2001, 1, 2)), 86400.0);
    EXPECT_EQ(dates::secondsSinceReferenceDate(utc(2000, 12, 31)), -86400.0);
    EXPECT_EQ(dates::secondsSinceReferenceDate(utc(2001, 1, 1) + milliseconds{1500}), 1.5);
    EXPECT_EQ(dates::fromSecondsSinceReferenceDate(0), utc(2001, 1, 1));
    EXPECT_EQ(dates::fromSecondsSinceReferenceDate(86400.25), utc(2001, 1, 2) + milliseconds{250});
    EXPECT_EQ(dates::fromSecondsSinceReferenceDate(-1), utc(2000, 12, 31, 23, 59, 59));
}

TEST(DatesTest, EncodeAndDecodeInBothEncodings) {
    const Date date = utc(2026, 3, 1, 10, 15, 30);

    Json iso = dates::encode(date, DateEncoding::iso8601);
    ASSERT_TRUE(iso.is_string());
    EXPECT_EQ(iso.get<std::string>(), "2026-03-01T10:15:30Z");
    EXPECT_EQ(dates::decode(iso), date);

    Json seconds = dates::encode(date, DateEncoding::secondsSinceReferenceDate);
    ASSERT_TRUE(seconds.is_number());
    EXPECT_EQ(seconds.get<double>(), 794052930.0);
    EXPECT_EQ(dates::decode(seconds), date);
    EXPECT_EQ(dates::decode(Json(86400)), utc(2001, 1, 2));

    EXPECT_FALSE(dates::decode(Json(nullptr)).has_value());
    EXPECT_FALSE(dates::decode(Json(true)).has_value());
    EXPECT_FALSE(dates::decode(Json("yesterday")).has_value());
    EXPECT_FALSE(dates::decode(Json::object()).has_value());
}

// ---- ByteCount

TEST(ByteCountTest, FollowsTheFileStyleRule) {
    struct Row {
        std::int64_t bytes;
        std::string expected;
    };
    const std::vector<Row> rows{
        {0, "Zero KB"},
        {1, "1 byte"},
        {2, "2 bytes"},
        {999, "999 bytes"},
        {1000, "1 KB"},
        {1499, "1 KB"},
        {1501, "2 KB"},
        {999'499, "999 KB"},
        {999'999, "1 MB"}, // rounds to 1,000 KB, so moves up
        {1'000'000, "1 MB"},
        {1'234'567, "1.2 MB"},
        {1'500'000, "1.5 MB"},
        {1'960'000, "2 MB"},
        {999'940'000, "999.9 MB"},
        {999'960'000, "1 GB"},
        {1'000'000'000, "1 GB"},
        {1'230'000'000, "1.23 GB"},
        {1'234'567'890, "1.23 GB"},
        {2'000'000'000, "2 GB"},
        {1'999'999'999'999, "2 TB"},
        {1'500'000'000'000'000, "1.5 PB"},
        {-1, "-1 byte"},
        {-999, "-999 bytes"},
        {-1'500'000, "-1.5 MB"},
        {std::numeric_limits<std::int64_t>::max(), "9.22 EB"},
        {std::numeric_limits<std::int64_t>::min(), "-9.22 EB"},
    };
    for (const auto& row : rows) EXPECT_EQ(formatByteCount(row.bytes), row.expected) << row.bytes;
}

// ---- Json

TEST(JsonTest, PrettyOutputSortsKeysAtEveryLevel) {
    Json value;
    value["zeta"] = 1;
    value["alpha"] = Json{{"y", true}, {"b", nullptr}};
    value["mid"] = Json::array({3, "x"});
    EXPECT_EQ(json::pretty(value), "{\n"
                                   "  \"alpha\": {\n"
                                   "    \"b\": null,\n"
                                   "    \"y\": true\n"
                                   "  },\n"
                                   "  \"mid\": [\n"
                                   "    3,\n"
                                   "    \"x\"\n"
                                   "  ],\n"
                                   "  \"zeta\": 1\n"
                                   "}");
    EXPECT_EQ(json::compact(value), R"({"alpha":{"b":null,"y":true},"mid":[3,"x"],"zeta":1})");
}

TEST(JsonTest, InvalidUtf8IsReplacedNotThrown) {
    Json value{{"name", std::string("bad\xFF\xFEname")}};
    std::string pretty, compact;
    ASSERT_NO_THROW(pretty = json::pretty(value));
    ASSERT_NO_THROW(compact = json::compact(value));
    EXPECT_NE(compact.find("bad\xEF\xBF\xBD"), std::string::npos) << compact;
    EXPECT_NE(pretty.find("name\""), std::string::npos);
}

TEST(JsonTest, AbsentOptionalsWriteNoKey) {
    Json object = Json::object();
    json::setOptional(object, "missing", std::optional<int>{});
    json::setOptional(object, "present", std::optional<int>{7});
    json::setOptional(object, "doubled", std::optional<int>{4}, [](int v) { return v * 2; });
    EXPECT_EQ(json::compact(object), R"({"doubled":8,"present":7})");

    Json read = Json::parse(R"({"a":1,"n":null})");
    EXPECT_EQ(json::getOptional<int>(read, "a"), 1);
    EXPECT_FALSE(json::getOptional<int>(read, "n").has_value());
    EXPECT_FALSE(json::getOptional<int>(read, "absent").has_value());
}

// ---- Cancellation

TEST(CancellationTest, SleepLastsItsDurationWithoutStop) {
    std::stop_source never;
    const auto start = steady_clock::now();
    EXPECT_NO_THROW(cancellableSleep(milliseconds{60}, never.get_token()));
    EXPECT_GE(steady_clock::now() - start, milliseconds{60});
    EXPECT_NO_THROW(cancellableSleep(milliseconds{1}, std::stop_token{}));
}

TEST(CancellationTest, StopFromAnotherThreadEndsTheSleepAtOnce) {
    std::stop_source source;
    std::jthread stopper([&source] {
        std::this_thread::sleep_for(milliseconds{50});
        source.request_stop();
    });
    const auto start = steady_clock::now();
    EXPECT_THROW(cancellableSleep(seconds{30}, source.get_token()), CancellationError);
    EXPECT_LT(steady_clock::now() - start, seconds{5});
}

TEST(CancellationTest, AnAlreadyStoppedTokenThrowsBeforeSleeping) {
    std::stop_source source;
    source.request_stop();
    const auto start = steady_clock::now();
    EXPECT_THROW(cancellableSleep(seconds{30}, source.get_token()), CancellationError);
    EXPECT_LT(steady_clock::now() - start, seconds{1});
    EXPECT_THROW(throwIfCancelled(source.get_token()), CancellationError);
    EXPECT_NO_THROW(throwIfCancelled(std::stop_token{}));
    EXPECT_STREQ(CancellationError{}.what(), "The operation was cancelled.");
}

} // namespace
} // namespace unbulk
