// Sample images drawn from functions of the pixel position, supersampled
// where edges would otherwise alias. Text pages are laid out unrotated on a
// canvas at twice the resolution (glyphs are a few strokes: stems, bowls,
// bars, ascenders and descenders, so no font is needed) and then resampled
// through the inverse rotation, which gives an exactly known skew.
#include "tools/samples.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>

namespace rzimg {
namespace {

constexpr double kPi = 3.14159265358979323846;

int32_t NewBitmap(Bitmap &b, int w, int h, int bits) {
    int32_t st = KrnInitBitmap(b.get(), BITMAPDESC_SIZE, w, h, bits);
    if (st == KRN_OK) st = KrnAllocBitmap(b.get());
    return st;
}

struct Rgb {
    double r, g, b;
};

Rgb Hsv(double hueDeg, double s, double v) {
    double h = std::fmod(hueDeg, 360.0);
    if (h < 0) h += 360.0;
    double c = v * s, x = c * (1 - std::fabs(std::fmod(h / 60.0, 2.0) - 1)), m = v - c;
    Rgb out;
    switch (static_cast<int>(h / 60.0)) {
    case 0: out = {c, x, 0}; break;
    case 1: out = {x, c, 0}; break;
    case 2: out = {0, c, x}; break;
    case 3: out = {0, x, c}; break;
    case 4: out = {x, 0, c}; break;
    default: out = {c, 0, x}; break;
    }
    return {out.r + m, out.g + m, out.b + m};
}

// Colour chart, 320 x 240: hue wheel (hue by angle, saturation by radius),
// seven ramps, twelve patches and an eleven-step grey wedge.
Rgb ChartAt(double x, double y) {
    const Rgb background{118, 118, 118};
    const double cx = 84, cy = 88, radius = 72;
    double dx = x - cx, dy = y - cy, r = std::hypot(dx, dy);
    if (r <= radius) {
        Rgb c = Hsv(std::atan2(-dy, dx) * 180.0 / kPi, r / radius, 1.0);
        return {c.r * 255, c.g * 255, c.b * 255};
    }
    if (x >= 172 && x < 312 && y >= 10 && y < 178) {
        int band = static_cast<int>((y - 10) / 24);
        if (y - 10 - band * 24 >= 20) return background;
        static const Rgb kEnds[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {1, 1, 1}};
        double t = std::floor(x - 172) / 139.0 * 255.0;
        const Rgb &e = kEnds[band];
        return {e.r * t, e.g * t, e.b * t};
    }
    if (y >= 184 && y < 206 && x >= 8 && x < 308) {
        static const Rgb kPatches[] = {{115, 82, 68},  {194, 150, 130}, {98, 122, 157}, {87, 108, 67},
                                       {133, 128, 177}, {103, 189, 170}, {214, 126, 44}, {80, 91, 166},
                                       {193, 90, 99},  {94, 60, 108},  {157, 188, 64}, {224, 163, 46}};
        int i = static_cast<int>((x - 8) / 25);
        if (x - 8 - i * 25 >= 23) return background;
        return kPatches[i];
    }
    if (y >= 212 && y < 232 && x >= 8 && x < 305) {
        int i = static_cast<int>((x - 8) / 27);
        double g = std::round(i * 25.5);
        return {g, g, g};
    }
    return background;
}

int32_t MakeChart(Sample &s) {
    const int w = 320, h = 240;
    int32_t st = NewBitmap(s.bitmap, w, h, 24);
    if (st != KRN_OK) return st;
    s.bitmap->nColorOrder = KRN_ORDER_BGR;
    std::vector<uint8_t> row(KrnBitmapRowBytes(s.bitmap.get()));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            Rgb sum{0, 0, 0};
            for (int sy = 0; sy < 3; ++sy)
                for (int sx = 0; sx < 3; ++sx) {
                    Rgb c = ChartAt(x + (sx + 0.5) / 3.0, y + (sy + 0.5) / 3.0);
                    sum = {sum.r + c.r, sum.g + c.g, sum.b + c.b};
                }
            row[3 * x + 0] = static_cast<uint8_t>(std::clamp(sum.b / 9.0 + 0.5, 0.0, 255.0));
            row[3 * x + 1] = static_cast<uint8_t>(std::clamp(sum.g / 9.0 + 0.5, 0.0, 255.0));
            row[3 * x + 2] = static_cast<uint8_t>(std::clamp(sum.r / 9.0 + 0.5, 0.0, 255.0));
        }
        if ((st = PutRow(s.bitmap.get(), y, row)) != KRN_OK) return st;
    }
    s.key = "chart";
    s.title = "colour chart";
    s.note = "24-bit colour: hue wheel, ramps, patches, grey wedge";
    return KRN_OK;
}

