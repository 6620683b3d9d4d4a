#include "Models/AppModel.hpp"

#include <stdexcept>

#include "Models/RecordCoding.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Json.hpp"

namespace unbulk {

InstalledApp InstalledApp::make(InstalledApp fields, std::optional<bool> isProtected) {
    fields.isProtected = isProtected.value_or(fields.isSystemApp);
    if (fields.logicalSizeBytes < 1) fields.logicalSizeBytes = fields.bundleSizeBytes;
    return fields;
}

std::string InstalledApp::formattedBundleSize() const { return formatByteCount(bundleSizeBytes); }
std::string InstalledApp::formattedLogicalSize() const { return formatByteCount(logicalSizeBytes); }

AppArchitecture InstalledApp::archType() const {
    if (!architecture) return AppArchitecture::unknown;
    return fromRawValue<AppArchitecture>(*architecture).value_or(AppArchitecture::unknown);
}

ResolvedDependency ResolvedDependency::make(ResolvedDependency fields) {
    fields.path = fields.url.path();
    if (fields.logicalSizeBytes < 1) fields.logicalSizeBytes = fields.allocatedSizeBytes;
    return fields;
}

std::string ResolvedDependency::formattedSize() const { return formatByteCount(allocatedSizeBytes); }
std::string ResolvedDependency::formattedLogicalSize() const { return formatByteCount(logicalSizeBytes); }

AppFootprint AppFootprint::make(InstalledApp app, std::vector<ResolvedDependency> dependencies) {
    AppFootprint footprint;
    bool containsBundle = false;
    std::int64_t allocated = 0, logical = 0;
    for (const auto& dependency : dependencies) {
        containsBundle = containsBundle || dependency.location == DependencyLocation::applicationBundle;
        allocated = checkedAdd(allocated, dependency.allocatedSizeBytes);
        logical = checkedAdd(logical, dependency.logicalSizeBytes);
    }
    footprint.totalItemCount = static_cast<std::int64_t>(dependencies.size());
    if (!containsBundle) {
        allocated = checkedAdd(allocated, app.bundleSizeBytes);
        logical = checkedAdd(logical, app.logicalSizeBytes > 0 ? app.logicalSizeBytes : app.bundleSizeBytes);
        footprint.totalItemCount += 1;
        footprint.itemCountByLocation[DependencyLocation::applicationBundle] = 1;
    }
    for (const auto& dependency : dependencies)
        footprint.itemCountByLocation[dependency.location] += 1;
    footprint.totalAllocatedSizeBytes = allocated;
    footprint.totalLogicalSizeBytes = logical;
    if (app.isSystemApp || app.isProtected) {
        footprint.canUninstall = false;
        footprint.blockingReason = app.protectionReason.value_or("Protected macOS system application");
    } else if (app.isRunning) {
        footprint.canUninstall = false;
        footprint.blockingReason = "Application is currently running";
    }
    footprint.app = std::move(app);
    footprint.dependencies = std::move(dependencies);
    return footprint;
}

std::string AppFootprint::formattedTotalSize() const { return formatByteCount(totalAllocatedSizeBytes); }
std::string AppFootprint::formattedTotalLogicalSize() const { return formatByteCount(totalLogicalSizeBytes); }

std::vector<FileURL> AppFootprint::allURLs() const {
    std::vector<FileURL> urls{app.bundleURL};
    for (const auto& dependency : dependencies) {
        if (dependency.url.path() != app.bundleURL.path()) urls.push_back(dependency.url);
    }
    return urls;
}

AppLeftover AppLeftover::make(AppLeftover fields) {
    fields.path = fields.url.path();
    if (fields.logicalSizeBytes < 1) fields.logicalSizeBytes = fields.allocatedSizeBytes;
    return fields;
}

std::string AppLeftover::formattedSize() const { return formatByteCount(allocatedSizeBytes); }
std::string AppLeftover::formattedLogicalSize() const { return formatByteCount(logicalSizeBytes); }

std::string UninstallSummary::formattedBytesUnbulked() const { return formatByteCount(unbulkedAllocatedBytes); }
std::string UninstallSummary::formattedLogicalBytesUnbulked() const { return formatByteCount(unbulkedLogicalBytes); }

Json toJson(const InstalledApp& a) {
    Json j{{"id", a.id.string()},
           {"bundleIdentifier", a.bundleIdentifier},
           {"bundleURL", a.bundleURL.absoluteString()},
           {"displayName", a.displayName},
           {"version", a.version},
           {"isSystemApp", a.isSystemApp},
           {"isRunning", a.isRunning},
           {"bundleSizeBytes", a.bundleSizeBytes},
           {"logicalSizeBytes", a.logicalSizeBytes},
           {"isProtected", a.isProtected}};
    json::setOptional(j, "shortVersion", a.shortVersion);
    json::setOptional(j, "architecture", a.architecture);
    json::setOptional(j, "codeSignatureAuthority", a.codeSignatureAuthority);
    json::setOptional(j, "iconURL", a.iconURL, [](const FileURL& url) { return url.absoluteString(); });
    json::setOptional(j, "executablePath", a.executablePath);
    json::setOptional(j, "teamIdentifier", a.teamIdentifier);
    json::setOptional(j, "protectionReason", a.protectionReason);
    json::setOptional(j, "bundleName", a.bundleName);
    json::setOptional(j, "appGroupIdentifiers", a.appGroupIdentifiers);
    return j;
}

Json toJson(const ResolvedDependency& d, DateEncoding dates) {
    Json j{{"id", d.id.string()},
           {"url", d.url.absoluteString()},
           {"path", d.path},
           {"location", d.location},
           {"allocatedSizeBytes", d.allocatedSizeBytes},
           {"logicalSizeBytes", d.logicalSizeBytes},
           {"fileCount", d.fileCount},
           {"isDirectory", d.isDirectory},
           {"isSymlink", d.isSymlink}};
    json::setOptional(j, "lastModifiedDate", d.lastModifiedDate, [&](Date date) { return dates::encode(date, dates); });
    return j;
}

Json toJson(const AppFootprint& f, DateEncoding dates) {
    Json dependencies = Json::array();
    for (const auto& dependency : f.dependencies)
        dependencies.push_back(toJson(dependency, dates));
    Json counts = Json::array();
    for (const auto& [location, count] : f.itemCountByLocation) {
        counts.push_back(rawValue(location));
        counts.push_back(count);
    }
    Json j{{"app", toJson(f.app)},
           {"dependencies", dependencies},
           {"totalAllocatedSizeBytes", f.totalAllocatedSizeBytes},
           {"totalLogicalSizeBytes", f.totalLogicalSizeBytes},
           {"totalItemCount", f.totalItemCount},
           {"itemCountByLocation", counts},
           {"canUninstall", f.canUninstall}};
    json::setOptional(j, "blockingReason", f.blockingReason);
    return j;
}

Json toJson(const AppLeftover& l, DateEncoding dates) {
    Json j{{"id", l.id.string()},
           {"candidateAppName", l.candidateAppName},
           {"url", l.url.absoluteString()},
           {"path", l.path},
           {"location", l.location},
           {"allocatedSizeBytes", l.allocatedSizeBytes},
           {"logicalSizeBytes", l.logicalSizeBytes},
           {"confidence", l.confidence},
           {"orphanReason", l.orphanReason},
           {"suggestedRiskTier", l.suggestedRiskTier}};
    json::setOptional(j, "bundleIdentifier", l.bundleIdentifier);
    json::setOptional(j, "lastModifiedDate", l.lastModifiedDate, [&](Date date) { return dates::encode(date, dates); });
    return j;
}

Json toJson(const UninstallSummary& s, DateEncoding dates) {
    Json deleted = Json::array();
    for (const auto& url : s.deletedURLs)
        deleted.push_back(url.absoluteString());
    Json records = Json::array();
    for (const auto& record : s.records)
        records.push_back(toJson(record));
    return Json{{"id", s.id.string()},
                {"appName", s.appName},
                {"bundleIdentifier", s.bundleIdentifier},
                {"bundleURL", s.bundleURL.absoluteString()},
                {"deletedURLs", deleted},
                {"unbulkedAllocatedBytes", s.unbulkedAllocatedBytes},
                {"unbulkedLogicalBytes", s.unbulkedLogicalBytes},
                {"dryRun", s.dryRun},
                {"records", records},
                {"timestamp", dates::encode(s.timestamp, dates)}};
}

namespace {

std::optional<FileURL> optionalURL(const Json& j, const char* key) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return std::nullopt;
    return coding::fileURL(*it);
}

} // namespace

