#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Support/JsonFwd.hpp"
#include "Support/TextSink.hpp"

namespace unbulk::cli {

// Human and JSON output go to standard output, one line per call, each line
// flushed so that a line printed before a long scan shows at once.
void printLine(std::string_view line);

// Standard error is written straight through, unbuffered, exactly the bytes
// given (the caller supplies any line feed).
void writeError(std::string_view text);

// A record as the commands print it: pretty-printed with sorted keys, then a
// line feed; "{}" stands in should the encoding come out empty.
void printJson(const Json& value);

// A text too long to hold whole (the JSON of a large space lens tree),
// written to standard output piece by piece as `produce` makes it, then a
// line feed, as printLine would write it whole.
void printStreamed(const std::function<void(const TextSink& write)>& produce);

// Seconds with two decimals and a trailing "s": "1.25s".
std::string formatDuration(double seconds);

} // namespace unbulk::cli
