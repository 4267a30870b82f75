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

/* ---- Effects: oilify and cell mosaics ---- */

/* These work in the caller's view (rows and columns as the view shows
 * them). Only pixels inside the region change; windows and cells read the
 * pixels around them, inside the region or not.
 *
 * Rz_OilifyBitmap(nDim 1 or more): per channel, the most frequent value of
 * the n x n window, which covers (n - 1) / 2 columns and rows before the
 * pixel and n / 2 after, edges replicated. Each channel is taken by itself,
 * so a pixel may combine channels of different source pixels. Ties between
 * equally frequent values are settled by history, row by row: the first
 * column's window is counted row by row, left to right, and a value becomes
 * the mode only when its count passes the mode's; moving right, each window
 * row takes out the leaving column's value and adds the entering one, and
 * when the mode's own value leaves, the lowest value of the largest count
 * becomes the mode. Every row starts afresh at column 0, so the result does
 * not depend on the region. Works on 8 bits a channel: grey in one channel,
 * palettes and colour in blue, green, red; 12/16-bit grey and 48/64-bit
 * colour come back as their high byte times 257 (nDim 1 returns at once and
 * changes nothing). No upper limit: a window larger than the bitmap repeats
 * the edges and costs what one of the bitmap's size does; the cost grows
 * with min(n, height) per pixel.
 *
 * Rz_MosaicBitmap(nDim 1 or more): n x n tiles from the first row and
 * column, the last ones clipped to the bitmap; each channel of a tile
 * becomes the sum of its pixels divided by the tile's clipped area,
 * truncated. In views 3 and 4 the tile rows start from the view's last row
 * (the first stored row). At the bitmap's precision (16-bit samples for
 * 12/16/48/64 bits). A null bitmap gives ST_NO_BITMAP.
 *
 * Rz_PixelateBitmap(uCellWidth, uCellHeight 1 or more, uFlags): cells from
 * the top-left corner of the region's bounding rectangle (the bitmap when
 * there is no region), clipped to it. RZ_PIXELATE_MEAN: the mean of the
 * cell, rounded half up at the bitmap's precision; RZ_PIXELATE_CENTRE: the
 * cell's centre pixel, at (w - 1) / 2, (h - 1) / 2 of the clipped cell.
 *
 * Rz_MosaicTilesBitmap(uTileWidth, uTileHeight 1 or more, uGroutWidth below
 * both, crGrout, nShadowAngle, uFlags): tiles from the corner of the region's
 * bounding rectangle, as Pixelate's cells. The last uGroutWidth columns and
 * rows of every tile are grout, painted crGrout (red bits 0-7, green 8-15,
 * blue 16-23, times 256 on 12/16/48/64-bit bitmaps; on 12/16-bit grey, bit
 * 26 makes the low 16 bits the 16-bit grey level; grey bitmaps take
 * (2 red + 5 green + blue) / 8). The rest is the tile's face: its mean,
 * rounded half up (RZ_TILES_MEAN), or the picture itself (RZ_TILES_PICTURE).
 * The face's one-pixel border is lit from nShadowAngle (hundredths of a
 * degree, counter-clockwise from the right, 9000 from the top; any value,
 * taken modulo 36000): each border pixel adds the signs of the edges it
 * lies on (+1 facing the light, -1 facing away, 0 along it), limited to -1..1,
 * times 48 (times 257 on 16-bit samples), clamped. RZ_TILES_FLAT leaves
 * the bevel out. Tiles cut by the rectangle keep their grout and bevel at
 * the tile grid's places, so the rectangle shows a window onto the tiling. */
#define RZ_PIXELATE_MEAN 0
#define RZ_PIXELATE_CENTRE 1
#define RZ_TILES_MEAN 0
#define RZ_TILES_PICTURE 1
#define RZ_TILES_FLAT 0x10

/* ---- end of effects ---- */

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
