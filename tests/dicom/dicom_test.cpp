// DICOM files of every layout the loader takes, written here with DCMTK
// from known sample values: the loaded bitmap must hold those values with
// the bit range and sign the header gives, the reported header must agree
// with GDCM's gdcmdump of the same file, and damaged files must fail with
// their documented status, without leaks and without touching the caller's
// descriptor.
#include "file_helpers.h"

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
            EXPECT_EQ(std::tuple(l->nBitsPerPixel, l->nColorOrder, l->nLowBit, l->nHighBit, (l->uFlags & BMF_SIGNED) != 0),
                      std::tuple(16, KRN_ORDER_GRAY, s.highBit - s.bitsStored + 1, s.highBit, s.isSigned));
            for (int i = 0; i < kW * kH; ++i)
                ASSERT_EQ(l.pixel(i % kW, i / kW), px[size_t(page) * kW * kH + size_t(i)]) << i;
        }
        Loaded past(path, s.frames);
        EXPECT_EQ(past.status, RZ_FILE_BAD_PAGE);

        RzDicomInfo info{};
        info.uStructSize = sizeof info;
        ASSERT_EQ(Rz_GetDicomInfo(path.c_str(), &info), ST_SUCCESS);
        RzFileInfo fi{};
        ASSERT_EQ(Info(path, &fi), ST_SUCCESS);
        EXPECT_EQ(std::tuple(fi.nFormat, fi.nPages, fi.nSignificantBits, info.bHasWindow, std::string(info.szPhotometric)),
                  std::tuple(RZ_FMT_DICOM, s.frames, s.bitsStored, s.window, std::string(s.photometric)));
        // The first of several window values; rescale as written.
        if (s.window) {
            EXPECT_EQ(std::tuple(info.dWindowCenter, info.dWindowWidth, info.dRescaleSlope, info.dRescaleIntercept),
                      std::tuple(40.0, 350.0, 0.5, -1024.0));
        }
#ifdef RZ_GDCMDUMP
        // The other toolkit's reading of the same file.
        std::map<std::string, std::string> d = Dump(path);
        ASSERT_FALSE(d.empty()) << "gdcmdump gave nothing";
        EXPECT_EQ(std::tuple(std::stoi(d["0028,0010"]), std::stoi(d["0028,0011"]), std::stoi(d["0028,0100"]),
                             std::stoi(d["0028,0101"]), std::stoi(d["0028,0102"]), std::stoi(d["0028,0103"]),
                             d["0002,0010"]),
                  std::tuple(info.nHeight, info.nWidth, info.nBitsAllocated, info.nBitsStored, info.nHighBit,
                             int(info.bSigned), std::string(info.szTransferSyntax)));
        if (s.window) {
            EXPECT_EQ(std::tuple(std::stod(d["0028,1050"]), std::stod(d["0028,1051"]), std::stod(d["0028,1053"]),
                                 std::stod(d["0028,1052"])),
                      std::tuple(info.dWindowCenter, info.dWindowWidth, info.dRescaleSlope, info.dRescaleIntercept));
        }
        EXPECT_EQ(d.count("0028,1050"), size_t(s.window));
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
            const bool sign = isSigned && b->nBitsPerPixel != 8; // 8-bit grey samples have no sign
            EXPECT_EQ(std::tuple(l->nHighBit, (l->uFlags & BMF_SIGNED) != 0), std::tuple(high, sign));
            for (int i = 0; i < 9 * 4; ++i)
                ASSERT_EQ(l.pixel(i % 9, i / 9), b.pixel(i % 9, i / 9)) << i;
#ifdef RZ_GDCMDUMP
            std::map<std::string, std::string> d = Dump(path);
            EXPECT_EQ(std::tuple(std::stoi(d["0028,0101"]), std::stoi(d["0028,0011"]), std::stoi(d["0028,0103"])),
                      std::tuple(high + 1, 9, int(sign)));
#endif
        }
}

