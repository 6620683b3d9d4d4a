#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace unbulk {

// Told of each item a parallel engine has finished with: its path and its
// allocated bytes. Called from the engine's worker threads, possibly several
// at once, so whoever listens synchronises.
using ItemProgress = std::function<void(const std::string& path, std::int64_t allocatedBytes)>;

} // namespace unbulk
