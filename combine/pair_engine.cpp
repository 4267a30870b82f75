// See pair_engine.h.
#include "combine/pair_engine.h"

namespace rz::comb {

uint32_t DestMode(const BitmapDesc *dst) {
    const int32_t bits = dst->nBitsPerPixel;
    if (bits == 12 || bits == 16) return RC_WORK16;
    if (bits <= 8 && IsGrey(dst)) return RC_WORK8;
    return bits < 48 ? (RC_GRAY_AS_COLOR | RC_DEEP_AS_24) : RC_FORCE_48;
}

uint32_t ModeFor(int32_t work) {
    switch (work) {
    case WORK_8: return RC_WORK8;
    case WORK_16: return RC_WORK16;
    case WORK_24: return RC_GRAY_AS_COLOR | RC_DEEP_AS_24;
    default: return RC_FORCE_48;
    }
}

namespace {

// Aligns and clips one axis; false when empty.
bool ClipAxis(int64_t &d, int64_t &s, int64_t &n, int64_t dLimit, int64_t sLimit) {
    if (d < 0) {
        s -= d;
        n += d;
        d = 0;
    }
    if (s < 0) {
        d -= s;
        n += s;
        s = 0;
    }
    n = std::min({n, dLimit - d, sLimit - s});
    return n > 0;
}

int64_t Mod(int64_t v, int64_t n) {
    const int64_t r = v % n;
    return r < 0 ? r + n : r;
}

} // namespace

bool ClipArea(int64_t x, int64_t y, int64_t w, int64_t h, int64_t sx, int64_t sy, const BitmapDesc *dst,
              const BitmapDesc *src, Area &area) {
    if (!ClipAxis(x, sx, w, dst->nWidth, src->nWidth) || !ClipAxis(y, sy, h, dst->nHeight, src->nHeight))
        return false;
    area = Area{int32_t(x), int32_t(y), int32_t(sx), int32_t(sy), int32_t(w), int32_t(h)};
    return true;
}

PairPass::~PairPass() {
    // The contexts refer to the copy: release them before it.
    srcCtx_.reset();
    maskCtx_.reset();
    textureCtx_.reset();
    if (copied_) KrnFreeBitmap(&copy_);
}

// A bitmap that shares the destination's pixels is read from one copy.
int32_t PairPass::openSource(BitmapDesc *&bmp, BitmapDesc *dst) {
    if (!bmp || bmp->pData != dst->pData) return ST_SUCCESS;
    if (!copied_) {
        CallbackSilencer quiet;
        const int32_t st = KrnCopyBitmap(&copy_, dst, BITMAPDESC_SIZE);
        if (st != KRN_OK) return st == KRN_NO_BITMAP ? ST_NO_BITMAP : (st < 0 ? st : ST_FAILURE);
        copied_ = true;
    }
    bmp = &copy_;
    return ST_SUCCESS;
}

int32_t PairPass::open(const PairInputs &in) {
    BitmapDesc *const all[4] = {in.dst, in.src, in.mask, in.texture};
    for (int i = 0; i < 4; ++i) {
        if (!all[i]) continue;
        bool seen = false;
        for (int k = 0; k < i; ++k) seen |= all[k] == all[i];
        if (seen || all[i]->nViewPerspective == 1) continue;
        views_[i].emplace(all[i]);
        RZ_RETURN_IF_FAILED(views_[i]->set(1));
    }
    dst_ = in.dst;
    src_ = in.src;
    mask_ = in.mask;
    texture_ = in.texture;
    textureOffset_ = in.textureOffset;
    RZ_RETURN_IF_FAILED(openSource(src_, dst_));
    RZ_RETURN_IF_FAILED(openSource(mask_, dst_));
    RZ_RETURN_IF_FAILED(openSource(texture_, dst_));

    if (!ClipArea(in.x, in.y, in.w, in.h, in.sx, in.sy, dst_, src_, area_)) return ST_NOTHING_TO_DO;
    if (mask_ && (mask_->nWidth < area_.w || mask_->nHeight < area_.h)) return ST_NOTHING_TO_DO;
    if (texture_ && (texture_->nWidth <= 0 || texture_->nHeight <= 0)) texture_ = nullptr;

    int32_t st = 0;
    dstCtx_ = MakeRowContext(dst_, DestMode(dst_) | RC_WHOLE_BITMAP, st);
    if (st != ST_SUCCESS) return st;
    const int32_t work = dstCtx_->nWorkBits;
    wide_ = ContextSampleBits(dstCtx_.get()) == 16;
    const bool greyDst = ContextChannels(dstCtx_.get()) == 1;
    const int32_t srcWork = greyDst && in.sourceInColour ? (wide_ ? WORK_48 : WORK_24) : work;
    shape_ = RowShape{ContextChannels(dstCtx_.get()), greyDst && in.sourceInColour ? 3 : ContextChannels(dstCtx_.get()),
                      wide_ ? 65535 : 255};

    srcCtx_ = MakeRowContext(src_, ModeFor(srcWork) | RC_WHOLE_BITMAP, st);
    if (st != ST_SUCCESS) return st;
    dstBuf_.reset(AllocRowBuffer(dstCtx_.get()));
    srcBuf_.reset(AllocRowBuffer(srcCtx_.get()));
    if (!dstBuf_ || !srcBuf_) return ST_FAILURE;
    if (mask_) {
        maskCtx_ = MakeRowContext(mask_, ModeFor(work) | RC_WHOLE_BITMAP, st);
        if (st != ST_SUCCESS) return st;
        maskBuf_.reset(AllocRowBuffer(maskCtx_.get()));
        if (!maskBuf_) return ST_FAILURE;
    }
    if (texture_) {
        textureCtx_ = MakeRowContext(texture_, ModeFor(work) | RC_WHOLE_BITMAP, st);
        if (st != ST_SUCCESS) return st;
        textureBuf_.reset(AllocRowBuffer(textureCtx_.get()));
        const size_t sampleBytes = wide_ ? 2 : 1;
        tileBuf_.reset(KrnMemAlloc(KrnCheckedSize(size_t(area_.w), size_t(shape_.dstChannels), sampleBytes) + 16));
        if (!textureBuf_ || !tileBuf_) return ST_FAILURE;
    }
    uint32_t spanValues = 2;
    if (DisBitmapHasRegion(src_)) {
        if (DisGetRegionMaskSize(src_, &spanValues) != 1) return ST_FAILURE;
        spanValues = std::max<uint32_t>(spanValues, 2);
        spans_ = KrnArray<int32_t>(spanValues);
        if (!spans_) return ST_FAILURE;
    }
    pieces_ = KrnArray<int32_t>(spanValues);
    if (!pieces_) return ST_FAILURE;
    const RzRect rows{area_.dx, area_.dy, area_.dx + area_.w, area_.dy + area_.h};
    return BeginProgressRect(dstCtx_.get(), 0, 100, &rows);
}

int32_t PairPass::readTexture(int32_t j) {
    const int32_t tw = texture_->nWidth, th = texture_->nHeight;
    RZ_RETURN_IF_FAILED(GetRow(textureCtx_.get(), textureBuf_.get(), int32_t(Mod(int64_t(textureOffset_.y) + j, th)),
                               nullptr, nullptr));
    const int32_t C = shape_.dstChannels;
    const size_t bytes = size_t(C) * (wide_ ? 2 : 1);
    const uint8_t *from = static_cast<const uint8_t *>(textureBuf_.get());
    uint8_t *to = static_cast<uint8_t *>(tileBuf_.get());
    int64_t tx = Mod(textureOffset_.x, tw);
    for (int32_t i = 0; i < area_.w; ++i) {
        std::memcpy(to + size_t(i) * bytes, from + size_t(tx) * bytes, bytes);
        if (++tx == tw) tx = 0;
    }
    return ST_SUCCESS;
}

int32_t PairPass::read(int32_t j) {
    RZ_RETURN_IF_FAILED(GetRow(dstCtx_.get(), dstBuf_.get(), area_.dy + j, nullptr, nullptr));
    RZ_RETURN_IF_FAILED(GetRow(srcCtx_.get(), srcBuf_.get(), area_.sy + j, nullptr, nullptr));
    if (maskCtx_) RZ_RETURN_IF_FAILED(GetRow(maskCtx_.get(), maskBuf_.get(), j, nullptr, nullptr));
    if (textureCtx_) RZ_RETURN_IF_FAILED(readTexture(j));
    int32_t *p = pieces_.get();
    if (!spans_) {
        p[0] = 0;
        p[1] = area_.w;
        pieceValues_ = 2;
        return ST_SUCCESS;
    }
    uint32_t n = 0;
    RZ_RETURN_IF_FAILED(DisGetRegionRowSpans(src_, area_.sy + j, spans_.get(), &n));
    pieceValues_ = 0;
    for (uint32_t k = 0; k + 1 < n; k += 2) {
        const int32_t b = std::max(spans_[k] - area_.sx, 0);
        const int32_t e = std::min(spans_[k + 1] - area_.sx, area_.w);
        if (b < e) {
            p[pieceValues_++] = b;
            p[pieceValues_++] = e;
        }
    }
    return ST_SUCCESS;
}

int32_t PairPass::write(int32_t j) { return PutRow(dstCtx_.get(), dstBuf_.get(), area_.dy + j, nullptr, 0); }

} // namespace rz::comb
