#include "Maintenance/StartupManager.hpp"

#include <algorithm>
#include <system_error>

#include "Platform/PropertyList.hpp"
#include "Support/Json.hpp"
#include "Support/NoSuchFileError.hpp"
#include "Support/Paths.hpp"

namespace unbulk {

StartupManager::Directories StartupManager::defaultDirectories(const FileURL& homeURL, const std::string& systemRoot) {
    return {homeURL.appending("Library/LaunchAgents", true),
            FileURL(paths::appending(systemRoot, "Library/LaunchAgents"), true),
            FileURL(paths::appending(systemRoot, "Library/LaunchDaemons"), true)};
}

StartupManager::StartupManager(Directories directories, std::shared_ptr<FileSystem> fileSystem,
                               std::shared_ptr<ProcessRunner> runner)
    : directories_(std::move(directories)), fileSystem_(std::move(fileSystem)), runner_(std::move(runner)) {}

std::vector<StartupItem> StartupManager::listStartupItems() const {
    const std::vector<std::tuple<const FileURL*, StartupType, bool>> sources{
        {&directories_.userLaunchAgents, StartupType::userLaunchAgent, false},
        {&directories_.systemLaunchAgents, StartupType::systemLaunchAgent, true},
        {&directories_.systemLaunchDaemons, StartupType::systemLaunchDaemon, true}};
    std::vector<StartupItem> items;
    for (const auto& [directory, type, administrator] : sources) {
        PlatformError error;
        for (const auto& entry :
             fileSystem_->contentsOfDirectory(directory->path(), {.skipHiddenFiles = true}, error)) {
            if (!entry.name.ends_with(".plist") && !entry.name.ends_with(".plist.disabled")) continue;
            if (auto item = parse(paths::appending(directory->path(), entry.name), type, administrator)) {
                items.push_back(std::move(*item));
            }
        }
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const StartupItem& a, const StartupItem& b) { return a.impact > b.impact; });
    return items;
}

std::optional<StartupItem> StartupManager::parse(const std::string& path, StartupType type,
                                                 bool requiresAdministrator) const {
    PlatformError error;
    const auto bytes = fileSystem_->readFile(path, 16 * 1024 * 1024, error);
    if (!bytes) return std::nullopt;
    const auto document = PropertyList::parse(*bytes);
    if (!document || !document->is_object()) return std::nullopt;
    const Json& plist = *document;
    const bool disabled = path.ends_with(".disabled");

    StartupItem item;
    item.id = Uuid::random();
    item.type = type;
    item.fileURL = FileURL(path);
    item.requiresAdministrator = requiresAdministrator;
    if (auto it = plist.find("Label"); it != plist.end() && it->is_string()) {
        item.label = it->get<std::string>();
    } else {
        // The name without its last extension: "x.plist.disabled" gives "x.plist".
        const std::string name = paths::lastComponent(path);
        const std::string extension = paths::pathExtension(name);
        item.label = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    }
    // Only the presence of KeepAlive counts, whatever its value (a date or
    // data too, which read as null).
    if (plist.contains("KeepAlive")) {
        item.impact = StartupImpact::high;
    } else if (auto it = plist.find("RunAtLoad"); it != plist.end() && it->is_boolean() && it->get<bool>()) {
        item.impact = StartupImpact::medium;
    }
    if (auto it = plist.find("Program"); it != plist.end() && it->is_string()) {
        item.targetExecutablePath = it->get<std::string>();
    } else if (auto args = plist.find("ProgramArguments");
               args != plist.end() && args->is_array() && !args->empty() &&
               std::all_of(args->begin(), args->end(), [](const Json& word) { return word.is_string(); })) {
        // An array of strings, or nothing: one word of another type spoils it.
        item.targetExecutablePath = (*args)[0].get<std::string>();
    }
    if (item.targetExecutablePath && !fileSystem_->fileExists(*item.targetExecutablePath)) {
        item.status = StartupStatus::orphan; // before disabled
    } else if (disabled) {
        item.status = StartupStatus::disabled;
    }
    const std::size_t dot = item.label.rfind('.');
    item.name = dot == std::string::npos ? item.label : item.label.substr(dot + 1);
    item.bundleIdentifier = item.label;
    item.isEnabled = !disabled;
    return item;
}

void StartupManager::launchctl(const char* verb, const std::string& path) const {
    try {
        runner_->run("/bin/launchctl", {verb, "-w", path});
    } catch (const ProcessLaunchError&) {
        // Best effort: the rename is what keeps the item off or on.
    }
}

FileURL StartupManager::toggle(const StartupItem& item, bool enable) const {
    if (!item.fileURL || !fileSystem_->fileExists(item.fileURL->path())) {
        throw NoSuchFileError(item.fileURL ? item.fileURL->path() : item.label);
    }
    const std::string path = item.fileURL->path();
    const bool isDisabled = path.ends_with(".disabled");
    auto rename = [&](const std::string& to) {
        PlatformError error;
        if (!fileSystem_->renameItem(path, to, error)) {
            throw PlatformFailure("Could not move '" + path + "' to '" + to + "'", error);
        }
        return FileURL(to);
    };
    // Unloaded while the file still has its name, loaded once it has it again.
    if (!enable && !isDisabled) {
        launchctl("unload", path);
        return rename(path + ".disabled");
    }
    if (enable && isDisabled) {
        const FileURL enabled = rename(path.substr(0, path.size() - 9));
        launchctl("load", enabled.path());
        return enabled;
    }
    return *item.fileURL;
}

} // namespace unbulk
