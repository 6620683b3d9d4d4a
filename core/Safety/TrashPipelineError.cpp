#include "Safety/TrashPipelineError.hpp"

namespace unbulk {
namespace {

std::string describe(TrashPipelineError::Kind kind, const std::string& payload) {
    using Kind = TrashPipelineError::Kind;
    switch (kind) {
    case Kind::sandboxViolation: return "Sandbox security violation: Path is forbidden: " + payload;
    case Kind::itemNotFound: return "Target item not found on disk: " + payload;
    case Kind::itemLockedOrPermissionDenied: return "Target item is locked or permission was denied: " + payload;
    case Kind::underlyingError: return "TrashPipeline filesystem error: " + payload;
    case Kind::unconfirmedPermanentPurge: return "Permanent purge was requested without explicit confirmation flag.";
    case Kind::emptyTargetList: return "No target items provided for cleanup operation.";
    }
    return payload;
}

} // namespace

TrashPipelineError::TrashPipelineError(Kind k, std::string p)
    : kind(k), payload(std::move(p)), description(describe(k, payload)) {}

} // namespace unbulk
