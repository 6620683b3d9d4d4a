#pragma once

#include <nlohmann/json_fwd.hpp>

namespace unbulk {

// The JSON value type, declared only: headers that merely name it (records
// with their toJson and fromJson declarations) include this, and the full
// nlohmann header is included where a document is built or read.
using Json = nlohmann::json;

} // namespace unbulk
