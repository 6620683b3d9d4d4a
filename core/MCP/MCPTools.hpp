#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MCP/JSONValue.hpp"
#include "MCP/MCPProtocol.hpp"

// The tools the agent interface offers, and their handlers. Each call builds
// its engines afresh for the current user's home with the real file system;
// nothing survives from one call to the next except on disk.
namespace unbulk::MCPTools {

// In the order they are offered.
std::vector<MCPTool> listTools();

// Runs the named tool. An unknown name or a missing required argument is a
// result with isError set; what an engine raises is thrown on, for the server
// to report as a failed call.
MCPCallToolResult execute(const std::string& name, const std::optional<JSONValue::Object>& arguments);

} // namespace unbulk::MCPTools
