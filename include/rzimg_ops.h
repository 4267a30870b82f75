/*
 * The list of the image library's exports: one line each, and nothing else
 * names them. Expanded by rzimg.h into declarations, by the build into the
 * linker's export list, and by the operation registry (command-line tool,
 * reliability tests) into a table of names, parameters and callers.
 *
 * RZ_OP(ordinal, name, family, flags, summary, (parameters))
 *   flags: RZ_OPF_INPLACE   changes one bitmap in place; scalar parameters
 *          RZ_OPF_SIGNED    has a path for BMF_SIGNED samples
 *          RZ_OPF_CUSTOM    needs a record or table; callers build it
 *          RZ_OPF_NULL_NO_BITMAP  a null bitmap gives -2 instead of -814
 * Parameters, in call order:
 *   RZ_BMP(name)                                 the bitmap
 *   RZ_I32(name, min, max, default, doc)        checked range
 *   RZ_U32(name, min, max, default, doc)        checked range
 *   RZ_PTR(type, name, doc)                     table or record
 * Operations on several bitmaps add:
 *   RZ_SRC(name, rank, nullable, doc)  a further bitmap the operation reads;
 *        rank places its descriptor checks relative to the first bitmap
 *        (0): negative before it, positive after; nullable 1 when null is
 *        accepted
 *   RZ_LIST(name, doc)                 a kernel bitmap list (KrnBitmapList)
 *   RZ_OUT(name, doc)                  a descriptor the operation fills with
 *        a new bitmap (freed by the caller with KrnFreeBitmap)
 */
RZ_OP(100, Rz_InvertBitmap, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Inverts every sample: the palette, the display table or the pixels.",
      (RZ_BMP(pBitmap)))
RZ_OP(101, Rz_ChangeBitmapIntensity, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Adds a share of the full scale to every sample, clamped.",
      (RZ_BMP(pBitmap) RZ_I32(nChange, -1000, 1000, 200, "per-mille of full scale")))
RZ_OP(102, Rz_ChangeBitmapContrast, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Stretches (positive) or compresses (negative) the tone range about its middle.",
      (RZ_BMP(pBitmap) RZ_I32(nChange, -1000, 1000, 300, "per-mille")))
RZ_OP(103, Rz_PosterizeBitmap, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Reduces every channel to a number of evenly spaced levels.",
      (RZ_BMP(pBitmap) RZ_U32(uLevels, 2, 4294967295u, 4, "levels per channel")))
RZ_OP(104, Rz_SolarizeBitmap, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Inverts the samples at or above a threshold.",
      (RZ_BMP(pBitmap) RZ_U32(uThreshold, 0, 65535, 128, "sample value")))
RZ_OP(105, Rz_GammaCorrectBitmap, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Applies a gamma curve: out = max * (in / max)^(100 / gamma).",
      (RZ_BMP(pBitmap) RZ_U32(uGamma, 1, 4294967295u, 200, "hundredths")))
RZ_OP(106, Rz_RemapBitmapIntensity, tone, RZ_OPF_CUSTOM | RZ_OPF_NULL_NO_BITMAP,
      "Maps every sample of the chosen channels through the caller's table.",
      (RZ_BMP(pBitmap) RZ_PTR(const uint32_t *, pTable, "one entry per input value")
       RZ_U32(uCount, 1, 65536, 256, "table entries")
       RZ_U32(uChannel, 0, 3, 0, "0 all, 1 red, 2 green, 3 blue")))
RZ_OP(120, Rz_GetMinMaxBits, tone, RZ_OPF_CUSTOM | RZ_OPF_SIGNED,
      "Finds the lowest and highest bit set in any grey sample of the region.",
      (RZ_BMP(pBitmap) RZ_PTR(int32_t *, pnLowBit, "lowest bit used, or null")
       RZ_PTR(int32_t *, pnHighBit, "highest bit used, or null")))
