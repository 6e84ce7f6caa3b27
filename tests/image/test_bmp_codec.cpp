#include <gtest/gtest.h>

#include <cstring>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::BmpHeader;
using kevra_test::Bytes;
using kevra_test::read_file;
using kevra_test::TempDir;
using kevra_test::write_file;

namespace {

class DibProbe : public CDibRoot {
public:
    using CDibRoot::CDibRoot;
    CxImage * store() { return Donne_pCxImage(); }
};

Bytes grey_palette(int entries)
{
    Bytes b;
    for (int i = 0; i < entries; ++i)
        b.u8(i).u8(i).u8(i).u8(0);
    return b;
}

// A small 8-bit image with known pixels, used as "the previous image".
void fill_known(CDibRoot & d)
{
    for (long y = 0; y < d.Height(); ++y)
        for (long x = 0; x < d.Width(); ++x)
            *d.GetPixelPtr(static_cast<int>(x), static_cast<int>(y)) = static_cast<uint8_t>(10 * y + x);
}

} // namespace

TEST(BmpCodec, EightBitFileBytes)
{
    TempDir dir;
    CDibRoot d(CSize(2, 2), 8);
    uint8_t * bits = d.GetBits();
    bits[0] = 10;
    bits[1] = 20;
    bits[4] = 30;
    bits[5] = 40;
    ASSERT_TRUE(d.Save(dir.wfile("a.bmp").c_str(), 0));

    BmpHeader h;
    h.width = 2;
    h.height = 2;
    h.size_image = 8;
    h.clr_used = 256;
    h.palette_entries = 256;
    Bytes want = h.file(8).append(grey_palette(256).v);
    want.u8(10).u8(20).u8(0).u8(0).u8(30).u8(40).u8(0).u8(0);
    EXPECT_EQ(read_file(dir.file("a.bmp")), want.v);
}

TEST(BmpCodec, TwentyFourBitFileBytes)
{
    TempDir dir;
    CDibRoot d(CSize(3, 2), 24);
    for (int i = 0; i < 9; ++i) {
        d.GetBits()[i] = static_cast<uint8_t>(i + 1);
        d.GetBits()[12 + i] = static_cast<uint8_t>(100 + i);
    }
    d.SetXPelsPerMeter(1234);
    ASSERT_TRUE(d.Save(dir.wfile("c.bmp").c_str(), 99)); // recognised from the name

    BmpHeader h;
    h.width = 3;
    h.height = 2;
    h.bit_count = 24;
    h.size_image = 24;
    h.x_pels = 1234;
    Bytes want = h.file(24);
    for (int r = 0; r < 2; ++r) {
        for (int i = 0; i < 9; ++i)
            want.u8(r == 0 ? i + 1 : 100 + i);
        want.fill(3, 0);
    }
    EXPECT_EQ(read_file(dir.file("c.bmp")), want.v);
}

TEST(BmpCodec, OneAndFourBitPalettesAreWrittenCleared)
{
    TempDir dir;
    CDibRoot one(CSize(9, 1), 1), four(CSize(3, 1), 4);
    ASSERT_TRUE(one.Save(dir.wfile("1.bmp").c_str(), 0));
    ASSERT_TRUE(four.Save(dir.wfile("4.bmp").c_str(), 0));
    const std::vector<uint8_t> b1 = read_file(dir.file("1.bmp"));
    const std::vector<uint8_t> b4 = read_file(dir.file("4.bmp"));
    ASSERT_EQ(b1.size(), 54u + 8 + 4);
    ASSERT_EQ(b4.size(), 54u + 64 + 4);
    EXPECT_EQ(b1[10], 62);     // bits offset
    EXPECT_EQ(b1[46], 2);      // biClrUsed
    EXPECT_EQ(b4[46], 16);
    for (int i = 54; i < 62; ++i)
        EXPECT_EQ(b1[i], 0);
}

