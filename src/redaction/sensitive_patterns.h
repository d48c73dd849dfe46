#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/enum_table.h"

namespace quillo::redaction {

// The kinds of private text the scanner looks for on screen.
enum class SensitiveKind { Email, Key, Card, Address, Phone };

// The name shown on a proposed redaction: "Email", "API key", "Card number", "IP address",
// "Phone number".
std::string_view label(SensitiveKind kind);

// A run of a text line in UTF-8 bytes, `start` included, `end` not.
struct TextRange {
    size_t start = 0;
    size_t end = 0;
    bool operator==(const TextRange&) const = default;
};

// One piece of private text found in a line.
struct SensitiveMatch {
    SensitiveKind kind = SensitiveKind::Email;
    std::string text;
    TextRange range;
    bool operator==(const SensitiveMatch&) const = default;
};

// The private text in one line of text, in line order. Every rule's matches over the whole line
// are candidates; a candidate that fails its rule's check or overlaps a match of an earlier rule
// (or an earlier match of the same rule) is dropped, so e-mail addresses win over keys, keys
// over card numbers, and so on.
std::vector<SensitiveMatch> matches(std::string_view line);

// The private text in a line read from the screen: matches(line), plus keys that text
// recognition broke with a stray space. Recognisers often read a long token as two pieces
// ("…cL 6pY…"); so the key rules also run over the line with one such space closed at a time
// (a space between token characters, next to a run of at least 8), and a key found only that
// way is kept when it spans the space and meets no other match. Ranges refer to the line as
// read.
std::vector<SensitiveMatch> matchesRead(std::string_view line);

// The checks behind the rules, exposed for their own tests.

// The Luhn checksum over a string of ASCII digits (false for an empty one or any non-digit).
bool luhn(std::string_view digits);
// 13–19 digits (other characters ignored), not all one digit, passing Luhn.
bool isCardNumber(std::string_view text);
// Four dot-separated decimal parts, each at most 255, the first not 0, 127 or 255.
bool isAddress(std::string_view text);
// Text that reads like a generated token: at least 32 characters with an upper-case letter, a
// lower-case letter and a digit, where at least 45% of neighbouring pairs change character class
// (upper, lower, digit, other). Words and identifiers change class far less often.
bool looksRandom(std::string_view text);

}  // namespace quillo::redaction

template <>
struct quillo::EnumTable<quillo::redaction::SensitiveKind> {
    using Kind = quillo::redaction::SensitiveKind;
    static constexpr std::pair<Kind, std::string_view> cases[] = {
        {Kind::Email, "email"}, {Kind::Key, "key"},     {Kind::Card, "card"},
        {Kind::Address, "ip"},  {Kind::Phone, "phone"},
    };
};
