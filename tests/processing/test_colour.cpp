// Colour adjustments of the 24-bit class: exact bytes, rectangle conventions, refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement.h"
#include "support/kevra_test.h"

using kevra::CDibRoot;
using kevra::CRect;
using kevra::CSize;
using kevra::CTraitementImg_24_Bpp;

namespace {

constexpr uint8_t kPad = 0xA5;

// A bottom-up 24-bit buffer with its row padding set to a sentinel.
struct Buffer {
    long width;
    long height;
    long pitch;
    std::vector<uint8_t> bytes;

    Buffer(long w, long h, unsigned seed = 1)
        : width(w), height(h), pitch(((w * 24 + 31) & ~31L) / 8),
          bytes(static_cast<size_t>(pitch * h), kPad)
    {
        std::mt19937 rng(seed);
        for (long r = 0; r < h; ++r)
            for (long i = 0; i < w * 3; ++i)
                bytes[static_cast<size_t>(r * pitch + i)] = static_cast<uint8_t>(rng());
    }
    // Picture coordinates: y = 0 is the top row, i.e. the last buffer row.
    uint8_t *px(long x, long y) { return bytes.data() + (height - 1 - y) * pitch + x * 3; }
    void set(long x, long y, int b0, int b1, int b2)
    {
        uint8_t *p = px(x, y);
        p[0] = static_cast<uint8_t>(b0);
        p[1] = static_cast<uint8_t>(b1);
        p[2] = static_cast<uint8_t>(b2);
    }
    std::vector<int> get(long x, long y)
    {
        uint8_t *p = px(x, y);
        return {p[0], p[1], p[2]};
    }
    bool padding_intact() const
    {
        for (long r = 0; r < height; ++r)
            for (long i = width * 3; i < pitch; ++i)
                if (bytes[static_cast<size_t>(r * pitch + i)] != kPad)
                    return false;
        return true;
    }
};

const CRect kHalfOpenPixel(0, 0, 1, 1);
const CRect kInclusivePixel(0, 0, 0, 0);

// One pixel through a buffer form; the rectangle covers exactly that pixel.
template <class Op>
std::vector<int> one_pixel(int b0, int b1, int b2, Op op, CRect rc = kHalfOpenPixel)
{
    Buffer b(1, 1);
    b.set(0, 0, b0, b1, b2);
    CTraitementImg_24_Bpp t;
    EXPECT_TRUE(op(t, b, rc));
    return b.get(0, 0);
}

// The grey-table gain, written out independently: x = i / 255 in single precision,
// v = (x * gain + 0) * 255, clamped to 0..255, truncated.
uint8_t gain_entry(int level, int i)
{
    const float gain = (static_cast<float>(level) + 100.0f) * 0.01f;
    const float D = static_cast<float>(256) - 1.0f;
    const float S = 255.0f;
    const float x = static_cast<float>(i) / D;
    const float p = static_cast<float>(std::pow(static_cast<double>(x), 1.0));
    float v = (p * gain + 0.0f) * S;
    if (!((v < S ? v : S) > 0))
        v = 0;
    else if (!(v < S))
        v = S;
    return static_cast<uint8_t>(static_cast<unsigned>(v));
}

} // namespace

// ---- Saturation ---------------------------------------------------------------------------------

TEST(ColourSaturation, LevelHundredLeavesEveryPixel)
{
    Buffer b(37, 9, 7);
    const std::vector<uint8_t> before = b.bytes;
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 37, 9);
    EXPECT_TRUE(t.ReglageSaturation(100, b.width, b.height, b.bytes.data(), rc));
    EXPECT_EQ(b.bytes, before);
}

TEST(ColourSaturation, LevelZeroGivesTheIntegerMean)
{
    Buffer b(13, 5, 3);
    Buffer orig = b;
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 13, 5);
    EXPECT_TRUE(t.ReglageSaturation(0, b.width, b.height, b.bytes.data(), rc));
    for (long y = 0; y < 5; ++y)
        for (long x = 0; x < 13; ++x) {
            std::vector<int> o = orig.get(x, y);
            const int mean = (o[0] + o[1] + o[2]) / 3;
            ASSERT_EQ(b.get(x, y), (std::vector<int>{mean, mean, mean})) << x << "," << y;
        }
    EXPECT_TRUE(b.padding_intact());
}

