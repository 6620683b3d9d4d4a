#include "Uninstaller/DependencyResolver.hpp"

#include <algorithm>
#include <initializer_list>

#include "Platform/InodeSet.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

// Whether files that merely begin with the identifier may belong to the
// application: only for an identifier of two or more components, a family
// of its own ("com.acme.tool" for "com.acme.tool.helper.plist"). One
// component ("com") is no family: taken as a prefix it would claim every
// other application's files, so it matches by equality alone. Stricter than
// plain prefix matching, on purpose, to keep to what belongs to the
// application.
bool matchesAsPrefix(const std::string& id) { return text::splitNonEmpty(id, '.').size() >= 2; }

// The name is the identifier with one of the extensions, or, for an
// identifier that may, begins with `id` + `separator` and ends with one.
bool belongsTo(const std::string& name, const std::string& id, std::string_view separator,
               std::initializer_list<std::string_view> extensions) {
    for (std::string_view extension : extensions) {
        if (!name.ends_with(extension)) continue;
        if (name == id + std::string(extension)) return true;
        if (matchesAsPrefix(id) && name.starts_with(id + std::string(separator))) return true;
    }
    return false;
}

struct SizingMetrics {
    std::int64_t allocatedBytes = 0;
    std::int64_t logicalBytes = 0;
    std::int64_t fileCount = 0;
    std::optional<Date> lastModifiedDate;
    bool isDirectory = false;
    bool isSymlink = false;
};

} // namespace

// One resolution: the results, the visited keys and the seen inodes live
// only as long as it does.
class DependencyResolver::Resolution {
public:
    Resolution(const DependencyResolver& resolver, const InstalledApp& app)
        : resolver_(resolver), fs_(*resolver.fileSystem_), app_(app),
          home_(paths::standardize(resolver.homeURL_.path())),
          resolvedHome_(paths::standardize(fs_.resolvingSymlinks(resolver.homeURL_.path()))),
          bundle_(paths::standardize(app.bundleURL.path())),
          resolvedBundle_(paths::standardize(fs_.resolvingSymlinks(app.bundleURL.path()))) {}

    std::vector<ResolvedDependency> run(const SearchCandidates& c) {
        if (fs_.fileExists(app_.bundleURL.path())) {
            visited_.insert(unicode::lowercased(resolvedBundle_));
            append(app_.bundleURL, DependencyLocation::applicationBundle);
        }
        using L = DependencyLocation;
        probeAll("Library/Application Support", L::applicationSupport, c, {""}, true);
        probeAll("Library/Caches", L::caches, c, {"", ".ShipIt", ".shipit"}, true);
        preferences(c);
        probeAll("Library/Saved Application State", L::savedApplicationState, c, {".savedState"}, false);
        probeAll("Library/WebKit", L::webKit, c, {""}, false);
        probeAll("Library/HTTPStorages", L::httpStorages, c, {"", ".binarycookies"}, false);
        probeAll("Library/Containers", L::containers, c, {""}, false);
        groupContainers(c);
        probeAll("Library/Application Scripts", L::applicationScripts, c, {""}, false);
        launchAgents(c);
        logs(c);
        return std::move(results_);
    }

private:
    std::string dir(const std::string& relative) const { return paths::appending(resolver_.homeURL_.path(), relative); }

    std::vector<DirectoryEntry> list(const std::string& directory, bool& ok) const {
        PlatformError error;
        auto entries = fs_.contentsOfDirectory(directory, {.skipHiddenFiles = true}, error);
        ok = !error;
        return entries;
    }

    // Identifiers then names, each with every suffix (in the order given for
    // each candidate), then the vendor subpaths when asked.
    void probeAll(const std::string& relative, DependencyLocation location, const SearchCandidates& c,
                  const std::vector<std::string>& suffixes, bool vendors) {
        const std::string directory = dir(relative);
        if (!fs_.fileExists(directory)) return;
        for (const auto* set : {&c.candidateBundleIds, &c.candidateNames}) {
            for (const auto& candidate : *set) {
                for (const auto& suffix : suffixes)
                    appendIfValid(paths::appending(directory, candidate + suffix), location);
            }
        }
        if (vendors) {
            for (const auto& subpath : c.vendorSubpaths)
                appendIfValid(paths::appending(directory, subpath), location);
        }
    }

    void preferences(const SearchCandidates& c) {
        const std::string directory = dir("Library/Preferences");
        if (!fs_.fileExists(directory)) return;
        for (const auto& id : c.candidateBundleIds) {
            appendIfValid(paths::appending(directory, id + ".plist"), DependencyLocation::preferences);
            appendIfValid(paths::appending(directory, id + ".plist.lockfile"), DependencyLocation::preferences);
            bool ok = false;
            const std::string byHost = paths::appending(directory, "ByHost");
            for (const auto& entry : list(byHost, ok)) {
                if (belongsTo(entry.name, id, ".", {".plist"})) {
                    appendIfValid(paths::appending(byHost, entry.name), DependencyLocation::preferences);
                }
            }
        }
        bool ok = false;
        const auto entries = list(directory, ok);
        if (!ok) return;
        for (const auto& entry : entries) {
            if (!entry.name.ends_with(".plist") || entry.name.starts_with(".GlobalPreferences")) continue;
            for (const auto& id : c.candidateBundleIds) {
                if (belongsTo(entry.name, id, ".", {".plist"})) {
                    appendIfValid(paths::appending(directory, entry.name), DependencyLocation::preferences);
                }
            }
        }
    }

