#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Models/AppModel.hpp"
#include "Platform/FileSystem.hpp"

namespace unbulk {

// What on this machine belongs to one application: from its names and
// bundle identifier it derives candidates, probes the fixed library
// directories of the user's home with them (never /Library, never the system
// volume), measures what it finds and gives the footprint. It probes
// expected paths and filters listings; it never walks the disk.
class DependencyResolver {
public:
    using EntitlementsReader = std::function<std::vector<std::string>(const FileURL& bundleURL)>;

    struct SearchCandidates {
        std::string primaryBundleId;
        std::string primaryDisplayName;
        std::optional<std::string> bundleName;
        std::set<std::string> candidateNames;
        std::set<std::string> candidateBundleIds;
        std::set<std::string> vendorSubpaths;
        std::set<std::string> appGroupIds;
    };

    DependencyResolver(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                       EntitlementsReader entitlementsReader = {});

    AppFootprint resolveDependencies(const InstalledApp& app) const;
    SearchCandidates makeCandidates(const InstalledApp& app) const;

    // Names that are never candidates.
    static const std::set<std::string>& genericNames();

private:
    class Resolution;

    FileURL homeURL_;
    std::shared_ptr<FileSystem> fileSystem_;
    EntitlementsReader entitlementsReader_;
};

} // namespace unbulk
