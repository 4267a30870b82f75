/*
 * rzimg.h - the image library: operations that change a kernel bitmap in
 * place. Every operation returns ST_SUCCESS (1), a negative ST_ status, or
 * the value with which the caller's status callback (KrnSetStatusCallback)
 * asked it to stop. Progress is reported as whole percentages 0..100.
 */
#ifndef RZIMG_H
#define RZIMG_H

#include "rzkrn.h"
#include "rzdis.h"

#ifdef RZIMG_BUILDING
#define RZIMG_API RZ_EXPORT_ATTR
#else
#define RZIMG_API RZ_IMPORT
#endif

#define ST_SUCCESS 1
#define ST_NOTHING_TO_DO 2
#define ST_FAILURE (-1)
#define ST_NO_BITMAP (-2)
#define ST_BAD_BITS (-11)
#define ST_BAD_PIXEL_FORMAT (-12)
#define ST_INVALID_PARAMETER (-13)
#define ST_LIBRARY_NOT_LOADED (-16)
#define ST_NEEDS_1BIT (-27)
#define ST_NO_REGION (-30)
#define ST_BAD_TYPE (-40)
#define ST_EMPTY_RECT (-56)
#define ST_BAD_STRUCT_SIZE (-789)
#define ST_NULL_POINTER (-814)
#define ST_SIGNED_NOT_SUPPORTED (-1360)

/* Channel selectors of the table operations. */
#define RZ_CHANNEL_ALL 0
#define RZ_CHANNEL_RED 1
#define RZ_CHANNEL_GREEN 2
#define RZ_CHANNEL_BLUE 3

/* ---- Colour: hue, saturation and intensity ---- */

/* A hue range of Rz_ChangeHueSatIntBitmap: its changes are added in full
 * for hues innerLow..innerHigh and fade linearly to nothing at outerLow and
 * outerHigh. Bounds are whole degrees, -359..359 (negative ones are turned
 * by 360); a range across 0 degrees has outerLow above outerHigh, and then
 * its inner range must cross 0 as well. */
#define HUESATINTRANGE_SIZE 32
typedef struct HueSatIntRange {
    int32_t size;      /* HUESATINTRANGE_SIZE */
    int32_t hueChange; /* hundredths of a degree, -18000..18000 */
    int32_t satChange; /* tenths of a percent of the current saturation, -1000..1000 */
    int32_t intChange; /* tenths of a percent of full scale, -1000..1000 */
    int32_t outerLow;
    int32_t outerHigh;
    int32_t innerLow;
    int32_t innerHigh;
} HueSatIntRange;

/* ---- end of colour ---- */

/* ---- Filters: convolution and rank filters ---- */

/* Every filter works on the picture as stored (view 1, whatever the view
 * the caller has set, which is restored on every exit), at the bitmap's own
 * precision: 1..8-bit grey in 8-bit samples, other palettes, 24 and 32 bits
 * in 8-bit blue, green, red, 12/16-bit grey in 16-bit samples (significant
 * bits at the top), 48 and 64 bits in 16-bit blue, green, red. Each channel
 * is filtered by itself. Only pixels inside the region change; the
 * neighbourhood is read outside it, and beyond the bitmap's edges the
 * nearest edge row or column stands in (edge replication). */

/* Rz_SpatialFilterBitmap's kernel: dim x dim coefficients, row by row, the
 * first row applying to the row above the centre. The weighted sum (32-bit,
 * wrapping) is divided by divisor (truncating toward zero; skipped when 1),
 * bias is added (times 257 on 16-bit samples) and the result clamped. The
 * centre is at (dim - 1) / 2 in both directions, so an even dim reaches one
 * further down and right. Instead of a pointer an SPF_ number may be passed
 * with RZ_SPF_KERNEL(n); a null pointer is number 0, SPF_EMBOSS_N. */
#define SPATIALKERNEL_SIZE 20
typedef struct SpatialKernel {
    int32_t size;      /* SPATIALKERNEL_SIZE: the four fields and the first coefficient */
    int32_t divisor;   /* not 0; -1 negates the sum */
    int32_t bias;      /* on the 8-bit scale */
    int32_t dim;       /* 1 or more */
    int32_t matrix[1]; /* dim * dim coefficients */
} SpatialKernel;

