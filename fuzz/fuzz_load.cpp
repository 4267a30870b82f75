// libFuzzer target for the file library: each input is written to a
// temporary file and loaded (first and second page) and described. A load
// must give a status, never crash, and leave no kernel block behind; a
// successful load must give a bitmap the kernel accepts.
#include <rzfil.h>
#include <rzimg.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

// Keeps decoding cheap: hostile headers are refused early anyway.
const bool g_limited = (Rz_SetFilePixelLimit(int64_t(1) << 22), true);

char g_path[64];

const char *TempPath() {
    if (!g_path[0])
        snprintf(g_path, sizeof g_path, "/tmp/rzfil-fuzz-%ld.bin", long(getpid()));
    return g_path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    (void)g_limited;
    const char *path = TempPath();
    FILE *f = fopen(path, "wb");
    if (!f)
        return 0;
    fwrite(data, 1, size, f);
    fclose(f);
    const int64_t before = KrnMemOutstanding();
    for (int32_t page = 0; page < 2; ++page) {
        BitmapDesc d{};
        if (Rz_LoadBitmap(path, &d, BITMAPDESC_SIZE, page) == ST_SUCCESS) {
            if (KrnValidateBitmap(&d) != KRN_OK)
                abort();
            KrnFreeBitmap(&d);
        }
    }
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    Rz_GetFileInfo(path, &info);
    if (KrnMemOutstanding() != before)
        abort();
    return 0;
}
