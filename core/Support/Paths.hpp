#pragma once

#include <string>
#include <string_view>
#include <vector>

// Lexical path arithmetic. Nothing here touches the disk: resolving symbolic
// links belongs to FileSystem::resolvingSymlinks.
namespace unbulk::paths {

// Collapses repeated and trailing slashes, drops "." components and resolves
// ".." against the component before it. ".." at the root stays at the root;
// a relative path keeps leading ".." it cannot resolve. "" stays "".
std::string standardize(std::string_view path);

// The non-empty components, without slashes.
std::vector<std::string> components(std::string_view path);

// base + "/" + component, without doubling a slash.
std::string appending(std::string_view base, std::string_view component);

std::string lastComponent(std::string_view path);
std::string deletingLastComponent(std::string_view path);

// The text after the last "." of the last component, or "" (".bashrc" has none).
std::string pathExtension(std::string_view path);

// True when path equals root or lies below it, judged on whole components:
// "/a/bc" is not below "/a/b". A root of "/" holds every absolute path.
// Both sides are compared as given; standardise them first.
bool isSameOrBelow(std::string_view path, std::string_view root);

// True only when path lies strictly below root.
bool isStrictlyBelow(std::string_view path, std::string_view root);

bool isAbsolute(std::string_view path);

} // namespace unbulk::paths