    void groupContainers(const SearchCandidates& c) {
        const std::string directory = dir("Library/Group Containers");
        if (!fs_.fileExists(directory)) return;
        for (const auto& group : c.appGroupIds) {
            appendIfValid(paths::appending(directory, group), DependencyLocation::groupContainers);
        }
        bool ok = false;
        const auto entries = list(directory, ok);
        if (!ok) return;
        for (const auto& entry : entries) {
            for (const auto& id : c.candidateBundleIds) {
                // A team-prefixed container is named "<team>.<identifier>".
                if (entry.name.ends_with("." + id) || entry.name == "group." + id) {
                    appendIfValid(paths::appending(directory, entry.name), DependencyLocation::groupContainers);
                }
            }
        }
    }

    void launchAgents(const SearchCandidates& c) {
        const std::string directory = dir("Library/LaunchAgents");
        if (!fs_.fileExists(directory)) return;
        bool ok = false;
        const auto entries = list(directory, ok);
        if (!ok) return;
        for (const auto& entry : entries) {
            if (!entry.name.ends_with(".plist")) continue;
            for (const auto& id : c.candidateBundleIds) {
                // No boundary after the identifier: a helper's agent belongs too.
                if (belongsTo(entry.name, id, "", {".plist"})) {
                    appendIfValid(paths::appending(directory, entry.name), DependencyLocation::launchAgents);
                }
            }
        }
    }

    void logs(const SearchCandidates& c) {
        const std::string reports = dir("Library/Logs/DiagnosticReports");
        if (fs_.fileExists(reports)) {
            bool ok = false;
            const auto entries = list(reports, ok);
            for (const auto& entry : entries) {
                const std::string& name = entry.name;
                if (!name.ends_with(".ips") && !name.ends_with(".crash") && !name.ends_with(".diag")) continue;
                const bool byName = std::any_of(c.candidateNames.begin(), c.candidateNames.end(),
                                                [&](const std::string& n) { return name.starts_with(n); });
                const bool byId =
                    std::any_of(c.candidateBundleIds.begin(), c.candidateBundleIds.end(), [&](const std::string& id) {
                        return belongsTo(name, id, "", {".ips", ".crash", ".diag"});
                    });
                if (byName || byId) appendIfValid(paths::appending(reports, name), DependencyLocation::crashReports);
            }
        }
        probeAll("Library/Logs", DependencyLocation::crashReports, c, {""}, false);
    }

    void appendIfValid(const std::string& path, DependencyLocation location) {
        const std::string standard = paths::standardize(path);
        const std::string resolved = paths::standardize(fs_.resolvingSymlinks(path));
        const std::string key = unicode::lowercased(resolved);
        if (visited_.contains(key)) return;
        if (!fs_.fileExists(standard)) return;
        const bool accepted = standard.starts_with(home_) || resolved.starts_with(resolvedHome_) ||
                              standard.starts_with(bundle_) || resolved.starts_with(resolvedBundle_) ||
                              standard.ends_with(".app");
        if (!accepted) return;
        visited_.insert(key);
        append(fs_.fileURL(path), location);
    }

    void append(const FileURL& url, DependencyLocation location) {
        const SizingMetrics m = measure(url.path());
        results_.push_back(ResolvedDependency::make({.id = Uuid::random(),
                                                     .url = url,
                                                     .location = location,
                                                     .allocatedSizeBytes = m.allocatedBytes,
                                                     .logicalSizeBytes = m.logicalBytes,
                                                     .fileCount = m.fileCount,
                                                     .lastModifiedDate = m.lastModifiedDate,
                                                     .isDirectory = m.isDirectory,
                                                     .isSymlink = m.isSymlink}));
    }

