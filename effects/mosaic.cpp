// Cell effects: a grid of rectangular cells over the picture, each cell
// painted from its own pixels. Mosaic paints the truncated mean of the cell,
// on a grid anchored at the first row and column of the processing order;
// Pixelate paints the rounded mean or the centre pixel, on a grid anchored
// at the corner of the processing rectangle; MosaicTiles adds grout at each
// tile's right and bottom and a one-pixel bevel lit from a chosen side, over
// the tile's mean or its own picture.
//
// The grid is walked in bands of one cell row: the band's rows are read once
// and summed per cell column, the cells' values worked out, and each row of
// the band is built and written once. Only bands and cell columns that meet
// the region's bounding rectangle are read. Samples are worked at the
// bitmap's own precision (16-bit samples for deep bitmaps, sums in 64
// bits), so a mean is the mean of the stored values.
#include "filters/filter_rows.h"
#include "frame/colour_word.h"

#include <algorithm>

namespace rz::fx {
namespace {

enum class Fill { MeanTruncated, MeanRounded, Centre, Picture };

struct Grid {
    RzRect clip{};        // the cells partition this rectangle, from its top-left corner
    int64_t cw = 1, ch = 1; // cell size
    int64_t grout = 0;    // columns and rows at each cell's right and bottom
    bool flipRows = false; // processing row k is view row height - 1 - k
    Fill fill = Fill::MeanTruncated;
    uint32_t groutColour[3]{};
    int32_t bevel[4]{}; // added on a face's left, right, top and bottom edge (-1, 0, 1)
    int32_t bevelStep = 0; // working units of the bevel
};

// Working samples of deep grey hold the significant bits at the top; a
// rounded mean is rounded at the bitmap's precision, in units of 2^shift.
int32_t UnitShift(const RowContext *ctx) {
    if (ctx->nWorkBits != WORK_16 || ctx->nRangeCount == 0 || ctx->nRangeCount >= 16) return 0;
    return 16 - int32_t(ctx->nRangeCount);
}

// A colour word (red bits 0-7, green 8-15, blue 16-23; bit 26: the low 16
// bits are a grey level) as working samples, blue first.
void WorkingColour(const BitmapDesc *bmp, uint32_t colour, uint32_t out[3]) {
    const ColourWord c = WorkingColourWord(bmp, colour);
    out[0] = c.b;
    out[1] = c.g;
    out[2] = c.r;
}

// Sign of the light on a face's left, right, top and bottom edges for light
// coming from angle (hundredths of a degree, counter-clockwise from the
// right, y up): integer tests, so the axes give exact zeros.
void BevelSigns(int32_t angle, int32_t out[4]) {
    const int64_t a = ((int64_t(angle) % 36000) + 36000) % 36000;
    const int32_t cosSign = (a < 9000 || a > 27000) ? 1 : (a == 9000 || a == 27000) ? 0 : -1;
    const int32_t sinSign = (a > 0 && a < 18000) ? 1 : (a == 0 || a == 18000) ? 0 : -1;
    out[0] = -cosSign;
    out[1] = cosSign;
    out[2] = sinSign;
    out[3] = -sinSign;
}

template <class T, int C> struct CellRow {
    // Adds the pixels [x0, x1) of a row into one cell's sums.
    static RZ_FORCE_INLINE void accumulate(const T *src, int64_t x0, int64_t x1, uint64_t *sum) {
        uint64_t s[C]{};
        for (int64_t x = x0; x < x1; ++x)
            for (int c = 0; c < C; ++c) s[c] += src[x * C + c];
        for (int c = 0; c < C; ++c) sum[c] += s[c];
    }
    static RZ_FORCE_INLINE void fill(T *dst, int64_t x0, int64_t x1, const T *v) {
        for (int64_t x = x0; x < x1; ++x)
            for (int c = 0; c < C; ++c) dst[x * C + c] = v[c];
    }
};

template <class T, int C> int32_t PaintCells(BitmapDesc *bmp, filt::Pass &pass, const Grid &g) {
    using Row = CellRow<T, C>;
    RowContext *ctx = pass.ctx.get();
    const int32_t H = pass.height;
    const int64_t maxValue = sizeof(T) == 1 ? 255 : 65535;
    const int32_t shift = UnitShift(ctx);
    // The region's bounds in processing rows.
    RzRect work = pass.bounds;
    if (g.flipRows) work = RzRect{work.left, H - pass.bounds.bottom, work.right, H - pass.bounds.top};
    auto viewRow = [&](int64_t k) { return int32_t(g.flipRows ? H - 1 - k : k); };

    // Cell columns that meet the work, and the pixels they cover.
    const int64_t c0 = (work.left - g.clip.left) / g.cw, c1 = (work.right - 1 - g.clip.left) / g.cw;
    const int64_t cells = c1 - c0 + 1;
    auto cellLeft = [&](int64_t i) { return g.clip.left + (c0 + i) * g.cw; };
    auto cellRight = [&](int64_t i) { return std::min<int64_t>(cellLeft(i) + g.cw, g.clip.right); };
    auto faceRight = [&](int64_t i) { return std::min<int64_t>(cellLeft(i) + g.cw - g.grout, g.clip.right); };

    KrnPtr<T[]> src = pass.outputRow<T>();
    KrnPtr<T[]> dst = pass.outputRow<T>();
    KrnPtr<uint64_t[]> sums = KrnArray<uint64_t>(size_t(cells) * C);
    KrnPtr<T[]> values = KrnArray<T>(size_t(cells) * C);
    if (!src || !dst || !sums || !values) return ST_FAILURE;
    T grout[C];
    for (int c = 0; c < C; ++c) grout[c] = T(g.groutColour[C == 1 ? 0 : c]);

    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    const bool mean = g.fill == Fill::MeanTruncated || g.fill == Fill::MeanRounded;
    for (int64_t by = g.clip.top + (work.top - g.clip.top) / g.ch * g.ch; by < work.bottom; by += g.ch) {
        const int64_t be = std::min<int64_t>(by + g.ch, g.clip.bottom);
        const int64_t faceBottom = std::min<int64_t>(by + g.ch - g.grout, be);
        if (mean) {
            std::fill(sums.get(), sums.get() + cells * C, uint64_t(0));
            for (int64_t k = by; k < faceBottom; ++k) {
                RZ_RETURN_IF_FAILED(GetRow(ctx, src.get(), viewRow(k), nullptr, nullptr));
                filt::Vectorised([&]() RZ_LAMBDA_INLINE {
                    for (int64_t i = 0; i < cells; ++i)
                        Row::accumulate(src.get(), cellLeft(i), faceRight(i), sums.get() + i * C);
                });
            }
            for (int64_t i = 0; i < cells; ++i) {
                const uint64_t area = uint64_t(faceBottom - by) * uint64_t(faceRight(i) - cellLeft(i));
                for (int c = 0; c < C; ++c) {
                    const uint64_t s = sums[i * C + c];
                    values[i * C + c] = T(g.fill == Fill::MeanTruncated ? s / area
                                                                        : (((s >> shift) * 2 + area) / (2 * area)) << shift);
                }
            }
        } else if (g.fill == Fill::Centre) {
            RZ_RETURN_IF_FAILED(GetRow(ctx, src.get(), viewRow(by + (be - by - 1) / 2), nullptr, nullptr));
            for (int64_t i = 0; i < cells; ++i) {
                const int64_t x = cellLeft(i) + (cellRight(i) - cellLeft(i) - 1) / 2;
                for (int c = 0; c < C; ++c) values[i * C + c] = src[x * C + c];
            }
        }

        const int64_t k0 = std::max<int64_t>(by, work.top), k1 = std::min<int64_t>(be, work.bottom);
        for (int64_t k = k0; k < k1; ++k) {
            const bool picture = g.fill == Fill::Picture;
            if (picture) RZ_RETURN_IF_FAILED(GetRow(ctx, dst.get(), viewRow(k), nullptr, nullptr));
            const bool groutRow = k >= by + g.ch - g.grout;
            // The bevel of this row: top and bottom edges of the face.
            const int32_t rowBevel = (k == by ? g.bevel[2] : 0) + (k == by + g.ch - g.grout - 1 ? g.bevel[3] : 0);
            for (int64_t i = 0; i < cells; ++i) {
                const int64_t x0 = cellLeft(i), xf = faceRight(i), x1 = cellRight(i);
                if (groutRow) {
                    Row::fill(dst.get(), x0, x1, grout);
                    continue;
                }
                if (!picture) Row::fill(dst.get(), x0, xf, values.get() + i * C);
                Row::fill(dst.get(), xf, x1, grout);
                if (g.bevelStep == 0) continue;
                // A face pixel takes the signs of the edges it lies on, at
                // most one step either way.
                const int64_t faceLast = x0 + g.cw - g.grout - 1; // unclipped
                auto shade = [&](int64_t x) {
                    const int32_t s = std::clamp(rowBevel + (x == x0 ? g.bevel[0] : 0) +
                                                     (x == faceLast ? g.bevel[1] : 0), -1, 1);
                    for (int c = 0; s != 0 && c < C; ++c) {
                        T &v = dst[x * C + c];
                        v = T(std::clamp<int64_t>(int64_t(v) + s * g.bevelStep, 0, maxValue));
                    }
                };
                if (rowBevel != 0) {
                    for (int64_t x = x0; x < xf; ++x) shade(x);
                } else {
                    shade(x0);
                    if (faceLast > x0 && faceLast < xf) shade(faceLast);
                }
            }
            RZ_RETURN_IF_FAILED(PutRow(ctx, dst.get(), viewRow(k), nullptr, 0));
        }
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// Opens the bitmap at its own precision and paints the grid that `plan`
// fills in from the pass (the region's bounds are known only then).
template <class Plan> int32_t RunCells(BitmapDesc *bmp, bool unchanged, Plan &&plan) {
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    filt::Pass pass;
    const int32_t st = pass.open(bmp, filt::FilterMode(bmp));
    if (st == ST_NOTHING_TO_DO || (st == ST_SUCCESS && unchanged)) return ReportDone(bmp);
    if (st != ST_SUCCESS) return st;
    Grid g;
    plan(pass, g);
    if (pass.wide) return pass.channels == 1 ? PaintCells<uint16_t, 1>(bmp, pass, g) : PaintCells<uint16_t, 3>(bmp, pass, g);
    return pass.channels == 1 ? PaintCells<uint8_t, 1>(bmp, pass, g) : PaintCells<uint8_t, 3>(bmp, pass, g);
}

int32_t MosaicBitmap(BitmapDesc *bmp, uint32_t size) {
    if (!bmp) return ST_NO_BITMAP;
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (size == 0) return ST_INVALID_PARAMETER;
    return RunCells(bmp, size == 1, [&](const filt::Pass &pass, Grid &g) {
        g.clip = RzRect{0, 0, pass.width, pass.height};
        g.cw = g.ch = size;
        g.flipRows = bmp->nViewPerspective == 3 || bmp->nViewPerspective == 4;
    });
}

int32_t PixelateBitmap(BitmapDesc *bmp, uint32_t width, uint32_t height, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (width == 0 || height == 0 || flags > RZ_PIXELATE_CENTRE) return ST_INVALID_PARAMETER;
    return RunCells(bmp, width == 1 && height == 1, [&](const filt::Pass &pass, Grid &g) {
        g.clip = pass.bounds;
        g.cw = width;
        g.ch = height;
        g.fill = flags == RZ_PIXELATE_CENTRE ? Fill::Centre : Fill::MeanRounded;
    });
}

int32_t MosaicTilesBitmap(BitmapDesc *bmp, uint32_t width, uint32_t height, uint32_t grout, uint32_t colour,
                          int32_t angle, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (width == 0 || height == 0 || grout >= width || grout >= height) return ST_INVALID_PARAMETER;
    if ((flags & ~0xFFu) || (flags & 0xF) > RZ_TILES_PICTURE || (flags & 0xF0) > RZ_TILES_FLAT)
        return ST_INVALID_PARAMETER;
    return RunCells(bmp, false, [&](const filt::Pass &pass, Grid &g) {
        g.clip = pass.bounds;
        g.cw = width;
        g.ch = height;
        g.grout = grout;
        g.fill = (flags & 0xF) == RZ_TILES_PICTURE ? Fill::Picture : Fill::MeanRounded;
        WorkingColour(bmp, colour, g.groutColour);
        if (!(flags & RZ_TILES_FLAT)) {
            BevelSigns(angle, g.bevel);
            g.bevelStep = pass.wide ? 48 * 257 : 48;
        }
    });
}

} // namespace
} // namespace rz::fx

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_MosaicBitmap(BitmapDesc *pBitmap, uint32_t nDim) {
    return Guard([&] { return fx::MosaicBitmap(pBitmap, nDim); });
}

RZIMG_API int32_t RZAPI Rz_PixelateBitmap(BitmapDesc *pBitmap, uint32_t uCellWidth, uint32_t uCellHeight,
                                          uint32_t uFlags) {
    return Guard([&] { return fx::PixelateBitmap(pBitmap, uCellWidth, uCellHeight, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_MosaicTilesBitmap(BitmapDesc *pBitmap, uint32_t uTileWidth, uint32_t uTileHeight,
                                             uint32_t uGroutWidth, uint32_t crGrout, int32_t nShadowAngle,
                                             uint32_t uFlags) {
    return Guard([&] {
        return fx::MosaicTilesBitmap(pBitmap, uTileWidth, uTileHeight, uGroutWidth, crGrout, nShadowAngle, uFlags);
    });
}

} // extern "C"
