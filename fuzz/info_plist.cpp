// Info.plist reading on any bytes, XML or binary: it answers a dictionary or
// nothing, never crashes, and what it answers is valid JSON.
#include "FuzzSupport.hpp"
#include "Platform/PropertyList.hpp"
#include "Support/Json.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const std::string_view bytes = fuzz::text(data, size);
    const Json dictionary = PropertyList::parseDictionary(bytes);
    fuzz::require(dictionary.is_object());
    if (const auto document = PropertyList::parse(bytes)) (void)json::compact(*document);
    return 0;
}
