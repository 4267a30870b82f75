// Metadata a bitmap carries for the files it came from and goes to: its
// resolution and two opaque blocks (colour profile, EXIF). All of it lives
// in one kernel block that pMetadata points to, created on the first set and
// dropped again when nothing is left in it, so a bitmap without metadata
// costs nothing and the descriptor keeps its 164 bytes.
#include "internal.h"

#include <cmath>
#include <cstring>

namespace krn {

namespace {

constexpr uint32_t kMaxBlob = uint32_t(64) << 20;
constexpr int kKinds = 2; // KRN_META_ICC, KRN_META_EXIF

struct Metadata {
    double x = 0, y = 0;
    int32_t unit = KRN_RES_NONE;
    uint8_t *blob[kKinds] = {};
    uint32_t size[kKinds] = {};
};

Metadata *Of(const BitmapDesc *b) { return static_cast<Metadata *>(b->pMetadata); }

void Destroy(Metadata *m) {
    if (!m)
        return;
    for (uint8_t *p : m->blob)
        KrnMemFree(p);
    KrnMemFree(m);
}

bool Empty(const Metadata &m) {
    return m.x == 0 && m.blob[0] == nullptr && m.blob[1] == nullptr;
}

// The bitmap's block, made when missing.
Metadata *Writable(BitmapDesc *b) {
    if (Metadata *m = Of(b))
        return m;
    void *p = KrnMemAllocZeroed(sizeof(Metadata), 1);
    if (!p)
        return nullptr;
    Metadata *m = new (p) Metadata();
    b->pMetadata = m;
    return m;
}

void DropIfEmpty(BitmapDesc *b) {
    if (Metadata *m = Of(b); m && Empty(*m)) {
        Destroy(m);
        b->pMetadata = nullptr;
    }
}

int32_t DescStatus(const BitmapDesc *b) {
    if (!b)
        return KRN_NULL_POINTER;
    return b->uStructSize == BITMAPDESC_SIZE ? KRN_OK : KRN_BAD_STRUCT_SIZE;
}

} // namespace

void FreeMetadata(BitmapDesc *b) {
    Destroy(Of(b));
    b->pMetadata = nullptr;
}

int32_t CloneMetadata(void **out, const BitmapDesc *src) {
    *out = nullptr;
    const Metadata *m = Of(src);
    if (!m)
        return KRN_OK;
    Block copy(KrnMemAllocZeroed(sizeof(Metadata), 1));
    if (!copy)
        return KRN_FAILURE;
    Metadata *c = new (copy.get()) Metadata();
    c->x = m->x;
    c->y = m->y;
    c->unit = m->unit;
    for (int k = 0; k < kKinds; ++k) {
        if (!m->blob[k])
            continue;
        Block blob(KrnMemAlloc(m->size[k]));
        if (!blob) {
            Destroy(copy.release<Metadata>());
            return KRN_FAILURE;
        }
        std::memcpy(blob.get(), m->blob[k], m->size[k]);
        c->blob[k] = blob.release<uint8_t>();
        c->size[k] = m->size[k];
    }
    *out = copy.release();
    return KRN_OK;
}

} // namespace krn

using namespace krn;

extern "C" {

RZKRN_API int32_t RZAPI KrnSetBitmapResolution(BitmapDesc *pBitmap, double dX, double dY, int32_t nUnit) {
    if (const int32_t st = DescStatus(pBitmap); st != KRN_OK)
        return st;
    if (nUnit < KRN_RES_NONE || nUnit > KRN_RES_CM)
        return KRN_INVALID_PARAMETER;
    const bool clear = dX == 0 && dY == 0;
    auto valid = [](double v) { return std::isfinite(v) && v > 0 && v < 1e9; };
    if (!clear && !(valid(dX) && valid(dY)))
        return KRN_INVALID_PARAMETER;
    if (clear && !Of(pBitmap))
        return KRN_OK;
    Metadata *m = Writable(pBitmap);
    if (!m)
        return KRN_FAILURE;
    m->x = clear ? 0 : dX;
    m->y = clear ? 0 : dY;
    m->unit = clear ? KRN_RES_NONE : nUnit;
    DropIfEmpty(pBitmap);
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetBitmapResolution(const BitmapDesc *pBitmap, double *pX, double *pY, int32_t *pUnit) {
    if (const int32_t st = DescStatus(pBitmap); st != KRN_OK)
        return st;
    if (!pX || !pY || !pUnit)
        return KRN_INVALID_PARAMETER;
    const Metadata *m = Of(pBitmap);
    const bool has = m && m->x > 0;
    *pX = has ? m->x : 0;
    *pY = has ? m->y : 0;
    *pUnit = has ? m->unit : KRN_RES_NONE;
    return has ? 1 : 0;
}

RZKRN_API int32_t RZAPI KrnSetBitmapMetadata(BitmapDesc *pBitmap, int32_t nKind, const void *pData, uint32_t nSize) {
    if (const int32_t st = DescStatus(pBitmap); st != KRN_OK)
        return st;
    if (nKind < KRN_META_ICC || nKind > KRN_META_EXIF || nSize > kMaxBlob || (nSize && !pData))
        return KRN_INVALID_PARAMETER;
    const int k = nKind - 1;
    if (nSize == 0 && !Of(pBitmap))
        return KRN_OK;
    Block copy;
    if (nSize) {
        copy = Block(KrnMemAlloc(nSize));
        if (!copy)
            return KRN_FAILURE;
        std::memcpy(copy.get(), pData, nSize);
    }
    Metadata *m = Writable(pBitmap);
    if (!m)
        return KRN_FAILURE;
    KrnMemFree(m->blob[k]);
    m->blob[k] = copy.release<uint8_t>();
    m->size[k] = nSize;
    DropIfEmpty(pBitmap);
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetBitmapMetadata(const BitmapDesc *pBitmap, int32_t nKind, const void **ppData,
                                             uint32_t *pSize) {
    if (const int32_t st = DescStatus(pBitmap); st != KRN_OK)
        return st;
    if (nKind < KRN_META_ICC || nKind > KRN_META_EXIF || !ppData || !pSize)
        return KRN_INVALID_PARAMETER;
    const Metadata *m = Of(pBitmap);
    const int k = nKind - 1;
    *ppData = m ? m->blob[k] : nullptr;
    *pSize = m ? m->size[k] : 0;
    return *ppData ? 1 : 0;
}

} // extern "C"
