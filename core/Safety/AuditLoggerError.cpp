#include "Safety/AuditLoggerError.hpp"

namespace unbulk {
namespace {

std::string describe(AuditLoggerError::Kind kind, const std::string& payload, std::int64_t line) {
    using Kind = AuditLoggerError::Kind;
    switch (kind) {
    case Kind::directoryCreationFailed:
        return "Failed to create ~/.unbulk directory: " + payload;
    case Kind::writeFailed:
        return "Failed to write audit log entry: " + payload;
    case Kind::readFailed:
        return "Failed to read audit log file: " + payload;
    case Kind::decodingFailed:
        return "Failed to parse audit log at line " + std::to_string(line) + ": " + payload;
    }
    return payload;
}

} // namespace

AuditLoggerError::AuditLoggerError(Kind k, std::string p, std::int64_t l)
    : kind(k), payload(std::move(p)), line(l), description(describe(k, payload, l)) {}

} // namespace unbulk
