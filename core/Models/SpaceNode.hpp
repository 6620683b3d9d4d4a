#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Support/Dates.hpp"
#include "Support/EnumTable.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

enum class FileCategory { archives, diskImages, developerArtifacts, media, binaries, documents, other };

struct FileCategoryInfo {
    FileCategory value;
    std::string_view rawValue;
};

inline constexpr std::array<FileCategoryInfo, 7> fileCategoryTable{{
    {FileCategory::archives, "ARCHIVES"},
    {FileCategory::diskImages, "DISK_IMAGES"},
    {FileCategory::developerArtifacts, "DEVELOPER_ARTIFACTS"},
    {FileCategory::media, "MEDIA"},
    {FileCategory::binaries, "BINARIES"},
    {FileCategory::documents, "DOCUMENTS"},
    {FileCategory::other, "OTHER"},
}};

template <> struct EnumTable<FileCategory> {
    static constexpr std::string_view name = "FileCategory";
    static constexpr const auto& rows = fileCategoryTable;
};

// One file or directory of a space lens tree, its sizes rolled up from below.
struct SpaceNode {
    Uuid id;
    FileURL url;
    std::string path; // always url.path(); set by make()
    std::string name; // the last path component
    bool isDirectory = false;
    std::int64_t allocatedSizeBytes = 0;
    std::int64_t logicalSizeBytes = 0;
    std::int64_t itemCount = 0; // files below; at least 1 for a measured directory
    std::optional<Date> lastAccessedDate;
    std::optional<Date> lastModifiedDate;
    std::optional<std::vector<SpaceNode>> children; // absent on leaves and at the depth limit
    std::optional<FileCategory> fileCategory;       // absent on opened and cut-off directories

    // A new id, and path and name from url.
    static SpaceNode make(FileURL url, bool isDirectory);

    friend bool operator==(const SpaceNode&, const SpaceNode&) = default;
};

// Field by field, children included; an absent optional writes no key.
Json toJson(const SpaceNode& node, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);

} // namespace unbulk