TEST(BmpCodec, RoundTripEveryDepth)
{
    TempDir dir;
    for (unsigned short bpp : {1, 4, 8, 16, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot d(CSize(7, 5), bpp);
        for (long i = 0; i < d.Pitch() * d.Height(); ++i)
            d.GetBits()[i] = static_cast<uint8_t>(i * 13 + 5);
        ASSERT_TRUE(d.Save(dir.wfile("r.bmp").c_str(), 0));
        DibProbe back;
        ASSERT_TRUE(back.Load(dir.wfile("r.bmp").c_str(), 0));
        EXPECT_EQ(back.BitCount(), bpp);
        EXPECT_EQ(back.Width(), 7);
        EXPECT_EQ(0, std::memcmp(back.GetInfo(), d.GetInfo(), 40));
        ASSERT_EQ(back.SizeImage(), d.SizeImage());
        const int pal = bpp == 24 ? 0 : (bpp == 1 ? 2 : bpp == 4 ? 16 : 256) * 4;
        EXPECT_EQ(0, std::memcmp(back.GetBits() - pal, d.GetBits() - pal, pal + d.SizeImage()));
        EXPECT_EQ(back.BoundingRectangle(), CRect(0, 0, 6, 4));
        if (bpp == 16) {
            const uint8_t * view = back.store()->grey_view();
            ASSERT_NE(view, nullptr);
            for (int y = 0; y < 5; ++y)
                for (int x = 0; x < 7; ++x)
                    EXPECT_EQ(view[y * 8 + x], back.GetPixelPtr(x, y)[1]);
        }
    }
}

TEST(BmpCodec, PackedStreamWithoutFileHeader)
{
    TempDir dir;
    BmpHeader h;
    h.width = 2;
    h.height = 1;
    Bytes b = h.info();
    b.append(grey_palette(256).v).u8(7).u8(9).u8(0).u8(0);
    write_file(dir.file("p.bmp"), b.v);
    CDibRoot d;
    ASSERT_TRUE(d.Load(dir.wfile("p.bmp").c_str(), 0));
    EXPECT_EQ(d.GetBits()[0], 7);
    EXPECT_EQ(d.GetBits()[1], 9);
}

TEST(BmpCodec, CompressionErrors)
{
    TempDir dir;
    BmpHeader h;
    h.width = 1;
    h.height = 1;
    h.bit_count = 24;
    h.compression = 1;
    write_file(dir.file("c24.bmp"), h.file(4).fill(4, 0).v);
    CDibRoot d;
    EXPECT_FALSE(d.Load(dir.wfile("c24.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "unknown compression");

    h.bit_count = 8;
    h.palette_entries = 256;
    write_file(dir.file("c8.bmp"), h.file(4).fill(1024 + 4, 0).v);
    EXPECT_FALSE(d.Load(dir.wfile("c8.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "compression type not supported");

    h.bit_count = 32;
    h.compression = 0;
    h.palette_entries = 0;
    write_file(dir.file("c32.bmp"), h.file(4).fill(4, 0).v);
    EXPECT_FALSE(d.Load(dir.wfile("c32.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "unknown compression");
}

TEST(BmpCodec, HeaderErrors)
{
    TempDir dir;
    CDibRoot d;
    write_file(dir.file("short.bmp"), {'B', 'M', 1, 2});
    EXPECT_FALSE(d.Load(dir.wfile("short.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "Not a BMP");

    BmpHeader h;
    Bytes b = h.file(0);
    b.v.resize(30);
    write_file(dir.file("info.bmp"), b.v);
    EXPECT_FALSE(d.Load(dir.wfile("info.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP info");

    EXPECT_FALSE(d.Load(dir.wfile("c.bmp").c_str(), 3));
    // The file does not exist: nothing is said.
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP info");
}

TEST(BmpCodec, UnsupportedFormatCode)
{
    TempDir dir;
    CDibRoot d(CSize(2, 2), 8);
    ASSERT_TRUE(d.Save(dir.wfile("x.bmp").c_str(), 0));
    EXPECT_FALSE(d.Load(dir.wfile("x.bmp").c_str(), 3));
    EXPECT_STREQ(d.GetLastError(), "Unsupported operation for this format");
    EXPECT_FALSE(d.Save(dir.wfile("y.bmp").c_str(), 5));
    EXPECT_STREQ(d.GetLastError(), "Unsupported operation for this format");
}

TEST(BmpCodec, UnrecognisedNameLeavesEverything)
{
    TempDir dir;
    CDibRoot d(CSize(3, 3), 8);
    fill_known(d);
    ASSERT_TRUE(d.Save(dir.wfile("real.bmp").c_str(), 0));
    kevra_test::write_file(dir.file("x.jpg"), read_file(dir.file("real.bmp")));
    d.SetZoneTravail(CRect(1, 1, 1, 1));
    EXPECT_FALSE(d.Load(dir.wfile("x.jpg").c_str(), 99));
    EXPECT_FALSE(d.Load(dir.wfile("x.jpg").c_str(), 8));
    EXPECT_STREQ(d.GetLastError(), "");
    EXPECT_EQ(d.BoundingRectangle(), CRect(1, 1, 1, 1));
    EXPECT_FALSE(d.Save(dir.wfile("out.jpg").c_str(), 99));
    EXPECT_FALSE(kevra_test::fs::exists(dir.file("out.jpg")));
}

TEST(BmpCodec, AutoDetectLooksAnywhereInTheName)
{
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"image.bmp"), 0u);
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"IMAGE.Bmp.old"), 0u);
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"image.jpg"), 99u);
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"bmp"), 99u);
}

TEST(BmpCodec, FailedLoadKeepsPreviousImageAndLaterLoadReplacesIt)
{
    TempDir dir;
    CDibRoot good(CSize(4, 2), 24);
    good.GetBits()[0] = 200;
    ASSERT_TRUE(good.Save(dir.wfile("good.bmp").c_str(), 0));
    std::vector<uint8_t> cut = read_file(dir.file("good.bmp"));
    cut.resize(cut.size() - 5);
    write_file(dir.file("cut.bmp"), cut);

    CDibRoot d(CSize(3, 3), 8);
    fill_known(d);
    d.SetZoneTravail(CRect(1, 1, 2, 2));
    EXPECT_FALSE(d.Load(dir.wfile("cut.bmp").c_str(), 0));
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP data");
    EXPECT_EQ(d.Width(), 3);
    EXPECT_EQ(d.BitCount(), 8);
    EXPECT_EQ(*d.GetPixelPtr(2, 1), 12);
    EXPECT_EQ(d.BoundingRectangle(), CRect(1, 1, 2, 2));

    ASSERT_TRUE(d.Load(dir.wfile("good.bmp").c_str(), 0));
    EXPECT_EQ(d.Width(), 4);
    EXPECT_EQ(d.BitCount(), 24);
    EXPECT_EQ(d.GetBits()[0], 200);
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 0, 3, 1));
    // A success does not clear the text of the earlier failure.
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP data");
}

TEST(BmpCodec, HostileHeadersFailWithoutTouchingTheImage)
{
    TempDir dir;
    struct Case {
        const char * name;
        int32_t width, height;
        uint16_t bpp;
        uint32_t offset;
        const char * text;
    };
    const Case cases[] = {
        {"zero width", 0, 4, 8, 0, "Can't allocate memory"},
        {"negative width", -4, 4, 24, 0, "Can't allocate memory"},
        {"zero height", 4, 0, 24, 0, "Can't allocate memory"},
        {"min height", 4, INT32_MIN, 24, 0, "Can't allocate memory"},
        {"huge", 0x7FFFFFFF, 0x7FFFFFFF, 24, 0, "Can't allocate memory"},
        {"wide row", 0x40000000, 1, 24, 0, "Can't allocate memory"},
        {"large but short", 20000, 20000, 8, 0, "Error reading BMP data"},
        {"huge 32", 100000, 100000, 32, 0, "unknown compression"},
        {"far offset", 2, 2, 24, 0x7FFFFFF0, "Error reading BMP data"},
        {"tiny rows", 64, 64, 8, 0, "Error reading BMP data"},
        {"16 bit short", 9, 9, 16, 0, "Error reading BMP data"},
    };
    for (const Case & c : cases) {
        SCOPED_TRACE(c.name);
        BmpHeader h;
        h.width = c.width;
        h.height = c.height;
        h.bit_count = c.bpp;
        h.bits_offset = c.offset;
        h.palette_entries = c.bpp <= 16 ? 256 : 0;
        write_file(dir.file("h.bmp"), h.file(16).fill(c.bpp <= 16 ? 1024 : 0, 1).fill(16, 2).v);
        CDibRoot d(CSize(3, 3), 8);
        fill_known(d);
        EXPECT_FALSE(d.Load(dir.wfile("h.bmp").c_str(), 0));
        EXPECT_STREQ(d.GetLastError(), c.text);
        EXPECT_EQ(d.Width(), 3);
        EXPECT_EQ(*d.GetPixelPtr(2, 2), 22);
    }
}

TEST(BmpCodec, TruncationInEveryRegion)
{
    TempDir dir;
    CDibRoot src(CSize(5, 4), 8);
    ASSERT_TRUE(src.Save(dir.wfile("s.bmp").c_str(), 0));
    const std::vector<uint8_t> full = read_file(dir.file("s.bmp"));
    for (std::size_t len = 0; len < full.size(); len += 7) {
        SCOPED_TRACE(len);
        write_file(dir.file("t.bmp"), std::vector<uint8_t>(full.begin(), full.begin() + static_cast<long>(len)));
        CDibRoot d(CSize(2, 2), 24);
        EXPECT_FALSE(d.Load(dir.wfile("t.bmp").c_str(), 0));
        const std::string text = d.GetLastError();
        if (len < 14)
            EXPECT_EQ(text, "Not a BMP");
        else if (len < 54)
            EXPECT_EQ(text, "Error reading BMP info");
        else
            EXPECT_EQ(text, "Error reading BMP data");
        EXPECT_EQ(d.BitCount(), 24);
    }
}

TEST(BmpCodec, TopDownFileLoadsBottomUp)
{
    TempDir dir;
    BmpHeader h;
    h.width = 1;
    h.height = -3;
    h.bit_count = 24;
    Bytes b = h.file(12);
    // Picture rows from the top: red, green, blue.
    b.u8(0).u8(0).u8(255).u8(0).u8(0).u8(255).u8(0).u8(0).u8(255).u8(0).u8(0).u8(0);
    write_file(dir.file("td.bmp"), b.v);
    CDibRoot d;
    ASSERT_TRUE(d.Load(dir.wfile("td.bmp").c_str(), 0));
    EXPECT_EQ(d.Height(), 3);
    EXPECT_EQ(d.GetInfo()->bmiHeader.biHeight, 3);
    EXPECT_EQ(d.GetPixelPtr(0, 0)[0], 255); // bottom row: blue
    EXPECT_EQ(d.GetPixelPtr(0, 1)[1], 255);
    EXPECT_EQ(d.GetPixelPtr(0, 2)[2], 255); // top row: red
}

TEST(BmpCodec, CoreHeaderPaletteReadAsFourByteEntries)
{
    TempDir dir;
    // 12-byte core header, 1 bit, palette of two 3-byte entries, then one row.
    Bytes b;
    b.u8('B').u8('M').u32(0).u32(0).u32(14 + 12 + 6);
    b.u32(12).u16(8).u16(1).u16(1).u16(1);
    b.u8(1).u8(2).u8(3).u8(4).u8(5).u8(6);
    b.u8(0xF0).fill(3, 0);
    b.fill(20, 0); // trailing bytes: the 40-byte read must not run short
    write_file(dir.file("core.bmp"), b.v);
    CDibRoot d;
    ASSERT_TRUE(d.Load(dir.wfile("core.bmp").c_str(), 0)) << d.GetLastError();
    EXPECT_EQ(d.Width(), 8);
    EXPECT_EQ(d.BitCount(), 1);
    const uint8_t * pal = d.GetBits() - 8;
    // Entries taken 4 bytes at a time: the 3-byte form is not converted.
    EXPECT_EQ(pal[0], 1);
    EXPECT_EQ(pal[3], 4);
    EXPECT_EQ(pal[4], 5);
    EXPECT_EQ(d.GetBits()[0], 0xF0);
}

TEST(BmpCodec, ThirtyTwoBitBitfieldsBecomeTwentyFour)
{
    TempDir dir;
    BmpHeader h;
    h.width = 2;
    h.height = 2;
    h.bit_count = 32;
    h.compression = 3;
    h.bits_offset = 54 + 12;
    Bytes b = h.file(16);
    b.u32(0xFF0000).u32(0xFF00).u32(0xFF);
    for (int i = 0; i < 16; ++i)
        b.u8(i + 1);
    write_file(dir.file("32.bmp"), b.v);
    CDibRoot d;
    ASSERT_TRUE(d.Load(dir.wfile("32.bmp").c_str(), 0));
    EXPECT_EQ(d.BitCount(), 24);
    const uint8_t row0[8] = {1, 2, 3, 5, 6, 7, 0, 0};
    const uint8_t row1[8] = {9, 10, 11, 13, 14, 15, 0, 0};
    EXPECT_EQ(0, std::memcmp(d.GetPixelPtr(0, 0), row0, 8));
    EXPECT_EQ(0, std::memcmp(d.GetPixelPtr(0, 1), row1, 8));

    // The 16-byte scratch buffer alone is refused.
    auto previous = platform::set_allocation_hook([](std::size_t bytes) { return bytes == 16; });
    CDibRoot e(CSize(1, 1), 8);
    EXPECT_FALSE(e.Load(dir.wfile("32.bmp").c_str(), 0));
    platform::set_allocation_hook(previous);
    EXPECT_STREQ(e.GetLastError(), "can't allocate memory");
    EXPECT_EQ(e.BitCount(), 8);
}

TEST(BmpCodec, PackedBitmapRoundTrip)
{
    CDibRoot d(CSize(3, 2), 8);
    fill_known(d);
    d.GetBits()[-1024 + 4 * 5] = 99; // palette entry 5 blue
    void * handle = d.CopyToHandle();
    ASSERT_NE(handle, nullptr);
    CDibRoot back(handle);
    EXPECT_EQ(0, std::memcmp(back.GetInfo(), d.GetInfo(), 40));
    EXPECT_EQ(0, std::memcmp(back.GetBits() - 1024, d.GetBits() - 1024, 1024 + d.SizeImage()));
    EXPECT_EQ(back.BoundingRectangle(), CRect(0, 0, 2, 1));
    CDibRoot::FreeHandle(handle);

    CDibRoot empty;
    EXPECT_EQ(empty.CopyToHandle(), nullptr);
    CDibRoot fromNull(static_cast<void *>(nullptr));
    EXPECT_FALSE(fromNull.IsOK());
}

TEST(BmpCodec, PackedEightBitWithoutColourCountIsCompletedInPlace)
{
    BmpHeader h;
    h.width = 2;
    h.height = 1;
    h.x_pels = 3937;
    h.y_pels = 1000;
    Bytes b = h.info();
    b.u8(5).u8(6).u8(0).u8(0);
    CDibRoot d(static_cast<void *>(b.v.data()));
    ASSERT_TRUE(d.IsOK());
    // The caller's header now says 256 colours, 256 important.
    EXPECT_EQ(b.v[32], 0);
    EXPECT_EQ(b.v[33], 1);
    EXPECT_EQ(b.v[37], 1);
    // Rows follow the 40 bytes; the palette is the creation ramp.
    EXPECT_EQ(d.GetBits()[0], 5);
    EXPECT_EQ(d.GetBits()[1], 6);
    EXPECT_TRUE(d.IsGrayScale());
    // Through dots per inch and back; the vertical value is the horizontal one.
    EXPECT_EQ(d.GetXPelsPerMeter(), 3937u);
    EXPECT_EQ(d.GetYPelsPerMeter(), 3937u);
}

TEST(BmpCodec, AllocationFailureKeepsPreviousImage)
{
    TempDir dir;
    CDibRoot big(CSize(40, 40), 24);
    ASSERT_TRUE(big.Save(dir.wfile("big.bmp").c_str(), 0));
    CDibRoot d(CSize(3, 3), 8);
    fill_known(d);
    {
        kevra_test::FailAllocations fail(4000);
        EXPECT_FALSE(d.Load(dir.wfile("big.bmp").c_str(), 0));
    }
    EXPECT_STREQ(d.GetLastError(), "Can't allocate memory");
    EXPECT_EQ(*d.GetPixelPtr(1, 2), 21);
}

TEST(BmpCodec, ConstructorFromFileReportsThroughTheStore)
{
    TempDir dir;
    CDibRoot src(CSize(4, 4), 16);
    ASSERT_TRUE(src.Save(dir.wfile("g.bmp").c_str(), 0));
    CDib viaName(dir.wfile("g.bmp").c_str());
    EXPECT_TRUE(viaName.IsOK());
    EXPECT_EQ(viaName.BitCount(), 16);
    EXPECT_EQ(viaName.BoundingRectangle(), CRect(0, 0, 3, 3));

    // Code 99 is not filtered here: the codec refuses it and says so.
    write_file(dir.file("g.dat"), read_file(dir.file("g.bmp")));
    CDibRoot refused(dir.wfile("g.dat").c_str(), 99);
    EXPECT_FALSE(refused.IsOK());
    EXPECT_STREQ(refused.GetLastError(), "Unsupported operation for this format");

    CDibRoot missing(dir.wfile("none.bmp").c_str(), 0);
    EXPECT_FALSE(missing.IsOK());
    EXPECT_STREQ(missing.GetLastError(), "");
}

TEST(BmpCodec, SixteenBitMasksAreReadButIgnored)
{
    // Compression 3: the masks are read at the bits offset, before the rows.
    TempDir dir;
    BmpHeader h;
    h.width = 2;
    h.height = 1;
    h.bit_count = 16;
    h.compression = 3;
    h.palette_entries = 256;
    Bytes b = h.file(16);
    b.append(grey_palette(256).v).u32(0xF800).u32(0x7E0).u32(0x1F).u16(0x1234).u16(0xABCD);
    write_file(dir.file("m.bmp"), b.v);
    CDibRoot d;
    ASSERT_TRUE(d.Load(dir.wfile("m.bmp").c_str(), 0));
    const uint8_t want[4] = {0x34, 0x12, 0xCD, 0xAB};
    EXPECT_EQ(0, std::memcmp(d.GetBits(), want, 4));
}
