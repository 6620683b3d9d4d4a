#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Models/AppModel.hpp"

namespace unbulk {

// Every way a file name could tie back to an installed application, all in
// lower case, built once per hunt. Generous on purpose: an item is an
// orphan only when every test fails.
struct InstalledAppsIndex {
    std::set<std::string> exactBundleIDs; // identifiers and group identifiers, also with "group." in front
    std::set<std::string> exactDisplayNames;
    std::set<std::string> bundleBasenames;      // bundle file names and last identifier pieces
    std::set<std::string> bundleLastComponents; // last pieces of bundle and group identifiers
    std::set<std::string> normalizedAppTokens;
    // Kept up, though no test consults them.
    std::map<std::string, std::set<Uuid>> tokenToAppIDs;
    std::map<std::string, std::set<Uuid>> reverseDNSPrefixes;
    std::vector<std::set<std::string>> appDiscreteTokenSets;

    explicit InstalledAppsIndex(const std::vector<InstalledApp>& apps);

    bool matchesInstalledApp(const std::string& identifier) const;
};

} // namespace unbulk
