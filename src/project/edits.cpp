#include "edits.h"

#include <algorithm>
#include <cmath>

namespace quillo::project {

namespace {

bool finite(double value) { return std::isfinite(value); }

// Rule 2: zooms inside the recording, scale 1–4, focus inside the frame, touching allowed.
bool zoomsAreValid(const std::vector<ZoomSection>& zooms, double duration) {
    double previousEnd = -1;
    for (const ZoomSection& zoom : sortedByStart(zooms)) {
        bool ok = finite(zoom.start) && finite(zoom.end) && zoom.start >= 0 &&
                  zoom.end <= duration + kEndTolerance && zoom.start < zoom.end &&
                  zoom.scale >= 1 && zoom.scale <= 4 && zoom.x >= 0 && zoom.x <= 1 && zoom.y >= 0 &&
                  zoom.y <= 1 && zoom.start >= previousEnd;
        if (!ok) {
            return false;
        }
        previousEnd = zoom.end;
    }
    return true;
}

// Rule 3: segments inside the recording, not overlapping; speed 0 (a cut) or 1–16.
bool segmentsAreValid(const std::vector<TimeSegment>& segments, double duration) {
    double previousEnd = -1;
    for (const TimeSegment& segment : sortedByStart(segments)) {
        bool ok = finite(segment.start) && finite(segment.end) && segment.start >= 0 &&
                  segment.end <= duration + kEndTolerance && segment.start < segment.end &&
                  segment.start >= previousEnd &&
                  (segment.speed == 0 || (segment.speed >= 1 && segment.speed <= 16));
        if (!ok) {
            return false;
        }
        previousEnd = segment.end;
    }
    return true;
}

}  // namespace

double ZoomSection::amount(double t) const {
    if (t < start || t > end) {
        return 1;
    }
    double ramp = std::min((end - start) / 2, 0.5);
    if (!(ramp > 0)) {
        return 1;
    }
    double p = std::clamp(std::min((t - start) / ramp, (end - t) / ramp), 0.0, 1.0);
    return 1 + (scale - 1) * p * p * (3 - 2 * p);
}

Rect ZoomSection::viewport(std::optional<double> magnification) const {
    double s = std::max(magnification.value_or(scale), 1.0);
    double size = 1 / s;
    double left = std::clamp(x - size / 2, 0.0, 1 - size);
    double top = std::clamp(y - size / 2, 0.0, 1 - size);
    return {left, top, size, size};
}

std::string_view aspectLabel(AspectRatio aspect) {
    return aspect == AspectRatio::Original ? "Auto" : rawValue(aspect);
}

std::optional<double> aspectValue(AspectRatio aspect) {
    switch (aspect) {
        case AspectRatio::Original:
            return std::nullopt;
        case AspectRatio::Wide16x9:
            return 16.0 / 9.0;
        case AspectRatio::Classic4x3:
            return 4.0 / 3.0;
        case AspectRatio::Square1x1:
            return 1.0;
        case AspectRatio::Portrait9x16:
            return 9.0 / 16.0;
    }
    return std::nullopt;
}

Size outputSize(AspectRatio aspect, Size source) {
    std::optional<double> ratio = aspectValue(aspect);
    if (!ratio || !(source.width > 0) || !(source.height > 0)) {
        return source;
    }
    double width = source.width;
    double height = source.height;
    if (source.width / source.height > *ratio) {
        height = width / *ratio;
    } else {
        width = height * *ratio;
    }
    auto even = [](double value) { return std::round(value / 2) * 2; };
    return {even(width), even(height)};
}

bool Redaction::isValid() const {
    if (!(finite(start) && finite(end) && finite(x) && finite(y) && finite(width) &&
          finite(height) && finite(strength))) {
        return false;
    }
    if (!(start >= 0 && start < end && x >= 0 && y >= 0 && width > 0 && height > 0 &&
          x + width <= 1.0001 && y + height <= 1.0001 && strength >= 0 && strength <= 1)) {
        return false;
    }
    if (color) {
        if (color->size() != 3) {
            return false;
        }
        for (double component : *color) {
            if (!(finite(component) && component >= 0 && component <= 1)) {
                return false;
            }
        }
    }
    return true;
}

Edits Edits::fresh(double duration) {
    Edits edits;
    edits.trimEnd = duration;
    return edits;
}

const std::vector<TimeSegment>& Edits::timing() const {
    static const std::vector<TimeSegment> none;
    return segments ? *segments : none;
}

const std::vector<Redaction>& Edits::redactionList() const {
    static const std::vector<Redaction> none;
    return redactions ? *redactions : none;
}

Result<void> Edits::validate(double duration) const {
    if (!(version == 1 && finite(duration) && duration >= 0 && finite(trimStart) &&
          finite(trimEnd) && trimStart >= 0 && trimEnd <= duration + kEndTolerance &&
          trimStart < trimEnd)) {
        return AppError("The trim range is invalid.");
    }
    if (!zoomsAreValid(zooms, duration)) {
        return AppError("Zoom sections must be within the recording and must not overlap.");
    }
    if (!segmentsAreValid(timing(), duration)) {
        return AppError("Cuts and speed-ups must be within the recording and must not overlap.");
    }
    std::vector<TimeSegment> kept = pieces();
    double left = 0;
    for (const TimeSegment& piece : kept) {
        left += piece.length() / piece.speed;
    }
    if (kept.empty() || !(left > kEndTolerance)) {
        return AppError("Nothing would be left of the clip.");
    }
    if (frame && !(frame->padding >= 0 && frame->padding <= 0.25 && frame->cornerRadius >= 0 &&
                   frame->cornerRadius <= 0.1 && frame->background >= 0 &&
                   frame->background < static_cast<int64_t>(kBackgrounds.size()))) {
        return AppError("The background style is invalid.");
    }
    if (camera &&
        !(finite(camera->size) && finite(camera->cornerRadius) && camera->size >= 0.1 &&
          camera->size <= 0.5 && camera->cornerRadius >= 0 && camera->cornerRadius <= 0.5)) {
        return AppError("The camera size must be 0.1–0.5 and its corner radius 0–0.5.");
    }
    for (const Redaction& redaction : redactionList()) {
        if (!redaction.isValid() || !(redaction.end <= duration + kEndTolerance)) {
            return AppError("Redactions must be within the recording and the frame.");
        }
    }
    return {};
}

bool Edits::needsComposition() const {
    return !zooms.empty() || frame.has_value() ||
           (aspect.has_value() && *aspect != AspectRatio::Original) ||
           clickHighlights.value_or(false) || reframe.has_value() ||
           (captions.has_value() && captions->visible) || !redactionList().empty();
}

CaptionStyle CaptionStyle::clamped() const {
    CaptionStyle style = *this;
    style.size = std::isfinite(size) ? std::clamp(size, 0.5, 2.5) : 1.0;
    style.maxCharacters = std::clamp<int64_t>(maxCharacters, 12, 80);
    return style;
}

}  // namespace quillo::project
