/*
 * rzfil.h - the file library: loading and saving bitmaps as PNG, JPEG, TIFF
 * and PNM files, and describing what a file holds.
 *
 * Statuses are those of the image library (ST_ values in rzimg.h) plus the
 * file codes below. A loaded bitmap is a new kernel bitmap that the caller
 * releases with KrnFreeBitmap.
 *
 * Depths on load: 1/2/4/8-bit palette or grey files load as palettised
 * bitmaps of that depth (grey as the grey ramp; nColorOrder 1, nDataKind 0);
 * 16-bit grey as nBitsPerPixel 16, nColorOrder 2, nDataKind 1, nLowBit 0 and
 * nHighBit = significant bits - 1 (PNG sBIT, TIFF MaxSampleValue or PNM
 * maxval when it is 2^k - 1, else 15); colour as 24/48-bit BGR, with alpha
 * as 32/64-bit. PNG grey with alpha loads as colour with alpha; TIFF kinds
 * without a kernel layout (CMYK, YCbCr, grey with alpha) as 24-bit. Saving writes
 * what the current view shows, at the nearest depth the format holds: 12-bit
 * grey as 16-bit with its bit range, palettes as palettes (PNG, TIFF) or
 * colour (PNM, JPEG), alpha kept by PNG and TIFF only.
 */
#ifndef RZFIL_H
#define RZFIL_H

#include "rzkrn.h"

#ifdef RZFIL_BUILDING
#define RZFIL_API RZ_EXPORT_ATTR
#else
#define RZFIL_API RZ_IMPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define RZ_FILE_NOT_FOUND (-400)    /* cannot open the file, or it is a directory */
#define RZ_FILE_FORMAT (-401)       /* not a format this library reads */
#define RZ_FILE_CORRUPT (-402)      /* truncated or damaged data */
#define RZ_FILE_WRITE (-403)        /* cannot write the output */
#define RZ_FILE_TOO_LARGE (-404)    /* over the pixel limit, or dimensions the kernel cannot hold */
#define RZ_FILE_UNSUPPORTED (-405)  /* saving: the output format cannot hold this bitmap's depth or kind */
#define RZ_FILE_BAD_PAGE (-406)     /* no such page */
/* Loading: files of a kind this library does not decode. */
#define RZ_FILE_FLOAT_SAMPLES (-410) /* floating-point samples */
#define RZ_FILE_SAMPLE_LAYOUT (-411) /* bits per sample, channels or colour kind */
#define RZ_FILE_COMPRESSION (-412)   /* a compression method the codecs lack */

#define RZ_FMT_UNKNOWN 0
#define RZ_FMT_PNG 1
#define RZ_FMT_JPEG 2
#define RZ_FMT_TIFF 3
#define RZ_FMT_PBM 4
#define RZ_FMT_PGM 5
#define RZ_FMT_PPM 6

/* TIFF compression for RzSaveOptions.nCompression. */
#define RZ_TIFF_NONE 0
#define RZ_TIFF_LZW 1
#define RZ_TIFF_DEFLATE 2
#define RZ_TIFF_PACKBITS 3
#define RZ_TIFF_G4 4

typedef struct RzFileInfo {
    uint32_t uStructSize; /* sizeof(RzFileInfo) */
    int32_t nFormat;      /* RZ_FMT_ */
    int32_t nWidth;
    int32_t nHeight;
    int32_t nBitsPerPixel; /* as it would load */
    int32_t nPages;
    int32_t nColorOrder;   /* as it would load */
    int32_t nSignificantBits; /* 16-bit grey: bits in use, else nBitsPerPixel */
    /* Beside the pixels (see "Metadata" above Rz_LoadBitmap). */
    double dXResolution, dYResolution; /* 0 when the file gives none */
    int32_t nResolutionUnit;           /* KRN_RES_ */
    int32_t nOrientation;              /* TIFF / EXIF orientation 1..8 (1 when none) */
    uint32_t nIccBytes;                /* size of the colour profile, 0 when none */
    uint32_t nExifBytes;               /* size of the EXIF block, 0 when none */
    int32_t bAlpha;                    /* nonzero: loads with a fourth channel (alpha or transparency) */
} RzFileInfo;

typedef struct RzSaveOptions {
    uint32_t uStructSize; /* sizeof(RzSaveOptions) */
    int32_t nFormat;      /* RZ_FMT_, or RZ_FMT_UNKNOWN to take it from the file name */
    int32_t nQuality;     /* JPEG 1..100; 0 = 90 */
    int32_t nCompression; /* TIFF: RZ_TIFF_ */
} RzSaveOptions;

