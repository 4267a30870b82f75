// DICOM files of every layout the loader takes, written here with DCMTK
// from known sample values: the loaded bitmap must hold those values with
// the bit range and sign the header gives, the reported header must agree
// with GDCM's gdcmdump of the same file, and damaged files must fail with
// their documented status, without leaks and without touching the caller's
// descriptor.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/oflog/oflog.h>

#include <cstdio>
#include <map>
#include <random>
#include <regex>

namespace rz::test {
namespace {

struct Spec {
    const char *name;
    E_TransferSyntax xfer;
    int bitsAllocated, bitsStored, highBit;
    bool isSigned;
    int frames;
    const char *photometric = "MONOCHROME2";
    bool window = true;
};

const Spec kSpecs[] = {
    {"explicit_u16", EXS_LittleEndianExplicit, 16, 16, 15, false, 1},
    {"implicit_s12_in_16", EXS_LittleEndianImplicit, 16, 12, 11, true, 1},
    {"explicit_u12_high13", EXS_LittleEndianExplicit, 16, 12, 13, false, 1, "MONOCHROME1", false},
    {"explicit_u8", EXS_LittleEndianExplicit, 8, 8, 7, false, 1},
    {"implicit_u8", EXS_LittleEndianImplicit, 8, 8, 7, false, 1},
    {"big_endian_s10_two_frames", EXS_BigEndianExplicit, 16, 10, 9, true, 2},
};

constexpr int kW = 7, kH = 5;

// Stored words: a k-bit value at the high bit; signed values sign-extended
// above it, as scanners write them.
std::vector<uint16_t> Samples(const Spec &s, uint32_t seed) {
    std::mt19937 rng(seed);
    const int low = s.highBit - s.bitsStored + 1;
    std::vector<uint16_t> out(size_t(kW) * kH * s.frames);
    for (uint16_t &v : out) {
        const int64_t range = int64_t(1) << s.bitsStored;
        int64_t value = int64_t(rng() % range) - (s.isSigned ? range / 2 : 0);
        v = uint16_t(uint64_t(value) << low);
        if (s.isSigned && value < 0 && s.highBit < 15) v |= uint16_t(0xFFFF << (s.highBit + 1));
        if (s.bitsAllocated == 8) v &= 0xFF;
    }
    return out;
}

// The data set of an image; `drop` leaves one tag out.
DcmFileFormat MakeFile(const Spec &s, const std::vector<uint16_t> &px, int rows = kH, int cols = kW,
                       const DcmTagKey *drop = nullptr, size_t pixelCount = SIZE_MAX) {
    DcmFileFormat ff;
    DcmDataset *ds = ff.getDataset();
    char uid[100];
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, dcmGenerateUniqueIdentifier(uid, SITE_INSTANCE_UID_ROOT));
    ds->putAndInsertUint16(DCM_SamplesPerPixel, 1);
    ds->putAndInsertString(DCM_PhotometricInterpretation, s.photometric);
    ds->putAndInsertUint16(DCM_Rows, uint16_t(rows));
    ds->putAndInsertUint16(DCM_Columns, uint16_t(cols));
    ds->putAndInsertUint16(DCM_BitsAllocated, uint16_t(s.bitsAllocated));
    ds->putAndInsertUint16(DCM_BitsStored, uint16_t(s.bitsStored));
    ds->putAndInsertUint16(DCM_HighBit, uint16_t(s.highBit));
    ds->putAndInsertUint16(DCM_PixelRepresentation, s.isSigned ? 1 : 0);
    if (s.frames > 1) ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(s.frames).c_str());
    if (s.window) {
        ds->putAndInsertString(DCM_WindowCenter, "40\\400");
        ds->putAndInsertString(DCM_WindowWidth, "350\\2000");
        ds->putAndInsertString(DCM_RescaleIntercept, "-1024");
        ds->putAndInsertString(DCM_RescaleSlope, "0.5");
    }
    const size_t n = std::min(px.size(), pixelCount);
    if (s.bitsAllocated == 16) {
        ds->putAndInsertUint16Array(DCM_PixelData, px.data(), n);
    } else {
        std::vector<Uint8> bytes(px.begin(), px.begin() + ptrdiff_t(n));
        ds->putAndInsertUint8Array(DCM_PixelData, bytes.data(), n);
    }
    if (drop) delete ds->remove(*drop);
    return ff;
}

