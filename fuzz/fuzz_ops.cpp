// libFuzzer target over every operation of the export list. The input picks
// an operation, builds each of its arguments as the registry describes it
// (bitmaps of any layout, view and region; any 32-bit scalar; records and
// tables of random sizes and contents; further bitmaps, lists and result
// descriptors), and runs it with the status callback and the allocator
// sometimes failing. Every call must return without a sanitizer report,
// release every kernel block it took, keep the caller's callback, and leave
// the descriptors as the operation documents: the view, geometry, region and
// state word always; every field for operations that change only pixels;
// the bitmaps it only reads entirely, pixels included.
//
// A new export joins by its line in the export list alone: scalar and
// bitmap parameters need nothing, and pointers are built by their type
// (a few records by hand below, anything else as a table of records whose
// first word is the record's size, as large as the library's record limit).
#include <rzimg.h>

#include "exports/registry.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace {

using rz::Arg;
using rz::OpInfo;
using rz::ParamInfo;
using rz::ParamKind;

[[noreturn]] void Fail(const OpInfo &op, const char *what) {
    std::fprintf(stderr, "fuzz_ops: %s: %s\n", op.name, what);
    std::abort();
}

uint64_t Mix(uint64_t &s) {
    s += 0x9E3779B97F4A7C15ull;
    uint64_t z = s;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Bytes filled from a seed in one of a few patterns: uniform pictures and
// extremes find other faults than noise does.
void Fill(FuzzedDataProvider &in, uint8_t *p, size_t n) {
    const uint8_t pattern = in.ConsumeIntegral<uint8_t>() % 6;
    uint64_t s = in.ConsumeIntegral<uint64_t>();
    switch (pattern) {
    case 0: std::memset(p, 0, n); break;
    case 1: std::memset(p, 0xFF, n); break;
    case 2: std::memset(p, int(s & 0xFF), n); break;
    default:
        for (size_t i = 0; i < n; ++i) p[i] = uint8_t(Mix(s) >> (pattern == 3 ? 63 : 56)) * (pattern == 3 ? 0xFF : 1);
    }
}

// ---- Bitmaps ----

constexpr int32_t kDepths[] = {1, 2, 4, 8, 12, 16, 24, 32, 48, 64};

struct FuzzBitmap {
    BitmapDesc d{};
    bool made = false;
    ~FuzzBitmap() { Release(); }
    void Release() {
        if (!made) return;
        d.uStructSize = BITMAPDESC_SIZE;
        KrnFreeBitmap(&d);
        made = false;
    }
};

int32_t Side(FuzzedDataProvider &in) {
    const uint8_t s = in.ConsumeIntegral<uint8_t>();
    if (s < 8) return s % 2;      // empty or one pixel
    if (s < 240) return 1 + s % 17;
    return 17 + (s - 240) * 5;    // up to 92
}

void SetRegion(FuzzedDataProvider &in, BitmapDesc *b) {
    const uint8_t kind = in.ConsumeIntegral<uint8_t>() % 8;
    if (kind < 3) return; // no region most often
    const int32_t w = b->nWidth, h = b->nHeight;
    auto coord = [&](int32_t n) { return in.ConsumeIntegralInRange<int32_t>(-3, n + 3); };
    for (int shapes = 1 + in.ConsumeIntegral<uint8_t>() % 2; shapes > 0; --shapes) {
        const int32_t combine = in.ConsumeIntegralInRange<int32_t>(0, 4);
        RzRect r{coord(w), coord(h), coord(w), coord(h)};
        switch (kind) {
        case 3: DisSetRegionRect(b, &r, combine); break;
        case 4: DisSetRegionEllipse(b, &r, combine); break;
        case 5: {
            RzPoint pts[8];
            const int32_t n = in.ConsumeIntegralInRange<int32_t>(1, 8);
            for (int32_t i = 0; i < n; ++i) pts[i] = {coord(w), coord(h)};
            DisSetRegionPolygon(b, pts, n, in.ConsumeIntegralInRange<int32_t>(0, 1), combine);
            break;
        }
        case 6: {
            FuzzBitmap mask;
            if (KrnInitBitmap(&mask.d, BITMAPDESC_SIZE, std::max(w, 1), std::max(h, 1), 8) != KRN_OK) return;
            mask.made = true;
            if (KrnAllocBitmap(&mask.d) != KRN_OK) return;
            Fill(in, mask.d.pData, size_t(mask.d.nStride) * mask.d.nStoredHeight);
            DisSetRegionMask(b, &mask.d, combine);
            break;
        }
        default: { // empty
            const RzRect empty{0, 0, 0, 0};
            DisSetRegionRect(b, &empty, DIS_RGN_SET);
        }
        }
    }
}

// A bitmap of any layout, or (when `like` is given and the input says so) of
// like's depth and view size, for operations that pair bitmaps.
void MakeBitmap(FuzzedDataProvider &in, FuzzBitmap &b, const BitmapDesc *like) {
    const uint8_t mode = in.ConsumeIntegral<uint8_t>();
    int32_t bits = kDepths[in.ConsumeIntegralInRange<size_t>(0, std::size(kDepths) - 1)];
    int32_t w = Side(in), h = Side(in);
    const bool same = like && like->uStructSize == BITMAPDESC_SIZE && (mode & 0x30) != 0;
    if (same) {
        w = like->nWidth;
        h = like->nHeight;
        if (mode & 0x10) bits = like->nBitsPerPixel;
    }
    if (KrnInitBitmap(&b.d, BITMAPDESC_SIZE, w, h, bits) != KRN_OK) return;
    b.made = true;
    const uint8_t order = in.ConsumeIntegral<uint8_t>();
    if (same && (mode & 0x10)) {
        b.d.nColorOrder = like->nColorOrder;
    } else if (bits >= 24) {
        b.d.nColorOrder = order % 2;
    } else if (bits <= 8) {
        b.d.nColorOrder = order % 3 == 0 ? KRN_ORDER_GRAY : KRN_ORDER_BGR;
    }
    if ((order & 0xF0) == 0xF0) b.d.nColorOrder = order % 6; // any order, valid or not
    b.d.nDataKind = b.d.nColorOrder == KRN_ORDER_GRAY || bits > 8 ? 1 : 0;
    const bool grey = b.d.nColorOrder == KRN_ORDER_GRAY;
    if (bits == 12 || bits == 16) {
        const uint8_t range = in.ConsumeIntegral<uint8_t>();
        if (range & 1) {
            b.d.nLowBit = in.ConsumeIntegralInRange<int32_t>(0, bits - 1);
            b.d.nHighBit = in.ConsumeIntegralInRange<int32_t>(b.d.nLowBit, bits - 1);
        } else if ((range & 0x0E) == 0x0E) {
            b.d.nLowBit = in.ConsumeIntegralInRange<int32_t>(-2, 20);
            b.d.nHighBit = in.ConsumeIntegralInRange<int32_t>(-2, 20);
        }
    }
    if ((mode & 0x0F) == 1) return; // no pixels
    if (KrnAllocBitmap(&b.d) != KRN_OK) return;
    Fill(in, b.d.pData, size_t(b.d.nStride) * b.d.nStoredHeight);
    if (bits <= 8 && in.ConsumeBool()) {
        RzRGBQuad pal[256];
        Fill(in, reinterpret_cast<uint8_t *>(pal), sizeof pal);
        KrnSetBitmapPalette(&b.d, 0, int32_t(1) << bits, pal);
    }
    if (grey && bits >= 8 && (mode & 0x0F) == 2) b.d.uFlags |= BMF_SIGNED;
    if (grey && bits >= 8 && (mode & 0x0F) == 3) { // a display table of any length
        const uint32_t lengths[] = {1, 2, 255, 256, 4096, 65536};
        const uint32_t n = in.ConsumeBool() ? lengths[in.ConsumeIntegralInRange<size_t>(0, 5)]
                                            : in.ConsumeIntegralInRange<uint32_t>(1, 5000);
        b.d.pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(n * sizeof(RzRGBQuad)));
        if (b.d.pLUT) {
            Fill(in, reinterpret_cast<uint8_t *>(b.d.pLUT), n * sizeof(RzRGBQuad));
            b.d.nLUTLength = n;
            if (in.ConsumeBool()) b.d.uFlags |= BMF_USE_LUT;
            b.d.nDataKind = 0;
        }
    }
    const int32_t view = 1 + in.ConsumeIntegral<uint8_t>() % 8;
    if (!same) KrnChangeViewPerspective(nullptr, &b.d, BITMAPDESC_SIZE, view, 0);
    else if (like->nViewPerspective >= 1 && like->nViewPerspective <= 8)
        KrnChangeViewPerspective(nullptr, &b.d, BITMAPDESC_SIZE, (like->nViewPerspective - 1) % 4 + 1, 0);
    SetRegion(in, &b.d);
}

