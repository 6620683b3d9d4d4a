#pragma once

#include <cstdint>
#include <string>

#include "Platform/FileSystem.hpp"

namespace unbulk::testing {

// The regular files at or below `path` (or `path` itself), as lstat tells
// them apart from the code under test: links are neither followed nor
// counted, and every name of a file counts with all its bytes.
struct DiskUsage {
    std::int64_t logical = 0, allocated = 0, files = 0;
};
DiskUsage diskUsage(const std::string& path);

// The whole contents of a file; empty when it cannot be read.
std::string readAll(const std::string& path);

// The identity of what is at `path` itself, as a removal is told to expect it.
Identity identityOf(const std::string& path);

} // namespace unbulk::testing
