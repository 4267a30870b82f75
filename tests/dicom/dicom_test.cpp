// DICOM files of every layout the loader takes, written here with DCMTK
// from known samples: the bitmap holds those samples with the bit range and
// sign of the header, the reported header is what was written, and damaged
// files fail with their status, leaving the caller's descriptor.
#include "file_helpers.h"

#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/oflog/oflog.h>

#include <functional>
#include <random>

namespace rz::test {
namespace {

struct Form {
    E_TransferSyntax xfer;
    int bitsAllocated, bitsStored, highBit;
    bool isSigned;
    int frames;
    const char *photometric = "MONOCHROME2";
    bool window = true;
};
constexpr int kW = 7, kH = 5;

// Stored words: a value at the high bit; signed values sign-extended above
// it, as scanners write them.
std::vector<uint16_t> Samples(const Form &s) {
    std::mt19937 rng(3);
    const int64_t range = int64_t(1) << s.bitsStored;
    std::vector<uint16_t> out(size_t(kW) * kH * s.frames);
    for (uint16_t &v : out) {
        const int64_t value = int64_t(rng() % range) - (s.isSigned ? range / 2 : 0);
        v = uint16_t(uint64_t(value) << (s.highBit - s.bitsStored + 1));
        if (value < 0 && s.highBit < 15)
            v |= uint16_t(0xFFFF << (s.highBit + 1));
        v &= s.bitsAllocated == 8 ? 0xFF : 0xFFFF;
    }
    return out;
}

// Writes the image's data set, after `edit` had its way with it.
void Write(const std::string &path, const Form &s, const std::vector<uint16_t> &px,
           const std::function<void(DcmDataset *)> &edit = {}) {
    DcmFileFormat ff;
    DcmDataset *ds = ff.getDataset();
    char uid[100];
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, dcmGenerateUniqueIdentifier(uid));
    ds->putAndInsertString(DCM_PhotometricInterpretation, s.photometric);
    for (auto [tag, v] : {std::pair{DCM_SamplesPerPixel, 1}, {DCM_Rows, kH}, {DCM_Columns, kW},
                          {DCM_BitsAllocated, s.bitsAllocated}, {DCM_BitsStored, s.bitsStored},
                          {DCM_HighBit, s.highBit}, {DCM_PixelRepresentation, int(s.isSigned)}})
        ds->putAndInsertUint16(tag, Uint16(v));
    ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(s.frames).c_str());
    for (auto [tag, v] : {std::pair{DCM_WindowCenter, "40\\400"}, {DCM_WindowWidth, "350\\2000"},
                          {DCM_RescaleIntercept, "-1024"}, {DCM_RescaleSlope, "0.5"}})
        s.window ? void(ds->putAndInsertString(tag, v)) : void();
    const std::vector<Uint8> bytes(px.begin(), px.end());
    if (s.bitsAllocated == 16)
        ds->putAndInsertUint16Array(DCM_PixelData, px.data(), px.size());
    else
        ds->putAndInsertUint8Array(DCM_PixelData, bytes.data(), bytes.size());
    if (edit)
        edit(ds);
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    ASSERT_TRUE(ff.saveFile(path.c_str(), s.xfer).good()) << path;
}

TEST(Dicom, EveryLayoutLoadsItsSamplesAndHeader) {
    TempDir dir;
    const Form forms[] = {
        {EXS_LittleEndianExplicit, 16, 16, 15, false, 1},
        {EXS_LittleEndianImplicit, 16, 12, 11, true, 1},
        {EXS_LittleEndianExplicit, 16, 12, 13, false, 1, "MONOCHROME1", false},
        {EXS_LittleEndianExplicit, 8, 8, 7, false, 1},
        {EXS_LittleEndianImplicit, 8, 8, 7, false, 1},
        {EXS_BigEndianExplicit, 16, 10, 9, true, 2},
    };
    for (const Form &s : forms) {
        SCOPED_TRACE(std::to_string(s.xfer) + " " + std::to_string(s.bitsStored));
        const std::vector<uint16_t> px = Samples(s);
        const std::string path = dir.path("f.dcm");
        Write(path, s, px);
        for (int page = 0; page < s.frames; ++page) {
            Loaded l(path, page);
            ASSERT_EQ(l.status, ST_SUCCESS);
            EXPECT_EQ(std::tuple(l->nBitsPerPixel, l->nColorOrder, l->nLowBit, l->nHighBit,
                                 (l->uFlags & BMF_SIGNED) != 0),
                      std::tuple(16, KRN_ORDER_GRAY, s.highBit - s.bitsStored + 1, s.highBit,
                                 s.isSigned));
            for (int i = 0; i < kW * kH; ++i)
                ASSERT_EQ(l.pixel(i % kW, i / kW), px[size_t(page) * kW * kH + size_t(i)]) << i;
            // Saved by us, it reads back the same.
            ASSERT_EQ(Save(dir.path("again.dcm"), l.get()), ST_SUCCESS);
            Loaded again(dir.path("again.dcm"));
            EXPECT_EQ(std::tuple(again.storedBytes(), again->nHighBit, again->uFlags & BMF_SIGNED),
                      std::tuple(l.storedBytes(), l->nHighBit, l->uFlags & BMF_SIGNED));
        }
        EXPECT_EQ(Loaded(path, s.frames).status, RZ_FILE_BAD_PAGE);
        RzDicomInfo info{};
        info.uStructSize = sizeof info;
        ASSERT_EQ(Rz_GetDicomInfo(path.c_str(), &info), ST_SUCCESS);
        RzFileInfo fi{};
        ASSERT_EQ(Info(path, &fi), ST_SUCCESS);
        EXPECT_EQ(std::tuple(fi.nFormat, fi.nPages, fi.nSignificantBits, info.bHasWindow,
                             std::string(info.szPhotometric), info.nWidth, info.nHeight),
                  std::tuple(RZ_FMT_DICOM, s.frames, s.bitsStored, s.window, s.photometric, 7, 5));
        EXPECT_EQ(std::tuple(info.nBitsAllocated, info.nBitsStored, info.nHighBit, !!info.bSigned,
                             std::string(info.szTransferSyntax)),
                  std::tuple(s.bitsAllocated, s.bitsStored, s.highBit, s.isSigned,
                             DcmXfer(s.xfer).getXferID()));
        // The first of several window values; rescale as written.
        EXPECT_EQ(std::tuple(info.dWindowCenter, info.dWindowWidth, info.dRescaleSlope,
                             info.dRescaleIntercept),
                  s.window ? std::tuple(40.0, 350.0, 0.5, -1024.0) : std::tuple(0., 0., 1., 0.));
    }
}