void Write(DcmFileFormat &ff, const std::string &path, E_TransferSyntax xfer) {
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    ASSERT_TRUE(ff.saveFile(path.c_str(), xfer).good()) << path;
}

#ifdef RZ_GDCMDUMP
// (gggg,eeee) -> first value, from gdcmdump's text.
std::map<std::string, std::string> Dump(const std::string &path) {
    std::map<std::string, std::string> out;
    FILE *p = popen((std::string(RZ_GDCMDUMP) + " '" + path + "' 2>/dev/null").c_str(), "r");
    if (!p) return out;
    char line[4096];
    // "(0028,0010) US 5", implicit VR "(0028,0010) ?? (US) 5", strings in [ ].
    static const std::regex re(R"(^\((\w{4},\w{4})\) (?:\?\? \()?\w\w\)? \[?([^\]\\ #]*))");
    while (fgets(line, sizeof line, p)) {
        std::cmatch m;
        if (std::regex_search(line, m, re)) out[m[1]] = m[2];
    }
    pclose(p);
    return out;
}
#endif

TEST(Dicom, EveryLayoutLoadsItsSamplesAndHeader) {
    TempDir dir;
    for (const Spec &s : kSpecs) {
        SCOPED_TRACE(s.name);
        const std::vector<uint16_t> px = Samples(s, 3);
        DcmFileFormat ff = MakeFile(s, px);
        const std::string path = dir.path(std::string(s.name) + ".dcm");
        Write(ff, path, s.xfer);
        for (int page = 0; page < s.frames; ++page) {
            Loaded l(path, page);
            ASSERT_EQ(l.status, ST_SUCCESS);
            EXPECT_EQ(l.d.nBitsPerPixel, 16);
            EXPECT_EQ(l.d.nColorOrder, KRN_ORDER_GRAY);
            EXPECT_EQ(l.d.nLowBit, s.highBit - s.bitsStored + 1);
            EXPECT_EQ(l.d.nHighBit, s.highBit);
            EXPECT_EQ((l.d.uFlags & BMF_SIGNED) != 0, s.isSigned);
            for (int y = 0; y < kH; ++y)
                for (int x = 0; x < kW; ++x)
                    ASSERT_EQ(Px(&l.d, x, y), px[size_t(page) * kW * kH + size_t(y) * kW + x]) << x << "," << y;
        }
        Loaded past(path, s.frames);
        EXPECT_EQ(past.status, RZ_FILE_BAD_PAGE);

        RzDicomInfo info{};
        info.uStructSize = sizeof info;
        ASSERT_EQ(Rz_GetDicomInfo(path.c_str(), &info), ST_SUCCESS);
        RzFileInfo fi{};
        ASSERT_EQ(Info(path, &fi), ST_SUCCESS);
        EXPECT_EQ(fi.nFormat, RZ_FMT_DICOM);
        EXPECT_EQ(fi.nPages, s.frames);
        EXPECT_EQ(fi.nSignificantBits, s.bitsStored);
        EXPECT_EQ(info.bHasWindow, s.window);
        EXPECT_STREQ(info.szPhotometric, s.photometric);
        if (s.window) {
            EXPECT_EQ(info.dWindowCenter, 40);
            EXPECT_EQ(info.dWindowWidth, 350);
            EXPECT_EQ(info.dRescaleSlope, 0.5);
            EXPECT_EQ(info.dRescaleIntercept, -1024);
        }
#ifdef RZ_GDCMDUMP
        // The other toolkit's reading of the same file.
        std::map<std::string, std::string> d = Dump(path);
        ASSERT_FALSE(d.empty()) << "gdcmdump gave nothing";
        EXPECT_EQ(std::stoi(d["0028,0010"]), info.nHeight);
        EXPECT_EQ(std::stoi(d["0028,0011"]), info.nWidth);
        EXPECT_EQ(std::stoi(d["0028,0100"]), info.nBitsAllocated);
        EXPECT_EQ(std::stoi(d["0028,0101"]), info.nBitsStored);
        EXPECT_EQ(std::stoi(d["0028,0102"]), info.nHighBit);
        EXPECT_EQ(std::stoi(d["0028,0103"]), info.bSigned);
        EXPECT_EQ(d["0002,0010"], info.szTransferSyntax);
        if (s.window) {
            EXPECT_EQ(std::stod(d["0028,1050"]), info.dWindowCenter);
            EXPECT_EQ(std::stod(d["0028,1051"]), info.dWindowWidth);
        } else {
            EXPECT_EQ(d.count("0028,1050"), 0u);
        }
#endif
    }
}

