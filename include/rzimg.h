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

/* ---- Tone: intensity band ---- */

/* Rz_IntensityDetectBitmap(uLow, uHigh, crIn, crOut, uChannel): every pixel
 * whose intensity lies in uLow..uHigh (inclusive) takes crIn, every other
 * one crOut. Intensity: the grey sample; for colour, Y = (3735 B + 19235 G
 * + 9798 R + 16384) >> 15 with uChannel 0, else that channel (1 red, 2
 * green, 3 blue). Levels are in the bitmap's own sample units: 0..255 for
 * 1..8-bit grey and 8-bit channels, the significant value (0..4095 for
 * 12 bits) for 12/16-bit grey, 0..65535 for 16-bit channels. Colours are
 * 0x00BBGGRR words, times 256 on 16-bit samples; grey bitmaps take
 * (2R + 5G + B + 4) / 8; with bit 26 set the low 16 bits are a grey level
 * in sample units. Palettised bitmaps (and 12/16-bit grey shown through a
 * display table) have their entries rewritten instead of their pixels: a
 * palette entry is judged by its colour, a display-table entry by its
 * index, i.e. the sample value it shows (samples past the table's end show
 * its last entry); the region does not apply there. -13 for a level above
 * 65535, uLow above uHigh or uChannel above 3; signed samples -1360. */

/* ---- Document: skew detection and deskew ---- */

/* Rz_DeskewBitmap(pnAngle, crBack, uDeskewFlags) and
 * Rz_DeskewBitmapExt(pnAngle, nAngleRange, nAngleResolution, crBack,
 * uDeskewFlags) measure the skew of a text page and, unless asked only to
 * measure, rotate the page straight about its centre. The whole page is
 * used; the region is ignored.
 *
 * Measurement: the page is compared with itself displaced L pixels to the
 * right and s rows down, for every s in -n..n. The score of s sums, over
 * the row pairs (y, y + s) for y from n to nHeight - 1 - n (so every shift
 * sums the same number of pairs, and a white margin cannot pull the best
 * shift toward 0 or away from it), the products of the samples (x, y) and
 * (x + L, y + s) for x from 0 to nWidth - L - 1: on 1-bit pages the count of
 * pixels where both are the lighter palette colour; on other depths the
 * product of 8-bit grey levels (palette entries and colour by
 * (B + 5 G + 2 R + 4) / 8, 16-bit channels by their high byte, 12/16-bit
 * grey by the top 8 significant bits or through the display table when one
 * is shown), each row pair's sum divided by 65025. The scores are smoothed
 * by a centred mean of three (ends repeated); the largest wins, the most
 * negative shift on ties; when every shift scores the same (a blank or
 * uniform page) the angle is 0. Angle = trunc(atan(s / L) * 18000 / pi) in
 * hundredths of a degree. The sign is inverted in views 1, 2, 6 and 8 and
 * kept in 3, 4, 5 and 7: in view 1 a positive angle means the lines rise to
 * the right. Pages narrower than 4 L or lower than 15 n rows are measured on
 * a copy scaled up uniformly to that size (bilinear).
 *   Rz_DeskewBitmap: L = 256, n = 46 (+-10.19 degrees in steps of about
 *   0.22). Rz_DeskewBitmapExt: nAngleRange in hundredths of a degree (at
 *   most 4500, and at most the angle of the bitmap's diagonal from its nearer
 *   side), nAngleResolution in TENTHS of a degree (1 or more, and not above
 *   the raw number nAngleRange); L = ceil(1 / tan(resolution)),
 *   n = ceil(tan(range) * L).
 * Pre-filtered path: the page is measured on a black-and-white copy (8-bit
 * grey, 128..255 white) whose minority colour has been grown by
 * Rz_MaxFilterBitmap or Rz_MinFilterBitmap of side 5..15, from the page's
 * diagonal and ink share, into solid line-shaped blobs; it copes with grey
 * scans whose background is unevenly lit, where raw products see mostly the
 * background. On a straight page the blobs may put the result one search
 * step off. RZ_DESKEW_PATH selects it in Rz_DeskewBitmap; the Ext export
 * reads the same bit the other way round (set: direct).
 * Rotation: about (nWidth / 2, nHeight / 2) by the measured slope, turned so
 * that the lines come out level as the view shows them (in views 3, 4, 5
 * and 7 the reported angle therefore has the rotation's opposite sign), the
 * size kept, uncovered corners filled with crBack (0x00BBGGRR, as
 * KrnRotateBitmap fills) or, with RZ_DESKEW_FILL_PAGE, the page's most
 * frequent grey level (the first on ties). 1-bit pages are turned as 8-bit
 * grey and thresholded back at 200 (the lighter palette entry taking the
 * light pixels; the palette is kept). Nothing is rotated for an angle of 0,
 * nor, with RZ_DESKEW_SKIP_SMALL, when |tan(angle)| * nWidth / nHeight is at
 * most 0.005. The page changes only when the rotation has completed.
 * Progress: measuring 0..33 (0..100 when only measuring), the page-fill
 * histogram 34..66, the rotation 34 (or 67) ..100; nested work runs with the
 * caller's callback silenced.
 * Statuses: -814, -789, -1360 (signed samples), -13 for a low nibble other
 * than 0 or 1, bits 4-7 other than 0 or 0x10, and (Ext) a range above 4500,
 * a resolution of 0, above the range or a multiple of 180 degrees; -2 for
 * a bitmap without pixels or a palette depth without its palette; -1 when
 * memory runs out; a kernel
 * failure's own status; the callback's stop value. Bits 8-11 are read as
 * zero / non-zero, bits 12-15 other than 0x1000 and 0x2000 give nearest,
 * bits above 19 are not read. pnAngle may be null. Rz_DeskewBitmap first
 * replaces an nHighBit of -1 by nBitsPerPixel - 1. */
#define RZ_DESKEW_MEASURE_ONLY 0x1u
#define RZ_DESKEW_FILL_PAGE 0x10u
#define RZ_DESKEW_SKIP_SMALL 0x100u
#define RZ_DESKEW_BILINEAR 0x1000u
#define RZ_DESKEW_BICUBIC 0x2000u
#define RZ_DESKEW_PATH 0x10000u

/* ---- end of document ---- */

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
