// Pieces shared by the codecs of the file library: the bitmap a load builds,
// the pixel limit, the plan that turns a bitmap's rows into what a format
// stores, and small RAII owners.
//
// Loaders decode straight into the rows of a freshly allocated bitmap (view
// 1, so stored row y is view row y). Savers read view rows through the
// kernel, so a bitmap is written as its current view shows it.
#pragma once

#include <rzfil.h>
#include <rzimg.h>

#include <cstdint>
#include <cstdio>
#include <utility>

namespace rzfil {

// A bitmap under construction; freed unless handed over.
struct LoadTarget {
    BitmapDesc bmp{};
    bool live = false;
    LoadTarget() = default;
    LoadTarget(const LoadTarget &) = delete;
    LoadTarget &operator=(const LoadTarget &) = delete;
    ~LoadTarget() {
        if (live)
            KrnFreeBitmap(&bmp);
    }
    uint8_t *row(int64_t y) { return bmp.pData + y * int64_t(bmp.nStride); }
};

// How a file will load (also what Rz_GetFileInfo reports).
struct Shape {
    int32_t format = RZ_FMT_UNKNOWN;
    int64_t width = 0, height = 0;
    int32_t bits = 0;      // kernel depth
    int32_t order = KRN_ORDER_BGR;
    int32_t sigBits = 0;   // 16-bit grey: significant bits
    int32_t pages = 1;
    bool isSigned = false; // 16-bit grey with signed samples
    // What the file says beside the pixels (also reported by Rz_GetFileInfo).
    double resX = 0, resY = 0; // 0: none
    int32_t resUnit = KRN_RES_NONE;
    int32_t orientation = 1;   // TIFF / EXIF orientation, 1..8
    uint32_t iccBytes = 0, exifBytes = 0;
    bool alpha = false;        // a fourth channel or transparency
};

int64_t PixelLimit();
int64_t SwapPixelLimit(int64_t n);

// RZ_FILE_TOO_LARGE when the picture is over the limit or not representable.
int32_t CheckShape(const Shape &s);
// Init and allocate the target for a checked shape (grey ramp for 1..8 bits,
// the 16-bit grey fields filled). Nothing is left allocated on failure.
int32_t MakeTarget(LoadTarget &t, const Shape &s);
// Palette of a 1..8-bit target: count entries in file order red, green, blue.
int32_t SetTargetPalette(LoadTarget &t, const uint8_t (*rgb)[3], int count);

// Progress of a load or save through the caller's kernel status callback,
// read once at the start. step() reports whole percentages as they change.
class Progress {
  public:
    Progress() { fn_ = KrnGetStatusCallback(&user_); }
    // ST_SUCCESS, or the callback's stop value.
    int32_t step(int64_t done, int64_t total) {
        if (!fn_ || total <= 0)
            return ST_SUCCESS;
        const int32_t percent = int32_t(done >= total ? 100 : done * 100 / total);
        if (percent == last_)
            return ST_SUCCESS;
        last_ = percent;
        const int32_t r = fn_(percent, user_);
        return r == 1 ? ST_SUCCESS : r;
    }
    // Asks once more (at 100) whether to go on.
    int32_t check() {
        const int32_t r = fn_ ? fn_(100, user_) : 1;
        return r == 1 ? ST_SUCCESS : r;
    }

