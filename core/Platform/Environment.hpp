#pragma once

#include <memory>
#include <string>

#include "Platform/Clock.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/FileTypes.hpp"
#include "Platform/Power.hpp"
#include "Platform/ProcessRunner.hpp"
#include "Platform/Processes.hpp"
#include "Platform/Trash.hpp"
#include "Platform/VitalsSources.hpp"
#include "Platform/WindowSystem.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// Everything the core is given from the machine it runs on: every platform
// service, the clock, the user's home and the root of the system's own
// places. A front end builds one, once, and hands down what each engine
// needs; the core never builds a platform service itself, so that a test
// hands an engine its fakes through the same door.
struct Environment {
    std::shared_ptr<FileSystem> fileSystem;
    std::shared_ptr<Trash> trash;
    std::shared_ptr<Processes> processes;
    std::shared_ptr<ProcessRunner> processRunner;
    std::shared_ptr<FileTypes> fileTypes;
    std::shared_ptr<CodeSigning> codeSigning;
    std::shared_ptr<VitalsSources> vitalsSources;
    std::shared_ptr<WindowSystem> windowSystem; // none where the system has no windows to centre
    std::shared_ptr<ThermalStateProviding> thermalState;
    std::shared_ptr<PowerSourceProviding> powerSource;
    Clock clock;
    FileURL homeURL;
    // What the system-wide places that the core looks at are read below:
    // /Applications is <systemRoot>/Applications, and so on. "/" on a real
    // machine; a test points it into a directory of its own. The sandbox and
    // the protection rules judge real paths and never look at it.
    std::string systemRoot = "/";
};

// This machine: the real services, the system clock, the user's home
// ($HOME, else the password database) and "/". Only the front ends call it.
Environment makeSystemEnvironment();

} // namespace unbulk
