#include "Uninstaller/LeftoversWhitelist.hpp"

#include "Support/Unicode.hpp"

namespace unbulk::Whitelist {

const std::set<std::string>& systemComponents() {
    static const std::set<std::string> names{"accounts",
                                             "addressbook",
                                             "appstore",
                                             "biome",
                                             "books",
                                             "calendar",
                                             "callhistorydb",
                                             "callhistorytransactions",
                                             "cloudkit",
                                             "clouddocs",
                                             "console",
                                             "contacts",
                                             "corefollowup",
                                             "crashreporter",
                                             "diagnosticreports",
                                             "diskutility",
                                             "dock",
                                             "duetexpertcenter",
                                             "facetime",
                                             "familycircle",
                                             "fileprovider",
                                             "finder",
                                             "findmy",
                                             "fontbook",
                                             "home",
                                             "icloud",
                                             "identityservices",
                                             "keychains",
                                             "keychain",
                                             "keychain access",
                                             "keychainaccess",
                                             "knowledge",
                                             "mail",
                                             "maps",
                                             "messages",
                                             "mobilesync",
                                             "music",
                                             "news",
                                             "notes",
                                             "passes",
                                             "personalizationportrait",
                                             "photos",
                                             "podcasts",
                                             "preview",
                                             "quicklook",
                                             "quicktime player",
                                             "reminders",
                                             "safari",
                                             "screentime",
                                             "shortcuts",
                                             "siri",
                                             "stocks",
                                             "suggestions",
                                             "syncservices",
                                             "system preferences",
                                             "system settings",
                                             "terminal",
                                             "textedit",
                                             "trial",
                                             "tv",
                                             "voicecontrol",
                                             "voicememos"};
    return names;
}

const std::set<std::string>& developerTools() {
    static const std::set<std::string> names{
        "brew",     "bun",         "cargo", "conda", "containerd", "developer",  "docker", "git",     "go",  "gradle",
        "homebrew", "instruments", "java",  "lldb",  "lmstudio",   "node",       "npm",    "openjdk", "pip", "pnpm",
        "python",   "ruby",        "rust",  "swift", "uv",         "virtualenv", "vllm",   "xcode",   "yarn"};
    return names;
}

const std::set<std::string>& sharedInfrastructure() {
    static const std::set<std::string> names{
        "google software update", "google updater", "helper", "microsoft autoupdate", "setapp", "shared", "sparkle"};
    return names;
}

bool isProtected(const std::string& name, const std::optional<std::string>& bundleId) {
    const std::string lowerName = unicode::lowercased(name);
    const std::string lowerId = bundleId ? unicode::lowercased(*bundleId) : std::string();
    for (std::string_view prefix : appleBundlePrefixes) {
        if ((bundleId && lowerId.starts_with(prefix)) || lowerName.starts_with(prefix)) return true;
    }
    return systemComponents().contains(lowerName) || developerTools().contains(lowerName) ||
           sharedInfrastructure().contains(lowerName);
}

} // namespace unbulk::Whitelist
