#include "demo_markers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/files.h"
#include "base/json.h"

namespace quillo::agent {

namespace fs = std::filesystem;

namespace markers {

namespace {

constexpr double kLongestTyping = 90;
constexpr const char* kJoin = " · ";

void sortByTime(std::vector<DemoMarker>& list) {
    std::stable_sort(list.begin(), list.end(),
                     [](const DemoMarker& a, const DemoMarker& b) { return a.time < b.time; });
}

}  // namespace

std::vector<DemoMarker> load(const fs::path& folder) {
    std::vector<DemoMarker> list;
    auto text = readFile(folder / kFileName);
    if (!text) {
        return list;
    }
    auto json = parseJson(*text);
    if (!json || !json->is_object() || !json->contains("markers") ||
        !(*json)["markers"].is_array()) {
        return list;
    }
    for (const Json& item : (*json)["markers"]) {
        if (!item.is_object() || !item.contains("label") || !item["label"].is_string() ||
            !item.contains("time") || !item["time"].is_number()) {
            return {};  // never partly used
        }
        list.push_back({item["label"].get<std::string>(), item["time"].get<double>()});
    }
    sortByTime(list);
    return list;
}

Result<void> save(const std::vector<DemoMarker>& list, const fs::path& folder) {
    Json items = Json::array();
    for (const DemoMarker& marker : list) {
        items.push_back({{"label", marker.label}, {"time", marker.time}});
    }
    return writeFileAtomically(folder / kFileName,
                               toPrettyJson({{"version", 1}, {"markers", items}}));
}

Result<std::vector<DemoMarker>> add(const std::string& label, double time, const fs::path& folder) {
    size_t first = label.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return AppError("A marker needs a label.");
    }
    std::string trimmed = label.substr(first, label.find_last_not_of(" \t\r\n") - first + 1);
    if (!(time >= 0) || !std::isfinite(time)) {
        return AppError("Marker times are seconds from the start of the recording.");
    }
    std::vector<DemoMarker> list = load(folder);
    list.push_back({trimmed, time});
    sortByTime(list);
    if (auto saved = save(list, folder); !saved) {
        return saved.error();
    }
    return list;
}

std::vector<Chapter> chapters(std::vector<DemoMarker> list, const project::Edits* edits,
                              double duration, int64_t minimum) {
    sortByTime(list);
    std::vector<Chapter> out;
    for (const DemoMarker& marker : list) {
        double time = edits ? edits->outputTime(marker.time) : marker.time;
        int64_t start = static_cast<int64_t>(std::floor(std::max(time, 0.0)));
        if (!out.empty() && out.back().start == start) {
            out.back().title += kJoin + marker.label;
        } else {
            out.push_back({start, marker.label});
        }
    }
    if (out.empty()) {
        return out;
    }
    if (out.front().start >= minimum) {
        out.insert(out.begin(), {0, "Intro"});
    } else if (out.front().start >= 1) {
        out.front().start = 0;
    }
    for (size_t i = 0; i + 1 < out.size();) {
        if (out[i + 1].start - out[i].start < minimum) {
            out[i].title += kJoin + out[i + 1].title;
            out.erase(out.begin() + static_cast<ptrdiff_t>(i) + 1);
        } else {
            ++i;
        }
    }
    if (out.size() > 1 && duration - static_cast<double>(out.back().start) < minimum) {
        out[out.size() - 2].title += kJoin + out.back().title;
        out.pop_back();
    }
    return out;
}

std::string timestamp(int64_t seconds, bool hours) {
    char text[32];
    if (hours) {
        std::snprintf(text, sizeof text, "%d:%02d:%02d", static_cast<int>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    } else {
        std::snprintf(text, sizeof text, "%d:%02d", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    }
    return text;
}

std::string text(const std::vector<Chapter>& list, double duration) {
    std::string out;
    for (const Chapter& chapter : list) {
        out += timestamp(chapter.start, duration >= 3600) + " " + chapter.title + "\n";
    }
    return out;
}

bool youTubeReady(const std::vector<Chapter>& list) {
    return list.size() >= 3 && list.front().start == 0;
}

}  // namespace markers

double typingDelay(std::optional<double> delayMs, std::optional<double> wpm, size_t characters) {
    constexpr double kDefault = 0.012;
    double delay = kDefault;
    if (delayMs) {
        delay = *delayMs < 1000 ? std::max(*delayMs, 0.0) / 1000 : 1.0;
    } else if (wpm) {
        delay = *wpm < 300 ? 60 / (std::max(*wpm, 5.0) * 5) : 0.04;
    }
    if (characters >= 1) {
        delay = std::min(delay, std::max(kDefault, markers::kLongestTyping / characters));
    }
    return delay;
}

}  // namespace quillo::agent
