#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Models/AppModel.hpp"
#include "Platform/FileSystem.hpp"
#include "Support/Cancellation.hpp"
#include "Uninstaller/AppScanner.hpp"

namespace unbulk {

// Wording for failures of a hunt; the hunt itself raises none of them, as it
// passes unreadable directories by and reports cancellation as such.
struct LeftoversHunterError : std::runtime_error {
    enum class Kind { directoryAccessDenied, underlyingError, scanCancelled };
    static LeftoversHunterError directoryAccessDenied(const std::string& path);
    static LeftoversHunterError underlyingError(const std::string& text);
    static LeftoversHunterError scanCancelled();
    Kind kind;

private:
    LeftoversHunterError(Kind errorKind, const std::string& text) : std::runtime_error(text), kind(errorKind) {}
};

// What stands in the user's library directories that no installed
// application accounts for: the remains of deleted applications. An item is
// an orphan only if every way of tying it to an installed application fails,
// and whitelisted names are never reported.
class LeftoversHunter {
public:
    using AppsProvider = std::function<std::vector<InstalledApp>()>;
    using Progress = std::function<void(double fraction, const std::string& message)>;

    LeftoversHunter(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                    std::shared_ptr<const AppScanner> appScanner = nullptr, AppsProvider appsProvider = {});

    // In the order of the library directories, then of their listings.
    std::vector<AppLeftover> scanForLeftovers(const std::optional<std::vector<InstalledApp>>& installedApps,
                                              const Progress& progress = {}, StopToken stop = {}) const;

private:
    struct Measure {
        std::int64_t allocated = 0;
        std::int64_t logical = 0;
        std::optional<Date> modified;
    };
    Measure measure(const std::string& path) const;

    FileURL homeURL_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<const AppScanner> appScanner_;
    AppsProvider appsProvider_;
};

} // namespace unbulk
