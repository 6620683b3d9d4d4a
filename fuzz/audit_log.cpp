// verifyIntegrity over any log file, then one entry appended to it: no crash;
// an appended entry lands on a line of its own behind what was there, and a
// refused one leaves the file as it was.
#include <fstream>

#include "Safety/AuditLogger.hpp"
#include "Safety/AuditLoggerError.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const FileURL home(fuzz::temporaryHome(), true);
    const FileURL log(home.path() + "/audit.jsonl");
    const std::string_view contents = fuzz::text(data, size);
    std::ofstream(log.path(), std::ios::binary | std::ios::trunc)
        .write(contents.data(), static_cast<std::streamsize>(contents.size()));
    AuditLogger logger(log, home, makeDefaultFileSystem());
    try {
        logger.verifyIntegrity(); // an undecodable line is an AuditLoggerError, as documented
    } catch (const AuditLoggerError&) {
    }
    try {
        logger.record(Uuid::random(), AuditOperationType::dryRun, 1, 1, {"/x"}, "cli", std::nullopt,
                      std::chrono::system_clock::now());
    } catch (const AuditLoggerError&) {
        std::ifstream in(log.path(), std::ios::binary);
        const std::string after((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        fuzz::require(after == contents);
        return 0;
    }
    std::ifstream in(log.path(), std::ios::binary);
    const std::string after((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    fuzz::require(after.ends_with("\n"));
    fuzz::require(after.starts_with(contents));
    return 0;
}
