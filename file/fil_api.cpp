// The exports of the file library: format detection by content, dispatch to
// the codecs, the pixel limit, status texts, and saving through a temporary
// file.
//
// A load decodes into a descriptor of its own and copies it to the caller's
// only on success, so a failed load leaves the caller's descriptor as it was.
// A save writes a uniquely named file in the target's folder, syncs it and
// renames it over the target; any failure unlinks the temporary, so the
// target is either the old file or the complete new one. A target that is a
// symbolic link is followed first, so the link stays and its file is
// replaced; the replacement takes the old file's permissions.
#include "fil_internal.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace rzfil {

namespace {

class File {
  public:
    File() = default;
    ~File() {
        if (f_)
            fclose(f_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    FILE *get() const { return f_; }
    void reset(FILE *f) { f_ = f; }
    FILE *release() { return std::exchange(f_, nullptr); }

  private:
    FILE *f_ = nullptr;
};

int32_t OpenForReading(const char *path, File &file) {
    FILE *f = fopen(path, "rbe");
    if (!f)
        return RZ_FILE_NOT_FOUND;
    file.reset(f);
    struct stat st {};
    if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode))
        return RZ_FILE_NOT_FOUND;
    return ST_SUCCESS;
}

int32_t Sniff(FILE *f) {
    uint8_t m[8] = {};
    const size_t n = fread(m, 1, sizeof m, f);
    rewind(f);
    if (n >= 8 && std::memcmp(m, "\x89PNG\r\n\x1a\n", 8) == 0)
        return RZ_FMT_PNG;
    if (n >= 3 && m[0] == 0xFF && m[1] == 0xD8 && m[2] == 0xFF)
        return RZ_FMT_JPEG;
    if (n >= 4 && ((m[0] == 'I' && m[1] == 'I' && (m[2] == 42 || m[2] == 43) && m[3] == 0) ||
                   (m[0] == 'M' && m[1] == 'M' && m[2] == 0 && (m[3] == 42 || m[3] == 43))))
        return RZ_FMT_TIFF;
    if (n >= 3 && m[0] == 'P' && m[1] >= '1' && m[1] <= '6' && (std::strchr(" \t\r\n\v\f#", m[2]) && m[2] != 0))
        return m[1] == '1' || m[1] == '4' ? RZ_FMT_PBM : (m[1] == '2' || m[1] == '5') ? RZ_FMT_PGM : RZ_FMT_PPM;
    return RZ_FMT_UNKNOWN;
}

// Runs a codec on an open file; t null asks for the shape only.
int32_t Decode(const char *path, int32_t page, LoadTarget *t, Shape &sh) {
    File file;
    int32_t st = OpenForReading(path, file);
    if (st != ST_SUCCESS)
        return st;
    const int32_t fmt = Sniff(file.get());
    if (fmt == RZ_FMT_UNKNOWN && IsDicom(file.get())) // DICOM: its own block
        return LoadDicom(path, page, t, sh, nullptr);
    if (fmt == RZ_FMT_UNKNOWN)
        return RZ_FILE_FORMAT;
    if (fmt == RZ_FMT_TIFF) {
        const int fd = dup(fileno(file.get()));
        if (fd < 0)
            return RZ_FILE_NOT_FOUND;
        return LoadTiff(fd, path, page, t, sh);
    }
    if (page != 0)
        return RZ_FILE_BAD_PAGE;
    switch (fmt) {
    case RZ_FMT_PNG: return LoadPng(file.get(), t, sh);
    case RZ_FMT_JPEG: return LoadJpeg(file.get(), t, sh);
    default: return LoadPnm(file.get(), t, sh);
    }
}

bool EndsWith(const char *s, size_t len, const char *ext) {
    const size_t n = std::strlen(ext);
    if (len < n)
        return false;
    for (size_t i = 0; i < n; ++i) {
        char c = s[len - n + i];
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
        if (c != ext[i])
            return false;
    }
    return true;
}

// RZ_FMT_UNKNOWN for ".pnm" (the PNM kind follows the bitmap), -1 when the
// name says nothing.
int32_t FormatFromName(const char *path) {
    const size_t len = std::strlen(path);
    static const struct {
        const char *ext;
        int32_t fmt;
    } kNames[] = {{".png", RZ_FMT_PNG},  {".jpg", RZ_FMT_JPEG}, {".jpeg", RZ_FMT_JPEG}, {".jpe", RZ_FMT_JPEG},
                  {".jfif", RZ_FMT_JPEG}, {".tif", RZ_FMT_TIFF}, {".tiff", RZ_FMT_TIFF}, {".pbm", RZ_FMT_PBM},
                  {".pgm", RZ_FMT_PGM},  {".ppm", RZ_FMT_PPM},  {".pnm", RZ_FMT_UNKNOWN},
                  {".dcm", RZ_FMT_DICOM}};
    for (const auto &n : kNames)
        if (EndsWith(path, len, n.ext))
            return n.fmt;
    return -1;
}

std::atomic<uint32_t> g_tempCounter{0};

// A new file beside the target, removed again unless kept.
class TempFile {
  public:
    ~TempFile() {
        if (f_)
            fclose(f_);
        else if (fd_ >= 0)
            close(fd_);
        if (name_.get() && !kept_)
            unlink(reinterpret_cast<const char *>(name_.get()));
    }
    int32_t create(const char *target) {
        const size_t len = std::strlen(target);
        name_ = Scratch(len + 64);
        if (!name_)
            return ST_FAILURE;
        const char *slash = std::strrchr(target, '/');
        const size_t dirLen = slash ? size_t(slash - target) + 1 : 0;
        char *name = reinterpret_cast<char *>(name_.get());
        for (int attempt = 0; attempt < 100; ++attempt) {
            std::memcpy(name, target, dirLen);
            snprintf(name + dirLen, len - dirLen + 64, ".%s.%ld-%u.tmp", target + dirLen, long(getpid()),
                     g_tempCounter.fetch_add(1, std::memory_order_relaxed));
            fd_ = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd_ >= 0) {
                struct stat old {};
                if (stat(target, &old) == 0 && S_ISREG(old.st_mode))
                    fchmod(fd_, old.st_mode & 07777);
                return ST_SUCCESS;
            }
            if (errno != EEXIST)
                break;
        }
        name_ = Scratch();
        return RZ_FILE_WRITE;
    }
    // A stdio stream on the descriptor, which it then owns.
    FILE *stream() {
        if (!f_ && (f_ = fdopen(fd_, "wb")))
            fd_ = -1;
        return f_;
    }
    // Hands the descriptor to a codec that closes it itself.
    int giveFd() { return std::exchange(fd_, -1); }
    // Flushes, syncs and closes the stream if there is one.
    bool closeStream() {
        if (!f_)
            return true;
        bool ok = fflush(f_) == 0 && fsync(fileno(f_)) == 0;
        ok = fclose(std::exchange(f_, nullptr)) == 0 && ok;
        return ok;
    }
    int32_t commit(const char *target) {
        if (rename(reinterpret_cast<const char *>(name_.get()), target) != 0)
            return RZ_FILE_WRITE;
        kept_ = true;
        return ST_SUCCESS;
    }

