#include "Support/Json.hpp"

#include <stdexcept>

#include <fmt/format.h>

namespace unbulk::json {
namespace {

// The writer's text, brought to the platform encoder's defaults.
//
// Inside strings: every "/" written as "\/", and every character that some
// reader takes for a line break or a control written as an escape: DEL and
// the C1 controls (U+0085 among them), LINE SEPARATOR and PARAGRAPH
// SEPARATOR. The C0 controls are escaped by the JSON writer itself. An escape
// reads back as the same character, so the value is unchanged.
//
// Outside strings: a whole floating-point number is written without its
// fraction ("60", not "60.0"), as the platform's encoder writes a Double.
// Readers see the same value either way.
std::string escaped(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = [&](std::size_t k) {
            return i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0u;
        };
        if (!inString) {
            if (byte == '"') inString = true;
            const bool afterDigit = !out.empty() && out.back() >= '0' && out.back() <= '9';
            const bool wholeFraction = byte == '.' && afterDigit && next(1) == '0' &&
                                       !(next(2) >= '0' && next(2) <= '9') && next(2) != 'e' && next(2) != 'E';
            if (wholeFraction) {
                i += 1; // the "0" after the point
            } else {
                out += text[i];
            }
            continue;
        }
        if (byte == '\\') {
            out += text[i];
            if (i + 1 < text.size()) out += text[++i]; // an escape the writer made stays whole
        } else if (byte == '"') {
            inString = false;
            out += text[i];
        } else if (byte == '/') {
            out += "\\/";
        } else if (byte == 0x7F) {
            out += "\\u007f";
        } else if (byte == 0xC2 && next(1) >= 0x80 && next(1) <= 0x9F) {
            out += fmt::format("\\u{:04x}", next(1));
            i += 1;
        } else if (byte == 0xE2 && next(1) == 0x80 && (next(2) == 0xA8 || next(2) == 0xA9)) {
            out += next(2) == 0xA8 ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace

static_assert(maximumNestingDepth == 512, "the error's sentence names the limit");

Json parse(std::string_view text) {
    if (const auto at = text.find('\0'); at != std::string_view::npos) {
        throw std::invalid_argument("syntax error at byte " + std::to_string(at + 1) + ": a NUL byte is not JSON");
    }
    // The callback sees each container open at the depth of what holds it,
    // before the reader goes in; the reader itself keeps its own stack and
    // never recurses.
    const Json::parser_callback_t limit = [](int depth, Json::parse_event_t event, Json&) {
        if ((event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start) &&
            static_cast<std::size_t>(depth) >= maximumNestingDepth) {
            throw NestingTooDeepError();
        }
        return true;
    };
    return Json::parse(text.begin(), text.end(), limit);
}

// Invalid UTF-8 (a file name on Linux may hold any bytes) is replaced rather
// than thrown on, so that one odd name cannot sink a whole report.
std::string pretty(const Json& value) { return escaped(value.dump(2, ' ', false, Json::error_handler_t::replace)); }

std::string compact(const Json& value) { return escaped(value.dump(-1, ' ', false, Json::error_handler_t::replace)); }

} // namespace unbulk::json
