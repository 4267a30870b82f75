// Companion modules found at run time: by bare name beside our libraries,
// entry points that work once found, and -16 for whatever is missing.
#include "frame/module_loader.h"
#include "frame/status.h"

#include <rzfil.h>

#include <gtest/gtest.h>

namespace rz {
namespace {

TEST(ModuleLoader, FindsEntriesOrGivesNotLoaded) {
    struct Case {
        const char *module, *entry;
        int32_t status;
    } const cases[] = {
        {RZ_FILE_MODULE, "Rz_LoadBitmap", ST_SUCCESS},
        {RZ_FILE_MODULE, "Rz_NoSuchEntry", ST_LIBRARY_NOT_LOADED},
        {RZ_FILE_MODULE, nullptr, ST_LIBRARY_NOT_LOADED},
        {"librz_no_such_module.so", "Rz_LoadBitmap", ST_LIBRARY_NOT_LOADED},
        {"/nonexistent/" RZ_FILE_MODULE, "Rz_LoadBitmap", ST_LIBRARY_NOT_LOADED},
        {"", "Rz_LoadBitmap", ST_LIBRARY_NOT_LOADED},
        {nullptr, "Rz_LoadBitmap", ST_LIBRARY_NOT_LOADED},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.module ? c.module : "(null)") + " " + (c.entry ? c.entry : "(null)"));
        void *fn = reinterpret_cast<void *>(1);
        EXPECT_EQ(LoadModuleEntry(c.module, c.entry, &fn), c.status);
        EXPECT_EQ(fn != nullptr, c.status == ST_SUCCESS);
    }
    EXPECT_EQ(LoadModuleEntry(RZ_FILE_MODULE, "Rz_LoadBitmap", nullptr), ST_NULL_POINTER);
}

// The entry is usable after the loader's owner is gone: a missing file is
// reported by the module itself.
TEST(ModuleLoader, EntryStaysCallable) {
    void *fn = nullptr;
    ASSERT_EQ(LoadModuleEntry(RZ_FILE_MODULE, "Rz_LoadBitmap", &fn), ST_SUCCESS);
    BitmapDesc bmp{};
    const auto load = reinterpret_cast<decltype(&Rz_LoadBitmap)>(fn);
    EXPECT_LT(load("/nonexistent/picture.png", &bmp, sizeof bmp, 0), 0);

    LoadedModule m;
    ASSERT_EQ(m.open(RZ_FILE_MODULE), ST_SUCCESS);
    EXPECT_TRUE(m.loaded());
    EXPECT_EQ(m.open("librz_no_such_module.so"), ST_LIBRARY_NOT_LOADED);
    EXPECT_FALSE(m.loaded());
}

} // namespace
} // namespace rz
