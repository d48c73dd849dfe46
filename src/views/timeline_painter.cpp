#include "timeline_painter.h"

#include <algorithm>
#include <cmath>

#include <QCoreApplication>
#include <QPainterPath>

#include "base/clock.h"
#include "colour_mix.h"
#include "project/time_map.h"
#include "timeline_items.h"

namespace quillo::views {

namespace {

constexpr qreal kBlockRadius = 5;
constexpr qreal kLaneRadius = 6;
constexpr qreal kBlockInset = 3;  // between a lane's edges and its blocks

// The hue of each row's blocks.
const QColor kZoom(124, 92, 250);
const QColor kCut(229, 72, 77);
const QColor kSpeed(234, 150, 20);
const QColor kRedaction(128, 131, 145);
const QColor kCaption(59, 130, 246);
const QColor kMarker(34, 160, 107);
const QColor kSound(20, 170, 160);

QColor withAlpha(QColor colour, qreal alpha) {
    colour.setAlphaF(static_cast<float>(alpha));
    return colour;
}

// Colours shared by every part of one paint.
struct Colours {
    bool dark = false;
    QColor base;
    QColor window;
    QColor text;
    QColor muted;
    QColor lane;
    QColor grid;
    QColor accent;
    QColor accentText;
    QColor handle;

    explicit Colours(const QPalette& palette) {
        window = palette.color(QPalette::Window);
        base = palette.color(QPalette::Base);
        text = palette.color(QPalette::Text);
        dark = window.lightness() < 128;
        muted = mix(base, text, dark ? 0.6 : 0.55);
        lane = mix(base, text, dark ? 0.06 : 0.035);
        grid = mix(base, text, dark ? 0.22 : 0.18);
        accent = palette.color(QPalette::Highlight);
        accentText = palette.color(QPalette::HighlightedText);
        handle = dark ? QColor(228, 228, 231) : QColor(52, 52, 60);
    }
    // A block's fill: its hue blended into the background, stronger when selected or hovered.
    QColor fill(const QColor& hue, bool strong) const {
        return mix(base, hue, (dark ? 0.42 : 0.26) + (strong ? 0.18 : 0));
    }
    // Text on a block: the palette's text tinted by the hue, for contrast in both themes.
    QColor ink(const QColor& hue) const { return mix(text, hue, dark ? 0.1 : 0.35); }
};

struct Painting {
    QPainter& p;
    const TimelineScene& scene;
    const TimelineLayout& layout;
    const EditorSession& session;
    Colours colours;
    QRectF tracks;  // the area right of the label column

