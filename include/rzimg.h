/*
 * rzimg.h - the image library: operations that change a kernel bitmap in
 * place. Every operation returns ST_SUCCESS (1), a negative ST_ status, or
 * the value with which the caller's status callback (KrnSetStatusCallback)
 * asked it to stop. Progress is reported as whole percentages 0..100.
 * No stored sample outside the bitmap's region changes unless the operation's
 * description says so. A refused call changes nothing. When memory runs out
 * (ST_FAILURE) the bitmap is as it was, since operations allocate what they
 * need before their first write; the exceptions are Rz_GaussianFilterBitmap
 * and Rz_EdgeDetectorBitmap's two-direction maps, whose second pass can fail
 * after the first wrote its rows. A stop keeps the rows written so far.
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

/* Short tables on deep samples (Rz_RemapBitmapIntensity and every table
 * operation). A table of 256 entries or fewer is applied in 8 bits a
 * channel, through the low byte of its entries. On 48/64-bit colour a
 * chosen 16-bit channel c becomes table[c >> 8] * 257, and every channel of
 * every pixel of the region's bounding rectangle, inside the region or not,
 * is narrowed to (c >> 8) * 257 (a fourth channel is kept): give 65536
 * entries to keep 16 bits. On 12/16-bit grey with k significant bits the
 * region's pixels become table[v >> (k - 8)] * 257 >> (16 - k) and the
 * others keep their samples; with one channel chosen the grey is worked as
 * 8-bit colour and the whole bounding rectangle narrowed as above.
 * 1..7-bit pixels are always written back as the nearest palette entry of
 * the colour worked on (lowest index on ties), even when marked as grey
 * samples (nColorOrder 2, nDataKind 1): a sample whose colour an earlier
 * entry repeats comes back as that entry. */

/* ---- Colour: hue, saturation and intensity ---- */

/* A hue range of Rz_ChangeHueSatIntBitmap: its changes are added in full
 * for hues innerLow..innerHigh and fade linearly to nothing at outerLow and
 * outerHigh. Bounds are whole degrees, -359..359 (negative ones are turned
 * by 360); a range across 0 degrees has outerLow above outerHigh, and then
 * its inner range must cross 0 as well. At most RZ_MAX_RECORDS ranges (-13
 * for more). */
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
    int32_t dim;       /* 1 .. RZ_MAX_KERNEL_SIDE */
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
    uint32_t width;    /* 1 .. RZ_MAX_KERNEL_SIDE */
    uint32_t height;   /* 1 .. RZ_MAX_KERNEL_SIDE */
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
 * (inverse; FT_CLIP writes each row as the second pass makes it). The array
 * stays scaled also when the callback stops it; a refusal leaves it as it was.
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
 * and stays. A count without a table, or above RZ_MAX_RECORDS, is -13. Any
 * other display table is
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

/* ---- Edge detection and combining ---- */

/* Rz_EdgeDetectorBitmap(nThreshold, uFilter): every sample becomes the
 * maximum (255, 65535; 4095 on 12-bit grey) where the operator's divided
 * response exceeds nThreshold, else 0. nThreshold is in sample units:
 * 0..255 for 8-bit samples (1..8-bit grey, palettes, 24/32 bits), 0..65535
 * for 16-bit ones (16-bit grey, 48/64 bits), 0..4095 on 12-bit grey
 * (ST_BAD_BITS above; times 16 inside); a negative one is
 * ST_INVALID_PARAMETER. Sobel and Prewitt compare |g| / d (d 4 and 3);
 * Laplace and compass kernels compare the signed sum / divisor, so they
 * mark one polarity of an edge only. Rows beyond the first and last are
 * the edge rows themselves, as are columns (replication). The vertical
 * codes run the row operator through the transposed view; the BOTH codes
 * OR the two maps with Rz_CombineBitmapExt (CBF_OR) and report one
 * progress sequence: the horizontal map 0..50, the vertical 51..100. A
 * null or unallocated bitmap is ST_NO_BITMAP. */
