#include "demo_script.h"

#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>

#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace quillo::agent {

DemoTiming timing(DemoPace pace) {
    switch (pace) {
        case DemoPace::Calm:
            return {0.9, 0.6, 1.6, 35};
        case DemoPace::Normal:
            return {0.6, 0.35, 1.0, 55};
        case DemoPace::Brisk:
            return {0.35, 0.15, 0.5, 80};
    }
    return {};
}

std::string label(DemoPace pace) {
    std::string text(rawValue(pace));
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

namespace demo_script {

namespace {

// The five request patterns. List prefixes and connective words are matched in any case.
constexpr const char* kListPrefix = R"(^(?:step\s*)?\d{1,2}\s*[.):\-]\s*|^[-*•–]\s+)";
constexpr const char* kInlineNumber = R"((?:^|\s)(\d{1,2})[.)]\s+)";
constexpr const char* kClauseBreak =
    R"(\s*(?:,\s+(?:and\s+)?then\s+|,\s+and\s+|,\s+|;\s*|\s*(?:→|->|=>)\s*|\s+then\s+|\.\s+(?=[A-Z])))";
constexpr const char* kLeadingConnectives =
    R"(^(?:(?:and|then|first|next|finally|lastly)\b,?\s*)+)";
constexpr const char* kTrailingConnective = R"(\s+(?:and|then)$)";

using icu::RegexMatcher;
using icu::UnicodeString;

std::unique_ptr<RegexMatcher> matcher(const char* pattern, const UnicodeString& text,
                                      uint32_t flags = 0) {
    UErrorCode status = U_ZERO_ERROR;
    auto made =
        std::make_unique<RegexMatcher>(UnicodeString::fromUTF8(pattern), text, flags, status);
    return U_SUCCESS(status) ? std::move(made) : nullptr;
}

std::string utf8(const UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

std::string trimmed(std::string text) {
    const char* space = " \t\r\n";
    size_t first = text.find_first_not_of(space);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

// Text with the first match of `pattern` removed.
std::string without(const char* pattern, const std::string& text, uint32_t flags = 0) {
    UnicodeString unicode = UnicodeString::fromUTF8(text);
    auto m = matcher(pattern, unicode, flags);
    if (!m) {
        return text;
    }
    UErrorCode status = U_ZERO_ERROR;
    UnicodeString result = m->replaceFirst(UnicodeString(), status);
    return U_SUCCESS(status) ? utf8(result) : text;
}

// A step as shown: connective words and end punctuation gone, first letter capitalised.
std::string cleanStep(const std::string& raw) {
    std::string step = trimmed(without(kLeadingConnectives, trimmed(raw), UREGEX_CASE_INSENSITIVE));
    step = trimmed(without(kTrailingConnective, step, UREGEX_CASE_INSENSITIVE));
    while (!step.empty() && (step.back() == '.' || step.back() == ',' || step.back() == ';')) {
        step.pop_back();
    }
    step = trimmed(step);
    if (!step.empty() && std::islower(static_cast<unsigned char>(step[0]))) {
        step[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(step[0])));
    }
    return step;
}

std::string titleFrom(std::string text) {
    text = trimmed(text);
    while (!text.empty() && (text.back() == ':' || text.back() == '-')) {
        text.pop_back();
    }
    return trimmed(text);
}

void addStep(Parsed& parsed, const std::string& raw) {
    std::string step = cleanStep(raw);
    if (!step.empty()) {
        parsed.steps.push_back(step);
    }
}

// One step a line for every line with a list prefix.
bool parseList(const std::vector<std::string>& lines, Parsed& parsed) {
    std::vector<std::string> before;
    for (const std::string& line : lines) {
        UnicodeString unicode = UnicodeString::fromUTF8(line);
        auto m = matcher(kListPrefix, unicode, UREGEX_CASE_INSENSITIVE);
        UErrorCode status = U_ZERO_ERROR;
        if (m && m->lookingAt(status) && U_SUCCESS(status)) {
            addStep(parsed, utf8(unicode.tempSubString(m->end(status))));
        } else if (parsed.steps.empty()) {
            before.push_back(line);
        }
    }
    if (parsed.steps.empty()) {
        return false;
    }
    if (!before.empty()) {
        parsed.title = titleFrom(before.back());
    }
    return true;
}

// "1. … 2. … 3. …" inside one paragraph, used only when numbered 1, 2, 3, … in order.
bool parseInline(const std::string& paragraph, Parsed& parsed) {
    UnicodeString unicode = UnicodeString::fromUTF8(paragraph);
    auto m = matcher(kInlineNumber, unicode);
    if (!m) {
        return false;
    }
    struct Item {
        int32_t start;  // of the whole match
        int32_t end;
    };
    std::vector<Item> items;
    UErrorCode status = U_ZERO_ERROR;
    while (m->find(status) && U_SUCCESS(status)) {
        int number = std::stoi(utf8(m->group(1, status)));
        if (number != static_cast<int>(items.size()) + 1) {
            return false;
        }
        items.push_back({m->start(status), m->end(status)});
    }
    if (items.size() < 2) {
        return false;
    }
    parsed.title = titleFrom(utf8(unicode.tempSubString(0, items[0].start)));
    for (size_t i = 0; i < items.size(); ++i) {
        int32_t end = i + 1 < items.size() ? items[i + 1].start : unicode.length();
        addStep(parsed, utf8(unicode.tempSubString(items[i].end, end - items[i].end)));
    }
    return true;
}

// The clauses of a request's sentences; a request of one clause names no steps.
void parseClauses(const std::string& paragraph, Parsed& parsed) {
    std::string body = paragraph;
    if (size_t colon = paragraph.find(": "); colon != std::string::npos) {
        parsed.title = titleFrom(paragraph.substr(0, colon));
        body = paragraph.substr(colon + 2);
    }
    UnicodeString unicode = UnicodeString::fromUTF8(body);
    auto m = matcher(kClauseBreak, unicode);
    if (!m) {
        return;
    }
    std::vector<std::string> pieces;
    int32_t from = 0;
    UErrorCode status = U_ZERO_ERROR;
    while (m->find(status) && U_SUCCESS(status)) {
        pieces.push_back(utf8(unicode.tempSubString(from, m->start(status) - from)));
        from = m->end(status);
    }
    pieces.push_back(utf8(unicode.tempSubString(from)));
    Parsed clauses;
    for (const std::string& piece : pieces) {
        addStep(clauses, piece);
    }
    if (clauses.steps.size() >= 2) {
        parsed.steps = std::move(clauses.steps);
    } else if (!parsed.title.empty()) {
        parsed.title.clear();
    }
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string exportInstruction(DemoExport target) {
    switch (target) {
        case DemoExport::Web:
            return "export with format mp4, size 1080p";
        case DemoExport::Small:
            return "export with format mp4, size 720p";
        case DemoExport::Vertical:
            return "set_style aspect 9:16, then export with format mp4, size 1080p";
        case DemoExport::Gif:
            return "export with format gif";
        case DemoExport::None:
            break;
    }
    return {};
}

std::string lengthText(int64_t seconds) {
    if (seconds < 60) {
        return std::to_string(seconds) + " s";
    }
    std::string text = std::to_string(seconds / 60) + " min";
    return seconds % 60 ? text + " " + std::to_string(seconds % 60) + " s" : text;
}

}  // namespace

Parsed parse(std::string_view text) {
    std::vector<std::string> lines;
    std::istringstream in{std::string(text)};
    for (std::string line; std::getline(in, line);) {
        if (std::string clean = trimmed(line); !clean.empty()) {
            lines.push_back(clean);
        }
    }
    Parsed parsed;
    if (lines.empty() || parseList(lines, parsed)) {
        return parsed;
    }
    std::string paragraph;
    for (const std::string& line : lines) {
        paragraph += (paragraph.empty() ? "" : " ") + line;
    }
    if (!parseInline(paragraph, parsed)) {
        parseClauses(paragraph, parsed);
    }
    return parsed;
}

std::string prompt(const DemoRequest& request) {
    std::ostringstream out;
    out << "Record a scripted demo of the shared app, following the demo workflow in your "
           "instructions.\n";
    out << "What to show, as I wrote it:\n" << trimmed(request.goal) << "\n";
    Parsed parsed = parse(request.goal);
    if (!parsed.steps.empty()) {
        out << "Draft steps (confirm and refine them while planning; add any steps the app needs "
               "in between):\n";
        for (size_t i = 0; i < parsed.steps.size(); ++i) {
            out << i + 1 << ". " << parsed.steps[i] << "\n";
        }
    } else {
        out << "Steps: plan them from the request by looking at the app.\n";
    }
    if (request.length > 0) {
        out << "Target length: about " << lengthText(request.length)
            << " of finished video (clarity wins over hitting it exactly).\n";
    } else {
        out << "Target length: whatever the steps need, without dawdling.\n";
    }
    DemoTiming pace = timing(request.pace);
    out << "Pace: " << label(request.pace) << " (pass pace \"" << rawValue(request.pace)
        << "\" to demo_step): the cursor glides for " << number(pace.move)
        << " s before acting, types at " << pace.wpm << " wpm, and holds each result for "
        << number(pace.after)
        << " s. Pass a longer `after` when a step's result takes longer to appear.\n";
    out << (request.rehearse
                ? "Rehearse: yes, once without recording before the take.\n"
                : "Rehearse: no. Plan by looking, then record; rely on retake_step if a step goes "
                  "wrong.\n");
    out << "After recording:\n";
    out << (request.autoZoom
                ? "- Auto zoom: apply auto_zoom, then check a zoomed step with render_frame.\n"
                : "- Auto zoom: no; remove automatic zooms if the recording got any.\n");
    if (request.removeDeadTime) {
        out << "- Dead time: trim the start to about 1 s before the first step and the end to "
               "about 1.5 s after the last result. Remove idle stretches with a dead-time tool "
               "if one exists; otherwise cut or speed up obvious idle gaps with add_segment.\n";
    }
    if (request.captions) {
        out << "- Captions: add a short caption for each step if a captions tool exists; "
               "otherwise skip it and tell me.\n";
    }
    if (request.exportAs != DemoExport::None) {
        std::string instruction = exportInstruction(request.exportAs);
        out << "- Export: " << instruction
            << ". Use a matching export preset if a preset tool exists; otherwise " << instruction
            << " as written.\n";
    }
    out << "Finish with the recording id, its finished length, the steps you recorded, and the "
           "YouTube chapters from get_markers.";
    return out.str();
}

const char* const instructions =
    "This chat makes a scripted demo video. Work through the phases below in order and tell the "
    "user, in one short line each, when you start rehearsing, recording, and polishing.\n"
    "1. Check: call get_status. Without a shared source, call choose_source and ask the user to "
    "pick the window or display; only they can. Look at the app with screenshot and "
    "ui_elements.\n"
    "2. Plan: turn the request into short numbered steps, each one visible action with a label "
    "of a few words, and confirm the coordinates of every target by looking. Put the app in its "
    "starting state.\n"
    "3. Rehearse (when asked): play every step with demo_step without recording, fix what goes "
    "wrong, and put the app back in its starting state.\n"
    "4. Record: call start_recording, then one demo_step per step with its label; the recording "
    "pauses between steps, so take your time to look. If a step goes wrong, call retake_step, "
    "put the app back, and redo the step with demo_step and no label. End with "
    "stop_recording.\n"
    "5. Polish: trim the start and end, remove dead time, apply the zooms, captions, and style "
    "asked for, check a few moments with render_frame, then export as asked.\n"
    "6. Report: the recording id, its finished length, the numbered steps, and the chapters from "
    "get_markers.";

}  // namespace demo_script

}  // namespace quillo::agent
