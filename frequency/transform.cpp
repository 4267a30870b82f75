// Rz_FFTBitmap and Rz_DFTBitmap: one plane of a bitmap to its spectrum in
// a transform array and back. Both run the same engine (mixed radix, so
// the "direct" transform has any size at the cost of a fast one); they
// differ in their checks and in the extent and signs the DFT can choose.
//
// The inverse scales the caller's array in place by the component
// (magnitude, phase, both) as its first pass reads it; the array stays
// scaled, also when the callback stops the call.
#include "filters/filter_rows.h"
#include "frequency/ft_common.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace rz::freq {

// --- One plane of the bitmap ------------------------------------------------

int32_t PlaneIO::open(BitmapDesc *bmp, int32_t plane) {
    const bool grey = plane == FT_PLANE_GREY || bmp->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(bmp);
    int32_t st = ST_SUCCESS;
    ctx_ = MakeRowContext(bmp, grey ? RC_WHOLE_BITMAP | RC_WORK8 : RC_WHOLE_BITMAP, st);
    if (st != ST_SUCCESS) return st;
    channels_ = ContextChannels(ctx_.get());
    wide_ = ContextSampleBits(ctx_.get()) == 16;
    channel_ = grey ? 0 : (plane >> 4) - 1;
    width_ = bmp->nWidth;
    row_.reset(static_cast<uint8_t *>(AllocRowBuffer(ctx_.get())));
    return row_ ? ST_SUCCESS : ST_FAILURE;
}

int32_t PlaneIO::read(int32_t y, double *values) {
    RZ_RETURN_IF_FAILED(GetRow(ctx_.get(), row_.get(), y, nullptr, nullptr));
    const int32_t C = channels_;
    if (wide_) {
        const uint16_t *s = reinterpret_cast<const uint16_t *>(row_.get()) + channel_;
        for (int32_t x = 0; x < width_; ++x) values[x] = double(s[size_t(x) * C] >> 8);
    } else if (C == 1) { // grey: contiguous, in vector form
        const uint8_t *__restrict s = row_.get() + channel_;
        filt::Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t x = 0, n = width_; x < n; ++x) values[x] = double(s[x]);
        });
    } else {
        const uint8_t *s = row_.get() + channel_;
        for (int32_t x = 0; x < width_; ++x) values[x] = double(s[size_t(x) * C]);
    }
    return ST_SUCCESS;
}

int32_t PlaneIO::write(int32_t y, const uint8_t *values, int32_t x0, int32_t x1) {
    RZ_RETURN_IF_FAILED(GetRow(ctx_.get(), row_.get(), y, nullptr, nullptr));
    const int32_t C = channels_;
    if (wide_) {
        uint16_t *d = reinterpret_cast<uint16_t *>(row_.get()) + channel_;
        for (int32_t x = x0; x < x1; ++x) d[size_t(x) * C] = uint16_t(values[x] * 257);
    } else if (C == 1) {
        std::memcpy(row_.get() + channel_ + x0, values + x0, size_t(x1 - x0));
    } else {
        uint8_t *d = row_.get() + channel_;
        for (int32_t x = x0; x < x1; ++x) d[size_t(x) * C] = values[x];
    }
    return PutRowQuiet(ctx_.get(), row_.get(), y, nullptr, 0);
}

