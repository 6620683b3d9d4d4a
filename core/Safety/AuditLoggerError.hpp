#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace unbulk {

// Why the audit log could not be written, read or parsed. `line` is set for
// decodingFailed only: the 1-based position among the log's non-blank lines.
struct AuditLoggerError : std::exception {
    enum class Kind {
        directoryCreationFailed,
        writeFailed,
        readFailed,
        decodingFailed,
    };

    AuditLoggerError(Kind kind, std::string payload, std::int64_t line = 0);

    Kind kind;
    std::string payload;
    std::int64_t line;

    const char* what() const noexcept override { return description.c_str(); }

    friend bool operator==(const AuditLoggerError& a, const AuditLoggerError& b) {
        return a.kind == b.kind && a.payload == b.payload && a.line == b.line;
    }

private:
    std::string description;
};

} // namespace unbulk
