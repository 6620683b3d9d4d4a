#include "Scanner/DeveloperTargets.hpp"

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

// Folders the repository search never enters: dependency and build output,
// and the media and document folders of a home that is itself a repository.
constexpr std::array<std::string_view, 18> skippedSearchFolders{
    "node_modules", ".build", "Pods",    "Carthage", "vendor",    "build",     "dist",    "DerivedData", "Library",
    "Pictures",     "Music",  "Movies",  "Downloads", "Documents", "Desktop",  ".Trash",  ".cache",      ".local",
};

bool isSkippedSearchFolder(std::string_view name) {
    for (auto skipped : skippedSearchFolders) {
        if (skipped == name) return true;
    }
    return false;
}

// The search goes down to the grandchildren of a root and no further.
constexpr int repositorySearchDepth = 2;

// A `.git` file or a worktree's `gitdir` file holds one path. Anything past
// this size is not a file git wrote, and is not understood.
constexpr std::size_t gitPointerFileLimit = 64 * 1024;

constexpr std::string_view gitdirPrefix = "gitdir:";

// Where a path written in one of git's pointer files leads, as git itself
// reads it: an absolute path as it stands, a relative one against `base`
// (the folder that holds a `.git` file, or the record folder of a
// `.git/worktrees/<name>/gitdir`). Submodules have always been written
// relative ("gitdir: ../.git/modules/lib"), and worktrees are since git 2.48
// with --relative-paths. Reading them against the process's current
// directory, as the letter of the rule has it, would call every such
// checkout dangling and offer healthy work, uncommitted edits and all, for
// removal: the rule's own promise is to offer only what git itself has left
// dangling, and that promise wins. The ".." components are left for the
// kernel to resolve, through any link on the way, as git's own lookup does.
std::string gitPointerTarget(const FileURL& base, const std::string& written) {
    return paths::isAbsolute(written) ? written : base.path() + "/" + written;
}

} // namespace

// ---- git worktrees

std::vector<FileURL> DeveloperTargets::discoverGitRepositories(const FileURL& root, int maxDepth) const {
    std::vector<FileURL> repositories;
    std::function<void(const FileURL&, int)> search = [&](const FileURL& folder, int depth) {
        if (depth > maxDepth) return;
        auto entries = list(folder, ListOptions{.skipHiddenFiles = true});
        if (!entries) return;
        for (const FileURL& entry : *entries) {
            // The listing's own kind: a link to a folder is not followed.
            if (!entry.isDirectory() || isSkippedSearchFolder(entry.lastComponent())) continue;
            if (fileSystem_->fileExists(entry.appending(".git").path())) {
                repositories.push_back(entry); // nested repositories are not searched
            } else if (depth < maxDepth) {
                search(entry, depth + 1);
            }
        }
    };
    search(root, 1);
    return repositories;
}

std::vector<DiscoveredItem> DeveloperTargets::scanGitWorktrees(const ScanProgressHandler& progress,
                                                               StopToken stop) const {
    ItemCollector collector(riskClassifier_, progress);

    std::vector<FileURL> roots;
    for (const FileURL& root : projectRoots_) {
        if (fileSystem_->fileExists(root.path())) roots.push_back(root);
    }
    if (fileSystem_->fileExists(homeURL_.appending(".git").path())) roots.push_back(homeURL_);

    std::unordered_set<std::string> seenRepositories;
    for (const FileURL& root : roots) {
        throwIfCancelled(stop);
        std::vector<FileURL> repositories;
        if (fileSystem_->fileExists(root.appending(".git").path())) repositories.push_back(root);
        auto found = discoverGitRepositories(root, repositorySearchDepth);
        repositories.insert(repositories.end(), found.begin(), found.end());

        for (const FileURL& repository : repositories) {
            throwIfCancelled(stop);
            if (!seenRepositories.insert(repository.standardized().path()).second) continue;

            const FileURL gitURL = repository.appending(".git");
            PlatformError error;
            auto git = fileSystem_->status(gitURL.path(), error);
            if (!git) continue;
            if (git->kind == FileKind::directory) {
                checkWorktreeRecords(repository, FileURL(gitURL.path(), true), collector);
            } else if (git->kind == FileKind::regular) {
                checkLinkedCheckout(repository, gitURL.path(), collector);
            }
        }
    }
    return collector.take();
}

std::optional<std::string> DeveloperTargets::readGitPointerFile(const std::string& path) const {
    PlatformError error;
    auto contents = fileSystem_->readFile(path, gitPointerFileLimit + 1, error);
    if (!contents || contents->size() > gitPointerFileLimit || !unicode::scalars(*contents)) return std::nullopt;
    return std::string(unicode::trimmingWhitespaceAndNewlines(*contents));
}

void DeveloperTargets::offerOrphanedWorktree(const FileURL& url, std::string description,
                                             ItemCollector& collector) const {
    const MeasuredMetrics metrics = measureItem(url);
    if (!ItemMeasurer::passesKeepTest(metrics)) return;
    collector.add({.url = url,
                   .category = StorageCategory::developerCache,
                   .description = std::move(description),
                   .fallbackRuleId = "dev.git.orphaned_worktrees",
                   .classifyAsOrphaned = true,
                   .isOrphaned = true},
                  metrics);
}

