// The 24-bit class's colour model and adjustments: exact doubles and bytes, rectangle
// conventions, refusals, and the memoised hue/lightness path against the plain one.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "kevra/lut.h"
#include "processing/detail/colour_walk.h"
#include "processing_test.h"

using namespace kevra;
using namespace proc_test;
using T = CTraitementImg_24_Bpp;

namespace {

using Op = std::function<bool(T &, Buf &, CRect &)>;
Op sat(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageSaturation(l, b.w, b.h, b.bits(), rc); }; }
Op hue(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageTeinte(l, b.w, b.h, b.bits(), rc); }; }
Op lum(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageLuminance(l, b.w, b.h, b.bits(), rc); }; }
Op red(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageRouge(l, b.w, b.h, b.bits(), rc); }; }
Op green(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageVert(l, b.w, b.h, b.bits(), rc); }; }
Op blue(int l) { return [l](T &t, Buf &b, CRect &rc) { return t.ReglageBleu(l, b.w, b.h, b.bits(), rc); }; }
Op rgb(int r, int g, int bl)
{
    return [=](T &t, Buf &b, CRect &rc) { return t.ReglageRougeVertBleu(r, g, bl, b.w, b.h, b.bits(), rc); };
}
Op black_white() { return [](T &t, Buf &b, CRect &rc) { return t.NoirEtBlanc(b.w, b.h, b.bits(), rc); }; }

// The grey-table gain of a level: contrast (level + 100) * 0.01 in single precision.
int gain(int level, int v)
{
    CLUT_8_Bpp table;
    table.SetContraste((static_cast<float>(level) + 100.0f) * 0.01f);
    return table[v];
}

// Runs op over the whole of buffer b, the rectangle spelt in op's convention.
void run_whole(const Op &op, Buf &b, bool inclusive)
{
    T t;
    CRect rc(0, 0, b.w - (inclusive ? 1 : 0), b.h - (inclusive ? 1 : 0));
    ASSERT_TRUE(op(t, b, rc));
}

std::vector<int> pixel(const Buf &b, long x, long r) { return {b.get(x, r, 0), b.get(x, r, 1), b.get(x, r, 2)}; }

std::vector<int> to_rgb(T &t, double h, double s, double l)
{
    unsigned char c1 = 0, c2 = 0, c3 = 0;
    t.HSLtoRGB(h, s, l, &c1, &c2, &c3);
    return {c1, c2, c3};
}

} // namespace

// Components are scaled by k (255 k is exactly 1); the hue is measured from the first
// component, a tie for the maximum goes to the first rule that matches, a negative sector is
// brought into one turn; saturation is d / (max + min) below L = 0.5, else d / (2 - max - min).
TEST(ColourModel, RgbToHslExactDoubles)
{
    const double k = 0.00392156862745098, sixth = 0.16666666666666666;
    struct Case { int c1, c2, c3; double h, s, l; };
    const Case cases[] = {
        {0, 0, 0, 0, 0, 0},           {255, 255, 255, 0, 0, 1.0},       {255, 0, 0, 0, 1, 0.5},
        {0, 255, 0, 2.0 * sixth, 1, 0.5}, {0, 0, 255, 4.0 * sixth, 1, 0.5}, {255, 0, 255, -1.0 * sixth + 1.0, 1, 0.5},
        {200, 200, 100, 1.0 * sixth, (200 * k - 100 * k) / (2.0 - 200 * k - 100 * k), (200 * k + 100 * k) * 0.5},
        {100, 200, 200, 3.0 * sixth, (200 * k - 100 * k) / (2.0 - 200 * k - 100 * k), (200 * k + 100 * k) * 0.5},
        {100, 50, 20, ((50 * k - 20 * k) / (100 * k - 20 * k)) * sixth, (100 * k - 20 * k) / (100 * k + 20 * k),
         (100 * k + 20 * k) * 0.5},
        {250, 200, 180, ((200 * k - 180 * k) / (250 * k - 180 * k)) * sixth, (250 * k - 180 * k) / (2.0 - 250 * k - 180 * k),
         (250 * k + 180 * k) * 0.5},
    };
    T t;
    for (const Case &c : cases) {
        double h = -1, s = -1, l = -1, hp = -1, sp = -1, lp = -1;
        t.RGBtoHSL(static_cast<unsigned char>(c.c1), static_cast<unsigned char>(c.c2), static_cast<unsigned char>(c.c3), &h, &s,
                   &l);
        EXPECT_TRUE(h == c.h && s == c.s && l == c.l) << c.c1 << " " << c.c2 << " " << c.c3 << ": " << h << " " << s << " " << l;
        // The packed forms put the first component in the lowest byte; the top byte is ignored.
        t.RGBtoHSL(static_cast<unsigned long>(c.c1 | c.c2 << 8 | c.c3 << 16) | 0xAB000000ul, &hp, &sp, &lp);
        EXPECT_TRUE(hp == h && sp == s && lp == l);
        const std::vector<int> back = to_rgb(t, h, s, l);
        EXPECT_EQ(t.HSLtoRGB(h, s, l), static_cast<unsigned long>(back[0] | back[1] << 8 | back[2] << 16));
    }
    EXPECT_EQ(t.HSLtoRGB(0.0, 1.0, 0.5), 0x0000FFul);
}