// ---- Scalars ----

int64_t Scalar(FuzzedDataProvider &in, const ParamInfo &p) {
    const uint8_t how = in.ConsumeIntegral<uint8_t>() % 10;
    int64_t v;
    switch (how) {
    case 0: v = p.def; break;
    case 1: v = p.lo; break;
    case 2: v = p.hi; break;
    case 3: v = p.lo - 1; break;
    case 4: v = p.hi + 1; break;
    case 5: v = in.ConsumeIntegralInRange<int32_t>(-4, 64); break;
    case 6: v = in.ConsumeIntegral<int32_t>(); break;
    default: v = in.ConsumeIntegralInRange<int64_t>(p.lo, p.hi);
    }
    return p.kind == ParamKind::U32 ? int64_t(uint32_t(v)) : int64_t(int32_t(v));
}

// ---- Records and tables ----

// Most records a table argument may hold: the library's limit, so that a
// count the operation accepts never reads past the buffer.
constexpr size_t kTableRecords = RZ_MAX_RECORDS;

// Records built by hand; everything else is a table.
enum class PtrKind { Table, SpatialKernel, UserKernel, Array, ArraySlot };

PtrKind KindOf(const ParamInfo &p) {
    std::string s;
    for (const char *c = p.type; *c; ++c)
        if (*c != ' ') s += *c;
    if (s.starts_with("const")) s.erase(0, 5);
    if (s == "SpatialKernel*") return PtrKind::SpatialKernel;
    if (s == "UserFilterKernel*") return PtrKind::UserKernel;
    if (s == "FTARRAY*") return PtrKind::Array;
    if (s == "FTARRAY**") return PtrKind::ArraySlot;
    return PtrKind::Table;
}

