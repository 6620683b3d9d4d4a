#pragma once

#include <exception>
#include <string>

namespace unbulk {

// Why a removal operation was refused as a whole. Only the last two kinds are
// ever thrown: a problem with one item goes into that item's record and the
// operation goes on. The first four stay for callers that report an item's
// failure in the same words. `payload` is empty for the two without one.
struct TrashPipelineError : std::exception {
    enum class Kind {
        sandboxViolation,
        itemNotFound,
        itemLockedOrPermissionDenied,
        underlyingError,
        unconfirmedPermanentPurge,
        emptyTargetList,
    };

    explicit TrashPipelineError(Kind kind, std::string payload = {});

    Kind kind;
    std::string payload;

    const char* what() const noexcept override { return description.c_str(); }

    friend bool operator==(const TrashPipelineError& a, const TrashPipelineError& b) {
        return a.kind == b.kind && a.payload == b.payload;
    }

private:
    std::string description;
};

} // namespace unbulk
