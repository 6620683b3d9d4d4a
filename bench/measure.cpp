// measure <path>: one measurement of a tree, as a scan makes it, printed as
// "<allocated> <logical> <files>". The comparison script times it beside du.

#include <cstdio>
#include <string>

#include "Scanner/ItemMeasurer.hpp"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: measure <path>\n");
        return 2;
    }
    auto fileSystem = unbulk::makeDefaultFileSystem();
    const auto metrics = unbulk::ItemMeasurer::measureItem(*fileSystem, argv[1]);
    std::printf("%lld %lld %lld\n", static_cast<long long>(metrics.allocatedBytes),
                static_cast<long long>(metrics.logicalBytes), static_cast<long long>(metrics.fileCount));
    return 0;
}