TEST(Dicom, SavedFilesReadBackAndKeepTheirBits) {
    TempDir dir;
    for (const char *layout : {"grey12", "grey16_bits0_11", "grey16", "grey8"})
        for (bool isSigned : {false, true}) {
            SCOPED_TRACE(std::string(layout) + (isSigned ? " signed" : ""));
            Bitmap b(FindLayout(layout), 9, 4, 7);
            if (isSigned) b->uFlags |= BMF_SIGNED;
            const std::string path = dir.path(std::string(layout) + (isSigned ? "_s" : "") + ".dcm");
            ASSERT_EQ(Save(path, b.get()), ST_SUCCESS);
            Loaded l(path);
            ASSERT_EQ(l.status, ST_SUCCESS);
            const int32_t high = b->nBitsPerPixel == 8 ? 7 : b->nHighBit;
            EXPECT_EQ(l.d.nHighBit, high);
            EXPECT_EQ((l.d.uFlags & BMF_SIGNED) != 0, isSigned && b->nBitsPerPixel != 8);
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < 9; ++x) ASSERT_EQ(Px(&l.d, x, y), b.pixel(x, y));
#ifdef RZ_GDCMDUMP
            std::map<std::string, std::string> d = Dump(path);
            EXPECT_EQ(std::stoi(d["0028,0101"]), high + 1);
            EXPECT_EQ(std::stoi(d["0028,0011"]), 9);
#endif
        }
    Bitmap colour(FindLayout("bgr24"), 4, 4, 1);
    EXPECT_EQ(Save(dir.path("colour.dcm"), colour.get()), RZ_FILE_UNSUPPORTED);
    EXPECT_FALSE(std::filesystem::exists(dir.path("colour.dcm")));
}

// Rewrites a byte string in a file (same length).
void Patch(const std::string &path, const std::string &from, const std::string &to) {
    std::vector<uint8_t> b = ReadBytes(path);
    const std::vector<uint8_t> pattern(from.begin(), from.end());
    auto at = std::search(b.begin(), b.end(), pattern.begin(), pattern.end());
    ASSERT_NE(at, b.end()) << from;
    std::copy(to.begin(), to.end(), at);
    WriteBytes(path, b);
}

