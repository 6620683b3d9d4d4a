#include "Rules/CacheDirTagDetector.hpp"

#include <cerrno>
#include <system_error>
#include <vector>

#include <utf8proc.h>

#include "Support/Unicode.hpp"

namespace unbulk::CacheDirTagDetector {
namespace {

// The format is published as the Cache Directory Tagging Specification,
// https://bford.info/cachedir/ ; the tags we write point readers there too.
constexpr std::string_view specificationURL = "https://bford.info/cachedir/";

// One decoded character and the bytes it came from.
struct Scalar {
    utf8proc_int32_t value;
    std::size_t begin;
    std::size_t end;
};

// A run of scalars [first, last).
struct Span {
    std::size_t first;
    std::size_t last;
};

// Strict UTF-8: overlong forms, surrogates and a character cut short by the
// read limit all fail, and then the tag is invalid.
std::optional<std::vector<Scalar>> decodeUTF8(std::string_view bytes) {
    std::vector<Scalar> scalars;
    const auto* data = reinterpret_cast<const utf8proc_uint8_t*>(bytes.data());
    std::size_t at = 0;
    while (at < bytes.size()) {
        utf8proc_int32_t value = 0;
        auto used = utf8proc_iterate(data + at, static_cast<utf8proc_ssize_t>(bytes.size() - at), &value);
        if (used <= 0 || value < 0) return std::nullopt;
        scalars.push_back({value, at, at + static_cast<std::size_t>(used)});
        at += static_cast<std::size_t>(used);
    }
    return scalars;
}

std::vector<Span> splitLines(const std::vector<Scalar>& scalars) {
    std::vector<Span> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i < scalars.size(); ++i) {
        if (unicode::isNewline(static_cast<char32_t>(scalars[i].value))) {
            lines.push_back({start, i});
            start = i + 1;
        }
    }
    lines.push_back({start, scalars.size()});
    return lines;
}

template <typename Predicate>
Span trimmed(const std::vector<Scalar>& scalars, Span span, Predicate drop) {
    while (span.first < span.last && drop(scalars[span.first].value)) ++span.first;
    while (span.last > span.first && drop(scalars[span.last - 1].value)) --span.last;
    return span;
}

std::string_view textOf(std::string_view bytes, const std::vector<Scalar>& scalars, Span span) {
    if (span.first >= span.last) return {};
    const std::size_t begin = scalars[span.first].begin;
    return bytes.substr(begin, scalars[span.last - 1].end - begin);
}

// readFile opens and reads in one call. A tag that cannot be opened counts
// as no tag, one that opens but cannot be read (a directory of that name, an
// I/O error) as a bad tag; the error number tells which step failed.
bool isReadError(const std::error_code& error) {
    if (error.category() != std::generic_category() && error.category() != std::system_category()) return false;
    switch (error.value()) {
    case EISDIR:
    case EIO:
    case EINVAL:
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EBADF:
    case EFAULT:
        return true;
    default:
        return false;
    }
}

bool whitespaceOrNewline(utf8proc_int32_t c) { return unicode::isWhitespaceOrNewline(static_cast<char32_t>(c)); }
bool whitespace(utf8proc_int32_t c) { return unicode::isWhitespace(static_cast<char32_t>(c)); }

} // namespace

std::optional<CacheDirTagInfo> detectTag(const FileURL& directory, const FileSystem& fileSystem) {
    CacheDirTagInfo info{directory.appending(tagFileName, false), directory, false, std::nullopt};
    const std::string& tagPath = info.tagFileURL.path();
    if (!fileSystem.fileExists(tagPath)) return std::nullopt;

    PlatformError error;
    auto contents = fileSystem.readFile(tagPath, readLimit, error);
    if (!contents) {
        if (isReadError(error.code)) return info;
        return std::nullopt;
    }
    if (contents->empty()) return info;

    const std::string_view bytes = *contents;
    auto scalars = decodeUTF8(bytes);
    if (!scalars) return info;

    const auto lines = splitLines(*scalars);
    const auto firstLine = textOf(bytes, *scalars, trimmed(*scalars, lines.front(), whitespaceOrNewline));
    if (firstLine.substr(0, signatureHeader.size()) != signatureHeader) return info;
    info.isValid = true;

    for (std::size_t i = 1; i < lines.size(); ++i) {
        Span line = trimmed(*scalars, lines[i], whitespace);
        if (line.first == line.last || (*scalars)[line.first].value != '#') continue;
        ++line.first;
        info.applicationComment = std::string(textOf(bytes, *scalars, trimmed(*scalars, line, whitespace)));
        break;
    }
    return info;
}

bool isCacheDirectory(const FileURL& directory, const FileSystem& fileSystem) {
    auto info = detectTag(directory, fileSystem);
    return info && info->isValid;
}

void writeTag(const FileURL& directory, const std::optional<std::string>& applicationName, FileSystem& fileSystem) {
    std::string contents(signatureHeader);
    contents += '\n';
    if (applicationName) {
        contents += "# This file is a cache directory tag created by " + *applicationName + ".\n";
        contents += "# For information about cache directory tags, see:\n";
        contents += "#   ";
        contents += specificationURL;
        contents += '\n';
    }
    const std::string tagPath = directory.appending(tagFileName, false).path();
    PlatformError error;
    if (!fileSystem.writeFileAtomically(tagPath, contents, 0644, error)) throw PlatformFailure(tagPath, error);
}

} // namespace unbulk::CacheDirTagDetector
