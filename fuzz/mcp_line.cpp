// One or more input lines through the server's decoding and dispatch, with
// the real tools in a temporary home: every answer is one JSON line, and
// nothing but protocol lines reaches the output.
#include <string>

#include "mcp/MCPServer.hpp"
#include "mcp/MCPTools.hpp"
#include "Support/Json.hpp"
#include "FuzzSupport.hpp"

namespace {

class MemoryHandle final : public unbulk::FileHandle {
public:
    explicit MemoryHandle(std::string_view input = {}) : input_(input) {}
    std::size_t read(char* buffer, std::size_t size) override {
        const std::size_t n = std::min(size, input_.size() - at_);
        input_.copy(buffer, n, at_);
        at_ += n;
        return n;
    }
    bool write(std::string_view bytes) override {
        written += bytes;
        return true;
    }
    std::string written;

private:
    std::string input_;
    std::size_t at_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    fuzz::temporaryHome();
    const std::string_view input = fuzz::text(data, size);
    // A clean_storage that is told to purge would remove what the fuzzer
    // names, inside the temporary home or outside it: leave that road to the
    // tests.
    if (input.find("permanent") != std::string_view::npos || input.find("dry_run") != std::string_view::npos) return 0;
    MemoryHandle in(input), out, errors;
    // The machine's services, with the home that temporaryHome() set.
    const Environment environment = makeSystemEnvironment();
    MCPServer(in, out, errors, MCPTools::serverTools(environment)).run();
    std::size_t start = 0;
    while (start < out.written.size()) {
        const std::size_t end = out.written.find('\n', start);
        fuzz::require(end != std::string::npos);
        fuzz::require(!Json::parse(out.written.substr(start, end - start), nullptr, false).is_discarded());
        start = end + 1;
    }
    return 0;
}
