#pragma once

#include <string_view>
#include <utility>

#include "base/enum_table.h"

namespace quillo::app {

// The global record shortcut choices. Raw values are the stored ones; labels are written the way
// Qt writes key sequences on Linux (Command is Ctrl, Option is Alt, Control is Super).
enum class RecordShortcut { CommandShift2, CommandShiftR, OptionCommandR, ControlOptionCommandR };

struct ShortcutKeys {
    char key;  // the character on the key: '2' or 'r'
    bool ctrl;
    bool shift;
    bool alt;
    bool super;
};

std::string_view shortcutLabel(RecordShortcut shortcut);
ShortcutKeys shortcutKeys(RecordShortcut shortcut);

}  // namespace quillo::app

namespace quillo {

template <>
struct EnumTable<app::RecordShortcut> {
    using E = app::RecordShortcut;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::CommandShift2, "commandShift2"},
        {E::CommandShiftR, "commandShiftR"},
        {E::OptionCommandR, "optionCommandR"},
        {E::ControlOptionCommandR, "controlOptionCommandR"},
    };
};

}  // namespace quillo