RZ_OP(121, Rz_WindowLevelBitmap, tone, RZ_OPF_CUSTOM | RZ_OPF_SIGNED | RZ_OPF_NULL_NO_BITMAP,
      "Sets the significant bits and display table of grey samples and reduces the image through them.",
      (RZ_BMP(pBitmap) RZ_I32(nLowBit, -2147483647 - 1, 2147483647, 4, "lowest significant bit (below 0: 0)")
       RZ_I32(nHighBit, -2147483647 - 1, 2147483647, 11, "highest significant bit (below 0: the top bit)")
       RZ_PTR(const RzRGBQuad *, pLUT, "display table (blue, green, red, reserved), or null")
       RZ_U32(uLUTLength, 0, 65536, 0, "entries in pLUT, at most RZ_MAX_RECORDS")
       RZ_U32(uMode, 0, 1, 0, "colour tables: 0 red first, 1 blue first")))
RZ_OP(122, Rz_MultiplyBitmap, tone, RZ_OPF_INPLACE | RZ_OPF_SIGNED,
      "Multiplies every sample by a factor in hundredths, clamped to the top.",
      (RZ_BMP(pBitmap) RZ_U32(uFactor, 0, 4294967295u, 150, "hundredths")))
RZ_OP(300, Rz_ChangeBitmapHue, colour, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Rotates the hue of every pixel or palette entry (ratio-hue HSV, 256 steps a turn).",
      (RZ_BMP(pBitmap) RZ_I32(nAngle, -2147483647 - 1, 2147483647, 120, "degrees")))
RZ_OP(301, Rz_ChangeBitmapSaturation, colour, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Changes the HLS saturation by a share of its current value.",
      (RZ_BMP(pBitmap) RZ_I32(nChange, -1000, 1000, 300, "tenths of a percent of the saturation")))
RZ_OP(302, Rz_ChangeHueSatIntBitmap, colour, RZ_OPF_CUSTOM,
      "Shifts hue, saturation and intensity, with further changes for chosen hue ranges.",
      (RZ_BMP(pBitmap) RZ_I32(nHue, -18000, 18000, 0, "hundredths of a degree")
       RZ_I32(nSaturation, -1000, 1000, 0, "tenths of a percent of the saturation")
       RZ_I32(nIntensity, -1000, 1000, 0, "tenths of a percent of full scale")
       RZ_PTR(const HueSatIntRange *, pRanges, "hue ranges with their own changes, or null")
       RZ_U32(uRangeCount, 0, 65536, 0, "records in pRanges, at most RZ_MAX_RECORDS")))
RZ_OP(303, Rz_RemapBitmapHue, colour, RZ_OPF_CUSTOM | RZ_OPF_NULL_NO_BITMAP,
      "Replaces hue, saturation and value (ratio-hue HSV) through tables, for the hues a mask selects.",
      (RZ_BMP(pBitmap) RZ_PTR(const uint32_t *, pMask, "non-zero for the hues to remap; null for all")
       RZ_PTR(const uint32_t *, pHTable, "new hue by hue; null keeps it")
       RZ_PTR(const uint32_t *, pSTable, "new saturation by saturation; null keeps it")
       RZ_PTR(const uint32_t *, pVTable, "new value by value; null keeps it")
       RZ_U32(uLUTLen, 256, 65536, 256, "entries of each table: 256; 65536 or 4096 for 16-bit channels")))
RZ_OP(304, Rz_DesaturateBitmap, colour, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Replaces every colour by the grey of its HLS lightness, (max + min) / 2.",
      (RZ_BMP(pBitmap)))
RZ_OP(400, Rz_SpatialFilterBitmap, filters, RZ_OPF_CUSTOM,
      "Convolves with a square kernel (or a predefined SPF_ one), divides, adds the bias and clamps.",
      (RZ_BMP(pBitmap) RZ_PTR(const SpatialKernel *, pKernel, "kernel record, or RZ_SPF_KERNEL(SPF_ number)")))