TEST(ColourModel, HueSectorsOneCorrectionEachWayAndClamps)
{
    T t;
    const double m1 = 0.25, m2 = 0.75;
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.1), m1 + ((m2 - m1) * 0.1) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.6), m1 + ((m2 - m1) * (0.6666666666666666 - 0.6)) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.9), m1);
    // -0.9 -> 0.1, 1.4 -> 0.4, but 2.5 -> 1.5 stays past a turn.
    EXPECT_EQ(t.HuetoRGB(m1, m2, -0.9), t.HuetoRGB(m1, m2, -0.9 + 1.0));
    EXPECT_EQ(t.HuetoRGB(m1, m2, 1.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 2.5), m1);
    // H = 1.5 is inside the 0..360 clamp: H + 1/3 loses one turn only, H - 1/3 is 1.1666 ->
    // 0.1666; (2/3 - 1/2) * 6 falls just short of 1 and truncates to 254. Above two turns the
    // hue is not brought back at all: every component takes m1.
    EXPECT_EQ(to_rgb(t, 1.5, 1.0, 0.5), (std::vector<int>{0, 254, 255}));
    EXPECT_EQ(to_rgb(t, 5.0, 1.0, 0.5), (std::vector<int>{0, 0, 0}));
    // Lightness above 1 is white, below 0 black; saturation above 1 acts as 1; a negative hue is 0.
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, 7.0), 0xFFFFFFul);
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, -1.0), 0x000000ul);
    EXPECT_EQ(t.HSLtoRGB(0.0, 3.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
    EXPECT_EQ(t.HSLtoRGB(-0.2, 1.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
}

TEST(ColourModel, ExactlyTwentyFourGreysComeBackOneLower)
{
    T t;
    std::vector<int> lower;
    for (int g = 0; g < 256; ++g) {
        double h, s, l;
        t.RGBtoHSL(static_cast<unsigned char>(g), static_cast<unsigned char>(g), static_cast<unsigned char>(g), &h, &s, &l);
        const std::vector<int> back = to_rgb(t, h, s, l);
        ASSERT_TRUE(back[0] == back[1] && back[1] == back[2] && (back[0] == g || back[0] == g - 1)) << g;
        if (back[0] != g)
            lower.push_back(g);
    }
    EXPECT_EQ(lower, (std::vector<int>{33, 37, 41, 45, 49, 53, 57, 61, 66, 74, 82, 90, 98, 106, 114, 122, 132, 148, 164, 180,
                                       196, 212, 228, 244}));
}

// One pixel (bytes in buffer order) through each adjustment. Saturation is fixed point: at 200 %
// C = 60, 50, 41 (x1024), M = 151*1024/3 = 51541, e = (M*1024 + 2*(C*1024 - M)*1024) >> 20. At
// 300 % (200, 100, 0) would give 400 and -200, and the negative side limits s to 1024;
// (160, 120, 80) just fits; (200, 150, 100) clips on the positive side only: s = 2150.
// Negative levels mirror the deviation and keep the low 8 bits (-85 is stored as 171). Hue is
// scaled from the first byte's primary; greys only show the conversion's truncation. A
// lightness above one half doubled is white; the factor is level x 0.01, not level / 100 (grey
// 100 at 41 % would come back 40). Black and white takes the second byte.
TEST(ColourAdjustments, ExactPixels)
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
        {lum(200), false, {200, 150, 90}, {255, 255, 255}},  {lum(41), false, {100, 100, 100}, {41, 41, 41}},
        {black_white(), true, {10, 20, 30}, {20, 20, 20}},
        {red(-100), true, {40, 90, 200}, {40, 90, 0}},       {red(100), true, {40, 90, 200}, {40, 90, 255}},
        {red(100), true, {40, 90, 100}, {40, 90, gain(100, 100)}}, {green(50), true, {40, 90, 200}, {40, gain(50, 90), 200}},
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
    for (int c = 0; c < 3; ++c)
        b.set_row(0, {c == 0 ? 200 : c == 1 ? 100 : 0, c == 0 ? 110 : c == 1 ? 100 : 90}, 0, c);
    run_whole(sat(300), b, false);
    EXPECT_EQ(pixel(b, 0, 0), (std::vector<int>{200, 100, 0}));
    EXPECT_EQ(pixel(b, 1, 0), (std::vector<int>{130, 100, 70}));
}

// Whole random buffers: saturation 100 and the zero gains leave every pixel, saturation 0 gives
// the integer mean, the three gains act on their own byte (red is the third), hue 100 only
// lowers some bytes by one, luminance is the model's, and teeth whitening is luminance in both
// calling orders.
TEST(ColourAdjustments, WholeBuffers)
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
        expect_in_rect(before, b, CRect(0, 0, 36, 8), k.want);
    }
    Buf b = before, l = before, w1 = before, w2 = before;
    run_whole(hue(100), b, false);
    int lowered = 0;
    expect_in_rect(before, b, CRect(0, 0, 36, 8), [&](int v, long x, long r, int c) {
        lowered += b.get(x, r, c) != v;
        return b.get(x, r, c) == v - 1 ? v - 1 : v;
    });
    EXPECT_GT(lowered, 0);
    run_whole(lum(137), l, false);
    T t;
    const double factor = static_cast<double>(137.0f) * 0.01; // through single precision
    for (long i = 0; i < 37 * 9; ++i) {
        double H, S, L;
        t.RGBtoHSL(before.get(i % 37, i / 37, 0), before.get(i % 37, i / 37, 1), before.get(i % 37, i / 37, 2), &H, &S, &L);
        ASSERT_EQ(pixel(l, i % 37, i / 37), to_rgb(t, H, S, factor * L)) << i;
    }
    CRect rc(0, 0, 37, 9);
    EXPECT_TRUE(t.BlanchimentDents(37, 9, w1.bits(), rc, 137) && t.BlanchimentDents(137, 37, 9, w2.bits(), rc));
    EXPECT_TRUE(w1.rows() == l.rows() && w2.rows() == l.rows());
}

