#include "support/reliability.h"

#include <algorithm>
#include <cstring>

namespace rz::test {

namespace {

// A deep copy released with the call's inputs.
struct OwnedCopy {
    BitmapDesc d{};
    bool made = false;
    ~OwnedCopy() {
        d.uStructSize = BITMAPDESC_SIZE;
        if (made) KrnFreeBitmap(&d);
    }
};

struct RegistryInputs {
    std::vector<Arg> args;
    std::vector<BitmapDesc *> bitmaps; // by parameter index, where the parameter is a bitmap
    std::vector<std::unique_ptr<OwnedCopy>> copies;
    KrnBitmapList *list = nullptr;
    BitmapDesc result{};
    std::shared_ptr<void> extra;
    ~RegistryInputs() {
        KrnFreeBitmapList(list);
        if (result.uFlags & BMF_ALLOCATED) KrnFreeBitmap(&result);
    }
};

BitmapDesc *CopyOf(RegistryInputs &in, BitmapDesc *bmp) {
    in.copies.push_back(std::make_unique<OwnedCopy>());
    OwnedCopy &c = *in.copies.back();
    c.made = KrnCopyBitmap(&c.d, bmp, BITMAPDESC_SIZE) == KRN_OK;
    return c.made ? &c.d : bmp;
}

} // namespace

bool NeedsBinding(const OpInfo &op) {
    return std::any_of(op.params.begin(), op.params.end(), [](const ParamInfo &p) {
        return p.kind == ParamKind::Source || p.kind == ParamKind::List || p.kind == ParamKind::Result;
    });
}

BoundCall BindRegistry(const OpInfo &op, BitmapDesc *bmp, int32_t nullStatus, const ArgAdjust &adjust) {
    auto in = std::make_shared<RegistryInputs>();
    const size_t n = op.params.size();
    in->args.resize(n);
    in->bitmaps.assign(n, nullptr);
    struct Ranked {
        int rank;
        BitmapPlace place;
    };
    std::vector<Ranked> ranked;
    for (size_t i = 0; i < n; ++i) {
        const ParamInfo &p = op.params[i];
        switch (p.kind) {
        case ParamKind::Bitmap:
            in->bitmaps[i] = bmp;
            ranked.push_back({0, {&in->bitmaps[i], nullStatus}});
            break;
        case ParamKind::Source:
            if (!p.nullable) {
                in->bitmaps[i] = CopyOf(*in, bmp);
                ranked.push_back({p.rank, {&in->bitmaps[i], ST_NULL_POINTER}});
            }
            break;
        case ParamKind::List:
            KrnCreateBitmapList(&in->list);
            KrnAppendBitmapList(in->list, bmp, KRN_LIST_REFERENCE);
            KrnAppendBitmapList(in->list, CopyOf(*in, bmp), KRN_LIST_REFERENCE);
            in->args[i].p = in->list;
            in->bitmaps[i] = bmp; // the list refers to it: spoiling it spoils the list's first
            ranked.push_back({1, {&in->bitmaps[i], 0}});
            break;
        case ParamKind::Result:
            in->bitmaps[i] = &in->result;
            ranked.push_back({-1000, {&in->bitmaps[i], ST_NULL_POINTER, false}});
            break;
        case ParamKind::Ptr: in->args[i].p = nullptr; break;
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
    std::stable_sort(ranked.begin(), ranked.end(), [](const Ranked &a, const Ranked &b) { return a.rank < b.rank; });
    BoundCall call;
    for (const Ranked &r : ranked) call.places.push_back(r.place);
    const OpInfo *o = &op;
    RegistryInputs *raw = in.get();
    call.run = [o, raw]() {
        std::vector<Arg> args = raw->args;
        for (size_t i = 0; i < args.size(); ++i) {
            const ParamKind k = o->params[i].kind;
            if (k == ParamKind::Bitmap || k == ParamKind::Source || k == ParamKind::Result) args[i].p = raw->bitmaps[i];
        }
        return o->invoke(args.data());
    };
    call.releaseOutputs = [raw]() {
        if (raw->result.uFlags & BMF_ALLOCATED) KrnFreeBitmap(&raw->result);
        std::memset(&raw->result, 0, sizeof raw->result);
    };
    call.keep = in;
    return call;
}

BoundCall Bind(const ReliabilityCase &c, BitmapDesc *bmp) {
    if (c.bind) return c.bind(bmp);
    auto slot = std::make_shared<BitmapDesc *>(bmp);
    BoundCall call;
    OpCall fn = c.call;
    BitmapDesc **place = slot.get();
    call.run = [fn, place]() { return fn(*place); };
    call.places.push_back({place, c.nullStatus});
    call.keep = slot;
    return call;
}

std::vector<ReliabilityCase> &ReliabilityCases() {
    static std::vector<ReliabilityCase> cases;
    return cases;
}

ReliabilityRegistrar::ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus,
                                           std::vector<int32_t> failureStatuses, int32_t width, int32_t height,
                                           std::vector<std::string> layouts) {
    ReliabilityCase c;
    c.name = name;
    c.call = std::move(call);
    c.flags = RZ_OPF_CUSTOM;
    c.nullStatus = nullStatus;
    c.failureStatuses = std::move(failureStatuses);
    c.width = width;
    c.height = height;
    c.layouts = std::move(layouts);
    ReliabilityCases().push_back(std::move(c));
}

ReliabilityRegistrar::ReliabilityRegistrar(const char *name, ArgAdjust adjust, int32_t nullStatus,
                                           std::vector<int32_t> failureStatuses) {
    ReliabilityCase c;
    c.name = name;
    c.flags = RZ_OPF_CUSTOM;
    c.nullStatus = nullStatus;
    c.failureStatuses = std::move(failureStatuses);
    const std::string op = name;
    c.bind = [op, adjust, nullStatus](BitmapDesc *b) {
        return BindRegistry(*FindOperation(op), b, nullStatus, adjust);
    };
    ReliabilityCases().push_back(std::move(c));
}

} // namespace rz::test