RZ_OP(401, Rz_SharpenBitmap, filters, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Sharpens (positive) or softens (negative) with a 3x3 kernel made from the strength.",
      (RZ_BMP(pBitmap) RZ_I32(nSharpness, -1000, 1000, 500, "per-mille")))
RZ_OP(402, Rz_GaussianFilterBitmap, filters, RZ_OPF_INPLACE,
      "Gaussian blur in two passes, rows then columns.",
      (RZ_BMP(pBitmap) RZ_I32(nRadius, 1, 10000, 20, "tenths of a pixel")))
RZ_OP(403, Rz_UserFilterBitmap, filters, RZ_OPF_CUSTOM | RZ_OPF_NULL_NO_BITMAP,
      "Convolves with the caller's rectangular kernel and anchor.",
      (RZ_BMP(pBitmap) RZ_PTR(const UserFilterKernel *, pFilter, "kernel record")))
RZ_OP(404, Rz_MaxFilterBitmap, filters, RZ_OPF_INPLACE,
      "Replaces every sample by the largest of its n x n window.",
      (RZ_BMP(pBitmap) RZ_U32(nSize, 1, 4294967295u, 3, "window side in pixels")))
RZ_OP(405, Rz_MinFilterBitmap, filters, RZ_OPF_INPLACE,
      "Replaces every sample by the smallest of its n x n window.",
      (RZ_BMP(pBitmap) RZ_U32(nSize, 1, 4294967295u, 3, "window side in pixels")))
RZ_OP(406, Rz_MedianFilterBitmap, filters, RZ_OPF_INPLACE,
      "Replaces every sample by the median of its n x n window (the lower middle for even n).",
      (RZ_BMP(pBitmap) RZ_U32(nSize, 1, 4294967295u, 3, "window side in pixels")))
RZ_OP(800, Rz_AllocFTArray, frequency, RZ_OPF_CUSTOM,
      "Allocates a zero-filled complex transform array of the bitmap's size.",
      (RZ_BMP(pBitmap) RZ_PTR(FTARRAY **, ppFTArray, "receives the array")
       RZ_U32(uStructSize, 28, 28, 28, "FTARRAY_SIZE")))
RZ_OP(801, Rz_FreeFTArray, frequency, RZ_OPF_CUSTOM,
      "Frees a transform array made by Rz_AllocFTArray.",
      (RZ_PTR(FTARRAY *, pFTArray, "the array")))
RZ_OP(802, Rz_FFTBitmap, frequency, RZ_OPF_CUSTOM,
      "Fast Fourier transform of one plane into the array, or back (power-of-two sizes).",
      (RZ_BMP(pBitmap) RZ_PTR(FTARRAY *, pFTArray, "the array, of the bitmap's size")
       RZ_I32(uFFTFlags, -2147483647 - 1, 2147483647, 0x41, "FT_ direction, plane, component and write-back")))
RZ_OP(803, Rz_DFTBitmap, frequency, RZ_OPF_CUSTOM,
      "Fourier transform of one plane for any size, of the whole spectrum or a rectangle of it.",
      (RZ_BMP(pBitmap) RZ_PTR(FTARRAY *, pFTArray, "the array, of the bitmap's size")
       RZ_PTR(const int32_t *, pRange, "left, top, right, bottom (inclusive) with DFT_RECT")
       RZ_I32(uDFTFlags, -2147483647 - 1, 2147483647, 0x10041, "FT_ and DFT_ flags")))
RZ_OP(804, Rz_FTDisplayBitmap, frequency, RZ_OPF_CUSTOM,
      "Draws the centred magnitude, log magnitude or phase of the array as 8-bit grey.",
      (RZ_BMP(pBitmap) RZ_PTR(const FTARRAY *, pFTArray, "the array, of the bitmap's size")
       RZ_U32(uDisplayFlags, 0, 4294967295u, 0x21, "FT_DISPLAY_ kind")))