#define EDG_SOBEL_VERTICAL 0x101u
#define EDG_SOBEL_HORIZONTAL 0x102u
#define EDG_SOBEL_BOTH 0x103u
#define EDG_PREWITT_VERTICAL 0x201u
#define EDG_PREWITT_HORIZONTAL 0x202u
#define EDG_PREWITT_BOTH 0x203u
#define EDG_LAPLACE_FOUR 0x301u       /* 0 -1 0 / -1 4 -1 / 0 -1 0, divisor 4 */
#define EDG_LAPLACE_EIGHT 0x302u      /* -1 -1 -1 / -1 8 -1 / -1 -1 -1, divisor 4 */
#define EDG_LAPLACE_CROSS 0x303u      /* 1 -2 1 / -2 4 -2 / 1 -2 1, divisor 4 */
#define EDG_LAPLACE_DIAGONAL 0x304u   /* -1 0 -1 / 0 4 0 / -1 0 -1, divisor 4 */
#define EDG_LAPLACE_VERTICAL 0x305u   /* 0 -1 0 / 0 2 0 / 0 -1 0, divisor 2 */
#define EDG_LAPLACE_HORIZONTAL 0x306u /* 0 0 0 / -1 2 -1 / 0 0 0, divisor 2 */
#define EDG_GRADIENT_N 0x401u         /* compass kernels as SPF_GRADIENT_, divisor 5 */
#define EDG_GRADIENT_NE 0x402u
#define EDG_GRADIENT_E 0x403u
#define EDG_GRADIENT_SE 0x404u
#define EDG_GRADIENT_S 0x405u
#define EDG_GRADIENT_SW 0x406u
#define EDG_GRADIENT_W 0x407u
#define EDG_GRADIENT_NW 0x408u

/* Two-bitmap operations change a rectangle of the first bitmap (the
 * destination) from the same-sized rectangle of a source:
 * (nX, nY, nWidth, nHeight) in the destination and (nSrcX, nSrcY) in the
 * source. Both rectangles are clipped to their bitmaps; a negative origin on
 * one side moves the other side's origin by the same amount so the two stay
 * aligned; the width and height are the smaller of the two clipped extents.
 * Nothing overlapping is success (1) with nothing changed. Every bitmap is
 * read in the destination's working format, whatever its own depth: 8-bit
 * grey for 1..8-bit grey, 16-bit grey (significant bits at the top) for
 * 12/16-bit grey, 8-bit blue, green, red for palettes and 24/32 bits, 16-bit
 * blue, green, red for 48/64 bits; a colour source is made grey by the
 * kernel's (77 R + 150 G + 29 B + 128) >> 8 for a grey destination. The
 * fourth channel of 32/64-bit destinations is kept. The destination's region
 * limits the pixels changed; a source region, moved by the difference of the
 * origins, limits them further. All bitmaps are worked in view 1, each
 * caller's view being restored on every exit. When source and destination
 * share their pixels, the source is read from a copy taken first, so
 * overlapping rectangles read the original pixels.
 *
 * Blends (d destination, s source, m mask sample of the same channel, o the
 * opacity in the working sample's units; >> floors; 16-bit samples use 65535
 * and >> 16 in place of 255 and >> 8):
 *   Rz_AlphaBlendBitmap         d += ((s - d) * o) >> 8 (as d = ((s - d) * o
 *                               + (d << 8)) >> 8); 255 leaves 1/256 of d;
 *                               0 changes nothing
 *   Rz_FeatherAlphaBlendBitmap  the same with m for o: the mask is the weight
 *                               of the source (0 keeps d)
 *   Rz_TextureAlphaBlendBitmap  where m < 255: t = ((d - s) * m + (s << 8))
 *                               >> 8, then d = ((t - d) * o + (d << 8)) >> 8:
 *                               the mask is the weight of the destination
 *                               (255 keeps d); with a texture, m is first
 *                               m + texture - 128 (32768 at 16 bits),
 *                               clamped. Without an (allocated) mask it is
 *                               the plain alpha blend.
 * Opacity, checked in this order: a grey destination of 1..8 bits takes
 * 0..255; two grey bitmaps of which one is 12 or 16 bits take 0..4095 (times
 * 16) when either is 12 bits, else 0..65535; a bitmap of at most 32 bits
 * that is not grey means 0..255; a 12-bit one 0..4095 (times 16); else
 * 0..65535. A 0..255 opacity on a 16-bit working format is times 257.
 * The mask is read from its top-left for the rectangle's top-left and must
 * cover the whole rectangle, or nothing is blended. The texture is tiled:
 * texture pixel ((ox + i) mod width, (oy + j) mod height) for rectangle
 * pixel (i, j), (ox, oy) being *pTextureOffset (ST_INVALID_PARAMETER when
 * null with a texture). Checks: Rz_AlphaBlendBitmap and
 * Rz_FeatherAlphaBlendBitmap check destination, source (and mask) for null
 * (ST_NULL_POINTER), size (ST_BAD_STRUCT_SIZE) and BMF_SIGNED
 * (ST_SIGNED_NOT_SUPPORTED) in that order; Rz_TextureAlphaBlendBitmap checks
 * texture, mask, source and destination; then the opacity
 * (ST_INVALID_PARAMETER); then BMF_ALLOCATED of every bitmap used
 * (ST_NO_BITMAP); then a missing texture offset. A texture or mask given
 * without pixels is ignored by Rz_TextureAlphaBlendBitmap.
 *
 * Rz_CombineBitmapExt(uFlags): r = operation(S, D) per channel, with S and D
 * prepared first and r finished as the nibbles say; M is the channel maximum
 * (255 or 65535), divisions truncate. Bits 8-11, the operation: */
