// TIFF through libtiff. Grey and palette images of 1, 2, 4 and 8 bits,
// 16-bit grey (unsigned or signed), RGB and RGBA at 8 and 16 bits a sample,
// in strips or tiles, contiguous or separate planes, load into their natural
// kernel layouts; other photometric kinds (CMYK, YCbCr, Lab...) go through
// libtiff's RGBA reader as 24-bit colour.
//
// Strips and tiles are read the same way: a strip is a tile as wide as the
// picture. Blocks of one block row are gathered into a band of contiguous
// scanlines, then each scanline is turned into the kernel row (red and blue
// swapped, white-is-zero inverted). Block sizes are checked against the
// pixel limit before any buffer is made, and libtiff's own allocations are
// capped, so a hostile header cannot ask for a huge block.
#include "fil_internal.h"

#include <tiffio.h>

#include <bit>
#include <cstring>
#include <unistd.h>

namespace rzfil {

namespace {

struct TiffErrors {
    bool any = false;
};

int OnError(TIFF *, void *user, const char *, const char *, va_list) {
    if (user)
        static_cast<TiffErrors *>(user)->any = true;
    return 1;
}
int OnWarning(TIFF *, void *, const char *, const char *, va_list) { return 1; }

// libtiff's handle, opened on a descriptor that TIFFClose then closes.
class TiffHandle {
  public:
    TiffHandle(int fd, const char *name, const char *mode, TiffErrors *errors) {
        TIFFOpenOptions *opts = TIFFOpenOptionsAlloc();
        if (!opts) {
            close(fd);
            return;
        }
        TIFFOpenOptionsSetErrorHandlerExtR(opts, OnError, errors);
        TIFFOpenOptionsSetWarningHandlerExtR(opts, OnWarning, nullptr);
        // Single libtiff allocations beyond this are refused; a block of the
        // largest picture the limit admits stays below it.
        int64_t cap = PixelLimit() * 8 + (int64_t(1) << 24);
        if (cap > INT32_MAX)
            cap = INT32_MAX;
        TIFFOpenOptionsSetMaxSingleMemAlloc(opts, tmsize_t(cap));
        tif_ = TIFFFdOpenExt(fd, name, mode, opts);
        TIFFOpenOptionsFree(opts);
        if (!tif_)
            close(fd);
    }
    ~TiffHandle() {
        if (tif_)
            TIFFClose(tif_);
    }
    TiffHandle(const TiffHandle &) = delete;
    TiffHandle &operator=(const TiffHandle &) = delete;
    TIFF *get() const { return tif_; }
    // Writes the directory, syncs and closes; false when any of that failed.
    bool finish() {
        const bool ok = TIFFFlush(tif_) == 1 && fsync(TIFFFileno(tif_)) == 0;
        TIFFClose(tif_);
        tif_ = nullptr;
        return ok;
    }

