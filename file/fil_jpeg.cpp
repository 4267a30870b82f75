// JPEG through libjpeg(-turbo): grey loads as an 8-bit grey-ramp bitmap,
// colour as 24-bit BGR (the decoder writes BGR itself), CMYK and YCCK as
// 24-bit BGR from the decoder's CMYK: files with an Adobe marker store the
// inks inverted (0 is full ink), so red is C * K / 255 there and
// (255 - C) * (255 - K) / 255 otherwise. Saving takes grey bitmaps as grey
// and everything else as RGB, 8 bits a channel. JFIF density, the ICC
// profile (APP2) and the EXIF block (APP1) travel both ways.
//
// libjpeg reports errors through an error manager whose exit longjmps back
// into a function with no destructible locals; the decompressor, the bitmap
// and the row buffers belong to the caller's state record. A premature end
// of data, which libjpeg only warns about, counts as a damaged file, and a
// progress monitor stops files that would run endless progressive scans.
#include "fil_internal.h"

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jerror.h>
#include <jpeglib.h>

namespace rzfil {

namespace {

constexpr int kMaxScans = 1000;

struct JpegErr {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    int32_t status;
};

void ErrorExit(j_common_ptr c) {
    JpegErr *e = reinterpret_cast<JpegErr *>(c->err);
    if (!e->status) {
        const int code = c->err->msg_code;
        if (code == JERR_OUT_OF_MEMORY)
            e->status = ST_FAILURE;
        else if (code == JERR_FILE_WRITE)
            e->status = RZ_FILE_WRITE;
        else
            e->status = RZ_FILE_CORRUPT;
    }
    longjmp(e->jump, 1);
}

void EmitMessage(j_common_ptr c, int level) {
    if (level < 0 && c->err->msg_code == JWRN_JPEG_EOF)
        c->err->error_exit(c);
}

void OutputMessage(j_common_ptr) {}

void InitErr(JpegErr &e) {
    jpeg_std_error(&e.mgr);
    e.mgr.error_exit = ErrorExit;
    e.mgr.emit_message = EmitMessage;
    e.mgr.output_message = OutputMessage;
    e.status = 0;
}

void StopEndlessScans(j_common_ptr c) {
    if (c->is_decompressor && reinterpret_cast<j_decompress_ptr>(c)->input_scan_number > kMaxScans) {
        c->err->msg_code = JERR_NOTIMPL;
        c->err->error_exit(c);
    }
}

struct JpegRead {
    JpegErr err;
    jpeg_decompress_struct cinfo{};
    jpeg_progress_mgr progress{};
    FILE *file = nullptr;
    LoadTarget *target = nullptr;
    Shape *shape = nullptr;
    Progress rows;
    Scratch inks;              // one CMYK scanline
    JOCTET *icc = nullptr;     // from jpeg_read_icc_profile (malloc)
    unsigned int iccBytes = 0;
    const uint8_t *exif = nullptr;
    uint32_t exifBytes = 0;
    ~JpegRead() {
        jpeg_destroy_decompress(&cinfo);
        free(icc);
    }
};

constexpr uint8_t kExifHeader[6] = {'E', 'x', 'i', 'f', 0, 0};

// Density, profile and EXIF found in the header's markers.
void ReadExtras(JpegRead *r, Shape &sh) {
    j_decompress_ptr c = &r->cinfo;
    // Unit 0 with equal values (libjpeg's default 1:1) says nothing.
    const bool square = c->density_unit == 0 && c->X_density == c->Y_density;
    if (c->saw_JFIF_marker && c->X_density && c->Y_density && c->density_unit <= 2 && !square) {
        sh.resX = c->X_density;
        sh.resY = c->Y_density;
        sh.resUnit = c->density_unit == 1 ? KRN_RES_INCH : c->density_unit == 2 ? KRN_RES_CM : KRN_RES_NONE;
    }
    for (jpeg_saved_marker_ptr m = c->marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && std::memcmp(m->data, kExifHeader, 6) == 0 &&
            !r->exif) {
            r->exif = m->data + 6;
            r->exifBytes = m->data_length - 6;
        }
    // A profile of inks no longer describes the RGB the inks load as.
    const bool inks = c->jpeg_color_space == JCS_CMYK || c->jpeg_color_space == JCS_YCCK;
    if (!inks && jpeg_read_icc_profile(c, &r->icc, &r->iccBytes) && r->icc)
        sh.iccBytes = r->iccBytes;
    sh.exifBytes = r->exifBytes;
    sh.orientation = ExifOrientation(r->exif, r->exifBytes);
}

// Decoder CMYK into a BGR row.
void InksToBgr(const uint8_t *in, uint8_t *out, size_t n, bool inverted) {
    for (size_t x = 0; x < n; ++x, in += 4, out += 3) {
        const uint32_t k = inverted ? in[3] : 255u - in[3];
        for (int i = 0; i < 3; ++i) {
            const uint32_t ink = inverted ? in[i] : 255u - in[i];
            out[2 - i] = uint8_t((ink * k + 127) / 255);
        }
    }
}

int32_t ReadSteps(JpegRead *r) {
    j_decompress_ptr c = &r->cinfo;
    c->err = &r->err.mgr;
    if (setjmp(r->err.jump))
        return r->err.status ? r->err.status : RZ_FILE_CORRUPT;
    jpeg_create_decompress(c);
    r->progress.progress_monitor = StopEndlessScans;
    c->progress = &r->progress;
    jpeg_stdio_src(c, r->file);
    jpeg_save_markers(c, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(c, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(c, TRUE);
    Shape &sh = *r->shape;
    sh.format = RZ_FMT_JPEG;
    sh.width = c->image_width;
    sh.height = c->image_height;
    const bool inks = c->jpeg_color_space == JCS_CMYK || c->jpeg_color_space == JCS_YCCK;
    if (c->data_precision != 8) {
        return RZ_FILE_SAMPLE_LAYOUT;
    } else if (c->jpeg_color_space == JCS_GRAYSCALE) {
        sh.bits = 8;
        c->out_color_space = JCS_GRAYSCALE;
    } else if (c->jpeg_color_space == JCS_YCbCr || c->jpeg_color_space == JCS_RGB) {
        sh.bits = 24;
        c->out_color_space = JCS_EXT_BGR;
    } else if (inks) {
        sh.bits = 24;
        c->out_color_space = JCS_CMYK;
    } else {
        return RZ_FILE_SAMPLE_LAYOUT;
    }
    sh.sigBits = sh.bits;
    ReadExtras(r, sh);
    if (!r->target)
        return ST_SUCCESS;
    const int32_t checked = CheckShape(sh);
    if (checked != ST_SUCCESS)
        return checked;
    jpeg_start_decompress(c);
    const int32_t made = MakeTarget(*r->target, sh);
    if (made != KRN_OK)
        return made;
    if (inks && !(r->inks = Scratch(size_t(sh.width) * 4)))
        return ST_FAILURE;
    while (c->output_scanline < c->output_height) {
        uint8_t *out = r->target->row(c->output_scanline);
        JSAMPROW row = inks ? r->inks.get() : out;
        jpeg_read_scanlines(c, &row, 1);
        if (inks)
            InksToBgr(row, out, size_t(sh.width), c->saw_Adobe_marker);
        const int32_t ps = r->rows.step(c->output_scanline, c->output_height);
        if (ps != ST_SUCCESS)
            return ps;
    }
    // Before finishing: the saved markers live in libjpeg's image pool.
    const int32_t st = ApplyMetadata(*r->target, sh, r->icc, sh.iccBytes, r->exif, r->exifBytes);
    if (st != ST_SUCCESS)
        return st;
    jpeg_finish_decompress(c);
    return ST_SUCCESS;
}

struct JpegWrite {
    JpegErr err;
    jpeg_compress_struct cinfo{};
    FILE *file = nullptr;
    const SavePlan *plan = nullptr;
    const SaveMeta *meta = nullptr;
    uint8_t *row = nullptr;
    uint8_t *scratch = nullptr;
    int quality = 90;
    Progress rows;
    ~JpegWrite() { jpeg_destroy_compress(&cinfo); }
};

int32_t WriteSteps(JpegWrite *w) {
    j_compress_ptr c = &w->cinfo;
    const SavePlan &p = *w->plan;
    c->err = &w->err.mgr;
    if (setjmp(w->err.jump))
        return w->err.status ? w->err.status : RZ_FILE_WRITE;
    jpeg_create_compress(c);
    jpeg_stdio_dest(c, w->file);
    c->image_width = JDIMENSION(p.width);
    c->image_height = JDIMENSION(p.height);
    c->input_components = p.channels;
    c->in_color_space = p.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(c);
    jpeg_set_quality(c, w->quality, TRUE);
    const SaveMeta &m = *w->meta;
    // JFIF density holds whole numbers up to 65535.
    auto density = [](double v) { return UINT16(v < 1 ? 1 : v > 65535 ? 65535 : std::lround(v)); };
    if (m.resX > 0) {
        c->density_unit = UINT8(m.resUnit == KRN_RES_INCH ? 1 : m.resUnit == KRN_RES_CM ? 2 : 0);
        c->X_density = density(m.resX);
        c->Y_density = density(m.resY);
    }
    jpeg_start_compress(c, TRUE);
    if (m.exifBytes && m.exifBytes <= 65533 - 6) {
        jpeg_write_m_header(c, JPEG_APP0 + 1, m.exifBytes + 6);
        for (uint8_t b : kExifHeader)
            jpeg_write_m_byte(c, b);
        for (uint32_t i = 0; i < m.exifBytes; ++i)
            jpeg_write_m_byte(c, m.exif[i]);
    }
    if (m.iccBytes)
        jpeg_write_icc_profile(c, m.icc, m.iccBytes);
    for (int64_t y = 0; y < p.height; ++y) {
        int32_t rs = PlanRow(p, y, w->scratch, w->row);
        if (rs != ST_SUCCESS)
            return rs;
        JSAMPROW row = w->row;
        jpeg_write_scanlines(c, &row, 1);
        if ((rs = w->rows.step(y + 1, p.height)) != ST_SUCCESS)
            return rs;
    }
    jpeg_finish_compress(c);
    return ST_SUCCESS;
}

} // namespace

int32_t LoadJpeg(FILE *f, LoadTarget *t, Shape &shape) {
    JpegRead r;
    InitErr(r.err);
    r.file = f;
    r.target = t;
    r.shape = &shape;
    return ReadSteps(&r);
}

int32_t SaveJpeg(FILE *f, const BitmapDesc *b, int quality) {
    SavePlan plan;
    int32_t st = PlanFor(b, CapsFor(RZ_FMT_JPEG), plan);
    if (st != ST_SUCCESS)
        return st;
    SaveMeta meta;
    if ((st = meta.read(b)) != ST_SUCCESS)
        return st;
    if (plan.width > JPEG_MAX_DIMENSION || plan.height > JPEG_MAX_DIMENSION || plan.width == 0 || plan.height == 0)
        return RZ_FILE_UNSUPPORTED;
    Scratch row(PlanRowBytes(plan)), scratch(PlanScratchBytes(plan));
    if (!row || !scratch)
        return ST_FAILURE;
    JpegWrite w;
    InitErr(w.err);
    w.file = f;
    w.plan = &plan;
    w.meta = &meta;
    w.row = row.get();
    w.scratch = scratch.get();
    w.quality = quality;
    return WriteSteps(&w);
}

} // namespace rzfil
