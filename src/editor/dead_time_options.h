#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "base/enum_table.h"

namespace quillo::editor {

// What dead-time removal does with each idle stretch.
enum class DeadTimeAction {
    Auto,     // speed stretches up, but cut those longer than cutAfter
    SpeedUp,  // speed every stretch up
    Cut,      // cut every stretch
};

std::string_view deadTimeActionLabel(DeadTimeAction action);

// The settings of one dead-time search.
struct DeadTimeOptions {
    static constexpr double kCutAfter = 8;   // seconds; longer stretches are cut in auto
    static constexpr double kPadding = 0.3;  // seconds kept at each end of a stretch
    static constexpr std::array<double, 5> kSpeeds = {2, 3, 4, 6, 8};
    static constexpr std::array<double, 5> kLengths = {1, 1.5, 2, 3, 5};

    double minimumLength = 1.5;  // seconds, 0.5–60
    DeadTimeAction action = DeadTimeAction::Auto;
    double speed = 4;  // 2–8

    // One line describing what these options do, for the panel and the tools.
    std::string rule() const;

    bool operator==(const DeadTimeOptions&) const = default;
};

// Numbers in dead-time texts, printed like "%g".
std::string formatNumber(double value);

}  // namespace quillo::editor

namespace quillo {

template <>
struct EnumTable<editor::DeadTimeAction> {
    using E = editor::DeadTimeAction;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::Auto, "auto"}, {E::SpeedUp, "speed_up"}, {E::Cut, "cut"}};
};

}  // namespace quillo
