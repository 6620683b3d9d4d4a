#include "Handlers.hpp"

#include "mcp/MCPServer.hpp"
#include "mcp/MCPTools.hpp"
#include "Platform/FileHandle.hpp"

namespace unbulk::cli {

int handleMCP(const Environment& environment, const Arguments&) {
    auto input = makeStandardInput();
    auto output = makeStandardOutput();
    auto errors = makeStandardError();
    MCPServer server(*input, *output, *errors, MCPTools::serverTools(environment));
    server.run();
    return 0;
}

} // namespace unbulk::cli
