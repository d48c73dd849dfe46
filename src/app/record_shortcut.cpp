#include "record_shortcut.h"

namespace quillo::app {

std::string_view shortcutLabel(RecordShortcut shortcut) {
    switch (shortcut) {
        case RecordShortcut::CommandShift2:
            return "Ctrl+Shift+2";
        case RecordShortcut::CommandShiftR:
            return "Ctrl+Shift+R";
        case RecordShortcut::OptionCommandR:
            return "Alt+Ctrl+R";
        case RecordShortcut::ControlOptionCommandR:
            return "Ctrl+Alt+Super+R";
    }
    return {};
}

ShortcutKeys shortcutKeys(RecordShortcut shortcut) {
    switch (shortcut) {
        case RecordShortcut::CommandShift2:
            return {'2', true, true, false, false};
        case RecordShortcut::CommandShiftR:
            return {'r', true, true, false, false};
        case RecordShortcut::OptionCommandR:
            return {'r', true, false, true, false};
        case RecordShortcut::ControlOptionCommandR:
            return {'r', true, false, true, true};
    }
    return {'2', true, true, false, false};
}

}  // namespace quillo::app
