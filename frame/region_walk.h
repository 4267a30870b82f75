// Read-only passes over the region: measurements read every row of the
// region's bounding rectangle in one working format, look only at the runs
// inside the region and never write a row back.
#pragma once

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

namespace rz {

// Calls visit(row, x0, x1) for every run [x0, x1) of the region in each
// working row (x relative to the row buffer), one progress step a row over
// 0..100. ST_NOTHING_TO_DO, without a report, when the rectangle is empty
// in any working format; otherwise 1, a failure or the callback's value.
template <class Visit> int32_t WalkRegion(BitmapDesc *bmp, uint32_t mode, Visit &&visit) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st == ST_NOTHING_TO_DO) return st;
    if (st != 1) return st;
    if (ctx->nRows <= 0 || ctx->rcWork.right <= ctx->rcWork.left) return ST_NOTHING_TO_DO;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    if (!row || !spans) return ST_FAILURE;
    st = BeginProgress(ctx.get());
    if (st != 1) return st;
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        st = GetRow(ctx.get(), row.get(), y, spans.get(), &n);
        if (st != 1) return st;
        for (uint32_t k = 0; k + 1 < n; k += 2) visit(row.get(), spans[k], spans[k + 1]);
        st = StepProgress(ctx.get());
        if (st != 1) return st;
    }
    return 1;
}

} // namespace rz
