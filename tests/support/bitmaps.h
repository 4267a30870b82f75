// Test bitmaps: every stored layout the library handles, filled from a seed,
// owned by RAII; and a recording status callback.
#pragma once

#include <rzimg.h>

#include <cstdint>
#include <string>
#include <vector>

namespace rz::test {

struct Layout {
    const char *name;
    int32_t bits;
    int32_t order;         // nColorOrder
    int32_t dataKind;      // nDataKind
    int32_t lowBit = 0;    // 12/16-bit grey
    int32_t highBit = -1;
    bool colourPalette = false; // 1..8 bits: a coloured palette instead of the grey ramp
    bool displayTable = false;  // 12/16-bit grey shown through a 256-entry pLUT (BMF_USE_LUT)
};

// Every layout: 1/4/8-bit grey and colour palettes, 8-bit grey samples, 12-bit
// and 16-bit grey (full and 0..11), 16-bit through a display table, 24/32/48/64
// in both colour orders.
const std::vector<Layout> &AllLayouts();
const Layout &FindLayout(const std::string &name);

class Bitmap {
  public:
    Bitmap() = default;
    // A seeded random bitmap; seed 0 leaves it zero-filled.
    Bitmap(const Layout &layout, int32_t width, int32_t height, uint32_t seed = 1);
    ~Bitmap();
    Bitmap(const Bitmap &other);
    Bitmap &operator=(const Bitmap &other);
    Bitmap(Bitmap &&other) noexcept;
    Bitmap &operator=(Bitmap &&other) noexcept;
    // Takes ownership of a bitmap the library made (a file loaded, a result).
    static Bitmap Adopt(const BitmapDesc &desc);

    BitmapDesc *get() { return &desc_; }
    const BitmapDesc *get() const { return &desc_; }
    BitmapDesc *operator->() { return &desc_; }
    const BitmapDesc *operator->() const { return &desc_; }

    // Raw sample value of view pixel (x, y) as KrnGetPixel gives it.
    uint64_t pixel(int32_t x, int32_t y) const;
    void setPixel(int32_t x, int32_t y, uint64_t value);
    // Every stored byte, row by row (stride padding excluded), for equality.
    std::vector<uint8_t> storedBytes() const;

  private:
    BitmapDesc desc_{};
    bool owned_ = false;
};

// An 8-bit grey-sample bitmap (nColorOrder 2, nDataKind 1) from values.
Bitmap GreyBitmap(int32_t width, int32_t height, const std::vector<uint8_t> &values);

// Installs itself as the thread's status callback for its lifetime; records
// the percentages and can stop at the n-th call (1-based) with a value.
class CallbackRecorder {
  public:
    CallbackRecorder();
    ~CallbackRecorder();
    void stopAt(int32_t call, int32_t value) {
        stopCall_ = call;
        stopValue_ = value;
    }
    const std::vector<int32_t> &percents() const { return percents_; }
    int32_t calls() const { return static_cast<int32_t>(percents_.size()); }
    void clear() { percents_.clear(); }
    // True when the kernel's callback is this recorder's.
    bool installed() const;

  private:
    static int32_t RZAPI Callback(int32_t percent, void *user);
    std::vector<int32_t> percents_;
    int32_t stopCall_ = 0;
    int32_t stopValue_ = 0;
    RZSTATUSCALLBACK prev_ = nullptr;
    void *prevUser_ = nullptr;
};

// A zero-filled bitmap of any depth 1..64, set up as KrnInitBitmap sets it
// up (grey ramp up to 8 bits, grey order at 12/16, blue first above).
Bitmap DepthBitmap(int32_t width, int32_t height, int32_t bits);
// An owned, released descriptor for kernel calls that fill an uninitialised
// one (conversions, copies, view changes): whatever they leave is freed.
Bitmap OutputBitmap();

// A direct pixel (grey 8/12/16, colour 24/32/48/64) as the operations work on
// it: blue, green, red (or the grey level in v[0]) and the fourth channel,
// 8 bits a channel or 16 (12-bit grey at the top of 16 bits, 48/64-bit colour).
struct Channels {
    int count = 1; // 1 or 3
    int bits = 8;  // 8 or 16
    uint32_t v[3] = {};
    uint32_t fourth = 0;
    uint32_t max() const { return bits == 16 ? 65535u : 255u; }
};
Channels ReadChannels(const Bitmap &b, int32_t x, int32_t y);
void WriteChannels(Bitmap &b, int32_t x, int32_t y, const Channels &c);
// The layouts ReadChannels takes apart.
const std::vector<const char *> &DirectLayouts();

} // namespace rz::test