#define RZ_SPF_KERNEL(n) ((const SpatialKernel *)(uintptr_t)(n))

/* The predefined 3x3 kernels (divisor 1). Emboss kernels add 128. */
#define SPF_EMBOSS_N 0
#define SPF_EMBOSS_NE 1
#define SPF_EMBOSS_E 2
#define SPF_EMBOSS_SE 3
#define SPF_EMBOSS_S 4
#define SPF_EMBOSS_SW 5
#define SPF_EMBOSS_W 6
#define SPF_EMBOSS_NW 7
#define SPF_GRADIENT_N 8
#define SPF_GRADIENT_NE 9
#define SPF_GRADIENT_E 10
#define SPF_GRADIENT_SE 11
#define SPF_GRADIENT_S 12
#define SPF_GRADIENT_SW 13
#define SPF_GRADIENT_W 14
#define SPF_GRADIENT_NW 15
#define SPF_LAPLACE_FOUR 16
#define SPF_LAPLACE_EIGHT 17
#define SPF_LAPLACE_CROSS 18
#define SPF_LAPLACE_DIAGONAL 19
#define SPF_LAPLACE_VERTICAL 20
#define SPF_LAPLACE_HORIZONTAL 21
#define SPF_SOBEL_HORIZONTAL 22
#define SPF_SOBEL_VERTICAL 23
#define SPF_PREWITT_HORIZONTAL 24
#define SPF_PREWITT_VERTICAL 25
#define SPF_SHIFT_DIAGONAL 26
#define SPF_SHIFT_VERTICAL 27
#define SPF_SHIFT_HORIZONTAL 28
#define SPF_LINE_HORIZONTAL 29
#define SPF_LINE_VERTICAL 30
#define SPF_LINE_RISING_DIAGONAL 31
#define SPF_LINE_FALLING_DIAGONAL 32
#define SPF_COUNT 33

/* Rz_UserFilterBitmap's kernel: width x height coefficients row by row, the
 * anchor (centerX, centerY) being the coefficient that lies on the pixel
 * computed: sum = matrix[i][j] * pixel(y - centerY + i, x - centerX + j).
 * type says how the sum becomes a sample:
 *   RZ_UF_TRUNCATE  sum / divisor, truncated toward zero
 *   RZ_UF_ABSOLUTE  |sum| / divisor, truncated: both signs of a derivative
 *                   kernel show as bright edges
 *   RZ_UF_ROUND     sum / divisor rounded to nearest, halves away from zero:
 *                   smoothing kernels keep the mean brightness
 * then offset is added (times 257 on 16-bit samples, like a bias) and the
 * value clamped to the sample range. Sums are 32-bit and wrap. */
#define USERFILTERKERNEL_SIZE 36
#define RZ_UF_TRUNCATE 0
#define RZ_UF_ABSOLUTE 1
#define RZ_UF_ROUND 2
typedef struct UserFilterKernel {
    int32_t size;      /* USERFILTERKERNEL_SIZE: the header and the first coefficient */
    uint32_t width;    /* 1 or more */
    uint32_t height;   /* 1 or more */
    int32_t centerX;   /* 0 .. width - 1 */
    int32_t centerY;   /* 0 .. height - 1 */
    uint32_t divisor;  /* 1 or more */
    int32_t offset;    /* added after the division, 8-bit scale */
    int32_t type;      /* RZ_UF_ */
    int32_t matrix[1]; /* width * height coefficients */
} UserFilterKernel;

/* Rz_SharpenBitmap(nSharpness -1000..1000) builds a 3x3 kernel: for s >= 0,
 * k = 71 * (1000 - s) / 999, -1 around and k + 9 in the centre over k + 1;
 * for s < 0, k = 71 * (s + 1000) / 999, 1 around and k + 1 in the centre
 * over k + 9. 1000 is the classic sharpening kernel, -1000 the 3x3 box.
 *
 * Rz_GaussianFilterBitmap(nRadius 1..10000, tenths): sigma =
 * (2 * (nRadius / 10 + 1) + 0.5) / 3, half-width r = trunc(3 sigma). With
 * g(i) = exp(-i^2 / (2 sigma^2)) and G(i) the share of g(i) + .. + g(r) in
 * the sum of g over -r..r, the weights in units of 2^-s are
 * w[i] = w[-i] = round(2^s G(i)) - round(2^s G(i + 1)) (rounded from the
 * tail in: none is negative, the total is exact), the centre taking the
 * rest of 2^s; a sample is (sum of w[i] * pixel + 2^(s-1)) >> s, rounded to
 * nearest. s is 8 for 8-bit samples (the weights OpenCV's 8-bit Gaussian
 * uses, so results agree with it within one level) and 14 for 16-bit ones.
 * Rows first (progress 0..50), then columns through the transposed view
 * (51..100); the rows' result is stored at the bitmap's precision before
 * the columns are filtered.
 *
 * Rank filters (nSize 1 or more): the n x n window covers (n - 1) / 2 rows
 * and columns before the pixel and n / 2 after; the median of an even
 * window is the lower of the two middle values. */