struct Inputs {
    std::vector<std::unique_ptr<FuzzBitmap>> bitmaps; // [0]: the operation's bitmap
    std::vector<std::vector<uint64_t>> buffers;
    KrnBitmapList *list = nullptr;
    std::vector<std::unique_ptr<BitmapDesc>> results;
    std::vector<FTARRAY *> arrays;                     // made here, freed here
    std::vector<std::unique_ptr<FTARRAY *>> arraySlots; // filled by the operation
    std::vector<uint32_t> arraySizes;                  // size fields to put back

    void Release(bool arrayFreedByCall) {
        for (size_t i = 0; i < arrays.size(); ++i) {
            if (arrayFreedByCall && i == 0) continue;
            arrays[i]->uStructSize = arraySizes[i];
            Rz_FreeFTArray(arrays[i]);
        }
        arrays.clear();
        for (auto &s : arraySlots)
            if (*s) Rz_FreeFTArray(*s);
        arraySlots.clear();
        for (auto &r : results) {
            r->uStructSize = BITMAPDESC_SIZE;
            if (r->uFlags & BMF_ALLOCATED) KrnFreeBitmap(r.get());
        }
        results.clear();
        KrnFreeBitmapList(list);
        list = nullptr;
        bitmaps.clear();
        buffers.clear();
    }
};

void *Buffer(Inputs &io, size_t bytes) {
    io.buffers.emplace_back((bytes + 7) / 8 + 1, 0);
    return io.buffers.back().data();
}