InstalledApp installedAppFromJson(const Json& j) {
    InstalledApp a;
    a.id = coding::uuid(j.at("id"));
    a.bundleIdentifier = coding::string(j, "bundleIdentifier");
    a.bundleURL = coding::fileURL(j.at("bundleURL"));
    a.displayName = coding::string(j, "displayName");
    a.version = coding::string(j, "version");
    a.shortVersion = json::getOptional<std::string>(j, "shortVersion");
    a.isSystemApp = j.at("isSystemApp").get<bool>();
    a.isRunning = j.at("isRunning").get<bool>();
    a.bundleSizeBytes = coding::int64(j, "bundleSizeBytes");
    a.logicalSizeBytes = coding::int64(j, "logicalSizeBytes");
    a.architecture = json::getOptional<std::string>(j, "architecture");
    a.codeSignatureAuthority = json::getOptional<std::string>(j, "codeSignatureAuthority");
    a.iconURL = optionalURL(j, "iconURL");
    a.executablePath = json::getOptional<std::string>(j, "executablePath");
    a.teamIdentifier = json::getOptional<std::string>(j, "teamIdentifier");
    a.isProtected = j.at("isProtected").get<bool>();
    a.protectionReason = json::getOptional<std::string>(j, "protectionReason");
    a.bundleName = json::getOptional<std::string>(j, "bundleName");
    a.appGroupIdentifiers = json::getOptional<std::vector<std::string>>(j, "appGroupIdentifiers");
    return a;
}

