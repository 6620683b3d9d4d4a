#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace unbulk::testing {

// A terminal for a full-screen program under test: a tmux server of its own
// (its own socket, no configuration file, so nothing of the user's tmux is
// touched or read) with one detached window of a given size, running a
// shell command in this process's environment (which a TempHome has pointed
// at itself), with a UTF-8 locale. Keys go in, the screen comes out as text,
// and the window can be resized. The server goes when this does.
//
// The machine running the tests may be slow: wait for what the screen should
// show with waitFor(), never with a fixed sleep.
class TerminalSession {
public:
    TerminalSession(const std::string& command, int width, int height);
    ~TerminalSession();
    TerminalSession(const TerminalSession&) = delete;
    TerminalSession& operator=(const TerminalSession&) = delete;

    // Whether tmux is there to be run; the tests say how to get it when not.
    static bool available();

    // Keys by tmux's names: "Enter", "Space", "Escape", "Left", "j".
    void press(const std::vector<std::string>& keys) const;
    // Text as it stands, character by character.
    void type(const std::string& text) const;

    // The window's rows, each without its trailing blanks; with `attributes`,
    // with the escape sequences of their colours and attributes as well.
    std::string screen(bool attributes = false) const;
    // Reads the screen until the predicate holds or the time is up; true
    // when it held.
    bool waitUntil(const std::function<bool(const std::string&)>& holds,
                   std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    bool waitFor(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

    void resize(int width, int height) const;
    // A tmux format of the window's pane ("#{alternate_on}").
    std::string query(const std::string& format) const;

private:
    std::string tmux(const std::vector<std::string>& arguments) const;

    std::string socket_;
    std::string socketPath_; // the server leaves its socket behind when killed
};

} // namespace unbulk::testing
