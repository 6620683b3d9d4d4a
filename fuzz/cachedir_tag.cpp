// The CACHEDIR.TAG reader on any file contents: a tag file is always seen,
// and only one that carries the signature is valid.
#include <fstream>

#include "Rules/CacheDirTagDetector.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const std::string directory = fuzz::temporaryHome() + "/tagged";
    std::filesystem::create_directories(directory);
    const std::string_view contents = fuzz::text(data, size);
    std::ofstream(directory + "/CACHEDIR.TAG", std::ios::binary | std::ios::trunc)
        .write(contents.data(), static_cast<std::streamsize>(contents.size()));
    const auto tag = CacheDirTagDetector::detectTag(FileURL(directory, true), *makeDefaultFileSystem());
    fuzz::require(tag.has_value());
    // Only a tag that carries the signature is ever valid.
    fuzz::require(!tag->isValid || contents.find(CacheDirTagDetector::standardSignature) != std::string_view::npos);
    return 0;
}
