// The engine every two-bitmap operation runs on: the bitmaps are put in
// view 1 (restored on every exit), a source that shares the destination's
// pixels is read from a copy, the rectangles are clipped and aligned, and
// each row of the area is read from every bitmap in the destination's
// working format, handed to the operation's row function and written back
// inside the destination's region. A source region, moved onto the
// destination, cuts each row into the pieces the row function sees.
#pragma once

#include "filters/filter_rows.h"

#include <optional>

namespace rz::comb {

inline bool IsGrey(const BitmapDesc *b) { return b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b); }

// Row context modes: the destination's own working format (8 or 16-bit
// grey, 24 or 48-bit colour), and any other bitmap read in a given one.
uint32_t DestMode(const BitmapDesc *dst);
uint32_t ModeFor(int32_t work);

// The area worked on: destination and source origins and the common size.
struct Area {
    int32_t dx = 0, dy = 0, sx = 0, sy = 0, w = 0, h = 0;
};

// Clips (x, y, w, h) in the destination and the same size at (sx, sy) in the
// source; false when nothing overlaps.
bool ClipArea(int64_t x, int64_t y, int64_t w, int64_t h, int64_t sx, int64_t sy, const BitmapDesc *dst,
              const BitmapDesc *src, Area &area);

// What a row function sees besides the samples.
struct RowShape {
    int32_t dstChannels; // of d, m and t
    int32_t srcChannels; // of s: 3 when a grey destination reads a colour source
    int32_t maxValue;    // 255 or 65535
};

struct PairInputs {
    BitmapDesc *dst = nullptr;
    BitmapDesc *src = nullptr;
    BitmapDesc *mask = nullptr;    // read from its top-left for the area's; must cover the area
    BitmapDesc *texture = nullptr; // tiled from textureOffset for the area's top-left
    RzPoint textureOffset{};
    int32_t x = 0, y = 0, w = 0, h = 0, sx = 0, sy = 0;
    bool sourceInColour = false; // a grey destination reads the source as colour
};

// Owns the rows and contexts of one pass; see RunPair.
class PairPass {
  public:
    ~PairPass();
    // 1 ready, ST_NOTHING_TO_DO when nothing overlaps, or a failure.
    int32_t open(const PairInputs &in);
    bool wide() const { return wide_; }
    const RowShape &shape() const { return shape_; }
    const Area &area() const { return area_; }
    // Reads area row j into the buffers; the source pieces come with it.
    int32_t read(int32_t j);
    int32_t write(int32_t j);
    template <class T> T *dstRow() const { return static_cast<T *>(dstBuf_.get()) + int64_t(area_.dx) * shape_.dstChannels; }
    template <class T> T *srcRow() const { return static_cast<T *>(srcBuf_.get()) + int64_t(area_.sx) * shape_.srcChannels; }
    template <class T> T *maskRow() const { return static_cast<T *>(maskBuf_.get()); }
    template <class T> T *textureRow() const { return static_cast<T *>(tileBuf_.get()); }
    // Pieces of the area's row that the source region lets through, as
    // [begin, end) pixel offsets from the area's left; one piece without a
    // region.
    const int32_t *pieces() const { return pieces_.get(); }
    uint32_t pieceValues() const { return pieceValues_; }

  private:
    int32_t openSource(BitmapDesc *&bmp, BitmapDesc *dst);
    int32_t readTexture(int32_t j);

    std::optional<ViewGuard> views_[4];
    BitmapDesc copy_{};
    bool copied_ = false;
    BitmapDesc *dst_ = nullptr, *src_ = nullptr, *mask_ = nullptr, *texture_ = nullptr;
    RzPoint textureOffset_{};
    RowContextPtr dstCtx_, srcCtx_, maskCtx_, textureCtx_;
    KrnPtr<void> dstBuf_, srcBuf_, maskBuf_, textureBuf_, tileBuf_;
    KrnPtr<int32_t[]> spans_, pieces_;
    uint32_t pieceValues_ = 0;
    Area area_;
    RowShape shape_{};
    bool wide_ = false;
};

// Runs `row(d, s, m, t, pixels, shape)` over the pieces of every area row,
// with T uint8_t or uint16_t by the destination's working format; m and t
// are null without a mask or texture. Reports progress 0..100 over the
// area's rows; nothing overlapping reports 0 and 100 and returns 1.
template <class Row> int32_t RunPair(const PairInputs &in, Row &&row) {
    PairPass pass;
    const int32_t st = pass.open(in);
    if (st == ST_NOTHING_TO_DO) return ReportDone(in.dst);
    if (st != ST_SUCCESS) return st;
    auto body = [&]<class T>(T *) -> int32_t {
        const Area &a = pass.area();
        const RowShape &sh = pass.shape();
        for (int32_t j = 0; j < a.h; ++j) {
            RZ_RETURN_IF_FAILED(pass.read(j));
            T *d = pass.dstRow<T>();
            const T *s = pass.srcRow<T>();
            T *m = pass.maskRow<T>();
            T *t = pass.textureRow<T>();
            const int32_t *p = pass.pieces();
            for (uint32_t k = 0; k + 1 < pass.pieceValues(); k += 2) {
                const int64_t i0 = p[k];
                const int32_t n = p[k + 1] - p[k];
                row(d + i0 * sh.dstChannels, s + i0 * sh.srcChannels, m ? m + i0 * sh.dstChannels : nullptr,
                    t ? t + i0 * sh.dstChannels : nullptr, n, sh);
            }
            RZ_RETURN_IF_FAILED(pass.write(j));
        }
        KrnBitmapChanged(in.dst);
        return ST_SUCCESS;
    };
    return pass.wide() ? body(static_cast<uint16_t *>(nullptr)) : body(static_cast<uint8_t *>(nullptr));
}

// Descriptor checks of a bitmap argument: null, size, signed samples.
inline int32_t CheckArgument(const BitmapDesc *b) { return CheckBitmap(b, Signed::Refused); }

// Pixels present and addressable (-2, -12).
inline int32_t CheckPixels(const BitmapDesc *b) {
    if (!(b->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    return CheckAddressable(b);
}

} // namespace rz::comb
