/*
 * rzkrn.h - the bitmap kernel: descriptors, pixel memory, palettes, rows,
 * view perspective, depth conversion and the per-thread status callback.
 *
 * Conventions of this kernel:
 *  - Every function returns KRN_OK (1) on success and a negative status
 *    otherwise (the same codes as the image library's ST_ values).
 *  - Rows are stored top-down with a stride that is a multiple of 4 bytes.
 *    1..7 bits: packed, most significant bits first. 12 bits: two samples in
 *    three bytes, even pixel (b0 | b1 << 8) & 0xFFF, odd pixel
 *    (b1 | b2 << 8) >> 4. 16, 48, 64 bits: little-endian 16-bit samples.
 *  - nColorOrder: 0 red first, 1 blue first (default for colour), 2 grey.
 *  - "Rows" and x positions in every row service are those of the current
 *    view perspective (see KrnChangeViewPerspective).
 */
#ifndef RZKRN_H
#define RZKRN_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && !defined(_WIN64)
#define RZAPI __stdcall
#else
#define RZAPI
#endif

#if defined(_WIN32)
#define RZ_IMPORT __declspec(dllimport)
#define RZ_EXPORT_ATTR __declspec(dllexport)
#else
#define RZ_IMPORT
#define RZ_EXPORT_ATTR __attribute__((visibility("default")))
#endif

#ifdef RZKRN_BUILDING
#define RZKRN_API RZ_EXPORT_ATTR
#else
#define RZKRN_API RZ_IMPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Palette and display-table entry: blue, green, red, reserved. */
typedef struct RzRGBQuad {
    uint8_t rgbBlue;
    uint8_t rgbGreen;
    uint8_t rgbRed;
    uint8_t rgbReserved;
} RzRGBQuad;

/* Rectangle: right and bottom are exclusive. */
typedef struct RzRect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} RzRect;

typedef struct RzPoint {
    int32_t x;
    int32_t y;
} RzPoint;

#define BITMAPDESC_SIZE 164u

#define BMF_ALLOCATED 0x001u
#define BMF_SIGNED 0x200u
#define BMF_USE_LUT 0x800u

#define KRN_ORDER_RGB 0
#define KRN_ORDER_BGR 1
#define KRN_ORDER_GRAY 2
/* Another name for blue first, accepted by KrnConvertBitmap for colour targets. */
#define KRN_ORDER_BGR_ALT 4

/* Status values shared with the image library. */
#define KRN_OK 1
#define KRN_FAILURE (-1)
#define KRN_NO_BITMAP (-2)
#define KRN_BAD_BITS (-11)
#define KRN_BAD_PIXEL_FORMAT (-12)
#define KRN_INVALID_PARAMETER (-13)
#define KRN_BAD_STRUCT_SIZE (-789)
#define KRN_NULL_POINTER (-814)

#pragma pack(push, 4)
/*
 * The bitmap descriptor. Documented fields sit at fixed offsets; the
 * kernel keeps its own state in the bytes between them. Pointer-sized kernel
 * fields are padded to 8 bytes so that the layout is the same on 32 and
 * 64-bit targets (apart from nLUTLength, which follows pLUT).
 */
