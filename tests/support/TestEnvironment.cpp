#include "support/TestEnvironment.hpp"

#include <filesystem>

#include "Scanner/ThermalGovernor.hpp"

namespace unbulk::testing {

Environment testEnvironment(const TempHome& home) {
    const std::string systemRoot = home.root() + "/system";
    std::filesystem::create_directories(systemRoot);
    const auto conditions = std::make_shared<UnrestrictedConditionsProvider>();
    return Environment{
        .fileSystem = makeDefaultFileSystem(),
        .trash = makeDefaultTrash(),
        .processes = makeDefaultProcesses(),
        .processRunner = makeDefaultProcessRunner(),
        .fileTypes = makeDefaultFileTypes(),
        .codeSigning = makeDefaultCodeSigning(),
        .vitalsSources = makeDefaultVitalsSources(),
        .windowSystem = nullptr,
        .thermalState = conditions,
        .powerSource = conditions,
        .clock = systemClock(),
        .homeURL = FileURL(home.path(), true),
        .systemRoot = systemRoot,
    };
}

} // namespace unbulk::testing
