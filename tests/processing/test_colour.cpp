// Colour adjustments of the 24-bit class: exact bytes, rectangle conventions, refusals.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/traitement.h"
#include "processing_test.h"

using namespace kevra;
using proc_test::Buf;
using T = CTraitementImg_24_Bpp;

namespace {

using Op = std::function<bool(T &, Buf &, CRect &)>;
Op sat(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageSaturation(l, b.w, b.h, b.bits(), rc); }; }
Op hue(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageTeinte(l, b.w, b.h, b.bits(), rc); }; }
Op lum(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageLuminance(l, b.w, b.h, b.bits(), rc); }; }
Op red(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageRouge(l, b.w, b.h, b.bits(), rc); }; }
Op green(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageVert(l, b.w, b.h, b.bits(), rc); }; }
Op blue(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageBleu(l, b.w, b.h, b.bits(), rc); }; }
Op rgb(int r, int g, int b_)
{
    return [=](T &t, Buf &b, CRect &rc) { return t.ReglageRougeVertBleu(r, g, b_, b.w, b.h, b.bits(), rc); };
}
Op black_white() { return [](T &t, Buf &b, CRect &rc) { return t.NoirEtBlanc(b.w, b.h, b.bits(), rc); }; }

// The grey-table gain of a level: contrast (level + 100) * 0.01 in single precision.
int gain(int level, int v)
{
    CLUT_8_Bpp table;
    table.SetContraste((static_cast<float>(level) + 100.0f) * 0.01f);
    return table[v];
}

// Runs op over the whole of buffer b (the rectangle spelt in op's convention).
void run_whole(const Op &op, Buf &b, bool inclusive)
{
    T t;
    CRect rc(0, 0, b.w - (inclusive ? 1 : 0), b.h - (inclusive ? 1 : 0));
    ASSERT_TRUE(op(t, b, rc));
}

std::vector<int> pixel(const Buf &b, long x, long r) { return {b.get(x, r, 0), b.get(x, r, 1), b.get(x, r, 2)}; }

} // namespace

// One pixel (bytes in buffer order) through each adjustment. Saturation is fixed point: at 200 %
// C = 60, 50, 41 (x1024), M = 151*1024/3 = 51541, e = (M*1024 + 2*(C*1024 - M)*1024) >> 20. At
// 300 % (200, 100, 0) would give 400 and -200, and the negative side limits s to 1024;
// (160, 120, 80) just fits; (200, 150, 100) clips on the positive side only: s = 2150.
// Negative levels mirror the deviation and keep the low 8 bits (-85 is stored as 171). Hue is
// scaled from the first byte's primary; greys only show the conversion's truncation.
TEST(Colour, ExactPixels)
{
    struct Case { Op op; bool inclusive; std::vector<int> in, out; };
    const Case cases[] = {
        {sat(150), false, {10, 20, 30}, {5, 20, 35}},        {sat(200), false, {60, 50, 41}, {69, 49, 31}},
        {sat(300), false, {200, 100, 0}, {200, 100, 0}},     {sat(300), false, {160, 120, 80}, {240, 120, 0}},
        {sat(300), false, {200, 150, 100}, {254, 150, 45}},  {sat(-100), false, {10, 20, 30}, {30, 20, 10}},
        {sat(-100), false, {0, 0, 255}, {170, 170, 171}},    {hue(0), false, {0, 255, 0}, {255, 0, 0}},
        {hue(200), false, {0, 255, 0}, {0, 0, 255}},         {hue(100), false, {0, 255, 0}, {0, 255, 0}},
        {hue(170), false, {33, 33, 33}, {32, 32, 32}},       {lum(0), false, {120, 40, 200}, {0, 0, 0}},
        {lum(100), false, {66, 66, 66}, {65, 65, 65}},       {lum(200), false, {64, 64, 64}, {128, 128, 128}},
        {lum(200), false, {200, 150, 90}, {255, 255, 255}}, // lightness above one half doubled: white
        {black_white(), true, {10, 20, 30}, {20, 20, 20}},   {red(-100), true, {40, 90, 200}, {40, 90, 0}},
        {red(100), true, {40, 90, 200}, {40, 90, 255}},      {red(100), true, {40, 90, 100}, {40, 90, gain(100, 100)}},
        {green(50), true, {40, 90, 200}, {40, gain(50, 90), 200}},
        {blue(-30), true, {40, 90, 200}, {gain(-30, 40), 90, 200}},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        Buf b(1, 1, 24);
        for (int c = 0; c < 3; ++c)
            b.set(0, 0, cases[i].in[c], c);
        run_whole(cases[i].op, b, cases[i].inclusive);
        EXPECT_EQ(pixel(b, 0, 0), cases[i].out) << "case " << i;
    }
    // The saturation limit is per pixel: a neighbour that would not clip gets the full factor.
    Buf b(2, 1, 24);
    b.set_row(0, {200, 110}, 0, 0);
    b.set_row(0, {100, 100}, 0, 1);
    b.set_row(0, {0, 90}, 0, 2);
    run_whole(sat(300), b, false);
    EXPECT_EQ(pixel(b, 0, 0), (std::vector<int>{200, 100, 0}));
    EXPECT_EQ(pixel(b, 1, 0), (std::vector<int>{130, 100, 70}));
}

