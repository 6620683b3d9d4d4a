#include "tui/ReviewLayout.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "Platform/ByteCountFormatter.hpp"
#include "tui/AgeText.hpp"
#include "tui/TerminalText.hpp"

namespace unbulk::cli::reviewLayout {
namespace {

using namespace terminalText;

// Columns of an item row.
constexpr int markColumn = 1, tierColumn = 5, sizeColumn = 12, ageColumn = 22, textColumn = 33;
constexpr int sizeWidth = 9, ageWidth = 10;

struct TierLook {
    const char* label;
    Style style;
};

TierLook tierLook(RiskTier tier) {
    switch (tier) {
    case RiskTier::safeToDelete: return {"SAFE", Style::safe};
    case RiskTier::reviewRequired: return {"REVIEW", Style::review};
    case RiskTier::keep: return {"KEEP", Style::keep};
    }
    return {"?", Style::plain};
}

std::string items(std::int64_t count) { return fmt::format("{} item{}", grouped(count), count == 1 ? "" : "s"); }

void itemRow(Frame& frame, int row, const ReviewEntry& entry, Date now, const std::string& homePath) {
    const DiscoveredItem& item = entry.item;
    frame.put(row, markColumn, entry.refusal ? "[-]" : entry.selected ? "[x]" : "[ ]");
    const TierLook look = tierLook(item.riskTier);
    frame.put(row, tierColumn, look.label, look.style);
    frame.put(row, sizeColumn, fittedRight(formatByteCount(item.allocatedSizeBytes), sizeWidth));
    frame.put(row, ageColumn,
              fitted(item.lastModifiedDate ? ageText(*item.lastModifiedDate, now) : "\u2014", ageWidth));
    const int rest = frame.width - textColumn - 1;
    if (rest <= 0) return;
    const std::string path = homeRelative(item.path, homePath);
    if (rest < 40) {
        frame.put(row, textColumn, truncatedAtStart(path, rest));
        return;
    }
    const int descriptionWidth = std::min(rest / 3, 32);
    frame.put(row, textColumn, fitted(printable(item.itemDescription), descriptionWidth));
    frame.put(row, textColumn + descriptionWidth + 2, truncatedAtStart(path, rest - descriptionWidth - 2), Style::dim);
}

void title(Frame& frame, const std::string& text) {
    frame.fill(0, Style::title);
    frame.put(0, 1, text, Style::title);
}

void status(Frame& frame, const std::string& text) {
    const int row = frame.height() - 1;
    frame.fill(row, Style::status);
    frame.put(row, 1, text, Style::status);
}

} // namespace

Frame list(const ReviewList& list, Viewport& viewport, const std::string& homePath, const Footer& footer, int width,
           int height) {
    Frame frame(width, height);
    if (height < 1) return frame;

    const ReviewList::Totals shown = list.shown();
    std::string heading =
        fmt::format("unbulk review \u2014 {}, {}   sort: {}   age: {}", items(shown.count),
                    formatByteCount(shown.bytes), rawValue(list.sort()), displayName(list.ageFilter()));
    if (!list.textFilter().empty()) heading += "   filter: " + printable(list.textFilter());
    title(frame, heading);

    // A long message takes up to three rows above the status row, and the
    // list gives them up.
    std::vector<std::string> below;
    Style belowStyle = footer.messageStyle;
    if (!footer.message.empty()) {
        below = wrapped(printable(footer.message), width - 2);
        if (below.size() > 3) below.resize(3);
    } else if (const ReviewEntry* entry = list.highlighted()) {
        below.push_back(truncatedAtStart(
            printable(entry->item.itemDescription) + ": " + homeRelative(entry->item.path, homePath), width - 2));
        belowStyle = Style::plain;
    } else {
        below.emplace_back();
    }
    const int listRows = std::max(height - 2 - static_cast<int>(below.size()), 0);
    const auto& rows = list.rows();
    if (rows.empty() && listRows > 0) {
        frame.put(2, 2,
                  list.entries().empty() ? "Nothing found to review." : "Nothing shows under the current filters.",
                  Style::dim);
    }
    viewport.follow(list.cursorRow().value_or(0), static_cast<std::size_t>(listRows), rows.size());
    for (int i = 0; i < listRows; ++i) {
        const std::size_t index = viewport.first + static_cast<std::size_t>(i);
        if (index >= rows.size()) break;
        const ReviewRow& row = rows[index];
        const int screenRow = 1 + i;
        if (row.isHeading) {
            frame.put(screenRow, 1,
                      fmt::format("{} \u2014 {}, {}", displayName(row.category), items(row.itemCount),
                                  formatByteCount(row.bytes)),
                      Style::heading);
            continue;
        }
        if (list.cursorRow() == index) frame.fill(screenRow, Style::cursor);
        itemRow(frame, screenRow, list.entries()[row.entry], list.now(), homePath);
    }

    for (std::size_t i = 0; i < below.size(); ++i)
        frame.put(1 + listRows + static_cast<int>(i), 1, below[i], belowStyle);
    if (height >= 2) {
        const ReviewList::Totals selected = list.selection();
        std::string text = fmt::format("{} selected, {}", grouped(selected.count), formatByteCount(selected.bytes));
        if (selected.hidden > 0) text += fmt::format(" ({} hidden by the filters)", grouped(selected.hidden));
        text += "   ";
        text += footer.prompt.empty() ? "Space select  a all safe  n none  Enter confirm  / filter  ? help  q quit"
                                      : footer.prompt;
        status(frame, text);
    }
    return frame;
}

Frame confirmation(const std::vector<DiscoveredItem>& items, const std::string& homePath, bool purge,
                   const std::string& typed, const std::string& message, int width, int height) {
    Frame frame(width, height);
    if (height < 1) return frame;
    title(frame, purge ? "unbulk review \u2014 delete for good" : "unbulk review \u2014 move to the Trash");
    std::int64_t total = 0;
    for (const DiscoveredItem& item : items)
        total += item.allocatedSizeBytes;
    const std::string what = fmt::format("{}, {} in all,", reviewLayout::items(static_cast<std::int64_t>(items.size())),
                                         formatByteCount(total));
    frame.put(2, 1,
              purge ? fmt::format("{} will be deleted for good, not moved to the Trash:", what)
                    : fmt::format("{} will move to the Trash:", what),
              purge ? Style::error : Style::message);

    const int first = 4, last = height - 3; // rows for the list
    const int room = last - first + 1;
    const int count = static_cast<int>(items.size());
    const int shown = count <= room ? count : std::max(room - 1, 0);
    for (int i = 0; i < shown; ++i) {
        const DiscoveredItem& item = items[static_cast<std::size_t>(i)];
        frame.put(first + i, 3, fittedRight(formatByteCount(item.allocatedSizeBytes), sizeWidth));
        frame.put(first + i, 3 + sizeWidth + 2, truncatedAtStart(homeRelative(item.path, homePath), width - 16));
    }
    if (shown < count) frame.put(first + shown, 3, fmt::format("\u2026 and {} more", count - shown), Style::dim);

    if (height >= 3 && !message.empty()) frame.put(height - 2, 1, printable(message), Style::error);
    status(frame, purge ? "Type purge and press Enter to delete for good (Esc: back): " + printable(typed) + "_"
                        : "y: move to the Trash   P: delete for good instead   n or Esc: back");
    return frame;
}

Frame summary(const TrashSummary& summary, const std::string& homePath, int width, int height) {
    Frame frame(width, height);
    if (height < 1) return frame;
    title(frame, "unbulk review \u2014 done");
    // The words of clean's report.
    std::vector<std::pair<std::string, Style>> lines{
        {fmt::format("{} Cleanup Summary:", summary.isPermanentPurge ? "[PERMANENT PURGE]" : "[TRASHED]"),
         Style::heading},
        {fmt::format("  Items Processed: {}", summary.records.size()), Style::plain},
        {fmt::format("  Successful: {}", summary.successCount), Style::plain},
        {fmt::format("  Space Unbulked: {}", formatByteCount(summary.totalAllocatedBytesUnbulked)), Style::plain},
        {"", Style::plain},
    };
    for (const TrashItemRecord& record : summary.records) {
        const std::string path = homeRelative(record.sourcePath, homePath);
        switch (record.status) {
        case TrashItemStatus::success:
            lines.emplace_back((summary.isPermanentPurge ? "  deleted  " : "  moved    ") + path, Style::plain);
            break;
        case TrashItemStatus::failed:
            lines.emplace_back("  FAILED   " + path, Style::error);
            for (const std::string& part : wrapped(printable(record.errorMessage.value_or("")), width - 14))
                lines.emplace_back("           " + part, Style::error);
            break;
        case TrashItemStatus::simulated:
        case TrashItemStatus::skipped: lines.emplace_back("  skipped  " + path, Style::dim); break;
        }
    }
    for (int i = 0; i < static_cast<int>(lines.size()) && 2 + i < height - 1; ++i)
        frame.put(2 + i, 1, lines[static_cast<std::size_t>(i)].first, lines[static_cast<std::size_t>(i)].second);
    status(frame, "Press any key to go back to the list.");
    return frame;
}

void help(Frame& frame) {
    frame.box("Keys", {
                          "\u2191 \u2193 j k       move up and down (PgUp PgDn: a page)",
                          "Space         select or unselect the item",
                          "a             select every SAFE item shown",
                          "n             select nothing",
                          "s             sort by size, age or name",
                          "o             show any age, or only older than",
                          "              30 days, 90 days or 1 year",
                          "/             filter by path or description",
                          "Enter         move the selection to the Trash",
                          "              (P there deletes it for good)",
                          "q             quit",
                          "",
                          "KEEP items are protected and cannot be selected.",
                          "Press any key to close.",
                      });
}

} // namespace unbulk::cli::reviewLayout
