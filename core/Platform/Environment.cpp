#include "Platform/Environment.hpp"

#include "Platform/Home.hpp"

namespace unbulk {

Environment makeSystemEnvironment() {
    return Environment{
        .fileSystem = makeDefaultFileSystem(),
        .trash = makeDefaultTrash(),
        .processes = makeDefaultProcesses(),
        .processRunner = makeDefaultProcessRunner(),
        .fileTypes = makeDefaultFileTypes(),
        .codeSigning = makeDefaultCodeSigning(),
        .vitalsSources = makeDefaultVitalsSources(),
        .windowSystem = makeDefaultWindowSystem(),
        .thermalState = makeDefaultThermalStateProvider(),
        .powerSource = makeDefaultPowerSourceProvider(),
        .clock = systemClock(),
        .homeURL = FileURL(homeDirectory(), true),
        .systemRoot = "/",
    };
}

} // namespace unbulk
