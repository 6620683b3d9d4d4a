#include "Support/Json.hpp"

namespace unbulk::json {

// Invalid UTF-8 (a file name on Linux may hold any bytes) is replaced rather
// than thrown on, so that one odd name cannot sink a whole report.
std::string pretty(const Json& value) { return value.dump(2, ' ', false, Json::error_handler_t::replace); }

std::string compact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

} // namespace unbulk::json
