#pragma once

#include <cstdint>
#include <string>

namespace unbulk::testing {

// A chain of `depth` nested directories "d" below `root` (which must exist),
// made relative to descriptors, since its paths are far longer than any
// path the system takes whole. Every `fileEvery`-th level holds one file
// "f" of `fileSize` bytes. Answers how many files it made.
std::int64_t makeDeepChain(const std::string& root, int depth, int fileEvery, std::int64_t fileSize);

// A comb: the same chain of "d", where every level also holds
// `leavesPerLevel` directories, each with one file of `fileSize` bytes, named
// after their level so that their order among the level's entries changes
// from level to level. Answers how many files it made.
std::int64_t makeComb(const std::string& root, int depth, int leavesPerLevel, std::int64_t fileSize);

// Lowers this process's soft limit of open descriptors for the life of the
// object (macOS starts processes with 256), and puts the old one back.
class DescriptorLimit {
public:
    explicit DescriptorLimit(std::uint64_t limit);
    ~DescriptorLimit();
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    std::uint64_t saved_;
};

} // namespace unbulk::testing