namespace {

// --- Flags -------------------------------------------------------------------

struct Request {
    bool inverse = false;
    int32_t plane = FT_PLANE_GREY;
    int32_t component = FT_BOTH;
    int32_t writeBack = FT_CLIP;
    int32_t signX = -1, signY = -1; // of the forward transform
    bool rect = false;
    int32_t left = 0, top = 0, right = 0, bottom = 0; // inclusive
};

int32_t ParseTransformFlags(int32_t flags, Request &r) {
    const uint32_t f = uint32_t(flags);
    const uint32_t dir = f & 0xF, plane = f & 0xF0;
    if (dir != FT_FORWARD && dir != FT_INVERSE) return ST_INVALID_PARAMETER;
    if (plane < FT_PLANE_BLUE || plane > FT_PLANE_GREY) return ST_INVALID_PARAMETER;
    r.inverse = dir == FT_INVERSE;
    r.plane = int32_t(plane);
    if (!r.inverse) return ST_SUCCESS;
    const uint32_t comp = f & 0xF00, wb = f & 0xF000;
    if (comp < FT_MAGNITUDE || comp > FT_BOTH) return ST_INVALID_PARAMETER;
    if (wb != FT_CLIP && wb != FT_STRETCH) return ST_INVALID_PARAMETER;
    r.component = int32_t(comp);
    r.writeBack = int32_t(wb);
    return ST_SUCCESS;
}

bool PowerOfTwo(int32_t n) { return n >= 2 && (n & (n - 1)) == 0; }

// --- Write-back ---------------------------------------------------------------

// The plane's values as ToByte gives them, in a form that vectorises:
// clipped as they are, or stretched as ((v - lo) * 255) / range (v - lo
// when the range is empty).
class ByteWriter {
  public:
    ByteWriter(PlaneIO &io, uint8_t *bytes, const Request &r, double lo, double hi)
        : io_(io), bytes_(bytes), r_(r), lo_(lo), mul_(hi != lo ? 255.0 : 1.0), div_(hi != lo ? hi - lo : 1.0) {}
    int32_t operator()(int32_t y, const double *src) {
        if (y < r_.top || y > r_.bottom) return ST_SUCCESS;
        filt::Vectorised([&]() RZ_LAMBDA_INLINE {
            if (r_.writeBack == FT_STRETCH)
                convert(src, std::true_type());
            else
                convert(src, std::false_type());
        });
        return io_.write(y, bytes_, r_.left, r_.right + 1);
    }

