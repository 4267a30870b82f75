// Loading the file library at run time by name, as the image library does:
// a missing module and a missing entry point both give -16, and the entry
// found works.
#include "file_helpers.h"
#include "frame/module_loader.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

namespace rz::test {
namespace {

using LoadFn = int32_t(RZAPI *)(const char *, BitmapDesc *, uint32_t, int32_t);

TEST(ModuleLoader, MissingModuleOrEntryGivesLibraryNotLoaded) {
    void *fn = reinterpret_cast<void *>(1);
    EXPECT_EQ(LoadModuleEntry("librzno_such_module14n.so", "Rz_LoadBitmap", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(fn, nullptr);
    fn = reinterpret_cast<void *>(1);
    EXPECT_EQ(LoadModuleEntry("librzfil14n.so", "Rz_NoSuchEntry", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(fn, nullptr);
    // Internal names are hidden, so they are missing entries too.
    EXPECT_EQ(LoadModuleEntry("librzfil14n.so", "_ZN5rzfil10PixelLimitEv", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(LoadModuleEntry("", "Rz_LoadBitmap", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(LoadModuleEntry("librzfil14n.so", "Rz_LoadBitmap", nullptr), ST_NULL_POINTER);
}

TEST(ModuleLoader, EntryFoundByNameLoadsAFile) {
    TempDir dir;
    Bitmap src(FindLayout("pal8_colour"), 6, 4, 3);
    ASSERT_EQ(Save(dir.path("m.png"), src.get()), ST_SUCCESS);

    void *fn = nullptr;
    ASSERT_EQ(LoadModuleEntry("librzfil14n.so", "Rz_LoadBitmap", &fn), ST_SUCCESS);
    ASSERT_NE(fn, nullptr);
    // The same library the test links, so the very same function.
    EXPECT_EQ(fn, reinterpret_cast<void *>(&Rz_LoadBitmap));
    BitmapDesc d{};
    ASSERT_EQ(reinterpret_cast<LoadFn>(fn)(dir.path("m.png").c_str(), &d, BITMAPDESC_SIZE, 0), ST_SUCCESS);
    uint64_t a = 0, b = 0;
    KrnGetPixel(src.get(), 5, 3, &a);
    KrnGetPixel(&d, 5, 3, &b);
    EXPECT_EQ(a, b);
    KrnFreeBitmap(&d);
}

TEST(ModuleLoader, OwnerReleasesTheModule) {
    LoadedModule m;
    EXPECT_EQ(m.open("librzno_such_module14n.so"), ST_LIBRARY_NOT_LOADED);
    EXPECT_FALSE(m.loaded());
    ASSERT_EQ(m.open("librzfil14n.so"), ST_SUCCESS);
    void *fn = nullptr;
    EXPECT_EQ(m.entry("Rz_FileStatusText", &fn), ST_SUCCESS);
    EXPECT_EQ(m.entry("Rz_Missing", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(fn, nullptr);
}

} // namespace
} // namespace rz::test
