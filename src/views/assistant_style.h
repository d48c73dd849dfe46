#pragma once

#include <QColor>
#include <QPalette>

#include "colour_mix.h"

namespace quillo::views {

// The assistant pane's colours, taken from the palette so light and dark themes both read well.
struct TranscriptColours {
    QColor text;
    QColor muted;   // headers, notes and tool arguments
    QColor bubble;  // behind the person's messages and commands
    QColor done;
    QColor error;
};

inline bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightness() < 128;
}

inline TranscriptColours transcriptColours(const QPalette& palette) {
    const bool dark = isDark(palette);
    TranscriptColours colours;
    colours.text = palette.color(QPalette::Text);
    colours.muted = palette.color(QPalette::PlaceholderText);
    // A faint wash of the highlight colour over the background.
    colours.bubble =
        mix(palette.color(QPalette::Base), palette.color(QPalette::Highlight), dark ? 0.22 : 0.12);
    colours.done = dark ? QColor(0x6c, 0xcb, 0x7a) : QColor(0x1e, 0x7b, 0x34);
    colours.error = dark ? QColor(0xff, 0x7b, 0x72) : QColor(0xc6, 0x28, 0x28);
    return colours;
}

}  // namespace quillo::views
