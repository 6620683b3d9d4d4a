#include "tui/Frame.hpp"

#include <algorithm>

#include "Support/Unicode.hpp"
#include "tui/TerminalText.hpp"

namespace unbulk::cli {

Frame::Frame(int columns, int rows) : width(std::max(columns, 0)), lines(static_cast<std::size_t>(std::max(rows, 0))) {}

void Frame::put(int row, int column, const std::string& text, Style style) {
    if (row < 0 || row >= height() || column >= width || column < 0) return;
    lines[static_cast<std::size_t>(row)].spans.push_back(
        {column, terminalText::truncated(text, width - column), style});
}

void Frame::fill(int row, Style style) {
    if (row < 0 || row >= height()) return;
    lines[static_cast<std::size_t>(row)].fill = style;
}

void Frame::box(const std::string& title, const std::vector<std::string>& body) {
    if (width < 8 || height() < 3) return;
    int inner = terminalText::displayWidth(title) + 2;
    for (const std::string& line : body)
        inner = std::max(inner, terminalText::displayWidth(line));
    inner = std::min(inner + 2, width - 4);
    const int rows = std::min(static_cast<int>(body.size()), height() - 2);
    const int top = (height() - rows - 2) / 2;
    const int left = (width - inner - 2) / 2;

    auto horizontal = [&](int count) {
        std::string out;
        for (int i = 0; i < count; ++i)
            out += "\u2500";
        return out;
    };
    auto clearRow = [&](int row) { lines[static_cast<std::size_t>(row)] = FrameLine{}; };

    const std::string heading = terminalText::truncated(" " + title + " ", inner - 1);
    clearRow(top);
    put(top, left, "\u250C\u2500" + heading + horizontal(inner - 1 - terminalText::displayWidth(heading)) + "\u2510",
        Style::heading);
    for (int i = 0; i < rows; ++i) {
        const int row = top + 1 + i;
        clearRow(row);
        put(row, left, "\u2502", Style::heading);
        put(row, left + 1, " " + terminalText::fitted(body[static_cast<std::size_t>(i)], inner - 2) + " ");
        put(row, left + inner + 1, "\u2502", Style::heading);
    }
    clearRow(top + rows + 1);
    put(top + rows + 1, left, "\u2514" + horizontal(inner) + "\u2518", Style::heading);
}

std::string Frame::text() const {
    std::string out;
    for (const FrameLine& line : lines) {
        // Cells in order of the spans: a later span overwrites an earlier one.
        std::vector<std::string> cells(static_cast<std::size_t>(width), " ");
        for (const Span& span : line.spans) {
            int column = span.column;
            for (const std::string& cluster : unicode::graphemeClusters(span.text)) {
                if (column >= width) break;
                const int cellWidth = terminalText::displayWidth(cluster);
                cells[static_cast<std::size_t>(column)] = cluster;
                for (int i = 1; i < cellWidth && column + i < width; ++i)
                    cells[static_cast<std::size_t>(column + i)].clear();
                column += cellWidth;
            }
        }
        std::string row;
        for (const std::string& cell : cells)
            row += cell;
        row.erase(row.find_last_not_of(' ') + 1);
        out += row + "\n";
    }
    return out;
}

} // namespace unbulk::cli
