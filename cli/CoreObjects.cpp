#include "CoreObjects.hpp"

#include "Platform/Home.hpp"

namespace unbulk::cli {

FileURL userHomeURL() { return FileURL(homeDirectory(), true); }

DeepScanEngine makeScanEngine(std::shared_ptr<FileSystem> fileSystem) {
    DeepScanEngine::Configuration configuration;
    configuration.homeURL = userHomeURL();
    configuration.fileSystem = std::move(fileSystem);
    return DeepScanEngine(std::move(configuration));
}

} // namespace unbulk::cli