// Words of a record: small numbers mostly, so that ranges and kernels are
// sometimes valid; any value now and then.
int32_t Word(FuzzedDataProvider &in) {
    switch (in.ConsumeIntegral<uint8_t>() % 4) {
    case 0: return in.ConsumeIntegralInRange<int32_t>(-2, 9);
    case 1: return in.ConsumeIntegralInRange<int32_t>(-400, 400);
    case 2: return in.ConsumeIntegralInRange<int32_t>(0, 255);
    default: return in.ConsumeIntegral<int32_t>();
    }
}

const void *SpatialKernelArg(FuzzedDataProvider &in, Inputs &io) {
    if (in.ConsumeBool()) return RZ_SPF_KERNEL(in.ConsumeIntegralInRange<uint32_t>(0, SPF_COUNT + 2));
    const int32_t dim = in.ConsumeBool() ? in.ConsumeIntegralInRange<int32_t>(-1, 9) : in.ConsumeIntegral<int32_t>();
    const size_t n = dim > 0 && dim <= RZ_MAX_KERNEL_SIDE ? size_t(dim) * size_t(dim) : 1;
    auto *k = static_cast<SpatialKernel *>(Buffer(io, sizeof(SpatialKernel) + n * sizeof(int32_t)));
    k->size = in.ConsumeIntegral<uint8_t>() < 8 ? Word(in) : SPATIALKERNEL_SIZE;
    k->divisor = Word(in);
    k->bias = Word(in);
    k->dim = dim;
    for (size_t i = 0; i < n && i < 81; ++i) k->matrix[i] = Word(in);
    return k;
}

const void *UserKernelArg(FuzzedDataProvider &in, Inputs &io) {
    const bool small = in.ConsumeBool();
    const uint32_t w = small ? in.ConsumeIntegralInRange<uint32_t>(0, 7) : in.ConsumeIntegral<uint32_t>();
    const uint32_t h = small ? in.ConsumeIntegralInRange<uint32_t>(0, 7) : in.ConsumeIntegral<uint32_t>();
    const bool fits = w >= 1 && h >= 1 && w <= RZ_MAX_KERNEL_SIDE && h <= RZ_MAX_KERNEL_SIDE;
    const size_t n = fits ? size_t(w) * h : 1;
    auto *k = static_cast<UserFilterKernel *>(Buffer(io, sizeof(UserFilterKernel) + n * sizeof(int32_t)));
    k->size = in.ConsumeIntegral<uint8_t>() < 8 ? Word(in) : USERFILTERKERNEL_SIZE;
    k->width = w;
    k->height = h;
    k->centerX = in.ConsumeIntegralInRange<int32_t>(-1, 7);
    k->centerY = in.ConsumeIntegralInRange<int32_t>(-1, 7);
    k->divisor = uint32_t(Word(in));
    k->offset = Word(in);
    k->type = in.ConsumeIntegralInRange<int32_t>(-1, 3);
    for (size_t i = 0; i < n && i < 49; ++i) k->matrix[i] = Word(in);
    return k;
}

// An array made for the operation's bitmap or another small one.
void *ArrayArg(FuzzedDataProvider &in, Inputs &io) {
    if (in.ConsumeIntegral<uint8_t>() < 16) return nullptr;
    BitmapDesc *for_ = &io.bitmaps[0]->d;
    FuzzBitmap other;
    if (in.ConsumeIntegral<uint8_t>() < 32) {
        MakeBitmap(in, other, nullptr);
        for_ = &other.d;
    }
    const uint32_t size = for_->uStructSize;
    for_->uStructSize = BITMAPDESC_SIZE;
    FTARRAY *a = nullptr;
    Rz_AllocFTArray(for_, &a, FTARRAY_SIZE);
    for_->uStructSize = size;
    if (!a) return nullptr;
    const size_t cells = size_t(a->uWidth) * a->uHeight;
    for (size_t i = 0; i < cells && i < 4096; ++i) {
        const double v[2] = {double(Word(in)), double(Word(in))};
        std::memcpy(a->acxData[i], v, sizeof v);
    }
    io.arrays.push_back(a);
    io.arraySizes.push_back(a->uStructSize);
    if (in.ConsumeIntegral<uint8_t>() < 8) a->uStructSize = uint32_t(Word(in));
    return a;
}

