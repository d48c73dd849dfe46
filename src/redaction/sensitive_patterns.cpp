#include "sensitive_patterns.h"

#include <algorithm>
#include <cctype>
#include <memory>

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include "base/assert.h"

namespace quillo::redaction {

namespace {

enum class Check { None, LetterAndDigit, LooksRandom, Card, Address, PhoneDigits };

struct Rule {
    SensitiveKind kind;
    const char* pattern;
    uint32_t flags;
    Check check;
};

// In priority order: a candidate overlapping a match of an earlier row is dropped.
constexpr Rule kRules[] = {
    {SensitiveKind::Email, R"re([A-Z0-9._%+\-]+@[A-Z0-9\-]+(?:\.[A-Z0-9\-]+)*\.[A-Z]{2,})re",
     UREGEX_CASE_INSENSITIVE, Check::None},
    {SensitiveKind::Key, R"re(\bsk-(?:proj-|ant-)?[A-Za-z0-9_\-]{20,})re", 0, Check::None},
    {SensitiveKind::Key, R"re(\bgh[pousr]_[A-Za-z0-9]{30,})re", 0, Check::None},
    {SensitiveKind::Key, R"re(\bgithub_pat_[A-Za-z0-9_]{30,})re", 0, Check::None},
    {SensitiveKind::Key, R"re(\b(?:AKIA|ASIA)[A-Z0-9]{16}\b)re", 0, Check::None},
    {SensitiveKind::Key, R"re(\bxox[abposr]-[A-Za-z0-9\-]{10,})re", 0, Check::None},
    {SensitiveKind::Key, R"re(\bAIza[A-Za-z0-9_\-]{30,})re", 0, Check::None},
    {SensitiveKind::Key, R"re(\b[rsp]k_(?:live|test)_[A-Za-z0-9]{16,})re", 0, Check::None},
    {SensitiveKind::Key,
     R"re(\beyJ[A-Za-z0-9_\-]{10,}\.eyJ[A-Za-z0-9_\-]{10,}\.[A-Za-z0-9_\-]{10,})re", 0,
     Check::None},
    {SensitiveKind::Key, R"re(\b[A-Fa-f0-9]{32,}\b)re", 0, Check::LetterAndDigit},
    {SensitiveKind::Key, R"re((?<![A-Za-z0-9_+\-])[A-Za-z0-9_+\-]{32,}={0,2})re", 0,
     Check::LooksRandom},
    {SensitiveKind::Card, R"re((?<![\d\-])(?:\d[ \-]?){12,18}\d(?![\d\-]))re", 0, Check::Card},
    {SensitiveKind::Address, R"re((?<![\w.])(?:\d{1,3}\.){3}\d{1,3}(?!\.?\d))re", 0,
     Check::Address},
    {SensitiveKind::Phone,
     R"re((?<![\w+])(?:\+?1[ .\-]?)?(?:\(\d{3}\) ?|\d{3}[ .\-])\d{3}[ .\-]\d{4}(?!\w))re", 0,
     Check::None},
    {SensitiveKind::Phone, R"re((?<![\w+])\+\d{1,3}(?:[ .\-]?\(?\d{1,4}\)?){2,6}(?!\w))re", 0,
     Check::PhoneDigits},
};
constexpr size_t kRuleCount = std::size(kRules);

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }

size_t digitCount(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), isDigit));
}

bool passes(Check check, std::string_view text) {
    switch (check) {
        case Check::None:
            return true;
        case Check::LetterAndDigit:
            return std::any_of(text.begin(), text.end(), isDigit) &&
                   std::any_of(text.begin(), text.end(),
                               [](char c) { return isUpper(c) || isLower(c); });
        case Check::LooksRandom:
            return looksRandom(text);
        case Check::Card:
            return isCardNumber(text);
        case Check::Address:
            return isAddress(text);
        case Check::PhoneDigits: {
            size_t digits = digitCount(text);
            return digits >= 8 && digits <= 15;
        }
    }
    return false;
}

// The compiled rules, made once. Compiled patterns are immutable and may make matchers on any
// thread at the same time.
const std::vector<std::unique_ptr<icu::RegexPattern>>& compiledRules() {
    static const auto compiled = [] {
        std::vector<std::unique_ptr<icu::RegexPattern>> list;
        for (const Rule& rule : kRules) {
            UErrorCode status = U_ZERO_ERROR;
            UParseError where{};
            list.emplace_back(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(rule.pattern),
                                                         rule.flags, where, status));
            QUILLO_ASSERT(U_SUCCESS(status) && list.back() != nullptr);
        }
        return list;
    }();
    return compiled;
}

// UTF-8 byte offset of every UTF-16 offset of `text` (one entry past the end too).
std::vector<size_t> utf8Offsets(const icu::UnicodeString& text) {
    std::vector<size_t> offsets(static_cast<size_t>(text.length()) + 1, 0);
    size_t bytes = 0;
    for (int32_t i = 0; i < text.length();) {
        UChar32 c = text.char32At(i);
        int32_t units = U16_LENGTH(c);
        size_t width = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        for (int32_t k = 0; k < units && i + k < text.length(); ++k) {
            offsets[static_cast<size_t>(i + k)] = bytes;
        }
        bytes += width;
        i += units;
    }
    offsets.back() = bytes;
    return offsets;
}

struct Candidate {
    SensitiveKind kind;
    int32_t start;  // UTF-16 offsets
    int32_t end;
};

}  // namespace

