#include "Uninstaller/AppScanner.hpp"

#include <algorithm>
#include <mutex>
#include <set>
#include <unordered_set>

#include <tbb/task_group.h>

#include "Platform/LocalizedCompare.hpp"
#include "Platform/PropertyList.hpp"
#include "Platform/InodeSet.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Uninstaller/MachOHeader.hpp"

namespace unbulk {
namespace {

// A string value of the dictionary; any other type counts as missing.
std::optional<std::string> stringValue(const Json& info, const char* key) {
    auto it = info.find(key);
    if (it == info.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

std::string baseName(const FileURL& bundleURL) {
    std::string name = bundleURL.lastComponent();
    const std::string extension = paths::pathExtension(name);
    if (!extension.empty()) name.resize(name.size() - extension.size() - 1);
    return name;
}

} // namespace

AppScanner::AppScanner(Configuration c)
    : fileSystem_(std::move(c.fileSystem)), guard_(std::move(c.protectedAppGuard)) {
    auto system = [&](std::string_view relative) { return FileURL(paths::appending(c.systemRoot, relative), true); };
    applicationsURLs_ = c.applicationsURLs
                            ? std::move(*c.applicationsURLs)
                            : std::vector<FileURL>{system("Applications"), c.homeURL.appending("Applications", true)};
    systemApplicationsURLs_ =
        c.systemApplicationsURLs
            ? std::move(*c.systemApplicationsURLs)
            : std::vector<FileURL>{system("System/Applications"), system("System/Applications/Utilities"),
                                   system("System/Library/CoreServices/Applications")};
}

std::vector<InstalledApp> AppScanner::listInstalledApps(StopToken stop) const { return scanInstalledApps(false, stop); }

std::vector<InstalledApp> AppScanner::scanInstalledApps(bool includeSystemApps, StopToken stop,
                                                        const ItemProgress& progress) const {
    std::vector<FileURL> roots = applicationsURLs_;
    if (includeSystemApps) roots.insert(roots.end(), systemApplicationsURLs_.begin(), systemApplicationsURLs_.end());
    const std::vector<FileURL> bundles = discoverBundles(roots, 2);

    std::vector<InstalledApp> apps;
    std::mutex gathered;
    bool cancelled = false;
    tbb::task_group group;
    for (const auto& bundle : bundles) {
        group.run([&, bundle] {
            if (stop.stopRequested()) {
                std::lock_guard lock(gathered);
                cancelled = true;
                return;
            }
            auto app = inspectBundle(bundle);
            if (!app) return;
            if (progress) progress(bundle.path(), app->bundleSizeBytes);
            std::lock_guard lock(gathered);
            apps.push_back(std::move(*app));
        });
    }
    group.wait();
    // The tasks are done; what they gathered is read under their lock all the same.
    std::lock_guard lock(gathered);
    if (cancelled) throw CancellationError{};
    std::stable_sort(apps.begin(), apps.end(), [](const InstalledApp& a, const InstalledApp& b) {
        return localizedCaseInsensitiveCompare(a.displayName, b.displayName) < 0;
    });
    return apps;
}

std::vector<FileURL> AppScanner::discoverBundles(const std::vector<FileURL>& roots, int maxDepth) const {
    std::vector<FileURL> found;
    std::set<std::string> visited; // resolved paths of bundles taken
    auto traverse = [&](auto& self, const std::string& directory, int depth) -> void {
        PlatformError error;
        const auto entries = fileSystem_->contentsOfDirectory(directory, {.skipHiddenFiles = true}, error);
        if (error) return;
        for (const auto& entry : entries) {
            const std::string path = paths::appending(directory, entry.name);
            const std::string resolved = fileSystem_->resolvingSymlinks(path);
            if (visited.contains(resolved)) continue;
            if (unicode::lowercased(paths::pathExtension(entry.name)) == "app") {
                visited.insert(resolved);
                found.push_back(fileSystem_->fileURL(path)); // as listed, not resolved
                continue;
            }
            if (depth >= maxDepth || !fileSystem_->isDirectory(path)) continue;
            if (entry.kind == FileKind::symbolicLink) continue; // a linked folder is never followed
            self(self, path, depth + 1);
        }
    };
    for (const auto& root : roots) {
        if (fileSystem_->fileExists(root.path())) traverse(traverse, root.path(), 0);
    }
    return found;
}

std::optional<InstalledApp> AppScanner::inspectBundle(const FileURL& bundleURL) const {
    if (!fileSystem_->fileExists(bundleURL.path())) return std::nullopt;
    PlatformError error;
    const auto bytes =
        fileSystem_->readFile(paths::appending(bundleURL.path(), "Contents/Info.plist"), 16 * 1024 * 1024, error);
    const Json info = bytes ? PropertyList::parseDictionary(*bytes) : Json::object();

    const std::string base = baseName(bundleURL);
    InstalledApp app;
    app.id = Uuid::random();
    app.bundleURL = bundleURL;
    app.displayName =
        stringValue(info, "CFBundleDisplayName").value_or(stringValue(info, "CFBundleName").value_or(base));
    app.shortVersion = stringValue(info, "CFBundleShortVersionString");
    app.version = app.shortVersion.value_or(stringValue(info, "CFBundleVersion").value_or("Unknown"));
    const auto identifier = stringValue(info, "CFBundleIdentifier");
    app.bundleIdentifier = identifier && !identifier->empty() ? *identifier : "com.unknown." + unicode::lowercased(base);
    app.bundleName = stringValue(info, "CFBundleName");

    std::optional<FileURL> executable;
    if (const auto name = stringValue(info, "CFBundleExecutable")) {
        executable = FileURL(paths::appending(bundleURL.path(), "Contents/MacOS/" + *name));
    } else if (const std::string guess = paths::appending(bundleURL.path(), "Contents/MacOS/" + base);
               fileSystem_->fileExists(guess)) {
        executable = FileURL(guess);
    }
    app.architecture = std::string(rawValue(detectArchitecture(executable)));
    if (executable) app.executablePath = executable->path();

    const CodeSignatureReport report = guard_->inspectCodeSignature(bundleURL);
    const ProtectionEvaluation evaluation = guard_->evaluateProtection(bundleURL, app.bundleIdentifier, report);
    app.isSystemApp = evaluation.isProtected;
    app.protectionReason = evaluation.reason;
    app.codeSignatureAuthority = report.authority;
    app.teamIdentifier = report.teamIdentifier;
    app.isRunning = guard_->isRunning(app.bundleIdentifier);
    app.iconURL = iconURL(bundleURL, info);
    const auto [allocated, logical] = measureBundle(bundleURL);
    app.bundleSizeBytes = allocated;
    app.logicalSizeBytes = logical > 0 ? logical : allocated;
    return InstalledApp::make(std::move(app), evaluation.isProtected);
}

AppArchitecture AppScanner::detectArchitecture(const std::optional<FileURL>& executableURL) const {
    if (!executableURL) return AppArchitecture::unknown;
    PlatformError error;
    const auto header = fileSystem_->readFile(executableURL->path(), MachOHeader::bytesRead, error);
    return header ? MachOHeader::architectureOf(*header) : AppArchitecture::unknown;
}

std::optional<FileURL> AppScanner::iconURL(const FileURL& bundleURL, const Json& info) const {
    const std::string resources = paths::appending(bundleURL.path(), "Contents/Resources");
    std::vector<std::string> names;
    if (const auto file = stringValue(info, "CFBundleIconFile"); file && !file->empty()) {
        names.push_back(file->ends_with(".icns") ? *file : *file + ".icns");
        names.push_back(*file);
    }
    if (const auto name = stringValue(info, "CFBundleIconName"); name && !name->empty())
        names.push_back(*name + ".icns");
    names.push_back("AppIcon.icns");
    for (const auto& name : names) {
        const std::string path = paths::appending(resources, name);
        if (fileSystem_->fileExists(path)) return FileURL(path);
    }
    PlatformError error;
    for (const auto& entry : fileSystem_->contentsOfDirectory(resources, {}, error)) {
        if (entry.name.ends_with(".icns")) return FileURL(paths::appending(resources, entry.name));
    }
    const std::string assets = paths::appending(resources, "Assets.car");
    if (fileSystem_->fileExists(assets)) return FileURL(assets);
    return std::nullopt;
}

// Every regular file of the bundle, hidden ones and those of nested
// packages too, each inode once; links add nothing.
std::pair<std::int64_t, std::int64_t> AppScanner::measureBundle(const FileURL& bundleURL) const {
    InodeSet inodes;
    const TreeMeasure tree =
        fileSystem_->measureTree(bundleURL.path(), {.status = WalkStatus::regularFiles, .inodes = &inodes});
    return {tree.chargedAllocatedBytes, tree.chargedLogicalBytes};
}

} // namespace unbulk
