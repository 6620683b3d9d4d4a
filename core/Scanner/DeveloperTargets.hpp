#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Models/Categories.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ItemCollector.hpp"
#include "Scanner/ItemMeasurer.hpp"
#include "Scanner/RiskClassifier.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/Cancellation.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

class Processes;
class RuleRegistry;

// What lies where on a developer's machine: tool caches, git worktrees, Xcode
// products, stray dependency folders, model weights and Docker disk images.
// It holds no mutable state; every scan and measurement starts afresh.
//
// The sub-scans live in three files: DeveloperTargets.cpp (the frame and the
// package caches), DeveloperTargetsProjects.cpp (git worktrees, Xcode, stray
// node_modules) and DeveloperTargetsModels.cpp (model weights, Docker).
class DeveloperTargets {
public:
    // `applicationsURLs` are where Docker.app is looked for
    // (defaultApplicationsURLs). Absent project roots are the eight usual
    // project folders under the home; an absent classifier is one over the
    // same home, registry and file system.
    DeveloperTargets(FileURL homeURL, std::vector<FileURL> applicationsURLs,
                     std::optional<std::vector<FileURL>> projectRoots, std::shared_ptr<FileSystem> fileSystem,
                     std::shared_ptr<const RuleRegistry> ruleRegistry, ProcessRunningCheck isProcessRunning,
                     std::optional<RiskClassifier> riskClassifier = {});

    // The sub-scans that serve the given categories, in their fixed order:
    // they run at once, and their items and progress reports come out in
    // that order (ScanParts). Throws CancellationError when stop is
    // requested before a sub-scan's turn (or, in the git search, before a
    // root or repository); nothing found by the call is returned then.
    std::vector<DiscoveredItem> scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                     StopToken stop = {}) const;

    MeasuredMetrics measureItem(const FileURL& url) const;

    // A substring test without regard to case over the short names of the
    // processes running when it is asked.
    static ProcessRunningCheck processChecker(std::shared_ptr<const Processes> processes);

    const FileURL& homeURL() const { return homeURL_; }
    const std::vector<FileURL>& applicationsURLs() const { return applicationsURLs_; }
    const std::vector<FileURL>& projectRoots() const { return projectRoots_; }

private:
    // Package caches.
    std::vector<DiscoveredItem> scanUVCaches(const ScanProgressHandler& progress) const;
    std::vector<DiscoveredItem> scanPackageManagerCaches(const ScanProgressHandler& progress) const;
    std::vector<DiscoveredItem> scanHomebrewCaches(const ScanProgressHandler& progress) const;
    std::vector<DiscoveredItem> scanGradleCaches(const ScanProgressHandler& progress) const;

    // Projects.
    std::vector<DiscoveredItem> scanGitWorktrees(const ScanProgressHandler& progress, StopToken stop) const;
    std::vector<DiscoveredItem> scanXcodeArtifacts(const ScanProgressHandler& progress) const;
    std::vector<DiscoveredItem> scanStrayNodeModules(const ScanProgressHandler& progress) const;
    std::vector<FileURL> discoverGitRepositories(const FileURL& root, int maxDepth) const;
    // Text of a small regular file that git wrote, trimmed; nothing when it
    // cannot be read or is not UTF-8. Callers make sure it is a regular file:
    // a pipe in its place would hold the scan forever.
    std::optional<std::string> readGitPointerFile(const std::string& path) const;
    void checkLinkedCheckout(const FileURL& repository, const std::string& gitFile, ItemCollector& collector) const;
    void checkWorktreeRecords(const FileURL& repository, const FileURL& gitFolder, ItemCollector& collector) const;
    void offerOrphanedWorktree(const FileURL& url, std::string description, ItemCollector& collector) const;

    // Models and virtual machines.
    std::vector<DiscoveredItem> scanAIModelWeights(const ScanProgressHandler& progress) const;
    void scanHuggingFace(ItemCollector& collector) const;
    void scanWhisper(ItemCollector& collector) const;
    void scanLMStudio(ItemCollector& collector) const;
    std::vector<DiscoveredItem> scanDockerVMs(const ScanProgressHandler& progress) const;
    bool isDockerAppInstalled() const;
    bool isDockerDaemonRunning() const;

    // Shared by the sub-scans.
    FileURL homeChild(std::string_view relative, bool isDirectory = true) const;
    // Directory entries (full URLs) of a listing, or nothing when it fails.
    std::optional<std::vector<FileURL>> list(const FileURL& directory, ListOptions options) const;

    FileURL homeURL_;
    std::vector<FileURL> applicationsURLs_;
    std::vector<FileURL> projectRoots_;
    std::shared_ptr<FileSystem> fileSystem_;
    ProcessRunningCheck isProcessRunning_;
    std::shared_ptr<const RuleRegistry> ruleRegistry_;
    RiskClassifier riskClassifier_;
};

// <systemRoot>/Applications, then <home>/Applications.
std::vector<FileURL> defaultApplicationsURLs(const FileURL& homeURL, const std::string& systemRoot);

} // namespace unbulk