TEST(Dicom, DamagedFilesFailCleanly) {
    static const DcmTagKey kPixelData = DCM_PixelData, kRows = DCM_Rows;
    TempDir dir;
    const Spec plain{"plain", EXS_LittleEndianExplicit, 16, 12, 11, false, 1};
    const std::vector<uint16_t> px = Samples(plain, 9);
    const std::string good = dir.path("good.dcm");
    {
        DcmFileFormat ff = MakeFile(plain, px);
        Write(ff, good, plain.xfer);
    }
    const size_t size = ReadBytes(good).size();
    struct Bad {
        const char *what;
        int32_t status;
        std::function<void(const std::string &)> make;
    } cases[] = {
        {"truncated in the header", RZ_FILE_CORRUPT,
         [&](const std::string &p) { auto b = ReadBytes(good); b.resize(300); WriteBytes(p, b); }},
        {"truncated in the pixels", RZ_FILE_CORRUPT,
         [&](const std::string &p) { auto b = ReadBytes(good); b.resize(size - 9); WriteBytes(p, b); }},
        {"huge declared size", RZ_FILE_TOO_LARGE,
         [&](const std::string &p) { DcmFileFormat ff = MakeFile(plain, px, 60000, 60000); Write(ff, p, plain.xfer); }},
        {"pixel data longer than the file", RZ_FILE_CORRUPT,
         [&](const std::string &p) {
             std::filesystem::copy_file(good, p);
             Patch(p, std::string("\xe0\x7f\x10\x00OW\x00\x00\x46\x00\x00\x00", 12),
                   std::string("\xe0\x7f\x10\x00OW\x00\x00\xf0\xff\xff\x7f", 12));
         }},
        {"compressed transfer syntax", RZ_FILE_DICOM_COMPRESSED,
         [&](const std::string &p) {
             std::filesystem::copy_file(good, p);
             Patch(p, UID_LittleEndianExplicitTransferSyntax, UID_RLELosslessTransferSyntax);
         }},
        {"no pixel data", RZ_FILE_DICOM_NO_PIXELS,
         [&](const std::string &p) { DcmFileFormat ff = MakeFile(plain, px, kH, kW, &kPixelData); Write(ff, p, plain.xfer); }},
        {"no rows", RZ_FILE_DICOM_NO_PIXELS,
         [&](const std::string &p) { DcmFileFormat ff = MakeFile(plain, px, kH, kW, &kRows); Write(ff, p, plain.xfer); }},
        {"fewer pixels than the size needs", RZ_FILE_DICOM_NO_PIXELS,
         [&](const std::string &p) { DcmFileFormat ff = MakeFile(plain, px, kH, kW, nullptr, 20); Write(ff, p, plain.xfer); }},
        {"colour", RZ_FILE_UNSUPPORTED,
         [&](const std::string &p) {
             const Spec rgb{"rgb", EXS_LittleEndianExplicit, 16, 12, 11, false, 1, "RGB"};
             DcmFileFormat ff = MakeFile(rgb, px);
             Write(ff, p, plain.xfer);
         }},
        {"bits stored above bits allocated", RZ_FILE_UNSUPPORTED,
         [&](const std::string &p) {
             const Spec odd{"odd", EXS_LittleEndianExplicit, 8, 12, 11, false, 1};
             DcmFileFormat ff = MakeFile(odd, px);
             Write(ff, p, plain.xfer);
         }},
        {"only the preamble", RZ_FILE_CORRUPT,
         [&](const std::string &p) { WriteText(p, std::string(128, '\0') + "DICM"); }},
    };
    for (const Bad &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.path("bad.dcm");
        std::filesystem::remove(path);
        c.make(path);
        const int64_t blocks = KrnMemOutstanding();
        BitmapDesc d{};
        d.nWidth = 1234;
        EXPECT_EQ(Rz_LoadBitmap(path.c_str(), &d, BITMAPDESC_SIZE, 0), c.status);
        EXPECT_EQ(d.nWidth, 1234) << "the caller's descriptor changed";
        EXPECT_EQ(KrnMemOutstanding(), blocks);
        EXPECT_NE(std::string(Rz_FileStatusText(c.status)), "unknown status");
    }
    RzDicomInfo info{};
    info.uStructSize = sizeof info;
    WriteText(dir.path("not.dcm"), "P5 1 1 255\n\x01");
    EXPECT_EQ(Rz_GetDicomInfo(dir.path("not.dcm").c_str(), &info), RZ_FILE_FORMAT);
    info.uStructSize = 3;
    EXPECT_EQ(Rz_GetDicomInfo(good.c_str(), &info), ST_BAD_STRUCT_SIZE);
}

} // namespace
} // namespace rz::test
