#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Support/Dates.hpp"
#include "Support/JsonFwd.hpp"

namespace unbulk {

// Why a rule or a rule catalog could not be read from JSON. Decoding is
// strict: the first missing key, wrong type or unknown value fails the whole
// document, and `codingPath` says where ("rules[2].category"; empty for the
// document itself).
struct RuleDecodingError : std::exception {
    enum class Kind { keyNotFound, typeMismatch, dataCorrupted };

    Kind kind;
    std::string codingPath;
    std::string detail; // typeMismatch: what was expected and found; dataCorrupted: what is wrong

    RuleDecodingError(Kind kind, std::string codingPath, std::string detail = {});

    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

// Checked reads of one JSON object of a rule document, each failure a
// RuleDecodingError that names the key's path. A key holding null counts as
// missing for the optional reads and as a type mismatch for the required ones.
class RuleJsonReader {
public:
    // Fails with typeMismatch unless `object` is a JSON object.
    RuleJsonReader(const Json& object, std::string codingPath);

    std::string pathOf(std::string_view key) const;

    const Json& required(std::string_view key) const;
    std::string string(std::string_view key) const;
    bool boolean(std::string_view key) const;
    int integer(std::string_view key) const;
    Date date(std::string_view key) const;
    std::vector<std::string> strings(std::string_view key) const;
    // The array at `key`; its elements are the caller's to read.
    const Json& array(std::string_view key) const;

    std::optional<std::string> optionalString(std::string_view key) const;
    std::optional<int> optionalInt(std::string_view key) const;
    std::optional<Date> optionalDate(std::string_view key) const;

private:
    const Json* find(std::string_view key) const; // nullptr when missing or null

    const Json& object_;
    std::string codingPath_;
};

} // namespace unbulk
