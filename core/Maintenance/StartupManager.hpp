#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Models/StartupItem.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/ProcessRunner.hpp"

namespace unbulk {

// What starts by itself, from the launchd property lists of three
// directories, rated by impact; an item is switched off by renaming its
// property list to ".disabled", so that it stays on disk to be restored.
// No privileged helper: moving a system item needs the rights already.
class StartupManager {
public:
    struct Directories {
        FileURL userLaunchAgents;    // ~/Library/LaunchAgents
        FileURL systemLaunchAgents;  // /Library/LaunchAgents
        FileURL systemLaunchDaemons; // /Library/LaunchDaemons
    };
    // The user's own directory and the two system ones below `systemRoot`
    // ("/" on a real machine).
    static Directories defaultDirectories(const FileURL& homeURL, const std::string& systemRoot);

    StartupManager(Directories directories, std::shared_ptr<FileSystem> fileSystem,
                   std::shared_ptr<ProcessRunner> runner);

    // Highest impact first; equal ones in the order of the directories and
    // their listings. Unreadable files and directories are passed by.
    std::vector<StartupItem> listStartupItems() const;

    // Where the property list now stands. Throws NoSuchFileError when it is
    // gone, and the file system's error when the rename fails; launchctl is
    // asked as well as it can be, and its answer is not looked at.
    FileURL toggle(const StartupItem& item, bool enable) const;

private:
    std::optional<StartupItem> parse(const std::string& path, StartupType type, bool requiresAdministrator) const;
    void launchctl(const char* verb, const std::string& path) const;

    Directories directories_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<ProcessRunner> runner_;
};

} // namespace unbulk
