// DICOM files of every layout the loader takes, written here with DCMTK
// from known samples: the bitmap holds those samples with the bit range and
// sign of the header, the reported header agrees with GDCM's gdcmdump, and
// damaged files fail with their status, leaving the caller's descriptor.
#include "file_helpers.h"

#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/oflog/oflog.h>

#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <regex>

namespace rz::test {
namespace {

struct Spec {
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
std::vector<uint16_t> Samples(const Spec &s) {
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
void Write(const std::string &path, const Spec &s, const std::vector<uint16_t> &px,
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
    if (s.frames > 1)
        ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(s.frames).c_str());
    for (auto [tag, v] : {std::pair{DCM_WindowCenter, "40\\400"}, {DCM_WindowWidth, "350\\2000"},
                          {DCM_RescaleIntercept, "-1024"}, {DCM_RescaleSlope, "0.5"}})
        if (s.window)
            ds->putAndInsertString(tag, v);
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

// (gggg,eeee) -> first value, from gdcmdump's text: "(0028,0010) US 5",
// implicit VR "(0028,0010) ?? (US) 5", strings in [ ].
std::map<std::string, std::string> Dump(const std::string &path) {
    std::map<std::string, std::string> out;
#ifdef RZ_GDCMDUMP
    FILE *p = popen((std::string(RZ_GDCMDUMP) + " '" + path + "' 2>/dev/null").c_str(), "r");
    static const std::regex re(R"(^\((\w{4},\w{4})\) (?:\?\? \()?\w\w\)? \[?([^\]\\ #]*))");
    char line[4096];
    for (std::cmatch m; p && fgets(line, sizeof line, p);)
        if (std::regex_search(line, m, re))
            out[m[1]] = m[2];
    if (p)
        pclose(p);
#endif
    return out;
}

TEST(Dicom, EveryLayoutLoadsItsSamplesAndHeader) {
    TempDir dir;
    const Spec specs[] = {
        {EXS_LittleEndianExplicit, 16, 16, 15, false, 1},
        {EXS_LittleEndianImplicit, 16, 12, 11, true, 1},
        {EXS_LittleEndianExplicit, 16, 12, 13, false, 1, "MONOCHROME1", false},
        {EXS_LittleEndianExplicit, 8, 8, 7, false, 1},
        {EXS_LittleEndianImplicit, 8, 8, 7, false, 1},
        {EXS_BigEndianExplicit, 16, 10, 9, true, 2},
    };
    for (const Spec &s : specs) {
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
        }
        EXPECT_EQ(Loaded(path, s.frames).status, RZ_FILE_BAD_PAGE);
        RzDicomInfo info{};
        info.uStructSize = sizeof info;
        ASSERT_EQ(Rz_GetDicomInfo(path.c_str(), &info), ST_SUCCESS);
        RzFileInfo fi{};
        ASSERT_EQ(Info(path, &fi), ST_SUCCESS);
        EXPECT_EQ(std::tuple(fi.nFormat, fi.nPages, fi.nSignificantBits, info.bHasWindow,
                             std::string(info.szPhotometric)),
                  std::tuple(RZ_FMT_DICOM, s.frames, s.bitsStored, s.window, s.photometric));
        // The first of several window values; rescale as written.
        if (s.window) {
            EXPECT_EQ(std::tuple(info.dWindowCenter, info.dWindowWidth, info.dRescaleSlope,
                                 info.dRescaleIntercept),
                      std::tuple(40.0, 350.0, 0.5, -1024.0));
        }
#ifdef RZ_GDCMDUMP
        std::map<std::string, std::string> d = Dump(path); // the other toolkit's reading
        auto n = [&](const char *tag) { return d.count(tag) ? std::stod(d[tag]) : -1e9; };
        EXPECT_EQ(std::tuple(n("0028,0010"), n("0028,0011"), n("0028,0100"), n("0028,0101"),
                             n("0028,0102"), n("0028,0103"), d["0002,0010"]),
                  std::tuple(info.nHeight, info.nWidth, info.nBitsAllocated, info.nBitsStored,
                             info.nHighBit, int(info.bSigned), info.szTransferSyntax));
        EXPECT_EQ(d.count("0028,1050"), size_t(s.window));
        if (s.window) {
            EXPECT_EQ(std::tuple(n("0028,1050"), n("0028,1051"), n("0028,1053"), n("0028,1052")),
                      std::tuple(info.dWindowCenter, info.dWindowWidth, info.dRescaleSlope,
                                 info.dRescaleIntercept));
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
            b->uFlags |= isSigned ? BMF_SIGNED : 0;
            ASSERT_EQ(Save(dir.path("s.dcm"), b.get()), ST_SUCCESS);
            Loaded l(dir.path("s.dcm"));
            ASSERT_EQ(l.status, ST_SUCCESS);
            const int32_t high = b->nBitsPerPixel == 8 ? 7 : b->nHighBit;
            const bool sign = isSigned && b->nBitsPerPixel != 8; // 8-bit grey has no sign
            EXPECT_EQ(std::tuple(l->nHighBit, (l->uFlags & BMF_SIGNED) != 0),
                      std::tuple(high, sign));
            for (int i = 0; i < 9 * 4; ++i)
                ASSERT_EQ(l.pixel(i % 9, i / 9), b.pixel(i % 9, i / 9)) << i;
#ifdef RZ_GDCMDUMP
            std::map<std::string, std::string> d = Dump(dir.path("s.dcm"));
            EXPECT_EQ(std::tuple(d["0028,0101"], d["0028,0011"], d["0028,0103"]),
                      std::tuple(std::to_string(high + 1), "9", std::to_string(sign)));
#endif
        }
}

// Damaged files fail with their status, leave the caller's descriptor
// alone and give back every kernel block.
TEST(Dicom, DamagedFilesFailCleanly) {
    TempDir dir;
    const Spec plain{EXS_LittleEndianExplicit, 16, 12, 11, false, 1};
    const std::vector<uint16_t> px = Samples(plain);
    Write(dir.path("good.dcm"), plain, px);
    const Bytes good = ReadBytes(dir.path("good.dcm"));
    using Edit = std::function<void(DcmDataset *)>;
    auto made = [&](Edit edit, const char *photometric = "MONOCHROME2", int bitsAllocated = 16) {
        Spec s = plain;
        s.photometric = photometric, s.bitsAllocated = bitsAllocated;
        return [=](const std::string &p) { Write(p, s, px, edit); };
    };
    auto bytes = [&](size_t keep, std::string from = "", std::string to = "") {
        return [=](const std::string &p) {
            Bytes b = good.substr(0, keep);
            WriteBytes(p, from.empty() ? b : b.replace(b.find(from), to.size(), to));
        };
    };
    auto drop = [](DcmTagKey tag) { return [=](DcmDataset *ds) { delete ds->remove(tag); }; };
    const std::string pixelTag("\xe0\x7f\x10\x00OW\x00\x00", 8);
    const std::tuple<const char *, int32_t, std::function<void(const std::string &)>> cases[] = {
        {"truncated in the header", RZ_FILE_CORRUPT, bytes(300)},
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
        {"no pixel data", RZ_FILE_DICOM_NO_PIXELS, made(drop(DCM_PixelData))},
        {"no rows", RZ_FILE_DICOM_NO_PIXELS, made(drop(DCM_Rows))},
        {"fewer pixels than the size needs", RZ_FILE_DICOM_NO_PIXELS,
         made([&](DcmDataset *ds) { ds->putAndInsertUint16Array(DCM_PixelData, px.data(), 20); })},
        {"colour", RZ_FILE_UNSUPPORTED, made({}, "RGB")},
        {"bits stored above bits allocated", RZ_FILE_UNSUPPORTED, made({}, "MONOCHROME2", 8)},
        {"only the preamble", RZ_FILE_CORRUPT,
         [](const std::string &p) { WriteBytes(p, std::string(128, '\0') + "DICM"); }},
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
    WriteBytes(dir.path("not.dcm"), "P5 1 1 255\n\x01");
    RzDicomInfo info{};
    info.uStructSize = sizeof info;
    EXPECT_EQ(Rz_GetDicomInfo(dir.path("not.dcm").c_str(), &info), RZ_FILE_FORMAT);
}

} // namespace
} // namespace rz::test
