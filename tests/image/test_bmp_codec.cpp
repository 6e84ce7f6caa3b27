// BMP files and packed bitmaps: exact bytes written, what is read back, the
// error texts, format codes, and the trace lines of Load.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::Bytes;
using kevra_test::DibProbe;
using kevra_test::read_file;
using kevra_test::TempDir;
using kevra_test::write_file;

namespace {

std::vector<uint8_t> info_header(int32_t w, int32_t h, uint16_t bpp, uint32_t compression = 0, uint32_t size_image = 0,
                                 uint32_t clr_used = 0, int32_t x_pels = 2835, int32_t y_pels = 2835)
{
    return Bytes().u32(40).u32(w).u32(h).u16(1).u16(bpp).u32(compression).u32(size_image).u32(x_pels).u32(y_pels)
        .u32(clr_used).u32(0).v;
}

// The 14-byte file header, rows at `offset`, followed by `info`.
Bytes file_header(uint32_t offset, uint32_t rows, const std::vector<uint8_t> & info)
{
    return Bytes().u8('B').u8('M').u32(offset + rows).u32(0).u32(offset).append(info);
}

std::vector<uint8_t> grey_palette()
{
    Bytes b;
    for (int i = 0; i < 256; ++i)
        b.u8(i).u8(i).u8(i).u8(0);
    return b.v;
}

TempDir & scratch()
{
    static TempDir dir;
    return dir;
}

// Loads `bytes` through a scratch file.
bool load_bytes(CDibRoot & d, const std::vector<uint8_t> & bytes)
{
    write_file(scratch().file("in.bmp"), bytes);
    return d.Load(scratch().wfile("in.bmp").c_str(), 0);
}

std::vector<uint8_t> saved_bytes(CDibRoot & d, unsigned long type = 0)
{
    EXPECT_TRUE(d.Save(scratch().wfile("out.bmp").c_str(), type));
    return read_file(scratch().file("out.bmp"));
}

// A small 8-bit image with known pixels, used as "the previous image".
void fill_known(CDibRoot & d)
{
    for (int y = 0; y < d.Height(); ++y)
        for (int x = 0; x < d.Width(); ++x)
            *d.GetPixelPtr(x, y) = static_cast<uint8_t>(10 * y + x);
}

} // namespace

TEST(BmpCodec, WrittenFilesByteForByte)
{
    CDibRoot g(CSize(2, 2), 8), c(CSize(3, 2), 24);
    const std::vector<uint8_t> grey_rows = {10, 20, 0, 0, 30, 40, 0, 0};
    std::vector<uint8_t> colour_rows(24);
    for (int i = 0; i < 24; ++i)
        colour_rows[i] = i % 12 < 9 ? static_cast<uint8_t>(7 * i + 1) : 0;
    std::memcpy(g.GetBits(), grey_rows.data(), 8);
    std::memcpy(c.GetBits(), colour_rows.data(), 24);
    c.SetXPelsPerMeter(1234);
    EXPECT_EQ(saved_bytes(g),
              file_header(54 + 1024, 8, info_header(2, 2, 8, 0, 8, 256)).append(grey_palette()).append(grey_rows).v);
    EXPECT_EQ(saved_bytes(c, 99), // recognised from the name
              file_header(54, 24, info_header(3, 2, 24, 0, 24, 0, 1234)).append(colour_rows).v);
}