// Whole random buffers: saturation 100 and the zero gains leave every pixel, saturation 0 gives
// the integer mean, the three gains act on their own byte (red is the third), hue 100 only
// lowers some bytes by one.
TEST(Colour, WholeBuffers)
{
    const Buf before(37, 9, 24, 7);
    auto mean = [&](long x, long r) { return (before.get(x, r, 0) + before.get(x, r, 1) + before.get(x, r, 2)) / 3; };
    struct Case { Op op; bool inclusive; std::function<int(int, long, long, int)> want; };
    const Case cases[] = {
        {sat(100), false, [](int v, long, long, int) { return v; }},
        {sat(0), false, [&](int, long x, long r, int) { return mean(x, r); }},
        {rgb(0, 0, 0), true, [](int v, long, long, int) { return v; }},
        {rgb(25, -40, 7), true, [](int v, long, long, int c) { return gain(c == 0 ? 7 : c == 1 ? -40 : 25, v); }},
    };
    for (const Case &k : cases) {
        Buf b = before;
        run_whole(k.op, b, k.inclusive);
        proc_test::expect_in_rect(before, b, CRect(0, 0, 36, 8), k.want);
    }
    Buf b = before;
    run_whole(hue(100), b, false);
    int lowered = 0;
    proc_test::expect_in_rect(before, b, CRect(0, 0, 36, 8), [&](int v, long x, long r, int c) {
        lowered += b.get(x, r, c) != v;
        return b.get(x, r, c) == v - 1 ? v - 1 : v;
    });
    EXPECT_GT(lowered, 0);
}

TEST(Colour, LuminanceMatchesTheModelAndWhiteningIsLuminance)
{
    Buf b(9, 4, 24, 5), w1(11, 3, 24, 9), w2 = w1, w3 = w1;
    const Buf orig = b;
    T t;
    run_whole(lum(137), b, false);
    // The factor goes through single precision: 137.0f widened, times 0.01.
    const double factor = static_cast<double>(137.0f) * 0.01;
    for (long r = 0; r < 4; ++r)
        for (long x = 0; x < 9; ++x) {
            double H, S, L;
            unsigned char c[3];
            t.RGBtoHSL(orig.get(x, r, 0), orig.get(x, r, 1), orig.get(x, r, 2), &H, &S, &L);
            t.HSLtoRGB(H, S, factor * L, &c[0], &c[1], &c[2]);
            ASSERT_EQ(pixel(b, x, r), (std::vector<int>{c[0], c[1], c[2]})) << x << "," << r;
        }
    CRect rc(1, 0, 10, 3);
    EXPECT_TRUE(t.ReglageLuminance(125, 11, 3, w1.bits(), rc));
    EXPECT_TRUE(t.BlanchimentDents(11, 3, w2.bits(), rc, 125));
    EXPECT_TRUE(t.BlanchimentDents(125, 11, 3, w3.bits(), rc));
    EXPECT_TRUE(w1.rows() == w2.rows() && w1.rows() == w3.rows());
}