bool InEllipse(double x, double y, double cx, double cy, double a, double b) {
    double u = (x - cx) / a, v = (y - cy) / b;
    return u * u + v * v <= 1.0;
}

// CT-like head slice in 12-bit units (air 0, tissue about 1000, bone about
// 3000), with line pairs, a lesion, calcifications and a full-range wedge.
double PhantomAt(double x, double y) {
    if (y >= 242) return std::floor(x) * 4095.0 / 255.0; // wedge 0..4095
    if (!InEllipse(x, y, 128, 124, 116, 108)) return 0;
    if (!InEllipse(x, y, 128, 124, 104, 96)) return 1000 + 0.6 * (y - 124); // scalp
    if (!InEllipse(x, y, 128, 124, 96, 88)) return 2900 + 2.0 * std::fabs(x - 128); // skull
    if (InEllipse(x, y, 110, 118, 7, 20) || InEllipse(x, y, 146, 118, 7, 20)) return 1030; // ventricles
    if (InEllipse(x, y, 166, 168, 11, 11)) return 1380;                                  // lesion
    for (auto [px, py] : {std::pair{96.0, 164.0}, {103.0, 170.0}, {92.0, 173.0}})
        if (InEllipse(x, y, px, py, 2.2, 2.2)) return 3700; // calcifications
    if (x >= 96 && x < 160 && y >= 60 && y < 80) {
        // Line pairs of 1, 2, 3 and 4 pixels.
        int group = static_cast<int>((x - 96) / 16), width = group + 1;
        int k = static_cast<int>(std::floor(x - 96 - group * 16)) / width;
        return k % 2 ? 1150 : 1700;
    }
    return 1150 + 40 * std::sin(x / 9.0) * std::sin(y / 11.0); // grey matter texture
}

int32_t MakePhantom(Sample &s) {
    const int w = 256, h = 256;
    int32_t st = NewBitmap(s.bitmap, w, h, 16);
    if (st != KRN_OK) return st;
    BitmapDesc *b = s.bitmap.get();
    b->nColorOrder = KRN_ORDER_GRAY;
    b->nDataKind = 1;
    b->nLowBit = 0;
    b->nHighBit = 11;
    std::mt19937 rng(1234);
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            double sum = 0;
            for (int sy = 0; sy < 2; ++sy)
                for (int sx = 0; sx < 2; ++sx) sum += PhantomAt(x + 0.25 + 0.5 * sx, y + 0.25 + 0.5 * sy);
            double noise = y < 242 ? (static_cast<int>(rng() % 25) + static_cast<int>(rng() % 25) - 24) : 0;
            auto v = static_cast<uint16_t>(std::clamp(sum / 4.0 + noise + 0.5, 0.0, 4095.0));
            row[2 * x] = static_cast<uint8_t>(v);
            row[2 * x + 1] = static_cast<uint8_t>(v >> 8);
        }
        if ((st = PutRow(b, y, row)) != KRN_OK) return st;
    }
    s.key = "phantom";
    s.title = "CT phantom";
    s.note = "16-bit grey, significant bits 0..11";
    return KRN_OK;
}

// The phantom's slice as 8-bit grey with periodic stripes added, as a
// scanner or a detector's mains hum leaves them: the frequency filters
// remove them with a notch mask.
int32_t MakeStriped(Sample &s) {
    const int w = 256, h = 256;
    int32_t st = NewBitmap(s.bitmap, w, h, 8);
    if (st != KRN_OK) return st;
    BitmapDesc *b = s.bitmap.get();
    b->nColorOrder = KRN_ORDER_GRAY;
    b->nDataKind = 1;
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double v = PhantomAt(x + 0.5, y + 0.5) * 200.0 / 4095.0;
            const double stripes = 24.0 * std::cos(2.0 * 3.1415926535 * (x / 8.0 + y / 32.0));
            row[x] = static_cast<uint8_t>(std::clamp(v + 28.0 + stripes, 0.0, 255.0));
        }
        if ((st = PutRow(b, y, row)) != KRN_OK) return st;
    }
    s.key = "striped";
    s.title = "striped slice";
    s.note = "8-bit grey, stripes of 8 pixels across (frequency 32, 8)";
    return KRN_OK;
}

