// JPEG through libjpeg(-turbo): grey loads as an 8-bit grey-ramp bitmap,
// colour as 24-bit BGR (the decoder writes BGR itself). Saving takes grey
// bitmaps as grey and everything else as RGB, 8 bits a channel.
//
// libjpeg reports errors through an error manager whose exit longjmps back
// into a function with no destructible locals; the decompressor, the bitmap
// and the row buffers belong to the caller's state record. A premature end
// of data, which libjpeg only warns about, counts as a damaged file, and a
// progress monitor stops files that would run endless progressive scans.
#include "fil_internal.h"

#include <csetjmp>
#include <cstdio>

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

void Progress(j_common_ptr c) {
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
    ~JpegRead() { jpeg_destroy_decompress(&cinfo); }
};

int32_t ReadSteps(JpegRead *r) {
    j_decompress_ptr c = &r->cinfo;
    c->err = &r->err.mgr;
    if (setjmp(r->err.jump))
        return r->err.status ? r->err.status : RZ_FILE_CORRUPT;
    jpeg_create_decompress(c);
    r->progress.progress_monitor = Progress;
    c->progress = &r->progress;
    jpeg_stdio_src(c, r->file);
    jpeg_read_header(c, TRUE);
    Shape &sh = *r->shape;
    sh.format = RZ_FMT_JPEG;
    sh.width = c->image_width;
    sh.height = c->image_height;
    if (c->jpeg_color_space == JCS_GRAYSCALE) {
        sh.bits = 8;
        c->out_color_space = JCS_GRAYSCALE;
    } else if (c->jpeg_color_space == JCS_YCbCr || c->jpeg_color_space == JCS_RGB) {
        sh.bits = 24;
        c->out_color_space = JCS_EXT_BGR;
    } else {
        return RZ_FILE_UNSUPPORTED;
    }
    sh.sigBits = sh.bits;
    if (!r->target)
        return ST_SUCCESS;
    const int32_t checked = CheckShape(sh);
    if (checked != ST_SUCCESS)
        return checked;
    jpeg_start_decompress(c);
    const int32_t made = MakeTarget(*r->target, sh);
    if (made != KRN_OK)
        return made;
    while (c->output_scanline < c->output_height) {
        JSAMPROW row = r->target->row(c->output_scanline);
        jpeg_read_scanlines(c, &row, 1);
    }
    jpeg_finish_decompress(c);
    return ST_SUCCESS;
}

struct JpegWrite {
    JpegErr err;
    jpeg_compress_struct cinfo{};
    FILE *file = nullptr;
    const SavePlan *plan = nullptr;
    uint8_t *row = nullptr;
    uint8_t *scratch = nullptr;
    int quality = 90;
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
    jpeg_start_compress(c, TRUE);
    for (int64_t y = 0; y < p.height; ++y) {
        const int32_t rs = PlanRow(p, y, w->scratch, w->row);
        if (rs != ST_SUCCESS)
            return rs;
        JSAMPROW row = w->row;
        jpeg_write_scanlines(c, &row, 1);
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
    FormatCaps caps; // grey and RGB at 8 bits only
    SavePlan plan;
    int32_t st = PlanFor(b, caps, plan);
    if (st != ST_SUCCESS)
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
    w.row = row.get();
    w.scratch = scratch.get();
    w.quality = quality;
    return WriteSteps(&w);
}

} // namespace rzfil