typedef struct BitmapDesc {
    uint32_t uStructSize; /* 0: must be 164 */
    uint8_t aReserved4[8];  /* 4..11 */
    int32_t nWidth;         /* 12: width in the current view */
    int32_t nHeight;        /* 16: height in the current view */
    int32_t nBitsPerPixel;  /* 20 */
    uint32_t nStride;       /* 24: bytes per stored row (kernel) */
    int32_t nStoredWidth;   /* 28: stored picture width (kernel) */
    int32_t nStoredHeight;  /* 32: stored picture height (kernel) */
    uint32_t uFlags;        /* 36 */
    int32_t nColors;        /* 40: palette entries */
    uint32_t uKernelState;  /* 44: state word; bit 0 = in use by an operation (kernel) */
    int32_t nViewPerspective; /* 48: 1..8 */
    int32_t nColorOrder;    /* 52 */
    union {
        RzRGBQuad *pPalette; /* 56: 256 entries when set (kernel) */
        uint64_t _pPaletteSlot;
    };
    int32_t nChangeCount;   /* 64: bumped by KrnBitmapChanged (kernel) */
    int32_t nDataKind;      /* 68: 0 = indices / shown through pLUT */
    union {
        void *pRegion;      /* 72: region object (display library) */
        uint64_t _pRegionSlot;
    };
    union {
        uint8_t *pData;     /* 80: pixel memory (kernel); 8-aligned like the other pointers */
        uint64_t _pDataSlot;
    };
    union {
        void *pMetadata;    /* 88: resolution, colour profile, EXIF (kernel; see KrnSetBitmapResolution) */
        uint64_t _pMetadataSlot;
    };
    uint8_t aReserved96[8]; /* 96..103 */
    int32_t nLowBit;        /* 104 */
    int32_t nHighBit;       /* 108: -1 means nBitsPerPixel - 1 */
    RzRGBQuad *pLUT;        /* 112: display table */
    uint32_t nLUTLength;    /* 116 (32-bit) or 120 (64-bit) */
    uint8_t aReservedTail[48 - sizeof(void *)];
} BitmapDesc;
#pragma pack(pop)

/*
 * A region object stored in pRegion starts with this header so that the
 * kernel can release it without knowing the display library.
 */
typedef struct KrnRegionHeader {
    void(RZAPI *pfnDestroy)(void *region);
} KrnRegionHeader;

typedef int32_t(RZAPI *RZSTATUSCALLBACK)(int32_t nPercent, void *pUserData);

/* ---- Memory. Every block is counted; see KrnMemOutstanding. ---- */
RZKRN_API void *RZAPI KrnMemAlloc(size_t size);
RZKRN_API void *RZAPI KrnMemAllocZeroed(size_t size, size_t count);
RZKRN_API void *RZAPI KrnMemRealloc(void *block, size_t size);
RZKRN_API void RZAPI KrnMemFree(void *block);
RZKRN_API void *RZAPI KrnMemAllocHandle(size_t size);
RZKRN_API void RZAPI KrnMemFreeHandle(void *block);
/* Number of live blocks of all allocators. */
RZKRN_API int64_t RZAPI KrnMemOutstanding(void);
/* Let the next n allocations succeed, then fail one; n < 0 disarms. Per
 * thread. Returns the previous countdown: -1 when none was armed or the
 * armed failure has already happened. */
RZKRN_API int64_t RZAPI KrnMemFailAfter(int64_t n);
/* a * b * c in size_t (c 0 counts as 1); 0 on overflow. The single place for
 * size sums. */
RZKRN_API size_t RZAPI KrnCheckedSize(size_t a, size_t b, size_t c);

/* ---- Status callback, kept per thread. ---- */
RZKRN_API RZSTATUSCALLBACK RZAPI KrnGetStatusCallback(void **ppUserData);
RZKRN_API int32_t RZAPI KrnSetStatusCallback(RZSTATUSCALLBACK pfn, void *pUserData,
                                             RZSTATUSCALLBACK *ppfnPrev, void **ppPrevUserData);

/* ---- Descriptors and pixel memory. ---- */
/* Fills a descriptor (its old contents are ignored, never freed): view 1,
 * nLowBit 0, nHighBit -1, no pixel memory; a grey
 * ramp palette of 2^bits entries for 1..8 bits; nColorOrder 2 for 12 and 16
 * bits, 1 otherwise; nDataKind 0. -11 for an unknown depth, -13 for a size
 * the kernel cannot represent (width or height < 0, a stride above INT32_MAX,
 * more than KRN_MAX_PIXELS pixels or KRN_MAX_BITMAP_BYTES bytes), -789 for a wrong structure size. The
 * palette is a kernel block: release the descriptor with KrnFreeBitmap even
 * when it never got pixels. Width or height 0 is a valid empty bitmap. */
RZKRN_API int32_t RZAPI KrnInitBitmap(BitmapDesc *pBitmap, uint32_t uStructSize, int32_t nWidth,
                                      int32_t nHeight, int32_t nBitsPerPixel);
/* Zero-filled pixel memory; sets BMF_ALLOCATED. The stored size follows
 * nWidth / nHeight in the current view; pixels already held are replaced. */