RZ_OP(805, Rz_FrqFilterBitmap, frequency, RZ_OPF_CUSTOM,
      "Zeroes the spectrum inside or outside a rectangle.",
      (RZ_PTR(FTARRAY *, pFTArray, "the array")
       RZ_PTR(const int32_t *, prcRange, "left, top, right, bottom (inclusive)")
       RZ_U32(uFilterFlags, 0, 4294967295u, 0x11, "FRQ_ coordinates and side")))
RZ_OP(806, Rz_FrqFilterMaskBitmap, frequency, RZ_OPF_CUSTOM,
      "Multiplies the spectrum by a centred 8-bit mask bitmap (m / 255).",
      (RZ_BMP(pBitmap) RZ_PTR(FTARRAY *, pFTArray, "the array, of the bitmap's size")
       RZ_U32(uMaskFlags, 0, 0, 0, "0")))
RZ_OP(900, Rz_GetBitmapHistogram, measure, RZ_OPF_CUSTOM | RZ_OPF_SIGNED,
      "Counts the region's samples of one channel, or of all, into bins.",
      (RZ_BMP(pBitmap) RZ_PTR(uint32_t *, pHistogram, "uBins counts, filled")
       RZ_U32(uBins, 1, 65536, 256, "bins: 256; 65536 for 48/64 bits; 2^k for k significant grey bits")
       RZ_U32(uChannel, 0, 3, 0, "0 all, 1 red, 2 green, 3 blue")))
RZ_OP(901, Rz_GetMinMaxVal, measure, RZ_OPF_CUSTOM | RZ_OPF_SIGNED,
      "Finds the smallest and largest sample of the region, over all channels.",
      (RZ_BMP(pBitmap) RZ_PTR(int32_t *, pnMin, "smallest sample, or null")
       RZ_PTR(int32_t *, pnMax, "largest sample, or null")))
RZ_OP(902, Rz_GetBitmapStatisticsInfo, measure, RZ_OPF_CUSTOM,
      "Count, share, minimum, maximum, median, mean and deviation of a value range of one channel.",
      (RZ_BMP(pBitmap) RZ_PTR(StatisticsInfo *, pInfo, "result record")
       RZ_U32(uChannel, 0, 3, 0, "0 all, 1 red, 2 green, 3 blue")
       RZ_U32(uStart, 0, 4294967295u, 0, "first value of the range, in sample units")
       RZ_U32(uEnd, 0, 4294967295u, 255, "last value of the range, in sample units")))
RZ_OP(410, Rz_EdgeDetectorBitmap, filters, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Marks edges: the maximum sample where a 3x3 edge operator's response exceeds a threshold, else 0.",
      (RZ_BMP(pBitmap) RZ_I32(nThreshold, 0, 65535, 32, "sample units: 0..255, 0..4095 on 12-bit grey, 0..65535")
       RZ_U32(uFilter, 0x101, 0x408, 0x103, "EDG_ code: 0x1nn Sobel, 0x2nn Prewitt, 0x3nn Laplace, 0x4nn compass")))