// Each depth reads back with the same header, palette and rows (a 16-bit file
// holds raw samples after a grey palette); loading a 16-bit file builds the
// grey view of high bytes.
TEST(BmpCodec, RoundTripEveryDepth)
{
    for (unsigned short bpp : {1, 4, 8, 16, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot d(CSize(7, 5), bpp);
        for (long i = 0; i < d.Pitch() * d.Height(); ++i)
            d.GetBits()[i] = static_cast<uint8_t>(i * 13 + 5);
        const uint32_t pal = bpp == 24 ? 0 : (bpp == 1 ? 2 : bpp == 4 ? 16 : 256) * 4;
        DibProbe back;
        ASSERT_TRUE(load_bytes(back, saved_bytes(d)));
        ASSERT_EQ(0, std::memcmp(back.GetInfo(), d.GetInfo(), 40));
        EXPECT_EQ(0, std::memcmp(back.GetBits() - pal, d.GetBits() - pal, pal + d.SizeImage()));
        const uint8_t * view = back.store()->grey_view();
        ASSERT_EQ(view != nullptr, bpp == 16);
        for (int i = 0; bpp == 16 && i < 5 * 7; ++i)
            EXPECT_EQ(view[i / 7 * 8 + i % 7], back.GetPixelPtr(i % 7, i / 7)[1]) << i;
    }
}

// Hostile, unsupported or unallocatable headers: the text says why and the
// previous image stays.
TEST(BmpCodec, BadHeadersFailWithTheirTextAndKeepTheImage)
{
    struct Case {
        const char * name;
        int32_t width, height;
        uint16_t bpp;
        uint32_t compression, offset;
        const char * text;
        std::size_t fail_from = SIZE_MAX; // allocations refused from this size
    };
    const Case cases[] = {
        {"zero width", 0, 4, 8, 0, 0, "Can't allocate memory"},
        {"min height", 4, INT32_MIN, 24, 0, 0, "Can't allocate memory"},
        {"huge", 0x7FFFFFFF, 0x7FFFFFFF, 24, 0, 0, "Can't allocate memory"},
        {"wide row", 0x40000000, 1, 24, 0, 0, "Can't allocate memory"},
        {"allocation refused", 2, 2, 24, 0, 0, "Can't allocate memory", 56},
        {"large but short", 20000, 20000, 8, 0, 0, "Error reading BMP data", 1 << 20}, // refused before allocating
        {"huge 32", 100000, 100000, 32, 0, 0, "unknown compression"},
        {"24 bit compressed", 1, 1, 24, 1, 0, "unknown compression"},
        {"4 bit compressed", 3, 1, 4, 2, 0, "compression type not supported"},
        {"far offset", 2, 2, 24, 0, 0x7FFFFFF0, "Error reading BMP data"},
        {"tiny rows", 64, 64, 8, 0, 0, "Error reading BMP data"},
        {"16 bit short", 9, 9, 16, 0, 0, "Error reading BMP data"},
        // Rows never read (bit count 0) but a 2 GB store: over the image size limit.
        {"unread rows over the limit", 65531, 240000, 0, 0, 0, "Can't allocate memory"},
    };
    for (const Case & c : cases) {
        SCOPED_TRACE(c.name);
        const uint32_t pal = c.bpp <= 16 ? 1024 : 0;
        Bytes b = file_header(c.offset != 0 ? c.offset : 54 + pal, 16,
                              info_header(c.width, c.height, c.bpp, c.compression));
        CDibRoot d(CSize(3, 3), 8);
        fill_known(d);
        {
            kevra_test::FailAllocations fail(c.fail_from);
            EXPECT_FALSE(load_bytes(d, b.fill(pal, 1).fill(16, 2).v));
        }
        EXPECT_STREQ(d.GetLastError(), c.text);
        EXPECT_EQ(d.Width(), 3);
        EXPECT_EQ(*d.GetPixelPtr(2, 2), 22);
    }
}

TEST(BmpCodec, TruncationInEveryRegion)
{
    CDibRoot src(CSize(5, 4), 8);
    const std::vector<uint8_t> full = saved_bytes(src);
    for (std::size_t len = 0; len < full.size(); len += 7) {
        SCOPED_TRACE(len);
        CDibRoot d(CSize(2, 2), 24);
        EXPECT_FALSE(load_bytes(d, std::vector<uint8_t>(full.begin(), full.begin() + static_cast<long>(len))));
        EXPECT_STREQ(d.GetLastError(),
                     len < 14 ? "Not a BMP" : len < 54 ? "Error reading BMP info" : "Error reading BMP data");
        EXPECT_EQ(d.BitCount(), 24);
    }
}

// A success does not clear the text of an earlier failure, nor does a file
// that cannot be opened; a later load replaces the image and resets the zone.
TEST(BmpCodec, FailedLoadKeepsPreviousImageAndLaterLoadReplacesIt)
{
    CDibRoot good(CSize(4, 2), 24), d(CSize(3, 3), 8);
    good.GetBits()[0] = 200;
    std::vector<uint8_t> file = saved_bytes(good);
    fill_known(d);
    d.SetZoneTravail(CRect(1, 1, 2, 2));
    EXPECT_FALSE(load_bytes(d, std::vector<uint8_t>(file.begin(), file.end() - 5)));
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP data");
    EXPECT_EQ(*d.GetPixelPtr(2, 1), 12);
    EXPECT_EQ(d.BoundingRectangle(), CRect(1, 1, 2, 2));
    EXPECT_FALSE(d.Load(scratch().wfile("missing.bmp").c_str(), 0));
    ASSERT_TRUE(load_bytes(d, file));
    EXPECT_EQ(d.GetBits()[0], 200);
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 0, 3, 1));
    EXPECT_STREQ(d.GetLastError(), "Error reading BMP data");
}

