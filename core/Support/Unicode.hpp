#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Text as people read it: user-perceived characters (extended grapheme
// clusters) and canonical equivalence, over utf8proc. Nothing here fails on
// bad input; bytes that are not UTF-8 are carried through untouched.
namespace unbulk::unicode {

// True when every byte is below 0x80.
bool isAscii(std::string_view text);

// The text cut into user-perceived characters, in order: "e" + U+0301 is one
// character, so is an emoji ZWJ sequence, a flag or a Hangul jamo syllable,
// and so is "\r\n". A byte that does not start a valid UTF-8 sequence ends the
// character before it and becomes a one-byte character of its own.
// Concatenating the result gives the input back.
std::vector<std::string> graphemeClusters(std::string_view utf8);

// The Normalization Form C of the text. Text that is not valid UTF-8 comes
// back as it is.
std::string nfc(std::string_view utf8);

// True when both texts have the same NFC form, that is, when they are
// canonically equivalent ("é" and "e" + U+0301).
bool canonicallyEquivalent(std::string_view a, std::string_view b);

// The Unicode scalars of strictly valid UTF-8; nothing for anything else
// (a stray byte, an overlong form, a surrogate, a sequence cut short).
std::optional<std::u32string> scalars(std::string_view utf8);

// The length in bytes of the one valid UTF-8 character that the text begins
// with, or 0 when it begins with anything else (or is empty).
std::size_t validUtf8SequenceLength(std::string_view utf8);

// Appends the UTF-8 form of one scalar.
void appendUtf8(std::string& out, char32_t scalar);

// The text with every scalar mapped to its lower case (the simple mapping of
// the Unicode data: one scalar each). Bytes that are not valid UTF-8 stay.
std::string lowercased(std::string_view text);

// The text with every scalar mapped to its upper case, by the same simple
// mapping ("\u017F", LONG S, is "S"; "\u00DF" stays, having no one-scalar
// upper case). Bytes that are not valid UTF-8 stay.
std::string uppercased(std::string_view text);

// Each word's first scalar in title case and every other scalar in lower
// case, a word being what spaces, tabs and line breaks delimit ("élan
// vital" is "Élan Vital"). Bytes that are not valid UTF-8 stay.
std::string capitalized(std::string_view text);

// The text as a case-insensitive, normalisation-insensitive file system
// compares names: Unicode case folding (the KELVIN SIGN folds to "k", LONG S
// to "s") on the composed form. Bytes that are not valid UTF-8 stay, with
// ASCII letters lowered.
std::string caseFolded(std::string_view text);

// caseFolded with the combining marks taken away after decomposition
// ("\u00C9clair" is "eclair", "\u00F1" is "n"): the letters a reader sorts by.
// Bytes that are not valid UTF-8 stay, with ASCII letters lowered.
std::string caseFoldedWithoutMarks(std::string_view text);

// What a name looks like, for refusing look-alikes of protected names: the
// compatibility-composed, case-folded text (fullwidth and ligature forms
// become their letters, the KELVIN SIGN "k", LONG S "s") without
// default-ignorable characters (zero-width spaces and joiners), with the
// Cyrillic, Greek and dotless letters that look like Latin ones replaced by
// those. Two names with one skeleton look the same to a person. Bytes that are
// not valid UTF-8 stay, with ASCII letters lowered.
std::string nameSkeleton(std::string_view text);

// Letters, marks and digits of any script (general categories L*, M*, N*).
bool isAlphanumeric(char32_t scalar);

// Line breaks: line feed through carriage return, NEL, U+2028 and U+2029.
bool isNewline(char32_t scalar);
// Tab and the space separators (category Zs); no line breaks.
bool isWhitespace(char32_t scalar);
bool isWhitespaceOrNewline(char32_t scalar);

// The text without white space and line breaks at either end. Bytes that are
// not valid UTF-8 count as text and stay.
std::string_view trimmingWhitespaceAndNewlines(std::string_view text);

} // namespace unbulk::unicode
