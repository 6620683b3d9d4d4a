#include "Models/StartupItem.hpp"

#include "Support/Json.hpp"

namespace unbulk {

Json toJson(const StartupItem& item) {
    Json j{{"id", item.id.string()},
           {"name", item.name},
           {"label", item.label},
           {"type", item.type},
           {"isEnabled", item.isEnabled},
           {"isRunning", item.isRunning},
           {"requiresAdministrator", item.requiresAdministrator},
           {"status", item.status},
           {"impact", item.impact}};
    json::setOptional(j, "fileURL", item.fileURL, [](const FileURL& url) { return url.absoluteString(); });
    json::setOptional(j, "targetExecutablePath", item.targetExecutablePath);
    json::setOptional(j, "bundleIdentifier", item.bundleIdentifier);
    return j;
}

} // namespace unbulk
