// DICOM through DCMTK's dcmdata: only the data-set parser is used, with no
// image decoders registered, so every uncompressed transfer syntax is read
// (byte order handled by DCMTK) and encapsulated (compressed) pixel data is
// refused with a status of its own. Values above 4 KiB are left in the file
// until asked for, so the pixel data's declared length can be checked
// against the image's size (and the pixel limit) before it is read.
#include "fil_internal.h"

#include <dcmtk/dcmdata/dcostrmf.h>
#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace rzfil {

namespace {

// DCMTK logs parse errors to stderr; the status says it all.
void QuietDcmtk() {
    static std::once_flag once;
    std::call_once(once, [] { OFLog::configure(OFLogger::OFF_LOG_LEVEL); });
}

uint16_t Get16(DcmDataset *ds, const DcmTagKey &tag, uint16_t fallback, bool *found = nullptr) {
    Uint16 v = 0;
    const bool ok = ds->findAndGetUint16(tag, v).good();
    if (found)
        *found = ok;
    return ok ? v : fallback;
}

bool GetDouble(DcmDataset *ds, const DcmTagKey &tag, double &out) {
    Float64 v = 0;
    if (ds->findAndGetFloat64(tag, v, 0).bad())
        return false;
    out = v;
    return true;
}

void CopyString(DcmDataset *ds, const DcmTagKey &tag, char *out, size_t size) {
    const char *s = nullptr;
    out[0] = 0;
    if (ds->findAndGetString(tag, s).good() && s) {
        std::strncpy(out, s, size - 1);
        out[size - 1] = 0;
    }
}

// Reads the file and checks that it holds an image this loader takes.
int32_t Open(const char *path, DcmFileFormat &ff, RzDicomInfo &info) {
    QuietDcmtk();
    // The meta header names the transfer syntax: a compressed one is refused
    // before the data set is parsed (its pixel data may not even parse).
    DcmMetaInfo meta;
    const char *uid = nullptr;
    if (meta.loadFile(path).good() && meta.findAndGetString(DCM_TransferSyntaxUID, uid).good() && uid &&
        DcmXfer(uid).isEncapsulated()) {
        std::strncpy(info.szTransferSyntax, uid, sizeof info.szTransferSyntax - 1);
        return RZ_FILE_DICOM_COMPRESSED;
    }
    const OFCondition c = ff.loadFile(path, EXS_Unknown, EGL_noChange, 4096);
    if (c.bad())
        return RZ_FILE_CORRUPT;
    DcmDataset *ds = ff.getDataset();
    const DcmXfer xfer(ds->getOriginalXfer());
    std::strncpy(info.szTransferSyntax, xfer.getXferID(), sizeof info.szTransferSyntax - 1);
    if (xfer.isEncapsulated())
        return RZ_FILE_DICOM_COMPRESSED;
    bool haveRows = false, haveColumns = false;
    info.nHeight = Get16(ds, DCM_Rows, 0, &haveRows);
    info.nWidth = Get16(ds, DCM_Columns, 0, &haveColumns);
    info.nBitsAllocated = Get16(ds, DCM_BitsAllocated, 0);
    info.nBitsStored = Get16(ds, DCM_BitsStored, uint16_t(info.nBitsAllocated));
    info.nHighBit = Get16(ds, DCM_HighBit, uint16_t(info.nBitsStored - 1));
    info.bSigned = Get16(ds, DCM_PixelRepresentation, 0) == 1;
    Sint32 frames = 1;
    if (ds->findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    info.nFrames = frames;
    info.dRescaleSlope = 1;
    info.dRescaleIntercept = 0;
    info.bHasRescale = GetDouble(ds, DCM_RescaleSlope, info.dRescaleSlope) &&
                       GetDouble(ds, DCM_RescaleIntercept, info.dRescaleIntercept);
    info.bHasWindow = GetDouble(ds, DCM_WindowCenter, info.dWindowCenter) &&
                      GetDouble(ds, DCM_WindowWidth, info.dWindowWidth);
    CopyString(ds, DCM_PhotometricInterpretation, info.szPhotometric, sizeof info.szPhotometric);
    if (!haveRows || !haveColumns || !ds->tagExists(DCM_PixelData))
        return RZ_FILE_DICOM_NO_PIXELS;
    const bool mono = std::strncmp(info.szPhotometric, "MONOCHROME", 10) == 0 || info.szPhotometric[0] == 0;
    const bool bits = (info.nBitsAllocated == 8 || info.nBitsAllocated == 16) && info.nBitsStored >= 1 &&
                      info.nHighBit < info.nBitsAllocated && info.nHighBit + 1 >= info.nBitsStored;
    if (!mono || Get16(ds, DCM_SamplesPerPixel, 1) != 1 || !bits)
        return RZ_FILE_UNSUPPORTED;
    return ST_SUCCESS;
}

// Frame `page` into the 16-bit target: words as stored, bytes widened.
int32_t CopyFrame(DcmDataset *ds, const RzDicomInfo &info, int32_t page, LoadTarget &t, uint64_t fileBytes) {
    DcmElement *e = nullptr;
    if (ds->findAndGetElement(DCM_PixelData, e).bad() || !e)
        return RZ_FILE_DICOM_NO_PIXELS;
    const size_t bytes = size_t(info.nBitsAllocated / 8);
    const size_t frame = size_t(info.nWidth) * size_t(info.nHeight) * bytes;
    if (uint64_t(e->getLength()) < uint64_t(frame) * uint64_t(info.nFrames))
        return RZ_FILE_DICOM_NO_PIXELS;
    // A declared length the file cannot hold is never allocated.
    if (uint64_t(e->getLength()) > fileBytes)
        return RZ_FILE_CORRUPT;
    const uint8_t *bytes8 = nullptr;
    const uint16_t *words = nullptr;
    OFCondition c = bytes == 2 ? e->getUint16Array(const_cast<Uint16 *&>(words))
                               : e->getUint8Array(const_cast<Uint8 *&>(bytes8));
    if (c.bad() || (!words && !bytes8))
        return RZ_FILE_CORRUPT;
    const size_t first = size_t(page) * size_t(info.nWidth) * size_t(info.nHeight);
    for (int64_t y = 0; y < info.nHeight; ++y) {
        uint8_t *row = t.row(y);
        const size_t at = first + size_t(y) * size_t(info.nWidth);
        for (int64_t x = 0; x < info.nWidth; ++x) {
            const uint16_t v = words ? words[at + size_t(x)] : bytes8[at + size_t(x)];
            row[2 * x] = uint8_t(v);
            row[2 * x + 1] = uint8_t(v >> 8);
        }
    }
    return ST_SUCCESS;
}

} // namespace

bool IsDicom(FILE *f) {
    uint8_t m[132] = {};
    const size_t n = fread(m, 1, sizeof m, f);
    rewind(f);
    return n == sizeof m && std::memcmp(m + 128, "DICM", 4) == 0;
}

int32_t LoadDicom(const char *path, int32_t page, LoadTarget *t, Shape &sh, RzDicomInfo *out) {
    DcmFileFormat ff;
    RzDicomInfo info{};
    info.uStructSize = sizeof info;
    int32_t st = Open(path, ff, info);
    if (out)
        *out = info;
    if (st != ST_SUCCESS)
        return st;
    sh.format = RZ_FMT_DICOM;
    sh.width = info.nWidth;
    sh.height = info.nHeight;
    sh.bits = 16;
    sh.order = KRN_ORDER_GRAY;
    sh.sigBits = info.nBitsStored;
    sh.pages = info.nFrames;
    sh.isSigned = info.bSigned != 0;
    if ((st = CheckShape(sh)) != ST_SUCCESS)
        return st;
    if (!t)
        return ST_SUCCESS;
    if (page >= info.nFrames)
        return RZ_FILE_BAD_PAGE;
    if ((st = MakeTarget(*t, sh)) != ST_SUCCESS)
        return st;
    t->bmp.nLowBit = info.nHighBit - info.nBitsStored + 1;
    t->bmp.nHighBit = info.nHighBit;
    struct stat file {};
    if (stat(path, &file) != 0)
        return RZ_FILE_NOT_FOUND;
    return CopyFrame(ff.getDataset(), info, page, *t, uint64_t(file.st_size));
}

int32_t SaveDicom(FILE *f, const BitmapDesc *b) {
    QuietDcmtk();
    const int32_t bits = b->nBitsPerPixel;
    const bool deep = (bits == 12 || bits == 16) && b->nColorOrder == KRN_ORDER_GRAY;
    const bool grey8 = bits == 8 && (b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b));
    if (!deep && !grey8)
        return RZ_FILE_UNSUPPORTED;
    const int32_t low = deep ? std::max(b->nLowBit, 0) : 0;
    const int32_t high = deep ? (b->nHighBit == -1 ? bits - 1 : b->nHighBit) : 7;
    if (high < low || high >= bits)
        return ST_NO_BITMAP;
    const int64_t w = b->nWidth, h = b->nHeight;
    if (w > 65535 || h > 65535)
        return RZ_FILE_UNSUPPORTED;
    const size_t count = size_t(w) * size_t(h);
    Scratch raw(KrnBitmapRowBytes(b) + 4);
    Scratch pixels(count * (deep ? 2 : 1) + 2);
    if (!raw || !pixels)
        return ST_FAILURE;
    for (int64_t y = 0; y < h; ++y) {
        int32_t st = KrnGetBitmapRow(b, raw.get(), int32_t(y), 0, KrnBitmapRowBytes(b));
        if (st != KRN_OK)
            return st;
        const uint8_t *r = raw.get();
        for (int64_t x = 0; x < w; ++x) {
            const size_t i = size_t(y) * size_t(w) + size_t(x);
            if (!deep) {
                pixels.get()[i] = r[x];
                continue;
            }
            const uint8_t *p = r + 3 * (x / 2);
            const uint16_t v = bits == 16 ? uint16_t(r[2 * x] | r[2 * x + 1] << 8)
                                          : uint16_t(x % 2 ? (p[1] | p[2] << 8) >> 4 : (p[0] | p[1] << 8) & 0xFFF);
            reinterpret_cast<uint16_t *>(pixels.get())[i] = v;
        }
    }
    DcmFileFormat ff;
    DcmDataset *ds = ff.getDataset();
    char uid[100];
    OFCondition c = ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    if (c.good()) c = ds->putAndInsertString(DCM_SOPInstanceUID, dcmGenerateUniqueIdentifier(uid, SITE_INSTANCE_UID_ROOT));
    if (c.good()) c = ds->putAndInsertString(DCM_Modality, "OT");
    if (c.good()) c = ds->putAndInsertUint16(DCM_SamplesPerPixel, 1);
    if (c.good()) c = ds->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
    if (c.good()) c = ds->putAndInsertUint16(DCM_Rows, uint16_t(h));
    if (c.good()) c = ds->putAndInsertUint16(DCM_Columns, uint16_t(w));
    if (c.good()) c = ds->putAndInsertUint16(DCM_BitsAllocated, deep ? 16 : 8);
    if (c.good()) c = ds->putAndInsertUint16(DCM_BitsStored, uint16_t(high - low + 1));
    if (c.good()) c = ds->putAndInsertUint16(DCM_HighBit, uint16_t(high));
    if (c.good()) c = ds->putAndInsertUint16(DCM_PixelRepresentation, (b->uFlags & BMF_SIGNED) && deep ? 1 : 0);
    if (c.good())
        c = deep ? ds->putAndInsertUint16Array(DCM_PixelData, reinterpret_cast<const Uint16 *>(pixels.get()), count)
                 : ds->putAndInsertUint8Array(DCM_PixelData, pixels.get(), count);
    if (c.bad())
        return ST_FAILURE;
    // DCMTK's stream closes the FILE it is given: it gets its own on a
    // duplicate of the descriptor, and the caller's stays open for the sync.
    if (fflush(f) != 0)
        return RZ_FILE_WRITE;
    const int fd = dup(fileno(f));
    FILE *own = fd >= 0 ? fdopen(fd, "wb") : nullptr;
    if (!own) {
        if (fd >= 0)
            close(fd);
        return RZ_FILE_WRITE;
    }
    {
        DcmOutputFileStream out(own);
        ff.transferInit();
        c = ff.write(out, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr, EGL_recalcGL);
        ff.transferEnd();
        if (c.good())
            c = out.status();
    }
    return c.good() ? ST_SUCCESS : RZ_FILE_WRITE;
}

} // namespace rzfil

extern "C" {

RZFIL_API int32_t RZAPI Rz_GetDicomInfo(const char *pszPath, RzDicomInfo *pInfo) {
    if (!pszPath || !pInfo)
        return ST_NULL_POINTER;
    if (pInfo->uStructSize != sizeof(RzDicomInfo))
        return ST_BAD_STRUCT_SIZE;
    try {
        FILE *f = fopen(pszPath, "rbe");
        if (!f)
            return RZ_FILE_NOT_FOUND;
        const bool dicom = rzfil::IsDicom(f);
        fclose(f);
        if (!dicom)
            return RZ_FILE_FORMAT;
        rzfil::Shape sh;
        return rzfil::LoadDicom(pszPath, 0, nullptr, sh, pInfo);
    } catch (...) {
        return ST_FAILURE;
    }
}

} // extern "C"
