#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <unordered_set>

#include "Platform/FileSystem.hpp"

namespace unbulk {

// The files already charged, by (device, inode): shared by the threads of one
// walk and, where a caller wants it, by several walks. Split into shards, each
// under its own lock, so that threads rarely wait on one another.
class InodeSet {
public:
    // A file with one link can be met only once in one tree, so a set for one
    // tree keeps only hard-linked files; a set shared by trees that may
    // overlap must keep every file.
    enum class Keeps { hardLinkedFiles, everyFile };

    explicit InodeSet(Keeps keeps = Keeps::hardLinkedFiles) : keeps_(keeps) {}
    InodeSet(const InodeSet&) = delete;
    InodeSet& operator=(const InodeSet&) = delete;

    // True the first time a file is offered (and always for a file with one
    // link, when the set keeps only hard-linked ones).
    bool firstTime(const FileStatus& file);

private:
    struct Key {
        std::uint64_t device;
        std::uint64_t inode;
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const noexcept {
            return std::hash<std::uint64_t>{}(key.inode * 0x9E3779B97F4A7C15ull ^ key.device);
        }
    };
    struct Shard {
        std::mutex mutex;
        std::unordered_set<Key, KeyHash> keys;
    };
    static constexpr std::size_t shardCount = 16;

    Keeps keeps_;
    std::array<Shard, shardCount> shards_;
};

} // namespace unbulk
