#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "mcp/JSONValue.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/TextSink.hpp"

// The Model Context Protocol records this server speaks, JSON-coded under
// their field names. They are one vocabulary, so they share a file.
namespace unbulk {

struct MCPImplementationInfo {
    std::string name;
    std::string version;
};

// The server does not read initialize's parameters; the record completes the
// vocabulary.
struct MCPInitializeParams {
    std::string protocolVersion;
    std::optional<JSONValue> capabilities;
    std::optional<MCPImplementationInfo> clientInfo;
};

struct MCPServerCapabilities {
    std::map<std::string, bool> tools;
};

struct MCPInitializeResult {
    std::string protocolVersion;
    MCPServerCapabilities capabilities;
    MCPImplementationInfo serverInfo;
};

struct MCPTool {
    std::string name;
    std::string description;
    JSONValue inputSchema;
};

struct MCPToolsListResult {
    std::vector<MCPTool> tools;
};

// Likewise vocabulary: the server picks name and arguments out of the raw
// parameters itself.
struct MCPCallToolParams {
    std::string name;
    std::optional<JSONValue::Object> arguments;
};

struct MCPToolContent {
    std::string type = "text";
    std::string text;
    // In place of `text`, a text too long to hold whole (a large directory
    // tree as JSON), made piece by piece as it is sent.
    std::function<void(const TextSink& write)> writeText;

    // `text`, or what writeText makes, gathered.
    std::string wholeText() const;
};

struct MCPCallToolResult {
    std::vector<MCPToolContent> content;
    bool isError = false;

    // One text item.
    static MCPCallToolResult text(std::string text, bool isError = false) {
        return {{MCPToolContent{"text", std::move(text), {}}}, isError};
    }
    // One text item made as it is sent.
    static MCPCallToolResult streamedText(std::function<void(const TextSink& write)> writeText) {
        return {{MCPToolContent{"text", {}, std::move(writeText)}}, false};
    }

    bool isStreamed() const;
};

Json toJson(const MCPImplementationInfo& info);
Json toJson(const MCPInitializeParams& params);
Json toJson(const MCPServerCapabilities& capabilities);
Json toJson(const MCPInitializeResult& result);
Json toJson(const MCPTool& tool);
Json toJson(const MCPToolsListResult& result);
Json toJson(const MCPCallToolParams& params);
Json toJson(const MCPToolContent& content);
Json toJson(const MCPCallToolResult& result);

} // namespace unbulk
