#include "Platform/InodeSet.hpp"

namespace unbulk {

bool InodeSet::firstTime(const FileStatus& file) {
    if (keeps_ == Keeps::hardLinkedFiles && file.linkCount <= 1) return true;
    const Key key{file.device, file.inode};
    Shard& shard = shards_[KeyHash{}(key) % shardCount];
    std::lock_guard lock(shard.mutex);
    return shard.keys.insert(key).second;
}

} // namespace unbulk
