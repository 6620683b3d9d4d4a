#include "Support/Json.hpp"

#include <algorithm>
#include <array>
#include <cmath>
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
//
// Appends `text` so brought to `out`. `inString` says where `text` starts,
// inside a string's quotes or outside them; the answer says where it ends.
bool appendEncoded(std::string& out, std::string_view text, bool inString) {
    // Inside a string, the bytes that may need more than a copy.
    const auto mayChange = [](unsigned char byte) {
        return byte == '\\' || byte == '"' || byte == '/' || byte == 0x7F || byte == 0xC2 || byte == 0xE2;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (inString) {
            std::size_t end = i;
            while (end < text.size() && !mayChange(static_cast<unsigned char>(text[end]))) ++end;
            out.append(text.substr(i, end - i));
            if (end == text.size()) break;
            i = end;
        }
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
    return inString;
}

std::string escaped(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    appendEncoded(out, text, false);
    return out;
}

} // namespace

bool isPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
}

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

void appendStringContent(std::string& out, std::string_view text) {
    if (isPlain(text)) {
        // Of plain text only the solidus changes: the platform's encoder
        // writes it "\/". Paths are most of what is written, and this is
        // their way.
        std::size_t start = 0;
        for (std::size_t slash = text.find('/'); slash != std::string_view::npos; slash = text.find('/', start)) {
            out.append(text.data() + start, slash - start);
            out += "\\/";
            start = slash + 1;
        }
        out.append(text.data() + start, text.size() - start);
        return;
    }
    // Everything else as the writer makes it of a whole string, quotes taken off.
    const std::string literal = escaped(Json(std::string(text)).dump(-1, ' ', false, Json::error_handler_t::replace));
    out.append(literal, 1, literal.size() - 2);
}

void appendString(std::string& out, std::string_view text) {
    out += '"';
    appendStringContent(out, text);
    out += '"';
}

void appendNumber(std::string& out, double value) {
    // The writer's own shortest form of a Double, which dump() uses too, and
    // null where JSON has no number.
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    std::array<char, 64> digits{};
    const char* end = nlohmann::detail::to_chars(digits.data(), digits.data() + digits.size(), value);
    appendEncoded(out, std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())), false);
}

void appendNumber(std::string& out, std::int64_t value) { out += fmt::format_int(value).c_str(); }

} // namespace unbulk::json
