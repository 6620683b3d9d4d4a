#include "tui/ExploreLayout.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "Platform/ByteCountFormatter.hpp"
#include "tui/AgeText.hpp"
#include "tui/TerminalText.hpp"

namespace unbulk::cli::exploreLayout {
namespace {

using namespace terminalText;

constexpr int sizeWidth = 9, barWidth = 10, shareWidth = 6, itemsWidth = 9;

std::string kindOf(const SpaceNode& entry) {
    if (!entry.isDirectory) return "file";
    return ExploreView::canOpen(entry) ? "directory" : "package";
}

std::string bytes(std::int64_t count) { return fmt::format("{} ({} bytes)", formatByteCount(count), grouped(count)); }

std::string when(const std::optional<Date>& date, Date now) {
    if (!date) return "\u2014";
    const std::string age = ageText(*date, now);
    return fmt::format("{} ({}{})", dates::iso8601(*date), age, age == "just now" ? "" : " ago");
}

} // namespace

Frame directory(const ExploreView& view, Viewport& viewport, const std::string& homePath, const std::string& message,
                Style messageStyle, const std::string& prompt, int width, int height) {
    Frame frame(width, height);
    if (height < 1) return frame;
    const SpaceNode& shown = view.directory();
    frame.fill(0, Style::title);
    frame.put(0, 1,
              fmt::format("unbulk explore \u2014 {}   {} in {} items   sort: {}", homeRelative(shown.path, homePath),
                          formatByteCount(shown.allocatedSizeBytes), grouped(shown.itemCount), rawValue(view.sort())),
              Style::title);

    // The share and the count drop out first when the terminal is narrow.
    const bool wide = width >= 60;
    const int nameColumn = 1 + sizeWidth + 1 + barWidth + 2 + 1 + (wide ? shareWidth + 1 + itemsWidth + 2 : 0);
    const int listRows = std::max(height - 3, 0);
    const auto& entries = view.entries();
    if (entries.empty() && listRows > 0) frame.put(2, 2, "This directory is empty.", Style::dim);
    viewport.follow(view.cursor().value_or(0), static_cast<std::size_t>(listRows), entries.size());
    for (int i = 0; i < listRows; ++i) {
        const std::size_t index = viewport.first + static_cast<std::size_t>(i);
        if (index >= entries.size()) break;
        const SpaceNode& entry = *entries[index];
        const int row = 1 + i;
        if (view.cursor() == index) frame.fill(row, Style::cursor);
        const double share = view.share(entry);
        int column = 1;
        frame.put(row, column, fittedRight(formatByteCount(entry.allocatedSizeBytes), sizeWidth));
        column += sizeWidth + 1;
        frame.put(row, column, "[" + shareBar(share, barWidth) + "]");
        column += barWidth + 3;
        if (wide) {
            frame.put(row, column, fittedRight(fmt::format("{:.1f}%", share * 100), shareWidth));
            column += shareWidth + 1;
            if (ExploreView::canOpen(entry)) {
                frame.put(row, column, fittedRight(grouped(entry.itemCount), itemsWidth), Style::dim);
            }
        }
        const std::string name = printable(entry.name) + (ExploreView::canOpen(entry) ? "/" : "");
        frame.put(row, nameColumn, truncated(name, width - nameColumn - 1),
                  ExploreView::canOpen(entry) ? Style::heading : Style::plain);
    }

    if (height >= 3 && !message.empty()) frame.put(height - 2, 1, printable(message), messageStyle);
    if (height >= 2) {
        frame.fill(height - 1, Style::status);
        frame.put(height - 1, 1,
                  prompt.empty() ? "Enter open  \u2190 up  d trash  i info  r re-measure  s sort  ? help  q quit"
                                 : prompt,
                  Style::status);
    }
    return frame;
}

std::vector<std::string> details(const SpaceNode& entry, Date now) {
    std::vector<std::string> lines{
        "Name:       " + printable(entry.name),
        "Path:       " + printable(entry.path),
        "Kind:       " + kindOf(entry),
        "Category:   " + (entry.fileCategory ? std::string(rawValue(*entry.fileCategory)) : std::string("\u2014")),
        "Modified:   " + when(entry.lastModifiedDate, now),
        "Accessed:   " + when(entry.lastAccessedDate, now),
        "Allocated:  " + bytes(entry.allocatedSizeBytes),
        "Logical:    " + bytes(entry.logicalSizeBytes),
    };
    if (ExploreView::canOpen(entry)) lines.push_back("Files:      " + grouped(entry.itemCount));
    return lines;
}

void help(Frame& frame) {
    frame.box("Keys", {
                          "\u2191 \u2193 j k       move up and down (PgUp PgDn: a page)",
                          "Enter \u2192 l     open the directory",
                          "\u2190 Backspace h go up",
                          "d             move the entry to the Trash",
                          "i             details of the entry",
                          "r             measure this directory again",
                          "s             sort by size, name or files",
                          "q             quit",
                          "",
                          "Hidden entries of a directory are not listed.",
                          "Press any key to close.",
                      });
}

} // namespace unbulk::cli::exploreLayout
