#include "CoreObjects.hpp"

#include "Output.hpp"
#include "Platform/Home.hpp"
#include "Platform/Trash.hpp"
#include "Safety/AuditLogger.hpp"

namespace unbulk::cli {

FileURL userHomeURL() { return FileURL(homeDirectory(), true); }

DeepScanEngine makeScanEngine(std::shared_ptr<FileSystem> fileSystem) {
    DeepScanEngine::Configuration configuration;
    configuration.homeURL = userHomeURL();
    configuration.fileSystem = std::move(fileSystem);
    return DeepScanEngine(std::move(configuration));
}

std::shared_ptr<const TrashPipeline> makeTrashPipeline(const std::shared_ptr<FileSystem>& fileSystem,
                                                       TrashPipeline::UnrecordedHandler onUnrecorded) {
    if (!onUnrecorded) {
        onUnrecorded = [](const std::string& logPath, const std::string& reason) {
            writeError(TrashPipeline::unrecordedWarning(logPath, reason) + "\n");
        };
    }
    const FileURL homeURL = userHomeURL();
    return std::make_shared<const TrashPipeline>(fileSystem, makeDefaultTrash(),
                                                 std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem),
                                                 homeURL, std::move(onUnrecorded));
}

} // namespace unbulk::cli
