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
RZ_OP(106, Rz_RemapBitmapIntensity, tone, RZ_OPF_CUSTOM,
      "Maps every sample of the chosen channels through the caller's table.",
      (RZ_BMP(pBitmap) RZ_PTR(const uint32_t *, pTable, "one entry per input value")
       RZ_U32(uCount, 1, 65536, 256, "table entries")
       RZ_U32(uChannel, 0, 3, 0, "0 all, 1 red, 2 green, 3 blue")))
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
       RZ_U32(uRangeCount, 0, 4294967295u, 0, "records in pRanges")))
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