  private:
    TIFF *tif_ = nullptr;
};

enum class Src { Packed, Grey16, Rgb8, Rgb16, Rgba };

struct Layout {
    Src src = Src::Packed;
    uint16_t bps = 0, spp = 0, planar = PLANARCONFIG_CONTIG, photometric = 0;
    bool invert = false;   // white is zero
    uint16_t sampleMax = 0; // grey 16, white-is-zero: value of white
};

// Fills the shape and the way rows convert. Kinds that only the RGBA reader
// handles give RZ_FILE_SAMPLE_LAYOUT with viaRgba set.
int32_t Describe(TIFF *tif, Shape &sh, Layout &lay, bool &viaRgba) {
    uint32_t w = 0, h = 0;
    if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h))
        return RZ_FILE_CORRUPT;
    sh.width = w;
    sh.height = h;
    uint16_t fmt = SAMPLEFORMAT_UINT;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &lay.bps);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &lay.spp);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &lay.planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &fmt);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &lay.photometric))
        lay.photometric = lay.spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    if (!TIFFIsCODECConfigured(compression))
        return RZ_FILE_COMPRESSION;
    const uint16_t bps = lay.bps, spp = lay.spp, ph = lay.photometric;
    const bool packedBps = bps == 1 || bps == 2 || bps == 4 || bps == 8;
    if (fmt == SAMPLEFORMAT_IEEEFP || fmt == SAMPLEFORMAT_COMPLEXIEEEFP)
        return RZ_FILE_FLOAT_SAMPLES;
    if (fmt != SAMPLEFORMAT_UINT && !(fmt == SAMPLEFORMAT_INT && bps == 16 && spp == 1 &&
                                      (ph == PHOTOMETRIC_MINISBLACK || ph == PHOTOMETRIC_MINISWHITE)))
        return RZ_FILE_SAMPLE_LAYOUT;
    if ((ph == PHOTOMETRIC_MINISBLACK || ph == PHOTOMETRIC_MINISWHITE) && spp == 1 && (packedBps || bps == 16)) {
        lay.invert = ph == PHOTOMETRIC_MINISWHITE;
        if (bps == 16) {
            lay.src = Src::Grey16;
            sh.bits = 16;
            sh.order = KRN_ORDER_GRAY;
            sh.sigBits = 16;
            sh.isSigned = fmt == SAMPLEFORMAT_INT;
            uint16_t maxValue = 0;
            if (!sh.isSigned && TIFFGetField(tif, TIFFTAG_MAXSAMPLEVALUE, &maxValue) && maxValue != 0 &&
                ((uint32_t(maxValue) + 1) & maxValue) == 0)
                sh.sigBits = std::bit_width(maxValue);
            lay.sampleMax = uint16_t((uint32_t(1) << sh.sigBits) - 1);
        } else {
            sh.bits = bps;
        }
        return ST_SUCCESS;
    }
    if (ph == PHOTOMETRIC_PALETTE && spp == 1 && packedBps) {
        sh.bits = bps;
        return ST_SUCCESS;
    }
    if (ph == PHOTOMETRIC_RGB && (spp == 3 || spp == 4) && (bps == 8 || bps == 16)) {
        lay.src = bps == 8 ? (spp == 4 ? Src::Rgba : Src::Rgb8) : Src::Rgb16;
        sh.bits = (spp == 4 ? 32 : 24) * (bps / 8);
        return ST_SUCCESS;
    }
    char message[1024];
    viaRgba = TIFFRGBAImageOK(tif, message) != 0;
    return RZ_FILE_SAMPLE_LAYOUT;
}

// Resolution, orientation and profile size into the shape.
void DescribeExtras(TIFF *tif, Shape &sh) {
    float x = 0, y = 0;
    uint16_t unit = RESUNIT_INCH;
    if (TIFFGetField(tif, TIFFTAG_XRESOLUTION, &x) && TIFFGetField(tif, TIFFTAG_YRESOLUTION, &y) && x > 0 &&
        y > 0) {
        TIFFGetFieldDefaulted(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
        sh.resX = x;
        sh.resY = y;
        sh.resUnit = unit == RESUNIT_CENTIMETER ? KRN_RES_CM : unit == RESUNIT_NONE ? KRN_RES_NONE : KRN_RES_INCH;
    }
    uint16_t orientation = ORIENTATION_TOPLEFT;
    if (TIFFGetField(tif, TIFFTAG_ORIENTATION, &orientation) && orientation >= 1 && orientation <= 8)
        sh.orientation = orientation;
    uint32_t n = 0;
    void *icc = nullptr;
    if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &n, &icc) && icc)
        sh.iccBytes = n;
    sh.alpha = sh.bits == 32 || sh.bits == 64;
}

// One contiguous scanline (samples in file order, host-order words) into a
// kernel row.
template <class T, int C>
void ColourInto(const uint8_t *src, uint8_t *dst, size_t n) {
    const T *s = reinterpret_cast<const T *>(src);
    T *d = reinterpret_cast<T *>(dst);
    for (size_t x = 0; x < n; ++x, s += C, d += C) {
        d[0] = s[2];
        d[1] = s[1];
        d[2] = s[0];
        if constexpr (C == 4)
            d[3] = s[3];
    }
}

void ScanlineInto(const Layout &lay, const uint8_t *src, uint8_t *dst, size_t n, size_t bytes) {
    switch (lay.src) {
    case Src::Packed:
        if (lay.invert)
            for (size_t i = 0; i < bytes; ++i)
                dst[i] = uint8_t(~src[i]);
        else
            std::memcpy(dst, src, bytes);
        break;
    case Src::Grey16: {
        std::memcpy(dst, src, n * 2);
        if (lay.invert) {
            uint16_t *v = reinterpret_cast<uint16_t *>(dst);
            for (size_t x = 0; x < n; ++x)
                v[x] = v[x] > lay.sampleMax ? 0 : uint16_t(lay.sampleMax - v[x]);
        }
        break;
    }
    case Src::Rgb8: ColourInto<uint8_t, 3>(src, dst, n); break;
    case Src::Rgba: ColourInto<uint8_t, 4>(src, dst, n); break;
    case Src::Rgb16:
        if (lay.spp == 4)
            ColourInto<uint16_t, 4>(src, dst, n);
        else
            ColourInto<uint16_t, 3>(src, dst, n);
        break;
    }
}

