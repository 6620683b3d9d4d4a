#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include "Models/Categories.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// What lies where on a developer's machine: tool caches, git worktrees, Xcode
// products, stray dependency folders, model weights and Docker disk images.
class DeveloperTargets {
public:
    DeveloperTargets(FileURL homeURL, std::optional<std::vector<FileURL>> applicationsURLs,
                     std::optional<std::vector<FileURL>> projectRoots, std::shared_ptr<FileSystem> fileSystem,
                     ProcessRunningCheck isProcessRunning = {});

    // The sub-scans that serve the given categories, in their fixed order.
    // Throws CancellationError when stop is requested between sub-scans.
    std::vector<DiscoveredItem> scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                     std::stop_token stop = {}) const;

    const FileURL& homeURL() const { return homeURL_; }
    const std::vector<FileURL>& applicationsURLs() const { return applicationsURLs_; }
    const std::vector<FileURL>& projectRoots() const { return projectRoots_; }

private:
    FileURL homeURL_;
    std::vector<FileURL> applicationsURLs_;
    std::vector<FileURL> projectRoots_;
    std::shared_ptr<FileSystem> fileSystem_;
    ProcessRunningCheck isProcessRunning_;
};

// /Applications, then <home>/Applications.
std::vector<FileURL> defaultApplicationsURLs(const FileURL& homeURL);

} // namespace unbulk
