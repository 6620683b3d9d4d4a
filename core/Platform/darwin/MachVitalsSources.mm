// The vitals' readings on the Mac: Mach host statistics, NSProcessInfo, the
// volume resource values of NSURL, getattrlist and IOKit's power sources.

#import <Foundation/Foundation.h>
#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>
#include <mach/mach.h>
#include <mach/mach_host.h>
#include <sys/attr.h>
#include <unistd.h>

#include "Platform/VitalsSources.hpp"
#include "Platform/VolumeSpaceUsedReply.hpp"
#include "Platform/darwin/FoundationStrings.hpp"

namespace unbulk {
namespace {

std::optional<std::int64_t> int64Value(CFDictionaryRef dictionary, CFStringRef key) {
    const void* value = CFDictionaryGetValue(dictionary, key);
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) return std::nullopt;
    std::int64_t number = 0;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number)) return std::nullopt;
    return number;
}

// The host's name port. Every mach_host_self() adds a reference to the send
// right, which stays until it is deallocated: one taken per snapshot would
// pile up over a long `unbulk mcp` session. So each source takes it once
// and gives it back when it goes.
class HostPort {
public:
    HostPort() : port_(mach_host_self()) {}
    ~HostPort() {
        if (port_ != MACH_PORT_NULL) mach_port_deallocate(mach_task_self(), port_);
    }
    HostPort(const HostPort&) = delete;
    HostPort& operator=(const HostPort&) = delete;

    host_t get() const { return port_; }

private:
    host_t port_;
};

class MachVitalsSources final : public VitalsSources {
public:
    std::optional<CPUTicks> cpuTicks() const override {
        host_cpu_load_info_data_t load{};
        mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
        if (host_statistics(host_.get(), HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load), &count) !=
            KERN_SUCCESS) {
            return std::nullopt;
        }
        return CPUTicks{.user = load.cpu_ticks[CPU_STATE_USER],
                        .system = load.cpu_ticks[CPU_STATE_SYSTEM],
                        .idle = load.cpu_ticks[CPU_STATE_IDLE],
                        .nice = load.cpu_ticks[CPU_STATE_NICE]};
    }

    int activeProcessorCount() const override {
        return static_cast<int>(NSProcessInfo.processInfo.activeProcessorCount);
    }

    std::optional<MemoryCounters> memoryCounters() const override {
        vm_statistics64_data_t vm{};
        mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
        if (host_statistics64(host_.get(), HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&vm), &count) !=
            KERN_SUCCESS) {
            return std::nullopt;
        }
        vm_size_t pageSize = 0;
        host_page_size(host_.get(), &pageSize);
        const auto page = static_cast<std::int64_t>(pageSize == 0 ? 4096 : pageSize);
        return MemoryCounters{.activeBytes = static_cast<std::int64_t>(vm.active_count) * page,
                              .inactiveBytes = static_cast<std::int64_t>(vm.inactive_count) * page,
                              .wiredBytes = static_cast<std::int64_t>(vm.wire_count) * page,
                              .compressedBytes = static_cast<std::int64_t>(vm.compressor_page_count) * page};
    }

    std::int64_t physicalMemory() const override {
        return static_cast<std::int64_t>(NSProcessInfo.processInfo.physicalMemory);
    }

    VolumeCapacity volumeCapacity(const std::string& volumePath) const override {
        @autoreleasepool {
            VolumeCapacity capacity;
            // A path Foundation cannot take leaves every figure unknown.
            NSURL* url = foundation::fileURL(volumePath);
            if (url == nil) return capacity;
            NSDictionary<NSURLResourceKey, id>* values = [url resourceValuesForKeys:@[
                NSURLVolumeTotalCapacityKey, NSURLVolumeAvailableCapacityKey,
                NSURLVolumeAvailableCapacityForImportantUsageKey, NSURLVolumeNameKey
            ]
                                                                              error:nil];
            if (NSNumber* total = values[NSURLVolumeTotalCapacityKey]) capacity.totalCapacity = total.longLongValue;
            if (NSNumber* available = values[NSURLVolumeAvailableCapacityKey]) {
                capacity.availableCapacity = available.longLongValue;
            }
            if (NSNumber* important = values[NSURLVolumeAvailableCapacityForImportantUsageKey]) {
                capacity.availableCapacityForImportantUsage = important.longLongValue;
            }
            if (NSString* name = values[NSURLVolumeNameKey]) capacity.name = foundation::utf8(name);
            return capacity;
        }
    }

    std::optional<std::int64_t> volumeSpaceUsed(const std::string& volumePath) const override {
        static_assert(sizeof(off_t) == sizeof(std::int64_t));
        struct attrlist request {};
        request.bitmapcount = ATTR_BIT_MAP_COUNT;
        request.volattr = ATTR_VOL_INFO | ATTR_VOL_SPACEUSED;
        VolumeSpaceUsedReply reply;
        if (getattrlist(volumePath.c_str(), &request, &reply, sizeof reply, 0) != 0) return std::nullopt;
        return reply.value();
    }

    std::optional<PowerSourceDescription> firstPowerSource() const override {
        CFTypeRef info = IOPSCopyPowerSourcesInfo();
        if (info == nullptr) return std::nullopt;
        CFArrayRef list = IOPSCopyPowerSourcesList(info);
        if (list == nullptr) {
            CFRelease(info);
            return std::nullopt;
        }
        std::optional<PowerSourceDescription> found;
        for (CFIndex i = 0; i < CFArrayGetCount(list) && !found; ++i) {
            CFDictionaryRef description = IOPSGetPowerSourceDescription(info, CFArrayGetValueAtIndex(list, i));
            if (description == nullptr || CFGetTypeID(description) != CFDictionaryGetTypeID()) continue;
            PowerSourceDescription source;
            source.currentCapacity = int64Value(description, CFSTR(kIOPSCurrentCapacityKey));
            source.maxCapacity = int64Value(description, CFSTR(kIOPSMaxCapacityKey));
            const void* charging = CFDictionaryGetValue(description, CFSTR(kIOPSIsChargingKey));
            if (charging != nullptr && CFGetTypeID(charging) == CFBooleanGetTypeID()) {
                source.isCharging = CFBooleanGetValue(static_cast<CFBooleanRef>(charging));
            }
            const void* state = CFDictionaryGetValue(description, CFSTR(kIOPSPowerSourceStateKey));
            if (state != nullptr && CFGetTypeID(state) == CFStringGetTypeID()) {
                source.powerSourceState = foundation::utf8((__bridge NSString*)static_cast<CFStringRef>(state));
            }
            source.timeToEmpty = int64Value(description, CFSTR(kIOPSTimeToEmptyKey));
            found = source;
        }
        CFRelease(list);
        CFRelease(info);
        return found;
    }

    int thermalState() const override { return static_cast<int>(NSProcessInfo.processInfo.thermalState); }

private:
    HostPort host_;
};

} // namespace

std::shared_ptr<VitalsSources> makeDefaultVitalsSources() { return std::make_shared<MachVitalsSources>(); }

} // namespace unbulk
