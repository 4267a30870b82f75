// The distortions' shared frame outside the pixel loop: opening checks,
// processing rectangle, fill colour, and the source copy.
#include "distort/resample.h"
#include "frame/colour_word.h"

#include <algorithm>

namespace rz::dist {

int32_t CheckDescriptor(const BitmapDesc *bmp, NullCode code) {
    if (code == NullCode::NoBitmap) {
        if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
        if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
    } else {
        if (!bmp) return ST_NULL_POINTER;
        if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
        if (!(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    }
    if (bmp->uFlags & BMF_SIGNED) return ST_SIGNED_NOT_SUPPORTED;
    return ST_SUCCESS;
}

int32_t CheckFlags(uint32_t flags, uint32_t checked, int32_t optionStatus, uint32_t maxRule, bool optionAllowed) {
    const uint32_t high = flags & checked;
    if (high != 0 && !(optionAllowed && high == kOption)) return optionStatus;
    if ((flags & 0xF) > maxRule) return ST_INVALID_PARAMETER;
    return ST_SUCCESS;
}

int32_t GetArea(BitmapDesc *bmp, Area &area) {
    area.width = bmp->nWidth;
    RzRect rc{0, 0, bmp->nWidth, bmp->nHeight};
    {
        const int32_t st = DisGetRegionBounds(bmp, 0, &rc);
        if (st != ST_SUCCESS) return st;
        rc.left = std::clamp(rc.left, 0, bmp->nWidth);
        rc.right = std::clamp(rc.right, rc.left, bmp->nWidth);
        rc.top = std::clamp(rc.top, 0, bmp->nHeight);
        rc.bottom = std::clamp(rc.bottom, rc.top, bmp->nHeight);
    }
    area.rc = rc;
    area.hw = (rc.right - rc.left) / 2;
    area.hh = (rc.bottom - rc.top) / 2;
    return ST_SUCCESS;
}

Fill ConvertFill(const BitmapDesc *bmp, uint32_t colour) {
    const ColourWord c = WorkingColourWord(bmp, colour);
    return {c.b, c.g, c.r};
}

int32_t OpenCopy(BitmapDesc *bmp, const Area &area, Copy &copy, bool rowScratch) {
    int32_t st = ST_SUCCESS;
    copy.ctx = MakeRowContext(bmp, filt::FilterMode(bmp), st);
    if (st != ST_SUCCESS) return st == ST_NOTHING_TO_DO ? ST_FAILURE : st;
    RowContext *ctx = copy.ctx.get();
    copy.channels = ContextChannels(ctx);
    copy.wide = ContextSampleBits(ctx) == 16;
    // The frame may write a few bytes past a working row.
    copy.strideBytes = (int64_t(ContextRowBytes(ctx)) + 16 + 15) & ~int64_t(15);
    const size_t total = KrnCheckedSize(size_t(copy.strideBytes), size_t(area.rows()), 1);
    if (!total) return ST_FAILURE;
    // Every row is read before it is used; only the bytes past a row's end
    // stay unset, and nothing reads them.
    copy.rows = KrnArray<uint8_t>(total);
    if (!copy.rows) return ST_FAILURE;
    for (int32_t k = 0; k < area.rows(); ++k)
        RZ_RETURN_IF_FAILED(GetRow(ctx, copy.rows.get() + k * copy.strideBytes, area.rc.top + k, nullptr, nullptr));
    copy.dst = KrnArrayZeroed<uint8_t>(size_t(copy.strideBytes));
    if (!copy.dst) return ST_FAILURE;
    if (rowScratch) {
        const size_t n = size_t(area.rc.right - area.rc.left);
        copy.scratch = KrnArray<double>(3 * n);
        copy.what = KrnArray<Map>(n);
        if (!copy.scratch || !copy.what) return ST_FAILURE;
    }
    return BeginProgressRect(ctx, 0, 100, &area.rc);
}

} // namespace rz::dist
