#include "support/reliability.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace rz::test {

BitmapDesc *Copies::copy(BitmapDesc *b) {
    bitmaps.push_back(std::make_unique<BitmapDesc>());
    return KrnCopyBitmap(bitmaps.back().get(), b, BITMAPDESC_SIZE) == KRN_OK ? bitmaps.back().get() : nullptr;
}

Copies::~Copies() {
    for (auto &b : bitmaps) {
        b->uStructSize = BITMAPDESC_SIZE;
        if (b->uFlags & BMF_ALLOCATED) KrnFreeBitmap(b.get());
    }
}

namespace {

using Array = std::unique_ptr<FTARRAY, decltype(&Rz_FreeFTArray)>;

// A transform array of the bitmap's size with every kind of element: zeros,
// negatives, a large DC term (packed: no aligned stores).
Array MakeArray(BitmapDesc *b) {
    FTARRAY *a = nullptr;
    Rz_AllocFTArray(b, &a, FTARRAY_SIZE);
    for (uint32_t i = 0; a && i < a->uWidth * a->uHeight; ++i) {
        const double z[2] = {i == 0 ? 5000.0 : double(int(i % 7) - 3), double(int(i % 5) - 2)};
        std::memcpy(a->acxData[i], z, sizeof z);
    }
    return Array(a, &Rz_FreeFTArray);
}

struct RegistryInputs {
    std::vector<Arg> args;
    std::vector<Array> arrays;
    std::vector<BitmapDesc *> bitmaps; // by parameter index, where the parameter is a bitmap
    Copies copies;
    std::vector<std::vector<uint64_t>> outputs;
    KrnBitmapList *list = nullptr;
    BitmapDesc result{};
    std::shared_ptr<void> extra;
    ~RegistryInputs() {
        KrnFreeBitmapList(list);
        if (result.uFlags & BMF_ALLOCATED) KrnFreeBitmap(&result);
    }
};

BoundCall BindRegistry(const OpInfo &op, BitmapDesc *bmp, int32_t nullStatus, const ArgAdjust &adjust) {
    auto in = std::make_shared<RegistryInputs>();
    const size_t n = op.params.size();
    in->args.resize(n);
    in->bitmaps.assign(n, nullptr);
    std::vector<std::pair<int, BitmapPlace>> ranked;
    const auto copy = [&] {
        BitmapDesc *d = in->copies.copy(bmp);
        return d ? d : bmp;
    };
    for (size_t i = 0; i < n; ++i) {
        const ParamInfo &p = op.params[i];
        switch (p.kind) {
        case ParamKind::Bitmap:
            in->bitmaps[i] = bmp;
            ranked.push_back({0, {&in->bitmaps[i], nullStatus}});
            break;
        case ParamKind::Source:
            if (p.nullable) break;
            in->bitmaps[i] = copy();
            ranked.push_back({p.rank, {&in->bitmaps[i], ST_NULL_POINTER}});
            break;
        case ParamKind::List:
            KrnCreateBitmapList(&in->list);
            KrnAppendBitmapList(in->list, bmp, KRN_LIST_REFERENCE);
            KrnAppendBitmapList(in->list, copy(), KRN_LIST_REFERENCE);
            in->args[i].p = in->list;
            in->bitmaps[i] = bmp; // the list refers to it: spoiling it spoils the list's first
            ranked.push_back({1, {&in->bitmaps[i], 0}});
            break;
        case ParamKind::Result:
            in->bitmaps[i] = &in->result;
            ranked.push_back({-1000, {&in->bitmaps[i], ST_NULL_POINTER, false}});
            break;
        case ParamKind::Ptr:
            if (std::string_view(p.type).find("FTARRAY *") != std::string_view::npos) {
                in->arrays.push_back(MakeArray(bmp));
                in->args[i].p = in->arrays.back().get();
                break;
            }
            // Outputs get room, tables entries every depth accepts.
            in->outputs.emplace_back(std::max<size_t>(p.pointee, 8) * RZ_MAX_RECORDS / 8);
            for (size_t k = 0; !p.output && k < RZ_MAX_RECORDS / 2; ++k)
                in->outputs.back()[k] = uint64_t((2 * k * 7 + 3) % 256) | uint64_t((2 * k * 7 + 10) % 256) << 32;
            in->args[i].p = in->outputs.back().data();
            break;
        default: in->args[i].i = p.def;
        }
    }
    if (adjust) in->extra = adjust(in->args, bmp);
    // Optional bitmaps the adjustment supplied are places too; null is accepted there.
    for (size_t i = 0; i < n; ++i)
        if (op.params[i].kind == ParamKind::Source && op.params[i].nullable && in->args[i].p) {
            in->bitmaps[i] = static_cast<BitmapDesc *>(in->args[i].p);
            ranked.push_back({op.params[i].rank, {&in->bitmaps[i], 0, true, true}});
        }
    std::stable_sort(ranked.begin(), ranked.end(), [](auto &a, auto &b) { return a.first < b.first; });
    BoundCall call;
    for (const auto &r : ranked) call.places.push_back(r.second);
    RegistryInputs *raw = in.get();
    call.run = [&op, raw]() {
        std::vector<Arg> args = raw->args;
        for (size_t i = 0; i < args.size(); ++i) {
            const ParamKind k = op.params[i].kind;
            if (k == ParamKind::Bitmap || k == ParamKind::Source || k == ParamKind::Result) args[i].p = raw->bitmaps[i];
        }
        return op.invoke(args.data());
    };
    call.releaseOutputs = [raw]() {
        if (raw->result.uFlags & BMF_ALLOCATED) KrnFreeBitmap(&raw->result);
        std::memset(&raw->result, 0, sizeof raw->result);
    };
    call.keep = in;
    return call;
}

} // namespace