  private:
    template <class Stretch> RZ_FORCE_INLINE void convert(const double *__restrict src, Stretch stretch) {
        uint8_t *__restrict dst = bytes_;
        const double lo = lo_, mul = mul_, div = div_;
        for (int32_t x = r_.left, end = r_.right; x <= end; ++x) {
            double v = stretch ? (src[x] - lo) * mul / div : src[x];
            v = v >= 0.0 ? v : 0.0; // NaN too
            v = v <= 255.0 ? v : 255.0;
            dst[x] = uint8_t(int32_t(v));
        }
    }
    PlaneIO &io_;
    uint8_t *bytes_;
    const Request &r_;
    double lo_, mul_, div_;
};

// Stretching needs the range of every value first.
int32_t WriteStretched(PlaneIO &io, const RealRows &out, uint8_t *bytes, const Request &r, Reporter &rep) {
    double lo = 0.0, hi = 0.0;
    bool any = false;
    for (int32_t y = r.top; y <= r.bottom; ++y)
        for (int32_t x = r.left; x <= r.right; ++x) {
            const double v = out.row(y)[x];
            if (!std::isfinite(v)) continue;
            if (!any || v < lo) lo = v;
            if (!any || v > hi) hi = v;
            any = true;
        }
    ByteWriter write(io, bytes, r, lo, hi);
    const int32_t rows = r.bottom - r.top + 1;
    for (int32_t y = r.top; y <= r.bottom; ++y) {
        RZ_RETURN_IF_FAILED(write(y, out.row(y)));
        RZ_RETURN_IF_FAILED(rep.at(90 + (y - r.top + 1) * 10 / rows));
    }
    return ST_SUCCESS;
}

// --- The transform -----------------------------------------------------------

int32_t Run(BitmapDesc *bmp, FTARRAY *array, Request r) {
    WholePicture picture(bmp, array);
    RZ_RETURN_IF_FAILED(picture.status());
    const int32_t W = bmp->nWidth, H = bmp->nHeight;
    if (!r.rect) r.left = 0, r.top = 0, r.right = W - 1, r.bottom = H - 1;
    Reporter rep;
    RZ_RETURN_IF_FAILED(rep.at(2));
    Plan pw, ph;
    RZ_RETURN_IF_FAILED(pw.init(W));
    RZ_RETURN_IF_FAILED(ph.init(H));
    PlaneIO io;
    RZ_RETURN_IF_FAILED(io.open(bmp, r.plane));
    RZ_RETURN_IF_FAILED(rep.at(5));
    const ArrayView view(array);
    const int32_t columnsEnd = r.inverse ? 90 : 100;
    auto report = [&](int32_t pass, int32_t done, int32_t total) {
        return pass == 0 ? rep.at(5 + int32_t(int64_t(done) * 45 / total))
                         : rep.at(50 + int32_t(int64_t(done) * (columnsEnd - 50) / total));
    };

    if (!r.inverse) {
        auto load = [&](int32_t y, double *values) { return io.read(y, values); };
        RZ_RETURN_IF_FAILED(ForwardReal(pw, ph, r.signX, r.signY, load, report, view));
        if (r.rect)
            for (int32_t v = 0; v < H; ++v)
                for (int32_t u = 0; u < W; ++u)
                    if (v < r.top || v > r.bottom || u < r.left || u > r.right) view.store(u, v, 0.0, 0.0);
        return ST_SUCCESS;
    }

    RealRows out;
    const Component comp(r.component, double(W) * double(H));
    KrnPtr<uint8_t[]> bytes = KrnArray<uint8_t>(size_t(W));
    if (!bytes) return ST_FAILURE;
    if (r.writeBack == FT_CLIP) {
        // Clipped rows go to the bitmap as the last pass makes them.
        ByteWriter write(io, bytes.get(), r, 0.0, 0.0);
        const RowSink sink(write);
        RZ_RETURN_IF_FAILED(InverseReal(pw, ph, -r.signX, -r.signY, view, comp, out, report, &sink));
        RZ_RETURN_IF_FAILED(rep.at(90));
        RZ_RETURN_IF_FAILED(rep.at(100));
    } else {
        RZ_RETURN_IF_FAILED(InverseReal(pw, ph, -r.signX, -r.signY, view, comp, out, report));
        RZ_RETURN_IF_FAILED(WriteStretched(io, out, bytes.get(), r, rep));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

int32_t FFT(BitmapDesc *bmp, FTARRAY *array, int32_t flags) {
    RZ_RETURN_IF_FAILED(CheckBitmapAndArray(bmp, array));
    if (!PowerOfTwo(bmp->nWidth) || !PowerOfTwo(bmp->nHeight)) return ST_INVALID_PARAMETER;
    Request r;
    RZ_RETURN_IF_FAILED(ParseTransformFlags(flags, r));
    return Run(bmp, array, r);
}

int32_t DFT(BitmapDesc *bmp, FTARRAY *array, const int32_t *range, int32_t flags) {
    RZ_RETURN_IF_FAILED(CheckBitmapAndArray(bmp, array));
    Request r;
    RZ_RETURN_IF_FAILED(ParseTransformFlags(flags, r));
    const uint32_t f = uint32_t(flags);
    const uint32_t extent = f & 0xF0000;
    if (extent == DFT_RECT) {
        const uint32_t cols = f & 0xF00000, rows = f & 0xF000000;
        if (cols != 0 && cols != DFT_COLUMNS_MINUS && cols != DFT_COLUMNS_PLUS) return ST_INVALID_PARAMETER;
        if (rows != 0 && rows != DFT_ROWS_MINUS && rows != DFT_ROWS_PLUS) return ST_INVALID_PARAMETER;
        if (cols == 0 && rows == 0) return ST_INVALID_PARAMETER;
        if (!range) return ST_INVALID_PARAMETER;
        r.rect = true;
        r.left = range[0], r.top = range[1], r.right = range[2], r.bottom = range[3];
        if (r.left < 0 || r.left > r.right || r.right >= bmp->nWidth || r.top < 0 || r.top > r.bottom ||
            r.bottom >= bmp->nHeight)
            return ST_INVALID_PARAMETER;
        r.signX = cols == DFT_COLUMNS_MINUS ? -1 : 1;
        r.signY = rows == DFT_ROWS_MINUS ? -1 : 1;
    } else if (extent != DFT_WHOLE) {
        return ST_INVALID_PARAMETER;
    }
    if (bmp->nWidth == 0 || bmp->nHeight == 0) return ReportDone(bmp);
    return Run(bmp, array, r);
}

} // namespace
} // namespace rz::freq

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_FFTBitmap(BitmapDesc *pBitmap, FTARRAY *pFTArray, int32_t uFFTFlags) {
    return Guard([&] { return freq::FFT(pBitmap, pFTArray, uFFTFlags); });
}

RZIMG_API int32_t RZAPI Rz_DFTBitmap(BitmapDesc *pBitmap, FTARRAY *pFTArray, const int32_t *pRange,
                                     int32_t uDFTFlags) {
    return Guard([&] { return freq::DFT(pBitmap, pFTArray, pRange, uDFTFlags); });
}

} // extern "C"
