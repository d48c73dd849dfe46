#include "dead_time_options.h"

#include <algorithm>
#include <cstdio>

namespace quillo::editor {

std::string_view deadTimeActionLabel(DeadTimeAction action) {
    switch (action) {
        case DeadTimeAction::Auto:
            return "Auto";
        case DeadTimeAction::SpeedUp:
            return "Speed up";
        case DeadTimeAction::Cut:
            return "Cut";
    }
    return {};
}

std::string formatNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string DeadTimeOptions::rule() const {
    // Proposals never go past 8× nor below 2×, whatever the stored speed says.
    std::string speedText = formatNumber(std::clamp(speed, 2.0, 8.0)) + "×";
    switch (action) {
        case DeadTimeAction::Cut:
            return "Cuts idle stretches out.";
        case DeadTimeAction::SpeedUp:
            return "Speeds up idle stretches " + speedText + ".";
        case DeadTimeAction::Auto:
            return "Speeds up idle stretches " + speedText + " and cuts those longer than " +
                   formatNumber(kCutAfter) + " s.";
    }
    return {};
}

}  // namespace quillo::editor
