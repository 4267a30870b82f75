/*
 * rzdis.h - regions of a bitmap: built from rectangles, ellipses, polygons
 * and mask bitmaps, combined, and answered per row in the current view.
 *
 * A region is kept in stored-picture coordinates and clipped to the bitmap;
 * coordinates given to the builders are those of the current view. Spans
 * are int32 pairs [start, end) of x positions of a view row; counts are
 * numbers of int32 values (two per run).
 */
#ifndef RZDIS_H
#define RZDIS_H

#include "rzkrn.h"

#ifdef RZDIS_BUILDING
#define RZDIS_API RZ_EXPORT_ATTR
#else
#define RZDIS_API RZ_IMPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define DIS_RGN_SET 0  /* replace the region */
#define DIS_RGN_AND 1  /* intersection */
#define DIS_RGN_OR 2   /* union */
#define DIS_RGN_XOR 3  /* symmetric difference */
#define DIS_RGN_DIFF 4 /* the region less the new shape */
/* Without a region the modes combine with an empty one. A builder that fails
 * (-814, -789, -13 for a bad argument, -1 for memory) keeps the old region. */

#define DIS_FILL_ALTERNATE 0 /* even-odd rule */
#define DIS_FILL_WINDING 1   /* non-zero winding rule */

/* Nonzero when the bitmap has a (possibly empty) region. */
RZDIS_API int32_t RZAPI DisBitmapHasRegion(const BitmapDesc *pBitmap);
/* Bounding rectangle of the region in the view, or the whole bitmap when it
 * has none; an empty region gives an empty rectangle. */
RZDIS_API int32_t RZAPI DisGetRegionBounds(const BitmapDesc *pBitmap, int32_t nReserved, RzRect *pRect);
/* The most span values a row can need. */
RZDIS_API int32_t RZAPI DisGetRegionMaskSize(const BitmapDesc *pBitmap, uint32_t *pCount);
/* The runs of view row nRow inside the region (the whole row without one).
 * pSpans must hold DisGetRegionMaskSize values. */
RZDIS_API int32_t RZAPI DisGetRegionRowSpans(const BitmapDesc *pBitmap, int32_t nRow, int32_t *pSpans,
                                             uint32_t *pCount);
/* Nonzero when view pixel (x, y) is inside the region (or there is none);
 * 0 outside the view. */
RZDIS_API int32_t RZAPI DisIsPtInRegion(const BitmapDesc *pBitmap, int32_t x, int32_t y);

RZDIS_API int32_t RZAPI DisSetRegionRect(BitmapDesc *pBitmap, const RzRect *pRect, int32_t nCombine);
/* The ellipse inscribed in the rectangle; pixel centres inside or on it are in. */
RZDIS_API int32_t RZAPI DisSetRegionEllipse(BitmapDesc *pBitmap, const RzRect *pRect, int32_t nCombine);
/* A closed polygon; pixel centres inside by the fill rule are in. At most
 * DIS_MAX_POLYGON_POINTS points: more give -13 before any memory is taken. */
#define DIS_MAX_POLYGON_POINTS (1 << 20)
RZDIS_API int32_t RZAPI DisSetRegionPolygon(BitmapDesc *pBitmap, const RzPoint *pPoints, int32_t nCount,
                                            int32_t nFillMode, int32_t nCombine);
/* Pixels of the mask (placed at view (0, 0), read in its own view; any
 * depth) whose raw sample is nonzero (any channel) are in. */
RZDIS_API int32_t RZAPI DisSetRegionMask(BitmapDesc *pBitmap, const BitmapDesc *pMask, int32_t nCombine);
RZDIS_API int32_t RZAPI DisFreeRegion(BitmapDesc *pBitmap);

#ifdef __cplusplus
}
#endif

#endif
