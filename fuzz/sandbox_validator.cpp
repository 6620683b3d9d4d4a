// The sandbox on any path and any pattern, in a temporary home: it answers
// or refuses, and it never accepts what lies outside the home's reach under
// the system's own directories.
#include "Safety/SandboxSecurityError.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Support/Paths.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const FileURL home(fuzz::temporaryHome(), true);
    const std::string text(fuzz::text(data, size));
    bool accepted = true;
    try {
        SandboxValidator::validatePath(text, home, *makeDefaultFileSystem());
    } catch (const SandboxSecurityError&) {
        accepted = false;
    }
    if (accepted && paths::isAbsolute(text)) {
        const std::string standard = paths::standardizingPath(text, home.path());
        for (const char* system : {"/System", "/usr", "/bin", "/sbin", "/etc", "/proc", "/sys", "/boot"}) {
            fuzz::require(!paths::isSameOrBelow(standard, system));
        }
    }
    try {
        SandboxValidator::validatePattern(text, std::nullopt, home, *makeDefaultFileSystem());
    } catch (const SandboxSecurityError&) {
    }
    return 0;
}