// Unrotated page of glyph strokes on a canvas of `scale` samples per pixel.
class Page {
  public:
    Page(int w, int h, int scale) : w_(w * scale), h_(h * scale), scale_(scale), ink_(static_cast<size_t>(w_) * h_) {}

    void fill(double x0, double y0, double x1, double y1) {
        int ax = std::max(0, static_cast<int>(std::lround(x0 * scale_)));
        int ay = std::max(0, static_cast<int>(std::lround(y0 * scale_)));
        int bx = std::min(w_, static_cast<int>(std::lround(x1 * scale_)));
        int by = std::min(h_, static_cast<int>(std::lround(y1 * scale_)));
        for (int y = ay; y < by; ++y)
            for (int x = ax; x < bx; ++x) ink_[static_cast<size_t>(y) * w_ + x] = 1;
    }
    bool inkAt(double x, double y) const {
        int ix = static_cast<int>(std::floor(x * scale_)), iy = static_cast<int>(std::floor(y * scale_));
        return ix >= 0 && iy >= 0 && ix < w_ && iy < h_ && ink_[static_cast<size_t>(iy) * w_ + ix];
    }

  private:
    int w_, h_, scale_;
    std::vector<uint8_t> ink_;
};

// Draws one glyph with its left edge at x on baseline `base`; returns its width.
double Glyph(Page &p, std::mt19937 &rng, double x, double base, double xh, double t) {
    const double asc = xh * 0.7, desc = xh * 0.5, w = xh * 0.8 + (rng() % 3) * 0.5 * t;
    const double top = base - xh;
    switch (rng() % 12) {
    case 0: case 1: // o
        p.fill(x, top, x + t, base); p.fill(x + w - t, top, x + w, base);
        p.fill(x, top, x + w, top + t); p.fill(x, base - t, x + w, base);
        return w;
    case 2: case 3: // n
        p.fill(x, top, x + t, base); p.fill(x + w - t, top + t, x + w, base); p.fill(x, top, x + w - t, top + t);
        return w;
    case 4: // l
        p.fill(x, top - asc, x + t, base);
        return t;
    case 5: // i
        p.fill(x, top, x + t, base); p.fill(x, top - 2 * t, x + t, top - t);
        return t;
    case 6: // d
        p.fill(x, top, x + t, base); p.fill(x, top, x + w, top + t); p.fill(x, base - t, x + w, base);
        p.fill(x + w - t, top - asc, x + w, base);
        return w;
    case 7: // p
        p.fill(x, top, x + t, base + desc); p.fill(x + w - t, top, x + w, base);
        p.fill(x, top, x + w, top + t); p.fill(x, base - t, x + w, base);
        return w;
    case 8: case 9: // e
        p.fill(x, top, x + t, base); p.fill(x, top, x + w, top + t); p.fill(x, base - t, x + w, base);
        p.fill(x, top + xh / 2 - t / 2, x + w, top + xh / 2 + t / 2); p.fill(x + w - t, top, x + w, top + xh / 2);
        return w;
    case 10: // t
        p.fill(x + t, top - asc * 0.6, x + 2 * t, base); p.fill(x, top, x + 3 * t, top + t);
        return 3 * t;
    default: // m
        p.fill(x, top, x + t, base); p.fill(x + w * 0.65, top, x + w * 0.65 + t, base);
        p.fill(x + w * 1.3 - t, top, x + w * 1.3, base); p.fill(x, top, x + w * 1.3, top + t);
        return w * 1.3;
    }
}

