// JSONValue decoding of any text, and its encoding back: a decoded value
// encodes to JSON that decodes to the same value.
#include "mcp/JSONValue.hpp"
#include "Support/Json.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const Json json = Json::parse(fuzz::text(data, size), nullptr, false);
    if (json.is_discarded()) return 0;
    try {
        const JSONValue value = jsonValueFromJson(json);
        const JSONValue again = jsonValueFromJson(Json::parse(json::compact(toJson(value))));
        // Numbers are doubles: compare through their JSON text, which is exact.
        fuzz::require(json::compact(toJson(again)) == json::compact(toJson(value)));
    } catch (const JSONValueError&) {
    }
    return 0;
}
