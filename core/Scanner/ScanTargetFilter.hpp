#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ScanTarget.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// Narrows a scan for a host that lets its user switch off kinds of cleanup:
// before the scan, by the categories left to scan; after it, by dropping the
// items that a disabled target owns or that lie in an excluded place.
class ScanTargetFilter {
public:
    // Every excluded path goes through normalize(); what it refuses is
    // dropped and the rest keep their order. The file system resolves
    // symbolic links for isExcluded().
    ScanTargetFilter(ScanTargetSet disabledTargets, const std::vector<std::string>& excludedPaths, FileURL homeURL,
                     std::shared_ptr<FileSystem> fileSystem);

    const ScanTargetSet& disabledTargets() const { return disabledTargets_; }
    const std::vector<std::string>& excludedPaths() const { return excludedPaths_; }
    const FileURL& homeURL() const { return homeURL_; }

    // Nothing disabled and nothing excluded: apply() changes nothing.
    bool isPassThrough() const;

    // The categories a scan should cover, or nothing for all of them, which
    // is also the answer when no disabled target owns a whole category.
    std::optional<CategorySet> categoriesToScan() const;

    // A disabled target that claims the item by its category, its rule id or
    // its place below the home directory. Which one, when several do, is of
    // no consequence: only whether there is one is ever used.
    std::optional<ScanTarget> disabledTarget(const DiscoveredItem& item) const;

    // True when the path, as written or with its symbolic links resolved,
    // equals or lies below an excluded path or that path's resolved form.
    bool isExcluded(const std::string& path) const;

    bool allows(const DiscoveredItem& item) const;

    // The result without the items the filter does not allow, with a summary
    // recomputed from what is left. The result comes back as it was when
    // nothing is dropped.
    ScanResult apply(const ScanResult& result) const;

    // Trims blanks and newlines, expands "~" and "~/..." against the home,
    // standardises, and removes trailing slashes (the root stays "/").
    // Nothing for an empty, relative or "~user" path.
    static std::optional<std::string> normalize(std::string_view path, const FileURL& homeURL);

    // The file system is a collaborator, not part of the value.
    friend bool operator==(const ScanTargetFilter& a, const ScanTargetFilter& b) {
        return a.disabledTargets_ == b.disabledTargets_ && a.excludedPaths_ == b.excludedPaths_ &&
               a.homeURL_ == b.homeURL_;
    }

private:
    std::string resolved(const std::string& path) const;
    // Each excluded path and, where it differs, its resolved location.
    std::vector<std::string> excludedVariants() const;
    bool isExcluded(const std::string& path, const std::vector<std::string>& variants) const;

    ScanTargetSet disabledTargets_;
    std::vector<std::string> excludedPaths_;
    FileURL homeURL_;
    std::shared_ptr<FileSystem> fileSystem_;
};

} // namespace unbulk