int32_t ReadPalette(TIFF *tif, LoadTarget &t, int bps) {
    uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b))
        return RZ_FILE_CORRUPT;
    const int count = 1 << bps;
    // Some writers store 8-bit values in the 16-bit map.
    bool eight = true;
    for (int i = 0; i < count; ++i)
        if (r[i] > 255 || g[i] > 255 || b[i] > 255)
            eight = false;
    const int shift = eight ? 0 : 8;
    uint8_t rgb[256][3];
    for (int i = 0; i < count; ++i) {
        rgb[i][0] = uint8_t(r[i] >> shift);
        rgb[i][1] = uint8_t(g[i] >> shift);
        rgb[i][2] = uint8_t(b[i] >> shift);
    }
    return SetTargetPalette(t, rgb, count);
}

int32_t ReadBlocks(TIFF *tif, const Layout &lay, const Shape &sh, LoadTarget &t) {
    Progress progress;
    const bool tiled = TIFFIsTiled(tif) != 0;
    uint32_t bw = uint32_t(sh.width), bh = 0;
    if (tiled) {
        if (!TIFFGetField(tif, TIFFTAG_TILEWIDTH, &bw) || !TIFFGetField(tif, TIFFTAG_TILELENGTH, &bh))
            return RZ_FILE_CORRUPT;
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &bh);
    }
    if (bw == 0 || bh == 0)
        return RZ_FILE_CORRUPT;
    if (tiled && (size_t(bw) * lay.bps * (lay.planar == PLANARCONFIG_SEPARATE ? 1 : lay.spp)) % 8 != 0)
        return RZ_FILE_SAMPLE_LAYOUT;
    if (bh > sh.height)
        bh = uint32_t(sh.height);
    if (int64_t(bw) * bh > PixelLimit() || bw > uint32_t(INT32_MAX) / 8)
        return RZ_FILE_TOO_LARGE;
    const bool separate = lay.planar == PLANARCONFIG_SEPARATE && lay.spp > 1;
    const int planes = separate ? lay.spp : 1;
    const int planeSpp = separate ? 1 : lay.spp;
    const size_t sampleBytes = lay.bps / 8;
    const size_t blockRow = (size_t(bw) * planeSpp * lay.bps + 7) / 8;
    const size_t blockBytes = blockRow * bh;
    const size_t lineBytes = (size_t(sh.width) * lay.spp * lay.bps + 7) / 8;
    Scratch block(blockBytes), band(lineBytes * bh);
    if (!block || !band)
        return ST_FAILURE;
    const size_t n = size_t(sh.width);
    const size_t rowBytes = KrnBitmapRowBytes(&t.bmp);
    for (uint32_t by = 0; by < sh.height; by += bh) {
        const uint32_t rows = uint32_t(sh.height - by) < bh ? uint32_t(sh.height - by) : bh;
        for (uint32_t bx = 0; bx < sh.width; bx += bw) {
            const uint32_t cols = uint32_t(sh.width - bx) < bw ? uint32_t(sh.width - bx) : bw;
            for (int p = 0; p < planes; ++p) {
                const tmsize_t want = tmsize_t(tiled ? blockBytes : blockRow * rows);
                const tmsize_t got =
                    tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, bx, by, 0, uint16_t(p)), block.get(), want)
                          : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, by, uint16_t(p)), block.get(), want);
                if (got < tmsize_t(blockRow * rows))
                    return RZ_FILE_CORRUPT;
                for (uint32_t r = 0; r < rows; ++r) {
                    const uint8_t *s = block.get() + r * blockRow;
                    uint8_t *d = band.get() + r * lineBytes;
                    if (!separate) {
                        // Tile widths are multiples of 16, so blocks start on bytes.
                        const size_t first = size_t(bx) * lay.spp * lay.bps / 8;
                        std::memcpy(d + first, s, (size_t(cols) * lay.spp * lay.bps + 7) / 8);
                    } else {
                        for (uint32_t x = 0; x < cols; ++x)
                            std::memcpy(d + ((size_t(bx) + x) * lay.spp + p) * sampleBytes, s + x * sampleBytes,
                                        sampleBytes);
                    }
                }
            }
        }
        for (uint32_t r = 0; r < rows; ++r) {
            ScanlineInto(lay, band.get() + r * lineBytes, t.row(by + r), n, rowBytes);
            if (const int32_t ps = progress.step(by + r + 1, sh.height); ps != ST_SUCCESS)
                return ps;
        }
    }
    return ST_SUCCESS;
}

