#include "caption_renderer.h"

#include <algorithm>
#include <cmath>

#include <pango/pangocairo.h>

#include "render/exporter.h"

namespace quillo::captions {

namespace {

// Layout in ems of the text size.
constexpr double kEdgeMargin = 1.4;     // from the canvas edge to the pill
constexpr double kPadX = 0.55;          // pill padding beside the text
constexpr double kPadY = 0.3;           // pill padding above and below
constexpr double kPillRadius = 0.45;    // pill corner radius
constexpr double kPillAlpha = 0.72;     // black pill
constexpr double kShadowOffset = 0.06;  // text shadow without a pill

template <class T, void (*Free)(T*)>
struct GFree {
    void operator()(T* p) const { Free(p); }
};
void unrefLayout(PangoLayout* layout) { g_object_unref(layout); }
using LayoutPtr = std::unique_ptr<PangoLayout, GFree<PangoLayout, unrefLayout>>;
using FontPtr =
    std::unique_ptr<PangoFontDescription, GFree<PangoFontDescription, pango_font_description_free>>;
using AttrsPtr = std::unique_ptr<PangoAttrList, GFree<PangoAttrList, pango_attr_list_unref>>;

}  // namespace

int CaptionRenderer::fontSize(int width, int height, const project::CaptionStyle& style) {
    double size = style.clamped().size;
    return std::max(static_cast<int>(std::lround(size * std::min(width, height) * 0.045)), 10);
}

void CaptionRenderer::draw(const CaptionPage& page, const render::ImageView& frame, double t,
                           const project::CaptionStyle& given) {
    project::CaptionStyle style = given.clamped();
    if (!style.visible || page.lines.empty() || frame.empty()) {
        return;
    }
    // The page's text, remembering where the spoken word sits in it.
    std::optional<size_t> current = style.highlightWords ? page.currentWord(t) : std::nullopt;
    std::string text;
    size_t index = 0;
    guint highlightStart = 0;
    guint highlightEnd = 0;
    for (const auto& line : page.lines) {
        if (!text.empty()) {
            text += '\n';
        }
        for (size_t i = 0; i < line.size(); ++i, ++index) {
            if (i > 0) {
                text += ' ';
            }
            if (current && *current == index) {
                highlightStart = static_cast<guint>(text.size());
                highlightEnd = static_cast<guint>(text.size() + line[i].text.size());
            }
            text += line[i].text;
        }
    }

    int size = fontSize(frame.width, frame.height, style);
    render::CairoPtr cr = render::contextFor(frame);
    LayoutPtr layout(pango_cairo_create_layout(cr.get()));
    FontPtr font(pango_font_description_from_string("Sans Bold"));
    pango_font_description_set_absolute_size(font.get(), size * PANGO_SCALE);
    pango_layout_set_font_description(layout.get(), font.get());
    pango_layout_set_alignment(layout.get(), PANGO_ALIGN_CENTER);
    // A word wider than the frame (a long address, say) breaks rather than running off it.
    const double room = frame.width - 2 * (kEdgeMargin + kPadX) * size;
    if (room > size) {
        pango_layout_set_width(layout.get(), static_cast<int>(room * PANGO_SCALE));
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    }
    pango_layout_set_text(layout.get(), text.c_str(), static_cast<int>(text.size()));

    PangoRectangle ink;
    PangoRectangle logical;
    pango_layout_get_pixel_extents(layout.get(), &ink, &logical);
    double x = (frame.width - logical.width) / 2.0 - logical.x;
    double boxHeight = logical.height + 2 * kPadY * size;
    double boxTop = style.position == project::CaptionPosition::Bottom
                        ? frame.height - kEdgeMargin * size - boxHeight
                        : kEdgeMargin * size;
    double y = boxTop + kPadY * size - logical.y;

    if (style.background == project::CaptionBackground::Pill) {
        render::roundedRectangle(cr.get(), (frame.width - logical.width) / 2.0 - kPadX * size,
                                 boxTop, logical.width + 2 * kPadX * size, boxHeight,
                                 kPillRadius * size);
        cairo_set_source_rgba(cr.get(), 0, 0, 0, kPillAlpha);
        cairo_fill(cr.get());
    } else {
        // A soft dark halo under the text keeps it readable on any picture.
        cairo_set_source_rgba(cr.get(), 0, 0, 0, 0.35);
        double d = kShadowOffset * size;
        for (double dx : {-d, 0.0, d}) {
            for (double dy : {0.0, d, 2 * d}) {
                cairo_move_to(cr.get(), x + dx, y + dy);
                pango_cairo_show_layout(cr.get(), layout.get());
            }
        }
    }
    if (highlightEnd > highlightStart) {
        AttrsPtr attrs(pango_attr_list_new());
        PangoAttribute* colour = pango_attr_foreground_new(
            static_cast<guint16>(highlight[0] * 65535), static_cast<guint16>(highlight[1] * 65535),
            static_cast<guint16>(highlight[2] * 65535));
        colour->start_index = highlightStart;
        colour->end_index = highlightEnd;
        pango_attr_list_insert(attrs.get(), colour);
        pango_layout_set_attributes(layout.get(), attrs.get());
    }
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    cairo_move_to(cr.get(), x, y);
    pango_cairo_show_layout(cr.get(), layout.get());
    cairo_surface_flush(cairo_get_target(cr.get()));
}

CaptionOverlay::CaptionOverlay(CaptionTrack track, project::CaptionStyle style)
    : m_track(std::move(track)), m_style(style.clamped()) {
    for (const CaptionSegment& segment : m_track.segments) {
        m_pages.push_back(segment.pages(static_cast<int>(m_style.maxCharacters)));
    }
}

const CaptionPage* CaptionOverlay::pageAt(double t) const {
    const CaptionSegment* segment = m_style.visible ? m_track.segment(t) : nullptr;
    if (!segment) {
        return nullptr;
    }
    return pageShowing(m_pages[static_cast<size_t>(segment - m_track.segments.data())], t);
}

void CaptionOverlay::draw(const render::ImageView& out, const render::PictureMapping&,
                          double t) const {
    if (const CaptionPage* page = pageAt(t)) {
        CaptionRenderer::draw(*page, out, t, m_style);
    }
}

std::vector<double> CaptionOverlay::stateKey(double t) const {
    const CaptionPage* page = pageAt(t);
    if (!page) {
        return {-1};
    }
    double word = -1;
    if (m_style.highlightWords) {
        word = static_cast<double>(page->currentWord(t).value_or(SIZE_MAX));
    }
    return {page->start, page->end, word};
}

void registerBurnIn() {
    render::registerOverlay(render::OverlaySlot::Captions,
                            [](const std::filesystem::path& folder, const project::Edits& edits,
                               Size) -> std::shared_ptr<const render::FrameOverlay> {
                                if (!edits.captions || !edits.captions->visible) {
                                    return nullptr;
                                }
                                // A track that is missing or can't be read shows nothing; the
                                // editor reports it.
                                Result<CaptionTrack> track = CaptionTrack::load(folder);
                                if (!track || track->segments.empty()) {
                                    return nullptr;
                                }
                                return std::make_shared<CaptionOverlay>(std::move(*track),
                                                                        *edits.captions);
                            });
}

}  // namespace quillo::captions
