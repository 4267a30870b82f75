// Loading the file library at run time by name, as the image library does:
// a missing module or entry point (internal names are hidden, so missing
// too) gives -16 and no function; a found entry is the very function linked.
#include "file_helpers.h"
#include "frame/module_loader.h"

namespace rz::test {
namespace {

TEST(ModuleLoader, FindsExportedEntriesOnly) {
    const std::pair<const char *, const char *> missing[] = {
        {"librzno_such_module14n.so", "Rz_LoadBitmap"}, {"librzfil14n.so", "Rz_NoSuchEntry"},
        {"librzfil14n.so", "_ZN5rzfil10PixelLimitEv"}, {"", "Rz_LoadBitmap"}};
    for (auto [module, entry] : missing) {
        void *fn = reinterpret_cast<void *>(1);
        EXPECT_EQ(LoadModuleEntry(module, entry, &fn), ST_LIBRARY_NOT_LOADED) << module << entry;
        EXPECT_EQ(fn, nullptr);
    }
    LoadedModule m;
    EXPECT_EQ(m.open("librzno_such_module14n.so"), ST_LIBRARY_NOT_LOADED);
    ASSERT_EQ(m.open("librzfil14n.so"), ST_SUCCESS);
    void *fn = nullptr;
    ASSERT_EQ(m.entry("Rz_LoadBitmap", &fn), ST_SUCCESS);
    EXPECT_EQ(fn, reinterpret_cast<void *>(&Rz_LoadBitmap));
}

} // namespace
} // namespace rz::test