TEST(ColourSaturation, ScalesTheDeviationFromTheMean)
{
    auto sat = [](int level) {
        return [level](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
            return t.ReglageSaturation(level, b.width, b.height, b.bytes.data(), rc);
        };
    };
    // Mean 20, deviations -10, 0, +10 times 1.5; the middle component equals the mean.
    EXPECT_EQ(one_pixel(10, 20, 30, sat(150)), (std::vector<int>{5, 20, 35}));
    // 200 %: mean 50 (sum 151 -> 50), deviations doubled and floored.
    // C = 60, 50, 41 (x1024); M = 151*1024/3 = 51541; e = (M*1024 + 2*(C*1024 - M)*1024) >> 20.
    EXPECT_EQ(one_pixel(60, 50, 41, sat(200)), (std::vector<int>{69, 49, 31}));
}

TEST(ColourSaturation, PixelThatWouldClipIsLimitedPerPixel)
{
    auto sat300 = [](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
        return t.ReglageSaturation(300, b.width, b.height, b.bytes.data(), rc);
    };
    // First pass would give 400 and -200: the negative component limits s to 1024.
    EXPECT_EQ(one_pixel(200, 100, 0, sat300), (std::vector<int>{200, 100, 0}));
    // Just fits: mean 120, deviations +-40 tripled reach 240 and 0 exactly.
    // Clips on the positive side only: mean 150, d = +-50*1024, e0 would be 300;
    // s = min(3072, 105*2^20 / 51200 = 2150, 150*2^20 / 51200 = 3072) = 2150.
    EXPECT_EQ(one_pixel(160, 120, 80, sat300), (std::vector<int>{240, 120, 0}));
    EXPECT_EQ(one_pixel(200, 150, 100, sat300), (std::vector<int>{254, 150, 45}));
    // The limit is per pixel: a neighbour that would not clip gets the full factor.
    Buffer b(2, 1);
    b.set(0, 0, 200, 100, 0);
    b.set(1, 0, 110, 100, 90);
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 2, 1);
    EXPECT_TRUE(t.ReglageSaturation(300, b.width, b.height, b.bytes.data(), rc));
    EXPECT_EQ(b.get(0, 0), (std::vector<int>{200, 100, 0}));
    EXPECT_EQ(b.get(1, 0), (std::vector<int>{130, 100, 70}));
}

// Negative levels mirror the deviation; the limitation cannot help a negative factor, and a
// component that leaves 0..255 keeps its low 8 bits (-85 is stored as 171).
TEST(ColourSaturation, NegativeLevelKeepsTheLowBits)
{
    auto sat = [](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
        return t.ReglageSaturation(-100, b.width, b.height, b.bytes.data(), rc);
    };
    EXPECT_EQ(one_pixel(10, 20, 30, sat), (std::vector<int>{30, 20, 10}));
    EXPECT_EQ(one_pixel(0, 0, 255, sat), (std::vector<int>{170, 170, 171}));
}

TEST(ColourSaturation, KernelWritesToASeparateDestination)
{
    CTraitementImg_24_Bpp t;
    uint8_t src[6] = {10, 20, 30, 90, 60, 30};
    uint8_t dst[6] = {1, 1, 1, 1, 1, 1};
    t.ProcessingSat(src, dst, 2, 0.5);
    EXPECT_EQ(std::vector<int>(dst, dst + 6), (std::vector<int>{15, 20, 25, 75, 60, 45}));
    EXPECT_EQ(std::vector<int>(src, src + 6), (std::vector<int>{10, 20, 30, 90, 60, 30}));
}

// ---- Hue and luminance --------------------------------------------------------------------------

namespace {
auto teinte(int level)
{
    return [level](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
        return t.ReglageTeinte(level, b.width, b.height, b.bytes.data(), rc);
    };
}
auto luminance(int level)
{
    return [level](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
        return t.ReglageLuminance(level, b.width, b.height, b.bytes.data(), rc);
    };
}
} // namespace