// Damaged files fail with their status, leave the caller's descriptor
// alone and give back every kernel block.
TEST(Dicom, DamagedFilesFailCleanly) {
    TempDir dir;
    const Form plain{EXS_LittleEndianExplicit, 16, 12, 11, false, 1};
    const std::vector<uint16_t> px = Samples(plain);
    Write(dir.path("good.dcm"), plain, px);
    const Bytes good = ReadBytes(dir.path("good.dcm"));
    using Edit = std::function<void(DcmDataset *)>;
    auto made = [&](Edit e) { return [=](const std::string &p) { Write(p, plain, px, e); }; };
    auto bytes = [&](size_t keep, std::string from = "", std::string to = "") {
        return [=](const std::string &p) {
            Bytes b = good.substr(0, keep);
            WriteBytes(p, from.empty() ? b : b.replace(b.find(from), to.size(), to));
        };
    };
    const std::string pixelTag("\xe0\x7f\x10\x00OW\x00\x00", 8);
    const std::tuple<const char *, int32_t, std::function<void(const std::string &)>> cases[] = {
        {"truncated in the pixels", RZ_FILE_CORRUPT, bytes(good.size() - 9)},
        {"huge declared size", RZ_FILE_TOO_LARGE,
         made([](DcmDataset *ds) {
             ds->putAndInsertUint16(DCM_Rows, 60000), ds->putAndInsertUint16(DCM_Columns, 60000);
         })},
        {"pixel data longer than the file", RZ_FILE_CORRUPT,
         bytes(good.size(), pixelTag + std::string("\x46\0\0\0", 4),
               pixelTag + "\xf0\xff\xff\x7f")},
        {"compressed transfer syntax", RZ_FILE_DICOM_COMPRESSED,
         bytes(good.size(), UID_LittleEndianExplicitTransferSyntax,
               UID_RLELosslessTransferSyntax)},
        {"no pixel data", RZ_FILE_DICOM_NO_PIXELS,
         made([](DcmDataset *ds) { delete ds->remove(DCM_PixelData); })},
        {"fewer pixels than the size needs", RZ_FILE_DICOM_NO_PIXELS,
         made([&](DcmDataset *ds) { ds->putAndInsertUint16Array(DCM_PixelData, px.data(), 20); })},
        {"colour", RZ_FILE_UNSUPPORTED,
         made([](DcmDataset *d) { d->putAndInsertString(DCM_PhotometricInterpretation, "RGB"); })},
    };
    for (const auto &[what, status, make] : cases) {
        SCOPED_TRACE(what);
        std::filesystem::remove(dir.path("bad.dcm"));
        make(dir.path("bad.dcm"));
        const int64_t blocks = KrnMemOutstanding();
        BitmapDesc d{};
        d.nWidth = 1234;
        EXPECT_EQ(Rz_LoadBitmap(dir.path("bad.dcm").c_str(), &d, BITMAPDESC_SIZE, 0), status);
        EXPECT_EQ(std::tuple(d.nWidth, KrnMemOutstanding()), std::tuple(1234, blocks));
        EXPECT_STRNE(Rz_FileStatusText(status), Rz_FileStatusText(12345));
    }
}

} // namespace
} // namespace rz::test