    // The whole application shares one inode set: a hard link between two
    // found items is charged once, though it still counts as a file.
    SizingMetrics measure(const std::string& path) {
        SizingMetrics m;
        // Links count as files and add nothing; fifos, sockets and devices
        // count with their bytes, as regular files do.
        const ItemTree item =
            measureItemTree(fs_, path, LinkAtItem::asLink, {.status = WalkStatus::all, .inodes = &seen_});
        if (!item.exists()) return m;
        const auto& status = item.own;
        auto charge = [&](const FileStatus& st) {
            return seen_.firstTime(st) ? st.allocatedSize : std::int64_t{0};
        };
        if (status->kind == FileKind::symbolicLink) {
            m.logicalBytes = status->size;
            m.fileCount = 1;
            m.lastModifiedDate = status->modificationDate;
            m.isSymlink = true;
            return m;
        }
        if (status->kind != FileKind::directory) {
            m.fileCount = 1;
            m.logicalBytes = status->size;
            m.lastModifiedDate = status->modificationDate;
            m.allocatedBytes = charge(*status);
            return m;
        }
        m.isDirectory = true;
        const TreeMeasure& tree = *item.tree;
        if (tree.rootUnreadable) return SizingMetrics{.fileCount = 1, .isDirectory = true};
        m.fileCount = std::max<std::int64_t>(checkedAdd(checkedAdd(tree.files.count, tree.links.count), tree.others.count), 1);
        m.logicalBytes = checkedAdd(tree.files.logicalBytes, tree.others.logicalBytes);
        m.allocatedBytes = checkedAdd(tree.chargedAllocatedBytes, tree.others.allocatedBytes);
        Date newest = status->modificationDate;
        for (const auto& candidate : {tree.files.newestModification, tree.others.newestModification}) {
            if (candidate) newest = std::max(newest, *candidate);
        }
        m.lastModifiedDate = newest;
        return m;
    }

    const DependencyResolver& resolver_;
    const FileSystem& fs_;
    const InstalledApp& app_;
    std::string home_, resolvedHome_, bundle_, resolvedBundle_;
    std::vector<ResolvedDependency> results_;
    std::set<std::string> visited_;
    InodeSet seen_{InodeSet::Keeps::everyFile};
};

const std::set<std::string>& DependencyResolver::genericNames() {
    static const std::set<std::string> names{".",
                                             "..",
                                             ".DS_Store",
                                             "Apple",
                                             "System",
                                             "Library",
                                             "Preferences",
                                             "Application Support",
                                             "Caches",
                                             "Containers",
                                             "Logs",
                                             "DiagnosticReports",
                                             ".GlobalPreferences",
                                             ".GlobalPreferences.plist"};
    return names;
}

DependencyResolver::DependencyResolver(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                                       EntitlementsReader entitlementsReader)
    : homeURL_(std::move(homeURL)), fileSystem_(std::move(fileSystem)),
      entitlementsReader_(std::move(entitlementsReader)) {}

DependencyResolver::SearchCandidates DependencyResolver::makeCandidates(const InstalledApp& app) const {
    auto trim = [](const std::string& text) { return std::string(unicode::trimmingWhitespaceAndNewlines(text)); };
    SearchCandidates c;
    const std::string id = trim(app.bundleIdentifier);
    const std::string name = trim(app.displayName);
    c.primaryBundleId = id;
    c.primaryDisplayName = name;
    if (app.bundleName) c.bundleName = trim(*app.bundleName);

    std::set<std::string> ids, names;
    if (!id.empty()) {
        ids.insert(id);
        ids.insert(unicode::lowercased(id));
    }
    if (!name.empty()) {
        names.insert(name);
        names.insert(text::replacingAll(name, " ", ""));
        names.insert(unicode::lowercased(name));
        names.insert(unicode::lowercased(text::replacingAll(name, " ", "-")));
        names.insert(unicode::lowercased(text::replacingAll(name, " ", "_")));
    }
    if (c.bundleName && !c.bundleName->empty()) {
        names.insert(*c.bundleName);
        names.insert(text::replacingAll(*c.bundleName, " ", ""));
    }
    const std::vector<std::string> pieces = text::splitNonEmpty(id, '.');
    if (pieces.size() >= 3) {
        const std::string& last = pieces.back();
        if (unicode::graphemeClusters(last).size() > 2) names.insert(last);
        const std::string vendor = unicode::capitalized(pieces[1]);
        c.vendorSubpaths.insert(vendor + "/" + last);
        if (!name.empty() && name != last) c.vendorSubpaths.insert(vendor + "/" + name);
    }
    const std::vector<std::string> words = text::splitNonEmpty(name, ' ');
    if (words.size() >= 2) {
        std::string rest;
        for (std::size_t i = 1; i < words.size(); ++i)
            rest += (i > 1 ? " " : "") + words[i];
        c.vendorSubpaths.insert(words[0] + "/" + rest);
    }
    if (app.appGroupIdentifiers) c.appGroupIds.insert(app.appGroupIdentifiers->begin(), app.appGroupIdentifiers->end());
    if (entitlementsReader_) {
        for (const auto& group : entitlementsReader_(app.bundleURL))
            c.appGroupIds.insert(group);
    }
    if (!id.empty()) c.appGroupIds.insert("group." + id);

    auto keep = [](const std::string& candidate, std::size_t minimum) {
        return unicode::graphemeClusters(candidate).size() >= minimum && !genericNames().contains(candidate) &&
               !candidate.starts_with("com.apple.");
    };
    for (const auto& n : names) {
        if (keep(n, 2)) c.candidateNames.insert(n);
    }
    for (const auto& i : ids) {
        if (keep(i, 3)) c.candidateBundleIds.insert(i);
    }
    return c;
}

AppFootprint DependencyResolver::resolveDependencies(const InstalledApp& app) const {
    Resolution resolution(*this, app);
    return AppFootprint::make(app, resolution.run(makeCandidates(app)));
}

} // namespace unbulk
