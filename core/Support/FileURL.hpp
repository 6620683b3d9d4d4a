#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace unbulk {

// A file URL: an absolute path plus whether it names a directory. The
// directory flag decides the trailing "/" of absoluteString(), as a file URL
// made for an existing directory has one. Whoever builds a URL for something
// on disk asks the file system (FileSystem::fileURL) so the flag is true to it.
class FileURL {
public:
    FileURL() = default;
    explicit FileURL(std::string path, bool isDirectory = false);

    const std::string& path() const { return path_; }
    bool isDirectory() const { return isDirectory_; }
    bool empty() const { return path_.empty(); }

    // "file://" + the percent-encoded path (+ "/" for a directory).
    std::string absoluteString() const;

    // The same URL with "." and ".." resolved and redundant slashes removed.
    FileURL standardized() const;

    FileURL appending(std::string_view component, bool isDirectory = false) const;
    FileURL deletingLastComponent() const;
    std::string lastComponent() const;

    // Reads "file://<host>/<percent-encoded path>[/]" back. Anything that is
    // not a file URL with an absolute path gives nothing.
    static std::optional<FileURL> parse(std::string_view absoluteString);

    friend bool operator==(const FileURL&, const FileURL&) = default;
    friend auto operator<=>(const FileURL&, const FileURL&) = default;

private:
    std::string path_;
    bool isDirectory_ = false;
};

// Percent-encoding of a path with the character set that file URLs allow
// unescaped in their path: letters, digits and -._~!$&'()*+,;=:@/
std::string percentEncodePath(std::string_view path);
// The same, appended to `out`: a writer of many URLs makes no string for each.
void appendPercentEncodedPath(std::string& out, std::string_view path);
std::optional<std::string> percentDecode(std::string_view text);

} // namespace unbulk