/* Transparency: PNG tRNS (palette, grey or RGB) loads as alpha, so such a
 * file loads as 32-bit colour (64-bit for 16-bit samples); PNG and TIFF keep
 * the fourth channel on save, JPEG and PNM drop it.
 *
 * Grey: a 1..8-bit bitmap whose palette entries are all grey (in any order,
 * an edited ramp included) saves as grey through its palette: grey PNG,
 * TIFF and JPEG, PGM, and PBM when every entry is black or white. Packed
 * depths stay packed when every entry is a level of the depth's ramp.
 * Formats that hold only grey (PGM, PBM) take colour converted with the
 * kernel's weight (R*77 + G*150 + B*29 + 128) >> 8.
 *
 * Metadata: resolution (PNG pHYs, TIFF X/YResolution, JPEG JFIF density),
 * the ICC profile (PNG iCCP, TIFF tag 34675, JPEG APP2) and the EXIF block
 * (PNG eXIf, JPEG APP1) load into the bitmap's kernel metadata
 * (KrnGetBitmapResolution, KrnGetBitmapMetadata) and are written back where
 * the output format holds them (no EXIF in TIFF, nothing in PNM). PNG's
 * pixels per metre load as dots per inch when they are a whole number of
 * dots per inch to within 0.02, else per centimetre. The TIFF or EXIF
 * orientation sets the view perspective, so the bitmap shows the picture
 * upright with no pixel moved (orientation 6 is view 8 and 8 is view 6, the
 * others keep their numbers); since saving writes what the view shows, a
 * saved EXIF block gets orientation 1.
 *
 * Progress and cancelling: loads and saves report progress through the
 * kernel's status callback of the calling thread; any value other than 1
 * stops them and is returned as the status (a stopped save leaves no file).
 *
 * nPage counts from 0 (only TIFF has more than one). On failure *pBitmap
 * is left as it was; no pixel memory is allocated for a picture over the
 * pixel limit. */
RZFIL_API int32_t RZAPI Rz_LoadBitmap(const char *pszPath, BitmapDesc *pBitmap, uint32_t uStructSize, int32_t nPage);
/* Writes to a temporary file beside the target and renames it, so a failure
 * leaves no partial output and an existing file keeps its permissions. When
 * the target is a symbolic link the file it points to is replaced and the
 * link stays (as most tools do). pOptions may be null. */
RZFIL_API int32_t RZAPI Rz_SaveBitmap(const char *pszPath, const BitmapDesc *pBitmap, const RzSaveOptions *pOptions);
/* Describes the first page (and counts the pages) without decoding pixels;
 * succeeds also for pictures over the pixel limit. */
RZFIL_API int32_t RZAPI Rz_GetFileInfo(const char *pszPath, RzFileInfo *pInfo);
/* The same for page nPage (from 0); RZ_FILE_BAD_PAGE past the last, with
 * nPages filled. */
RZFIL_API int32_t RZAPI Rz_GetFilePageInfo(const char *pszPath, int32_t nPage, RzFileInfo *pInfo);

/* What a save would change, without writing: RZ_SAVE_NOTE_ bits in *pNotes. */
#define RZ_SAVE_NOTE_ALPHA 0x1u    /* a fourth channel in use is dropped */
#define RZ_SAVE_NOTE_GREY 0x2u     /* colour is converted to grey */
#define RZ_SAVE_NOTE_METADATA 0x4u /* the colour profile or EXIF block is dropped */
RZFIL_API int32_t RZAPI Rz_GetSaveNotes(const char *pszPath, const BitmapDesc *pBitmap,
                                        const RzSaveOptions *pOptions, uint32_t *pNotes);
/* Largest pixel count a load accepts (default 2^28); returns the old value.
 * nPixels <= 0 only returns the current value. */
RZFIL_API int64_t RZAPI Rz_SetFilePixelLimit(int64_t nPixels);
/* A short English message for a status of this library or the image library. */
RZFIL_API const char *RZAPI Rz_FileStatusText(int32_t nStatus);

/* ---- DICOM ----
 * Uncompressed DICOM files (little or big-endian, explicit or implicit VR,
 * with the "DICM" preamble) of one grey sample a pixel (MONOCHROME1/2),
 * 8 or 16 bits allocated, load as 16-bit grey: nLowBit = High Bit - Bits
 * Stored + 1, nHighBit = High Bit, BMF_SIGNED for Pixel Representation 1
 * (the samples keep their stored words; the significant bits are the
 * two's-complement value). Frames are pages. Saving (".dcm") writes 8, 12
 * and 16-bit grey as explicit little-endian Secondary Capture with the bit
 * range and sign; other bitmaps give RZ_FILE_UNSUPPORTED. */
#define RZ_FMT_DICOM 20
#define RZ_FILE_DICOM_COMPRESSED (-420) /* a compressed transfer syntax, not read here */
#define RZ_FILE_DICOM_NO_PIXELS (-421)  /* no pixel data, or less than the image needs */

/* What a DICOM file says about its samples and their display. */
typedef struct RzDicomInfo {
    uint32_t uStructSize; /* sizeof(RzDicomInfo) */
    int32_t nWidth, nHeight, nFrames;
    int32_t nBitsAllocated, nBitsStored, nHighBit;
    int32_t bSigned;            /* Pixel Representation 1 */
    int32_t bHasRescale;        /* Rescale Slope / Intercept present (else 1 and 0) */
    double dRescaleSlope, dRescaleIntercept;
    int32_t bHasWindow;         /* first Window Center / Width present */
    double dWindowCenter, dWindowWidth; /* in rescaled (modality) units */
    char szPhotometric[20];     /* MONOCHROME1, MONOCHROME2, ... */
    char szTransferSyntax[68];  /* UID */
} RzDicomInfo;

/* Fills pInfo from a DICOM file without decoding pixels. RZ_FILE_FORMAT
 * when the file is not DICOM. */
RZFIL_API int32_t RZAPI Rz_GetDicomInfo(const char *pszPath, RzDicomInfo *pInfo);
/* ---- end of DICOM ---- */

#ifdef __cplusplus
}
#endif

#endif