RZKRN_API int32_t RZAPI KrnAllocBitmap(BitmapDesc *pBitmap);
/* Releases pixels, palette, display table and region; keeps the geometry. */
RZKRN_API void RZAPI KrnFreeBitmap(BitmapDesc *pBitmap);
/* Deep copy (pixels, palette, display table; no region) into an uninitialised
 * destination. */
RZKRN_API int32_t RZAPI KrnCopyBitmap(BitmapDesc *pDest, const BitmapDesc *pSrc, uint32_t uStructSize);
/* Checks a descriptor is one the kernel can address: -814 null, -789 size,
 * -2 no pixels or inconsistent geometry / stride / nColors, -12 unknown depth. */
RZKRN_API int32_t RZAPI KrnValidateBitmap(const BitmapDesc *pBitmap);
RZKRN_API int32_t RZAPI KrnIsGrayscale(const BitmapDesc *pBitmap);
/* Bytes of one stored row of the current view (not the stride). */
RZKRN_API uint32_t RZAPI KrnBitmapRowBytes(const BitmapDesc *pBitmap);

/* ---- Palettes (1..8 bits). ---- */
RZKRN_API int32_t RZAPI KrnSetGrayPalette(BitmapDesc *pBitmap);
/* Returns the number of entries copied (count clipped to nColors - first), or
 * a negative status. */
RZKRN_API int32_t RZAPI KrnGetBitmapPalette(const BitmapDesc *pBitmap, int32_t nFirst, int32_t nCount,
                                            RzRGBQuad *pEntries);
/* Entries past nColors extend it; first + count at most 2^bits (-13); the
 * palette is allocated when missing; -12 above 8 bits. */
RZKRN_API int32_t RZAPI KrnSetBitmapPalette(BitmapDesc *pBitmap, int32_t nFirst, int32_t nCount,
                                            const RzRGBQuad *pEntries);
/* Copies count entries into the palette of a descriptor of the given depth
 * and sets nColors. */
RZKRN_API int32_t RZAPI KrnSetPaletteForDepth(BitmapDesc *pBitmap, const RzRGBQuad *pEntries,
                                              int32_t nCount, int32_t nBitsPerPixel, int32_t nReserved);

/* ---- Pixels of single positions (view coordinates); for tools and tests. ---- */
/* Raw sample value: index, grey sample, or packed colour (red in bits 0..,
 * green, blue, fourth channel, 8 or 16 bits each by depth, whatever the
 * stored order). -13 outside the view. */
RZKRN_API int32_t RZAPI KrnGetPixel(const BitmapDesc *pBitmap, int32_t x, int32_t y, uint64_t *pValue);
RZKRN_API int32_t RZAPI KrnSetPixel(BitmapDesc *pBitmap, int32_t x, int32_t y, uint64_t uValue);

/* ---- Rows (view perspective applied). ---- */
/* Copies nByteCount bytes of view row nRow, starting at byte nFirstByte of
 * that row packed at the bitmap's depth. Bytes past the row's end read 0. */
RZKRN_API int32_t RZAPI KrnGetBitmapRow(const BitmapDesc *pBitmap, void *pBuffer, int32_t nRow,
                                        uint32_t nFirstByte, uint32_t nByteCount);

#define KRN_PUT_NORMAL 1
/* The fourth channel of 32 and 64-bit pixels is kept from the stored row. */
#define KRN_PUT_KEEP_FOURTH 2
/* Writes the pixels of view row nRow held in pBuffer, which holds the row's
 * bytes from nFirstByte for nByteCount bytes. With pSpans null every pixel
 * lying wholly in the buffer is written; otherwise only the pixels x of
 * [pSpans[2i], pSpans[2i+1]) (absolute view x; nSpanValues values). */
RZKRN_API int32_t RZAPI KrnPutBitmapRowSpans(BitmapDesc *pBitmap, const void *pBuffer, int32_t nRow,
                                             uint32_t nFirstByte, uint32_t nByteCount,
                                             const int32_t *pSpans, uint32_t nSpanValues,
                                             uint32_t uFlags);