TEST(Colour, SaturationKernelAndEmptyHalfOpenRectangle)
{
    T t;
    uint8_t src[6] = {10, 20, 30, 90, 60, 30}, dst[6] = {1, 1, 1, 1, 1, 1};
    t.ProcessingSat(src, dst, 2, 0.5);
    EXPECT_EQ(std::vector<int>(dst, dst + 6), (std::vector<int>{15, 20, 25, 75, 60, 45}));
    EXPECT_EQ(std::vector<int>(src, src + 6), (std::vector<int>{10, 20, 30, 90, 60, 30}));
    Buf b(5, 5, 24, 2);
    const auto before = b.rows();
    for (const Op &op : {sat(0), hue(0), lum(0)}) {
        CRect rc(2, 0, 2, 5); // right = left: nothing
        EXPECT_TRUE(op(t, b, rc));
    }
    EXPECT_EQ(b.rows(), before);
}

namespace {

struct Form {
    const char *name;
    bool inclusive; // else half-open
    Op buffer;
    std::function<bool(T &, CDibRoot *)> image;
};

const Form kForms[] = {
    {"ReglageSaturation", false, sat(160), [](T &t, CDibRoot *i) { return t.ReglageSaturation(160, i); }},
    {"ReglageTeinte", false, hue(60), [](T &t, CDibRoot *i) { return t.ReglageTeinte(60, i); }},
    {"ReglageLuminance", false, lum(140), [](T &t, CDibRoot *i) { return t.ReglageLuminance(140, i); }},
    {"BlanchimentDents", false, lum(140), [](T &t, CDibRoot *i) { return t.BlanchimentDents(140, i); }},
    {"NoirEtBlanc", true, black_white(), [](T &t, CDibRoot *i) { return t.NoirEtBlanc(i); }},
    {"ReglageRouge", true, red(60), [](T &t, CDibRoot *i) { return t.ReglageRouge(60, i); }},
    {"ReglageVert", true, green(-60), [](T &t, CDibRoot *i) { return t.ReglageVert(-60, i); }},
    {"ReglageBleu", true, blue(35), [](T &t, CDibRoot *i) { return t.ReglageBleu(35, i); }},
    {"ReglageRougeVertBleu", true, rgb(-20, 70, 10), [](T &t, CDibRoot *i) { return t.ReglageRougeVertBleu(-20, 70, 10, i); }},
};

} // namespace

// The image forms pass the inclusive working zone: the half-open operations leave its right
// column and bottom row, the others cover it all. Inside, each pixel is what the buffer form
// gives it over the whole buffer.
TEST(ColourImageForms, HalfOpenOperationsSkipTheZonesRightColumnAndBottomRow)
{
    const CRect zone(1, 1, 5, 4);
    for (const Form &f : kForms) {
        SCOPED_TRACE(f.name);
        const Buf before(7, 6, 24, 21);
        Buf whole = before, got = before;
        run_whole(f.buffer, whole, f.inclusive);
        CDibRoot img(CSize(7, 6), 24);
        std::memcpy(img.GetBits(), before.bits(), static_cast<std::size_t>(before.pitch * before.h));
        img.SetZoneTravail(zone);
        T t;
        ASSERT_TRUE(f.image(t, &img));
        std::memcpy(got.bits(), img.GetBits(), static_cast<std::size_t>(got.pitch * got.h));
        img.ReleaseBits();
        const CRect covered(1, 1, f.inclusive ? 5 : 4, f.inclusive ? 4 : 3);
        proc_test::expect_in_rect(before, got, covered, [&](int, long x, long r, int c) { return whole.get(x, r, c); });
        EXPECT_NE(got.rows(), before.rows());
    }
}

TEST(ColourImageForms, RefuseNullWrongDepthAndInvalidImages)
{
    CDibRoot grey(CSize(4, 3), 8), empty, invalid;
    proc_test::fill_random(grey, 3);
    const auto grey0 = proc_test::image_bytes(grey);
    {
        // A 24-bit store whose pixel block could not be allocated: right depth, not IsOK.
        proc_test::FailIf fail([](std::size_t n) { return n >= 3000; });
        EXPECT_FALSE(invalid.Create(CSize(40, 30), 24));
    }
    ASSERT_TRUE(invalid.BitCount() == 24 && !invalid.IsOK());
    T t;
    for (const Form &f : kForms)
        EXPECT_FALSE(f.image(t, nullptr) || f.image(t, &grey) || f.image(t, &empty) || f.image(t, &invalid)) << f.name;
    EXPECT_EQ(proc_test::image_bytes(grey), grey0);
}
