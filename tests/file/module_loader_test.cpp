// Loading the file library at run time by name, as the image library does:
// a missing module and a missing entry point both give -16, and the entry
// found is the very function the test links and works.
#include "file_helpers.h"
#include "frame/module_loader.h"
#include "support/bitmaps.h"

namespace rz::test {
namespace {

TEST(ModuleLoader, MissingModuleOrEntryGivesLibraryNotLoaded) {
    // Internal names are hidden, so they are missing entries too.
    const std::pair<const char *, const char *> missing[] = {{"librzno_such_module14n.so", "Rz_LoadBitmap"},
                                                             {"librzfil14n.so", "Rz_NoSuchEntry"},
                                                             {"librzfil14n.so", "_ZN5rzfil10PixelLimitEv"},
                                                             {"", "Rz_LoadBitmap"}};
    for (auto [module, entry] : missing) {
        void *fn = reinterpret_cast<void *>(1);
        EXPECT_EQ(LoadModuleEntry(module, entry, &fn), ST_LIBRARY_NOT_LOADED) << module << " " << entry;
        EXPECT_EQ(fn, nullptr);
    }
    EXPECT_EQ(LoadModuleEntry("librzfil14n.so", "Rz_LoadBitmap", nullptr), ST_NULL_POINTER);
    LoadedModule m;
    EXPECT_EQ(m.open("librzno_such_module14n.so"), ST_LIBRARY_NOT_LOADED);
    EXPECT_FALSE(m.loaded());
    ASSERT_EQ(m.open("librzfil14n.so"), ST_SUCCESS);
    void *fn = reinterpret_cast<void *>(1);
    EXPECT_EQ(m.entry("Rz_Missing", &fn), ST_LIBRARY_NOT_LOADED);
    EXPECT_EQ(fn, nullptr);
    EXPECT_EQ(m.entry("Rz_FileStatusText", &fn), ST_SUCCESS);
    EXPECT_EQ(fn, reinterpret_cast<void *>(&Rz_FileStatusText));
}

TEST(ModuleLoader, EntryFoundByNameLoadsAFile) {
    TempDir dir;
    Bitmap src(FindLayout("pal8_colour"), 6, 4, 3);
    ASSERT_EQ(Save(dir.path("m.png"), src.get()), ST_SUCCESS);
    void *fn = nullptr;
    ASSERT_EQ(LoadModuleEntry("librzfil14n.so", "Rz_LoadBitmap", &fn), ST_SUCCESS);
    ASSERT_EQ(fn, reinterpret_cast<void *>(&Rz_LoadBitmap));
    using LoadFn = int32_t(RZAPI *)(const char *, BitmapDesc *, uint32_t, int32_t);
    BitmapDesc d{};
    ASSERT_EQ(reinterpret_cast<LoadFn>(fn)(dir.path("m.png").c_str(), &d, BITMAPDESC_SIZE, 0), ST_SUCCESS);
    EXPECT_EQ(Px(&d, 5, 3), src.pixel(5, 3));
    KrnFreeBitmap(&d);
}

} // namespace
} // namespace rz::test
