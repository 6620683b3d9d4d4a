#include <gtest/gtest.h>

#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

// The server as an agent meets it: the built program on a pipe.
struct McpProtocolTest : ::testing::Test {
    testing::ProcessResult serve(const std::string& input) {
        testing::ProcessOptions options;
        options.standardInput = input;
        return testing::runProcess(UNBULK_BINARY, {"mcp"}, options);
    }
    // Each output line parsed; the test fails on a line that is not JSON.
    std::vector<Json> lines(const testing::ProcessResult& result) {
        std::vector<Json> out;
        std::size_t start = 0;
        while (start < result.standardOutput.size()) {
            const std::size_t end = result.standardOutput.find('\n', start);
            EXPECT_NE(end, std::string::npos) << "an unterminated line";
            if (end == std::string::npos) break;
            out.push_back(Json::parse(result.standardOutput.substr(start, end - start)));
            start = end + 1;
        }
        return out;
    }
    TempHome home;
};

TEST_F(McpProtocolTest, PingIsAnsweredWithAnEmptyResultOnOneCompactLine) {
    const auto result = serve(R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                              "\n");
    EXPECT_EQ(result.standardOutput, R"({"id":1,"jsonrpc":"2.0","result":{}})"
                                     "\n");
    EXPECT_EQ(result.standardError, "");
    EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(McpProtocolTest, NotificationsAndRequestsWithoutAnIdGetNoResult) {
    const auto result = serve(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
                              "\n"
                              R"({"jsonrpc":"2.0","id":5,"method":"notifications/initialized"})"
                              "\n"
                              R"({"jsonrpc":"2.0","method":"ping"})"
                              "\n");
    EXPECT_EQ(result.standardOutput, "");
}

TEST_F(McpProtocolTest, UnknownMethodsAndUnreadableLinesGetErrorsWithOrWithoutAnId) {
    const auto out = lines(serve(R"({"jsonrpc":"2.0","method":"nope"})"
                                 "\n"
                                 R"({"jsonrpc":"2.0","id":"x-1","method":"nope"})"
                                 "\n"
                                 "not json\n"
                                 "{}\n"
                                 R"([{"jsonrpc":"2.0","id":1,"method":"ping"}])"
                                 "\n"
                                 R"({"jsonrpc":"2.0","id":9,"method":"ping"})"
                                 "\n"));
    ASSERT_EQ(out.size(), 6u);
    EXPECT_EQ(out[0], Json::parse(R"({"jsonrpc":"2.0","error":{"code":-32601,"message":"Method not found"}})"));
    EXPECT_EQ(out[1]["id"], "x-1");
    for (int i = 2; i <= 4; ++i) {
        EXPECT_EQ(out[i], Json::parse(R"({"jsonrpc":"2.0","error":{"code":-32700,"message":"Parse error"}})")) << i;
    }
    EXPECT_EQ(out[5]["id"], 9); // and reads on
}

TEST_F(McpProtocolTest, ABlankLineEndsTheServerAsTheEndOfInputDoes) {
    const auto result = serve(R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                              "\n\n"
                              R"({"jsonrpc":"2.0","id":2,"method":"ping"})"
                              "\n");
    ASSERT_EQ(lines(result).size(), 1u);
    EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(McpProtocolTest, CarriageReturnsAreDroppedAndALastLineNeedsNoLineFeed) {
    const auto out = lines(serve("{\"jsonrpc\":\"2.0\",\"id\":\"a\r\rb\",\"method\":\"ping\"}\r\n"
                                 R"({"jsonrpc":"2.0","id":-42,"method":"ping"})"));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0]["id"], "ab");
    EXPECT_EQ(out[1]["id"], -42);
}

TEST_F(McpProtocolTest, InitializeAnswersItsOwnVersionWhateverWasAsked) {
    const auto out =
        lines(serve(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2099-01-01"}})"
                    "\n"));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0]["result"], Json::parse(R"({"protocolVersion":"2024-11-05",
        "capabilities":{"tools":{"listChanged":true}},"serverInfo":{"name":"unbulk","version":"1.0.0"}})"));
}

TEST_F(McpProtocolTest, BadToolCallParamsAreInvalidParamsButAnUnknownToolIsAFailedResult) {
    const auto out = lines(serve(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{}})"
                                 "\n"
                                 R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":3}})"
                                 "\n"
                                 R"({"jsonrpc":"2.0","id":3,"method":"tools/call"})"
                                 "\n"
                                 R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"nope"}})"
                                 "\n"));
    ASSERT_EQ(out.size(), 4u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(out[i]["error"]["code"], -32602) << i;
        EXPECT_EQ(out[i]["id"], i + 1) << i;
    }
    EXPECT_EQ(out[3]["result"], Json::parse(R"({"content":[{"type":"text","text":"Unknown tool: nope"}],
        "isError":true})"));
}

TEST_F(McpProtocolTest, AToolErrorIsAFailedResultNotAProtocolError) {
    const auto out = lines(serve(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"register_rule",)"
                                 R"("arguments":{"id":"all","name":"All","pattern":"~/*","category":"x",)"
                                 R"("risk_tier":"KEEP"}}})"
                                 "\n"));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_FALSE(out[0].contains("error"));
    EXPECT_TRUE(out[0]["result"]["isError"].get<bool>());
    EXPECT_TRUE(out[0]["result"]["content"][0]["text"].get<std::string>().starts_with("Tool execution failed: "));
}

} // namespace
} // namespace unbulk
