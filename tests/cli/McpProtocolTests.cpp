#include <gtest/gtest.h>

#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// The server as an agent meets it: the built program on a pipe.
testing::ProcessResult serve(const std::string& input) {
    testing::ProcessOptions options;
    options.standardInput = input;
    return testing::runProcess(UNBULK_BINARY, {"mcp"}, options);
}

// Each input, a whole session, against every line it answers with (as one JSON array).
TEST(McpProtocolTest, EachSessionIsAnsweredLineByLine) {
    testing::TempHome home;
    const auto session = [](std::initializer_list<std::string> lines) {
        std::string text;
        for (const auto& line : lines) text += line + "\n";
        return text;
    };
    const std::string ping = R"({"jsonrpc":"2.0","method":"ping")", call = R"({"jsonrpc":"2.0","method":"tools/call")";
    const std::string notFound = R"("error":{"code":-32601,"message":"Method not found"})";
    const std::string parseError = R"({"jsonrpc":"2.0","error":{"code":-32700,"message":"Parse error"}})";
    const std::string invalid = R"(,"jsonrpc":"2.0","error":{"code":-32602,"message":"Invalid params"}})";
    const std::vector<std::pair<std::string, std::string>> cases{
        // Notifications, and requests without an id, get no result.
        {session({R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                  R"({"jsonrpc":"2.0","id":5,"method":"notifications/initialized"})", ping + "}"}),
         "[]"},
        // Unknown methods and unreadable lines get errors, with or without an id, and reading goes on.
        {session({R"({"jsonrpc":"2.0","method":"nope"})", R"({"jsonrpc":"2.0","id":"x-1","method":"nope"})",
                  "not json", "{}", "[" + ping + R"(,"id":1}])", ping + R"(,"id":9})"}),
         R"([{"jsonrpc":"2.0",)" + notFound + R"(},{"jsonrpc":"2.0","id":"x-1",)" + notFound + "}," + parseError +
             "," + parseError + "," + parseError + R"(,{"jsonrpc":"2.0","id":9,"result":{}}])"},
        // A line is read whole: a NUL does not end it early. An id beyond 64 signed bits is no id.
        {session({ping + R"(,"id":1})" + std::string(1, '\0') + "garbage", ping + R"(,"id":18446744073709551615})"}),
         "[" + parseError + "," + parseError + "]"},
        // Nesting deeper than the limit is a parse error, however long the
        // line; the server reads on. At the limit the request is served.
        {session({std::string(20'000, '[') + std::string(20'000, ']'),
                  ping + R"(,"id":1,"params":)" + std::string(511, '[') + std::string(511, ']') + "}",
                  ping + R"(,"id":2,"params":)" + std::string(512, '[') + std::string(512, ']') + "}",
                  ping + R"(,"id":3})"}),
         "[" + parseError + R"(,{"jsonrpc":"2.0","id":1,"result":{}},)" + parseError +
             R"(,{"jsonrpc":"2.0","id":3,"result":{}}])"},
        // A blank line ends the server as the end of input does.
        {session({ping + R"(,"id":1})", "", ping + R"(,"id":2})"}), R"([{"jsonrpc":"2.0","id":1,"result":{}}])"},
        // Carriage returns are dropped, and a last line needs no line feed.
        {ping + ",\"id\":\"a\r\rb\"}\r\n" + ping + R"(,"id":-42})",
         R"([{"jsonrpc":"2.0","id":"ab","result":{}},{"jsonrpc":"2.0","id":-42,"result":{}}])"},
        // initialize answers its own version whatever was asked.
        {session({R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2099-01-01"}})"}),
         R"([{"jsonrpc":"2.0","id":0,"result":{"protocolVersion":"2024-11-05",
             "capabilities":{"tools":{"listChanged":true}},"serverInfo":{"name":"unbulk","version":"1.0.0"}}}])"},
        // Bad tools/call params are invalid params, but an unknown tool is a failed result.
        {session({call + R"(,"id":1,"params":{}})", call + R"(,"id":2,"params":{"name":3}})", call + R"(,"id":3})",
                  call + R"(,"id":4,"params":{"name":"nope"}})"}),
         R"([{"id":1)" + invalid + R"(,{"id":2)" + invalid + R"(,{"id":3)" + invalid +
             R"(,{"jsonrpc":"2.0","id":4,"result":{"content":[{"type":"text","text":"Unknown tool: nope"}],
             "isError":true}}])"},
    };
    for (const auto& [input, expected] : cases) {
        const auto result = serve(input);
        Json out = Json::array();
        std::size_t start = 0;
        for (std::size_t end; (end = result.standardOutput.find('\n', start)) != std::string::npos; start = end + 1)
            out.push_back(Json::parse(result.standardOutput.substr(start, end - start)));
        EXPECT_EQ(start, result.standardOutput.size()) << "an unterminated line after " << out << "\n" << input;
        EXPECT_EQ(out, Json::parse(expected)) << input;
        EXPECT_EQ(result.exitStatus, 0) << input;
    }
}

TEST(McpProtocolTest, AToolErrorIsAFailedResultNotAProtocolError) {
    testing::TempHome home;
    const auto result = serve(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"register_rule",)"
                              R"("arguments":{"id":"all","name":"All","pattern":"~/*","category":"x",)"
                              R"("risk_tier":"KEEP"}}})"
                              "\n");
    const Json out = Json::parse(result.standardOutput);
    EXPECT_FALSE(out.contains("error"));
    EXPECT_TRUE(out["result"]["isError"].get<bool>());
    EXPECT_TRUE(out["result"]["content"][0]["text"].get<std::string>().starts_with("Tool execution failed: "));
}

// Standard output carries protocol lines only: a removal that could not be
// recorded in the log is told on the server's standard error.
TEST(McpProtocolTest, AnUnrecordedRemovalIsToldOnStandardError) {
    testing::TempHome home;
    const std::string item = home.writeFile("junk/file.bin", "data");
    const std::string log = home.makeDirectory(".unbulk/audit.jsonl");
    const auto result = serve(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"clean_storage",)"
                              R"("arguments":{"dry_run":false,"paths":[")" + item + R"("]}}})" "\n");
    const Json out = Json::parse(result.standardOutput);
    EXPECT_FALSE(out["result"]["isError"].get<bool>());
    EXPECT_EQ(Json::parse(out["result"]["content"][0]["text"].get<std::string>())["successCount"], 1);
    EXPECT_TRUE(result.standardError.starts_with("Warning: this operation was not recorded in " + log + ": "))
        << result.standardError;
}

} // namespace
} // namespace unbulk
