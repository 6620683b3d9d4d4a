#pragma once

#include <string>

#include "Support/Json.hpp"
#include "support/TempHome.hpp"

namespace unbulk::testing {

enum class PlistFormat { xml, binary };

// Writes `dictionary` as a property list with Python's plistlib, the way
// real tools write them.
void writePlist(const std::string& path, const Json& dictionary, PlistFormat format = PlistFormat::xml);

// A fake application bundle below the home: Contents/Info.plist from `info`
// (none when it is null), and Contents/MacOS/<executable> holding
// `executableBytes` when an executable name is given. Returns its path.
std::string makeBundle(const TempHome& home, const std::string& relative, const Json& info,
                       PlistFormat format = PlistFormat::xml, const std::string& executable = {},
                       const std::string& executableBytes = {});

// The first bytes of a thin 64-bit little-endian arm64 Mach-O file.
std::string thinArm64Header();

} // namespace unbulk::testing
