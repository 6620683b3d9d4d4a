#include <gtest/gtest.h>

#include "mcp/JSONRPC.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

JSONRPCRequest request(const char* text) { return jsonRpcRequestFromJson(Json::parse(text)); }

TEST(JSONValueTest, DecodesEachCaseAndEncodesBackToEqualJson) {
    const Json json = Json::parse(R"({"a": [1, "x", null, true, 2.5, {"b": false}]})");
    const JSONValue value = jsonValueFromJson(json);
    const JSONValue::Array& array = *value.objectValue()->at("a").arrayValue();
    EXPECT_EQ(array[3], JSONValue(true)); // a boolean, never the number 1
    EXPECT_EQ(toJson(value), json);
    EXPECT_EQ(toJson(JSONValue(3.0)).dump(), "3"); // whole numbers without a fraction
}

// Decoding and conversion stop at a fixed depth instead of recursing until
// the stack runs out; the protocol's answer to such a line is in
// McpProtocolTest.
TEST(JSONValueTest, NestingBeyondTheLimitIsRefused) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_NO_THROW(json::parse(nested(json::maximumNestingDepth)));
    EXPECT_THROW(json::parse(nested(json::maximumNestingDepth + 1)), json::NestingTooDeepError);
    EXPECT_THROW(json::parse(nested(100'000)), json::NestingTooDeepError);

    Json deep = Json::array();
    Json* innermost = &deep;
    for (int i = 0; i < 100'000; ++i) innermost = &innermost->emplace_back(Json::array());
    EXPECT_THROW(jsonValueFromJson(deep), JSONValueError);

    JSONValue value;
    for (std::size_t i = 0; i <= json::maximumNestingDepth; ++i) value = JSONValue(JSONValue::Array{std::move(value)});
    EXPECT_THROW(toJson(value), JSONValueError);
}

// Integer and string ids go through whole sessions in McpProtocolTest.
TEST(JSONRPCIdTest, NothingButIntegersAndStrings) {
    for (const char* bad : {"1.5", "true", "null", "[1]", "{}", "9223372036854775808", "18446744073709551615"}) {
        try {
            jsonRpcIdFromJson(Json::parse(bad));
            ADD_FAILURE() << bad << " read as an id";
        } catch (const JSONRPCDecodingError& error) {
            EXPECT_STREQ(error.what(), "Expected String or Int id") << bad;
        }
    }
    EXPECT_EQ(jsonRpcIdFromJson(Json::parse("9223372036854775807")), JSONRPCId{INT64_MAX});
    EXPECT_EQ(jsonRpcIdFromJson(Json::parse("-9223372036854775808")), JSONRPCId{INT64_MIN});
}

TEST(JSONRPCRequestTest, MethodAndVersionAreRequiredButTheVersionIsNotTestedAndNullsReadAsAbsent) {
    for (const char* bad : {R"({"jsonrpc":"2.0","id":1})", R"({"id":1,"method":"ping"})",
                            R"({"jsonrpc":"2.0","method":"ping","id":true})"})
        EXPECT_THROW(request(bad), JSONRPCDecodingError) << bad;
    EXPECT_EQ(request(R"({"jsonrpc":"1.0","method":"ping"})").jsonrpc, "1.0");
    const JSONRPCRequest decoded = request(R"({"jsonrpc":"2.0","id":null,"method":"m","params":null})");
    EXPECT_FALSE(decoded.id || decoded.params);
}

} // namespace
} // namespace unbulk