TEST(ColourAdjustments, SaturationKernelAndEmptyHalfOpenRectangle)
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
// gives it over the whole buffer. Null, grey, empty and invalid images are refused.
TEST(ColourImageForms, ZoneCoverageAndRefusals)
{
    CDibRoot grey(CSize(4, 3), 8), empty, invalid;
    const auto grey0 = image_bytes(grey, 3);
    {
        // A 24-bit store whose pixel block could not be allocated: right depth, not IsOK.
        FailAllocations fail(3000);
        EXPECT_FALSE(invalid.Create(CSize(40, 30), 24));
    }
    ASSERT_TRUE(invalid.BitCount() == 24 && !invalid.IsOK());
    for (const Form &f : kForms) {
        SCOPED_TRACE(f.name);
        const Buf before(7, 6, 24, 21);
        Buf whole = before, got = before;
        run_whole(f.buffer, whole, f.inclusive);
        CDibRoot img(CSize(7, 6), 24);
        std::memcpy(img.GetBits(), before.bits(), static_cast<std::size_t>(before.pitch * before.h));
        img.SetZoneTravail(CRect(1, 1, 5, 4));
        T t;
        ASSERT_TRUE(f.image(t, &img));
        std::memcpy(got.bits(), img.GetBits(), static_cast<std::size_t>(got.pitch * got.h));
        img.ReleaseBits();
        const CRect covered(1, 1, f.inclusive ? 5 : 4, f.inclusive ? 4 : 3);
        expect_in_rect(before, got, covered, [&](int, long x, long r, int c) { return whole.get(x, r, c); });
        EXPECT_NE(got.rows(), before.rows());
        EXPECT_FALSE(f.image(t, nullptr) || f.image(t, &grey) || f.image(t, &empty) || f.image(t, &invalid));
    }
    EXPECT_EQ(image_bytes(grey), grey0);
}

namespace {

// Random pixels; with few_colours they are drawn from 300 colours so that the memo's hits and
// slot collisions are both exercised.
Buf random_colours(long width, long height, uint32_t seed, bool few_colours)
{
    Buf b(width, height, 24, seed);
    std::mt19937 rng(seed);
    std::vector<uint32_t> palette(300);
    for (auto &c : palette)
        c = rng();
    for (long i = 0; i < width * height * 3 && few_colours; i += 3) {
        const uint32_t colour = palette[rng() % 300];
        for (int c = 0; c < 3; ++c)
            b.set(i / 3 % width, i / 3 / width, static_cast<int>(colour >> 8 * c & 0xFF), c);
    }
    return b;
}

bool run_model(bool memo, Buf &b, const CRect &rc, double factor, detail::ModelFn model)
{
    const auto v = detail::view<detail::Bgr24>(b.w, b.h, b.bits());
    auto plain = [&](const detail::PixelRuns &runs) { detail::apply_model_plain(v, runs, factor, model); };
    if (memo)
        return detail::apply_model_memo(v, detail::half_open_runs(b.h, rc), factor, model, plain);
    plain(detail::half_open_runs(b.h, rc));
    return true;
}

} // namespace

