#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace unbulk {

// A failed call into the platform, saying what failed: the error, for code
// that tells kinds of failure apart; the system call and the path (or two)
// it was given, for a person ("renameat2('/home/me/.local/share/Trash/files/x'):
// Permission denied" says which of three places refused); or, where the
// platform words its errors itself (Foundation's name the item and the
// reason), the platform's own sentence.
struct PlatformError {
    std::error_code code;
    std::string description; // the platform's own sentence, when it gave one
    std::string call;        // the system call, when one failed ("openat", "renameat2")
    std::string path;        // what it acted on
    std::string otherPath;   // the second path of a call that takes two (a rename's destination)

    explicit operator bool() const { return static_cast<bool>(code); }
    int value() const { return code.value(); }
    void clear() { *this = PlatformError{}; }

    // What a person is shown: the platform's sentence; else the call, its
    // paths and the reason, "call('path'): reason", "call('from', 'to'):
    // reason" or, for a call given no path, "call(): reason"; else the
    // reason alone.
    std::string message() const;

    // A system call that failed with `errorNumber`, and the paths it was
    // given; `call(path)` and `errno` right after it, as a rule.
    static PlatformError systemCall(std::string_view call, int errorNumber, std::string path,
                                    std::string otherPath = {});

    // An error that no single call raised (a check of ours, a refusal): its
    // reason is all there is to say.
    static PlatformError of(std::error_code code) { return PlatformError{code, {}, {}, {}, {}}; }

    // An error reported by domain and number with its own sentence, the
    // way Foundation reports every error. A POSIX error keeps its number;
    // one of another domain takes the number of the POSIX error beneath it
    // (`underlyingPOSIXCode`), or else counts as an I/O error. The sentence
    // is the message as given; without one, the domain and number stand in.
    static PlatformError fromDomain(std::string_view domain, long code, std::string description,
                                    std::optional<long> underlyingPOSIXCode = std::nullopt);

    friend bool operator==(const PlatformError& error, std::errc value) { return error.code == value; }
    friend bool operator==(const PlatformError& error, const std::error_code& other) { return error.code == other; }
};

// A PlatformError raised, with what the caller was doing: what() is
// "<context>: <error.message()>". A std::system_error, so that whoever
// tells failures apart by their code still can.
class PlatformFailure : public std::system_error {
public:
    PlatformFailure(const std::string& context, PlatformError error);
    const char* what() const noexcept override { return message_.c_str(); }
    const PlatformError& error() const { return error_; }

private:
    PlatformError error_;
    std::string message_;
};

} // namespace unbulk
