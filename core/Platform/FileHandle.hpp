#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace unbulk {

// A byte stream the process holds open: standard input, output and error.
// The agent server reads and writes through this, so tests can hand it
// in-memory streams.
class FileHandle {
public:
    virtual ~FileHandle() = default;

    // Reads at most `size` bytes into `buffer`; 0 at the end of input (or when
    // reading fails, which a reader cannot act on either).
    virtual std::size_t read(char* buffer, std::size_t size) = 0;

    // Writes all of `bytes`, retrying short writes; false when the stream
    // refuses them.
    virtual bool write(std::string_view bytes) = 0;
};

// The process's standard streams. They are not closed when the handle goes.
std::unique_ptr<FileHandle> makeStandardInput();
std::unique_ptr<FileHandle> makeStandardOutput();
std::unique_ptr<FileHandle> makeStandardError();

// Whether standard error is a terminal a person watches (not a pipe or file).
bool standardErrorIsTerminal();

} // namespace unbulk