TEST(ColourHue, HueIsScaledFromTheFirstBytesPrimary)
{
    // Pure second byte (hue 1/3): level 0 turns it to the first byte's primary,
    // level 200 doubles the angle to the third byte's primary.
    EXPECT_EQ(one_pixel(0, 255, 0, teinte(0)), (std::vector<int>{255, 0, 0}));
    EXPECT_EQ(one_pixel(0, 255, 0, teinte(200)), (std::vector<int>{0, 0, 255}));
    EXPECT_EQ(one_pixel(0, 255, 0, teinte(100)), (std::vector<int>{0, 255, 0}));
    // Greys have no hue: only the conversion's truncation shows (33 comes back as 32).
    EXPECT_EQ(one_pixel(33, 33, 33, teinte(170)), (std::vector<int>{32, 32, 32}));
}

TEST(ColourHue, LevelHundredOnlyTruncates)
{
    Buffer b(16, 16, 11);
    Buffer orig = b;
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 16, 16);
    EXPECT_TRUE(t.ReglageTeinte(100, b.width, b.height, b.bytes.data(), rc));
    int lowered = 0;
    for (size_t i = 0; i < b.bytes.size(); ++i) {
        ASSERT_TRUE(b.bytes[i] == orig.bytes[i] || b.bytes[i] + 1 == orig.bytes[i]) << i;
        lowered += b.bytes[i] != orig.bytes[i];
    }
    EXPECT_GT(lowered, 0);
}

TEST(ColourLuminance, LevelsZeroHundredTwoHundred)
{
    EXPECT_EQ(one_pixel(120, 40, 200, luminance(0)), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(one_pixel(66, 66, 66, luminance(100)), (std::vector<int>{65, 65, 65}));
    EXPECT_EQ(one_pixel(64, 64, 64, luminance(200)), (std::vector<int>{128, 128, 128}));
    // Lightness above one half doubled is clamped to 1: white.
    EXPECT_EQ(one_pixel(200, 150, 90, luminance(200)), (std::vector<int>{255, 255, 255}));
}

TEST(ColourLuminance, MatchesTheModelPixelByPixel)
{
    Buffer b(9, 4, 5);
    Buffer orig = b;
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 9, 4);
    EXPECT_TRUE(t.ReglageLuminance(137, b.width, b.height, b.bytes.data(), rc));
    // The factor goes through single precision: 137.0f widened, times 0.01.
    const double factor = static_cast<double>(137.0f) * 0.01;
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 9; ++x) {
            std::vector<int> o = orig.get(x, y);
            double H, S, L;
            t.RGBtoHSL(static_cast<unsigned char>(o[0]), static_cast<unsigned char>(o[1]),
                       static_cast<unsigned char>(o[2]), &H, &S, &L);
            unsigned char c1, c2, c3;
            t.HSLtoRGB(H, S, factor * L, &c1, &c2, &c3);
            ASSERT_EQ(b.get(x, y), (std::vector<int>{c1, c2, c3})) << x << "," << y;
        }
}

TEST(ColourWhitening, IsTheLuminanceGainInBothCallingOrders)
{
    Buffer a(11, 3, 9), b = a, c = a;
    CTraitementImg_24_Bpp t;
    CRect rc(1, 0, 10, 3);
    EXPECT_TRUE(t.ReglageLuminance(125, a.width, a.height, a.bytes.data(), rc));
    EXPECT_TRUE(t.BlanchimentDents(b.width, b.height, b.bytes.data(), rc, 125));
    EXPECT_TRUE(t.BlanchimentDents(125, c.width, c.height, c.bytes.data(), rc));
    EXPECT_EQ(a.bytes, b.bytes);
    EXPECT_EQ(a.bytes, c.bytes);
}

TEST(ColourHalfOpen, EmptyWidthChangesNothing)
{
    Buffer b(5, 5, 2);
    const std::vector<uint8_t> before = b.bytes;
    CTraitementImg_24_Bpp t;
    CRect rc(2, 0, 2, 5);
    EXPECT_TRUE(t.ReglageSaturation(0, b.width, b.height, b.bytes.data(), rc));
    EXPECT_TRUE(t.ReglageTeinte(0, b.width, b.height, b.bytes.data(), rc));
    EXPECT_TRUE(t.ReglageLuminance(0, b.width, b.height, b.bytes.data(), rc));
    EXPECT_EQ(b.bytes, before);
}

// ---- Levels and black and white -----------------------------------------------------------------

