#include "Output.hpp"

#include "Support/Json.hpp"

#include <cstdio>

#include <fmt/format.h>

namespace unbulk::cli {
namespace {

void writeAll(std::FILE* stream, std::string_view bytes) {
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), stream);
}

} // namespace

void printLine(std::string_view line) {
    writeAll(stdout, line);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void writeError(std::string_view text) {
    writeAll(stderr, text);
    std::fflush(stderr);
}

void printJson(const Json& value) {
    std::string text = json::pretty(value);
    printLine(text.empty() ? std::string_view("{}") : std::string_view(text));
}

void printStreamed(const std::function<void(const TextSink& write)>& produce) {
    produce([](std::string_view piece) { writeAll(stdout, piece); });
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string formatDuration(double seconds) { return fmt::format("{:.2f}s", seconds); }

} // namespace unbulk::cli
