#include "Uninstaller/InstalledAppsIndex.hpp"


#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Uninstaller/TokenNormalizer.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

void insertUnlessEmpty(std::set<std::string>& set, const std::string& value) {
    if (!value.empty()) set.insert(value);
}

} // namespace

InstalledAppsIndex::InstalledAppsIndex(const std::vector<InstalledApp>& apps) {
    using namespace TokenNormalizer;
    for (const auto& app : apps) {
        const std::string bid = unicode::lowercased(app.bundleIdentifier);
        exactBundleIDs.insert(bid);
        exactBundleIDs.insert("group." + bid);
        std::vector<std::string> groups;
        for (const auto& group : app.appGroupIdentifiers.value_or(std::vector<std::string>{})) {
            groups.push_back(unicode::lowercased(group));
            exactBundleIDs.insert(groups.back());
            exactBundleIDs.insert("group." + groups.back());
        }
        const std::string dn = unicode::lowercased(app.displayName);
        exactDisplayNames.insert(dn);
        std::string base = app.bundleURL.lastComponent();
        if (const std::string extension = paths::pathExtension(base); !extension.empty()) {
            base.resize(base.size() - extension.size() - 1);
        }
        base = unicode::lowercased(base);
        bundleBasenames.insert(base);
        insertUnlessEmpty(normalizedAppTokens, normalize(dn));
        insertUnlessEmpty(normalizedAppTokens, normalize(base));

        const std::vector<std::string> pieces = text::splitNonEmpty(bid, '.');
        const std::string last = pieces.empty() ? std::string() : pieces.back();
        if (!last.empty()) {
            const std::string stripped = stripTrailingDigits(last);
            bundleLastComponents.insert(last);
            bundleBasenames.insert(last);
            insertUnlessEmpty(bundleLastComponents, stripped);
            insertUnlessEmpty(bundleBasenames, stripped);
            insertUnlessEmpty(normalizedAppTokens, normalize(last));
            insertUnlessEmpty(normalizedAppTokens, normalize(stripped));
        }
        for (const auto& group : groups) {
            const std::vector<std::string> groupPieces = text::splitNonEmpty(group, '.');
            if (groupPieces.empty()) continue;
            bundleLastComponents.insert(groupPieces.back());
            bundleBasenames.insert(groupPieces.back());
            insertUnlessEmpty(bundleLastComponents, stripTrailingDigits(groupPieces.back()));
            insertUnlessEmpty(bundleBasenames, stripTrailingDigits(groupPieces.back()));
        }

        std::set<std::string> tokens;
        for (const auto& source : {dn, base}) {
            for (auto& token : tokenize(source))
                tokens.insert(std::move(token));
        }
        if (!last.empty()) {
            for (const auto& source : {last, stripTrailingDigits(last)}) {
                for (auto& token : tokenize(source))
                    tokens.insert(std::move(token));
            }
        }
        for (const auto& token : tokens)
            tokenToAppIDs[token].insert(app.id);
        if (!tokens.empty()) appDiscreteTokenSets.push_back(std::move(tokens));
        if (pieces.size() >= 2) reverseDNSPrefixes[pieces[0] + "." + pieces[1]].insert(app.id);
    }
}

bool InstalledAppsIndex::matchesInstalledApp(const std::string& identifier) const {
    using namespace TokenNormalizer;
    const std::string id = unicode::lowercased(identifier);
    if (exactBundleIDs.contains(id)) return true;
    if (id.starts_with("group.") && exactBundleIDs.contains(id.substr(6))) return true;
    if (exactDisplayNames.contains(id) || bundleBasenames.contains(id) || bundleLastComponents.contains(id))
        return true;
    if (const std::string s = stripTrailingDigits(id); !s.empty()) {
        if (bundleLastComponents.contains(s) || exactDisplayNames.contains(s) || bundleBasenames.contains(s))
            return true;
    }
    const std::string normalized = normalize(id);
    if (!normalized.empty() && normalizedAppTokens.contains(normalized)) return true;
    if (const std::string s = stripTrailingDigits(normalized); !s.empty() && normalizedAppTokens.contains(s))
        return true;
    // Helpers, extensions and parents of an installed identifier.
    if (id.find('.') != std::string::npos) {
        for (const auto& b : exactBundleIDs) {
            if (id.starts_with(b + ".") || b.starts_with(id + ".")) return true;
        }
    }
    const std::vector<std::string> tokens = tokenize(id);
    if (!tokens.empty()) {
        for (const auto& set : appDiscreteTokenSets) {
            std::size_t found = 0;
            for (const auto& token : tokens)
                found += set.contains(token) ? 1 : 0;
            if (static_cast<double>(found) / static_cast<double>(tokens.size()) >= 0.8) return true;
        }
    }
    return false;
}

} // namespace unbulk