// Lays out a title, a rule and justified-looking paragraphs of words.
void LayOut(Page &page, int w, int h, uint32_t seed) {
    std::mt19937 rng(seed);
    const double left = 30, right = w - 30;
    double y = 34;
    // Title: larger glyphs, centred-ish.
    double x = left + 60;
    for (int word = 0; word < 3; ++word) {
        int n = 3 + static_cast<int>(rng() % 4);
        for (int g = 0; g < n; ++g) x += Glyph(page, rng, x, y, 12, 2.5) + 2.5;
        x += 10;
    }
    page.fill(left, y + 8, right, y + 9.5); // rule under the title
    y += 30;
    const double xh = 6, t = 1.4, pitch = 14;
    while (y < h - 24) {
        int lines = 3 + static_cast<int>(rng() % 4);
        for (int line = 0; line < lines && y < h - 24; ++line, y += pitch) {
            x = left + (line == 0 ? 16 : 0);
            double end = line == lines - 1 ? left + (right - left) * (0.3 + (rng() % 50) / 100.0) : right;
            while (true) {
                int n = 1 + static_cast<int>(rng() % 7);
                double wordWidth = n * (xh + t);
                if (x + wordWidth > end) break;
                for (int g = 0; g < n; ++g) x += Glyph(page, rng, x, y, xh, t) + t;
                x += 4.5;
            }
        }
        y += pitch / 2;
    }
}

// Ink coverage (0..1) of each output pixel of the page rotated by `degrees`
// (counter-clockwise on screen: lines rise to the right).
std::vector<double> RotatedCoverage(const Page &page, int w, int h, double degrees) {
    const double a = degrees * kPi / 180.0, c = std::cos(a), s = std::sin(a);
    const double cx = w / 2.0, cy = h / 2.0;
    constexpr int kSub = 4;
    std::vector<double> out(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int hits = 0;
            for (int sy = 0; sy < kSub; ++sy)
                for (int sx = 0; sx < kSub; ++sx) {
                    double dx = x + (sx + 0.5) / kSub - cx, dy = y + (sy + 0.5) / kSub - cy;
                    hits += page.inkAt(cx + dx * c - dy * s, cy + dx * s + dy * c);
                }
            out[static_cast<size_t>(y) * w + x] = hits / double(kSub * kSub);
        }
    return out;
}

int32_t MakeTextPage(Sample &s, int bits, double degrees, uint32_t seed) {
    const int w = 400, h = 300;
    Page page(w, h, 3);
    LayOut(page, w, h, seed);
    std::vector<double> cover = RotatedCoverage(page, w, h, degrees);
    int32_t st = NewBitmap(s.bitmap, w, h, bits);
    if (st != KRN_OK) return st;
    BitmapDesc *b = s.bitmap.get();
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    std::mt19937 rng(seed + 1);
    for (int y = 0; y < h; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int x = 0; x < w; ++x) {
            double c = cover[static_cast<size_t>(y) * w + x];
            if (bits == 1) {
                // Index 1 is white in the kernel's grey ramp; ink is 0.
                if (c < 0.5) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            } else {
                double paper = 232 + static_cast<int>(rng() % 9), ink = 28;
                row[x] = static_cast<uint8_t>(paper + (ink - paper) * c + 0.5);
            }
        }
        if ((st = PutRow(b, y, row)) != KRN_OK) return st;
    }
    char angle[32];
    std::snprintf(angle, sizeof angle, "%.2f", degrees);
    s.key = bits == 1 ? "text1" : "text8";
    s.title = bits == 1 ? "text page, 1-bit" : "text page, 8-bit";
    s.note = std::string(bits == 1 ? "1-bit" : "8-bit grey (palette ramp)") + ", skewed " + angle +
             " degrees (lines rise to the " + (degrees > 0 ? "right" : "left") + ")";
    return KRN_OK;
}

} // namespace

int32_t PutRow(BitmapDesc *bitmap, int32_t y, const std::vector<uint8_t> &row) {
    return KrnPutBitmapRowSpans(bitmap, row.data(), y, 0, static_cast<uint32_t>(row.size()), nullptr, 0,
                                KRN_PUT_NORMAL);
}

int32_t MakeSamples(std::vector<Sample> &out) {
    out.clear();
    out.resize(4);
    int32_t st = MakeChart(out[0]);
    if (st == KRN_OK) st = MakePhantom(out[1]);
    if (st == KRN_OK) st = MakeTextPage(out[2], 1, 3.0, 7);
    if (st == KRN_OK) st = MakeTextPage(out[3], 8, -2.0, 11);
    if (st == KRN_OK) st = MakeStriped(out.emplace_back());
    return st;
}

} // namespace rzimg