void *PointerArg(FuzzedDataProvider &in, Inputs &io, const ParamInfo &p, PtrKind kind) {
    if (kind == PtrKind::SpatialKernel) return const_cast<void *>(SpatialKernelArg(in, io));
    if (in.ConsumeIntegral<uint8_t>() < 20) return nullptr;
    if (kind == PtrKind::UserKernel) return const_cast<void *>(UserKernelArg(in, io));
    if (kind == PtrKind::Array) return ArrayArg(in, io);
    if (kind == PtrKind::ArraySlot) {
        io.arraySlots.push_back(std::make_unique<FTARRAY *>(nullptr));
        return io.arraySlots.back().get();
    }
    // A table of records: the first word of each is its size when the
    // record is larger than a word (HueSatIntRange and its kind).
    const size_t rec = std::max<size_t>(p.pointee, 1);
    auto *bytes = static_cast<uint8_t *>(Buffer(io, rec * kTableRecords));
    if (p.output) return bytes;
    const size_t used = in.ConsumeIntegralInRange<size_t>(0, 64);
    if (rec % 4 == 0) {
        const size_t words = std::min(used * rec / 4, rec * kTableRecords / 4);
        auto *w = reinterpret_cast<int32_t *>(bytes);
        for (size_t i = 0; i < words; ++i) w[i] = Word(in);
        if (rec > 4 && in.ConsumeIntegral<uint8_t>() >= 8)
            for (size_t r = 0; r < kTableRecords; ++r) w[r * rec / 4] = int32_t(rec);
    } else {
        Fill(in, bytes, std::min(used * rec, rec * kTableRecords));
    }
    if (in.ConsumeBool()) { // tables of 256 or 65536 entries often take their whole length
        auto *w = reinterpret_cast<int32_t *>(bytes);
        for (size_t i = 0; i < rec * kTableRecords / 4 && rec == 4; ++i) w[i] = int32_t(i * 2654435761u >> 16);
    }
    return bytes;
}

// ---- What must not change ----

struct Snapshot {
    BitmapDesc d;
    std::vector<uint8_t> pixels;
};

Snapshot Take(const BitmapDesc &d, bool pixels) {
    Snapshot s{d, {}};
    if (pixels && d.pData && (d.uFlags & BMF_ALLOCATED))
        s.pixels.assign(d.pData, d.pData + size_t(d.nStride) * size_t(d.nStoredHeight));
    return s;
}

// The caller's view, geometry, region and state word, for every operation.
void CheckFrame(const OpInfo &op, const BitmapDesc &was, const BitmapDesc &is) {
    if (is.uStructSize != was.uStructSize) Fail(op, "structure size changed");
    if (is.nViewPerspective != was.nViewPerspective) Fail(op, "view changed");
    if (is.nWidth != was.nWidth || is.nHeight != was.nHeight) Fail(op, "size changed");
    if (is.pRegion != was.pRegion) Fail(op, "region changed");
    if (is.uKernelState != was.uKernelState) Fail(op, "state word changed");
}

// Every field an operation that changes only samples leaves alone.
void CheckFields(const OpInfo &op, const BitmapDesc &was, const BitmapDesc &is) {
    CheckFrame(op, was, is);
    const int32_t top = was.nBitsPerPixel - 1;
    const int32_t wasHigh = was.nHighBit == -1 ? top : was.nHighBit, isHigh = is.nHighBit == -1 ? top : is.nHighBit;
    if (is.nBitsPerPixel != was.nBitsPerPixel || is.nColorOrder != was.nColorOrder ||
        is.nStride != was.nStride || is.nStoredWidth != was.nStoredWidth || is.nStoredHeight != was.nStoredHeight ||
        is.uFlags != was.uFlags || is.nColors != was.nColors || is.nDataKind != was.nDataKind ||
        is.pPalette != was.pPalette || is.pData != was.pData || is.pLUT != was.pLUT ||
        is.nLUTLength != was.nLUTLength || is.nLowBit != was.nLowBit || isHigh != wasHigh)
        Fail(op, "descriptor field changed");
}

