#include "Safety/FDAChecker.hpp"

#include <initializer_list>
#include <string>

#include "Platform/ProcessLauncher.hpp"

namespace unbulk::FDAChecker {

bool hasFullDiskAccess(const FileURL& homeURL, const FileSystem& fileSystem) {
    for (std::string_view relative : {"Library/Safari", "Library/Application Support/MobileSync", "Library/Mail"}) {
        const FileURL folder = homeURL.appending(relative, true);
        if (!fileSystem.fileExists(folder.path())) continue;
        PlatformError error;
        (void)fileSystem.contentsOfDirectory(folder.path(), ListOptions{}, error);
        return !error;
    }
    return true;
}

bool openSystemSettings() { return openURL(std::string(settingsURL())); }

} // namespace unbulk::FDAChecker
