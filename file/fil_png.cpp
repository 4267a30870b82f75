// PNG through libpng. libpng's memory comes from the kernel allocator, so
// its blocks are counted like ours and an allocation failure inside libpng
// takes the same error path as a damaged file.
//
// libpng reports errors by longjmp. Each codec sequence therefore runs in a
// function whose frame holds no object with a destructor; everything that
// must be released (libpng's structures, the bitmap, row buffers) lives in a
// state record owned by the caller, whose destructors run on every path.
// libpng's transforms give exactly the kernel's row layouts (BGR order,
// little-endian 16-bit words, packed indices), so rows decode in place.
#include "fil_internal.h"

#include <png.h>

#include <cmath>
#include <csetjmp>

namespace rzfil {

namespace {

struct PngState {
    FILE *file = nullptr;
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool writing = false;
    int32_t status = 0; // set before a longjmp when the cause is known
    ~PngState() {
        if (writing)
            png_destroy_write_struct(&png, &info);
        else
            png_destroy_read_struct(&png, &info, nullptr);
    }
};

png_voidp PngAlloc(png_structp png, png_alloc_size_t n) {
    void *p = KrnMemAlloc(n);
    if (!p)
        static_cast<PngState *>(png_get_mem_ptr(png))->status = ST_FAILURE;
    return p;
}
void PngFree(png_structp, png_voidp p) { KrnMemFree(p); }
void PngError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void PngWarning(png_structp, png_const_charp) {}

int32_t Failed(PngState *s, int32_t fallback) { return s->status ? s->status : fallback; }

struct PngRead {
    PngState st;
    LoadTarget *target;
    Shape *shape;
    Progress progress;
};

// Resolution, orientation and block sizes into the shape.
void ReadExtras(png_structp png, png_infop info, Shape &sh) {
    png_uint_32 rx = 0, ry = 0;
    int unit = 0;
    if (png_get_pHYs(png, info, &rx, &ry, &unit) && rx && ry && (unit == PNG_RESOLUTION_METER || rx != ry)) {
        if (unit == PNG_RESOLUTION_METER) {
            // Per metre as stored; a whole number of dots per inch reads as such.
            const double ix = rx * 0.0254, iy = ry * 0.0254;
            const bool inch = std::fabs(ix - std::round(ix)) < 0.02 && std::fabs(iy - std::round(iy)) < 0.02;
            sh.resX = inch ? std::round(ix) : rx / 100.0;
            sh.resY = inch ? std::round(iy) : ry / 100.0;
            sh.resUnit = inch ? KRN_RES_INCH : KRN_RES_CM;
        } else {
            sh.resX = rx;
            sh.resY = ry;
            sh.resUnit = KRN_RES_NONE;
        }
    }
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 profileBytes = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &profileBytes))
        sh.iccBytes = profileBytes;
    png_bytep exif = nullptr;
    png_uint_32 exifBytes = 0;
    if (png_get_eXIf_1(png, info, &exifBytes, &exif) && exifBytes) {
        sh.exifBytes = exifBytes;
        sh.orientation = ExifOrientation(exif, exifBytes);
    }
}

