#include "Platform/FileSystem.hpp"

namespace unbulk {
namespace {

class PlatformErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "unbulk.platform"; }
    std::string message(int) const override { return "The item changed after it was checked"; }
};

} // namespace

std::error_code changedSinceCheckedError() {
    static const PlatformErrorCategory category;
    return {1, category};
}

bool FileSystem::fileExists(const std::string& path) const {
    PlatformError error;
    return status(path, error).has_value();
}

bool FileSystem::isDirectory(const std::string& path) const {
    PlatformError error;
    auto st = status(path, error);
    return st && st->kind == FileKind::directory;
}

FileURL FileSystem::fileURL(const std::string& path) const { return FileURL(path, isDirectory(path)); }

std::optional<FileURL> FileSystem::existingURL(const std::string& path) const {
    PlatformError error;
    auto st = status(path, error);
    if (!st) return std::nullopt;
    return FileURL(path, st->kind == FileKind::directory);
}

} // namespace unbulk
