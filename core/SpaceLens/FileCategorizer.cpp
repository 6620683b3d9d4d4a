#include "SpaceLens/FileCategorizer.hpp"

#include <algorithm>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::FileCategorizer {
namespace {

template <std::size_t N> bool contains(const std::array<std::string_view, N>& table, const std::string& extension) {
    return std::find(table.begin(), table.end(), extension) != table.end();
}

} // namespace

FileCategory categorize(const FileURL& url, const FileTypes& fileTypes) {
    return categorize(url.lastComponent(), fileTypes);
}

FileCategory categorize(std::string_view fileName, const FileTypes& fileTypes) {
    const std::string name = unicode::lowercased(fileName);
    for (const char* special : {"package.swift", "cargo.toml", "package.json", "dockerfile", "makefile", "gemfile"}) {
        if (name == special) return FileCategory::developerArtifacts;
    }
    if (name.ends_with(".deriveddata") || name.ends_with(".appiconset")) return FileCategory::developerArtifacts;

    const std::string extension = unicode::lowercased(paths::pathExtension(fileName));
    if (contains(archiveExtensions, extension)) return FileCategory::archives;
    if (contains(diskImageExtensions, extension)) return FileCategory::diskImages;
    if (contains(developerExtensions, extension)) return FileCategory::developerArtifacts;
    if (contains(mediaExtensions, extension)) return FileCategory::media;
    if (contains(documentExtensions, extension)) return FileCategory::documents;
    if (contains(binaryExtensions, extension)) return FileCategory::binaries;

    const auto type = fileTypes.conformanceForExtension(extension);
    if (!type) return FileCategory::other;
    if (type->archive) return FileCategory::archives;
    if (type->diskImage) return FileCategory::diskImages;
    if (type->sourceCode) return FileCategory::developerArtifacts;
    if (type->audio || type->movie || type->image) return FileCategory::media;
    if (type->text || type->pdf) return FileCategory::documents;
    if (type->executable || type->application) return FileCategory::binaries;
    return FileCategory::other;
}

} // namespace unbulk::FileCategorizer
