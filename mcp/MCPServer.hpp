#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mcp/JSONRPC.hpp"
#include "mcp/MCPProtocol.hpp"
#include "Platform/FileHandle.hpp"

namespace unbulk {

// The Model Context Protocol over two byte streams: one JSON-RPC message per
// line in, one compact response line out, strictly one request after the
// other. The output carries protocol lines and nothing else; the one
// diagnostic line goes to the error stream. No state is kept between
// messages.
class MCPServer {
public:
    // What the server offers: the agent tools (MCPTools::serverTools), or a
    // test's own.
    struct Tools {
        std::function<std::vector<MCPTool>()> list;
        // Throws what the tool raises; the server turns it into a failed result.
        std::function<MCPCallToolResult(const std::string& name, const std::optional<JSONValue::Object>& arguments)>
            execute;
    };

    MCPServer(FileHandle& input, FileHandle& output, FileHandle& errors, Tools tools);

    // Serves lines until the input ends or a line is empty.
    void run();

    void handleRequest(const JSONRPCRequest& request);

private:
    std::string readLineData();
    void sendResult(const std::optional<JSONRPCId>& id, const Json& result);
    void sendResponse(const JSONRPCResponse& response);
    void sendStreamedResult(const JSONRPCId& id, const MCPCallToolResult& result);
    void callTool(const JSONRPCRequest& request);

    FileHandle& input_;
    FileHandle& output_;
    FileHandle& errors_;
    Tools tools_;
};

} // namespace unbulk