// No locals with destructors: a longjmp lands here.
int32_t ReadSteps(PngRead *r) {
    PngState *s = &r->st;
    if (setjmp(png_jmpbuf(s->png)))
        return Failed(s, RZ_FILE_CORRUPT);
    png_set_user_limits(s->png, 0x7fffffff, 0x7fffffff);
    png_init_io(s->png, s->file);
    png_read_info(s->png, s->info);

    png_uint_32 w = 0, h = 0;
    int depth = 0, type = 0, interlace = 0;
    png_get_IHDR(s->png, s->info, &w, &h, &depth, &type, &interlace, nullptr, nullptr);
    Shape &sh = *r->shape;
    sh.format = RZ_FMT_PNG;
    sh.width = w;
    sh.height = h;
    switch (type) {
    case PNG_COLOR_TYPE_PALETTE: sh.bits = depth; break;
    case PNG_COLOR_TYPE_GRAY:
        sh.bits = depth < 16 ? depth : 16;
        if (depth == 16) {
            png_color_8p sig = nullptr;
            sh.order = KRN_ORDER_GRAY;
            sh.sigBits = 16;
            if (png_get_sBIT(s->png, s->info, &sig) && sig->gray >= 1 && sig->gray <= 16)
                sh.sigBits = sig->gray;
        }
        break;
    case PNG_COLOR_TYPE_GRAY_ALPHA: sh.bits = depth == 16 ? 64 : 32; break;
    case PNG_COLOR_TYPE_RGB: sh.bits = depth == 16 ? 48 : 24; break;
    case PNG_COLOR_TYPE_RGB_ALPHA: sh.bits = depth == 16 ? 64 : 32; break;
    default: return RZ_FILE_CORRUPT;
    }
    // Transparency becomes a fourth channel, so the picture loads as colour.
    const bool trns = png_get_valid(s->png, s->info, PNG_INFO_tRNS) != 0;
    if (trns) {
        sh.bits = depth == 16 ? 64 : 32;
        sh.order = KRN_ORDER_BGR;
        sh.sigBits = 0;
    }
    sh.alpha = trns || (type & PNG_COLOR_MASK_ALPHA) != 0;
    if (sh.sigBits == 0)
        sh.sigBits = sh.bits;
    ReadExtras(s->png, s->info, sh);
    if (!r->target)
        return ST_SUCCESS;

    const int32_t checked = MakeTarget(*r->target, sh);
    if (checked != KRN_OK)
        return checked;
    if (type == PNG_COLOR_TYPE_PALETTE && !trns) {
        png_colorp pal = nullptr;
        int count = 0;
        if (!png_get_PLTE(s->png, s->info, &pal, &count))
            return RZ_FILE_CORRUPT;
        uint8_t rgb[256][3];
        for (int i = 0; i < count && i < 256; ++i) {
            rgb[i][0] = pal[i].red;
            rgb[i][1] = pal[i].green;
            rgb[i][2] = pal[i].blue;
        }
        const int32_t ps = SetTargetPalette(*r->target, rgb, count);
        if (ps != KRN_OK)
            return ps;
    }
    if (trns)
        png_set_expand(s->png); // palette to RGB, low grey depths to 8 bits, tRNS to alpha
    if (type == PNG_COLOR_TYPE_GRAY_ALPHA || (trns && !(type & PNG_COLOR_MASK_COLOR)))
        png_set_gray_to_rgb(s->png);
    if (type & PNG_COLOR_MASK_COLOR || type == PNG_COLOR_TYPE_GRAY_ALPHA || trns)
        png_set_bgr(s->png);
    if (depth == 16)
        png_set_swap(s->png);
    const int passes = png_set_interlace_handling(s->png);
    png_read_update_info(s->png, s->info);
    for (int pass = 0; pass < passes; ++pass)
        for (png_uint_32 y = 0; y < h; ++y) {
            png_read_row(s->png, r->target->row(y), nullptr);
            const int32_t ps = r->progress.step(int64_t(pass) * h + y + 1, int64_t(passes) * h);
            if (ps != ST_SUCCESS)
                return ps;
        }
    png_read_end(s->png, s->info);
    if (sh.exifBytes == 0) // an eXIf chunk may follow the pixels
        ReadExtras(s->png, s->info, sh);

    if (sh.bits == 16 && sh.sigBits < 16) {
        const unsigned down = 16 - unsigned(sh.sigBits);
        for (png_uint_32 y = 0; y < h; ++y) {
            uint16_t *v = reinterpret_cast<uint16_t *>(r->target->row(y));
            for (png_uint_32 x = 0; x < w; ++x)
                v[x] = uint16_t(v[x] >> down);
        }
    }
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr, exif = nullptr;
    png_uint_32 profileBytes = 0, exifBytes = 0;
    png_get_iCCP(s->png, s->info, &name, &compression, &profile, &profileBytes);
    png_get_eXIf_1(s->png, s->info, &exifBytes, &exif);
    return ApplyMetadata(*r->target, sh, profile, profile ? profileBytes : 0, exif, exif ? exifBytes : 0);
}

struct PngWrite {
    PngState st;
    const SavePlan *plan;
    const SaveMeta *meta;
    uint8_t *row;
    uint8_t *scratch;
    Progress progress;
};

