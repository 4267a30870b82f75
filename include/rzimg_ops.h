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
