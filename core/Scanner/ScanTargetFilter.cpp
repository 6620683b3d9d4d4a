#include "Scanner/ScanTargetFilter.hpp"

#include <algorithm>
#include <iterator>
#include <set>
#include <span>
#include <utility>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

bool startsWithAny(std::string_view text, std::span<const std::string_view> prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](std::string_view prefix) { return text.starts_with(prefix); });
}

} // namespace

ScanTargetFilter::ScanTargetFilter(ScanTargetSet disabledTargets, const std::vector<std::string>& excludedPaths,
                                   FileURL homeURL, std::shared_ptr<FileSystem> fileSystem)
    : disabledTargets_(std::move(disabledTargets)), homeURL_(std::move(homeURL)),
      fileSystem_(std::move(fileSystem)) {
    for (const auto& path : excludedPaths) {
        if (auto normalized = normalize(path, homeURL_)) excludedPaths_.push_back(std::move(*normalized));
    }
}

bool ScanTargetFilter::isPassThrough() const { return disabledTargets_.empty() && excludedPaths_.empty(); }

std::optional<CategorySet> ScanTargetFilter::categoriesToScan() const {
    CategorySet owned;
    for (ScanTarget target : disabledTargets_) {
        for (StorageCategory category : info(target).ownedCategories) owned.insert(category);
    }
    // A target that owns no category (cargo, homebrew...) cannot be skipped
    // by category; its items are dropped afterwards instead.
    if (owned.empty()) return std::nullopt;
    CategorySet toScan;
    for (StorageCategory category : allCases<StorageCategory>()) {
        if (!owned.contains(category)) toScan.insert(category);
    }
    return toScan;
}

std::optional<ScanTarget> ScanTargetFilter::disabledTarget(const DiscoveredItem& item) const {
    const std::string path = normalize(item.path, homeURL_).value_or(item.path);
    for (ScanTarget target : disabledTargets_) {
        const auto& row = info(target);
        const auto& owned = row.ownedCategories;
        if (std::find(owned.begin(), owned.end(), item.category) != owned.end()) return target;
        if (item.ruleId && startsWithAny(*item.ruleId, row.ruleIdPrefixes.view())) return target;
        for (std::string_view relative : row.homeRelativePaths) {
            const std::string root = paths::standardize(paths::appending(homeURL_.path(), relative));
            if (paths::isSameOrBelow(path, root)) return target;
        }
    }
    return std::nullopt;
}

std::string ScanTargetFilter::resolved(const std::string& path) const {
    return paths::standardize(fileSystem_->resolvingSymlinks(path));
}

std::vector<std::string> ScanTargetFilter::excludedVariants() const {
    std::vector<std::string> variants;
    for (const auto& excluded : excludedPaths_) {
        variants.push_back(excluded);
        if (std::string real = resolved(excluded); real != excluded) variants.push_back(std::move(real));
    }
    return variants;
}

bool ScanTargetFilter::isExcluded(const std::string& path, const std::vector<std::string>& variants) const {
    if (variants.empty()) return false;
    // Both where the path says it is and where its links lead: an item
    // reached through a link is excluded by either place.
    const std::set<std::string> candidates{normalize(path, homeURL_).value_or(path), resolved(path)};
    for (const auto& candidate : candidates) {
        for (const auto& variant : variants) {
            if (paths::isSameOrBelow(candidate, variant)) return true;
        }
    }
    return false;
}

bool ScanTargetFilter::isExcluded(const std::string& path) const { return isExcluded(path, excludedVariants()); }

bool ScanTargetFilter::allows(const DiscoveredItem& item) const {
    return !disabledTarget(item) && !isExcluded(item.path);
}

ScanResult ScanTargetFilter::apply(const ScanResult& result) const {
    if (isPassThrough()) return result;
    // The excluded places are resolved once for the whole result, not once
    // per item.
    const std::vector<std::string> variants = excludedVariants();
    std::vector<DiscoveredItem> kept;
    kept.reserve(result.items.size());
    std::copy_if(result.items.begin(), result.items.end(), std::back_inserter(kept), [&](const DiscoveredItem& item) {
        return !disabledTarget(item) && !isExcluded(item.path, variants);
    });
    if (kept.size() == result.items.size()) return result;

    ScanResult filtered;
    filtered.scanId = result.scanId;
    filtered.startedAt = result.startedAt;
    filtered.completedAt = result.completedAt;
    filtered.durationSeconds = result.durationSeconds;
    filtered.summary = ScanSummary::from(kept);
    filtered.items = std::move(kept);
    filtered.warnings = result.warnings;
    filtered.scannedCategories = result.scannedCategories;
    return filtered;
}

std::optional<std::string> ScanTargetFilter::normalize(std::string_view path, const FileURL& homeURL) {
    std::string expanded(unicode::trimmingWhitespaceAndNewlines(path));
    if (expanded.empty()) return std::nullopt;
    if (expanded == "~") {
        expanded = homeURL.path();
    } else if (expanded.starts_with("~/")) {
        expanded = homeURL.path() + expanded.substr(1);
    }
    // Relative paths have no meaning here, and "~user" is not expanded.
    if (!paths::isAbsolute(expanded)) return std::nullopt;
    return paths::standardize(expanded); // no trailing slash but for "/" itself
}

} // namespace unbulk