/* ---- end of filters ---- */

/* ---- Frequency domain: Fourier transforms and frequency filtering ---- */

/* The complex transform array of Rz_FFTBitmap, Rz_DFTBitmap,
 * Rz_FTDisplayBitmap, Rz_FrqFilterBitmap and Rz_FrqFilterMaskBitmap: one
 * block of FTARRAY_SIZE - 16 + 16 * uWidth * uHeight bytes from the kernel's
 * handle allocator (counted like every kernel block), zero-filled, made by
 * Rz_AllocFTArray for a bitmap's size and returned with Rz_FreeFTArray.
 * Element (u, v) (column u, row v) is acxData[v * uWidth + u]: the real then
 * the imaginary part, IEEE doubles. The record is packed to 4 bytes, so the
 * doubles sit at offset 12 and are not 8-byte aligned: copy them (memcpy)
 * rather than taking double pointers where alignment is checked.
 *
 * Rz_AllocFTArray(bitmap, &array, FTARRAY_SIZE): -814 null bitmap, -789
 * bitmap size, -1360 signed samples, -2 no pixels, -13 null array pointer,
 * -789 a size argument other than FTARRAY_SIZE (an array with another size
 * field could never be freed), -1 out of memory; *ppFTArray is null on
 * failure. Rz_FreeFTArray: -814 null, -789 a size field other than
 * FTARRAY_SIZE (nothing is freed). It clears the size field before freeing,
 * so a second free of a block that was not yet reused gives -789; beyond
 * that the kernel's allocator cannot tell a freed block from a live one, and
 * freeing twice is undefined.
 *
 * Checks of the exports that take a bitmap and an array, in order: bitmap
 * null -814, size -789, signed -1360; array null -814, size field -789;
 * no pixels (or a descriptor the kernel cannot address) -2, an unknown
 * depth -12; uHeight, then uWidth different from the bitmap's -13; then
 * the flags (-13). They all work on the picture in view 1 and with the
 * region set aside (the whole plane is read or written); the caller's view
 * and region are back on every exit.
 *
 * Planes: FT_PLANE_BLUE / GREEN / RED read one channel of colour pixels
 * (palettised colour through its palette, 48/64 bits by the high byte of
 * the channel); the other channels are kept exactly. FT_PLANE_GREY reads
 * the grey intensity (colour becomes grey when written back). A grey
 * bitmap (grey order or a grey palette) always uses its grey samples, 12
 * and 16-bit ones by their 8 high significant bits. Transforms see 8-bit
 * values 0..255; inverse results are written back as 8-bit values (x 257
 * into 16-bit samples). */
#define FTARRAY_SIZE 28
#pragma pack(push, 4)
typedef struct FTARRAY {
    uint32_t uStructSize; /* FTARRAY_SIZE */
    uint32_t uWidth;      /* columns, the bitmap's nWidth */
    uint32_t uHeight;     /* rows, the bitmap's nHeight */
    double acxData[1][2]; /* uWidth * uHeight (real, imaginary) pairs */
} FTARRAY;
#pragma pack(pop)

/* Transform flags (4-bit fields; a value a direction reads that is not
 * listed gives -13; fields a direction does not read are ignored). */
