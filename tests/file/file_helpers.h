// Shared pieces of the file library tests: a scratch folder, raw file bytes,
// and a colour view of any pixel that does not depend on the depth.
#pragma once

#include <rzfil.h>
#include <rzimg.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace rz::test {

// A fresh folder, removed with its contents at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    std::string path(const std::string &name) const { return (dir_ / name).string(); }
    std::vector<std::string> names() const; // sorted, hidden files included
    const std::filesystem::path &dir() const { return dir_; }

  private:
    std::filesystem::path dir_;
};

std::vector<uint8_t> ReadBytes(const std::string &path);
void WriteBytes(const std::string &path, const std::vector<uint8_t> &bytes);
void WriteText(const std::string &path, const std::string &text);

// A loaded bitmap, freed at the end.
struct Loaded {
    BitmapDesc d{};
    int32_t status = 0;
    Loaded() = default;
    explicit Loaded(const std::string &path, int32_t page = 0) { load(path, page); }
    int32_t load(const std::string &path, int32_t page = 0);
    ~Loaded();
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;
};

// What a pixel shows: 16-bit red, green, blue and alpha (65535 without a
// fourth channel). Grey of 12/16 bits is its significant range scaled to 16
// bits by a left shift.
struct Rgba {
    uint32_t r, g, b, a;
    bool operator==(const Rgba &o) const = default;
};
Rgba Look(const BitmapDesc *b, int32_t x, int32_t y);

// Saves and returns the status.
int32_t Save(const std::string &path, const BitmapDesc *b, int32_t format = RZ_FMT_UNKNOWN, int32_t compression = 0,
             int32_t quality = 0);

} // namespace rz::test