    QRectF lane(TimelineRow row) const {
        QRectF r = layout.rect(row);
        return QRectF(tracks.left(), r.top(), tracks.width(), r.height());
    }
    QRectF block(TimelineRow row, const TimeSpan& span) const {
        QRectF r = lane(row);
        return QRectF(QPointF(layout.x(span.start), r.top() + kBlockInset),
                      QPointF(layout.x(span.end), r.bottom() - kBlockInset));
    }
    bool selected(TimelineRow row, size_t index) const {
        return scene.selectedRow == row && scene.selectedIndex == index;
    }
    bool hovered(TimelineRow row, size_t index) const {
        return scene.hover.what == TimelineHit::What::Item && scene.hover.row == row &&
               scene.hover.index == index;
    }
};

QPainterPath hatch(const QRectF& rect, qreal spacing) {
    QPainterPath path;
    for (qreal x = rect.left() - rect.height(); x < rect.right(); x += spacing) {
        path.moveTo(x, rect.bottom());
        path.lineTo(x + rect.height(), rect.top());
    }
    return path;
}

void drawLabels(Painting& s) {
    QPainter& p = s.p;
    QFont font = p.font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    font.setWeight(QFont::DemiBold);
    p.setFont(font);
    p.setPen(s.colours.muted);
    for (size_t i = 1; i < kTimelineRowCount; ++i) {
        auto row = static_cast<TimelineRow>(i);
        QRectF r = s.layout.rect(row);
        r.setRight(TimelineLayout::kLabelWidth - 8);
        r.setLeft(12);
        p.drawText(r, Qt::AlignVCenter | Qt::AlignLeft, rowTitle(row));
    }
    // The finished video's length above the row names.
    QRectF ruler = s.layout.rect(TimelineRow::Ruler);
    ruler.setLeft(12);
    ruler.setRight(TimelineLayout::kLabelWidth - 8);
    font.setWeight(QFont::Normal);
    p.setFont(font);
    double length = s.session.model().edits().outputDuration();
    p.drawText(ruler, Qt::AlignVCenter | Qt::AlignLeft,
               QCoreApplication::translate("Timeline", "Length %1")
                   .arg(QString::fromStdString(clock(length, true))));
}

// Ticks at round finished-video times, placed where those moments lie in the recording: they
// crowd in speed-ups and vanish in cuts, which are hatched.
void drawRuler(Painting& s) {
    QPainter& p = s.p;
    const project::Edits& edits = s.session.model().edits();
    QRectF ruler = s.lane(TimelineRow::Ruler);
    p.setPen(QPen(s.colours.grid, 1));
    p.drawLine(QPointF(ruler.left(), ruler.bottom() - 0.5),
               QPointF(ruler.right(), ruler.bottom() - 0.5));

    for (const auto& segment : edits.timing()) {
        if (segment.isCut()) {
            QRectF cut(QPointF(s.layout.x(segment.start), ruler.top() + 4),
                       QPointF(s.layout.x(segment.end), ruler.bottom() - 1));
            p.save();
            p.setClipRect(cut.intersected(ruler));
            p.setPen(QPen(withAlpha(kCut, 0.45), 1));
            p.drawPath(hatch(cut, 5));
            p.restore();
        }
    }

    project::TimeMap map(edits);
    double step = rulerStep(s.layout.pixelsPerSecond, 72);
    double minor = step / (step >= 1 && std::fmod(step, 5) == 0 ? 5 : 2);
    double from = edits.outputTime(std::max(0.0, s.layout.time(ruler.left())));
    double to = edits.outputTime(std::min(s.layout.duration, s.layout.time(ruler.right())));
    bool precise = step < 1;
    QFont font = p.font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    p.setFont(font);
    QFontMetricsF metrics(font);
    qreal lastLabelEnd = -1e9;
    // Labels the playhead's pill would cover are left out rather than cut in half.
    qreal playX = s.layout.x(s.scene.playhead);
    qreal pillHalf = metrics.horizontalAdvance(
                         QString::fromStdString(clock(edits.outputTime(s.scene.playhead), true))) *
                         0.55 +
                     10;
    for (auto k = static_cast<int64_t>(std::floor(from / minor));; ++k) {
        double out = k * minor;
        if (out > to + 1e-9) {
            break;
        }
        if (out < 0) {
            continue;
        }
        qreal x = std::round(s.layout.x(map.source(out))) + 0.5;
        bool major = std::abs(std::remainder(out, step)) < minor / 10;
        p.setPen(QPen(major ? s.colours.muted : s.colours.grid, 1));
        p.drawLine(QPointF(x, ruler.bottom() - (major ? 8 : 4)), QPointF(x, ruler.bottom() - 1));
        if (!major) {
            continue;
        }
        QString label = QString::fromStdString(clock(out + 1e-6, precise));
        qreal width = metrics.horizontalAdvance(label);
        bool underPill = x + 3 < playX + pillHalf && x + 3 + width > playX - pillHalf;
        if (x + 3 < lastLabelEnd + 8 || x + 3 + width > ruler.right() || underPill) {
            continue;
        }
        p.drawText(QPointF(x + 3, ruler.top() + 4 + metrics.ascent()), label);
        lastLabelEnd = x + 3 + width;
    }
}

void drawLanes(Painting& s) {
    QPainter& p = s.p;
    p.setPen(Qt::NoPen);
    p.setBrush(s.colours.lane);
    for (size_t i = 1; i < kTimelineRowCount; ++i) {
        QRectF lane = s.lane(static_cast<TimelineRow>(i));
        // Lanes end with the recording when it is shorter than the view.
        lane.setRight(std::min(lane.right(), s.layout.x(s.layout.duration)));
        p.drawRoundedRect(lane, kLaneRadius, kLaneRadius);
    }
}

void drawFilmstrip(Painting& s) {
    QPainter& p = s.p;
    QRectF lane = s.lane(TimelineRow::Frames);
    lane.setRight(std::min(lane.right(), s.layout.x(s.layout.duration)));
    QPainterPath clip;
    clip.addRoundedRect(lane, kLaneRadius, kLaneRadius);
    p.save();
    p.setClipPath(clip, Qt::IntersectClip);
    double tileWidth = lane.height() * s.scene.videoAspect;
    for (const FilmTile& tile : filmTiles(s.layout, tileWidth)) {
        QImage image = s.scene.strips ? s.scene.strips->frame(tile.time) : QImage();
        if (image.isNull()) {
            p.fillRect(tile.rect.adjusted(0.5, 0, -0.5, 0), s.colours.lane);
            continue;
        }
        // Fill the tile, cropping the picture's sides if the tile is narrower.
        QRectF source(0, 0, image.width(), image.height());
        double shown = tile.rect.width() / tileWidth;
        source.setWidth(image.width() * shown);
        p.drawImage(tile.rect, image, source);
        p.fillRect(QRectF(tile.rect.right() - 0.5, tile.rect.top(), 1, tile.rect.height()),
                   withAlpha(Qt::black, 0.25));
    }
    p.restore();
}

void drawSound(Painting& s) {
    QPainter& p = s.p;
    QRectF lane = s.lane(TimelineRow::Sound);
    const TimelineStrips* strips = s.scene.strips;
    if (!strips || !strips->soundReady()) {
        QFont font = p.font();
        font.setPointSizeF(font.pointSizeF() * 0.85);
        p.setFont(font);
        p.setPen(s.colours.muted);
        int percent = strips ? static_cast<int>(strips->soundProgress() * 100) : 0;
        p.drawText(lane.adjusted(10, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft,
                   QCoreApplication::translate("Timeline", "Reading the sound… %1%").arg(percent));
        return;
    }
    const SoundPeaks& peaks = strips->peaks();
    qreal mid = lane.center().y();
    // Quiet recordings are drawn as loud as the lane allows; near silence stays flat.
    qreal half = (lane.height() / 2 - 3) / std::max(0.05f, peaks.loudest);
    qreal left = std::max(lane.left(), s.layout.x(0));
    qreal right = std::min(lane.right(), s.layout.x(s.layout.duration));
    // One column per device pixel keeps the outline crisp on HiDPI screens.
    qreal stepX = 1.0 / std::max(1.0, p.device() ? p.device()->devicePixelRatioF() : 1.0);
    QPolygonF top;
    QPolygonF bottom;
    for (qreal x = left; x < right; x += stepX) {
        auto [lo, hi] = peaks.range(s.layout.time(x), s.layout.time(x + stepX));
        top << QPointF(x, mid - std::max<qreal>(hi, 0.01) * half);
        bottom << QPointF(x, mid - std::min<qreal>(lo, -0.01) * half);
    }
    std::reverse(bottom.begin(), bottom.end());
    QPolygonF outline = top + bottom;
    p.setPen(Qt::NoPen);
    p.setBrush(withAlpha(kSound, s.colours.dark ? 0.75 : 0.6));
    p.drawPolygon(outline);
}

void drawBlockText(Painting& s, const QRectF& rect, const QString& text, const QColor& ink) {
    if (rect.width() < 18 || text.isEmpty()) {
        return;
    }
    QRectF inside = rect.adjusted(7, 0, -5, 0);
    // A block reaching in from the left keeps its text in view.
    inside.setLeft(std::max(inside.left(), s.tracks.left() + 7));
    if (inside.width() < 12) {
        return;
    }
    QFontMetricsF metrics(s.p.font());
    s.p.setPen(ink);
    s.p.drawText(inside, Qt::AlignVCenter | Qt::AlignLeft,
                 metrics.elidedText(text.simplified(), Qt::ElideRight, inside.width()));
}

void drawBlock(Painting& s, TimelineRow row, size_t index, const TimeSpan& span, QColor hue,
               bool hatched, const QString& label) {
    QPainter& p = s.p;
    QRectF rect = s.block(row, span).adjusted(0.5, 0, -0.5, 0);
    if (rect.width() < 3) {
        rect.setWidth(3);
    }
    bool selected = s.selected(row, index);
    bool strong = selected || s.hovered(row, index);
    p.setPen(QPen(mix(s.colours.fill(hue, true), hue, 0.5), 1));
    p.setBrush(s.colours.fill(hue, strong));
    p.drawRoundedRect(rect, kBlockRadius, kBlockRadius);
    if (hatched) {
        QPainterPath clip;
        clip.addRoundedRect(rect, kBlockRadius, kBlockRadius);
        p.save();
        p.setClipPath(clip, Qt::IntersectClip);
        p.setPen(QPen(withAlpha(hue, s.colours.dark ? 0.55 : 0.45), 1.5));
        p.drawPath(hatch(rect, 7));
        p.restore();
    }
    // Grips on the edges of the selected block say they can be dragged.
    if (selected) {
        p.setPen(QPen(s.colours.accent, 2));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(rect.adjusted(-1, -1, 1, 1), kBlockRadius + 1, kBlockRadius + 1);
        if (rect.width() > 24) {
            p.setPen(QPen(s.colours.accent, 2, Qt::SolidLine, Qt::RoundCap));
            qreal top = rect.top() + rect.height() * 0.3;
            qreal bottom = rect.bottom() - rect.height() * 0.3;
            p.drawLine(QPointF(rect.left() + 4, top), QPointF(rect.left() + 4, bottom));
            p.drawLine(QPointF(rect.right() - 4, top), QPointF(rect.right() - 4, bottom));
            rect.adjust(4, 0, -4, 0);
        }
    }
    drawBlockText(s, rect, label, s.colours.ink(hue));
}

void drawBlocks(Painting& s) {
    const TimelineItems& items = *s.scene.items;
    const project::Edits& edits = s.session.model().edits();
    QFont font = s.p.font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setWeight(QFont::Medium);
    s.p.setFont(font);
    for (size_t i = 0; i < items.zooms.size(); ++i) {
        drawBlock(s, TimelineRow::Zooms, i, items.zooms[i], kZoom, false,
                  itemLabel(s.session, TimelineRow::Zooms, i));
    }
    for (size_t i = 0; i < items.segments.size(); ++i) {
        bool cut = i < edits.timing().size() && edits.timing()[i].isCut();
        drawBlock(s, TimelineRow::Segments, i, items.segments[i], cut ? kCut : kSpeed, cut,
                  itemLabel(s.session, TimelineRow::Segments, i));
    }
    for (size_t i = 0; i < items.redactions.size(); ++i) {
        drawBlock(s, TimelineRow::Redactions, i, items.redactions[i], kRedaction, false,
                  itemLabel(s.session, TimelineRow::Redactions, i));
    }
    for (size_t i = 0; i < items.captions.size(); ++i) {
        drawBlock(s, TimelineRow::Captions, i, items.captions[i], kCaption, false,
                  itemLabel(s.session, TimelineRow::Captions, i));
    }
}

// Proposed dead time, over the cuts row and the filmstrip: dashed outlines of what a search
// would cut or speed up, until the proposals are applied or dismissed.
void drawProposals(Painting& s) {
    const auto& proposals = s.session.deadTimeProposals();
    if (proposals.empty()) {
        return;
    }
    QPainter& p = s.p;
    p.save();
    for (const auto& proposal : proposals) {
        QColor hue = proposal.isCut() ? kCut : kSpeed;
        QRectF rect = s.block(TimelineRow::Segments, {proposal.start, proposal.end});
        p.setPen(QPen(hue, 1.5, Qt::DashLine));
        p.setBrush(withAlpha(hue, 0.12));
        p.drawRoundedRect(rect.adjusted(0.75, 0.75, -0.75, -0.75), 4, 4);
        QRectF video = s.lane(TimelineRow::Frames);
        p.fillRect(QRectF(rect.left(), video.top(), rect.width(), video.height()),
                   withAlpha(hue, 0.22));
        drawBlockText(s, rect,
                      proposal.isCut() ? QObject::tr("Idle · cut")
                                       : QObject::tr("Idle · %1×").arg(proposal.speed),
                      s.colours.ink(hue));
    }
    p.restore();
}

void drawMarkers(Painting& s) {
    QPainter& p = s.p;
    const TimelineItems& items = *s.scene.items;
    QRectF lane = s.lane(TimelineRow::Markers);
    for (size_t i = 0; i < items.markers.size(); ++i) {
        qreal x = std::round(s.layout.x(items.markers[i].start)) + 0.5;
        qreal width = i < items.markerLabelWidths.size() ? items.markerLabelWidths[i] : 16;
        bool selected = s.selected(TimelineRow::Markers, i);
        bool strong = selected || s.hovered(TimelineRow::Markers, i);
        QRectF flag(x, lane.top() + kBlockInset, width, lane.height() - 2 * kBlockInset);
        QPainterPath shape;
        // A flag: square against its pole, rounded on the free side.
        shape.addRoundedRect(flag, kBlockRadius, kBlockRadius);
        shape.addRect(QRectF(x, flag.top(), kBlockRadius, flag.height()));
        shape.setFillRule(Qt::WindingFill);  // the union, not the parts apart from the overlap
        shape = shape.simplified();
        // No outline: against the pole one would read as a second line.
        p.setPen(Qt::NoPen);
        p.setBrush(s.colours.fill(kMarker, strong));
        p.drawPath(shape);
        p.setPen(QPen(kMarker, 2));
        p.drawLine(QPointF(x, lane.top() + 1), QPointF(x, lane.bottom() - 1));
        if (selected) {
            p.setPen(QPen(s.colours.accent, 2));
            p.setBrush(Qt::NoBrush);
            p.drawPath(shape);
        }
        drawBlockText(s, flag.adjusted(1, 0, 0, 0), itemLabel(s.session, TimelineRow::Markers, i),
                      s.colours.ink(kMarker));
    }
}

void drawTrim(Painting& s) {
    QPainter& p = s.p;
    const TimelineItems& items = *s.scene.items;
    QRectF area(
        s.tracks.left(), s.layout.rect(TimelineRow::Frames).top(), s.tracks.width(),
        s.layout.rect(TimelineRow::Markers).bottom() - s.layout.rect(TimelineRow::Frames).top());
    QColor veil = withAlpha(s.colours.window, s.colours.dark ? 0.68 : 0.62);
    qreal start = s.layout.x(items.trimStart);
    qreal end = s.layout.x(items.trimEnd);
    if (start > area.left()) {
        p.fillRect(QRectF(QPointF(area.left(), area.top()), QPointF(start, area.bottom())), veil);
    }
    if (end < area.right()) {
        p.fillRect(QRectF(QPointF(end, area.top()), QPointF(area.right(), area.bottom())), veil);
    }
    // Handles over the filmstrip and the sound: a bar with a grip, facing into the kept part.
    QRectF media(QPointF(area.left(), s.layout.rect(TimelineRow::Frames).top()),
                 QPointF(area.right(), s.layout.rect(TimelineRow::Sound).bottom()));
    for (bool isStart : {true, false}) {
        qreal x = isStart ? start : end;
        if (x < area.left() - 8 || x > area.right() + 8) {
            continue;
        }
        bool hot = (s.scene.hover.what == TimelineHit::What::TrimStart && isStart) ||
                   (s.scene.hover.what == TimelineHit::What::TrimEnd && !isStart);
        QRectF bar(isStart ? x : x - 7, media.top(), 7, media.height());
        p.setPen(Qt::NoPen);
        p.setBrush(hot ? s.colours.accent : s.colours.handle);
        p.drawRoundedRect(bar, 3, 3);
        p.setPen(
            QPen(hot ? s.colours.accentText : s.colours.base, 1.2, Qt::SolidLine, Qt::RoundCap));
        qreal cx = bar.center().x();
        qreal cy = bar.center().y();
        p.drawLine(QPointF(cx, cy - 6), QPointF(cx, cy + 6));
    }
}

void drawPlayhead(Painting& s) {
    QPainter& p = s.p;
    qreal x = std::round(s.layout.x(s.scene.playhead)) + 0.5;
    if (x < s.tracks.left() - 1 || x > s.tracks.right() + 1) {
        return;
    }
    QRectF ruler = s.lane(TimelineRow::Ruler);
    qreal bottom = s.layout.rect(TimelineRow::Markers).bottom();
    p.setPen(QPen(s.colours.accent, 1.5));
    p.drawLine(QPointF(x, ruler.bottom() - 4), QPointF(x, bottom));
    // The finished time at the playhead, in a pill on the ruler.
    QFont font = p.font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setWeight(QFont::DemiBold);
    p.setFont(font);
    QFontMetricsF metrics(font);
    double output = s.session.model().edits().outputTime(s.scene.playhead);
    QString text = QString::fromStdString(clock(output, true));
    qreal width = metrics.horizontalAdvance(text) + 14;
    QRectF pill(x - width / 2, ruler.top() + 2, width, ruler.height() - 6);
    pill.moveLeft(std::clamp(pill.left(), s.tracks.left(), s.tracks.right() - width));
    p.setPen(Qt::NoPen);
    p.setBrush(s.colours.accent);
    p.drawRoundedRect(pill, pill.height() / 2, pill.height() / 2);
    p.setPen(s.colours.accentText);
    p.drawText(pill, Qt::AlignCenter, text);
}

}  // namespace

void paintTimeline(QPainter& painter, const TimelineScene& scene, const QPalette& palette) {
    const TimelineLayout& layout = *scene.layout;
    Painting s{
        painter,
        scene,
        layout,
        *scene.session,
        Colours(palette),
        QRectF(layout.trackLeft(), 0, layout.width - layout.trackLeft(), layout.rowsHeight())};
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(QRectF(0, 0, layout.width, layout.rowsHeight() + 40), s.colours.base);
    QFont font = painter.font();
    drawLabels(s);
    painter.setFont(font);

    painter.save();
    painter.setClipRect(s.tracks.adjusted(0, 0, 0, 40));
    drawLanes(s);
    drawRuler(s);
    painter.setFont(font);
    drawFilmstrip(s);
    drawSound(s);
    painter.setFont(font);
    drawBlocks(s);
    drawProposals(s);
    drawMarkers(s);
    drawTrim(s);
    painter.setFont(font);
    drawPlayhead(s);
    painter.restore();

    if (scene.focused) {
        painter.setPen(QPen(withAlpha(s.colours.accent, 0.7), 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(0.75, 0.75, layout.width - 1.5, layout.rowsHeight() - 1.5),
                                6, 6);
    }
}

}  // namespace quillo::views