/* Bands: nRowCount consecutive view rows from nFirstRow, row i at
 * pBuffer + i * nBufferStride (nBufferStride >= nByteCount when there are
 * several rows). Each row gets or puts exactly what KrnGetBitmapRow and
 * KrnPutBitmapRowSpans give for that row alone; in the transposed views
 * (5-8) a band costs about the memory traffic of one row, so column passes
 * should move bands of 8 to 256 rows. KrnPutBitmapRows takes the spans of
 * row i at pSpans + i * nSpanStride, pSpanCounts[i] values (pSpans null:
 * every pixel in the buffer). Rows outside the view are -13. */
RZKRN_API int32_t RZAPI KrnGetBitmapRows(const BitmapDesc *pBitmap, void *pBuffer, size_t nBufferStride,
                                         int32_t nFirstRow, int32_t nRowCount, uint32_t nFirstByte,
                                         uint32_t nByteCount);
RZKRN_API int32_t RZAPI KrnPutBitmapRows(BitmapDesc *pBitmap, const void *pBuffer, size_t nBufferStride,
                                         int32_t nFirstRow, int32_t nRowCount, uint32_t nFirstByte,
                                         uint32_t nByteCount, const int32_t *pSpans, size_t nSpanStride,
                                         const uint32_t *pSpanCounts, uint32_t uFlags);

/* ---- Row conversion between stored layouts and working formats. ----
 * Working formats: 0 = 8-bit one channel, 16 = 16-bit grey, 24 = 8-bit blue,
 * green, red, 48 = 16-bit blue, green, red.
 * nDirection KRN_TO_WORK: src holds nWidth stored pixels of nStoredBits with
 * nColorOrder (palette indices looked up in pPalette for 1..8 bits unless the
 * order is grey); dst receives the working format.
 * nDirection KRN_TO_STORED: the reverse; for 1..8-bit palette data use
 * KrnMatchRowToPalette instead. Buffers must not overlap.
 * 12/16-bit grey: the significant bits nLowBit..nHighBit are taken out and
 * placed at the top of the 16-bit working sample (v << (16 - count)); the
 * way back places them again at nLowBit and leaves the other bits 0.
 * Grey to colour replicates; colour to grey is (R*77 + G*150 + B*29 + 128) >> 8.
 * 16 to 8 bits takes the high byte; 8 to 16 multiplies by 257.
 * nGrayMode: KRN_GRAY_NONE, or KRN_GRAY_RAW: samples move as they are, with
 * no palette and no bit range (1..8 bits: indices unpacked to / packed from
 * one byte each in working format 0; 12/16 bits: the words themselves). */
/* Further rules of KrnConvertRowBuffer: pPalette holds 2^bits entries; 12
 * and 16-bit rows are always grey (nColorOrder is not read); raw samples
 * have only the working format named above (-13 otherwise); nComponents is
 * not used. The fourth channel of 32/64-bit pixels is neither read nor
 * written, so a destination that holds the stored row keeps it. Written
 * 1..7 and 12-bit rows end with zero bits; bytes past the row are not
 * touched. Returns 1, -13 (null, width < 0, bad code or bit range, an
 * unsupported combination), -11 (unknown depth). */
#define KRN_TO_WORK 0
#define KRN_TO_STORED 1
#define KRN_GRAY_NONE 0
#define KRN_GRAY_RAW 1
RZKRN_API int32_t RZAPI KrnConvertRowBuffer(const void *pSrc, void *pDst, int32_t nWidth,
                                            int32_t nStoredBits, int32_t nWorkBits, int32_t nColorOrder,
                                            int32_t nComponents, const RzRGBQuad *pPalette,
                                            int32_t nDirection, int32_t nGrayMode, int32_t nLowBit,
                                            int32_t nHighBit);
/* Turns a working row (8-bit grey when pPaletteBitmap is 8-bit, 24-bit BGR
 * when it is 24-bit) of pPaletteBitmap->nWidth pixels into the indices of the
 * nearest entries of pPaletteBitmap's palette (nColors entries; squared
 * distance, lowest index on ties); pIndices gets one byte per pixel and may
 * be the same buffer as pWork. -13 for a null pointer, nColors outside
 * 1..256 or another depth; -789 for a wrong structure size. */
RZKRN_API int32_t RZAPI KrnMatchRowToPalette(const BitmapDesc *pPaletteBitmap, const void *pWork,
                                             uint8_t *pIndices);
