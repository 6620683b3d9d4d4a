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

// The platform's path standardisation (NSString.standardizingPath), done
// lexically, as the pattern language and the places that compare rule paths
// rely on it. Distinct from standardize(), which is the URL form.
//  - A leading "~" alone or "~/" is replaced by homePath (nothing happens
//    when homePath is empty). "~name..." is left as it is: looking another
//    user up belongs to the platform, and is not done here.
//  - Empty components (repeated slashes) and "." components are dropped, so
//    "./a" gives "a" and "." gives "".
//  - In an absolute path, ".." removes the component before it; at the root
//    it is dropped ("/.." gives "/"). A relative path keeps every "..", as
//    there is nothing to resolve it against: "a/../b" stays "a/../b".
//  - The trailing slash goes; "/" stays "/".
//  - "" gives "", and so does any relative path made only of "." and slashes.
// Symbolic links are not resolved and the disk is never asked.
std::string standardizingPath(std::string_view path, std::string_view homePath);

// True when standardizingPath would give the path back unchanged: no leading
// tilde, no empty or "." component, no ".." in an absolute path, no trailing
// slash. "" counts as standard.
bool isStandardizedPath(std::string_view path);

} // namespace unbulk::paths