#define FT_FORWARD 0x1        /* bitmap plane to array */
#define FT_INVERSE 0x2        /* array to bitmap plane */
#define FT_PLANE_BLUE 0x10
#define FT_PLANE_GREEN 0x20
#define FT_PLANE_RED 0x30
#define FT_PLANE_GREY 0x40
#define FT_MAGNITUDE 0x100    /* inverse: |X| / P only */
#define FT_PHASE 0x200        /* inverse: X / (|X| P); an element of magnitude 0 becomes 0 */
#define FT_BOTH 0x300         /* inverse: X / P */
#define FT_CLIP 0x1000        /* inverse: <0 and NaN to 0, >255 to 255, else truncated */
#define FT_STRETCH 0x2000     /* inverse: trunc((v - m) * 255 / (M - m)), m, M the extremes */
#define DFT_WHOLE 0x10000     /* Rz_DFTBitmap: the whole bitmap, pRange not read */
#define DFT_RECT 0x20000      /* Rz_DFTBitmap: the rectangle pRange */
#define DFT_COLUMNS_MINUS 0x100000
#define DFT_COLUMNS_PLUS 0x200000
#define DFT_ROWS_MINUS 0x1000000
#define DFT_ROWS_PLUS 0x2000000

/* Rz_FFTBitmap(bitmap, array, flags): forward computes, with P = W * H,
 *   X(u, v) = sum over x, y of f(x, y) exp(-2 pi i (u x / W + v y / H))
 * unscaled, with pi = 3.1415926535 in the twiddle factors (the same numbers
 * as an iterative radix-2 transform, to about 1e-12 of the spectrum's sum
 * of magnitudes). The inverse first scales the caller's array in place by
 * the component flag (it stays scaled), then writes the real part of
 * sum over u, v of X'(u, v) exp(+2 pi i (u x / W + v y / H)) by FT_CLIP or
 * FT_STRETCH (M = m: factor 1, every value 0; NaN gives 0; infinities the
 * nearer end; m and M ignore values that are not finite). Width and height
 * must be powers of two, 2 or more (-13). Progress: 2 and 5 after the
 * set-up, the first pass (rows; the inverse takes the columns first) 5..50,
 * the second 50..100 (forward) or 50..90 and the write-back 90..100
 * (inverse). The inverse leaves the array scaled also when the callback
 * stops it; a refusal (bad argument, no memory) leaves it as it was.
 *
 * Rz_DFTBitmap(bitmap, array, pRange, flags): the same transform for any
 * width and height (mixed radix; sizes with large prime factors are slower),
 * with flags as above plus the extent: DFT_WHOLE, or DFT_RECT with pRange
 * (left, top, right, bottom, all inclusive, 0 <= left <= right < width,
 * 0 <= top <= bottom < height, else -13). The rectangle selects the output:
 * forward, the spectrum elements (u, v) inside it (the array is cleared
 * first, so every element outside it is 0); inverse, the pixels inside it
 * (the sum runs over the whole array; only those pixels change, and
 * FT_STRETCH takes m and M over them). With DFT_RECT the column field
 * (DFT_COLUMNS_MINUS / PLUS) and the row field (DFT_ROWS_MINUS / PLUS) give
 * the sign of the exponent of the forward transform along x and along y
 * (the inverse uses the opposite signs, so forward and inverse with the
 * same flags undo each other); at least one field must be set, and an
 * unset field means PLUS. DFT_WHOLE uses MINUS for both: it equals
 * Rz_FFTBitmap. A PLUS field mirrors the spectrum along that axis:
 * X+(u) = X-((W - u) mod W).
 *
 * Rz_FTDisplayBitmap(bitmap, array, flags): draws the spectrum as 8-bit
 * grey, centred: element (u, v) goes to column (u + W/2) mod W and row
 * (v + H/2) mod H, so frequency 0 lands at (W/2, H/2) and frequencies rise
 * to the right and downward (for odd sizes too). flags & 0xFF0F is
 * FT_DISPLAY_MAGNITUDE with & 0xFFF0 FT_DISPLAY_LINEAR or FT_DISPLAY_LOG, or
 * FT_DISPLAY_PHASE. Magnitude kinds: v = |X| or ln|X|, written as
 * trunc(v * 255 / D), D the largest v; values below 0 (ln of magnitudes
 * below 1, and of 0), NaN, and everything when D is not above 0 give 0.
 * Phase: atan2(im, re) in radians stretched from its smallest m to its
 * largest M over 0..255, trunc((p - m) * 255 / (M - m)); 0 when M = m.
 * Progress 0..100 over the rows. */
