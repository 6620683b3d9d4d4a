#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace unbulk::testing {

// A temporary directory that stands in for the user's home. While it lives,
// HOME and XDG_DATA_HOME point into it (the previous values come back when it
// goes), so nothing a test runs can reach the real home or the real Trash.
// The whole tree is removed at the end, even where a test made parts of it
// read-only.
class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    // The home directory itself (absolute, no trailing slash).
    const std::string& path() const { return home_; }
    // The temporary root that holds the home; room for things outside it.
    const std::string& root() const { return root_; }

    // home + "/" + relative
    std::string at(std::string_view relative) const;

    // Creates the directory (with parents) below the home; returns its path.
    std::string makeDirectory(std::string_view relative) const;
    // Writes a file of exactly `size` bytes (parents created); returns its path.
    std::string writeFile(std::string_view relative, std::uintmax_t size) const;
    std::string writeFile(std::string_view relative, std::string_view contents) const;
    // A file of `size` bytes whose blocks are reserved but never written: it
    // counts as `size` allocated bytes at once, however large.
    std::string allocateFile(std::string_view relative, std::int64_t size) const;
    // Creates a symbolic link at `relative` pointing to `target` (as given).
    std::string makeSymlink(std::string_view relative, std::string_view target) const;

private:
    // What HOME and XDG_DATA_HOME were before (nothing when unset).
    std::optional<std::string> savedHome_;
    std::optional<std::string> savedXdgDataHome_;
    std::string root_;
    std::string home_;
};

} // namespace unbulk::testing
