#include <gtest/gtest.h>

#include "mcp/MCPServer.hpp"

namespace unbulk {
namespace {

// Standard streams in memory.
class MemoryHandle final : public FileHandle {
public:
    explicit MemoryHandle(std::string input = {}) : input_(std::move(input)) {}

    std::size_t read(char* buffer, std::size_t size) override {
        const std::size_t count = std::min(size, input_.size() - position_);
        input_.copy(buffer, count, position_);
        position_ += count;
        return count;
    }
    bool write(std::string_view bytes) override {
        output_ += bytes;
        ++writes_;
        return true;
    }

    const std::string& output() const { return output_; }
    int writes() const { return writes_; }

private:
    std::string input_;
    std::size_t position_ = 0;
    std::string output_;
    int writes_ = 0;
};

// The response lines of a server whose one tool answers `result`.
std::pair<std::string, int> serve(const std::string& requests, MCPCallToolResult result) {
    MemoryHandle input(requests), output, errors;
    MCPServer server(input, output, errors,
                     {[] { return std::vector<MCPTool>{}; },
                      [&](const std::string&, const std::optional<JSONValue::Object>&) { return result; }});
    server.run();
    return {output.output(), output.writes()};
}

// A text made piece by piece goes out in the very bytes of the same text
// sent whole, whatever it holds and whatever the request's id.
TEST(MCPServerTest, AStreamedTextIsTheSameResponseLineAsTheWholeText) {
    const std::string texts[] = {"", "{\n  \"path\": \"\\/a\\/b\"\n}", "quote\" back\\ tab\t nul-free \x01",
                                 "\xC3\xA9 \xE2\x80\xA8 \x7F \xC2\x85", std::string(200'000, 'x') + "\n/\""};
    const std::string requests[] = {R"({"jsonrpc":"2.0","id":7,"method":"tools/call","params":{"name":"t"}})",
                                    R"({"jsonrpc":"2.0","id":"a/\"b","method":"tools/call","params":{"name":"t"}})"};
    for (const std::string& text : texts) {
        for (const std::string& request : requests) {
            const auto [whole, wholeWrites] = serve(request + "\n", MCPCallToolResult::text(text));
            // Cut between characters, in pieces of up to 1000 bytes.
            const auto [pieces, pieceWrites] =
                serve(request + "\n", MCPCallToolResult::streamedText([&](const TextSink& write) {
                          for (std::size_t at = 0; at < text.size();) {
                              std::size_t end = std::min(text.size(), at + 1000);
                              while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
                                  ++end;
                              write(std::string_view(text).substr(at, end - at));
                              at = end;
                          }
                      }));
            EXPECT_EQ(pieces, whole) << request;
            if (text.size() > 100'000) {
                EXPECT_GT(pieceWrites, wholeWrites) << "sent as it was made";
            }
        }
    }
}

// A notification has no answer, streamed or not.
TEST(MCPServerTest, AStreamedTextToANotificationIsNotSent) {
    bool made = false;
    const auto [output, writes] = serve(R"({"jsonrpc":"2.0","method":"tools/call","params":{"name":"t"}})"
                                        "\n",
                                        MCPCallToolResult::streamedText([&](const TextSink&) { made = true; }));
    EXPECT_EQ(output, "");
    EXPECT_FALSE(made);
}

} // namespace
} // namespace unbulk
