#include "Scanner/DeveloperTargets.hpp"

#include "Support/Cancellation.hpp"

namespace unbulk {
namespace {

std::vector<FileURL> defaultProjectRoots(const FileURL& homeURL) {
    std::vector<FileURL> roots;
    for (const char* name : {"Developer", "Projects", "Workspace", "src", "Code", "Development", "repos", "git"}) {
        roots.push_back(homeURL.appending(name, true));
    }
    return roots;
}

} // namespace

std::vector<FileURL> defaultApplicationsURLs(const FileURL& homeURL) {
    return {FileURL("/Applications", true), homeURL.appending("Applications", true)};
}

DeveloperTargets::DeveloperTargets(FileURL homeURL, std::optional<std::vector<FileURL>> applicationsURLs,
                                   std::optional<std::vector<FileURL>> projectRoots,
                                   std::shared_ptr<FileSystem> fileSystem, ProcessRunningCheck isProcessRunning)
    : homeURL_(std::move(homeURL)),
      applicationsURLs_(applicationsURLs ? std::move(*applicationsURLs) : defaultApplicationsURLs(homeURL_)),
      projectRoots_(projectRoots ? std::move(*projectRoots) : defaultProjectRoots(homeURL_)),
      fileSystem_(std::move(fileSystem)),
      isProcessRunning_(std::move(isProcessRunning)) {}

std::vector<DiscoveredItem> DeveloperTargets::scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                                   std::stop_token stop) const {
    (void)categories;
    (void)progress;
    throwIfCancelled(stop);
    // The sub-scans (package caches, git worktrees, model weights, Docker
    // images, Xcode products, stray node_modules) are not built yet; until
    // they are, the stage finds nothing.
    return {};
}

} // namespace unbulk
