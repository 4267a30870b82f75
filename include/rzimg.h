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

/* ---- Distortions ----
 * Every distortion works on the processing rectangle: the bounding
 * rectangle of the bitmap's region, or the whole bitmap. Each pixel of it
 * (inside the region) takes the colour found at a source position, sampled
 * bilinearly from a copy of the rectangle's rows taken before anything
 * changes; the weights are worked in extended precision and the value
 * truncated. hw and hh are half the rectangle's width and height (integer
 * division); R(theta) = sqrt(hh^2 sin^2 theta + hw^2 cos^2 theta) is "the
 * ellipse radius" in direction theta (it reaches a little beyond the true
 * ellipse between the axes). Coordinates are those of the upright view (1):
 * the bitmap's view is set to 1 for the call and restored on every exit.
 *
 * A centre (nCenterX, nCenterY, pixels) must lie in the rectangle grown by
 * one pixel on every side, else ST_BAD_BITS (-11).
 * Fill colour: red bits 0-7, green 8-15, blue 16-23; times 256 on 12, 16,
 * 48 and 64-bit bitmaps; on 12/16-bit grey with bit 26 set the low 16 bits
 * are the grey level (on the 16-bit scale); grey bitmaps use
 * (5 green + blue + 2 red) / 8.
 * Flags bits 0-3, the rule for a source position outside the rectangle:
 * 0 write the fill colour, 1 clamp the position to the nearest edge and
 * sample, 2 leave the pixel. Bits 4-7 may hold the option 0x10 where a
 * member names one.
 * A null bitmap gives ST_NO_BITMAP (-2) for swirl, spherize, bending, punch,
 * cylindrical and polar, which also test the allocated flag before the
 * structure size; the others give ST_NULL_POINTER (-814) and test the flag
 * after the size. A strength of 0 reports 0 and 100 and returns 1 untouched.
 *
 * Rz_SwirlBitmap(nAngle, centre): dx = x - cx, dy = y - cy, r, theta their
 *   polar form; twist = ln(R / r) * nAngle / 180 radians; pixels with
 *   r > R or twist 0, and the centre, stay; others sample at the point
 *   turned by twist, clamped. nAngle has no limit; negative turns the other
 *   way. Positions are worked in double precision by vector arithmetic that
 *   agrees with libm to a unit or two in the last place: a sample can differ
 *   by one level from a step-by-step evaluation, about 2 in 10000.
 * Rz_SpherizeBitmap(nValue -500..500, centre, crFill, uFlags): inside the
 *   ellipse, a = |nValue| / 100; nValue < 0: r' = (sin(r/R * pi/2) R - r) a + r;
 *   nValue > 0: r' = (R / (pi/2) asin(r/R) - r) a + r, and with option 0x10 a
 *   pixel with r' <= 0 follows the rule (rule 1: r' = 0). Samples at r'
 *   along the same ray; where R is 0 the pixel stays.
 *   -56 for an empty rectangle, -13 for flags bits 4-15 other than 0 or 0x10
 *   or a rule above 2.
 * Rz_BendingBitmap(nValue -500..500, centre, crFill, uFlags): rows bend into
 *   parabolas, sy = y + nValue / 500 * hh * (dx / hw)^2 (positive lifts the
 *   sides); 0x10 bends the columns, sx = x + nValue / 500 * hw * (dy / hh)^2.
 *   Checks as spherize.
 * Rz_PunchBitmap(nValue -500..500, nStress 0..1000, centre, crFill, uFlags):
 *   inside the ellipse (0x10: the circle of radius min(hw, hh)), rho = r / R,
 *   r' = R rho^(2^(f s)) with f = nValue / 500 and s = 1 + 2 nStress / 1000:
 *   positive swells the centre, negative pinches it. |nValue| > 500 or
 *   nStress > 1000: -11. No centre test.
 * Rz_CylindricalBitmap(nValue -100..100, nType 0/1): u = dx / hw about the
 *   rectangle's centre, a = |nValue| / 100; positive wraps onto a cylinder,
 *   sx = cx + hw ((1 - a) u + a (2/pi) asin u); negative hollows it,
 *   a sin(pi u / 2) instead. Type 1 works in the transposed view (a
 *   horizontal axis). Always clamps. nType other than 0 or 1: -13 (after the
 *   empty-rectangle check, -56).
 * Rz_PolarBitmap(crFill, uFlags): polar coordinates about the rectangle's
 *   centre, radius min(hw, hh), angle clockwise from straight up. Default:
 *   the rectangle is wrapped into the disc (x gives the angle, y the radius,
 *   the top row at the centre); 0x10: the disc is unwrapped into the
 *   rectangle. Flags bits 4-7 other than 0 or 0x10: -11; bits above 7 are
 *   not read.
 * Rz_TunnelBitmap(centre, nZValue >= 1, nRadius >= 1, nRotation c deg,
 *   crFill, uFlags): the picture tiled over the wall of a tunnel seen along
 *   its axis: depth z = nRadius * nZValue / r, angle theta + nRotation;
 *   sx = left + wrap(angle W / 2pi, W), sy = top + wrap(z, H). The vanishing
 *   point (r < 1) is filled under rule 0 and left otherwise.
 * Rz_GlassEffectBitmap(uCellWidth, uCellHeight, uFlags): glass blocks; in
 *   each cell u in [-1, 1] across it and the source is the cell centre plus
 *   0.6 u (1 + u^2) / 2 half cells: each block magnifies its middle and the
 *   seams show. uFlags 0 both axes, 1 across only, 2 down only. Clamps.
 * Rz_OceanBitmap(uAmplitude px, uWavelength px, uFlags):
 *   sx = x + A sin(2 pi y / L), sy = y + A sin(2 pi x / L); 0x10: the lower
 *   half of the rectangle is the mirror image of the rippled upper half.
 *   Clamps; the rule nibble must be 0.
 * Rz_PlaneBitmap(centre, nZValue = focal length, nDistance = eye height,
 *   uType, crFill, uFlags): an endless floor (uType 0: below the centre's
 *   row; 1 ceiling, above; 2 both) tiled with the picture: dy = y - cy,
 *   z = D f / |dy|, sx = left + wrap(dx z / f + hw, W), sy = top + wrap(z, H).
 *   Pixels off the plane (and |dy| < 1) are filled under rule 0 and left
 *   under rules 1 and 2.
 * Rz_PlaneBendBitmap(..., nBend -1000..1000, ...): as the plane with
 *   dy + nBend / 1000 * hh * (dx / hw)^2 for dy.
 * Rz_OffsetBitmap(nShiftX, nShiftY, crFill, uFlags): moves the rectangle's
 *   contents by whole pixels; uncovered pixels follow rule 0 fill, 1 edge,
 *   2 leave, or 3 wrap round (this member only).
 * wrap(v, n) = v - n floor(v / n). */

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