// Kinds the direct path does not take, as 24-bit colour.
int32_t ReadRgba(TIFF *tif, Shape &sh, LoadTarget &t) {
    char message[1024];
    if (!TIFFRGBAImageOK(tif, message))
        return RZ_FILE_SAMPLE_LAYOUT;
    sh.bits = 24;
    sh.order = KRN_ORDER_BGR;
    Progress progress;
    const int32_t made = MakeTarget(t, sh);
    if (made != KRN_OK)
        return made;
    // One strip-sized band at a time keeps the scratch small.
    uint32_t rps = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rps);
    if (TIFFIsTiled(tif) && !TIFFGetField(tif, TIFFTAG_TILELENGTH, &rps))
        return RZ_FILE_CORRUPT;
    if (rps == 0 || rps > sh.height)
        rps = uint32_t(sh.height);
    const size_t n = size_t(sh.width);
    Scratch buf(n * rps * 4);
    if (!buf)
        return ST_FAILURE;
    TIFFRGBAImage img;
    if (!TIFFRGBAImageBegin(&img, tif, 0, message))
        return RZ_FILE_SAMPLE_LAYOUT;
    img.req_orientation = img.orientation; // rows as stored; the view turns them
    int32_t st = ST_SUCCESS;
    for (uint32_t y = 0; y < sh.height && st == ST_SUCCESS; y += rps) {
        const uint32_t rows = uint32_t(sh.height - y) < rps ? uint32_t(sh.height - y) : rps;
        img.row_offset = int(y);
        img.col_offset = 0;
        if (!TIFFRGBAImageGet(&img, reinterpret_cast<uint32_t *>(buf.get()), uint32_t(n), rows)) {
            st = RZ_FILE_CORRUPT;
            break;
        }
        for (uint32_t r = 0; r < rows; ++r) {
            const uint32_t *s = reinterpret_cast<const uint32_t *>(buf.get()) + size_t(r) * n;
            uint8_t *d = t.row(y + r);
            for (size_t x = 0; x < n; ++x) {
                d[3 * x] = uint8_t(TIFFGetB(s[x]));
                d[3 * x + 1] = uint8_t(TIFFGetG(s[x]));
                d[3 * x + 2] = uint8_t(TIFFGetR(s[x]));
            }
        }
        if (st == ST_SUCCESS)
            st = progress.step(y + rows, sh.height);
    }
    TIFFRGBAImageEnd(&img);
    return st;
}

} // namespace

int32_t LoadTiff(int fd, const char *name, int32_t page, LoadTarget *t, Shape &sh) {
    TiffErrors errors;
    TiffHandle h(fd, name, "rm", &errors);
    TIFF *tif = h.get();
    if (!tif)
        return RZ_FILE_CORRUPT;
    sh.format = RZ_FMT_TIFF;
    const tdir_t pages = TIFFNumberOfDirectories(tif);
    sh.pages = int32_t(pages);
    if (page < 0 || tdir_t(page) >= pages)
        return RZ_FILE_BAD_PAGE;
    if (page > 0 && !TIFFSetDirectory(tif, tdir_t(page)))
        return RZ_FILE_CORRUPT;
    Layout lay;
    bool viaRgba = false;
    int32_t st = Describe(tif, sh, lay, viaRgba);
    if (viaRgba) {
        sh.bits = 24;
        sh.order = KRN_ORDER_BGR;
        st = ST_SUCCESS;
    }
    if (st != ST_SUCCESS)
        return st;
    DescribeExtras(tif, sh);
    if (sh.sigBits == 0)
        sh.sigBits = sh.bits;
    if (!t)
        return ST_SUCCESS;
    if (viaRgba) {
        st = CheckShape(sh);
        if (st == ST_SUCCESS)
            st = ReadRgba(tif, sh, *t);
    } else {
        if ((st = MakeTarget(*t, sh)) != KRN_OK)
            return st;
        if (lay.photometric == PHOTOMETRIC_PALETTE && (st = ReadPalette(tif, *t, lay.bps)) != KRN_OK)
            return st;
        st = ReadBlocks(tif, lay, sh, *t);
    }
    if (st == ST_SUCCESS && errors.any)
        st = RZ_FILE_CORRUPT;
    if (st != ST_SUCCESS)
        return st;
    uint32_t iccBytes = 0;
    void *icc = nullptr;
    TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccBytes, &icc);
    return ApplyMetadata(*t, sh, icc, icc ? iccBytes : 0, nullptr, 0);
}

