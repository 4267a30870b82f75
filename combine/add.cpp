// Sums of bitmap lists: the average or saturated sum (Rz_AddBitmaps) and
// the weighted sum (Rz_AddWeightedBitmaps) of every list bitmap's samples,
// row by row. The result starts as a copy of the first bitmap (size, depth,
// palette, bit range) and each of its rows is rewritten from 64-bit sums of
// the rows of all bitmaps, read in the first one's working format.
#include "combine/pair_engine.h"

#include <vector>

namespace rz::comb {
namespace {

struct ListInput {
    RowContextPtr ctx;
    KrnPtr<void> row;
};

// Null and empty lists, then every bitmap's descriptor, then the sizes and
// depths against the first.
int32_t CheckList(KrnBitmapList *list, uint32_t &count) {
    if (!list || KrnGetBitmapListCount(list, &count) != KRN_OK || count == 0) return ST_INVALID_PARAMETER;
    BitmapDesc *first = nullptr;
    for (uint32_t k = 0; k < count; ++k) {
        BitmapDesc *b = nullptr;
        if (KrnGetBitmapListItem(list, k, &b) != KRN_OK) return ST_INVALID_PARAMETER;
        RZ_RETURN_IF_FAILED(CheckArgument(b));
        RZ_RETURN_IF_FAILED(CheckPixels(b));
        if (!first) first = b;
    }
    for (uint32_t k = 1; k < count; ++k) {
        BitmapDesc *b = nullptr;
        KrnGetBitmapListItem(list, k, &b);
        if (b->nWidth != first->nWidth || b->nHeight != first->nHeight || b->nBitsPerPixel != first->nBitsPerPixel ||
            b->nColorOrder != first->nColorOrder)
            return ST_INVALID_PARAMETER;
    }
    return ST_SUCCESS;
}

// Frees and clears the result unless the sum succeeded.
class ResultGuard {
  public:
    explicit ResultGuard(BitmapDesc *b) : b_(b) {}
    ~ResultGuard() {
        if (keep_) return;
        if (made_) KrnFreeBitmap(b_);
        std::memset(b_, 0, sizeof *b_);
        b_->uStructSize = BITMAPDESC_SIZE;
    }
    void made() { made_ = true; }
    void keep() { keep_ = true; }

