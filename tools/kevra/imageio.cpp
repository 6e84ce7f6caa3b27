#include "imageio.h"

#include "common.h"
#include "output.h"

#include "kevra/dib.h"
#include "kevra/lut.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sys/stat.h>

#ifdef KEVRA_HAVE_OIIO
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/oiioversion.h>
#endif

namespace kevra_cli {

namespace {

uint64_t g_max_pixels = uint64_t(1) << 28;

uint32_t le32(const unsigned char * p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t le16(const unsigned char * p)
{
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

std::vector<unsigned char> read_all(const std::string & path)
{
    std::ifstream f(path, std::ios::binary);
    if (!f)
        throw Failure(path + ": " + std::strerror(errno));
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

void check_pixels(const std::string & path, uint64_t width, uint64_t height)
{
    if (width * height > g_max_pixels)
        throw Failure(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                      " pixels is more than --max-pixels allows (" + std::to_string(g_max_pixels) + ")");
}

void create(kevra::CDib & image, const std::string & path, long width, long height, int bits)
{
    if (!image.Create(kevra::CSize(width, height), static_cast<unsigned short>(bits)) || !image.IsOK())
        throw Failure(path + ": not enough memory for a " + std::to_string(width) + " x " + std::to_string(height) +
                      " image");
}

// ---- BMP -------------------------------------------------------------------

struct BmpHeader {
    uint32_t offset = 0;    // bits offset
    uint32_t size = 0;      // info header size
    int64_t width = 0;
    int64_t height = 0;     // negative: top-down
    int bits = 0;
    uint32_t compression = 0;
    uint32_t colours = 0;   // palette entries used
    int32_t xppm = 0, yppm = 0;
};

BmpHeader parse_bmp_header(const std::string & path, const std::vector<unsigned char> & f)
{
    if (f.size() < 2 || f[0] != 'B' || f[1] != 'M')
        throw Failure(path + ": not a BMP file");
    if (f.size() < 26 || f.size() < 14 + static_cast<std::size_t>(le32(&f[14]) == 12 ? 12 : 40))
        throw Failure(path + ": not a BMP file (header cut short)");
    BmpHeader h;
    h.offset = le32(&f[10]);
    h.size = le32(&f[14]);
    const unsigned char * p = &f[14];
    if (h.size == 12) {
        h.width = le16(p + 4);
        h.height = static_cast<int16_t>(le16(p + 6));
        h.bits = le16(p + 10);
    } else if (h.size >= 40) {
        h.width = static_cast<int32_t>(le32(p + 4));
        h.height = static_cast<int32_t>(le32(p + 8));
        h.bits = le16(p + 14);
        h.compression = le32(p + 16);
        h.xppm = static_cast<int32_t>(le32(p + 24));
        h.yppm = static_cast<int32_t>(le32(p + 28));
        h.colours = le32(p + 32);
    } else {
        throw Failure(path + ": BMP header of " + std::to_string(h.size) + " bytes is not one kevra reads (12, 40 or more)");
    }
    if (h.bits != 1 && h.bits != 4 && h.bits != 8 && h.bits != 16 && h.bits != 24 && h.bits != 32)
        throw Failure(path + ": BMP bit count " + std::to_string(h.bits) + " is not one kevra reads (1, 4, 8, 16, 24 or 32)");
    if (h.width <= 0 || h.height == 0)
        throw Failure(path + ": BMP file has no pixels (" + std::to_string(h.width) + " x " + std::to_string(h.height) +
                      ")");
    check_pixels(path, static_cast<uint64_t>(h.width), static_cast<uint64_t>(std::llabs(h.height)));
    return h;
}

const char * compression_name(uint32_t c)
{
    switch (c) {
    case 1: return "RLE8";
    case 2: return "RLE4";
    case 3: return "bit fields";
    case 4: return "JPEG";
    case 5: return "PNG";
    case 6: return "alpha bit fields";
    default: return nullptr;
    }
}

// The BMP palette, as (blue, green, red) triples.
std::vector<kevra::tagRGBQUAD> bmp_palette(const BmpHeader & h, const std::vector<unsigned char> & f)
{
    std::vector<kevra::tagRGBQUAD> pal;
    if (h.bits > 8)
        return pal;
    const std::size_t max_entries = std::size_t(1) << h.bits;
    const std::size_t n = h.colours != 0 && h.colours < max_entries ? h.colours : max_entries;
    const std::size_t entry = h.size == 12 ? 3 : 4;
    std::size_t at = 14 + h.size + (h.size == 40 && (h.compression == 3 || h.compression == 6) ? 12 : 0);
    for (std::size_t i = 0; i < n && at + 3 <= f.size(); ++i, at += entry)
        pal.push_back({f[at], f[at + 1], f[at + 2], 0});
    return pal;
}

// Whether the library reads the palette entries as grey levels correctly:
// its grey ramp or one of its predefined display palettes.
bool library_palette(const std::vector<kevra::tagRGBQUAD> & pal)
{
    if (pal.size() != 256)
        return false;
    bool ramp = true;
    for (int i = 0; i < 256 && ramp; ++i)
        ramp = pal[i].rgbRed == i && pal[i].rgbGreen == i && pal[i].rgbBlue == i;
    if (ramp)
        return true;
    for (kevra::e_Palette p : {kevra::e_Palette11, kevra::e_Palette12, kevra::e_Palette21, kevra::e_Palette22,
                               kevra::e_Palette23}) {
        kevra::CLUT_24_Bpp table(p);
        kevra::tagRGBQUAD entries[256];
        if (!table.Donne_RGBQUAD(entries, 256))
            continue;
        bool same = true;
        for (int i = 0; i < 256 && same; ++i)
            same = entries[i].rgbRed == pal[i].rgbRed && entries[i].rgbGreen == pal[i].rgbGreen &&
                   entries[i].rgbBlue == pal[i].rgbBlue;
        if (same)
            return true;
    }
    return false;
}

// Whether the library's codec reads this file as it is.
bool library_reads(const BmpHeader & h, const std::vector<unsigned char> & f)
{
    if (h.size != 40 || h.compression != 0)
        return false;
    if (h.bits == 24)
        return true;
    if (h.bits == 16) // Kevra's grey form carries a 256-entry palette before its rows
        return h.offset >= 14 + 40 + 1024;
    return h.bits == 8 && library_palette(bmp_palette(h, f));
}

// Channel value of a masked sample, scaled to 0..255.
struct Mask {
    uint32_t mask = 0;
    int shift = 0;
    uint32_t max = 0;

    explicit Mask(uint32_t m) : mask(m)
    {
        if (m == 0)
            return;
        while (((m >> shift) & 1u) == 0)
            ++shift;
        max = m >> shift;
    }
    int get(uint32_t v) const
    {
        if (max == 0)
            return 0;
        const uint64_t x = (v & mask) >> shift;
        return static_cast<int>((x * 255 + max / 2) / max);
    }
};

// Decodes RLE8/RLE4 into one index per pixel, bottom row first.
void decode_rle(const std::string & path, const BmpHeader & h, const std::vector<unsigned char> & f,
                std::vector<unsigned char> & idx)
{
    const long w = static_cast<long>(h.width), ht = static_cast<long>(std::llabs(h.height));
    idx.assign(static_cast<std::size_t>(w) * ht, 0);
    std::size_t at = h.offset;
    long x = 0, y = 0;
    const bool four = h.compression == 2;
    auto put = [&](int v) {
        if (x < w && y < ht)
            idx[static_cast<std::size_t>(y) * w + x] = static_cast<unsigned char>(v);
        ++x;
    };
    for (;;) {
        if (at + 2 > f.size())
            throw Failure(path + ": truncated BMP file (" + compression_name(h.compression) + " data cut short)");
        const int a = f[at], b = f[at + 1];
        at += 2;
        if (a > 0) { // a run of a pixels
            for (int i = 0; i < a; ++i)
                put(four ? (i % 2 == 0 ? b >> 4 : b & 15) : b);
        } else if (b == 0) { // end of line
            x = 0;
            ++y;
        } else if (b == 1) { // end of bitmap
            break;
        } else if (b == 2) { // delta
            if (at + 2 > f.size())
                throw Failure(path + ": truncated BMP file");
            x += f[at];
            y += f[at + 1];
            at += 2;
        } else { // b literal pixels, padded to a 16-bit boundary
            const std::size_t bytes = four ? (static_cast<std::size_t>(b) + 1) / 2 : b;
            if (at + bytes > f.size())
                throw Failure(path + ": truncated BMP file");
            for (int i = 0; i < b; ++i)
                put(four ? (i % 2 == 0 ? f[at + i / 2] >> 4 : f[at + i / 2] & 15) : f[at + i]);
            at += bytes + (bytes & 1);
        }
    }
}

// Decodes a BMP variant the library's codec does not take.
SourceInfo decode_variant(const std::string & path, const BmpHeader & h, const std::vector<unsigned char> & f,
                          kevra::CDib & image)
{
    SourceInfo info;
    const char * comp = compression_name(h.compression);
    const bool masks = h.compression == 3 || h.compression == 6;
    const bool rle = (h.compression == 1 && h.bits == 8) || (h.compression == 2 && h.bits == 4);
    if (h.compression > 6 || h.compression == 4 || h.compression == 5 || (h.compression != 0 && h.bits <= 8 && !rle) ||
        ((h.compression == 1 || h.compression == 2) && !rle) || (masks && h.bits != 16 && h.bits != 32))
        throw Failure(path + ": BMP with " + std::to_string(h.bits) + "-bit pixels and " +
                      (comp != nullptr ? std::string(comp) + " compression" : "compression " + std::to_string(h.compression)) +
                      " is not a form kevra reads");
    const long w = static_cast<long>(h.width), ht = static_cast<long>(std::llabs(h.height));
    const bool top_down = h.height < 0;

    // Index of each pixel (palette images) or its colour.
    std::vector<unsigned char> idx;
    std::vector<kevra::tagRGBQUAD> pal = bmp_palette(h, f);
    const uint64_t pitch = (static_cast<uint64_t>(w) * h.bits + 31) / 32 * 4;
    if (!rle && h.offset + pitch * ht > f.size())
        throw Failure(path + ": truncated BMP file (" + std::to_string(f.size()) + " bytes, " +
                      std::to_string(h.offset + pitch * ht) + " expected)");
    auto row = [&](long y) { return &f[h.offset + pitch * static_cast<uint64_t>(top_down ? ht - 1 - y : y)]; };

    std::string form = "BMP, ";
    if (h.bits <= 8) {
        if (rle) {
            decode_rle(path, h, f, idx);
            if (top_down)
                throw Failure(path + ": top-down BMP with " + comp + " compression is not a valid BMP");
        } else {
            idx.resize(static_cast<std::size_t>(w) * ht);
            for (long y = 0; y < ht; ++y) {
                const unsigned char * r = row(y);
                for (long x = 0; x < w; ++x) {
                    const long bit = x * h.bits;
                    idx[static_cast<std::size_t>(y) * w + x] =
                        static_cast<unsigned char>((r[bit / 8] >> (8 - h.bits - bit % 8)) & ((1 << h.bits) - 1));
                }
            }
        }
        if (pal.empty())
            throw Failure(path + ": BMP palette is missing");
        bool grey = true;
        for (const auto & e : pal)
            grey = grey && e.rgbRed == e.rgbGreen && e.rgbGreen == e.rgbBlue;
        form += std::to_string(h.bits) + "-bit " + (grey ? "grey" : "colour") + " palette of " +
                std::to_string(pal.size()) + " entries";
        if (rle)
            form += std::string(", ") + comp + " compression";
        info.read_as = grey ? "8-bit grey" : "24-bit colour";
        create(image, path, w, ht, grey ? 8 : 24);
        for (long y = 0; y < ht; ++y) {
            unsigned char * out = image.GetBits() + static_cast<std::size_t>(image.Pitch()) * y;
            for (long x = 0; x < w; ++x) {
                const unsigned i = idx[static_cast<std::size_t>(y) * w + x];
                const kevra::tagRGBQUAD e = i < pal.size() ? pal[i] : kevra::tagRGBQUAD{0, 0, 0, 0};
                if (grey) {
                    out[x] = e.rgbRed;
                } else {
                    out[3 * x] = e.rgbBlue;
                    out[3 * x + 1] = e.rgbGreen;
                    out[3 * x + 2] = e.rgbRed;
                }
            }
        }
    } else {
        uint32_t m[4] = {0, 0, 0, 0};
        if (masks) {
            const std::size_t at = 14 + 40;
            const int n = h.compression == 6 || h.size >= 56 ? 4 : 3;
            for (int k = 0; k < n && at + 4 * k + 4 <= f.size(); ++k)
                m[k] = le32(&f[at + 4 * k]);
        } else if (h.bits == 16) {
            m[0] = 0x7C00;
            m[1] = 0x03E0;
            m[2] = 0x001F;
        } else {
            m[0] = 0xFF0000;
            m[1] = 0x00FF00;
            m[2] = 0x0000FF;
        }
        const Mask red(m[0]), green(m[1]), blue(m[2]);
        const bool alpha = m[3] != 0;
        if (h.bits == 16)
            form += m[1] == 0x07E0 ? "16-bit colour (RGB565)" : m[1] == 0x03E0 ? "16-bit colour (RGB555)"
                                                                              : "16-bit colour (bit fields)";
        else
            form += std::to_string(h.bits) + "-bit colour" + (alpha ? " with alpha" : "");
        if (comp != nullptr)
            form += std::string(", ") + comp;
        else if (h.size > 40)
            form += ", " + std::to_string(h.size) + "-byte header";
        if (alpha)
            info.notes.push_back("its alpha channel is dropped");
        info.read_as = "24-bit colour";
        create(image, path, w, ht, 24);
        for (long y = 0; y < ht; ++y) {
            const unsigned char * r = row(y);
            unsigned char * out = image.GetBits() + static_cast<std::size_t>(image.Pitch()) * y;
            for (long x = 0; x < w; ++x) {
                const uint32_t v = h.bits == 16 ? le16(r + 2 * x)
                                   : h.bits == 24 ? static_cast<uint32_t>(r[3 * x]) | (r[3 * x + 1] << 8) |
                                                        (static_cast<uint32_t>(r[3 * x + 2]) << 16)
                                                  : le32(r + 4 * x);
                out[3 * x] = static_cast<unsigned char>(blue.get(v));
                out[3 * x + 1] = static_cast<unsigned char>(green.get(v));
                out[3 * x + 2] = static_cast<unsigned char>(red.get(v));
            }
        }
    }
    if (h.size == 12)
        form += ", core header";
    info.form = form;
    image.ReleaseBits();
    image.SetXPelsPerMeter(static_cast<unsigned long>(std::max(h.xppm, 0)));
    image.SetYPelsPerMeter(static_cast<unsigned long>(std::max(h.yppm, 0)));
    image.SetZoneTravail(kevra::CRect(0, 0, w, ht));
    return info;
}

SourceInfo load_bmp(const std::string & path, const std::string & shown, kevra::CDib & image)
{
    const std::vector<unsigned char> f = read_all(path);
    const BmpHeader h = parse_bmp_header(shown, f);
    if (!library_reads(h, f))
        return decode_variant(shown, h, f, image);

    const uint64_t pitch = (static_cast<uint64_t>(h.width) * h.bits + 31) / 32 * 4;
    const uint64_t end = (h.offset != 0 ? h.offset : 54) + pitch * static_cast<uint64_t>(std::llabs(h.height));
    if (f.size() < end)
        throw Failure(shown + ": truncated BMP file (" + std::to_string(f.size()) + " bytes, " + std::to_string(end) +
                      " expected)");
    const std::wstring name = widen(path);
    if (!image.Load(name.c_str(), 0) || !image.IsOK()) {
        const char * why = image.GetLastError();
        throw Failure(shown + ": " + (why != nullptr && *why != 0 ? why : "cannot be decoded"));
    }
    SourceInfo info;
    info.form = h.bits == 24 ? "BMP, 24-bit colour" : h.bits == 16 ? "BMP, 16-bit grey" : "BMP, 8-bit grey";
    return info;
}

// ---- DICOM pixel spacing ---------------------------------------------------

// Walks the data set of a DICOM file (little endian, explicit or implicit VR,
// sequences of any length) for what OpenImageIO does not give: the pixel
// spacing, and the stored samples of uncompressed 16-bit monochrome data.
class DicomWalker {
public:
    explicit DicomWalker(const std::vector<unsigned char> & f) : f_(f)
    {
        if (f_.size() < 132 || std::memcmp(&f_[128], "DICM", 4) != 0)
            return;
        std::size_t at = 132;
        // The file meta group is always explicit; its transfer syntax says
        // whether the data set is.
        while (at + 8 <= f_.size() && le16(&f_[at]) == 0x0002) {
            Element e;
            if (!read(at, e) || e.undefined)
                return;
            if (e.tag == 0x00020010)
                syntax_ = text(e);
            at = e.value + e.length;
        }
        explicit_ = syntax_ != "1.2.840.10008.1.2";
        walk(at, f_.size(), 0);
    }

    // Row spacing, then column spacing, in millimetres: Pixel Spacing, else
    // Imager Pixel Spacing.
    bool spacing(double & row_mm, double & col_mm) const
    {
        std::string found = string(0x00280030);
        if (found.empty())
            found = string(0x00181164);
        const std::size_t bs = found.find('\\');
        if (bs == std::string::npos)
            return false;
        row_mm = std::atof(found.substr(0, bs).c_str());
        col_mm = std::atof(found.substr(bs + 1).c_str());
        return row_mm > 0 && col_mm > 0;
    }

    // The stored samples (Bits Stored of them, below High Bit + 1), rows from
    // the top, MONOCHROME1 inverted to display sense: only for uncompressed
    // little-endian unsigned 16-bit monochrome data of this size.
    bool samples(long width, long height, std::vector<uint16_t> & out) const
    {
        if ((syntax_ != "1.2.840.10008.1.2" && syntax_ != "1.2.840.10008.1.2.1") || number(0x00280002) != 1 ||
            number(0x00280100) != 16 || number(0x00280103) != 0 || number(0x00280010) != height ||
            number(0x00280011) != width)
            return false;
        const auto pixels = top_.find(0x7FE00010);
        const long stored = number(0x00280101), high = number(0x00280102);
        const std::string photometric = string(0x00280004);
        if (pixels == top_.end() || pixels->second.undefined || stored < 1 || stored > 16 || high + 1 < stored ||
            high > 15 || (photometric != "MONOCHROME1" && photometric != "MONOCHROME2") ||
            pixels->second.length < static_cast<std::size_t>(width) * height * 2)
            return false;
        const unsigned shift = static_cast<unsigned>(high + 1 - stored);
        const uint32_t mask = (1u << stored) - 1;
        out.resize(static_cast<std::size_t>(width) * height);
        for (std::size_t i = 0; i < out.size(); ++i) {
            const uint32_t v = (le16(&f_[pixels->second.value + 2 * i]) >> shift) & mask;
            out[i] = static_cast<uint16_t>(photometric == "MONOCHROME1" ? mask - v : v);
        }
        return true;
    }

private:
    struct Element {
        uint32_t tag = 0;
        std::string vr;
        std::size_t value = 0;
        std::size_t length = 0;
        bool undefined = false;
    };

    bool read(std::size_t at, Element & e) const
    {
        if (at + 8 > f_.size())
            return false;
        e.tag = (static_cast<uint32_t>(le16(&f_[at])) << 16) | le16(&f_[at + 2]);
        uint32_t len = 0;
        e.vr.clear();
        if ((e.tag >> 16) == 0xFFFE) { // items and delimiters carry no VR
            len = le32(&f_[at + 4]);
            e.value = at + 8;
        } else if (explicit_) {
            e.vr.assign(reinterpret_cast<const char *>(&f_[at + 4]), 2);
            static const char * const long_vrs[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ", "SV", "UC", "UN",
                                                    "UR", "UT", "UV"};
            const bool long_form = std::find_if(std::begin(long_vrs), std::end(long_vrs), [&](const char * v) {
                                       return e.vr == v;
                                   }) != std::end(long_vrs);
            if (long_form) {
                if (at + 12 > f_.size())
                    return false;
                len = le32(&f_[at + 8]);
                e.value = at + 12;
            } else {
                len = le16(&f_[at + 6]);
                e.value = at + 8;
            }
        } else {
            len = le32(&f_[at + 4]);
            e.value = at + 8;
        }
        e.undefined = len == 0xFFFFFFFFu;
        e.length = e.undefined ? 0 : len;
        return e.undefined || e.value + e.length <= f_.size();
    }

    std::string text(const Element & e) const
    {
        std::string s(reinterpret_cast<const char *>(&f_[e.value]), e.length);
        while (!s.empty() && (s.back() == ' ' || s.back() == '\0'))
            s.pop_back();
        return s;
    }

    std::string string(uint32_t tag) const
    {
        const auto e = top_.find(tag);
        return e == top_.end() || e->second.undefined ? std::string() : text(e->second);
    }

    // An unsigned short (US) element; -1 when absent.
    long number(uint32_t tag) const
    {
        const auto e = top_.find(tag);
        return e == top_.end() || e->second.length != 2 ? -1 : le16(&f_[e->second.value]);
    }

    // Walks elements from `at` up to `end` or a delimiter; returns where it stopped.
    std::size_t walk(std::size_t at, std::size_t end, int depth)
    {
        while (at + 8 <= end && depth < 16) {
            Element e;
            if (!read(at, e))
                return f_.size();
            if (e.tag == 0xFFFEE00D || e.tag == 0xFFFEE0DD) // item or sequence delimiter
                return e.value;
            if (depth == 0)
                top_[e.tag] = e;
            if (depth == 0 && e.tag == 0x7FE00010)
                return f_.size();
            if (e.tag == 0xFFFEE000 || e.vr == "SQ" || (e.undefined && !explicit_)) {
                // An item or a sequence: walk inside it.
                if (e.undefined) {
                    at = walk(e.value, end, depth + 1);
                } else {
                    walk(e.value, e.value + e.length, depth + 1);
                    at = e.value + e.length;
                }
                continue;
            }
            if (e.undefined) // encapsulated data: nothing of ours follows
                return f_.size();
            at = e.value + e.length;
        }
        return at;
    }

    const std::vector<unsigned char> & f_;
    std::string syntax_;
    bool explicit_ = true;
    std::map<uint32_t, Element> top_;
};

// ---- other formats through OpenImageIO ----------------------------------------

#ifdef KEVRA_HAVE_OIIO
unsigned long ppm_from(float value, const std::string & unit)
{
    if (!(value > 0))
        return 0;
    double ppm = 0;
    if (unit == "in" || unit == "inch")
        ppm = value / 0.0254;
    else if (unit == "cm")
        ppm = value * 100.0;
    else if (unit == "m")
        ppm = value;
    return static_cast<unsigned long>(std::floor(ppm + 0.5));
}

SourceInfo load_oiio(const std::string & path, const std::string & shown, const std::string & format,
                     kevra::CDib & image)
{
    // Opening fills in the image's layout: size, channels, sample type and attributes.
    auto in = OIIO::ImageInput::create(path);
    OIIO::ImageSpec layout;
    if (!in || !in->open(path, layout))
        throw Failure(shown + ": " + format + " file cannot be read: " + (in ? in->geterror() : OIIO::geterror()));
    check_pixels(shown, static_cast<uint64_t>(layout.width), static_cast<uint64_t>(layout.height));
    const int nch = layout.nchannels;
    const bool grey = nch == 1 || nch == 2;
    const bool alpha = nch == 2 || nch == 4;
    if (nch < 1 || nch > 4)
        throw Failure(shown + ": " + std::to_string(nch) + " channels per pixel (kevra reads grey or colour images)");
    const auto base = layout.format.basetype;
    if (base != OIIO::TypeDesc::UINT8 && base != OIIO::TypeDesc::UINT16)
        throw Failure(shown + ": " + std::string(layout.format.c_str()) +
                      " samples are not supported (8- or 16-bit whole numbers)");
    const bool sixteen = base == OIIO::TypeDesc::UINT16;
    if (sixteen && !grey)
        throw Failure(shown + ": 16-bit colour is not supported (8-bit colour, or 8- or 16-bit grey)");
    const int stored = layout.get_int_attribute("oiio:BitsPerSample", sixteen ? 16 : 8);

    SourceInfo info;
    info.form = format + ", " + std::to_string(format == "DICOM" ? stored : sixteen ? 16 : 8) + "-bit " +
                (grey ? "grey" : "colour") + (alpha ? " with alpha" : "");
    const std::string photometric = layout.get_string_attribute("dicom:PhotometricInterpretation");
    if (format == "DICOM" && !photometric.empty())
        info.form += " (" + photometric + (photometric == "MONOCHROME1" ? ", inverted to display sense" : "") + ")";
    if (alpha)
        info.notes.push_back("its alpha channel is dropped");

    const long w = layout.width, h = layout.height;
    const int out_ch = grey ? 1 : 3;
    std::vector<unsigned char> data(static_cast<std::size_t>(w) * h * out_ch * (sixteen ? 2 : 1));
    if (!in->read_image(0, 0, 0, out_ch, sixteen ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8, data.data()))
        throw Failure(shown + ": " + format + " file cannot be read: " + in->geterror());
    in->close();

    create(image, shown, w, h, grey ? (sixteen ? 16 : 8) : 24);
    // DICOM samples keep their stored values. Uncompressed data is read from
    // the file (the stored bits, MONOCHROME1 inverted within them); otherwise
    // OpenImageIO's 16-bit rendering is brought back to the stored range.
    std::vector<uint16_t> direct;
    std::unique_ptr<DicomWalker> dicom;
    std::vector<unsigned char> dicom_file;
    if (format == "DICOM") {
        dicom_file = read_all(path);
        dicom = std::make_unique<DicomWalker>(dicom_file);
        if (grey && sixteen)
            dicom->samples(w, h, direct);
    }
    const int shift = format == "DICOM" && sixteen && stored > 8 && stored < 16 ? 16 - stored : 0;
    if (shift != 0)
        info.read_as = "16-bit grey, samples 0 to " + std::to_string((1 << stored) - 1);
    for (long y = 0; y < h; ++y) {
        unsigned char * out = image.GetBits() + static_cast<std::size_t>(image.Pitch()) * (h - 1 - y);
        const std::size_t row = static_cast<std::size_t>(y) * w * out_ch;
        if (sixteen) {
            const auto * s = reinterpret_cast<const uint16_t *>(data.data()) + row;
            for (long x = 0; x < w; ++x) {
                const uint16_t v = direct.empty() ? static_cast<uint16_t>(s[x] >> shift) : direct[row + x];
                out[2 * x] = static_cast<unsigned char>(v & 0xFF);
                out[2 * x + 1] = static_cast<unsigned char>(v >> 8);
            }
        } else if (grey) {
            std::memcpy(out, &data[row], static_cast<std::size_t>(w));
        } else {
            for (long x = 0; x < w; ++x) {
                out[3 * x] = data[row + 3 * x + 2];
                out[3 * x + 1] = data[row + 3 * x + 1];
                out[3 * x + 2] = data[row + 3 * x];
            }
        }
    }
    image.ReleaseBits();

    const std::string unit = layout.get_string_attribute("ResolutionUnit");
    unsigned long xppm = ppm_from(layout.get_float_attribute("XResolution"), unit);
    unsigned long yppm = ppm_from(layout.get_float_attribute("YResolution"), unit);
    if (dicom) {
        double row_mm = 0, col_mm = 0;
        if (dicom->spacing(row_mm, col_mm)) {
            xppm = static_cast<unsigned long>(std::floor(1000.0 / col_mm + 0.5));
            yppm = static_cast<unsigned long>(std::floor(1000.0 / row_mm + 0.5));
        }
    }
    if (xppm != 0 && yppm != 0) {
        image.SetXPelsPerMeter(xppm);
        image.SetYPelsPerMeter(yppm);
    }
    image.SetZoneTravail(kevra::CRect(0, 0, w, h));
    return info;
}

void save_oiio(kevra::CDib & image, const std::string & path, const std::string & format)
{
    write_output(path, [&](const std::string & file) {
        auto out = OIIO::ImageOutput::create(format);
        if (!out)
            throw Failure(path + ": cannot write " + format + ": " + OIIO::geterror());
        const int bits = image.BitCount();
        const long w = image.Width(), h = image.Height();
        const int nch = bits == 24 ? 3 : 1;
        const OIIO::TypeDesc type = bits == 16 ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8;
        OIIO::ImageSpec layout(static_cast<int>(w), static_cast<int>(h), nch, type);
        // Pels per metre as pixels per centimetre: exact in both formats.
        layout.attribute("ResolutionUnit", "cm");
        layout.attribute("XResolution", static_cast<float>(image.GetXPelsPerMeter() / 100.0));
        layout.attribute("YResolution", static_cast<float>(image.GetYPelsPerMeter() / 100.0));
        // The TIFF writer derives the vertical resolution from the aspect ratio.
        if (image.GetXPelsPerMeter() != 0)
            layout.attribute("PixelAspectRatio",
                           static_cast<float>(double(image.GetYPelsPerMeter()) / image.GetXPelsPerMeter()));
        if (format == "tiff")
            layout.attribute("compression", "zip");
        std::vector<unsigned char> data(static_cast<std::size_t>(w) * h * nch * (bits == 16 ? 2 : 1));
        const unsigned char * bitsp = image.GetBits();
        for (long y = 0; y < h; ++y) {
            const unsigned char * in = bitsp + static_cast<std::size_t>(image.Pitch()) * (h - 1 - y);
            unsigned char * o = &data[static_cast<std::size_t>(y) * w * nch * (bits == 16 ? 2 : 1)];
            if (bits == 16) {
                auto * s = reinterpret_cast<uint16_t *>(o);
                for (long x = 0; x < w; ++x)
                    s[x] = static_cast<uint16_t>(in[2 * x] | (in[2 * x + 1] << 8));
            } else if (bits == 8) {
                std::memcpy(o, in, static_cast<std::size_t>(w));
            } else {
                for (long x = 0; x < w; ++x) {
                    o[3 * x] = in[3 * x + 2];
                    o[3 * x + 1] = in[3 * x + 1];
                    o[3 * x + 2] = in[3 * x];
                }
            }
        }
        image.ReleaseBits();
        if (!out->open(file, layout) || !out->write_image(type, data.data()) || !out->close())
            throw Failure(path + ": cannot write: " + out->geterror());
    });
}
#endif

std::string lower(std::string s)
{
    for (char & c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string extension(const std::string & path)
{
    const std::size_t slash = path.find_last_of('/');
    const std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    return lower(path.substr(dot + 1));
}

// The format of a file from its first bytes.
std::string sniff(const std::vector<unsigned char> & head)
{
    auto starts = [&](const char * magic, std::size_t n) {
        return head.size() >= n && std::memcmp(head.data(), magic, n) == 0;
    };
    if (starts("BM", 2))
        return "BMP";
    if (starts("\x89PNG\r\n\x1a\n", 8))
        return "PNG";
    if (starts("II*\0", 4) || starts("MM\0*", 4))
        return "TIFF";
    if (starts("\xFF\xD8\xFF", 3))
        return "JPEG";
    if (head.size() >= 132 && std::memcmp(&head[128], "DICM", 4) == 0)
        return "DICOM";
    return std::string();
}

} // namespace

void set_max_pixels(uint64_t pixels)
{
    g_max_pixels = pixels;
}

uint64_t max_pixels()
{
    return g_max_pixels;
}

SourceInfo load_image(const std::string & path, kevra::CDib & image, const std::vector<int> & depths)
{
    const bool from_stdin = path == "-";
    const std::string shown = from_stdin ? "standard input" : path;
    std::string file = path;
    if (from_stdin) {
        file = read_standard_input();
    } else {
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0)
            throw Failure(path + ": " + std::strerror(errno));
        if (S_ISDIR(st.st_mode))
            throw Failure(path + ": is a directory");
    }
    SourceInfo info;
    try {
        std::vector<unsigned char> head(132);
        {
            std::FILE * f = std::fopen(file.c_str(), "rb");
            if (f == nullptr)
                throw Failure(shown + ": " + std::strerror(errno));
            head.resize(std::fread(head.data(), 1, head.size(), f));
            std::fclose(f);
        }
        const std::string format = sniff(head);
        if (format.empty())
            throw Failure(shown + ": not an image file kevra reads (BMP, PNG, TIFF, JPEG or DICOM)");
        if (format == "BMP") {
            info = load_bmp(file, shown, image);
        } else {
#ifdef KEVRA_HAVE_OIIO
            info = load_oiio(file, shown, format, image);
#else
            throw Failure(shown + ": " + format + " file: this kevra was built without OpenImageIO and reads BMP only");
#endif
        }
    } catch (...) {
        if (from_stdin)
            remove_temporary(file);
        throw;
    }
    if (from_stdin)
        remove_temporary(file);

    if (!depths.empty()) {
        const int bits = image.BitCount();
        if (std::find(depths.begin(), depths.end(), bits) == depths.end()) {
            std::string list;
            for (std::size_t i = 0; i < depths.size(); ++i)
                list += (i == 0 ? "" : i + 1 == depths.size() ? " or " : ", ") + std::to_string(depths[i]);
            throw Failure(shown + ": " + std::to_string(bits) + "-bit images are not supported here (" + list +
                          " bits)");
        }
    }
    return info;
}

std::string output_format(const std::string & path, const std::string & forced)
{
    // Standard output, devices and pipes have no extension: BMP unless forced.
    struct stat st {};
    const bool stream = path == "-" || (::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode));
    const std::string ext = extension(path);
    const std::string f = lower(!forced.empty() ? forced : stream && ext.empty() ? "bmp" : ext);
    std::string format;
    if (f == "bmp")
        format = "bmp";
    else if (f == "png")
        format = "png";
    else if (f == "tif" || f == "tiff")
        format = "tiff";
    const std::string what = forced.empty() ? path + ": " : "--format " + forced + ": ";
    if (format.empty()) {
        if (f == "jpg" || f == "jpeg" || f == "dcm" || f == "dicom")
            throw UsageError(what + "kevra reads " + (f[0] == 'j' ? "JPEG" : "DICOM") +
                             " but does not write it (write .png, .tif or .bmp)");
        throw UsageError(what + (f.empty() ? "no extension to choose the format by"
                                           : "unknown output format '" + f + "'") +
                         " (.bmp, .png, .tif or .tiff, or --format bmp|png|tiff)");
    }
#ifndef KEVRA_HAVE_OIIO
    if (format != "bmp")
        throw UsageError(what + "this kevra was built without OpenImageIO and writes BMP only");
#endif
    return format;
}

void save_image(kevra::CDib & image, const std::string & path, const std::string & format)
{
#ifdef KEVRA_HAVE_OIIO
    if (format != "bmp") {
        save_oiio(image, path, format);
        return;
    }
#else
    (void)format; // output_format admits only BMP in this build
#endif
    write_output(path, [&](const std::string & file) {
        const std::wstring name = widen(file);
        if (!image.Save(name.c_str(), 0)) {
            const char * why = image.GetLastError();
            throw Failure(path + ": cannot write" + (why != nullptr && *why != 0 ? std::string(": ") + why : ""));
        }
        // The encoder does not notice write errors (a full disk): check the size.
        const int bits = image.BitCount();
        const uint64_t palette = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 || bits == 16 ? 256 : 0;
        const uint64_t expected = 14 + 40 + palette * 4 + image.SizeImage();
        struct stat st {};
        if (::stat(file.c_str(), &st) != 0 || static_cast<uint64_t>(st.st_size) != expected)
            throw Failure(path + ": cannot write: the file came out incomplete (disk full?)");
    });
}

std::string formats_text()
{
#ifdef KEVRA_HAVE_OIIO
    return std::string("read BMP, PNG, TIFF, JPEG, DICOM; write BMP, PNG, TIFF (OpenImageIO ") + OIIO_VERSION_STRING +
           ")";
#else
    return "read BMP; write BMP (built without OpenImageIO)";
#endif
}

std::string batch_output_name(const std::string & input, const std::string & forced)
{
    const std::size_t slash = input.find_last_of('/');
    std::string base = slash == std::string::npos ? input : input.substr(slash + 1);
    if (forced.empty())
        return base;
    const std::size_t dot = base.find_last_of('.');
    if (dot != std::string::npos)
        base = base.substr(0, dot);
    const std::string f = lower(forced);
    return base + "." + (f == "tiff" || f == "tif" ? "tif" : f);
}

} // namespace kevra_cli
