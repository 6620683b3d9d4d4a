#include "mcp/JSONRPC.hpp"

#include "Support/Json.hpp"

#include <cmath>

namespace unbulk {
namespace {

const Json* member(const Json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() || it->is_null() ? nullptr : &*it;
}

std::string requiredString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr || !value->is_string()) {
        throw JSONRPCDecodingError(std::string("Expected a string for key '") + key + "'");
    }
    return value->get<std::string>();
}

} // namespace

JSONRPCId jsonRpcIdFromJson(const Json& json) {
    // The reader keeps a number above the signed range as unsigned, and
    // is_number_integer() holds for those too: they are tested first, so that
    // 2^63 and above are no id rather than another one.
    if (json.is_number_unsigned()) {
        if (json.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX)) {
            throw JSONRPCDecodingError("Expected String or Int id");
        }
        return JSONRPCId{static_cast<std::int64_t>(json.get<std::uint64_t>())};
    }
    if (json.is_number_integer()) return JSONRPCId{json.get<std::int64_t>()};
    // 3.0 is the integer 3; 1.5 is no id.
    if (json.is_number_float()) {
        const double d = json.get<double>();
        if (std::trunc(d) == d && d >= -9223372036854775808.0 && d < 9223372036854775808.0) {
            return JSONRPCId{static_cast<std::int64_t>(d)};
        }
    }
    if (json.is_string()) return JSONRPCId{json.get<std::string>()};
    throw JSONRPCDecodingError("Expected String or Int id");
}

Json toJson(const JSONRPCId& id) {
    return std::visit([](const auto& value) { return Json(value); }, id.value);
}

JSONRPCRequest jsonRpcRequestFromJson(const Json& json) {
    if (!json.is_object()) throw JSONRPCDecodingError("Expected an object");
    JSONRPCRequest request;
    request.jsonrpc = requiredString(json, "jsonrpc");
    request.method = requiredString(json, "method");
    if (const Json* id = member(json, "id")) request.id = jsonRpcIdFromJson(*id);
    if (const Json* params = member(json, "params")) request.params = jsonValueFromJson(*params);
    return request;
}

Json toJson(const JSONRPCRequest& request) {
    Json j{{"jsonrpc", request.jsonrpc}, {"method", request.method}};
    if (request.id) j["id"] = toJson(*request.id);
    if (request.params) j["params"] = toJson(*request.params);
    return j;
}

Json toJson(const JSONRPCError& error) {
    Json j{{"code", error.code}, {"message", error.message}};
    if (error.data) j["data"] = toJson(*error.data);
    return j;
}

Json toJson(const JSONRPCResponse& response) {
    Json j{{"jsonrpc", response.jsonrpc}};
    if (response.id) j["id"] = toJson(*response.id);
    if (response.result) j["result"] = toJson(*response.result);
    if (response.error) j["error"] = toJson(*response.error);
    return j;
}

JSONRPCResponse jsonRpcResponseFromJson(const Json& json) {
    if (!json.is_object()) throw JSONRPCDecodingError("Expected an object");
    JSONRPCResponse response;
    response.jsonrpc = requiredString(json, "jsonrpc");
    if (const Json* id = member(json, "id")) response.id = jsonRpcIdFromJson(*id);
    if (json.contains("result")) response.result = jsonValueFromJson(json.at("result"));
    if (const Json* error = member(json, "error")) {
        const Json* code = member(*error, "code");
        if (code == nullptr || !code->is_number_integer()) throw JSONRPCDecodingError("Expected an integer code");
        JSONRPCError decoded{code->get<int>(), requiredString(*error, "message"), std::nullopt};
        if (const Json* data = member(*error, "data")) decoded.data = jsonValueFromJson(*data);
        response.error = std::move(decoded);
    }
    return response;
}

} // namespace unbulk