// ".BMP" anywhere in the upper-cased name gives 0, else 99. Load and Save
// refuse 99 (and codes above 7 recognised as 99) silently; codes 1 to 7 reach
// the codec, which says why. The constructor from a name does not filter 99.
TEST(BmpCodec, FormatCodes)
{
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"IMAGE.Bmp.old"), 0u);
    EXPECT_EQ(CDibRoot::AutoDetectImageFormat(L"bmp"), 99u);

    TempDir dir;
    CDibRoot d(CSize(3, 3), 8), other(CSize(1, 1), 8);
    fill_known(d);
    write_file(dir.file("x.jpg"), saved_bytes(d));
    write_file(dir.file("x.bmp"), read_file(dir.file("x.jpg")));
    d.SetZoneTravail(CRect(1, 1, 1, 1));
    EXPECT_FALSE(d.Load(dir.wfile("x.jpg").c_str(), 99) || d.Load(dir.wfile("x.jpg").c_str(), 8) ||
                 d.Save(dir.wfile("out.jpg").c_str(), 99));
    EXPECT_FALSE(kevra_test::fs::exists(dir.file("out.jpg")));
    EXPECT_STREQ(d.GetLastError(), "");
    EXPECT_FALSE(d.Load(dir.wfile("x.bmp").c_str(), 3));
    EXPECT_STREQ(d.GetLastError(), "Unsupported operation for this format");
    EXPECT_EQ(d.BoundingRectangle(), CRect(1, 1, 1, 1));
    EXPECT_FALSE(other.Save(dir.wfile("y.bmp").c_str(), 5));
    EXPECT_STREQ(other.GetLastError(), "Unsupported operation for this format");

    CDib viaName(dir.wfile("x.bmp").c_str());
    EXPECT_EQ(*viaName.GetPixelPtr(2, 1), 12);
    CDibRoot refused(dir.wfile("x.jpg").c_str(), 99), missing(dir.wfile("none.bmp").c_str(), 0);
    EXPECT_FALSE(refused.IsOK() || missing.IsOK());
    EXPECT_STREQ(refused.GetLastError(), "Unsupported operation for this format");
    EXPECT_STREQ(missing.GetLastError(), "");
}

// Hand-made files of the forms the codec converts, and the bytes they give from `from` bytes
// before the pixels on. A stream without the file header is read as a packed bitmap. The core
// header is rebuilt as a 40-byte one, so its 3-byte palette entries are read 4 bytes at a time,
// unconverted. 32-bit bit fields become 24-bit pixels, every fourth byte dropped. 16-bit masks
// (compression 3) are read at the bits offset, then ignored.
TEST(BmpCodec, ConvertedFormsGiveTheseBytes)
{
    Bytes thirty_two = file_header(54 + 12, 16, info_header(2, 2, 32, 3)).u32(0xFF0000).u32(0xFF00).u32(0xFF);
    for (int i = 0; i < 16; ++i)
        thirty_two.u8(i + 1);
    const struct {
        const char * name;
        std::vector<uint8_t> file;
        CSize size;
        int bpp, from;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {"packed", Bytes().append(info_header(2, 1, 8)).append(grey_palette()).u8(7).u8(9).fill(2, 0).v, CSize(2, 1),
         8, 0, {7, 9}},
        // 8 x 1 pixels of 1 bit, two 3-byte entries, one row, then room for the 40-byte read.
        {"core header",
         Bytes().u8('B').u8('M').u32(0).u32(0).u32(14 + 12 + 6).u32(12).u16(8).u16(1).u16(1).u16(1)
             .u8(1).u8(2).u8(3).u8(4).u8(5).u8(6).u8(0xF0).fill(23, 0).v,
         CSize(8, 1), 1, -8, {1, 2, 3, 4, 5, 6, 0xF0, 0, 0xF0}},
        {"32-bit bit fields", thirty_two.v, CSize(2, 2), 24, 0, {1, 2, 3, 5, 6, 7, 0, 0, 9, 10, 11, 13, 14, 15, 0, 0}},
        {"16-bit masks",
         file_header(54 + 1024, 16, info_header(2, 1, 16, 3)).append(grey_palette()).u32(0xF800).u32(0x7E0).u32(0x1F)
             .u16(0x1234).u16(0xABCD).v,
         CSize(2, 1), 16, 0, {0x34, 0x12, 0xCD, 0xAB}},
    };
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        CDibRoot d;
        ASSERT_TRUE(load_bytes(d, c.file)) << d.GetLastError();
        EXPECT_EQ(d.Size(), c.size);
        EXPECT_EQ(d.BitCount(), c.bpp);
        EXPECT_EQ(std::vector<uint8_t>(d.GetBits() + c.from, d.GetBits() + c.from + c.bytes.size()), c.bytes);
    }
    // The 32-bit conversion's 16-byte scratch buffer alone refused gives the lower-case text.
    CDibRoot e(CSize(1, 1), 8);
    {
        kevra_test::FailAllocations fail([](std::size_t bytes) { return bytes == 16; });
        EXPECT_FALSE(load_bytes(e, thirty_two.v));
    }
    EXPECT_STREQ(e.GetLastError(), "can't allocate memory");
    EXPECT_EQ(e.BitCount(), 8);
}