bool NeedsBinding(const OpInfo &op) {
    return std::any_of(op.params.begin(), op.params.end(), [](const ParamInfo &p) {
        return p.kind == ParamKind::Source || p.kind == ParamKind::List || p.kind == ParamKind::Result;
    });
}

BoundCall Bind(const ReliabilityCase &c, BitmapDesc *bmp) {
    if (!c.call) return BindRegistry(*FindOperation(c.name), bmp, c.nullStatus, c.adjust);
    auto slot = std::make_shared<BitmapDesc *>(bmp);
    BoundCall call;
    call.run = [fn = c.call, place = slot.get()]() { return fn(*place); };
    call.places.push_back({slot.get(), c.nullStatus});
    call.keep = slot;
    return call;
}

std::vector<ReliabilityCase> &ReliabilityCases() {
    static std::vector<ReliabilityCase> cases;
    return cases;
}

ReliabilityRegistrar::ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus,
                                           std::vector<std::string> layouts, int32_t side) {
    ReliabilityCases().push_back(
        {name, std::move(call), {}, 0, nullStatus, side, side, 0, std::move(layouts)});
}

ReliabilityRegistrar::ReliabilityRegistrar(const char *name, ArgAdjust adjust, std::vector<std::string> layouts,
                                           int32_t side) {
    ReliabilityCases().push_back({name, {}, std::move(adjust), 0, 0, side, side, 0, std::move(layouts)});
}

ArgAdjust ScalarArgs(const char *name, std::vector<int64_t> values) {
    return [name = std::string(name), values](std::vector<Arg> &args, BitmapDesc *) {
        const OpInfo *op = FindOperation(name);
        size_t k = 0;
        for (size_t i = 0; i < args.size() && k < values.size(); ++i) {
            const ParamKind kind = op->params[i].kind;
            if (kind != ParamKind::I32 && kind != ParamKind::U32) continue;
            if (values[k] != kDefault) args[i].i = values[k];
            ++k;
        }
        return std::shared_ptr<void>();
    };
}

} // namespace rz::test
