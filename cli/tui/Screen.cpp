#include "tui/Screen.hpp"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <langinfo.h>
#include <unistd.h>

#include "Support/Unicode.hpp"

// The X/Open wide-character functions of curses (get_wch, addnwstr): both
// ncursesw and the Mac's curses declare them only when asked to.
#ifndef NCURSES_WIDECHAR
#define NCURSES_WIDECHAR 1
#endif
#include <curses.h>

namespace unbulk::cli {
namespace {

// One colour pair per tier, and one for errors.
enum Pair : short { safePair = 1, reviewPair, keepPair, errorPair };

// Curses decodes and draws names in the character set of LC_CTYPE. Names on
// disk are UTF-8 whatever the locale says, so a locale without it (C, POSIX)
// is replaced by a UTF-8 one where the system has one.
void useUtf8Characters() {
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0) return;
    for (const char* name : {"C.UTF-8", "UTF-8", "en_US.UTF-8"}) {
        if (std::setlocale(LC_CTYPE, name) != nullptr) return;
    }
}

// https://no-color.org: present and not empty.
bool coloursWanted() {
    const char* noColor = std::getenv("NO_COLOR");
    return noColor == nullptr || *noColor == '\0';
}

attr_t attributes(Style style, bool colours) {
    switch (style) {
    case Style::plain: return A_NORMAL;
    case Style::title: return A_REVERSE | A_BOLD;
    case Style::status: return A_REVERSE;
    case Style::heading: return A_BOLD;
    case Style::cursor: return A_REVERSE;
    case Style::safe: return colours ? COLOR_PAIR(safePair) : A_NORMAL;
    case Style::review: return colours ? COLOR_PAIR(reviewPair) : A_NORMAL;
    case Style::keep: return colours ? COLOR_PAIR(keepPair) : A_NORMAL;
    case Style::dim: return A_DIM;
    case Style::message: return A_BOLD;
    case Style::error: return colours ? (COLOR_PAIR(errorPair) | A_BOLD) : A_BOLD;
    }
    return A_NORMAL;
}

// Invalid UTF-8 never gets here: the layouts make all text printable first.
std::wstring wide(const std::string& utf8) {
    std::wstring out;
    if (const auto scalars = unicode::scalars(utf8)) {
        for (char32_t scalar : *scalars)
            out.push_back(static_cast<wchar_t>(scalar));
    }
    return out;
}

} // namespace

struct Screen::Terminal {
    SCREEN* screen = nullptr;
    bool colours = false;
};

bool Screen::available() { return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1; }

Screen::Screen() : terminal_(std::make_unique<Terminal>()) {
    useUtf8Characters();
    SCREEN* screen = newterm(nullptr, stdout, stdin);
    if (screen == nullptr) {
        const char* term = std::getenv("TERM");
        throw std::runtime_error("The terminal '" + std::string(term ? term : "") + "' cannot be used.");
    }
    set_term(screen);
    terminal_->screen = screen;
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    set_escdelay(25); // Esc alone goes back at once
    curs_set(0);
    if (has_colors() && coloursWanted()) {
        start_color();
        use_default_colors();
        init_pair(safePair, COLOR_GREEN, -1);
        init_pair(reviewPair, COLOR_YELLOW, -1);
        init_pair(keepPair, COLOR_RED, -1);
        init_pair(errorPair, COLOR_RED, -1);
        terminal_->colours = true;
    }
}

Screen::~Screen() {
    // endwin gives back the normal screen, the cursor and the terminal modes.
    curs_set(1);
    endwin();
    delscreen(terminal_->screen);
}

int Screen::width() const { return COLS; }

int Screen::height() const { return LINES; }

void Screen::paint(const Frame& frame) {
    erase();
    for (int row = 0; row < frame.height() && row < LINES; ++row) {
        const FrameLine& line = frame.lines[static_cast<std::size_t>(row)];
        const attr_t fill = attributes(line.fill, terminal_->colours);
        if (line.fill != Style::plain) {
            attrset(fill);
            mvhline(row, 0, ' ', COLS);
        }
        for (const Span& span : line.spans) {
            const std::wstring text = wide(span.text);
            attrset(fill | attributes(span.style, terminal_->colours));
            mvaddnwstr(row, span.column, text.c_str(), static_cast<int>(text.size()));
        }
    }
    attrset(A_NORMAL);
    refresh();
}

void Screen::run(const std::function<Frame(int width, int height)>& frame,
                 const std::function<bool(const Key&)>& handle, const std::function<bool()>& stopped) {
    constexpr std::chrono::milliseconds keyWait{100};
    while (!stopped()) {
        paint(frame(width(), height()));
        const Key key = nextKey(keyWait);
        if (key.kind == Key::Kind::none || key.kind == Key::Kind::resize) continue;
        if (!handle(key)) return;
    }
}

Key Screen::nextKey(std::chrono::milliseconds wait) {
    timeout(static_cast<int>(wait.count()));
    wint_t code = 0;
    const int kind = get_wch(&code);
    if (kind == ERR) return {};
    if (kind == KEY_CODE_YES) {
        switch (code) {
        case KEY_UP: return {Key::Kind::up};
        case KEY_DOWN: return {Key::Kind::down};
        case KEY_LEFT: return {Key::Kind::left};
        case KEY_RIGHT: return {Key::Kind::right};
        case KEY_PPAGE: return {Key::Kind::pageUp};
        case KEY_NPAGE: return {Key::Kind::pageDown};
        case KEY_HOME: return {Key::Kind::home};
        case KEY_END: return {Key::Kind::end};
        case KEY_ENTER: return {Key::Kind::enter};
        case KEY_BACKSPACE: return {Key::Kind::backspace};
        case KEY_RESIZE: return {Key::Kind::resize};
        default: return {};
        }
    }
    switch (code) {
    case '\n':
    case '\r': return {Key::Kind::enter};
    case 127:
    case '\b': return {Key::Kind::backspace};
    case 27: return {Key::Kind::escape};
    default: return {Key::Kind::character, static_cast<char32_t>(code)};
    }
}

} // namespace unbulk::cli