#define FT_DISPLAY_MAGNITUDE 0x1
#define FT_DISPLAY_PHASE 0x2
#define FT_DISPLAY_LINEAR 0x10
#define FT_DISPLAY_LOG 0x20

/* Rz_FrqFilterBitmap(array, prcRange, flags): zeroes the elements outside
 * (FRQ_KEEP_INSIDE) or inside (FRQ_ZERO_INSIDE) a rectangle (left, top,
 * right, bottom, inclusive; 0 <= left <= right < uWidth, 0 <= top <= bottom
 * < uHeight, else -13). flags & 0xFF0F says where the rectangle lies:
 * FRQ_ARRAY_COORDS in array coordinates, FRQ_CENTRED_COORDS in the centred
 * picture of Rz_FTDisplayBitmap (frequency 0 in the middle; the rectangle
 * is mapped back through the same shift). -814 null array, -789 size field.
 * Progress 0..100 over the rows.
 *
 * Rz_FrqFilterMaskBitmap(bitmap, array, flags): the bitmap (same size as the
 * array, any depth, read as 8-bit grey m in view 1, region ignored) is a
 * mask over the centred spectrum: element (u, v) is multiplied by
 * m / 255 (as m * 0.00392156862745098) where m is the mask value at column
 * (u + W/2) mod W, row (v + H/2) mod H, and set to exactly 0 where m is 0.
 * The array is checked before the bitmap. flags must be 0 (-13). Progress
 * 0..100 over the rows; a stop leaves the rows done filtered. */
#define FRQ_ARRAY_COORDS 0x1
#define FRQ_CENTRED_COORDS 0x2
#define FRQ_KEEP_INSIDE 0x10
#define FRQ_ZERO_INSIDE 0x20

/* ---- end of frequency domain ---- */
/* ---- Deep grey and measurement: window levelling, bit range, scaling,
 * histograms and statistics ---- */

/* The region (or the bitmap) holds no pixel to measure. */
#define ST_EMPTY_REGION (-144)