  private:
    Scratch name_;
    int fd_ = -1;
    FILE *f_ = nullptr;
    bool kept_ = false;
};

// The output format from the options or the name; pnmKind is the PNM kind
// asked for (RZ_FMT_UNKNOWN: the one that fits).
int32_t OutputFormat(const char *path, const RzSaveOptions *o, int32_t &fmt, int32_t &pnmKind) {
    fmt = o ? o->nFormat : RZ_FMT_UNKNOWN;
    if (fmt == RZ_FMT_UNKNOWN) {
        const int32_t named = FormatFromName(path);
        if (named < 0)
            return RZ_FILE_FORMAT;
        fmt = named == RZ_FMT_UNKNOWN ? RZ_FMT_PPM : named;
        pnmKind = named;
    } else {
        pnmKind = fmt;
    }
    return (fmt < RZ_FMT_PNG || fmt > RZ_FMT_PPM) && fmt != RZ_FMT_DICOM ? ST_INVALID_PARAMETER : ST_SUCCESS;
}

// Follows symbolic links to the file a save replaces (which may not exist).
int32_t ResolveTarget(const char *path, std::string &out) {
    out = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st {};
        if (lstat(out.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            return ST_SUCCESS;
        char link[PATH_MAX];
        const ssize_t n = readlink(out.c_str(), link, sizeof link - 1);
        if (n <= 0)
            return RZ_FILE_WRITE;
        std::string next(link, size_t(n));
        const size_t slash = out.rfind('/');
        if (next[0] != '/' && slash != std::string::npos)
            next = out.substr(0, slash + 1) + next;
        out = std::move(next);
    }
    return RZ_FILE_WRITE; // a loop of links
}

int32_t Save(const char *name, const BitmapDesc *b, const RzSaveOptions *o) {
    int32_t fmt = RZ_FMT_UNKNOWN, pnmKind = RZ_FMT_UNKNOWN;
    if (const int32_t named = OutputFormat(name, o, fmt, pnmKind); named != ST_SUCCESS)
        return named;
    const int quality = o && o->nQuality ? o->nQuality : 90;
    const int compression = o ? o->nCompression : RZ_TIFF_NONE;
    if (quality < 1 || quality > 100 || compression < RZ_TIFF_NONE || compression > RZ_TIFF_G4)
        return ST_INVALID_PARAMETER;
    int32_t st = KrnValidateBitmap(b);
    if (st != KRN_OK)
        return st;
    if (!b->pData)
        return ST_NO_BITMAP;
    std::string target;
    if ((st = ResolveTarget(name, target)) != ST_SUCCESS)
        return st;
    const char *path = target.c_str();

    Progress progress;
    TempFile tmp;
    if ((st = tmp.create(path)) != ST_SUCCESS)
        return st;
    if (fmt == RZ_FMT_TIFF) {
        st = SaveTiff(tmp.giveFd(), path, b, compression);
    } else {
        FILE *f = tmp.stream();
        if (!f)
            return RZ_FILE_WRITE;
        switch (fmt) {
        case RZ_FMT_PNG: st = SavePng(f, b); break;
        case RZ_FMT_JPEG: st = SaveJpeg(f, b, quality); break;
        case RZ_FMT_DICOM: st = SaveDicom(f, b); break;
        default: st = SavePnm(f, b, pnmKind); break;
        }
        if (st == ST_SUCCESS && !tmp.closeStream())
            st = RZ_FILE_WRITE;
    }
    if (st != ST_SUCCESS)
        return st;
    // Last word before the old file is replaced.
    if ((st = progress.check()) != ST_SUCCESS)
        return st;
    return tmp.commit(path);
}

int32_t SaveNotes(const char *path, const BitmapDesc *b, const RzSaveOptions *o, uint32_t &notes) {
    int32_t fmt = RZ_FMT_UNKNOWN, pnmKind = RZ_FMT_UNKNOWN;
    int32_t st = OutputFormat(path, o, fmt, pnmKind);
    if (st != ST_SUCCESS)
        return st;
    SavePlan plan;
    st = fmt == RZ_FMT_PNG || fmt == RZ_FMT_TIFF || fmt == RZ_FMT_JPEG ? PlanFor(b, CapsFor(fmt), plan)
                                                                        : PlanPnm(b, pnmKind, plan);
    if (st != ST_SUCCESS)
        return st;
    notes = plan.notes;
    const void *p = nullptr;
    uint32_t icc = 0, exif = 0;
    KrnGetBitmapMetadata(b, KRN_META_ICC, &p, &icc);
    KrnGetBitmapMetadata(b, KRN_META_EXIF, &p, &exif);
    const bool pnm = fmt != RZ_FMT_PNG && fmt != RZ_FMT_TIFF && fmt != RZ_FMT_JPEG;
    if ((icc && pnm) || (exif && (pnm || fmt == RZ_FMT_TIFF)))
        notes |= RZ_SAVE_NOTE_METADATA;
    return ST_SUCCESS;
}

void FillInfo(const Shape &sh, RzFileInfo *pInfo) {
    pInfo->nFormat = sh.format;
    pInfo->nWidth = sh.width > INT32_MAX ? INT32_MAX : int32_t(sh.width);
    pInfo->nHeight = sh.height > INT32_MAX ? INT32_MAX : int32_t(sh.height);
    if (ViewForOrientation(sh.orientation) >= 5) // as it loads: in the upright view
        std::swap(pInfo->nWidth, pInfo->nHeight);
    pInfo->nBitsPerPixel = sh.bits;
    pInfo->nPages = sh.pages;
    pInfo->nColorOrder = sh.bits == 12 || sh.bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR;
    pInfo->nSignificantBits = sh.sigBits ? sh.sigBits : sh.bits;
    pInfo->dXResolution = sh.resX;
    pInfo->dYResolution = sh.resY;
    pInfo->nResolutionUnit = sh.resUnit;
    pInfo->nOrientation = sh.orientation;
    pInfo->nIccBytes = sh.iccBytes;
    pInfo->nExifBytes = sh.exifBytes;
    pInfo->bAlpha = sh.alpha || sh.bits == 32 || sh.bits == 64;
}

} // namespace

} // namespace rzfil

