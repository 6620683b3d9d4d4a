#include "Platform/linux/ProcVitalsSources.hpp"

#include <fstream>
#include <map>
#include <sstream>
#include <sys/statvfs.h>
#include <unistd.h>

#include "Platform/linux/SysfsAttributes.hpp"
#include "Platform/linux/SysfsThermalStateProvider.hpp"

namespace unbulk {
namespace {

std::optional<std::string> readText(const std::string& path) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// "Name:   12345 kB" lines, in bytes.
std::map<std::string, std::int64_t> meminfoFields(const std::string& text) {
    std::map<std::string, std::int64_t> fields;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const auto colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::istringstream value(line.substr(colon + 1));
        std::int64_t number = 0;
        std::string unit;
        if (!(value >> number)) continue;
        value >> unit;
        fields[line.substr(0, colon)] = unit == "kB" ? number * 1024 : number;
    }
    return fields;
}

} // namespace

ProcVitalsSources::ProcVitalsSources(std::string root) : root_(root == "/" ? "" : std::move(root)) {}

std::string ProcVitalsSources::at(const std::string& relative) const { return root_ + relative; }

// The first line of /proc/stat: user nice system idle iowait irq softirq
// steal ... Interrupt time counts as system time and waiting for I/O as idle,
// as the Mac's counters book them; time stolen by a hypervisor was never
// this machine's and counts nowhere.
std::optional<CPUTicks> ProcVitalsSources::cpuTicks() const {
    const auto text = readText(at("/proc/stat"));
    if (!text) return std::nullopt;
    std::istringstream line(text->substr(0, text->find('\n')));
    std::string label;
    std::uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0;
    if (!(line >> label >> user >> nice >> system >> idle) || label != "cpu") return std::nullopt;
    line >> iowait >> irq >> softirq;
    return CPUTicks{.user = user, .system = system + irq + softirq, .idle = idle + iowait, .nice = nice};
}

int ProcVitalsSources::activeProcessorCount() const {
    int count = 0;
    if (const auto text = readText(at("/proc/stat"))) {
        std::istringstream lines(*text);
        std::string line;
        while (std::getline(lines, line)) {
            if (line.size() > 3 && line.starts_with("cpu") && line[3] >= '0' && line[3] <= '9') ++count;
        }
    }
    return count > 0 ? count : static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
}

// The Mac's page counts in Linux's terms: app memory is Active + Inactive;
// wired is what can never be paged out, Unevictable plus the kernel's own
// stacks, page tables and unreclaimable slab; compressed is the zswap pool
// where the kernel has one, else 0.
std::optional<MemoryCounters> ProcVitalsSources::memoryCounters() const {
    const auto text = readText(at("/proc/meminfo"));
    if (!text) return std::nullopt;
    const auto fields = meminfoFields(*text);
    auto field = [&](const char* name) {
        auto it = fields.find(name);
        return it == fields.end() ? std::int64_t{0} : it->second;
    };
    if (!fields.contains("Active") || !fields.contains("Inactive")) return std::nullopt;
    return MemoryCounters{.activeBytes = field("Active"),
                          .inactiveBytes = field("Inactive"),
                          .wiredBytes =
                              field("Unevictable") + field("KernelStack") + field("PageTables") + field("SUnreclaim"),
                          .compressedBytes = field("Zswap")};
}

std::int64_t ProcVitalsSources::physicalMemory() const {
    if (const auto text = readText(at("/proc/meminfo"))) {
        const auto fields = meminfoFields(*text);
        if (auto it = fields.find("MemTotal"); it != fields.end()) return it->second;
    }
    return static_cast<std::int64_t>(::sysconf(_SC_PHYS_PAGES)) * ::sysconf(_SC_PAGESIZE);
}

// statvfs has no figure for "important usage"; the name is the file
// system's label where it has one, else its device's name.
VolumeCapacity ProcVitalsSources::volumeCapacity(const std::string& volumePath) const {
    VolumeCapacity capacity;
    struct statvfs st {};
    if (::statvfs(volumePath.c_str(), &st) == 0) {
        capacity.totalCapacity = static_cast<std::int64_t>(st.f_blocks) * static_cast<std::int64_t>(st.f_frsize);
        capacity.availableCapacity = static_cast<std::int64_t>(st.f_bavail) * static_cast<std::int64_t>(st.f_frsize);
    }
    if (const auto mounts = readText(at("/proc/self/mounts"))) {
        std::istringstream lines(*mounts);
        std::string device, mountPoint, rest;
        while (lines >> device >> mountPoint && std::getline(lines, rest)) {
            if (mountPoint != volumePath) continue;
            std::string name = device.substr(device.rfind('/') + 1);
            for (const auto& label : sysfs::sortedNames(at("/dev/disk/by-label"))) {
                char target[4096];
                const ssize_t n = ::readlink(at("/dev/disk/by-label/" + label).c_str(), target, sizeof target - 1);
                if (n > 0 && std::string(target, static_cast<std::size_t>(n)).ends_with("/" + name)) name = label;
            }
            capacity.name = name; // the last mount of the point is the one in effect
        }
    }
    return capacity;
}

// Linux keeps no separate system volumes: nothing to add.
std::optional<std::int64_t> ProcVitalsSources::volumeSpaceUsed(const std::string&) const { return std::nullopt; }

// The first battery of the machine itself (not a mouse's), described as the
// Mac describes a power source: capacity in percent of 100, "AC Power" while
// a mains or USB supply is online, and the time to empty from the energy
// (or charge) left over the present draw while discharging.
std::optional<PowerSourceDescription> ProcVitalsSources::firstPowerSource() const {
    const std::string supplies = at("/sys/class/power_supply");
    bool online = false;
    std::optional<PowerSourceDescription> battery;
    for (const auto& name : sysfs::sortedNames(supplies)) {
        const std::string path = supplies + "/" + name;
        if (sysfs::readAttribute(path + "/scope") == "Device") continue;
        const auto type = sysfs::readAttribute(path + "/type");
        if ((type == "Mains" || type == "USB") && sysfs::readInteger(path + "/online") == 1) online = true;
        if (type != "Battery" || battery) continue;
        PowerSourceDescription description;
        description.currentCapacity = sysfs::readInteger(path + "/capacity");
        description.maxCapacity = 100;
        const auto status = sysfs::readAttribute(path + "/status");
        description.isCharging = status == "Charging";
        if (status == "Discharging") {
            auto left = sysfs::readInteger(path + "/energy_now");
            auto draw = sysfs::readInteger(path + "/power_now");
            if (!left || !draw) {
                left = sysfs::readInteger(path + "/charge_now");
                draw = sysfs::readInteger(path + "/current_now");
            }
            if (left && draw && *draw > 0) description.timeToEmpty = *left * 60 / *draw;
        }
        battery = description;
    }
    if (battery) battery->powerSourceState = online ? "AC Power" : "Battery Power";
    return battery;
}

int ProcVitalsSources::thermalState() const {
    return static_cast<int>(SysfsThermalStateProvider(at("/sys")).thermalState());
}

std::shared_ptr<VitalsSources> makeDefaultVitalsSources() { return std::make_shared<ProcVitalsSources>(); }

} // namespace unbulk
