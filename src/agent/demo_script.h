#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/enum_table.h"

namespace quillo::agent {

// How fast a scripted demo plays.
enum class DemoPace { Calm, Normal, Brisk };

struct DemoTiming {
    double move = 0;   // seconds of cursor glide
    double hold = 0;   // seconds of rest before acting
    double after = 0;  // seconds holding on the result
    int wpm = 0;       // typing speed
};
DemoTiming timing(DemoPace pace);
// "Calm", "Normal", "Brisk".
std::string label(DemoPace pace);

// The export that finishes a demo.
enum class DemoExport { None, Web, Small, Vertical, Gif };

// What the user asked for in the demo form.
struct DemoRequest {
    std::string goal;
    int64_t length = 0;  // seconds of finished video; 0 when not set
    DemoPace pace = DemoPace::Normal;
    bool rehearse = true;
    bool autoZoom = true;
    bool captions = false;
    bool removeDeadTime = true;
    DemoExport exportAs = DemoExport::Web;
};

// Turns a demo request into draft steps and the assistant's first message.
namespace demo_script {

struct Parsed {
    std::string title;               // a heading before the steps, if any
    std::vector<std::string> steps;  // in order; empty when the text names no steps
};

// Splits a request into a title and steps: a numbered or bulleted list (one step a line), else
// inline numbered items "1. … 2. …" numbered in order, else the clauses of its sentences.
Parsed parse(std::string_view text);

// The first message of a scripted-demo chat.
std::string prompt(const DemoRequest& request);

// The workflow the assistant follows in a demo chat, sent unchanged.
extern const char* const instructions;

}  // namespace demo_script

}  // namespace quillo::agent

namespace quillo {

template <>
struct EnumTable<agent::DemoPace> {
    using E = agent::DemoPace;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::Calm, "calm"}, {E::Normal, "normal"}, {E::Brisk, "brisk"}};
};

template <>
struct EnumTable<agent::DemoExport> {
    using E = agent::DemoExport;
    static constexpr std::pair<E, std::string_view> cases[] = {{E::None, "none"},
                                                               {E::Web, "web"},
                                                               {E::Small, "small"},
                                                               {E::Vertical, "vertical"},
                                                               {E::Gif, "gif"}};
};

}  // namespace quillo