TEST(ColourMemo, SameBytesAsThePlainPath)
{
    struct Case { long width, height; CRect rect; }; // half-open
    const Case cases[] = {
        {1, 1, CRect(0, 0, 1, 1)},     {7, 5, CRect(0, 0, 7, 5)},   {7, 5, CRect(2, 1, 7, 4)},
        {13, 9, CRect(0, 3, 5, 9)},    {1, 40, CRect(0, 0, 1, 40)}, {41, 1, CRect(3, 0, 41, 1)},
        {301, 217, CRect(0, 0, 301, 217)}, {301, 217, CRect(17, 5, 290, 200)},
        {331, 250, CRect(1, 2, 330, 249)}, // enough colours that the memo gives up part way and finishes plainly
    };
    uint32_t seed = 1;
    for (const Case &c : cases)
        for (detail::ModelFn model : {detail::scale_hue, detail::scale_lightness})
            for (int level : {0, 37, 100, 200, 1000})
                for (bool few : {false, true}) {
                    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " level " << level << (few ? " few" : ""));
                    Buf plain = random_colours(c.width, c.height, ++seed, few), memo = plain;
                    run_model(false, plain, c.rect, detail::model_factor(level), model);
                    ASSERT_TRUE(run_model(true, memo, c.rect, detail::model_factor(level), model));
                    ASSERT_EQ(first_difference(plain, memo), "");
                    ASSERT_TRUE(memo.intact());
                }
}

// Through the public forms (above the size where the memo is chosen), with the switch on or
// off, and with the memo's table made to fail: the bytes of the plain path each time.
TEST(ColourMemo, PublicFormsAndAllocationFallback)
{
    const Buf source = random_colours(311, 263, 77, true);
    T t;
    CRect rc(0, 1, 311, 261);
    for (int op = 0; op < 2; ++op)
        for (int mode = 0; mode < 2; ++mode) {
            Buf plain = source, other = source;
            auto call = [&](Buf &b) {
                return op == 0 ? t.ReglageTeinte(150, b.w, b.h, b.bits(), rc) : t.ReglageLuminance(130, b.w, b.h, b.bits(), rc);
            };
            const auto [ok_plain, ok_fast] = plain_and_fast([&](bool fast) {
                FailAllocations fail([&](std::size_t) { return fast && mode == 1; });
                const bool ok = call(fast ? other : plain);
                EXPECT_FALSE(fast && mode == 1 && run_model(true, other, rc, 1.0, detail::scale_lightness));
                return ok;
            });
            EXPECT_TRUE(ok_plain && ok_fast);
            EXPECT_EQ(first_difference(plain, other), "") << op << mode;
        }
}

// The four-pixel model (AVX2) against the plain model on every colour whose bytes are
// multiples of 5 (greys, ties for the maximum and minimum, every hue sector) and a last odd
// pixel, at gains that clamp in both directions.
TEST(ColourModel, FourPixelModelGivesThePlainBytes)
{
#if defined(KEVRA_MODEL_LANES)
    if (detail::widest_vector_level() != detail::VectorLevel::avx2)
        GTEST_SKIP() << "no AVX2 on this processor";
    Buf source(52 * 52 * 52 + 1, 1, 24, 3);
    for (long i = 0; i < source.w - 1; ++i)
        for (int c = 0; c < 3; ++c)
            source.set(i, 0, static_cast<int>(i / (c == 0 ? 1 : c == 1 ? 52 : 52 * 52) % 52 * 5), c);
    const detail::PixelRuns runs = detail::half_open_runs(1, CRect(0, 0, static_cast<int>(source.w), 1));
    for (int level : {-50, 0, 37, 100, 150, 1000})
        for (bool hue : {true, false}) {
            Buf plain = source, lanes = source;
            const double factor = detail::model_factor(level);
            detail::apply_model_plain(detail::view<detail::Bgr24>(plain.w, 1, plain.bits()), runs, factor,
                                      hue ? detail::scale_hue : detail::scale_lightness);
            const auto v = detail::view<detail::Bgr24>(lanes.w, 1, lanes.bits());
            if (hue)
                detail::apply_model_lanes<detail::ModelGain::hue>(v, runs, factor);
            else
                detail::apply_model_lanes<detail::ModelGain::lightness>(v, runs, factor);
            EXPECT_EQ(first_difference(plain, lanes), "") << level << (hue ? " hue" : " lightness");
        }
#else
    GTEST_SKIP() << "no AVX2 copy in this build";
#endif
}