TEST(ColourLevels, GainsActOnTheirOwnByte)
{
    // Red is the third byte, green the second, blue the first.
    auto rouge = [](int level) {
        return [level](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
            return t.ReglageRouge(level, b.width, b.height, b.bytes.data(), rc);
        };
    };
    EXPECT_EQ(one_pixel(40, 90, 200, rouge(-100), kInclusivePixel), (std::vector<int>{40, 90, 0}));
    EXPECT_EQ(one_pixel(40, 90, 200, rouge(100), kInclusivePixel), (std::vector<int>{40, 90, 255}));
    EXPECT_EQ(one_pixel(40, 90, 100, rouge(100), kInclusivePixel),
              (std::vector<int>{40, 90, gain_entry(100, 100)}));
    EXPECT_EQ(one_pixel(40, 90, 200,
                        [](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
                            return t.ReglageVert(50, b.width, b.height, b.bytes.data(), rc);
                        },
                        kInclusivePixel),
              (std::vector<int>{40, gain_entry(50, 90), 200}));
    EXPECT_EQ(one_pixel(40, 90, 200,
                        [](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
                            return t.ReglageBleu(-30, b.width, b.height, b.bytes.data(), rc);
                        },
                        kInclusivePixel),
              (std::vector<int>{gain_entry(-30, 40), 90, 200}));
}

TEST(ColourLevels, AllThreeGainsAtOnceOverEveryLevel)
{
    // 256 pixels so that every byte value goes through each table.
    Buffer b(256, 1);
    for (int i = 0; i < 256; ++i)
        b.set(i, 0, i, 255 - i, i);
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 255, 0);
    EXPECT_TRUE(t.ReglageRougeVertBleu(25, -40, 0, b.width, b.height, b.bytes.data(), rc));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(b.get(i, 0), (std::vector<int>{gain_entry(0, i), gain_entry(-40, 255 - i),
                                                 gain_entry(25, i)}))
            << i;
}

TEST(ColourBlackAndWhite, TakesTheSecondByte)
{
    auto nb = [](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
        return t.NoirEtBlanc(b.width, b.height, b.bytes.data(), rc);
    };
    EXPECT_EQ(one_pixel(10, 20, 30, nb, kInclusivePixel), (std::vector<int>{20, 20, 20}));
}

// ---- Image forms: rectangle conventions and refusals --------------------------------------------

namespace {

struct ImageOp {
    std::string name;
    bool inclusive; // else half-open
    std::function<bool(CTraitementImg_24_Bpp &, CDibRoot *)> run;
    // Expected bytes of one pixel inside the covered area.
    std::function<std::vector<int>(CTraitementImg_24_Bpp &, std::vector<int>)> pixel;
};

std::vector<int> via_buffer(CTraitementImg_24_Bpp &t, std::vector<int> p,
                            const std::function<bool(CTraitementImg_24_Bpp &, Buffer &, CRect &)> &op)
{
    Buffer b(1, 1);
    b.set(0, 0, p[0], p[1], p[2]);
    CRect rc = kHalfOpenPixel;
    op(t, b, rc);
    return b.get(0, 0);
}

std::vector<ImageOp> image_ops()
{
    using Bop = std::function<bool(CTraitementImg_24_Bpp &, Buffer &, CRect &)>;
    auto model = [](Bop op) {
        return [op](CTraitementImg_24_Bpp &t, std::vector<int> p) { return via_buffer(t, p, op); };
    };
    auto gains = [](int r, int g, int b) {
        return [r, g, b](CTraitementImg_24_Bpp &, std::vector<int> p) {
            return std::vector<int>{gain_entry(b, p[0]), gain_entry(g, p[1]), gain_entry(r, p[2])};
        };
    };
    std::vector<ImageOp> ops;
    ops.push_back({"ReglageSaturation", false,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageSaturation(160, i); },
                   model([](CTraitementImg_24_Bpp &t, Buffer &b, CRect &rc) {
                       return t.ReglageSaturation(160, b.width, b.height, b.bytes.data(), rc);
                   })});
    ops.push_back({"ReglageTeinte", false,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageTeinte(60, i); },
                   model(teinte(60))});
    ops.push_back({"ReglageLuminance", false,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageLuminance(140, i); },
                   model(luminance(140))});
    ops.push_back({"BlanchimentDents", false,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.BlanchimentDents(140, i); },
                   model(luminance(140))});
    ops.push_back({"NoirEtBlanc", true,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.NoirEtBlanc(i); },
                   [](CTraitementImg_24_Bpp &, std::vector<int> p) {
                       return std::vector<int>{p[1], p[1], p[1]};
                   }});
    ops.push_back({"ReglageRouge", true,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageRouge(60, i); },
                   gains(60, 0, 0)});
    ops.push_back({"ReglageVert", true,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageVert(-60, i); },
                   gains(0, -60, 0)});
    ops.push_back({"ReglageBleu", true,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) { return t.ReglageBleu(35, i); },
                   gains(0, 0, 35)});
    ops.push_back({"ReglageRougeVertBleu", true,
                   [](CTraitementImg_24_Bpp &t, CDibRoot *i) {
                       return t.ReglageRougeVertBleu(-20, 70, 10, i);
                   },
                   gains(-20, 70, 10)});
    return ops;
}