std::string_view label(SensitiveKind kind) {
    switch (kind) {
        case SensitiveKind::Email:
            return "Email";
        case SensitiveKind::Key:
            return "API key";
        case SensitiveKind::Card:
            return "Card number";
        case SensitiveKind::Address:
            return "IP address";
        case SensitiveKind::Phone:
            return "Phone number";
    }
    return {};
}

std::vector<SensitiveMatch> matches(std::string_view line) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(line.data(), static_cast<int32_t>(line.size())));
    const auto& patterns = compiledRules();
    std::vector<Candidate> taken;
    for (size_t r = 0; r < kRuleCount; ++r) {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::RegexMatcher> matcher(patterns[r]->matcher(text, status));
        if (U_FAILURE(status)) {
            continue;
        }
        while (matcher->find(status) && U_SUCCESS(status)) {
            int32_t start = matcher->start(status);
            int32_t end = matcher->end(status);
            if (U_FAILURE(status) || end <= start) {
                break;
            }
            bool overlaps = std::any_of(taken.begin(), taken.end(), [&](const Candidate& other) {
                return start < other.end && other.start < end;
            });
            if (overlaps) {
                continue;
            }
            std::string found;
            text.tempSubStringBetween(start, end).toUTF8String(found);
            if (passes(kRules[r].check, found)) {
                taken.push_back({kRules[r].kind, start, end});
            }
        }
    }
    std::sort(taken.begin(), taken.end(),
              [](const Candidate& a, const Candidate& b) { return a.start < b.start; });
    const std::vector<size_t> offsets = utf8Offsets(text);
    std::vector<SensitiveMatch> result;
    result.reserve(taken.size());
    for (const Candidate& c : taken) {
        TextRange range{offsets[static_cast<size_t>(c.start)], offsets[static_cast<size_t>(c.end)]};
        result.push_back(
            {c.kind, std::string(line.substr(range.start, range.end - range.start)), range});
    }
    return result;
}

bool luhn(std::string_view digits) {
    if (digits.empty()) {
        return false;
    }
    int sum = 0;
    bool doubled = false;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
        if (!isDigit(*it)) {
            return false;
        }
        int d = *it - '0';
        if (doubled) {
            d = d * 2 > 9 ? d * 2 - 9 : d * 2;
        }
        sum += d;
        doubled = !doubled;
    }
    return sum % 10 == 0;
}

bool isCardNumber(std::string_view text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), isDigit);
    if (digits.size() < 13 || digits.size() > 19) {
        return false;
    }
    if (digits.find_first_not_of(digits[0]) == std::string::npos) {
        return false;
    }
    return luhn(digits);
}

bool isAddress(std::string_view text) {
    int parts[4] = {};
    size_t count = 0;
    size_t start = 0;
    while (true) {
        size_t dot = text.find('.', start);
        std::string_view part = text.substr(
            start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
        if (count == 4 || part.empty() || part.size() > 3 ||
            !std::all_of(part.begin(), part.end(), isDigit)) {
            return false;
        }
        int value = 0;
        for (char c : part) {
            value = value * 10 + (c - '0');
        }
        if (value > 255) {
            return false;
        }
        parts[count++] = value;
        if (dot == std::string_view::npos) {
            break;
        }
        start = dot + 1;
    }
    return count == 4 && parts[0] != 0 && parts[0] != 127 && parts[0] != 255;
}

bool looksRandom(std::string_view text) {
    if (text.size() < 32) {
        return false;
    }
    auto classOf = [](char c) { return isUpper(c) ? 0 : isLower(c) ? 1 : isDigit(c) ? 2 : 3; };
    bool upper = false;
    bool lower = false;
    bool digit = false;
    size_t changes = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        int kind = classOf(text[i]);
        upper = upper || kind == 0;
        lower = lower || kind == 1;
        digit = digit || kind == 2;
        if (i > 0 && kind != classOf(text[i - 1])) {
            ++changes;
        }
    }
    return upper && lower && digit &&
           static_cast<double>(changes) / static_cast<double>(text.size() - 1) >= 0.45;
}

std::vector<SensitiveMatch> matchesRead(std::string_view line) {
    std::vector<SensitiveMatch> found = matches(line);
    auto tokenChar = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '+';
    };
    auto runLength = [&](size_t from, int step) {
        size_t length = 0;
        for (size_t i = from; i < line.size() && tokenChar(line[i]); i = step > 0 ? i + 1 : i - 1) {
            ++length;
            if (i == 0) {
                break;
            }
        }
        return length;
    };
    // Each single space between token characters with a long run on one side (a piece of a
    // key) is closed on its own, and the key rules run over the line so mended.
    constexpr size_t kPiece = 8;
    for (size_t gap = 1; gap + 1 < line.size(); ++gap) {
        if (line[gap] != ' ' || !tokenChar(line[gap - 1]) || !tokenChar(line[gap + 1]) ||
            std::max(runLength(gap - 1, -1), runLength(gap + 1, 1)) < kPiece) {
            continue;
        }
        std::string mended(line.substr(0, gap));
        mended += line.substr(gap + 1);
        for (SensitiveMatch& match : matches(mended)) {
            if (match.kind != SensitiveKind::Key || match.range.start >= gap ||
                match.range.end <= gap) {
                continue;
            }
            TextRange range{match.range.start, match.range.end + 1};
            bool meets = std::any_of(found.begin(), found.end(), [&](const SensitiveMatch& o) {
                return o.range.start < range.end && range.start < o.range.end;
            });
            if (!meets) {
                match.range = range;
                found.push_back(std::move(match));
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const SensitiveMatch& a, const SensitiveMatch& b) {
        return a.range.start < b.range.start;
    });
    return found;
}

}  // namespace quillo::redaction