using namespace rzfil;

extern "C" {

RZFIL_API int32_t RZAPI Rz_LoadBitmap(const char *pszPath, BitmapDesc *pBitmap, uint32_t uStructSize, int32_t nPage) {
    if (!pszPath || !pBitmap)
        return ST_NULL_POINTER;
    if (uStructSize != BITMAPDESC_SIZE)
        return ST_BAD_STRUCT_SIZE;
    if (nPage < 0)
        return RZ_FILE_BAD_PAGE;
    try {
        LoadTarget t;
        Shape sh;
        const int32_t st = Decode(pszPath, nPage, &t, sh);
        if (st != ST_SUCCESS)
            return st;
        *pBitmap = t.bmp;
        t.live = false;
        return ST_SUCCESS;
    } catch (...) {
        return ST_FAILURE;
    }
}

RZFIL_API int32_t RZAPI Rz_SaveBitmap(const char *pszPath, const BitmapDesc *pBitmap, const RzSaveOptions *pOptions) {
    if (!pszPath || !pBitmap)
        return ST_NULL_POINTER;
    if (pOptions && pOptions->uStructSize != sizeof(RzSaveOptions))
        return ST_BAD_STRUCT_SIZE;
    try {
        return Save(pszPath, pBitmap, pOptions);
    } catch (...) {
        return ST_FAILURE;
    }
}

RZFIL_API int32_t RZAPI Rz_GetFilePageInfo(const char *pszPath, int32_t nPage, RzFileInfo *pInfo) {
    if (!pszPath || !pInfo)
        return ST_NULL_POINTER;
    if (pInfo->uStructSize != sizeof(RzFileInfo))
        return ST_BAD_STRUCT_SIZE;
    try {
        Shape sh;
        const int32_t st = nPage < 0 ? RZ_FILE_BAD_PAGE : Decode(pszPath, nPage, nullptr, sh);
        if (st == RZ_FILE_BAD_PAGE && nPage != 0) {
            Shape first;
            if (Decode(pszPath, 0, nullptr, first) == ST_SUCCESS)
                pInfo->nPages = first.pages;
        }
        if (st != ST_SUCCESS)
            return st;
        FillInfo(sh, pInfo);
        return ST_SUCCESS;
    } catch (...) {
        return ST_FAILURE;
    }
}

RZFIL_API int32_t RZAPI Rz_GetFileInfo(const char *pszPath, RzFileInfo *pInfo) {
    return Rz_GetFilePageInfo(pszPath, 0, pInfo);
}

RZFIL_API int32_t RZAPI Rz_GetSaveNotes(const char *pszPath, const BitmapDesc *pBitmap, const RzSaveOptions *pOptions,
                                        uint32_t *pNotes) {
    if (!pszPath || !pBitmap || !pNotes)
        return ST_NULL_POINTER;
    if (pOptions && pOptions->uStructSize != sizeof(RzSaveOptions))
        return ST_BAD_STRUCT_SIZE;
    try {
        *pNotes = 0;
        return SaveNotes(pszPath, pBitmap, pOptions, *pNotes);
    } catch (...) {
        return ST_FAILURE;
    }
}

RZFIL_API int64_t RZAPI Rz_SetFilePixelLimit(int64_t nPixels) {
    return nPixels > 0 ? SwapPixelLimit(nPixels) : PixelLimit();
}

RZFIL_API const char *RZAPI Rz_FileStatusText(int32_t nStatus) {
    switch (nStatus) {
    case ST_SUCCESS: return "success";
    case ST_NOTHING_TO_DO: return "nothing to do";
    case ST_FAILURE: return "failure (out of memory)";
    case ST_NO_BITMAP: return "no bitmap: the descriptor holds no pixels or is inconsistent";
    case ST_BAD_BITS: return "unsupported bits per pixel";
    case ST_BAD_PIXEL_FORMAT: return "unsupported pixel format";
    case ST_INVALID_PARAMETER: return "invalid parameter";
    case ST_LIBRARY_NOT_LOADED: return "a library module or its entry point could not be loaded";
    case ST_NEEDS_1BIT: return "the operation needs a 1-bit bitmap";
    case ST_NO_REGION: return "the bitmap has no region";
    case ST_BAD_TYPE: return "bad type";
    case ST_EMPTY_RECT: return "empty rectangle";
    case ST_BAD_STRUCT_SIZE: return "wrong structure size";
    case ST_NULL_POINTER: return "null pointer";
    case ST_SIGNED_NOT_SUPPORTED: return "signed data is not supported by this operation";
    case RZ_FILE_NOT_FOUND: return "cannot open the file (missing, unreadable or a directory)";
    case RZ_FILE_FORMAT: return "not an image format this library reads (or an unknown file name extension)";
    case RZ_FILE_CORRUPT: return "the file is truncated or damaged";
    case RZ_FILE_WRITE: return "cannot write the output file";
    case RZ_FILE_TOO_LARGE: return "the image is larger than the pixel limit or than a bitmap can hold";
    case RZ_FILE_UNSUPPORTED: return "the output format cannot hold this image's depth or kind";
    case RZ_FILE_BAD_PAGE: return "the file has no such page";
    case RZ_FILE_DICOM_COMPRESSED: return "the DICOM file is compressed (a transfer syntax this library does not read)";
    case RZ_FILE_DICOM_NO_PIXELS: return "the DICOM file has no pixel data, or less than its size needs";
    case ST_EMPTY_REGION: return "the region holds no pixels";
    case RZ_FILE_FLOAT_SAMPLES: return "this file's sample format (floating point) is not supported";
    case RZ_FILE_SAMPLE_LAYOUT:
        return "this file's sample layout (bits per sample, channels or colour kind) is not supported";
    case RZ_FILE_COMPRESSION: return "this file's compression method is not supported";
    default: return nStatus > 0 ? "stopped by the status callback" : "unknown status";
    }
}

} // extern "C"
