#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "tui/Frame.hpp"

namespace unbulk::cli {

// A key as the interactive commands read it.
struct Key {
    enum class Kind {
        none,
        character,
        up,
        down,
        left,
        right,
        pageUp,
        pageDown,
        home,
        end,
        enter,
        backspace,
        escape,
        resize
    };
    Kind kind = Kind::none;
    char32_t character = 0; // for Kind::character

    bool is(char32_t c) const { return kind == Kind::character && character == c; }
};

// The terminal, taken over by curses for as long as this lives: the
// alternate screen, keys one at a time without echo, no cursor, colours
// unless NO_COLOR is set. The destructor gives the terminal back as it was,
// on every way out, an exception included. Only main-thread code may use it.
class Screen {
public:
    // Whether standard input and output are both a terminal.
    static bool available();

    // Throws std::runtime_error when the terminal cannot be driven (an
    // unknown TERM).
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int width() const;
    int height() const;

    void paint(const Frame& frame);

    // The next key, or Kind::none when none came within `wait`. After a
    // resize the answer is Kind::resize, and width() and height() are new.
    Key nextKey(std::chrono::milliseconds wait);

    // The loop of every session: paints `frame(width, height)` and hands
    // each key to `handle` until it answers false or `stopped()` does,
    // painting again after a resize and looking at `stopped` at least ten
    // times a second.
    void run(const std::function<Frame(int width, int height)>& frame, const std::function<bool(const Key&)>& handle,
             const std::function<bool()>& stopped);

private:
    struct Terminal; // curses' own handle, kept out of this header
    std::unique_ptr<Terminal> terminal_;
};

} // namespace unbulk::cli