int32_t SaveTiff(int fd, const char *name, const BitmapDesc *b, int compression) {
    SavePlan p;
    SaveMeta meta;
    int32_t st = PlanFor(b, CapsFor(RZ_FMT_TIFF), p);
    if (st == ST_SUCCESS)
        st = meta.read(b);
    if (st != ST_SUCCESS) {
        close(fd);
        return st;
    }
    if (compression == RZ_TIFF_G4 && !(p.kind == Kind::Grey && p.bits == 1)) {
        close(fd);
        return RZ_FILE_UNSUPPORTED;
    }
    Scratch row(PlanRowBytes(p)), scratch(PlanScratchBytes(p));
    if (!row || !scratch) {
        close(fd);
        return ST_FAILURE;
    }
    TiffErrors errors;
    TiffHandle h(fd, name, "w", &errors);
    TIFF *tif = h.get();
    if (!tif)
        return RZ_FILE_WRITE;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    if (p.kind == Kind::Index)
        photometric = PHOTOMETRIC_PALETTE;
    else if (p.kind == Kind::Rgb)
        photometric = PHOTOMETRIC_RGB;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(p.width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(p.height));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, uint16_t(p.bits));
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, uint16_t(p.channels));
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (p.channels == 4) {
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (p.isSigned)
        TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
    if (p.kind == Kind::Grey && p.bits == 16 && p.sigBits < 16)
        TIFFSetField(tif, TIFFTAG_MAXSAMPLEVALUE, uint16_t((1u << p.sigBits) - 1));
    static const uint16_t kCodes[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE,
                                      COMPRESSION_PACKBITS, COMPRESSION_CCITTFAX4};
    TIFFSetField(tif, TIFFTAG_COMPRESSION, kCodes[compression]);
    if ((compression == RZ_TIFF_LZW || compression == RZ_TIFF_DEFLATE) && p.bits >= 8)
        TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (p.kind == Kind::Index) {
        const int count = 1 << p.bits;
        uint16_t map[3][256] = {};
        for (int i = 0; i < p.paletteCount && i < count; ++i) {
            map[0][i] = uint16_t(p.palette[i].rgbRed * 257);
            map[1][i] = uint16_t(p.palette[i].rgbGreen * 257);
            map[2][i] = uint16_t(p.palette[i].rgbBlue * 257);
        }
        TIFFSetField(tif, TIFFTAG_COLORMAP, map[0], map[1], map[2]);
    }
    if (meta.resX > 0) {
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, float(meta.resX));
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, float(meta.resY));
        TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, meta.resUnit == KRN_RES_CM     ? RESUNIT_CENTIMETER
                                                  : meta.resUnit == KRN_RES_INCH ? RESUNIT_INCH
                                                                                 : RESUNIT_NONE);
    }
    if (meta.iccBytes)
        TIFFSetField(tif, TIFFTAG_ICCPROFILE, meta.iccBytes, meta.icc);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    Progress progress;
    for (int64_t y = 0; y < p.height; ++y) {
        if ((st = PlanRow(p, y, scratch.get(), row.get())) != ST_SUCCESS)
            return st;
        if (TIFFWriteScanline(tif, row.get(), uint32_t(y), 0) < 0)
            return RZ_FILE_WRITE;
        if ((st = progress.step(y + 1, p.height)) != ST_SUCCESS)
            return st;
    }
    if (!h.finish() || errors.any)
        return RZ_FILE_WRITE;
    return ST_SUCCESS;
}

} // namespace rzfil