ResolvedDependency resolvedDependencyFromJson(const Json& j) {
    ResolvedDependency d;
    d.id = coding::uuid(j.at("id"));
    d.url = coding::fileURL(j.at("url"));
    d.path = coding::string(j, "path");
    d.location = j.at("location").get<DependencyLocation>();
    d.allocatedSizeBytes = coding::int64(j, "allocatedSizeBytes");
    d.logicalSizeBytes = coding::int64(j, "logicalSizeBytes");
    d.fileCount = coding::int64(j, "fileCount");
    d.lastModifiedDate = coding::optionalDate(j, "lastModifiedDate");
    d.isDirectory = j.at("isDirectory").get<bool>();
    d.isSymlink = j.at("isSymlink").get<bool>();
    return d;
}

AppFootprint appFootprintFromJson(const Json& j) {
    AppFootprint f;
    f.app = installedAppFromJson(j.at("app"));
    for (const auto& dependency : j.at("dependencies"))
        f.dependencies.push_back(resolvedDependencyFromJson(dependency));
    f.totalAllocatedSizeBytes = coding::int64(j, "totalAllocatedSizeBytes");
    f.totalLogicalSizeBytes = coding::int64(j, "totalLogicalSizeBytes");
    f.totalItemCount = coding::int64(j, "totalItemCount");
    // The flat form: a location's raw value, then its count, and so on.
    const Json& counts = j.at("itemCountByLocation");
    if (!counts.is_array() || counts.size() % 2 != 0) {
        throw std::invalid_argument("itemCountByLocation must alternate locations and counts");
    }
    for (std::size_t i = 0; i < counts.size(); i += 2) {
        f.itemCountByLocation[counts[i].get<DependencyLocation>()] = coding::int64Value(counts[i + 1], "a location's count");
    }
    f.canUninstall = j.at("canUninstall").get<bool>();
    f.blockingReason = json::getOptional<std::string>(j, "blockingReason");
    return f;
}

AppLeftover appLeftoverFromJson(const Json& j) {
    AppLeftover l;
    l.id = coding::uuid(j.at("id"));
    l.candidateAppName = coding::string(j, "candidateAppName");
    l.bundleIdentifier = json::getOptional<std::string>(j, "bundleIdentifier");
    l.url = coding::fileURL(j.at("url"));
    l.path = coding::string(j, "path");
    l.location = j.at("location").get<DependencyLocation>();
    l.allocatedSizeBytes = coding::int64(j, "allocatedSizeBytes");
    l.logicalSizeBytes = coding::int64(j, "logicalSizeBytes");
    l.lastModifiedDate = coding::optionalDate(j, "lastModifiedDate");
    l.confidence = j.at("confidence").get<double>();
    l.orphanReason = coding::string(j, "orphanReason");
    l.suggestedRiskTier = j.at("suggestedRiskTier").get<RiskTier>();
    return l;
}

UninstallSummary uninstallSummaryFromJson(const Json& j) {
    UninstallSummary s;
    s.id = coding::uuid(j.at("id"));
    s.appName = coding::string(j, "appName");
    s.bundleIdentifier = coding::string(j, "bundleIdentifier");
    s.bundleURL = coding::fileURL(j.at("bundleURL"));
    for (const auto& url : j.at("deletedURLs"))
        s.deletedURLs.push_back(coding::fileURL(url));
    s.unbulkedAllocatedBytes = coding::int64(j, "unbulkedAllocatedBytes");
    s.unbulkedLogicalBytes = coding::int64(j, "unbulkedLogicalBytes");
    s.dryRun = j.at("dryRun").get<bool>();
    for (const auto& record : j.at("records"))
        s.records.push_back(trashItemRecordFromJson(record));
    s.timestamp = coding::date(j.at("timestamp"));
    return s;
}

} // namespace unbulk