  private:
    RZSTATUSCALLBACK fn_ = nullptr;
    void *user_ = nullptr;
    int32_t last_ = -1;
};

// What a file carries beside the pixels, handed to the loaded bitmap: the
// resolution and orientation from the shape, the blocks as given.
int32_t ApplyMetadata(LoadTarget &t, const Shape &s, const void *icc, uint32_t iccBytes, const void *exif,
                      uint32_t exifBytes);
// The kernel view that shows a picture stored with this TIFF / EXIF
// orientation upright (the kernel's 6 and 8 turn the other way).
int32_t ViewForOrientation(int32_t orientation);
// Orientation tag of a TIFF-structured EXIF block, 1 when absent or bad;
// *where gets the value's offset (0 when absent).
int32_t ExifOrientation(const uint8_t *exif, size_t n, size_t *where = nullptr);
// Metadata of the bitmap being saved: resolution, profile, and the EXIF
// block with its orientation set to 1 (pixels are written as the view shows
// them). The EXIF copy is a kernel block owned by the record.
struct SaveMeta {
    double resX = 0, resY = 0;
    int32_t resUnit = KRN_RES_NONE;
    const uint8_t *icc = nullptr;
    uint32_t iccBytes = 0;
    uint8_t *exif = nullptr;
    uint32_t exifBytes = 0;
    SaveMeta() = default;
    SaveMeta(const SaveMeta &) = delete;
    SaveMeta &operator=(const SaveMeta &) = delete;
    ~SaveMeta() { KrnMemFree(exif); }
    int32_t read(const BitmapDesc *b);
    // Resolution converted to a unit (KRN_RES_INCH / KRN_RES_CM).
    double in(int32_t unit, double v) const;
};

// Kernel-allocated buffer.
class Scratch {
  public:
    Scratch() = default;
    explicit Scratch(size_t bytes) : p_(static_cast<uint8_t *>(KrnMemAlloc(bytes ? bytes : 1))) {}
    ~Scratch() { KrnMemFree(p_); }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    Scratch &operator=(Scratch &&o) noexcept {
        std::swap(p_, o.p_);
        return *this;
    }
    uint8_t *get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    uint8_t *p_ = nullptr;
};

// ---- Saving. ----

// What a format writes per pixel: indices, grey or colour, at 1..16 bits a
// sample. Rows come out packed most significant bits first for 1..8 bits,
// as host-order uint16 for 16 bits, colour as R, G, B[, A].
enum class Kind { Index, Grey, Rgb };

struct SavePlan {
    Kind kind = Kind::Grey;
    int bits = 8;          // bits per sample: 1, 2, 4, 8 or 16
    int channels = 1;      // 1, 3 or 4
    int sigBits = 8;       // grey 16: values run 0 .. 2^sigBits - 1
    bool isSigned = false; // 16-bit grey samples are signed
    int paletteCount = 0;  // Index: entries
    RzRGBQuad palette[256]{};
    // Source description, filled by PlanFor.
    const BitmapDesc *src = nullptr;
    int64_t width = 0, height = 0;
    bool scaledToTop = false; // grey 16: values shifted up to the top bits (PNG)
    bool rawGrey = false;     // 1..8 bits: stored samples are already the grey levels
    uint32_t notes = 0;       // RZ_SAVE_NOTE_ bits
};

// What a format can take; PlanFor picks the nearest plan or refuses.
struct FormatCaps {
    bool palette = false;      // indices with a palette (1, 2, 4, 8 bits)
    bool greyLow = false;      // grey at 1, 2, 4 bits
    bool grey16 = false;       // 16-bit grey
    bool rgb16 = false;        // 16 bits a colour channel
    bool alpha = false;        // keeps a fourth channel
    bool signedGrey = false;   // signed 16-bit grey
    bool rgbOnly = false;      // grey and indices become colour
    bool greyOnly = false;     // colour becomes grey (PGM, PBM)
};

// Caps of a format; pnmKind picks PBM / PGM / PPM or, RZ_FMT_UNKNOWN, the
// PNM kind that fits the bitmap.
FormatCaps CapsFor(int32_t format);
// Whether a 32/64-bit bitmap's fourth channel is anywhere below opaque.
bool UsesAlpha(const BitmapDesc *b);

int32_t PlanFor(const BitmapDesc *b, const FormatCaps &caps, SavePlan &plan);
// Bytes of one output row.
size_t PlanRowBytes(const SavePlan &plan);
// Fills out with view row y in the plan's layout; scratch holds
// PlanScratchBytes bytes.
size_t PlanScratchBytes(const SavePlan &plan);
int32_t PlanRow(const SavePlan &plan, int64_t y, uint8_t *scratch, uint8_t *out);

// ---- Codecs. Each takes an open file positioned at the start. A null
// target asks for the shape only. ----
int32_t LoadPng(FILE *f, LoadTarget *t, Shape &shape);
int32_t LoadJpeg(FILE *f, LoadTarget *t, Shape &shape);
int32_t LoadTiff(int fd, const char *name, int32_t page, LoadTarget *t, Shape &shape);
int32_t LoadPnm(FILE *f, LoadTarget *t, Shape &shape);

int32_t SavePng(FILE *f, const BitmapDesc *b);
int32_t SaveJpeg(FILE *f, const BitmapDesc *b, int quality);
int32_t SaveTiff(int fd, const char *name, const BitmapDesc *b, int compression);
int32_t SavePnm(FILE *f, const BitmapDesc *b, int32_t format);
// The plan SavePnm uses for a format (PBM / PGM / PPM, or RZ_FMT_UNKNOWN for
// the kind that fits), and the kind chosen.
int32_t PlanPnm(const BitmapDesc *b, int32_t &format, SavePlan &p);

// ---- DICOM (fil_dicom.cpp) ----
// "DICM" after the 128-byte preamble.
bool IsDicom(FILE *f);
// By file name (the parser opens it itself); info, when not null, receives
// what the header says even when the load fails after reading it.
int32_t LoadDicom(const char *path, int32_t page, LoadTarget *t, Shape &shape, RzDicomInfo *info);
int32_t SaveDicom(FILE *f, const BitmapDesc *b);
// ---- end of DICOM ----

} // namespace rzfil
