#include "timeline_items.h"

#include <algorithm>
#include <cmath>

#include <QCoreApplication>

#include "base/clock.h"

namespace quillo::views {

namespace {

using Kind = EditorSession::Kind;

QString tr(const char* text) { return QCoreApplication::translate("Timeline", text); }

// "2×", "1.5×", "1.25×".
QString factor(double value) { return QString::number(value, 'g', 3) + QStringLiteral("×"); }

QString finished(const EditorSession& session, double t) {
    return QString::fromStdString(clock(session.model().edits().outputTime(t), true));
}

QString styleName(project::RedactionStyle style) {
    switch (style) {
        case project::RedactionStyle::Blur:
            return tr("Blur");
        case project::RedactionStyle::Pixelate:
            return tr("Pixelate");
        case project::RedactionStyle::Box:
            return tr("Box");
    }
    return {};
}

}  // namespace

TimelineItems timelineItems(const EditorSession& session, const QFontMetricsF& metrics) {
    const project::Edits& edits = session.model().edits();
    TimelineItems items;
    items.trimStart = edits.trimStart;
    items.trimEnd = edits.trimEnd;
    for (const auto& zoom : edits.zooms) {
        items.zooms.push_back({zoom.start, zoom.end});
    }
    for (const auto& segment : edits.timing()) {
        items.segments.push_back({segment.start, segment.end});
    }
    for (const auto& redaction : edits.redactionList()) {
        items.redactions.push_back({redaction.start, redaction.end});
    }
    if (session.captions()) {
        for (const auto& segment : session.captions()->segments) {
            items.captions.push_back({segment.start, segment.end});
        }
    }
    for (const auto& marker : session.markers()) {
        items.markers.push_back({marker.time, marker.time});
        // The flag's pill: padding either side of the label.
        items.markerLabelWidths.push_back(
            metrics.horizontalAdvance(QString::fromStdString(marker.label)) + 16);
    }
    return items;
}

QString itemLabel(const EditorSession& session, TimelineRow row, size_t index) {
    const project::Edits& edits = session.model().edits();
    switch (row) {
        case TimelineRow::Zooms:
            if (index < edits.zooms.size()) {
                return factor(edits.zooms[index].scale);
            }
            break;
        case TimelineRow::Segments:
            if (index < edits.timing().size()) {
                const auto& segment = edits.timing()[index];
                return segment.isCut() ? tr("Cut") : factor(segment.speed);
            }
            break;
        case TimelineRow::Redactions:
            if (index < edits.redactionList().size()) {
                const auto& redaction = edits.redactionList()[index];
                return redaction.label ? QString::fromStdString(*redaction.label)
                                       : styleName(redaction.style);
            }
            break;
        case TimelineRow::Captions:
            if (session.captions() && index < session.captions()->segments.size()) {
                return QString::fromStdString(session.captions()->segments[index].text);
            }
            break;
        case TimelineRow::Markers:
            if (index < session.markers().size()) {
                return QString::fromStdString(session.markers()[index].label);
            }
            break;
        default:
            break;
    }
    return {};
}

QString itemToolTip(const EditorSession& session, TimelineRow row, size_t index) {
    const project::Edits& edits = session.model().edits();
    auto span = [&](double start, double end) {
        return finished(session, start) + QStringLiteral(" – ") + finished(session, end);
    };
    const QString dot = QStringLiteral(" · ");
    switch (row) {
        case TimelineRow::Zooms:
            if (index < edits.zooms.size()) {
                const auto& zoom = edits.zooms[index];
                return tr("Zoom") + dot + span(zoom.start, zoom.end) + dot + factor(zoom.scale) +
                       (zoom.follow.value_or(false) ? dot + tr("follows the cursor") : QString());
            }
            break;
        case TimelineRow::Segments:
            if (index < edits.timing().size()) {
                const auto& segment = edits.timing()[index];
                if (segment.isCut()) {
                    // A cut has no finished time of its own: say what it removes.
                    return tr("Cut") + dot + finished(session, segment.start) + dot +
                           QString::fromStdString(clock(segment.length(), true)) + tr(" removed");
                }
                return tr("Speed-up") + dot + span(segment.start, segment.end) + dot +
                       factor(segment.speed);
            }
            break;
        case TimelineRow::Redactions:
            if (index < edits.redactionList().size()) {
                const auto& redaction = edits.redactionList()[index];
                return tr("Redaction") + dot + span(redaction.start, redaction.end) + dot +
                       itemLabel(session, row, index);
            }
            break;
        case TimelineRow::Captions:
            if (session.captions() && index < session.captions()->segments.size()) {
                const auto& segment = session.captions()->segments[index];
                return tr("Caption") + dot + span(segment.start, segment.end) +
                       QStringLiteral("\n") + QString::fromStdString(segment.text);
            }
            break;
        case TimelineRow::Markers:
            if (index < session.markers().size()) {
                const auto& marker = session.markers()[index];
                return tr("Marker") + dot + finished(session, marker.time) + dot +
                       QString::fromStdString(marker.label);
            }
            break;
        default:
            break;
    }
    return {};
}

QString rowTitle(TimelineRow row) {
    switch (row) {
        case TimelineRow::Ruler:
            return {};
        case TimelineRow::Frames:
            return tr("Video");
        case TimelineRow::Sound:
            return tr("Sound");
        case TimelineRow::Zooms:
            return tr("Zooms");
        case TimelineRow::Segments:
            return tr("Cuts & Speed");
        case TimelineRow::Redactions:
            return tr("Redactions");
        case TimelineRow::Captions:
            return tr("Captions");
        case TimelineRow::Markers:
            return tr("Markers");
    }
    return {};
}

EditorSession::Kind selectionKind(TimelineRow row) {
    switch (row) {
        case TimelineRow::Zooms:
            return Kind::Zoom;
        case TimelineRow::Segments:
            return Kind::Segment;
        case TimelineRow::Redactions:
            return Kind::Redaction;
        case TimelineRow::Captions:
            return Kind::Caption;
        case TimelineRow::Markers:
            return Kind::Marker;
        default:
            return Kind::None;
    }
}

std::optional<TimelineRow> selectionRow(EditorSession::Kind kind) {
    switch (kind) {
        case Kind::Zoom:
            return TimelineRow::Zooms;
        case Kind::Segment:
            return TimelineRow::Segments;
        case Kind::Redaction:
            return TimelineRow::Redactions;
        case Kind::Caption:
            return TimelineRow::Captions;
        case Kind::Marker:
            return TimelineRow::Markers;
        case Kind::None:
            break;
    }
    return std::nullopt;
}

DragRoom dragRoom(const EditorSession& session, const TimelineItems& items, TimelineRow row,
                  size_t index) {
    const editor::EditorModel& model = session.model();
    double duration = model.duration();
    switch (row) {
        case TimelineRow::Zooms: {
            auto [lo, hi] = model.room(index);
            return {lo, hi, editor::EditorModel::kMinimumZoom};
        }
        case TimelineRow::Segments: {
            auto [lo, hi] = model.segmentRoom(index);
            return {lo, hi, editor::EditorModel::kMinimumSegment};
        }
        case TimelineRow::Captions: {
            // Caption lines may touch but not overlap.
            const auto& spans = items.captions;
            double lo = index > 0 && index - 1 < spans.size() ? spans[index - 1].end : 0;
            double hi = index + 1 < spans.size() ? spans[index + 1].start : duration;
            return {lo, hi, 0.1};
        }
        case TimelineRow::Markers:
            return {0, duration, 0};
        default:
            // Redactions may overlap each other.
            return {0, duration, 0.1};
    }
}

std::optional<size_t> commitSpan(EditorSession& session, TimelineRow row, size_t index,
                                 TimeSpan span) {
    editor::EditorModel& model = session.model();
    const project::Edits& edits = model.edits();
    switch (row) {
        case TimelineRow::Zooms: {
            if (index >= edits.zooms.size()) {
                return std::nullopt;
            }
            project::ZoomSection zoom = edits.zooms[index];
            zoom.start = span.start;
            zoom.end = span.end;
            model.commitZoom(index, zoom);
            return index;
        }
        case TimelineRow::Segments:
            if (index >= edits.timing().size()) {
                return std::nullopt;
            }
            model.setSegment(index, span.start, span.end, std::nullopt);
            return index;
        case TimelineRow::Redactions: {
            if (index >= edits.redactionList().size()) {
                return std::nullopt;
            }
            project::Redaction redaction = edits.redactionList()[index];
            redaction.start = span.start;
            redaction.end = span.end;
            session.redactions().select(index);
            session.redactions().update(redaction);
            return session.redactions().commit() ? std::optional<size_t>(index) : std::nullopt;
        }
        case TimelineRow::Captions: {
            if (!session.captions() || index >= session.captions()->segments.size()) {
                return std::nullopt;
            }
            captions::CaptionTrack track = *session.captions();
            captions::CaptionSegment& segment = track.segments[index];
            double shift = span.start - segment.start;
            if (segment.words && std::abs(span.length() - (segment.end - segment.start)) < 1e-9) {
                // A moved line takes its spoken words along.
                for (auto& word : *segment.words) {
                    word.start += shift;
                    word.end += shift;
                }
            } else {
                // A stretched line spreads its words over its new length.
                segment.words.reset();
            }
            segment.start = span.start;
            segment.end = span.end;
            return session.saveCaptions(track) ? std::optional<size_t>(index) : std::nullopt;
        }
        case TimelineRow::Markers: {
            if (index >= session.markers().size()) {
                return std::nullopt;
            }
            auto list = session.markers();
            agent::DemoMarker moved = list[index];
            moved.time = span.start;
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
            auto at = std::upper_bound(
                list.begin(), list.end(), moved.time,
                [](double t, const agent::DemoMarker& marker) { return t < marker.time; });
            size_t next = static_cast<size_t>(at - list.begin());
            list.insert(at, moved);
            if (!agent::markers::save(list, model.project().directory)) {
                return std::nullopt;
            }
            session.reloadSideFiles();
            return next;
        }
        default:
            return std::nullopt;
    }
}

}  // namespace quillo::views