#define CBF_AND 0x000u          /* S & D */
#define CBF_OR 0x100u           /* S | D */
#define CBF_XOR 0x200u          /* S ^ D */
#define CBF_ADD 0x300u          /* min(S + D, M) */
#define CBF_SUBTRACT_SRC 0x400u /* max(D - S, 0) */
#define CBF_SUBTRACT_DST 0x500u /* max(S - D, 0) */
#define CBF_MULTIPLY 0x600u     /* S * D / M */
#define CBF_DIVIDE_SRC 0x700u   /* min(D * M / S, M); M when S = 0 */
#define CBF_DIVIDE_DST 0x800u   /* min(S * M / D, M); M when D = 0 */
#define CBF_AVERAGE 0x900u      /* (S + D) / 2 */
#define CBF_MIN 0xA00u
#define CBF_MAX 0xB00u
#define CBF_ABSDIFF 0xC00u      /* |S - D| */
/* Bits 0-3 prepare S, bits 4-7 prepare D (after the channel selection): */
#define CBF_SRC_NORMAL 0x00u
#define CBF_SRC_INVERT 0x01u    /* M - S */
#define CBF_SRC_GREY 0x02u      /* the pixel's intensity Y in every channel */
#define CBF_SRC_GREY_INVERT 0x03u
#define CBF_DST_NORMAL 0x00u
#define CBF_DST_INVERT 0x10u
#define CBF_DST_GREY 0x20u
#define CBF_DST_GREY_INVERT 0x30u
/* Bits 12-15 finish the result: */
#define CBF_RES_NORMAL 0x0000u
#define CBF_RES_INVERT 0x1000u  /* M - r */
#define CBF_RES_SOURCE 0x2000u  /* the prepared S is written, no operation */
#define CBF_RES_DEST 0x3000u    /* the prepared D is written, no operation */
/* Bits 16-19, 20-23 and 24-27 choose the source channel that feeds the
 * destination's red, green and blue: 0 the same channel, 1 red, 2 green,
 * 3 blue. For a grey destination the first selector alone is read: 0 the
 * source's grey, 1..3 that channel of a colour source. Y is
 * (3735 B + 19235 G + 9798 R + 16384) >> 15 (the sample itself on grey
 * rows). Any other value in a nibble, or a bit of 28-31, is
 * ST_INVALID_PARAMETER; a width or height below 1 returns 1 at once. */
