#include "ProgressLine.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/FileHandle.hpp"

namespace unbulk::cli {
namespace {

constexpr std::string_view eraseLine = "\r\x1b[2K";
constexpr std::size_t widestPath = 48;

// The end of a long path, which says most about where the work is.
std::string shortened(const std::string& path) {
    if (path.size() <= widestPath) return path;
    std::size_t cut = path.size() - (widestPath - 3);
    while (cut < path.size() && (static_cast<unsigned char>(path[cut]) & 0xC0) == 0x80)
        ++cut; // whole characters
    return "..." + path.substr(cut);
}

} // namespace

ProgressLine::ProgressLine(bool wanted)
    : enabled_(wanted && standardErrorIsTerminal()), start_(std::chrono::steady_clock::now()) {}

ProgressLine::~ProgressLine() { clear(); }

void ProgressLine::show(const std::string& where, std::int64_t items, std::int64_t bytes) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (shown_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    shown_ = true;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    writeError(fmt::format("{}{} \u2014 {} found, {} \u2014 {:.0f}s", eraseLine, shortened(where), items,
                           formatByteCount(bytes), seconds));
}

ItemProgress ProgressLine::countingItems() {
    if (!enabled_) return {};
    return [this](const std::string& path, std::int64_t bytes) {
        std::lock_guard lock(mutex_);
        ++items_;
        bytes_ += bytes;
        show(path, items_, bytes_);
    };
}

ScanProgressHandler ProgressLine::scanTotals() {
    return [this](const ScanProgress& progress) {
        std::lock_guard lock(mutex_);
        items_ = std::max(items_, progress.itemsFound);
        bytes_ = std::max(bytes_, progress.totalAllocatedBytesScanned);
        show(progress.currentPath, items_, bytes_);
    };
}

void ProgressLine::clear() {
    if (!shown_) return;
    writeError(eraseLine);
    shown_ = false;
}

} // namespace unbulk::cli