// An 8-bit packed bitmap without a colour count gets 256 written into the
// caller's header; its rows follow the 40 bytes and the palette is the
// creation ramp; the vertical resolution becomes the horizontal one.
TEST(BmpCodec, PackedEightBitWithoutColourCountIsCompletedInPlace)
{
    std::vector<uint8_t> packed = info_header(2, 1, 8, 0, 0, 0, 3937, 1000);
    packed.insert(packed.end(), {5, 6, 0, 0});
    CDibRoot d(static_cast<void *>(packed.data()));
    ASSERT_TRUE(d.IsOK());
    EXPECT_EQ(packed[32] | packed[33] << 8, 256); // biClrUsed
    EXPECT_EQ(packed[36] | packed[37] << 8, 256); // biClrImportant
    EXPECT_EQ(std::vector<uint8_t>(d.GetBits(), d.GetBits() + 2), (std::vector<uint8_t>{5, 6}));
    EXPECT_TRUE(d.IsGrayScale());
    EXPECT_TRUE(d.GetXPelsPerMeter() == 3937u && d.GetYPelsPerMeter() == 3937u);

    CDibRoot empty, fromNull(static_cast<void *>(nullptr));
    EXPECT_EQ(empty.CopyToHandle(), nullptr);
    EXPECT_FALSE(fromNull.IsOK());
}

// Every Load, failed or not, appends a BEGIN and an END line; Save and the
// constructor from a name write nothing. A load into an empty image makes a
// store, whose text is empty when the file is missing. A trace file that
// cannot be opened leaves an empty traceLoadNULL.txt and never fails Load.
TEST(LoadMarkers, EachLoadAppendsAPair)
{
    const std::string begin = "=================== [BEGIN] CDibRoot::Load ===================\n";
    const std::string end = "=================== [END] CDibRoot::Load ===================\n";
    TempDir dir, device;
    kevra_test::DeviceRoot root(device.path().string());
    CDibRoot d(CSize(2, 2), 8), e;
    ASSERT_TRUE(d.Save(dir.wfile("a.bmp").c_str(), 0));
    CDibRoot fromName(dir.wfile("a.bmp").c_str(), 0);
    EXPECT_FALSE(kevra_test::fs::exists(device.file("trace.txt")));
    EXPECT_TRUE(d.Load(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_FALSE(e.Load(dir.wfile("missing.bmp").c_str(), 0));
    const std::string twice = begin + end + begin + end;
    EXPECT_EQ(read_file(device.file("trace.txt")), std::vector<uint8_t>(twice.begin(), twice.end()));
    EXPECT_FALSE(kevra_test::fs::exists(device.file("traceLoadNULL.txt")));
    EXPECT_EQ(e.BitCount(), 0);
    EXPECT_STREQ(e.GetLastError(), "");
    EXPECT_FALSE(e.Save(dir.wfile("e.bmp").c_str(), 0));

    kevra_test::fs::remove(device.file("trace.txt"));
    kevra_test::fs::create_directory(device.file("trace.txt")); // cannot be opened as a file
    EXPECT_TRUE(d.Load(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_EQ(kevra_test::fs::file_size(device.file("traceLoadNULL.txt")), 0u);
}

// The image size limit counts pixel data only, refuses before allocating, and
// 0 lifts it; creation beyond it fails like any failed allocation.
TEST(BmpCodec, ImageSizeLimit)
{
    EXPECT_EQ(platform::max_image_bytes(), uint64_t(1) << 30);
    CDibRoot src(CSize(5, 3), 24); // rows of 16 bytes: 48 bytes of pixels
    const std::vector<uint8_t> file = saved_bytes(src);
    for (uint64_t limit : {uint64_t(48), uint64_t(47), uint64_t(0)}) {
        SCOPED_TRACE(limit);
        platform::set_max_image_bytes(limit);
        CDibRoot d(CSize(3, 3), 8);
        fill_known(d);
        EXPECT_EQ(load_bytes(d, file), limit != 47);
        EXPECT_EQ(d.Width(), limit != 47 ? 5 : 3);
        EXPECT_EQ(CDibRoot(CSize(5, 3), 24).IsOK(), limit != 47);
    }
    platform::set_max_image_bytes(uint64_t(1) << 30); // the default, checked above
}
