// The Mach-O header reader on any bytes: an answer for every input, and only
// the first 4096 bytes ever matter.
#include "FuzzSupport.hpp"
#include "Uninstaller/MachOHeader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const std::string_view bytes = fuzz::text(data, size);
    const AppArchitecture architecture = MachOHeader::architectureOf(bytes);
    if (bytes.size() > MachOHeader::bytesRead) {
        fuzz::require(MachOHeader::architectureOf(bytes.substr(0, MachOHeader::bytesRead)) == architecture);
    }
    return 0;
}