#define CBF_SELECT_RED(sel) ((uint32_t)(sel) << 16)
#define CBF_SELECT_GREEN(sel) ((uint32_t)(sel) << 20)
#define CBF_SELECT_BLUE(sel) ((uint32_t)(sel) << 24)
#define CBF_CHANNEL_SAME 0u
#define CBF_CHANNEL_RED 1u
#define CBF_CHANNEL_GREEN 2u
#define CBF_CHANNEL_BLUE 3u

/* Rz_AddBitmaps(pResult, uStructSize, pList, uFlags) and
 * Rz_AddWeightedBitmaps(pResult, uStructSize, pList, pWeights, uFlags) make
 * a new bitmap in pResult (uninitialised on entry; release it with
 * KrnFreeBitmap) of the first bitmap's size, depth and palette, from the
 * samples of every list bitmap read in the first's working format. Every
 * bitmap must have the first's width, height, depth and colour order
 * (ST_INVALID_PARAMETER otherwise); a list of one bitmap gives its copy.
 * RZ_ADD_AVERAGE: sum / n, truncated. RZ_ADD_SUM: the sum, at most the
 * maximum. Weighted: round(sum of w * v / D) (halves away from zero),
 * clamped to 0..maximum, with w in per-mille (-100000..100000) and D 1000
 * (RZ_ADDW_PERMILLE) or the sum of the weights (RZ_ADDW_NORMALISE; a sum of
 * 0 is ST_INVALID_PARAMETER). Checks: pResult null ST_NULL_POINTER,
 * uStructSize not 164 ST_BAD_STRUCT_SIZE (pResult->uStructSize is set to 164
 * first), a null or empty list, null weights, a weight out of range or
 * another uFlags ST_INVALID_PARAMETER, then every list bitmap for its size
 * field, BMF_SIGNED and pixels, then the sizes and depths. On failure
 * pResult is released and zeroed but for its size field. Regions are not
 * used. */
#define RZ_ADD_AVERAGE 1u
#define RZ_ADD_SUM 2u
#define RZ_ADDW_PERMILLE 0u
#define RZ_ADDW_NORMALISE 1u

/* ---- end of edge detection and combining ---- */
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

/* ---- Limits: the largest tables, records and kernels an operation takes ----
 * Checked with the other arguments, before any memory is taken; a value past
 * one gives ST_INVALID_PARAMETER (-13). Within them a call may still give
 * ST_FAILURE (-1) when the memory is not there. Bitmaps are bounded by the
 * kernel's KRN_MAX_PIXELS and KRN_MAX_BITMAP_BYTES, lists by
 * KRN_MAX_LIST_ITEMS, region polygons by DIS_MAX_POLYGON_POINTS. Windows and
 * cells (rank filters, oilify, mosaics, pixelate, tiles, glass) have no limit
 * of their own: they are clipped to the bitmap, so neither their memory nor
 * their work grows past what a window of the bitmap's size costs. */
#define RZ_MAX_RECORDS 65536    /* entries of a table or records of an array argument */
#define RZ_MAX_KERNEL_SIDE 1024 /* width and height of a convolution kernel */
/* ---- end of limits ---- */

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
#define RZ_SRC(name, rank, nullable, doc) , BitmapDesc *name
#define RZ_LIST(name, doc) , KrnBitmapList *name
#define RZ_OUT(name, doc) , BitmapDesc *name
#define RZ_OP(ord, name, family, flags, summary, params) \
    RZIMG_API int32_t RZAPI name(RZ_DECL_DROP1 params);
#include "rzimg_ops.h"
#undef RZ_OP
#undef RZ_BMP
#undef RZ_I32
#undef RZ_U32
#undef RZ_PTR
#undef RZ_SRC
#undef RZ_LIST
#undef RZ_OUT

#ifdef __cplusplus
}
#endif

#endif
