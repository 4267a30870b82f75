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
