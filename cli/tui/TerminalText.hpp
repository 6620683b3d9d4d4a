#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Text laid out in terminal cells. A name on disk may hold anything: wide
// East Asian characters and emoji take two cells, combining marks none, and
// a user-perceived character is never cut in two. Widths come from utf8proc,
// so they do not depend on the C library's locale tables.
namespace unbulk::cli::terminalText {

// The text as a terminal can show it: bytes that are not UTF-8, control
// characters and line breaks become U+FFFD, so that no name can move the
// cursor, ring the bell or change colours.
std::string printable(std::string_view text);

// The cells the text takes: for each user-perceived character the widest of
// its scalars (at most 2).
int displayWidth(std::string_view text);

// At most `width` cells of whole characters; when something had to go, the
// last cell is "…".
std::string truncated(std::string_view text, int width);

// The same, cut at the start ("…/Caches/node_modules"): the end of a path
// says most about it.
std::string truncatedAtStart(std::string_view text, int width);

// truncated(), then blanks up to exactly `width` cells; fittedRight puts the
// blanks in front.
std::string fitted(std::string_view text, int width);
std::string fittedRight(std::string_view text, int width);

// Lines of at most `width` cells, broken at blanks; a word longer than a
// line is cut where the line ends.
std::vector<std::string> wrapped(std::string_view text, int width);

// The path with the home directory written "~", and made printable.
std::string homeRelative(std::string_view path, std::string_view homePath);

// A count with a comma between each three digits: "12,345".
std::string grouped(std::int64_t count);

// `width` cells, the share `fraction` (0 to 1) of them "#" and the rest blank.
std::string shareBar(double fraction, int width);

} // namespace unbulk::cli::terminalText