/* Bytes a working row of nWidth pixels needs; at least the stored row. */
RZKRN_API uint32_t RZAPI KrnRowBytesFor(int32_t nWidth, int32_t nStoredBits, int32_t nWorkWidth,
                                        int32_t nWorkBits);
/* Significant bits: count = high - low + 1, mask = (1 << count) - 1,
 * shift = low. nHighBit -1 means nBitsPerPixel - 1. */
RZKRN_API int32_t RZAPI KrnGetBitRange(int32_t nBitsPerPixel, int32_t nStorageBits, int32_t nLowBit,
                                       int32_t nHighBit, uint32_t *pCount, uint32_t *pMask,
                                       uint32_t *pShift);

/* ---- Whole bitmaps. ---- */
/* Converts pSrc to nBitsPerPixel / nColorOrder into pDest (in place when
 * they are the same). Grey shown through pLUT is converted through that
 * table. pDest receives a new allocated bitmap when it differs from pSrc
 * (same view, no region); in place the region stays, and on failure the
 * source is untouched. 1..8 bits with order 2 are grey samples (nDataKind 1
 * at 8 bits); other 1..8-bit targets are palettised: a palettised source
 * whose nColors fit keeps palette and indices, a grey picture gets the grey
 * ramp, at most 2^bits colours get exactly those colours (ascending), any
 * other the split palette (3-3-2, 2-3-2, 2-2-2, 2-2-1, 1-2-1, 1-1-1 bits of
 * red-green-blue levels for 8..3 bits; grey for 1 and 2). 12/16-bit targets
 * are grey with the full bit range. A new fourth channel is opaque. A signed
 * grey source (BMF_SIGNED on 8-bit grey order or on 12/16-bit grey) is
 * offset to unsigned, its sign bit flipped (8 bits: -128 becomes 0, -1 127,
 * 127 255), except into 12/16-bit grey, which stays signed: the offset value
 * is widened as an unsigned one would be and the sign bit flipped back
 * (8-bit -128 becomes -32768, 0 becomes 128, 127 32767). -11 for an
 * unknown depth, -13 for an order outside 0..2 (4 is blue first for colour), -12
 * for colour with order 2. */
RZKRN_API int32_t RZAPI KrnConvertBitmap(BitmapDesc *pDest, BitmapDesc *pSrc, uint32_t uStructSize,
                                         int32_t nBitsPerPixel, int32_t nColorOrder, int32_t nReserved1,
                                         int32_t nReserved2);
/* Folds the display table of a grey bitmap into its samples, at the given
 * depth (8, 12 or 16); afterwards nDataKind is 1 and BMF_USE_LUT is clear.
 * Sample s (its significant bits) shows entry min(s, nLUTLength - 1); its
 * red byte r becomes r, (r * 257) >> 4 or r * 257. The table is freed. With
 * no table the samples are only rescaled. -13 for another depth, -12 for a
 * source that is not grey. */
RZKRN_API int32_t RZAPI KrnApplyBitmapLUT(BitmapDesc *pBitmap, int32_t nBitsPerPixel);

/* ---- View perspective and state. ---- */
/* With pDest null: sets the addressing only (nWidth / nHeight swap between
 * views 1-4 and 5-8). With pDest: pDest (uninitialised, or pBitmap itself)
 * gets the pixels re-stored so that its view 1 shows what pBitmap shows in
 * nViewPerspective; in place the palette stays and the region is released. */
RZKRN_API int32_t RZAPI KrnChangeViewPerspective(BitmapDesc *pDest, BitmapDesc *pBitmap,
                                                 uint32_t uStructSize, int32_t nViewPerspective,
                                                 int32_t nReserved);
/* Returns the state word and marks the bitmap in use; Restore puts the word back. */
RZKRN_API uint32_t RZAPI KrnSaveBitmapState(BitmapDesc *pBitmap);
RZKRN_API void RZAPI KrnRestoreBitmapState(BitmapDesc *pBitmap, uint32_t uState);
/* Releases a temporary descriptor's pixels and palette. */
RZKRN_API void RZAPI KrnReleaseBitmapAccess(BitmapDesc *pBitmap);
/* Marks the bitmap changed (increments nChangeCount). */
RZKRN_API void RZAPI KrnBitmapChanged(BitmapDesc *pBitmap);


