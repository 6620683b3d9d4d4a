#include "Handlers.hpp"

#include "MCP/MCPServer.hpp"
#include "Platform/FileHandle.hpp"

namespace unbulk::cli {

int handleMCP(const Arguments&) {
    auto input = makeStandardInput();
    auto output = makeStandardOutput();
    auto errors = makeStandardError();
    MCPServer server(*input, *output, *errors);
    server.run();
    return 0;
}

} // namespace unbulk::cli
