#include "talking_head.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace quillo::bench {

namespace {

constexpr int kWidth = 960;
constexpr int kHeight = 540;
constexpr int kFrames = 61 * 30;

struct Colour {
    double r, g, b;
    Colour operator*(double k) const { return {r * k, g * k, b * k}; }
};

Colour mix(const Colour& a, const Colour& b, double t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

// How far inside an edge a point is, as a coverage from 0 to 1 over about one pixel; `d` is the
// squared ellipse distance (1 on the edge) and `scale` the ellipse's radius in pixels.
double coverage(double d, double scale) {
    return std::clamp((1 - std::sqrt(d)) * scale + 0.5, 0.0, 1.0);
}

double ellipse(double dx, double dy, double rx, double ry) {
    return (dx * dx) / (rx * rx) + (dy * dy) / (ry * ry);
}

// The still room: a wall lit from the left, a picture and a shelf of books.
std::vector<Colour> room() {
    std::vector<Colour> wall(static_cast<size_t>(kWidth) * kHeight);
    const std::array<Colour, 6> books{{{150, 50, 45},
                                       {60, 90, 130},
                                       {200, 170, 90},
                                       {70, 120, 80},
                                       {120, 70, 110},
                                       {220, 210, 190}}};
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const double light = 0.82 + 0.2 * (1.0 - y / double(kHeight)) +
                                 0.18 * std::exp(-std::pow((x - 140) / 320.0, 2));
            Colour c = Colour{176, 166, 154} * light;
            if (x >= 80 && x < 240 && y >= 60 && y < 190) {
                const bool inside = x >= 90 && x < 230 && y >= 70 && y < 180;
                c = inside ? mix(Colour{110, 150, 190}, Colour{90, 120, 70}, (y - 70) / 110.0)
                           : Colour{60, 45, 35};
            }
            if (x >= 620 && x < 900 && y >= 96 && y < 106) {
                c = Colour{118, 84, 58} * light;
            }
            if (x >= 630 && x < 880 && y >= 40 && y < 96) {
                const int book = (x - 630) / 23;
                const int top = 40 + (book * 7) % 16;
                if (y >= top && (x - 630) % 23 < 20) {
                    c = books[static_cast<size_t>(book) % books.size()] * (0.8 + 0.2 * light);
                }
            }
            wall[static_cast<size_t>(y) * kWidth + x] = c;
        }
    }
    return wall;
}

// The person at time t over pixel (x, y), blended onto `c`.
Colour person(double t, int x, int y, Colour c) {
    const double cx = 480 + 8 * std::sin(0.7 * t) + 3 * std::sin(2.3 * t + 1);
    const double cy = 215 + 3 * std::sin(1.1 * t) + 2 * std::sin(3.1 * t);
    const double dx = x - cx;
    const double dy = y - cy;
    const Colour skin{224, 176, 146};
    // Shoulders and shirt, with a faint check that moves with the body.
    const double shoulders = cy + 150;
    if (y >= shoulders) {
        const double half = 120 + std::min(1.0, (y - shoulders) / 60) * 110;
        const double edge = std::clamp(half - std::abs(dx) + 0.5, 0.0, 1.0);
        const bool check =
            (static_cast<int>(std::floor(dx / 7)) + static_cast<int>(std::floor((y - cy) / 7))) %
                2 ==
            0;
        const Colour shirt =
            Colour{58, 88, 138} * ((check ? 0.93 : 1.0) * (0.8 + 0.2 * (1 - std::abs(dx) / half)));
        c = mix(c, shirt, edge);
    }
    if (std::abs(dx) < 38 && y >= cy + 95 && y < shoulders + 20) {
        c = skin * 0.8;
    }
    // Head, lit from the left, with hair, brows, eyes that blink and a mouth that talks.
    const double head = ellipse(dx, dy, 88, 112);
    if (head < 1.3) {
        const double k = coverage(head, 90);
        Colour face = skin * ((0.78 + 0.22 * (1 - head)) * (1 - 0.08 * dx / 88));
        const double hairLine = -40 + 30 * (dx / 88) * (dx / 88);
        if (ellipse(dx, dy + 4, 94, 120) < 1 && dy < hairLine) {
            face = Colour{70, 48, 32} * (0.85 + 0.15 * std::sin(dx * 0.8 + dy * 0.2));
        }
        const bool blinking = std::fmod(t, 4.2) < 0.15;
        for (double side : {-32.0, 32.0}) {
            const double ex = dx - side;
            const double ey = dy + 10;
            if (std::abs(ex) < 16 && ey > -20 && ey < -15) {
                face = Colour{75, 52, 38};
            }
            const double eye = ellipse(ex, ey, 12, blinking ? 1 : 6);
            if (eye < 1) {
                face = ellipse(ex, ey, 5, 5) < 1 && !blinking ? Colour{50, 40, 35}
                                                              : Colour{235, 230, 225};
            }
        }
        const double talk = std::max(0.0, std::sin(8.5 * t)) * (0.5 + 0.5 * std::sin(0.9 * t));
        if (ellipse(dx, dy - 55, 24, 2 + 7 * talk) < 1) {
            face = Colour{112, 42, 46};
        }
        c = mix(c, face, ellipse(dx, dy, 88, 112) < 1 ? 1.0 : (dy < hairLine ? 0.0 : k));
    }
    return c;
}

}  // namespace

bool makeTalkingHead(const std::filesystem::path& out) {
    const std::string command =
        "ffmpeg -nostdin -loglevel error -y -f rawvideo -pix_fmt rgb24 -s " +
        std::to_string(kWidth) + "x" + std::to_string(kHeight) +
        " -r 30 -i - -vf scale=1920:1080:flags=bicubic,noise=alls=3:allf=t,format=yuv420p "
        "-c:v libx264 -preset ultrafast -crf 16 -f mov '" +
        out.string() + "'";
    FILE* pipe = popen(command.c_str(), "w");
    if (pipe == nullptr) {
        return false;
    }
    const std::vector<Colour> wall = room();
    std::vector<uint8_t> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
    bool written = true;
    for (int n = 0; n < kFrames && written; ++n) {
        const double t = n / 30.0;
        const double exposure = 1 + 0.01 * std::sin(0.3 * t);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                Colour c = wall[static_cast<size_t>(y) * kWidth + x];
                if (x > 220 && x < 740 && y > 80) {
                    c = person(t, x, y, c);
                }
                c = c * exposure;
                uint8_t* p = &rgb[(static_cast<size_t>(y) * kWidth + x) * 3];
                p[0] = static_cast<uint8_t>(std::clamp(c.r, 0.0, 255.0));
                p[1] = static_cast<uint8_t>(std::clamp(c.g, 0.0, 255.0));
                p[2] = static_cast<uint8_t>(std::clamp(c.b, 0.0, 255.0));
            }
        }
        written = std::fwrite(rgb.data(), 1, rgb.size(), pipe) == rgb.size();
    }
    return pclose(pipe) == 0 && written;
}

}  // namespace quillo::bench
