#include "support/AppBundles.hpp"

#include <stdexcept>

#include "support/ProcessRunner.hpp"

namespace unbulk::testing {

void writePlist(const std::string& path, const Json& dictionary, PlistFormat format) {
    const char* script = "import json, plistlib, sys\n"
                         "fmt = plistlib.FMT_BINARY if sys.argv[3] == 'binary' else plistlib.FMT_XML\n"
                         "with open(sys.argv[1], 'wb') as f:\n"
                         "    plistlib.dump(json.loads(sys.argv[2]), f, fmt=fmt)\n";
    const ProcessResult result = runProcess(
        "/usr/bin/python3", {"-c", script, path, dictionary.dump(), format == PlistFormat::binary ? "binary" : "xml"});
    if (result.exitStatus != 0) throw std::runtime_error("plistlib failed: " + result.standardError);
}

std::string makeBundle(const TempHome& home, const std::string& relative, const Json& info, PlistFormat format,
                       const std::string& executable, const std::string& executableBytes) {
    const std::string bundle = home.makeDirectory(relative);
    home.makeDirectory(relative + "/Contents");
    if (!info.is_null()) writePlist(bundle + "/Contents/Info.plist", info, format);
    if (!executable.empty()) home.writeFile(relative + "/Contents/MacOS/" + executable, executableBytes);
    return bundle;
}

std::string thinArm64Header() { return std::string("\xCF\xFA\xED\xFE\x0C\x00\x00\x01", 8) + std::string(24, '\0'); }

} // namespace unbulk::testing
