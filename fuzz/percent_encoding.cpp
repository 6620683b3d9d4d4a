// The percent-encoding of paths (file URLs and the Trash's .trashinfo Path=)
// against its decoder: only allowed characters come out, and decoding gives
// back the very bytes.
#include "Support/FileURL.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const std::string_view path = fuzz::text(data, size);
    const std::string encoded = percentEncodePath(path);
    for (char c : encoded) {
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             std::string_view("-._~!$&'()*+,;=:@/%").find(c) != std::string_view::npos;
        fuzz::require(allowed);
    }
    const auto decoded = percentDecode(encoded);
    fuzz::require(decoded && *decoded == path);
    if (!path.empty() && path.front() == '/' && path.find('\0') == std::string_view::npos) {
        const FileURL original{std::string(path)};
        const auto url = FileURL::parse(original.absoluteString());
        fuzz::require(url && url->path() == original.path());
    }
    return 0;
}
