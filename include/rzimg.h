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
