#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "Support/EnumTable.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

enum class StartupType { userLaunchAgent, systemLaunchAgent, systemLaunchDaemon, loginItem };

struct StartupTypeInfo {
    StartupType value;
    std::string_view rawValue;
    std::string_view displayName;
};

inline constexpr std::array<StartupTypeInfo, 4> startupTypeTable{{
    {StartupType::userLaunchAgent, "USER_LAUNCH_AGENT", "User Launch Agent"},
    {StartupType::systemLaunchAgent, "SYSTEM_LAUNCH_AGENT", "System Launch Agent"},
    {StartupType::systemLaunchDaemon, "SYSTEM_LAUNCH_DAEMON", "System Launch Daemon"},
    {StartupType::loginItem, "LOGIN_ITEM", "Login Item"}, // nothing produces it yet
}};

template <> struct EnumTable<StartupType> {
    static constexpr std::string_view name = "StartupType";
    static constexpr const auto& rows = startupTypeTable;
};

enum class StartupStatus { enabled, disabled, orphan };

struct StartupStatusInfo {
    StartupStatus value;
    std::string_view rawValue;
};

inline constexpr std::array<StartupStatusInfo, 3> startupStatusTable{{
    {StartupStatus::enabled, "ENABLED"},
    {StartupStatus::disabled, "DISABLED"},
    {StartupStatus::orphan, "ORPHAN"},
}};

template <> struct EnumTable<StartupStatus> {
    static constexpr std::string_view name = "StartupStatus";
    static constexpr const auto& rows = startupStatusTable;
};

// Ordered by declaration: unknown compares as the greatest.
enum class StartupImpact { low, medium, high, unknown };

struct StartupImpactInfo {
    StartupImpact value;
    std::string_view rawValue;
};

inline constexpr std::array<StartupImpactInfo, 4> startupImpactTable{{
    {StartupImpact::low, "LOW"},
    {StartupImpact::medium, "MEDIUM"},
    {StartupImpact::high, "HIGH"},
    {StartupImpact::unknown, "UNKNOWN"},
}};

template <> struct EnumTable<StartupImpact> {
    static constexpr std::string_view name = "StartupImpact";
    static constexpr const auto& rows = startupImpactTable;
};

// Something that starts by itself: one launchd property list.
struct StartupItem {
    Uuid id;
    std::string name;
    std::string label;
    StartupType type = StartupType::userLaunchAgent;
    std::optional<FileURL> fileURL;
    std::optional<std::string> targetExecutablePath;
    bool isEnabled = true;
    bool isRunning = false; // always false as listed
    bool requiresAdministrator = false;
    StartupStatus status = StartupStatus::enabled;
    StartupImpact impact = StartupImpact::low;
    std::optional<std::string> bundleIdentifier;

    friend bool operator==(const StartupItem&, const StartupItem&) = default;
};

Json toJson(const StartupItem& item);

} // namespace unbulk
