// Display palettes of grey images: set from a palette, a table or display
// settings, and read back.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "support/kevra_test.h"

using kevra::CDibRoot;
using kevra::CLUT_24_Bpp;
using kevra::CSize;
using kevra::tagRGBQUAD;

namespace {

std::vector<uint8_t> palette_bytes(CDibRoot &image)
{
    std::vector<tagRGBQUAD> quads(256);
    if (image.GetCurrentDisplayPalette(quads.data(), 256) != 1)
        return {};
    std::vector<uint8_t> out(1024);
    std::memcpy(out.data(), quads.data(), 1024);
    return out;
}

std::vector<uint8_t> table_bytes(CLUT_24_Bpp &table)
{
    std::vector<tagRGBQUAD> quads(256);
    table.Donne_RGBQUAD(quads.data(), 256);
    std::vector<uint8_t> out(1024);
    std::memcpy(out.data(), quads.data(), 1024);
    return out;
}

std::vector<uint8_t> block(CDibRoot &image)
{
    const unsigned char *bits = image.GetBits();
    std::vector<uint8_t> out(bits, bits + image.SizeImage());
    image.ReleaseBits();
    return out;
}

void fill(CDibRoot &image, uint8_t seed)
{
    unsigned char *bits = image.GetBits();
    for (unsigned long i = 0; i < image.SizeImage(); ++i)
        bits[i] = static_cast<unsigned char>(seed + i * 13);
    image.ReleaseBits();
}

} // namespace

TEST(DisplayPalette, PredefinedPaletteRecoloursGreyImagesOnly)
{
    for (unsigned short bpp : {8, 16}) {
        CDibRoot image(CSize(5, 3), bpp);
        fill(image, 3);
        const std::vector<uint8_t> pixels = block(image);
        const auto header = image.GetInfo()->bmiHeader;
        EXPECT_EQ(image.SetDisplayPalette(kevra::e_Palette21), 0);
        CLUT_24_Bpp false_colour(kevra::e_Palette21);
        EXPECT_EQ(palette_bytes(image), table_bytes(false_colour));
        EXPECT_EQ(block(image), pixels);
        EXPECT_EQ(std::memcmp(&image.GetInfo()->bmiHeader, &header, sizeof header), 0);
    }
    CDibRoot colour(CSize(5, 3), 24);
    fill(colour, 9);
    const std::vector<uint8_t> pixels = block(colour);
    EXPECT_EQ(colour.SetDisplayPalette(kevra::e_Palette21), 0);
    CLUT_24_Bpp table(kevra::e_Palette22);
    EXPECT_EQ(colour.SetDisplayPalette(table), 0);
    EXPECT_EQ(block(colour), pixels);
    tagRGBQUAD quads[256];
    EXPECT_EQ(colour.GetCurrentDisplayPalette(quads, 256), 0);
    EXPECT_EQ(colour.GetCurrentDisplayPalette(&table), 0);

    CDibRoot empty;
    EXPECT_EQ(empty.SetDisplayPalette(kevra::e_Palette12), 0);
    EXPECT_EQ(empty.GetCurrentDisplayPalette(quads, 256), 0);
    EXPECT_EQ(empty.GetCurrentDisplayPalette(&table), 0);
}

TEST(DisplayPalette, TableByValue)
{
    CDibRoot image(CSize(4, 4), 8);
    CLUT_24_Bpp table;
    table.ReglageRougeVertBleu(-40, 0, 60);
    EXPECT_EQ(image.SetDisplayPalette(table), 0);
    EXPECT_EQ(palette_bytes(image), table_bytes(table));
}

TEST(DisplayPalette, ReadingNeedsRoomForEveryEntry)
{
    CDibRoot image(CSize(3, 2), 8);
    std::vector<tagRGBQUAD> quads(256);
    std::memset(quads.data(), 0x77, 1024);
    EXPECT_EQ(image.GetCurrentDisplayPalette(quads.data(), 255), 0);
    for (const auto &q : quads)
        EXPECT_EQ(q.rgbBlue, 0x77);
    EXPECT_EQ(image.GetCurrentDisplayPalette(nullptr, 256), 0);
    EXPECT_EQ(image.GetCurrentDisplayPalette(quads.data(), 256), 1);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(quads[i].rgbRed, i);
        EXPECT_EQ(quads[i].rgbGreen, i);
        EXPECT_EQ(quads[i].rgbBlue, i);
    }
    // A 1-bit image has two entries, which fit a smaller buffer.
    CDibRoot bilevel(CSize(3, 2), 1);
    tagRGBQUAD two[2];
    EXPECT_EQ(bilevel.GetCurrentDisplayPalette(two, 2), 1);
}

TEST(DisplayPalette, ReadingIntoATable)
{
    CDibRoot image(CSize(3, 2), 16);
    image.SetDisplayPalette(kevra::e_Palette23);
    CLUT_24_Bpp table;
    EXPECT_EQ(image.GetCurrentDisplayPalette(&table), 1);
    CLUT_24_Bpp blue(kevra::e_Palette23);
    EXPECT_EQ(table_bytes(table), table_bytes(blue));
    EXPECT_EQ(image.GetCurrentDisplayPalette(static_cast<CLUT_24_Bpp *>(nullptr)), 0);

    // A 4-bit image's 16 entries (all black) come first; the rest are black too.
    CDibRoot nibble(CSize(3, 2), 4);
    EXPECT_EQ(nibble.GetCurrentDisplayPalette(&table), 1);
    EXPECT_EQ(table_bytes(table), std::vector<uint8_t>(1024, 0));
}

// The table given to the settings form is the additional table of the chain.
TEST(DisplayPalette, DisplaySettings)
{
    kevra_test::CaptureMessageBoxes boxes;
    CDibRoot image(CSize(6, 2), 8);
    fill(image, 1);
    const std::vector<uint8_t> pixels = block(image);
    CLUT_24_Bpp extra(kevra::e_Palette22);
    EXPECT_EQ(image.SetDisplayPalette(&extra, 0.1f, 1.3f, 0.9f, kevra::e_Palette12, 5, 10, -15, true), 0);

    CLUT_24_Bpp expected;
    ASSERT_TRUE(kevra::CSequenceur::ComputeDisplayPalette(&expected, 0.1f, 1.3f, 0.9f,
                                                          kevra::e_Palette12, 5, 10, -15, true,
                                                          &extra));
    EXPECT_EQ(palette_bytes(image), table_bytes(expected));
    EXPECT_EQ(block(image), pixels);
    EXPECT_TRUE(boxes.texts.empty());
}