/* ---- Metadata carried with a bitmap: resolution, colour profile, EXIF. ----
 * Kept in one kernel block that the descriptor points to (pMetadata, in the
 * bytes the documented fields leave free, so the record stays 164 bytes).
 * KrnFreeBitmap releases it; KrnCopyBitmap, KrnConvertBitmap and
 * KrnChangeViewPerspective with a destination copy it. Like the palette, a
 * descriptor copied byte for byte shares the block: release only one of the
 * two. Operations never read or change it. */
#define KRN_RES_NONE 0 /* no unit: the two values give the pixel aspect ratio only */
#define KRN_RES_INCH 1 /* dots per inch */
#define KRN_RES_CM 2   /* dots per centimetre */
/* x and y above 0 (and below 1e9) in the unit; x = y = 0 removes the
 * resolution. -13 for other values or an unknown unit, -1 out of memory. */
RZKRN_API int32_t RZAPI KrnSetBitmapResolution(BitmapDesc *pBitmap, double dX, double dY, int32_t nUnit);
/* 1 with the values, or 0 (outputs 0, unit KRN_RES_NONE) when the bitmap has
 * none; negative for a bad descriptor or null outputs. */
RZKRN_API int32_t RZAPI KrnGetBitmapResolution(const BitmapDesc *pBitmap, double *pX, double *pY, int32_t *pUnit);
/* Opaque blocks kept as they came from a file. ICC: the profile as stored
 * in a file. EXIF: the TIFF-structured block after a JPEG's "Exif\0\0"
 * header (byte order mark first). */
#define KRN_META_ICC 1
#define KRN_META_EXIF 2
/* Copies nSize bytes (at most 64 MiB); nSize 0 removes the block. */
RZKRN_API int32_t RZAPI KrnSetBitmapMetadata(BitmapDesc *pBitmap, int32_t nKind, const void *pData, uint32_t nSize);
/* *ppData points into the bitmap's own block (valid until the block is
 * changed or the bitmap freed); returns 1, or 0 with null and 0 when absent. */
RZKRN_API int32_t RZAPI KrnGetBitmapMetadata(const BitmapDesc *pBitmap, int32_t nKind, const void **ppData,
                                             uint32_t *pSize);
/* ---- Bitmap lists: an ordered list of bitmaps handed to the operations
 * that take several (Rz_AddBitmaps). An entry either refers to the caller's
 * descriptor (KRN_LIST_REFERENCE: the list owns nothing, and the descriptor
 * must stay valid while the list is used) or holds the list's own deep copy
 * (KRN_LIST_COPY: pixels, palette and display table, no region), released
 * with the list. The list owns only what it copied. ---- */
typedef struct KrnBitmapList KrnBitmapList;
#define KRN_LIST_REFERENCE 0u
#define KRN_LIST_COPY 1u
/* A new empty list in *ppList (null on failure): -13 for a null ppList, -1. */
RZKRN_API int32_t RZAPI KrnCreateBitmapList(KrnBitmapList **ppList);
/* Appends pBitmap: -13 for a null list or uFlags other than the two above,
 * -814 null bitmap, -789 its size, -1; a copy needs pixels (-2 without). */
RZKRN_API int32_t RZAPI KrnAppendBitmapList(KrnBitmapList *pList, BitmapDesc *pBitmap, uint32_t uFlags);
/* Number of entries: -13 for a null list or puCount. */
RZKRN_API int32_t RZAPI KrnGetBitmapListCount(const KrnBitmapList *pList, uint32_t *puCount);
/* Entry uIndex (the caller's descriptor or the list's copy): -13 for a null
 * argument or an index past the end. */