RZ_OP(1000, Rz_AlphaBlendBitmap, combine, RZ_OPF_INPLACE,
      "Blends a rectangle of a source bitmap into the bitmap with a constant opacity.",
      (RZ_BMP(pBitmap) RZ_I32(nX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the bitmap")
       RZ_I32(nY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the bitmap")
       RZ_I32(nWidth, -2147483647 - 1, 2147483647, 2147483647, "pixels; clipped to both bitmaps")
       RZ_I32(nHeight, -2147483647 - 1, 2147483647, 2147483647, "rows; clipped to both bitmaps")
       RZ_SRC(pSource, 1, 0, "the bitmap blended in")
       RZ_I32(nSrcX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the source")
       RZ_I32(nSrcY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the source")
       RZ_I32(nOpacity, 0, 65535, 128, "weight of the source in 256ths: 0..255, 0..4095 on 12-bit grey, 0..65535 (65536ths)")))
RZ_OP(1001, Rz_FeatherAlphaBlendBitmap, combine, RZ_OPF_INPLACE,
      "Blends a rectangle of a source bitmap into the bitmap, weighted pixel by pixel by a mask bitmap.",
      (RZ_BMP(pBitmap) RZ_I32(nX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the bitmap")
       RZ_I32(nY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the bitmap")
       RZ_I32(nWidth, -2147483647 - 1, 2147483647, 2147483647, "pixels; clipped to both bitmaps")
       RZ_I32(nHeight, -2147483647 - 1, 2147483647, 2147483647, "rows; clipped to both bitmaps")
       RZ_SRC(pSource, 1, 0, "the bitmap blended in")
       RZ_I32(nSrcX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the source")
       RZ_I32(nSrcY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the source")
       RZ_SRC(pMask, 2, 0, "weight of the source per sample (0 keeps the bitmap), from the rectangle's top-left")))
RZ_OP(1002, Rz_TextureAlphaBlendBitmap, combine, RZ_OPF_INPLACE,
      "Blends a source into the bitmap through a mask shifted by a tiled texture, then with a constant opacity.",
      (RZ_BMP(pBitmap) RZ_I32(nX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the bitmap")
       RZ_I32(nY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the bitmap")
       RZ_I32(nWidth, -2147483647 - 1, 2147483647, 2147483647, "pixels; clipped to both bitmaps")
       RZ_I32(nHeight, -2147483647 - 1, 2147483647, 2147483647, "rows; clipped to both bitmaps")
       RZ_SRC(pSource, -1, 0, "the bitmap blended in")
       RZ_I32(nSrcX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the source")
       RZ_I32(nSrcY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the source")
       RZ_SRC(pMask, -2, 1, "weight of the bitmap per sample (255 keeps it), or null for none")
       RZ_I32(nOpacity, 0, 65535, 128, "weight of the masked result: 0..255, 0..4095 on 12-bit grey, 0..65535")
       RZ_SRC(pTexture, -3, 1, "tiled texture added to the mask around its middle value, or null")
       RZ_PTR(const RzPoint *, pTextureOffset, "texture pixel at the rectangle's top-left; required with a texture")))
RZ_OP(1003, Rz_CombineBitmapExt, combine, RZ_OPF_INPLACE,
      "Combines a rectangle of a source into the bitmap sample by sample: logic, arithmetic, minimum, maximum, difference.",
      (RZ_BMP(pBitmap) RZ_I32(nX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the bitmap")
       RZ_I32(nY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the bitmap")
       RZ_I32(nWidth, -2147483647 - 1, 2147483647, 2147483647, "pixels; clipped to both bitmaps")
       RZ_I32(nHeight, -2147483647 - 1, 2147483647, 2147483647, "rows; clipped to both bitmaps")
       RZ_SRC(pSource, 1, 0, "the bitmap combined in")
       RZ_I32(nSrcX, -2147483647 - 1, 2147483647, 0, "left of the rectangle in the source")
       RZ_I32(nSrcY, -2147483647 - 1, 2147483647, 0, "top of the rectangle in the source")
       RZ_U32(uFlags, 0, 0x0FFFFFFF, 0x300, "CBF_ operation (bits 8-11), value handling and channel selectors")))
RZ_OP(1004, Rz_AddBitmaps, combine, 0,
      "Averages or adds the bitmaps of a list, sample by sample, into a new bitmap.",
      (RZ_OUT(pResult, "the new bitmap, made like the list's first")
       RZ_U32(uStructSize, 164, 164, 164, "size of the result descriptor")
       RZ_LIST(pList, "bitmaps of one size and depth")
       RZ_U32(uFlags, 1, 2, 1, "1 average (truncated), 2 add (stopped at the maximum)")))
RZ_OP(1005, Rz_AddWeightedBitmaps, combine, RZ_OPF_CUSTOM,
      "Sums the bitmaps of a list with per-bitmap weights into a new bitmap.",
      (RZ_OUT(pResult, "the new bitmap, made like the list's first")
       RZ_U32(uStructSize, 164, 164, 164, "size of the result descriptor")
       RZ_LIST(pList, "bitmaps of one size and depth")
       RZ_PTR(const int32_t *, pWeights, "one weight per bitmap, per-mille, -100000..100000")
       RZ_U32(uFlags, 0, 1, 0, "0 divide by 1000, 1 divide by the sum of the weights")))
RZ_OP(500, Rz_SwirlBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Turns the picture about a centre, most at the centre and not at all on the rectangle's ellipse.",
      (RZ_BMP(pBitmap) RZ_I32(nAngle, -2147483647 - 1, 2147483647, 360, "nAngle / 180 radians of turn per unit of ln(R / r)")
       RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "centre, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "centre, pixels")))
RZ_OP(501, Rz_SpherizeBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Wraps the rectangle's ellipse round a sphere (positive) or into a hollow (negative).",
      (RZ_BMP(pBitmap) RZ_I32(nValue, -500, 500, 100, "hundredths of the full effect")
       RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "centre, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "centre, pixels")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour: red bits 0-7, green 8-15, blue 16-23; bit 26 grey level")
       RZ_U32(uFlags, 0, 4294967295u, 0, "bits 0-3 rule (0 fill, 1 clamp, 2 leave); 0x10 centre to the rule")))
RZ_OP(502, Rz_BendingBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Bends the rows (or with 0x10 the columns) into parabolas about the centre.",
      (RZ_BMP(pBitmap) RZ_I32(nValue, -500, 500, 250, "bend at the edges, 500ths of the half extent")
       RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "centre, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "centre, pixels")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour: red bits 0-7, green 8-15, blue 16-23; bit 26 grey level")
       RZ_U32(uFlags, 0, 4294967295u, 0, "bits 0-3 rule (0 fill, 1 clamp, 2 leave); 0x10 bends columns")))
RZ_OP(503, Rz_PunchBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Swells (positive) or pinches (negative) the ellipse about a centre.",
      (RZ_BMP(pBitmap) RZ_I32(nValue, -500, 500, 250, "strength, 500ths")
       RZ_U32(nStress, 0, 1000, 500, "steepness, per-mille")
       RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "centre, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "centre, pixels")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour: red bits 0-7, green 8-15, blue 16-23; bit 26 grey level")
       RZ_U32(uFlags, 0, 4294967295u, 0, "bits 0-3 rule (0 fill, 1 clamp, 2 leave); 0x10 a circle")))
RZ_OP(504, Rz_CylindricalBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Wraps the picture round a vertical (type 0) or horizontal (type 1) cylinder, or into a hollow one.",
      (RZ_BMP(pBitmap) RZ_I32(nValue, -100, 100, 80, "percent; negative hollows")
       RZ_I32(nType, 0, 1, 0, "0 vertical axis, 1 horizontal axis")))
RZ_OP(505, Rz_PolarBitmap, distort, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Polar coordinates: wraps the picture into the disc about the centre (angle across, radius down); 0x10 unwraps it.",
      (RZ_BMP(pBitmap) RZ_U32(crFill, 0, 4294967295u, 0, "fill colour: red bits 0-7, green 8-15, blue 16-23; bit 26 grey level")
       RZ_U32(uFlags, 0, 4294967295u, 0, "bits 0-3 rule (0 fill, 1 clamp, 2 leave); 0x10 unwraps the disc")))
RZ_OP(506, Rz_TunnelBitmap, distort, RZ_OPF_INPLACE,
      "Lines the wall of a tunnel seen end on with the picture, tiled.",
      (RZ_BMP(pBitmap) RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "vanishing point, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "vanishing point, pixels")
       RZ_I32(nZValue, 1, 2147483647, 100, "focal length, pixels")
       RZ_I32(nRadius, 1, 2147483647, 100, "tunnel radius, pixels")
       RZ_I32(nRotation, -2147483647 - 1, 2147483647, 0, "turn, hundredths of a degree")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour for the vanishing point")
       RZ_U32(uFlags, 0, 15, 0, "bits 0-3 rule (0 fill, 1 clamp, 2 leave)")))
RZ_OP(507, Rz_GlassEffectBitmap, distort, RZ_OPF_INPLACE,
      "Looks through a wall of glass blocks: each cell magnifies its centre.",
      (RZ_BMP(pBitmap) RZ_U32(uCellWidth, 1, 4294967295u, 24, "pixels")
       RZ_U32(uCellHeight, 1, 4294967295u, 24, "pixels")
       RZ_U32(uFlags, 0, 2, 0, "0 both axes, 1 across only, 2 down only")))
RZ_OP(508, Rz_OceanBitmap, distort, RZ_OPF_INPLACE,
      "Ripples the picture as seen through water (0x10: the lower half reflects the upper).",
      (RZ_BMP(pBitmap) RZ_U32(uAmplitude, 0, 4294967295u, 3, "pixels")
       RZ_U32(uWavelength, 1, 4294967295u, 24, "pixels")
       RZ_U32(uFlags, 0, 4294967295u, 0, "0, or 0x10 for a reflection")))
RZ_OP(509, Rz_PlaneBitmap, distort, RZ_OPF_INPLACE,
      "Tiles the picture over an endless floor or ceiling seen in perspective.",
      (RZ_BMP(pBitmap) RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "vanishing point, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "horizon and vanishing point, pixels")
       RZ_I32(nZValue, 1, 2147483647, 200, "focal length, pixels")
       RZ_I32(nDistance, 1, 2147483647, 100, "eye height, pixels")
       RZ_U32(uType, 0, 2, 0, "0 floor, 1 ceiling, 2 both")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour off the plane")
       RZ_U32(uFlags, 0, 15, 0, "bits 0-3 rule (0 fill, 1 and 2 leave)")))
RZ_OP(510, Rz_PlaneBendBitmap, distort, RZ_OPF_INPLACE,
      "As the plane, with the floor curved up or down towards the sides.",
      (RZ_BMP(pBitmap) RZ_I32(nCenterX, -2147483647 - 1, 2147483647, 9, "vanishing point, pixels")
       RZ_I32(nCenterY, -2147483647 - 1, 2147483647, 6, "horizon and vanishing point, pixels")
       RZ_I32(nZValue, 1, 2147483647, 200, "focal length, pixels")
       RZ_I32(nDistance, 1, 2147483647, 100, "eye height, pixels")
       RZ_I32(nBend, -1000, 1000, 300, "rise at the sides, per-mille of the half height")
       RZ_U32(uType, 0, 2, 0, "0 floor, 1 ceiling, 2 both")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour off the plane")
       RZ_U32(uFlags, 0, 15, 0, "bits 0-3 rule (0 fill, 1 and 2 leave)")))
RZ_OP(511, Rz_OffsetBitmap, distort, RZ_OPF_INPLACE,
      "Shifts the picture by whole pixels; the uncovered part is filled, repeats the edge, stays or wraps round.",
      (RZ_BMP(pBitmap) RZ_I32(nShiftX, -2147483647 - 1, 2147483647, 5, "pixels to the right")
       RZ_I32(nShiftY, -2147483647 - 1, 2147483647, 3, "pixels down")
       RZ_U32(crFill, 0, 4294967295u, 0, "fill colour: red bits 0-7, green 8-15, blue 16-23; bit 26 grey level")
       RZ_U32(uFlags, 0, 3, 0, "0 fill, 1 edge, 2 leave, 3 wrap")))
RZ_OP(140, Rz_IntensityDetectBitmap, tone, RZ_OPF_INPLACE,
      "Pixels whose intensity lies in a band take one colour, all others another.",
      (RZ_BMP(pBitmap) RZ_U32(uLow, 0, 65535, 128, "lowest intensity of the band, in sample units")
       RZ_U32(uHigh, 0, 65535, 255, "highest intensity of the band, in sample units")
       RZ_U32(crIn, 0, 4294967295u, 16777215, "colour inside the band (0x00BBGGRR; bit 26: grey level)")
       RZ_U32(crOut, 0, 4294967295u, 0, "colour outside the band")
       RZ_U32(uChannel, 0, 3, 0, "0 intensity Y, 1 red, 2 green, 3 blue")))
RZ_OP(700, Rz_DeskewBitmap, document, RZ_OPF_CUSTOM,
      "Measures the skew of a text page (search of +-10.19 degrees) and rotates it straight.",
      (RZ_BMP(pBitmap) RZ_PTR(int32_t *, pnAngle, "measured angle in hundredths of a degree, or null")
       RZ_U32(crBack, 0, 4294967295u, 16777215, "fill of the uncovered corners (0x00BBGGRR)")
       RZ_U32(uDeskewFlags, 0, 4294967295u, 0, "RZ_DESKEW_ flags")))
RZ_OP(701, Rz_DeskewBitmapExt, document, RZ_OPF_CUSTOM,
      "Measures the skew of a text page within a range and step of the caller's and rotates it straight.",
      (RZ_BMP(pBitmap) RZ_PTR(int32_t *, pnAngle, "measured angle in hundredths of a degree, or null")
       RZ_U32(nAngleRange, 0, 4500, 1000, "largest skew searched, hundredths of a degree")
       RZ_U32(nAngleResolution, 1, 4500, 1, "step of the search, tenths of a degree")
       RZ_U32(crBack, 0, 4294967295u, 16777215, "fill of the uncovered corners (0x00BBGGRR)")
       RZ_U32(uDeskewFlags, 0, 4294967295u, 0, "RZ_DESKEW_ flags")))
RZ_OP(600, Rz_OilifyBitmap, effects, RZ_OPF_INPLACE,
      "Replaces every channel by its most frequent value in the n x n window (8 bits a channel).",
      (RZ_BMP(pBitmap) RZ_U32(nDim, 1, 4294967295u, 5, "window side in pixels")))
RZ_OP(601, Rz_MosaicBitmap, effects, RZ_OPF_INPLACE | RZ_OPF_NULL_NO_BITMAP,
      "Paints every n x n tile with its mean colour, truncated.",
      (RZ_BMP(pBitmap) RZ_U32(nDim, 1, 4294967295u, 16, "tile side in pixels")))
RZ_OP(602, Rz_PixelateBitmap, effects, RZ_OPF_INPLACE,
      "Paints every cell with its mean colour, rounded, or with its centre pixel.",
      (RZ_BMP(pBitmap) RZ_U32(uCellWidth, 1, 4294967295u, 12, "cell width in pixels")
       RZ_U32(uCellHeight, 1, 4294967295u, 12, "cell height in pixels")
       RZ_U32(uFlags, 0, 1, 0, "0 mean, 1 centre pixel")))
RZ_OP(603, Rz_MosaicTilesBitmap, effects, RZ_OPF_INPLACE,
      "Cuts the picture into bevelled tiles with grout between them.",
      (RZ_BMP(pBitmap) RZ_U32(uTileWidth, 1, 4294967295u, 24, "tile width in pixels, grout included")
       RZ_U32(uTileHeight, 1, 4294967295u, 24, "tile height in pixels, grout included")
       RZ_U32(uGroutWidth, 0, 4294967294u, 3, "grout at each tile's right and bottom, below the tile size")
       RZ_U32(crGrout, 0, 4294967295u, 0x505050, "grout colour word")
       RZ_I32(nShadowAngle, -2147483647 - 1, 2147483647, 13500, "direction the light comes from, hundredths of a degree")
       RZ_U32(uFlags, 0, 0x11, 0, "0 mean colour, 1 picture; 0x10 no bevel")))
