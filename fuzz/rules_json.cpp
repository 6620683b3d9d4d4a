// rules.json decoding of any text: a catalog that decodes encodes to one that
// decodes to the same rules.
#include "Rules/RuleCatalog.hpp"
#include "Models/RuleDecoding.hpp"
#include "Support/Json.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const Json json = Json::parse(fuzz::text(data, size), nullptr, false);
    if (json.is_discarded()) return 0;
    try {
        const RuleCatalog catalog = ruleCatalogFromJson(json);
        const RuleCatalog again = ruleCatalogFromJson(Json::parse(json::pretty(toJson(catalog))));
        fuzz::require(again.rules.size() == catalog.rules.size());
    } catch (const RuleDecodingError&) {
    }
    return 0;
}