RZKRN_API int32_t RZAPI KrnGetBitmapListItem(const KrnBitmapList *pList, uint32_t uIndex, BitmapDesc **ppBitmap);
/* Releases the list and the copies it holds; null is ignored. */
RZKRN_API void RZAPI KrnFreeBitmapList(KrnBitmapList *pList);
/* ---- end of bitmap lists ---- */
/* ---- Geometry: resize, rotate, grey histogram. ----
 * Both geometric services work on the picture as the current view shows it
 * and refuse what KrnValidateBitmap refuses. They report whole percentages
 * 0..100 to the thread's status callback; a result other than 1 stops them
 * and is returned with the bitmap unchanged. Samples are mixed as grey
 * levels (1..8-bit grey samples and grey-ramp palettes), as the significant
 * bits of 12/16-bit grey, or channel by channel (the fourth included);
 * indices of any other palette cannot be mixed, so such bitmaps are always
 * resampled by nearest neighbour. Results are rounded to nearest and
 * clamped; written 12/16-bit samples have 0 outside their significant bits. */
#define KRN_RESIZE_NEAREST 0
#define KRN_RESIZE_BILINEAR 1
/* Averages the covered share of every source pixel along an axis that
 * shrinks; bilinear along one that grows. */
#define KRN_RESIZE_AREA 2
/* Resizes in place to nNewWidth x nNewHeight (1 or more each): output
 * pixel i covers source [i*s/d, (i+1)*s/d); nearest takes the pixel under its
 * centre, bilinear mixes the two around it (edges replicated). The result is
 * stored in view 1 as the old view showed it; palette and display table
 * stay; the region, in the old coordinates, is released. -13 for a size
 * below 1, an unknown method, an empty source or a result the kernel cannot
 * represent; -1 when memory runs out. */
RZKRN_API int32_t RZAPI KrnResizeBitmap(BitmapDesc *pBitmap, int32_t nNewWidth, int32_t nNewHeight,
                                        int32_t nMethod);

#define KRN_ROTATE_NEAREST 0
#define KRN_ROTATE_BILINEAR 2
#define KRN_ROTATE_BICUBIC 4 /* Keys' cubic, a = -0.5 */
/* Rotates the picture in place about (dCentreX, dCentreY), in pixels from the
 * view's top-left corner (pixel x spans x..x+1, so the picture's centre is
 * (nWidth * 0.5, nHeight * 0.5)), by nAngle hundredths of a degree;
 * positive turns the picture clockwise as the view shows it (rows run
 * down). The bitmap keeps its size; a pixel whose centre maps outside the
 * picture takes crFill: red bits 0-7, green 8-15, blue 16-23 (times 256 on
 * 16-bit samples; grey bitmaps take (2R + 5G + B + 4) / 8, on 12/16 bits
 * times 256 and scaled to the significant bits; palettes the nearest entry,
 * lowest index on ties); with bit 26 set the low 16 bits are a grey level on
 * the bitmap's own sample scale. A fourth channel is filled opaque. -13 for
 * another quality code or a centre that is not finite. */
RZKRN_API int32_t RZAPI KrnRotateBitmap(BitmapDesc *pBitmap, int32_t nAngle, double dCentreX, double dCentreY,
                                        uint32_t crFill, int32_t nQuality);

/* 256 counts of the grey level of every pixel (whole bitmap, no region):
 * palette entries and colour by (R*77 + G*150 + B*29 + 128) >> 8 on 8-bit
 * channels (the high byte of 16-bit ones), grey samples scaled to 0..255
 * (the top 8 significant bits of 12/16-bit grey, signed offset to unsigned).
 * -13 for a null histogram. */
RZKRN_API int32_t RZAPI KrnGetBitmapHistogram(const BitmapDesc *pBitmap, uint32_t *pHistogram);
/* ---- end of geometry ---- */

/* ---- Limits: the largest bitmap and list the kernel makes. ----
 * Checked before any memory is taken: KrnInitBitmap, KrnAllocBitmap and every
 * service and operation that makes a bitmap refuse a picture past them with
 * KRN_INVALID_PARAMETER (-13), and KrnAppendBitmapList refuses an entry past
 * the list limit with -13. Within them a request may still give KRN_FAILURE
 * (-1) when the memory is not there. */
#define KRN_MAX_PIXELS (INT64_C(1) << 30)       /* width x height */
#define KRN_MAX_BITMAP_BYTES (INT64_C(1) << 32) /* stride x height */
#define KRN_MAX_LIST_ITEMS 65536                /* entries of a KrnBitmapList */
/* ---- end of limits ---- */

#ifdef __cplusplus
}
#endif

#endif