// A 24-bit image filled from a Buffer of the same size.
void load(CDibRoot &img, Buffer &b)
{
    uint8_t *bits = img.GetBits();
    for (size_t i = 0; i < b.bytes.size(); ++i)
        bits[i] = b.bytes[i];
    img.ReleaseBits();
}

} // namespace

TEST(ColourImageForms, HalfOpenOperationsSkipTheZonesRightColumnAndBottomRow)
{
    const long W = 7, H = 6;
    const CRect zone(1, 1, 5, 4); // inclusive working zone
    for (const ImageOp &op : image_ops()) {
        SCOPED_TRACE(op.name);
        Buffer b(W, H, 21);
        CDibRoot img(CSize(W, H), 24);
        ASSERT_TRUE(img.IsOK());
        load(img, b);
        img.SetZoneTravail(zone);
        CTraitementImg_24_Bpp t;
        ASSERT_TRUE(op.run(t, &img));

        const uint8_t *bits = img.GetBits();
        const long right = op.inclusive ? zone.right : zone.right - 1;
        const long bottom = op.inclusive ? zone.bottom : zone.bottom - 1;
        int changed = 0;
        for (long y = 0; y < H; ++y)
            for (long x = 0; x < W; ++x) {
                std::vector<int> before = b.get(x, y);
                const uint8_t *p = bits + (H - 1 - y) * b.pitch + x * 3;
                std::vector<int> after = {p[0], p[1], p[2]};
                const bool inside = x >= zone.left && x <= right && y >= zone.top && y <= bottom;
                std::vector<int> expected = inside ? op.pixel(t, before) : before;
                ASSERT_EQ(after, expected) << "pixel " << x << "," << y;
                changed += after != before;
            }
        EXPECT_GT(changed, 0);
        img.ReleaseBits();
    }
}

TEST(ColourImageForms, RefuseNullWrongDepthAndInvalidImages)
{
    for (const ImageOp &op : image_ops()) {
        SCOPED_TRACE(op.name);
        CTraitementImg_24_Bpp t;
        EXPECT_FALSE(op.run(t, nullptr));

        CDibRoot grey(CSize(4, 3), 8);
        ASSERT_TRUE(grey.IsOK());
        uint8_t *bits = grey.GetBits();
        for (int i = 0; i < 12; ++i)
            bits[i] = static_cast<uint8_t>(17 * i + 3);
        grey.ReleaseBits();
        EXPECT_FALSE(op.run(t, &grey));
        bits = grey.GetBits();
        for (int i = 0; i < 12; ++i)
            ASSERT_EQ(bits[i], static_cast<uint8_t>(17 * i + 3));
        grey.ReleaseBits();

        CDibRoot empty;
        EXPECT_FALSE(op.run(t, &empty));

        // A 24-bit store whose pixel block could not be allocated: right depth, not IsOK.
        CDibRoot invalid;
        {
            kevra_test::FailAllocations fail(3000);
            EXPECT_FALSE(invalid.Create(CSize(40, 30), 24));
        }
        ASSERT_EQ(invalid.BitCount(), 24);
        ASSERT_FALSE(invalid.IsOK());
        EXPECT_FALSE(op.run(t, &invalid));
    }
}
