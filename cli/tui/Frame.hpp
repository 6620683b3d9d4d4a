#pragma once

#include <string>
#include <vector>

namespace unbulk::cli {

// How a piece of text looks. The screen turns these into colours and
// attributes (and, under NO_COLOR, into attributes alone).
enum class Style { plain, title, status, heading, cursor, safe, review, keep, dim, message, error };

// Text at a column of its row, already cut to fit.
struct Span {
    int column = 0;
    std::string text;
    Style style = Style::plain;
};

struct FrameLine {
    std::vector<Span> spans;
    Style fill = Style::plain; // the look of the whole row behind the spans
};

// One full screen, row by row, as the layouts compose it and the screen
// paints it: plain values, so that what would be drawn can be looked at
// without a terminal.
struct Frame {
    int width = 0;
    std::vector<FrameLine> lines; // exactly one per row

    Frame(int columns, int rows);
    int height() const { return static_cast<int>(lines.size()); }

    // Puts text at a row and column, cut to the columns left; rows outside
    // the frame are ignored.
    void put(int row, int column, const std::string& text, Style style = Style::plain);
    void fill(int row, Style style);
    // A box in the middle of the frame, over whatever is there: a title in
    // its top edge and the lines inside, as many as fit.
    void box(const std::string& title, const std::vector<std::string>& body);
    // The rows as text, trailing blanks removed (for tests and diagnostics).
    std::string text() const;
};

} // namespace unbulk::cli
