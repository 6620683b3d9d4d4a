#include "mcp/MCPProtocol.hpp"

#include <algorithm>

#include "Support/Json.hpp"

namespace unbulk {

Json toJson(const MCPImplementationInfo& info) { return Json{{"name", info.name}, {"version", info.version}}; }

Json toJson(const MCPInitializeParams& params) {
    Json j{{"protocolVersion", params.protocolVersion}};
    if (params.capabilities) j["capabilities"] = toJson(*params.capabilities);
    if (params.clientInfo) j["clientInfo"] = toJson(*params.clientInfo);
    return j;
}

Json toJson(const MCPServerCapabilities& capabilities) {
    Json tools = Json::object();
    for (const auto& [key, value] : capabilities.tools)
        tools[key] = value;
    return Json{{"tools", tools}};
}

Json toJson(const MCPInitializeResult& result) {
    return Json{{"protocolVersion", result.protocolVersion},
                {"capabilities", toJson(result.capabilities)},
                {"serverInfo", toJson(result.serverInfo)}};
}

Json toJson(const MCPTool& tool) {
    return Json{{"name", tool.name}, {"description", tool.description}, {"inputSchema", toJson(tool.inputSchema)}};
}

Json toJson(const MCPToolsListResult& result) {
    Json tools = Json::array();
    for (const auto& tool : result.tools)
        tools.push_back(toJson(tool));
    return Json{{"tools", tools}};
}

Json toJson(const MCPCallToolParams& params) {
    Json j{{"name", params.name}};
    if (params.arguments) j["arguments"] = toJson(JSONValue(*params.arguments));
    return j;
}

std::string MCPToolContent::wholeText() const {
    if (!writeText) return text;
    std::string whole;
    writeText([&whole](std::string_view piece) { whole += piece; });
    return whole;
}

bool MCPCallToolResult::isStreamed() const {
    return std::any_of(content.begin(), content.end(), [](const MCPToolContent& item) { return bool(item.writeText); });
}

Json toJson(const MCPToolContent& content) { return Json{{"type", content.type}, {"text", content.wholeText()}}; }

Json toJson(const MCPCallToolResult& result) {
    Json content = Json::array();
    for (const auto& item : result.content)
        content.push_back(toJson(item));
    return Json{{"content", content}, {"isError", result.isError}};
}

} // namespace unbulk
