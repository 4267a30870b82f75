// PBM, PGM and PPM, plain (P1-P3) and raw (P4-P6), with maxval up to 65535.
//
// Depth chosen on load: PBM is 1 bit; PGM with maxval 1, 3, 15 or 255 keeps
// 1, 2, 4 or 8 bits, other values up to 255 are scaled to 8 bits; PGM with
// maxval 2^k - 1 above 255 is 16-bit grey holding the values as they are
// with nHighBit k - 1, any other maxval above 255 is scaled to 16 bits. PPM
// is 24-bit up to maxval 255 and 48-bit above, scaled to the full range.
// PBM's 1 means black, so bits are inverted against the kernel's grey ramp.
//
// Every row goes through one array of 16-bit samples, whether it came from
// text or from raw bytes, and is then packed into the kernel row.
#include "fil_internal.h"

#include <bit>
#include <cstring>

namespace rzfil {

namespace {

class Reader {
  public:
    explicit Reader(FILE *f) : f_(f) {}
    int get() { return getc_unlocked(f_); }
    static bool space(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
    // Next character that is not white space or inside a comment.
    int skip() {
        for (int c = get();; c = get()) {
            if (c == '#')
                while ((c = get()) != '\n' && c != EOF) {
                }
            if (c == EOF || !space(c))
                return c;
        }
    }
    // A decimal number; saturates instead of overflowing. False when none.
    bool number(int64_t &v) {
        int c = skip();
        if (c < '0' || c > '9')
            return false;
        v = 0;
        for (; c >= '0' && c <= '9'; c = get())
            v = v > (int64_t(1) << 40) ? v : v * 10 + (c - '0');
        if (c != EOF && !space(c) && c != '#')
            return false;
        if (c == '#')
            ungetc(c, f_);
        return true;
    }
    bool read(void *dst, size_t n) { return fread(dst, 1, n, f_) == n; }

  private:
    FILE *f_;
};

struct Header {
    int kind = 0; // 1..6
    int64_t maxval = 1;
    int channels = 1;
    bool raw() const { return kind >= 4; }
};

int32_t ReadHeader(Reader &in, Header &h, Shape &sh) {
    if (in.get() != 'P')
        return RZ_FILE_FORMAT;
    const int k = in.get() - '0';
    if (k < 1 || k > 6)
        return RZ_FILE_FORMAT;
    h.kind = k;
    h.channels = (k == 3 || k == 6) ? 3 : 1;
    if (!in.number(sh.width) || !in.number(sh.height))
        return RZ_FILE_CORRUPT;
    if (k != 1 && k != 4 && (!in.number(h.maxval) || h.maxval < 1 || h.maxval > 65535))
        return RZ_FILE_CORRUPT;
    sh.format = (k == 1 || k == 4) ? RZ_FMT_PBM : h.channels == 3 ? RZ_FMT_PPM : RZ_FMT_PGM;
    const bool allOnes = ((h.maxval + 1) & h.maxval) == 0;
    if (h.channels == 3) {
        sh.bits = h.maxval > 255 ? 48 : 24;
    } else if (h.maxval > 255) {
        sh.bits = 16;
        sh.order = KRN_ORDER_GRAY;
        sh.sigBits = allOnes ? std::bit_width(uint64_t(h.maxval)) : 16;
    } else {
        sh.bits = (h.maxval == 1 || h.maxval == 3 || h.maxval == 15) ? std::bit_width(uint64_t(h.maxval)) : 8;
    }
    if (sh.sigBits == 0)
        sh.sigBits = sh.bits;
    return ST_SUCCESS;
}

// Samples of one row into v (width * channels values).
int32_t ReadSamples(Reader &in, const Header &h, uint16_t *v, size_t count, uint8_t *bytes) {
    if (h.kind == 1) {
        for (size_t i = 0; i < count; ++i) {
            const int c = in.skip();
            if (c != '0' && c != '1')
                return RZ_FILE_CORRUPT;
            v[i] = uint16_t(c == '0'); // PBM: 1 is black
        }
        return ST_SUCCESS;
    }
    if (h.kind == 4) {
        const size_t n = (count + 7) / 8;
        if (!in.read(bytes, n))
            return RZ_FILE_CORRUPT;
        for (size_t i = 0; i < count; ++i)
            v[i] = uint16_t(!((bytes[i >> 3] >> (7 - (i & 7))) & 1));
        return ST_SUCCESS;
    }
    if (!h.raw()) {
        for (size_t i = 0; i < count; ++i) {
            int64_t s = 0;
            if (!in.number(s))
                return RZ_FILE_CORRUPT;
            v[i] = uint16_t(s > h.maxval ? h.maxval : s);
        }
        return ST_SUCCESS;
    }
    const bool wide = h.maxval > 255;
    if (!in.read(bytes, count * (wide ? 2 : 1)))
        return RZ_FILE_CORRUPT;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t s = wide ? uint32_t(bytes[2 * i]) << 8 | bytes[2 * i + 1] : bytes[i];
        v[i] = uint16_t(s > h.maxval ? h.maxval : s);
    }
    return ST_SUCCESS;
}

// Samples into a kernel row of the shape's depth.
void StoreRow(const Header &h, const Shape &sh, uint16_t *v, uint8_t *row, size_t n) {
    const size_t count = n * size_t(h.channels);
    const uint32_t max = uint32_t(h.maxval);
    const uint32_t full = sh.bits == 16 ? ((1u << sh.sigBits) - 1) : (sh.bits == 48 ? 65535u : 255u);
    const bool scale = sh.bits >= 8 && max != full && h.kind != 1 && h.kind != 4;
    if (scale)
        for (size_t i = 0; i < count; ++i)
            v[i] = uint16_t((uint32_t(v[i]) * full + max / 2) / max);
    switch (sh.bits) {
    case 1:
    case 2:
    case 4: {
        const int b = sh.bits, per = 8 / b;
        std::memset(row, 0, (n * unsigned(b) + 7) / 8);
        for (size_t x = 0; x < n; ++x)
            row[x / per] |= uint8_t(v[x] << (8 - b - int(x % per) * b));
        break;
    }
    case 8:
        for (size_t x = 0; x < n; ++x)
            row[x] = uint8_t(v[x]);
        break;
    case 16: std::memcpy(row, v, n * 2); break;
    case 24:
        for (size_t x = 0; x < n; ++x) {
            row[3 * x] = uint8_t(v[3 * x + 2]);
            row[3 * x + 1] = uint8_t(v[3 * x + 1]);
            row[3 * x + 2] = uint8_t(v[3 * x]);
        }
        break;
    case 48: {
        uint16_t *w = reinterpret_cast<uint16_t *>(row);
        for (size_t x = 0; x < n; ++x) {
            const uint16_t r = v[3 * x];
            w[3 * x] = v[3 * x + 2];
            w[3 * x + 1] = v[3 * x + 1];
            w[3 * x + 2] = r;
        }
        break;
    }
    }
}

bool Put(FILE *f, const void *p, size_t n) { return fwrite(p, 1, n, f) == n; }

} // namespace

int32_t LoadPnm(FILE *f, LoadTarget *t, Shape &sh) {
    Reader in(f);
    Header h;
    int32_t st = ReadHeader(in, h, sh);
    if (st != ST_SUCCESS || !t)
        return st;
    if ((st = MakeTarget(*t, sh)) != KRN_OK)
        return st;
    const size_t n = size_t(sh.width), count = n * size_t(h.channels);
    Scratch samples(count * 2), bytes(count * 2);
    if (!samples || !bytes)
        return ST_FAILURE;
    uint16_t *v = reinterpret_cast<uint16_t *>(samples.get());
    Progress progress;
    for (int64_t y = 0; y < sh.height; ++y) {
        if ((st = ReadSamples(in, h, v, count, bytes.get())) != ST_SUCCESS)
            return st;
        StoreRow(h, sh, v, t->row(y), n);
        if ((st = progress.step(y + 1, sh.height)) != ST_SUCCESS)
            return st;
    }
    return ST_SUCCESS;
}

int32_t PlanPnm(const BitmapDesc *b, int32_t &format, SavePlan &p) {
    int32_t st = PlanFor(b, CapsFor(format), p);
    if (st != ST_SUCCESS)
        return st;
    if (format == RZ_FMT_UNKNOWN)
        format = p.kind == Kind::Rgb ? RZ_FMT_PPM : p.bits == 1 ? RZ_FMT_PBM : RZ_FMT_PGM;
    // PBM holds black and white only: a grey plan of one bit.
    if (format == RZ_FMT_PBM && (p.kind != Kind::Grey || p.bits != 1))
        return RZ_FILE_UNSUPPORTED;
    return ST_SUCCESS;
}

int32_t SavePnm(FILE *f, const BitmapDesc *b, int32_t format) {
    SavePlan p;
    int32_t st = PlanPnm(b, format, p);
    if (st != ST_SUCCESS)
        return st;
    const size_t n = size_t(p.width);
    const int kind = format == RZ_FMT_PBM ? 4 : format == RZ_FMT_PGM ? 5 : 6;
    const uint32_t maxval = p.bits == 16 ? (1u << p.sigBits) - 1 : (1u << p.bits) - 1;
    if (fprintf(f, kind == 4 ? "P%d\n%lld %lld\n" : "P%d\n%lld %lld\n%u\n", kind, (long long)p.width,
                (long long)p.height, maxval) < 0)
        return RZ_FILE_WRITE;
    const size_t planBytes = PlanRowBytes(p);
    const size_t outBytes = kind == 4 ? planBytes : n * size_t(p.channels) * (maxval > 255 ? 2 : 1);
    Scratch row(planBytes > outBytes ? planBytes : outBytes), out(outBytes), scratch(PlanScratchBytes(p));
    if (!row || !out || !scratch)
        return ST_FAILURE;
    Progress progress;
    for (int64_t y = 0; y < p.height; ++y) {
        if ((st = PlanRow(p, y, scratch.get(), row.get())) != ST_SUCCESS)
            return st;
        const uint8_t *r = row.get();
        uint8_t *o = out.get();
        if (kind == 4) {
            for (size_t i = 0; i < outBytes; ++i)
                o[i] = uint8_t(~r[i]);
        } else if (p.bits < 8) {
            const int bits = p.bits, per = 8 / bits;
            for (size_t x = 0; x < n; ++x)
                o[x] = uint8_t((r[x / per] >> (8 - bits - int(x % per) * bits)) & maxval);
        } else if (p.bits == 16) {
            const uint16_t *w = reinterpret_cast<const uint16_t *>(r);
            for (size_t i = 0; i < n * size_t(p.channels); ++i) {
                o[2 * i] = uint8_t(w[i] >> 8);
                o[2 * i + 1] = uint8_t(w[i]);
            }
        } else {
            std::memcpy(o, r, outBytes);
        }
        if (!Put(f, o, outBytes))
            return RZ_FILE_WRITE;
        if ((st = progress.step(y + 1, p.height)) != ST_SUCCESS)
            return st;
    }
    return ST_SUCCESS;
}

} // namespace rzfil
