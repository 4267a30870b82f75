// Loading the file library at run time by name, as the image library does:
// a missing module and a missing entry point (internal names are hidden, so
// missing too) both give -16, and the entry found is the very function the
// test links, and it works.
#include "file_helpers.h"
#include "frame/module_loader.h"

namespace rz::test {
namespace {

TEST(ModuleLoader, FindsExportedEntriesOnlyAndTheyWork) {
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
    ASSERT_EQ(m.entry("Rz_LoadBitmap", &fn), ST_SUCCESS);
    ASSERT_EQ(fn, reinterpret_cast<void *>(&Rz_LoadBitmap));
    TempDir dir;
    Bitmap src(FindLayout("pal8_colour"), 6, 4, 3);
    ASSERT_EQ(Save(dir.path("m.png"), src.get()), ST_SUCCESS);
    Loaded got(dir.path("none.png")); // nothing there: an empty bitmap to load into
    using LoadFn = int32_t(RZAPI *)(const char *, BitmapDesc *, uint32_t, int32_t);
    ASSERT_EQ(reinterpret_cast<LoadFn>(fn)(dir.path("m.png").c_str(), got.get(), BITMAPDESC_SIZE, 0), ST_SUCCESS);
    EXPECT_EQ(got.storedBytes(), src.storedBytes());
}

} // namespace
} // namespace rz::test