void CheckUnchanged(const OpInfo &op, const Snapshot &was, const BitmapDesc &is) {
    CheckFields(op, was.d, is);
    if (is.nChangeCount != was.d.nChangeCount) Fail(op, "change count of an input changed");
    if (!was.pixels.empty() && std::memcmp(was.pixels.data(), is.pData, was.pixels.size()) != 0)
        Fail(op, "pixels of an input changed");
}

// ---- The status callback ----

// Stops at a chosen report, and any call that has run for a second: the
// heavy operations (deskew measures on a page of 1024 x 690 pixels at
// least) would otherwise take most of the fuzzer's time.
struct Stopper {
    int32_t stopAt = 0; // 1-based call; 0 never
    int32_t value = 0;
    int32_t calls = 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

int32_t RZAPI OnStatus(int32_t percent, void *user) {
    auto *s = static_cast<Stopper *>(user);
    if (percent < 0 || percent > 100) {
        std::fprintf(stderr, "fuzz_ops: progress %d reported\n", percent);
        std::abort();
    }
    if (++s->calls == s->stopAt) return s->value;
    return std::chrono::steady_clock::now() - s->start > std::chrono::seconds(1) ? 2 : ST_SUCCESS;
}

// RZ_FUZZ_TRACE=1 prints every call, for replaying a finding.
bool Tracing() {
    static const bool on = std::getenv("RZ_FUZZ_TRACE") != nullptr;
    return on;
}

bool IsConsumer(const OpInfo &op) { return std::strcmp(op.name, "Rz_FreeFTArray") == 0; }

// The kind of every pointer parameter, by operation and parameter index.
std::vector<std::vector<PtrKind>> Kinds(std::span<const OpInfo> ops) {
    std::vector<std::vector<PtrKind>> kinds;
    for (const OpInfo &op : ops) {
        kinds.emplace_back();
        for (const ParamInfo &p : op.params) kinds.back().push_back(p.kind == ParamKind::Ptr ? KindOf(p) : PtrKind::Table);
    }
    return kinds;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::span<const OpInfo> ops = rz::Operations();
    static const std::vector<std::vector<PtrKind>> kinds = Kinds(ops);
    FuzzedDataProvider in(data, size);
    const size_t opIndex = in.ConsumeIntegralInRange<size_t>(0, ops.size() - 1);
    const OpInfo &op = ops[opIndex];
    const int64_t start = KrnMemOutstanding();
    {
        Inputs io;
        io.bitmaps.push_back(std::make_unique<FuzzBitmap>());
        MakeBitmap(in, *io.bitmaps[0], nullptr);
        BitmapDesc *bmp = &io.bitmaps[0]->d;

        std::vector<Arg> args(op.params.size());
        std::vector<BitmapDesc *> readOnly;
        bool bmpIsNull = false;
        for (size_t i = 0; i < op.params.size(); ++i) {
            const ParamInfo &p = op.params[i];
            switch (p.kind) {
            case ParamKind::Bitmap:
                bmpIsNull = in.ConsumeIntegral<uint8_t>() < 4;
                args[i].p = bmpIsNull ? nullptr : bmp;
                break;
            case ParamKind::I32:
            case ParamKind::U32: args[i].i = Scalar(in, p); break;
            case ParamKind::Ptr: args[i].p = PointerArg(in, io, p, kinds[opIndex][i]); break;
            case ParamKind::Source:
                if (p.nullable && in.ConsumeBool()) {
                    args[i].p = nullptr;
                } else {
                    io.bitmaps.push_back(std::make_unique<FuzzBitmap>());
                    MakeBitmap(in, *io.bitmaps.back(), bmp);
                    args[i].p = &io.bitmaps.back()->d;
                    readOnly.push_back(&io.bitmaps.back()->d);
                }
                break;
            case ParamKind::List: {
                if (in.ConsumeIntegral<uint8_t>() < 8 || KrnCreateBitmapList(&io.list) != KRN_OK) {
                    args[i].p = nullptr;
                    break;
                }
                const int32_t n = in.ConsumeIntegralInRange<int32_t>(0, 4);
                for (int32_t k = 0; k < n; ++k) {
                    io.bitmaps.push_back(std::make_unique<FuzzBitmap>());
                    MakeBitmap(in, *io.bitmaps.back(), bmp);
                    BitmapDesc *b = &io.bitmaps.back()->d;
                    if (KrnAppendBitmapList(io.list, b, KRN_LIST_REFERENCE) == KRN_OK) readOnly.push_back(b);
                }
                args[i].p = io.list;
                break;
            }
            case ParamKind::Result:
                if (in.ConsumeIntegral<uint8_t>() < 8) {
                    args[i].p = nullptr;
                } else {
                    io.results.push_back(std::make_unique<BitmapDesc>());
                    args[i].p = io.results.back().get();
                }
                break;
            }
        }
        if (in.ConsumeIntegral<uint8_t>() < 6) bmp->uStructSize = in.ConsumeIntegral<uint32_t>();

        Stopper stopper;
        if (in.ConsumeBool()) {
            stopper.stopAt = in.ConsumeIntegralInRange<int32_t>(1, 12);
            const int32_t values[] = {0, 2, -1, -13, 12345, ST_SUCCESS};
            stopper.value = values[in.ConsumeIntegralInRange<size_t>(0, std::size(values) - 1)];
        }
        const int64_t failAfter = in.ConsumeBool() ? in.ConsumeIntegralInRange<int64_t>(0, 40) : -1;

        const Snapshot before = Take(*bmp, false);
        const bool wasValid = !bmpIsNull && KrnValidateBitmap(bmp) == KRN_OK;
        std::vector<Snapshot> inputs;
        for (BitmapDesc *b : readOnly) inputs.push_back(Take(*b, true));

        if (Tracing()) {
            std::fprintf(stderr, "%s(", op.name);
            for (size_t i = 0; i < args.size(); ++i)
                std::fprintf(stderr, i ? ", %lld" : "%lld", static_cast<long long>(args[i].i));
            std::fprintf(stderr, ") bitmap %d x %d, %d bits, order %d, view %d; stop %d at %d; fail after %lld\n",
                         bmp->nWidth, bmp->nHeight, bmp->nBitsPerPixel, bmp->nColorOrder, bmp->nViewPerspective,
                         stopper.value, stopper.stopAt, static_cast<long long>(failAfter));
        }
        RZSTATUSCALLBACK prevFn = nullptr;
        void *prevUser = nullptr;
        KrnSetStatusCallback(&OnStatus, &stopper, &prevFn, &prevUser);
        KrnMemFailAfter(failAfter);
        stopper.start = std::chrono::steady_clock::now();
        const int32_t st = op.invoke(args.data());
        KrnMemFailAfter(-1);
        void *user = nullptr;
        if (KrnGetStatusCallback(&user) != &OnStatus || user != &stopper) Fail(op, "status callback not restored");
        KrnSetStatusCallback(prevFn, prevUser, nullptr, nullptr);

        if (!bmpIsNull) {
            if (op.flags & RZ_OPF_INPLACE)
                CheckFields(op, before.d, *bmp);
            else
                CheckFrame(op, before.d, *bmp);
            if (st == ST_SUCCESS && wasValid && KrnValidateBitmap(bmp) != KRN_OK)
                Fail(op, "succeeded but left a bitmap the kernel refuses");
        }
        for (size_t k = 0; k < readOnly.size(); ++k) CheckUnchanged(op, inputs[k], *readOnly[k]);
        for (auto &r : io.results)
            if (st == ST_SUCCESS && KrnValidateBitmap(r.get()) != KRN_OK) Fail(op, "result refused by the kernel");
        io.Release(IsConsumer(op) && st == ST_SUCCESS);
    }
    if (KrnMemOutstanding() != start) Fail(op, "kernel blocks left behind");
    return 0;
}
