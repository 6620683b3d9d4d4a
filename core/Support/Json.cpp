#include "Support/Json.hpp"

namespace unbulk::json {

static_assert(maximumNestingDepth == 512, "the error's sentence names the limit");

Json parse(std::string_view text) {
    // The callback sees each container open at the depth of what holds it,
    // before the reader goes in; the reader itself keeps its own stack and
    // never recurses.
    const Json::parser_callback_t limit = [](int depth, Json::parse_event_t event, Json&) {
        if ((event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start) &&
            static_cast<std::size_t>(depth) >= maximumNestingDepth) {
            throw NestingTooDeepError();
        }
        return true;
    };
    return Json::parse(text.begin(), text.end(), limit);
}

// Invalid UTF-8 (a file name on Linux may hold any bytes) is replaced rather
// than thrown on, so that one odd name cannot sink a whole report.
std::string pretty(const Json& value) { return value.dump(2, ' ', false, Json::error_handler_t::replace); }

std::string compact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

} // namespace unbulk::json
