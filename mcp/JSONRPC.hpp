#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include "mcp/JSONValue.hpp"
#include "Support/JsonFwd.hpp"

// The JSON-RPC 2.0 vocabulary: four small records that only make sense
// together, so they share a file.
namespace unbulk {

// A request id: an integer or a string, nothing else (1.5 and true are no ids).
struct JSONRPCId {
    std::variant<std::int64_t, std::string> value;

    friend bool operator==(const JSONRPCId&, const JSONRPCId&) = default;
    friend auto operator<=>(const JSONRPCId&, const JSONRPCId&) = default;
};

struct JSONRPCError {
    int code = 0;
    std::string message;
    std::optional<JSONValue> data;

    static JSONRPCError parseError() { return {-32700, "Parse error", std::nullopt}; }
    // Never sent by the server loop; here for completeness.
    static JSONRPCError invalidRequest() { return {-32600, "Invalid Request", std::nullopt}; }
    static JSONRPCError methodNotFound() { return {-32601, "Method not found", std::nullopt}; }
    static JSONRPCError invalidParams() { return {-32602, "Invalid params", std::nullopt}; }
    static JSONRPCError internalError() { return {-32603, "Internal error", std::nullopt}; }

    friend bool operator==(const JSONRPCError&, const JSONRPCError&) = default;
};

struct JSONRPCRequest {
    std::string jsonrpc = "2.0"; // read, never tested
    std::optional<JSONRPCId> id; // absent: a notification
    std::string method;
    std::optional<JSONValue> params;

    JSONRPCRequest() = default;
    JSONRPCRequest(std::optional<JSONRPCId> requestId, std::string methodName, std::optional<JSONValue> parameters)
        : id(std::move(requestId)), method(std::move(methodName)), params(std::move(parameters)) {}

    friend bool operator==(const JSONRPCRequest&, const JSONRPCRequest&) = default;
};

struct JSONRPCResponse {
    std::string jsonrpc = "2.0";
    std::optional<JSONRPCId> id;
    std::optional<JSONValue> result;
    std::optional<JSONRPCError> error;

    static JSONRPCResponse withResult(std::optional<JSONRPCId> id, JSONValue result) {
        return {"2.0", std::move(id), std::move(result), std::nullopt};
    }
    static JSONRPCResponse withError(std::optional<JSONRPCId> id, JSONRPCError error) {
        return {"2.0", std::move(id), std::nullopt, std::move(error)};
    }

    friend bool operator==(const JSONRPCResponse&, const JSONRPCResponse&) = default;
};

// A message that is not what its reader expects, with the reason.
struct JSONRPCDecodingError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Integer first, then string; anything else throws "Expected String or Int id".
JSONRPCId jsonRpcIdFromJson(const Json& json);
Json toJson(const JSONRPCId& id);

// `jsonrpc` and `method` are required strings; a null `id` or `params` reads
// as absent. Throws JSONRPCDecodingError (or JSONValueError).
JSONRPCRequest jsonRpcRequestFromJson(const Json& json);
Json toJson(const JSONRPCRequest& request);

// Absent optionals write no key.
Json toJson(const JSONRPCError& error);
Json toJson(const JSONRPCResponse& response);
JSONRPCResponse jsonRpcResponseFromJson(const Json& json);

} // namespace unbulk
