#include "mcp/MCPServer.hpp"

#include <exception>

#include "Support/Json.hpp"

namespace unbulk {

MCPServer::MCPServer(FileHandle& input, FileHandle& output, FileHandle& errors, Tools tools)
    : input_(input), output_(output), errors_(errors), tools_(std::move(tools)) {}

void MCPServer::run() {
    for (;;) {
        const std::string line = readLineData();
        // A blank line ends the server as the end of input does: the two
        // cannot be told apart here.
        if (line.empty()) return;
        JSONRPCRequest request;
        try {
            request = jsonRpcRequestFromJson(json::parse(line));
        } catch (const std::exception&) {
            sendResponse(JSONRPCResponse::withError(std::nullopt, JSONRPCError::parseError()));
            continue;
        }
        handleRequest(request);
    }
}

// One byte at a time, so that nothing of the next message is consumed before
// this one is answered.
std::string MCPServer::readLineData() {
    std::string line;
    char byte = 0;
    while (input_.read(&byte, 1) == 1) {
        if (byte == '\n') break;
        if (byte == '\r') continue;
        line += byte;
    }
    return line;
}

void MCPServer::handleRequest(const JSONRPCRequest& request) {
    const std::string& method = request.method;
    if (method == "initialize") {
        const MCPInitializeResult result{"2024-11-05", MCPServerCapabilities{{{"listChanged", true}}},
                                         MCPImplementationInfo{"unbulk", "1.0.0"}};
        sendResult(request.id, toJson(result));
    } else if (method == "notifications/initialized") {
        // Nothing at all, with or without an id.
    } else if (method == "ping") {
        sendResult(request.id, Json::object());
    } else if (method == "tools/list") {
        sendResult(request.id, toJson(MCPToolsListResult{tools_.list()}));
    } else if (method == "tools/call") {
        callTool(request);
    } else {
        sendResponse(JSONRPCResponse::withError(request.id, JSONRPCError::methodNotFound()));
    }
}

void MCPServer::callTool(const JSONRPCRequest& request) {
    const JSONValue::Object* params = request.params ? request.params->objectValue() : nullptr;
    const std::string* name = nullptr;
    if (params != nullptr && !params->empty()) {
        auto it = params->find("name");
        if (it != params->end()) name = it->second.stringValue();
    }
    if (name == nullptr) {
        sendResponse(JSONRPCResponse::withError(request.id, JSONRPCError::invalidParams()));
        return;
    }
    // Arguments of another type than an object count as none.
    std::optional<JSONValue::Object> arguments;
    if (auto it = params->find("arguments"); it != params->end() && it->second.objectValue()) {
        arguments = *it->second.objectValue();
    }
    MCPCallToolResult result;
    try {
        result = tools_.execute(*name, arguments);
    } catch (const std::exception& error) {
        result = MCPCallToolResult::text(std::string("Tool execution failed: ") + error.what(), true);
    }
    if (result.isStreamed()) {
        if (request.id) sendStreamedResult(*request.id, result);
        return;
    }
    sendResult(request.id, toJson(result));
}

// The response line of a result whose text is made as it is sent, written
// as it is made: the same bytes as sendResult would write of the whole text
// (keys in order, the text escaped as one string), with never more than a
// piece of it held.
void MCPServer::sendStreamedResult(const JSONRPCId& id, const MCPCallToolResult& result) {
    constexpr std::size_t pieceSize = 1 << 16;
    std::string line = "{\"id\":" + json::compact(toJson(id)) + ",\"jsonrpc\":";
    json::appendString(line, JSONRPCResponse::withResult(id, {}).jsonrpc);
    line += ",\"result\":{\"content\":[";
    for (std::size_t i = 0; i < result.content.size(); ++i) {
        const MCPToolContent& item = result.content[i];
        if (i > 0) line += ',';
        line += "{\"text\":\"";
        if (item.writeText) {
            item.writeText([&](std::string_view piece) {
                json::appendStringContent(line, piece);
                if (line.size() < pieceSize) return;
                output_.write(line);
                line.clear();
            });
        } else {
            json::appendStringContent(line, item.text);
        }
        line += "\",\"type\":";
        json::appendString(line, item.type);
        line += '}';
    }
    line += "],\"isError\":";
    line += result.isError ? "true" : "false";
    line += "}}\n";
    output_.write(line);
}

// Every result travels through the dynamic value form before it is sent.
void MCPServer::sendResult(const std::optional<JSONRPCId>& id, const Json& result) {
    if (!id) return;
    try {
        sendResponse(JSONRPCResponse::withResult(id, jsonValueFromJson(result)));
    } catch (const std::exception&) {
        sendResponse(JSONRPCResponse::withError(id, JSONRPCError::internalError()));
    }
}

void MCPServer::sendResponse(const JSONRPCResponse& response) {
    std::string line;
    try {
        line = json::compact(toJson(response));
    } catch (const std::exception& error) {
        errors_.write(std::string("Failed to write JSON-RPC response: ") + error.what() + "\n");
        return;
    }
    output_.write(line);
    output_.write("\n");
}

} // namespace unbulk
