// BMP files made by another tool (tests/data): palettes of every size,
// short palettes, the large info header and top-down rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;

namespace {

using Rgb = std::array<uint8_t, 3>; // red, green, blue

// Colour of picture pixel (x, y), y from the top, of a 1-, 4-, 8- or 24-bit image.
Rgb colour_at(CDibRoot & d, int x, int y)
{
    const uint8_t * p = d.GetPixelPtr(x, static_cast<int>(d.Height()) - 1 - y);
    if (d.BitCount() == 24)
        return {p[2], p[1], p[0]};
    const int bpp = d.BitCount();
    const int index = bpp == 8 ? p[0] : bpp == 4 ? (x % 2 == 0 ? p[0] >> 4 : p[0] & 15) : (p[0] >> (7 - x % 8)) & 1;
    const uint8_t * pal = d.GetBits() - 4 * (1 << bpp) + 4 * index;
    return {pal[2], pal[1], pal[0]};
}

} // namespace

// Pictures as written in make_fixtures.sh, row by row from the top.
TEST(Fixtures, FilesOfAnotherToolReadBack)
{
    const Rgb red{255, 0, 0}, green{0, 255, 0}, blue{0, 0, 255};
    std::vector<Rgb> grey, pal8;
    for (int i = 0; i < 21; ++i) {
        const uint8_t v = static_cast<uint8_t>(i == 20 ? 255 : 12 * i);
        grey.push_back({v, v, v});
    }
    for (int i = 0; i < 20; ++i)
        pal8.push_back({static_cast<uint8_t>(i * 12), static_cast<uint8_t>(255 - i * 12), static_cast<uint8_t>(i * 37 % 256)});
    const std::vector<Rgb> pal4 = {red, green, blue, red, blue, blue, green, red};
    const std::vector<Rgb> rgb24 = {red, green, blue, {10, 20, 30}, {40, 50, 60}, {70, 80, 90}};
    const struct {
        const char * name;
        unsigned short bpp;
        int width;
        const std::vector<Rgb> & picture;
    } cases[] = {{"grey8.bmp", 8, 7, grey},     {"pal4.bmp", 4, 4, pal4},          {"pal8.bmp", 8, 5, pal8},
                 {"pal8_short.bmp", 8, 5, pal8}, {"rgb24.bmp", 24, 3, rgb24},      {"rgb24_v5.bmp", 24, 3, rgb24},
                 {"rgb24_topdown.bmp", 24, 3, rgb24}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        CDibRoot d;
        ASSERT_TRUE(d.Load(kevra_test::TempDir::widen(kevra_test::data_file(c.name)).c_str(), 0)) << d.GetLastError();
        EXPECT_EQ(d.BitCount(), c.bpp);
        ASSERT_EQ(d.Size(), CSize(c.width, static_cast<int>(c.picture.size()) / c.width));
        for (std::size_t i = 0; i < c.picture.size(); ++i)
            EXPECT_TRUE(colour_at(d, i % c.width, i / c.width) == c.picture[i]) << i;
    }
    CDibRoot rle;
    EXPECT_FALSE(rle.Load(kevra_test::TempDir::widen(kevra_test::data_file("grey8_rle.bmp")).c_str(), 0));
    EXPECT_STREQ(rle.GetLastError(), "compression type not supported");
}

// Another reader sees the pixels Kevra writes: ImageMagick (when installed) turns each file
// into a plain RGB picture that must match the image's own palette colours.
TEST(Fixtures, ImageMagickReadsWhatKevraWrites)
{
    std::string im;
    for (const char * cmd : {"magick", "convert"})
        if (im.empty() && std::system((std::string(cmd) + " -version 2>/dev/null | grep -q ImageMagick").c_str()) == 0)
            im = cmd;
    if (im.empty())
        GTEST_SKIP() << "ImageMagick not installed";
    kevra_test::TempDir dir;
    for (unsigned short bpp : {1, 4, 8, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot d(CSize(11, 5), bpp);
        d.SetGrayPalette(); // 1 and 4 bits are created with a black palette
        for (long i = 0; i < d.Pitch() * d.Height(); ++i)
            d.GetBits()[i] = static_cast<uint8_t>(i * 29 + 3);
        const std::string bmp = dir.file("k.bmp"), ppm = dir.file("k.ppm");
        ASSERT_TRUE(d.Save(dir.wfile("k.bmp").c_str(), 0));
        ASSERT_EQ(std::system((im + " '" + bmp + "' -depth 8 'PPM:" + ppm + "' 2>/dev/null").c_str()), 0);
        const std::vector<uint8_t> file = kevra_test::read_file(ppm);
        const std::string head = "P6\n11 5\n255\n";
        ASSERT_EQ(std::string(file.begin(), file.begin() + static_cast<long>(std::min(file.size(), head.size()))), head);
        ASSERT_EQ(file.size(), head.size() + 11 * 5 * 3);
        for (int i = 0; i < 55; ++i) {
            const uint8_t * q = &file[head.size() + 3 * static_cast<std::size_t>(i)];
            ASSERT_TRUE((Rgb{q[0], q[1], q[2]} == colour_at(d, i % 11, i / 11))) << i;
        }
    }
}