// Damaged files fail with their documented status, leave the caller's
// descriptor alone and give back every kernel block.
TEST(Dicom, DamagedFilesFailCleanly) {
    static const DcmTagKey kPixelData = DCM_PixelData, kRows = DCM_Rows;
    TempDir dir;
    const Spec plain{"plain", EXS_LittleEndianExplicit, 16, 12, 11, false, 1};
    const std::vector<uint16_t> px = Samples(plain, 9);
    const std::string good = dir.path("good.dcm");
    DcmFileFormat base = MakeFile(plain, px);
    Write(base, good, plain.xfer);
    const Bytes bytes = ReadBytes(good);
    auto made = [&](Spec s, int rows, int cols, const DcmTagKey *drop, size_t count) {
        return [=](const std::string &p) {
            DcmFileFormat ff = MakeFile(s, px, rows, cols, drop, count);
            Write(ff, p, s.xfer);
        };
    };
    auto cut = [&](size_t keep) { return [=](const std::string &p) { WriteBytes(p, Bytes(bytes.begin(), bytes.begin() + ptrdiff_t(keep))); }; };
    auto patched = [&](std::string from, std::string to) {
        return [=](const std::string &p) {
            Bytes b = bytes;
            const auto at = std::search(b.begin(), b.end(), from.begin(), from.end(),
                                        [](uint8_t a, char c) { return a == uint8_t(c); });
            ASSERT_NE(at, b.end()) << from;
            std::copy(to.begin(), to.end(), at);
            WriteBytes(p, b);
        };
    };
    Spec rgb = plain, odd = plain;
    rgb.photometric = "RGB";
    odd.bitsAllocated = 8;
    const std::tuple<const char *, int32_t, std::function<void(const std::string &)>> cases[] = {
        {"truncated in the header", RZ_FILE_CORRUPT, cut(300)},
        {"truncated in the pixels", RZ_FILE_CORRUPT, cut(bytes.size() - 9)},
        {"huge declared size", RZ_FILE_TOO_LARGE, made(plain, 60000, 60000, nullptr, SIZE_MAX)},
        {"pixel data longer than the file", RZ_FILE_CORRUPT,
         patched(std::string("\xe0\x7f\x10\x00OW\x00\x00\x46\x00\x00\x00", 12),
                 std::string("\xe0\x7f\x10\x00OW\x00\x00\xf0\xff\xff\x7f", 12))},
        {"compressed transfer syntax", RZ_FILE_DICOM_COMPRESSED,
         patched(UID_LittleEndianExplicitTransferSyntax, UID_RLELosslessTransferSyntax)},
        {"no pixel data", RZ_FILE_DICOM_NO_PIXELS, made(plain, kH, kW, &kPixelData, SIZE_MAX)},
        {"no rows", RZ_FILE_DICOM_NO_PIXELS, made(plain, kH, kW, &kRows, SIZE_MAX)},
        {"fewer pixels than the size needs", RZ_FILE_DICOM_NO_PIXELS, made(plain, kH, kW, nullptr, 20)},
        {"colour", RZ_FILE_UNSUPPORTED, made(rgb, kH, kW, nullptr, SIZE_MAX)},
        {"bits stored above bits allocated", RZ_FILE_UNSUPPORTED, made(odd, kH, kW, nullptr, SIZE_MAX)},
        {"only the preamble", RZ_FILE_CORRUPT,
         [](const std::string &p) { WriteText(p, std::string(128, '\0') + "DICM"); }},
    };
    for (const auto &[what, status, make] : cases) {
        SCOPED_TRACE(what);
        const std::string path = dir.path("bad.dcm");
        std::filesystem::remove(path);
        make(path);
        const int64_t blocks = KrnMemOutstanding();
        BitmapDesc d{};
        d.nWidth = 1234;
        EXPECT_EQ(Rz_LoadBitmap(path.c_str(), &d, BITMAPDESC_SIZE, 0), status);
        EXPECT_EQ(d.nWidth, 1234) << "the caller's descriptor changed";
        EXPECT_EQ(KrnMemOutstanding(), blocks);
        EXPECT_STRNE(Rz_FileStatusText(status), Rz_FileStatusText(12345));
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
