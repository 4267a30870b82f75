// Bitmap lists: a growable array of descriptor pointers, each flagged with
// whether the list made (and so must release) a copy of it.
#include "internal.h"

#include <new>

struct KrnBitmapList {
    struct Entry {
        BitmapDesc *bitmap;
        bool owned;
    };
    Entry *entries = nullptr;
    uint32_t count = 0;
    uint32_t capacity = 0;
};

namespace {

void ReleaseEntries(KrnBitmapList *list) {
    for (uint32_t i = 0; i < list->count; ++i)
        if (list->entries[i].owned) {
            KrnFreeBitmap(list->entries[i].bitmap);
            KrnMemFree(list->entries[i].bitmap);
        }
    KrnMemFree(list->entries);
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnCreateBitmapList(KrnBitmapList **ppList) {
    if (!ppList) return KRN_INVALID_PARAMETER;
    *ppList = nullptr;
    void *block = KrnMemAllocZeroed(sizeof(KrnBitmapList), 1);
    if (!block) return KRN_FAILURE;
    *ppList = new (block) KrnBitmapList();
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnAppendBitmapList(KrnBitmapList *pList, BitmapDesc *pBitmap, uint32_t uFlags) {
    if (!pList || (uFlags != KRN_LIST_REFERENCE && uFlags != KRN_LIST_COPY)) return KRN_INVALID_PARAMETER;
    if (!pBitmap) return KRN_NULL_POINTER;
    if (pBitmap->uStructSize != BITMAPDESC_SIZE) return KRN_BAD_STRUCT_SIZE;
    if (uFlags == KRN_LIST_COPY && !(pBitmap->uFlags & BMF_ALLOCATED)) return KRN_NO_BITMAP;
    if (pList->count >= KRN_MAX_LIST_ITEMS) return KRN_INVALID_PARAMETER;
    if (pList->count == pList->capacity) {
        const uint32_t grown = pList->capacity ? pList->capacity * 2 : 4;
        const size_t bytes = KrnCheckedSize(grown, sizeof(KrnBitmapList::Entry), 1);
        if (!bytes || grown < pList->capacity) return KRN_FAILURE;
        void *p = KrnMemRealloc(pList->entries, bytes);
        if (!p) return KRN_FAILURE;
        pList->entries = static_cast<KrnBitmapList::Entry *>(p);
        pList->capacity = grown;
    }
    BitmapDesc *entry = pBitmap;
    if (uFlags == KRN_LIST_COPY) {
        krn::Block copy(KrnMemAllocZeroed(sizeof(BitmapDesc), 1));
        if (!copy) return KRN_FAILURE;
        const int32_t st = KrnCopyBitmap(copy.get<BitmapDesc>(), pBitmap, BITMAPDESC_SIZE);
        if (st != KRN_OK) return st;
        entry = copy.release<BitmapDesc>();
    }
    pList->entries[pList->count++] = {entry, uFlags == KRN_LIST_COPY};
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetBitmapListCount(const KrnBitmapList *pList, uint32_t *puCount) {
    if (!pList || !puCount) return KRN_INVALID_PARAMETER;
    *puCount = pList->count;
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetBitmapListItem(const KrnBitmapList *pList, uint32_t uIndex, BitmapDesc **ppBitmap) {
    if (!pList || !ppBitmap || uIndex >= pList->count) return KRN_INVALID_PARAMETER;
    *ppBitmap = pList->entries[uIndex].bitmap;
    return KRN_OK;
}

RZKRN_API void RZAPI KrnFreeBitmapList(KrnBitmapList *pList) {
    if (!pList) return;
    ReleaseEntries(pList);
    pList->~KrnBitmapList();
    KrnMemFree(pList);
}

} // extern "C"