  private:
    BitmapDesc *b_;
    bool made_ = false, keep_ = false;
};

// finish(sum) turns a sample's 64-bit sum of (weighted) values into the result.
template <class Weigh, class Finish>
int32_t SumList(BitmapDesc *result, KrnBitmapList *list, uint32_t count, Weigh &&weight, Finish &&finish) {
    ResultGuard guard(result);
    BitmapDesc *first = nullptr;
    KrnGetBitmapListItem(list, 0, &first);
    {
        CallbackSilencer quiet;
        const int32_t st = KrnCopyBitmap(result, first, BITMAPDESC_SIZE);
        if (st != KRN_OK) return st;
    }
    guard.made();
    int32_t st = 0;
    RowContextPtr out = MakeRowContext(result, DestMode(result) | RC_WHOLE_BITMAP, st);
    if (st == ST_NOTHING_TO_DO) {
        guard.keep();
        return ReportDone(result);
    }
    if (st != ST_SUCCESS) return st;
    const int32_t work = out->nWorkBits;
    const bool wide = ContextSampleBits(out.get()) == 16;
    const int64_t samples = int64_t(result->nWidth) * ContextChannels(out.get());
    std::vector<ListInput> inputs(count);
    for (uint32_t k = 0; k < count; ++k) {
        BitmapDesc *b = nullptr;
        KrnGetBitmapListItem(list, k, &b);
        inputs[k].ctx = MakeRowContext(b, ModeFor(work) | RC_WHOLE_BITMAP, st);
        if (st != ST_SUCCESS) return st == ST_NOTHING_TO_DO ? ST_FAILURE : st;
        inputs[k].row.reset(AllocRowBuffer(inputs[k].ctx.get()));
        if (!inputs[k].row) return ST_FAILURE;
    }
    KrnPtr<void> row(AllocRowBuffer(out.get()));
    KrnPtr<int64_t[]> sums = KrnArray<int64_t>(size_t(samples) + 1);
    if (!row || !sums) return ST_FAILURE;
    RZ_RETURN_IF_FAILED(BeginProgress(out.get(), 0, 100));
    auto body = [&]<class T>(T *) -> int32_t {
        for (int32_t y = 0; y < result->nHeight; ++y) {
            int64_t *__restrict acc = sums.get();
            std::fill(acc, acc + samples, 0);
            for (uint32_t k = 0; k < count; ++k) {
                RZ_RETURN_IF_FAILED(GetRow(inputs[k].ctx.get(), inputs[k].row.get(), y, nullptr, nullptr));
                const T *__restrict v = static_cast<const T *>(inputs[k].row.get());
                const int64_t w = weight(k);
                filt::Vectorised([&]() RZ_LAMBDA_INLINE {
                    for (int64_t i = 0; i < samples; ++i) acc[i] += w * v[i];
                });
            }
            T *o = static_cast<T *>(row.get());
            const int64_t M = wide ? 65535 : 255;
            for (int64_t i = 0; i < samples; ++i) o[i] = T(std::clamp<int64_t>(finish(acc[i]), 0, M));
            RZ_RETURN_IF_FAILED(PutRow(out.get(), row.get(), y, nullptr, 0));
        }
        return ST_SUCCESS;
    };
    RZ_RETURN_IF_FAILED(wide ? body(static_cast<uint16_t *>(nullptr)) : body(static_cast<uint8_t *>(nullptr)));
    KrnBitmapChanged(result);
    guard.keep();
    return ST_SUCCESS;
}

// The result pointer and its size, as every list operation opens.
int32_t CheckResult(BitmapDesc *result, uint32_t size) {
    if (!result) return ST_NULL_POINTER;
    result->uStructSize = BITMAPDESC_SIZE;
    return size == BITMAPDESC_SIZE ? ST_SUCCESS : ST_BAD_STRUCT_SIZE;
}

int32_t AddBitmaps(BitmapDesc *result, uint32_t size, KrnBitmapList *list, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckResult(result, size));
    uint32_t count = 0;
    if (!list || KrnGetBitmapListCount(list, &count) != KRN_OK || count == 0) return ST_INVALID_PARAMETER;
    if (flags != RZ_ADD_AVERAGE && flags != RZ_ADD_SUM) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckList(list, count));
    const int64_t n = count;
    auto one = [](uint32_t) { return int64_t(1); };
    // The clamp after finish() stops a sum at the maximum.
    if (flags == RZ_ADD_AVERAGE) return SumList(result, list, count, one, [n](int64_t s) { return s / n; });
    return SumList(result, list, count, one, [](int64_t s) { return s; });
}

int32_t AddWeighted(BitmapDesc *result, uint32_t size, KrnBitmapList *list, const int32_t *weights, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckResult(result, size));
    uint32_t count = 0;
    if (!list || KrnGetBitmapListCount(list, &count) != KRN_OK || count == 0 || !weights) return ST_INVALID_PARAMETER;
    if (flags != RZ_ADDW_PERMILLE && flags != RZ_ADDW_NORMALISE) return ST_INVALID_PARAMETER;
    int64_t total = 0;
    for (uint32_t k = 0; k < count; ++k) {
        if (weights[k] < -100000 || weights[k] > 100000) return ST_INVALID_PARAMETER;
        total += weights[k];
    }
    const int64_t divisor = flags == RZ_ADDW_PERMILLE ? 1000 : total;
    if (divisor == 0) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckList(list, count));
    // Rounded to nearest, halves away from zero, for either sign of the divisor.
    const int64_t d = divisor < 0 ? -divisor : divisor, sign = divisor < 0 ? -1 : 1;
    return SumList(
        result, list, count, [weights](uint32_t k) { return int64_t(weights[k]); },
        [d, sign](int64_t s) {
            const int64_t v = s * sign;
            const int64_t q = ((v < 0 ? -v : v) + d / 2) / d;
            return v < 0 ? -q : q;
        });
}

} // namespace
} // namespace rz::comb

extern "C" {

RZIMG_API int32_t RZAPI Rz_AddBitmaps(BitmapDesc *pResult, uint32_t uStructSize, KrnBitmapList *pList,
                                      uint32_t uFlags) {
    return rz::Guard([&] { return rz::comb::AddBitmaps(pResult, uStructSize, pList, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_AddWeightedBitmaps(BitmapDesc *pResult, uint32_t uStructSize, KrnBitmapList *pList,
                                              const int32_t *pWeights, uint32_t uFlags) {
    return rz::Guard([&] { return rz::comb::AddWeighted(pResult, uStructSize, pList, pWeights, uFlags); });
}

} // extern "C"