// A linked checkout: its `.git` file points into the main repository's
// `.git/worktrees/<name>`. When that is gone, the checkout is left over.
void DeveloperTargets::checkLinkedCheckout(const FileURL& repository, const std::string& gitFile,
                                           ItemCollector& collector) const {
    auto text = readGitPointerFile(gitFile);
    if (!text || !text->starts_with(gitdirPrefix)) return;
    const std::string target(unicode::trimmingWhitespaceAndNewlines(std::string_view(*text).substr(gitdirPrefix.size())));
    if (target.empty() || fileSystem_->fileExists(gitPointerTarget(repository, target))) return;
    offerOrphanedWorktree(repository,
                          "Orphaned Git Worktree Checkout: " + repository.lastComponent() + " (main repository missing)",
                          collector);
}

// A main repository: each record in `.git/worktrees` names its checkout's
// `.git` file in `gitdir`. A record whose checkout is gone is dangling,
// unless it is locked (a `locked` file in the record, from `git worktree
// lock`): git keeps such a record for a checkout on a disk that is away,
// and so do we. A missing `worktrees` folder shows as a failed listing.
void DeveloperTargets::checkWorktreeRecords(const FileURL& repository, const FileURL& gitFolder,
                                            ItemCollector& collector) const {
    auto records = list(gitFolder.appending("worktrees", true), ListOptions{.skipHiddenFiles = true});
    if (!records) return;
    for (const FileURL& record : *records) {
        const std::string gitdir = record.appending("gitdir").path();
        PlatformError error;
        auto status = fileSystem_->status(gitdir, error);
        if (!status || status->kind != FileKind::regular) continue;
        auto target = readGitPointerFile(gitdir);
        if (!target || target->empty() || fileSystem_->fileExists(gitPointerTarget(record, *target))) continue;
        if (fileSystem_->linkStatus(record.appending("locked").path(), error)) continue;
        offerOrphanedWorktree(record,
                              "Orphaned Git Worktree: " + repository.lastComponent() + "/" + record.lastComponent() +
                                  " (target deleted)",
                              collector);
    }
}

// ---- Xcode

std::vector<DiscoveredItem> DeveloperTargets::scanXcodeArtifacts(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    auto offer = [&](const FileURL& url, std::string description, const char* fallbackRuleId) {
        const MeasuredMetrics metrics = measureItem(url);
        if (!ItemMeasurer::passesKeepTest(metrics)) return;
        collector.add({.url = url,
                       .category = StorageCategory::xcodeArtifacts,
                       .description = std::move(description),
                       .fallbackRuleId = fallbackRuleId},
                      metrics);
    };

    const FileURL derivedData = homeChild("Library/Developer/Xcode/DerivedData");
    if (fileSystem_->fileExists(derivedData.path())) {
        PlatformError error;
        auto entries = fileSystem_->contentsOfDirectory(derivedData.path(), ListOptions{.skipHiddenFiles = true},
                                                        error);
        if (!error && !entries.empty()) {
            for (const DirectoryEntry& entry : entries) {
                const FileURL url = derivedData.appending(entry.name, true);
                // A folder by the listing, or a link that leads to one.
                const bool isFolder = entry.kind == FileKind::directory ||
                                      (entry.kind != FileKind::regular && fileSystem_->isDirectory(url.path()));
                if (!isFolder) continue;
                offer(url, "Xcode DerivedData: " + entry.name, "dev.xcode.derived_data");
            }
        } else {
            offer(derivedData, "Xcode DerivedData Build Cache", "dev.xcode.derived_data");
        }
    }

    if (auto archives = fileSystem_->existingURL(homeChild("Library/Developer/Xcode/Archives").path())) {
        offer(*archives, "Xcode Release Archives (.xcarchive)", "dev.xcode.archives");
    }
    if (auto simulatorCaches = fileSystem_->existingURL(homeChild("Library/Developer/CoreSimulator/Caches").path())) {
        offer(*simulatorCaches, "Xcode Simulator Runtime Caches", "dev.xcode.simulator_caches");
    }
    return collector.take();
}

// ---- stray node_modules

std::vector<DiscoveredItem> DeveloperTargets::scanStrayNodeModules(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    // Only the home's own node_modules: a project's is its business. Whatever
    // lies there is offered, folder or not.
    const auto found = fileSystem_->existingURL(homeChild("node_modules").path());
    if (!found) return {};
    const FileURL& url = *found;
    const MeasuredMetrics metrics = measureItem(url);
    if (!ItemMeasurer::passesKeepTest(metrics)) return {};
    collector.add({.url = url,
                   .category = StorageCategory::strayDependencies,
                   .description = "Stray node_modules in User Home Root Directory",
                   .fallbackRuleId = "dev.stray.node_modules",
                   .classifyAsOrphaned = true,
                   .isOrphaned = true},
                  metrics);
    return collector.take();
}

} // namespace unbulk
