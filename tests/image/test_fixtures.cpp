#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::data_file;
using kevra_test::TempDir;

namespace {

struct Rgb {
    uint8_t r, g, b;
    bool operator==(const Rgb & o) const { return r == o.r && g == o.g && b == o.b; }
};

std::wstring wdata(const std::string & name) { return TempDir::widen(data_file(name)); }

// Colour of picture pixel (x, y) (y from the top) of a palette or 24-bit image.
Rgb colour_at(CDibRoot & d, int x, int y)
{
    const int row = static_cast<int>(d.Height()) - 1 - y;
    const uint8_t * p = d.GetPixelPtr(x, row);
    if (d.BitCount() == 24)
        return {p[2], p[1], p[0]};
    int index = p[0];
    if (d.BitCount() == 4)
        index = (x % 2 == 0) ? (p[0] >> 4) : (p[0] & 15);
    else if (d.BitCount() == 1)
        index = (p[0] >> (7 - x % 8)) & 1;
    const int entries = d.BitCount() == 1 ? 2 : d.BitCount() == 4 ? 16 : 256;
    const uint8_t * pal = d.GetBits() - 4 * entries + 4 * index;
    return {pal[2], pal[1], pal[0]};
}

const Rgb kRgb24[2][3] = {{{255, 0, 0}, {0, 255, 0}, {0, 0, 255}}, {{10, 20, 30}, {40, 50, 60}, {70, 80, 90}}};

void expect_rgb24_picture(CDibRoot & d)
{
    ASSERT_EQ(d.Width(), 3);
    ASSERT_EQ(d.Height(), 2);
    ASSERT_EQ(d.BitCount(), 24);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_TRUE(colour_at(d, x, y) == kRgb24[y][x]) << x << "," << y;
}

} // namespace

TEST(Fixtures, Grey8)
{
    const int grey[3][7] = {{0, 12, 24, 36, 48, 60, 72}, {84, 96, 108, 120, 132, 144, 156}, {168, 180, 192, 204, 216, 228, 255}};
    CDibRoot d;
    ASSERT_TRUE(d.Load(wdata("grey8.bmp").c_str(), 0));
    EXPECT_EQ(d.BitCount(), 8);
    EXPECT_EQ(d.Width(), 7);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 7; ++x) {
            const Rgb c = colour_at(d, x, y);
            EXPECT_EQ(c.r, grey[y][x]);
            EXPECT_EQ(c.g, grey[y][x]);
        }
}

TEST(Fixtures, Rle8IsRefused)
{
    CDibRoot d;
    EXPECT_FALSE(d.Load(wdata("grey8_rle.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "compression type not supported");
}

TEST(Fixtures, ColourPalettes)
{
    CDibRoot four;
    ASSERT_TRUE(four.Load(wdata("pal4.bmp").c_str(), 0));
    EXPECT_EQ(four.BitCount(), 4);
    const Rgb red{255, 0, 0}, green{0, 255, 0}, blue{0, 0, 255};
    const Rgb p4[2][4] = {{red, green, blue, red}, {blue, blue, green, red}};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_TRUE(colour_at(four, x, y) == p4[y][x]) << x << "," << y;

    for (const char * name : {"pal8.bmp", "pal8_short.bmp"}) {
        SCOPED_TRACE(name);
        CDibRoot d;
        ASSERT_TRUE(d.Load(wdata(name).c_str(), 0));
        EXPECT_EQ(d.BitCount(), 8);
        for (int i = 0; i < 20; ++i) {
            const Rgb want{static_cast<uint8_t>(i * 12), static_cast<uint8_t>(255 - i * 12),
                           static_cast<uint8_t>((i * 37) % 256)};
            EXPECT_TRUE(colour_at(d, i % 5, i / 5) == want) << i;
        }
    }
}

TEST(Fixtures, TwentyFourBitForms)
{
    for (const char * name : {"rgb24.bmp", "rgb24_v5.bmp", "rgb24_topdown.bmp"}) {
        SCOPED_TRACE(name);
        CDibRoot d;
        ASSERT_TRUE(d.Load(wdata(name).c_str(), 0)) << d.GetLastError();
        expect_rgb24_picture(d);
    }
}

namespace {

// The ImageMagick command, when a real one is installed ("" otherwise).
std::string imagemagick()
{
    for (const char * cmd : {"magick", "convert"}) {
        const std::string probe = std::string(cmd) + " -version 2>/dev/null";
        std::FILE * p = popen(probe.c_str(), "r");
        if (p == nullptr)
            continue;
        char buf[256] = {};
        const std::size_t n = std::fread(buf, 1, sizeof buf - 1, p);
        pclose(p);
        if (std::strstr(std::string(buf, n).c_str(), "ImageMagick") != nullptr)
            return cmd;
    }
    return std::string();
}

// Reads a binary PPM (P6, maxval 255).
bool read_ppm(const std::string & path, int & w, int & h, std::vector<uint8_t> & rgb)
{
    std::FILE * f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        return false;
    int maxval = 0;
    const bool ok = std::fscanf(f, "P6 %d %d %d", &w, &h, &maxval) == 3 && maxval == 255 && std::fgetc(f) != EOF;
    rgb.resize(static_cast<std::size_t>(w) * h * 3);
    const bool read = ok && std::fread(rgb.data(), 1, rgb.size(), f) == rgb.size();
    std::fclose(f);
    return read;
}

} // namespace

TEST(Fixtures, ImageMagickReadsWhatKevraWrites)
{
    const std::string im = imagemagick();
    if (im.empty())
        GTEST_SKIP() << "ImageMagick not installed";
    TempDir dir;
    for (unsigned short bpp : {1, 4, 8, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot d(CSize(11, 5), bpp);
        d.SetGrayPalette(); // 1 and 4 bits are created with a black palette
        for (long i = 0; i < d.Pitch() * d.Height(); ++i)
            d.GetBits()[i] = static_cast<uint8_t>(i * 29 + 3);
        const std::string bmp = dir.file("k" + std::to_string(bpp) + ".bmp");
        const std::string ppm = dir.file("k" + std::to_string(bpp) + ".ppm");
        ASSERT_TRUE(d.Save(TempDir::widen(bmp).c_str(), 0));
        const std::string cmd = im + " '" + bmp + "' -depth 8 'PPM:" + ppm + "' 2>/dev/null";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        int w = 0, h = 0;
        std::vector<uint8_t> rgb;
        ASSERT_TRUE(read_ppm(ppm, w, h, rgb));
        ASSERT_EQ(w, 11);
        ASSERT_EQ(h, 5);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const Rgb c = colour_at(d, x, y);
                const uint8_t * q = &rgb[(static_cast<std::size_t>(y) * w + x) * 3];
                ASSERT_TRUE((Rgb{q[0], q[1], q[2]} == c)) << x << "," << y;
            }
    }
}
