#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mcp/JSONValue.hpp"
#include "mcp/MCPProtocol.hpp"
#include "mcp/MCPServer.hpp"
#include "Platform/Environment.hpp"

// The tools the agent interface offers, and their handlers. Each call builds
// its engines afresh from the server's Environment (Operations/Engines);
// nothing survives from one call to the next except on disk.
namespace unbulk::MCPTools {

// In the order they are offered.
std::vector<MCPTool> listTools();

// Runs the named tool. An unknown name or a missing required argument is a
// result with isError set; what an engine raises is thrown on, for the server
// to report as a failed call.
MCPCallToolResult execute(const Environment& environment, const std::string& name,
                          const std::optional<JSONValue::Object>& arguments);

// What a server offers: these tools over `environment`, which must outlive it.
MCPServer::Tools serverTools(const Environment& environment);

} // namespace unbulk::MCPTools