int32_t WriteSteps(PngWrite *wr) {
    PngState *s = &wr->st;
    const SavePlan &p = *wr->plan;
    if (setjmp(png_jmpbuf(s->png)))
        return Failed(s, RZ_FILE_WRITE);
    png_init_io(s->png, s->file);
    int type = PNG_COLOR_TYPE_GRAY;
    if (p.kind == Kind::Index)
        type = PNG_COLOR_TYPE_PALETTE;
    else if (p.kind == Kind::Rgb)
        type = p.channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(s->png, s->info, png_uint_32(p.width), png_uint_32(p.height), p.bits, type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (p.kind == Kind::Index) {
        png_color pal[256];
        for (int i = 0; i < p.paletteCount; ++i)
            pal[i] = png_color{p.palette[i].rgbRed, p.palette[i].rgbGreen, p.palette[i].rgbBlue};
        png_set_PLTE(s->png, s->info, pal, p.paletteCount);
    }
    if (p.kind == Kind::Grey && p.bits == 16 && p.sigBits < 16) {
        png_color_8 sig{};
        sig.gray = png_byte(p.sigBits);
        png_set_sBIT(s->png, s->info, &sig);
    }
    const SaveMeta &m = *wr->meta;
    if (m.resX > 0) {
        const bool aspect = m.resUnit == KRN_RES_NONE;
        const double scale = aspect ? 1 : 100;
        png_set_pHYs(s->png, s->info, png_uint_32(std::lround(m.in(KRN_RES_CM, m.resX) * scale)),
                     png_uint_32(std::lround(m.in(KRN_RES_CM, m.resY) * scale)),
                     aspect ? PNG_RESOLUTION_UNKNOWN : PNG_RESOLUTION_METER);
    }
    // A profile libpng finds unfit for the picture (a colour profile on grey,
    // say) is left out rather than failing the save.
    png_set_benign_errors(s->png, 1);
    if (m.iccBytes)
        png_set_iCCP(s->png, s->info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, m.icc, m.iccBytes);
    png_set_benign_errors(s->png, 0);
    if (m.exifBytes)
        png_set_eXIf_1(s->png, s->info, m.exifBytes, m.exif);
    png_write_info(s->png, s->info);
    if (p.bits == 16)
        png_set_swap(s->png); // plan rows are host order: little-endian
    for (int64_t y = 0; y < p.height; ++y) {
        int32_t rs = PlanRow(p, y, wr->scratch, wr->row);
        if (rs != ST_SUCCESS)
            return rs;
        png_write_row(s->png, wr->row);
        if ((rs = wr->progress.step(y + 1, p.height)) != ST_SUCCESS)
            return rs;
    }
    png_write_end(s->png, s->info);
    return ST_SUCCESS;
}

} // namespace

int32_t LoadPng(FILE *f, LoadTarget *t, Shape &shape) {
    PngRead r;
    r.st.file = f;
    r.target = t;
    r.shape = &shape;
    r.st.png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, &r.st, PngError, PngWarning, &r.st, PngAlloc, PngFree);
    if (!r.st.png)
        return ST_FAILURE;
    r.st.info = png_create_info_struct(r.st.png);
    if (!r.st.info)
        return ST_FAILURE;
    return ReadSteps(&r);
}

int32_t SavePng(FILE *f, const BitmapDesc *b) {
    SavePlan plan;
    int32_t st = PlanFor(b, CapsFor(RZ_FMT_PNG), plan);
    if (st != ST_SUCCESS)
        return st;
    SaveMeta meta;
    if ((st = meta.read(b)) != ST_SUCCESS)
        return st;
    plan.scaledToTop = true;
    Scratch row(PlanRowBytes(plan)), scratch(PlanScratchBytes(plan));
    if (!row || !scratch)
        return ST_FAILURE;
    PngWrite wr;
    wr.st.file = f;
    wr.st.writing = true;
    wr.plan = &plan;
    wr.meta = &meta;
    wr.row = row.get();
    wr.scratch = scratch.get();
    wr.st.png = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, &wr.st, PngError, PngWarning, &wr.st, PngAlloc,
                                          PngFree);
    if (!wr.st.png)
        return ST_FAILURE;
    wr.st.info = png_create_info_struct(wr.st.png);
    if (!wr.st.info)
        return ST_FAILURE;
    return WriteSteps(&wr);
}

} // namespace rzfil