/* Rz_GetMinMaxBits(pBitmap, pnLowBit, pnHighBit): the lowest and highest bit
 * set in any raw sample of the region of a grey bitmap (nColorOrder 2; other
 * orders -13); 12/16-bit samples are read as stored, whatever nLowBit and
 * nHighBit say. All samples 0 give 0 and 0. An empty region reports 0 and
 * 100 and gives ST_EMPTY_REGION with both 0. Outputs may be null; they are
 * written on every path after the descriptor checks (0 and 0 before any
 * row was read). A null bitmap is -814.
 *
 * Rz_WindowLevelBitmap(pBitmap, nLowBit, nHighBit, pLUT, uLUTLength, uMode):
 * a null bitmap or one without pixels gives -2 (not -814); order not grey or
 * uMode not 0/1: -13. The significant bits become max(nLowBit, 0) ..
 * nHighBit (the top bit when nHighBit < 0) and are stored in the bitmap
 * before they are checked: a range upside down or past the sample gives -13
 * and stays. A count without a table is -13. Any other display table is
 * released; the given one is copied (unless it is the bitmap's own) and
 * becomes pLUT with BMF_USE_LUT. An all-grey table (or none) reduces the
 * bitmap to 8-bit grey through the window and the table's red bytes
 * (KrnApplyBitmapLUT); a table with colour makes it 24-bit colour through
 * them (KrnConvertBitmap; uMode 1 asks for blue first, 0 for red first).
 * Sample value v (the significant bits, offset by half the range when
 * BMF_SIGNED) shows entry min(v, uLUTLength - 1). When a later step fails
 * the new bits and table stay with the bitmap. No progress is reported.
 *
 * Rz_MultiplyBitmap(pBitmap, uFactor): table[i] = min((i * uFactor) / 100,
 * max) by the tone tables' size rule, with i * uFactor in unsigned 32-bit
 * arithmetic (it wraps for huge factors); signed samples are re-indexed.
 * No range check on the factor. A display table of 0 entries is -13.
 *
 * Rz_GetBitmapHistogram(pBitmap, pHistogram, uBins, uChannel): zeroes the
 * bins and counts the region's samples. Bins: 65536 for 48/64-bit colour;
 * 2^k for 12/16-bit grey with k = nHighBit - nLowBit + 1 significant bits
 * (nLowBit -1 counts as 0), each sample counted by its significant value,
 * offset by 2^(k-1) when BMF_SIGNED (so the bins run from the most negative
 * value up); 256 for everything else (8-bit grey signed likewise offset by
 * 128). Palettised pixels count their palette colour. A grey bitmap counts
 * each pixel once whatever the channel; colour counts blue, green and red
 * for channel 0 (three counts a pixel) or the one channel chosen; the
 * fourth channel is never counted. -13: null pHistogram, uBins not the
 * bitmap's, channel above 3. -2: a 12/16-bit bit range upside down or past
 * the sample. An empty region leaves every bin 0 and succeeds. Progress 0..100.
 *
 * Rz_GetMinMaxVal(pBitmap, pnMin, pnMax): the smallest and largest sample of
 * the region over all channels (never the fourth), on the histogram's
 * scale: 12/16-bit grey as significant values, signed (two's complement of
 * k bits) when BMF_SIGNED; palettised pixels by their colour. One pointer
 * may be null; both null is -13. An empty region gives ST_EMPTY_REGION and
 * leaves the outputs alone.
 *
 * Rz_GetBitmapStatisticsInfo(pBitmap, pInfo, uChannel, uStart, uEnd): see
 * StatisticsInfo. Checks: null -814; size -789; a nHighBit of -1 is written
 * back as nBitsPerPixel - 1; BMF_SIGNED -1360; null pInfo, uEnd < uStart or
 * uChannel > 3: -13. It measures the histogram above (channel 0 the master
 * histogram). Deep grey (12/16-bit grey) is measured on full-scale values:
 * bin b (k bits) stands for its bit pattern repeated over 12 or 16 bits (an
 * 8-bit bin in a 16-bit frame is b * 257), and uStart / uEnd, given in
 * those units, select bins by their top k bits. Deep grey shown through a
 * display table (BMF_USE_LUT) is first folded through it into 256 bins: for
 * channel 0 the entry's grey (5 green + 2 red + blue + 4) / 8, else its red,
 * green or blue byte (values past the table take its last entry); the folded
 * bins are still read as k-bit values. Other
 * bitmaps with a display table are measured on their samples. Values past
 * the last bin hold no pixels. The median is the last value before which
 * fewer than half (uPixelCount / 2, integer) of the range's pixels were
 * counted; with one pixel in range it stays 0. Progress 0..100 (the
 * histogram's). */
typedef struct StatisticsInfo {
    uint32_t uFirst;      /* not read or written */
    uint32_t uStdDev;     /* standard deviation x 100, truncated */
    uint32_t uMean;       /* mean x 100, truncated */
    uint32_t uMedian;     /* median value */
    uint32_t uMax;        /* highest value in the range that occurs */
    uint32_t uMin;        /* lowest value in the range that occurs */
    uint32_t uPixelCount; /* counts whose value lies in the range */
    uint32_t uTotalCount; /* counts of the whole histogram */
    uint32_t uPercent;    /* uPixelCount / uTotalCount in hundredths of a percent, truncated */
} StatisticsInfo;

/* ---- end of deep grey and measurement ---- */

#ifdef __cplusplus
extern "C" {
#endif

#define RZ_OPF_INPLACE 1
#define RZ_OPF_SIGNED 2
#define RZ_OPF_CUSTOM 4
#define RZ_OPF_NULL_NO_BITMAP 8 /* a null bitmap gives ST_NO_BITMAP (-2), not ST_NULL_POINTER */

/* Declarations from the export list. */
#define RZ_DECL_DROP1_(x, ...) __VA_ARGS__
#define RZ_DECL_DROP1(...) RZ_DECL_DROP1_(__VA_ARGS__)
#define RZ_BMP(name) , BitmapDesc *name
#define RZ_I32(name, lo, hi, def, doc) , int32_t name
#define RZ_U32(name, lo, hi, def, doc) , uint32_t name
#define RZ_PTR(type, name, doc) , type name
#define RZ_OP(ord, name, family, flags, summary, params) \
    RZIMG_API int32_t RZAPI name(RZ_DECL_DROP1 params);
#include "rzimg_ops.h"
#undef RZ_OP
#undef RZ_BMP
#undef RZ_I32
#undef RZ_U32
#undef RZ_PTR

#ifdef __cplusplus
}
#endif

#endif
