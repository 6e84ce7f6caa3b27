// Filtering engine on float planes: border rules, offset and factor, rectangles.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "kevra/filtre.h"

#include "filters/plane.h"

#include "support/kevra_test.h"

namespace kevra {
namespace {

using test::GuardedPlane;

// A rectangle of picture coordinates covering the whole plane.
CRect whole(const GuardedPlane & p) { return CRect(0, 0, p.w - 1, p.h - 1); }

TEST(FiltreEngine, FlatPlaneStaysFlatWithEveryNormalisedKind)
{
    for (int kind = CFiltre::Filtre_Moyenne; kind <= CFiltre::Filtre_SinusCardinal; ++kind) {
        for (unsigned short size : {3, 5, 9}) {
            CFiltre f(static_cast<CFiltre::e_Filtre>(kind), size, 1.5f);
            ASSERT_TRUE(f.IsOK());
            for (int channels : {1, 3}) {
                GuardedPlane p(11, 7, channels);
                p.fill(100.0f);
                CRect rect = whole(p); // border zones on every side
                ASSERT_TRUE(f.FiltrerBuffer(p.w, p.h, p.data(), rect, channels == 3 ? 24 : 8));
                const float first = p.data()[0];
                EXPECT_NEAR(first, 100.0f, 1e-3) << kind << " " << size;
                for (std::size_t i = 0; i < p.count(); ++i)
                    ASSERT_EQ(p.data()[i], first) << kind << " " << size << " at " << i;
                EXPECT_TRUE(p.guards_intact());
            }
        }
    }
}

// Rampe 5 across (0, 1/6, 1/3), identity down: one row shows the column rule.
TEST(FiltreEngine, SeparableMirrorsAboutTheLeftAndRightEdges)
{
    CFiltre f(CFiltre::Filtre_Rampe, 5, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    const float * k = f.Donne_TabFiltreX();
    GuardedPlane p(8, 1);
    p.randomise(3);
    const std::vector<float> s(p.data(), p.data() + 8);
    CRect rect = whole(p);
    ASSERT_TRUE(f.FiltrerBuffer(8, 1, p.data(), rect, 8));
    // Column 0 uses columns 1, 0 | 0, 1, 2 (position p < 0 reads -1 - p).
    EXPECT_EQ(p.at(0, 0), k[0] * s[0] + k[1] * (s[0] + s[1]) + k[2] * (s[1] + s[2]));
    EXPECT_EQ(p.at(1, 0), k[0] * s[1] + k[1] * (s[0] + s[2]) + k[2] * (s[0] + s[3]));
    EXPECT_EQ(p.at(4, 0), k[0] * s[4] + k[1] * (s[3] + s[5]) + k[2] * (s[2] + s[6]));
    // Column 7 uses 5, 6, 7 | 7, 6 (position p > 7 reads 15 - p).
    EXPECT_EQ(p.at(7, 0), k[0] * s[7] + k[1] * (s[6] + s[7]) + k[2] * (s[5] + s[6]));
    EXPECT_TRUE(p.guards_intact());

    // About the rectangle's edge, not the image's: column 0 is never read.
    std::copy(s.begin(), s.end(), p.data());
    CRect from1(1, 0, 7, 0);
    ASSERT_TRUE(f.FiltrerBuffer(8, 1, p.data(), from1, 8));
    EXPECT_EQ(p.at(0, 0), s[0]);
    EXPECT_EQ(p.at(1, 0), k[0] * s[1] + k[1] * (s[1] + s[2]) + k[2] * (s[2] + s[3]));
}

// Identity across, Rampe 3 down (0, 0.5): value = 0.5 * (below + above).
TEST(FiltreEngine, TopTestAdmitsEqualityButRightTestDoesNot)
{
    CFiltre down(CFiltre::Filtre_Moyenne, 1, CFiltre::Filtre_Rampe, 3, 0.0f, 0.0f);
    GuardedPlane p(1, 6);
    p.randomise(5);
    const std::vector<float> s(p.data(), p.data() + 6);
    // Top = 1 = nY: buffer row T = 4 and T + nY = 5 = height - 1, so row 4
    // mirrors about itself although row 5 exists.
    CRect rect(0, 1, 0, 2); // buffer rows 3..4
    ASSERT_TRUE(down.FiltrerBuffer(1, 6, p.data(), rect, 8));
    EXPECT_EQ(p.at(0, 4), 0.0f * s[4] + 0.5f * (s[3] + s[4]));
    EXPECT_EQ(p.at(0, 3), 0.0f * s[3] + 0.5f * (s[2] + s[4])); // real row 2 below
    EXPECT_EQ(p.at(0, 5), s[5]);

    // The same distance from the right edge reads the real column.
    CFiltre across(CFiltre::Filtre_Rampe, 3, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    GuardedPlane q(6, 1);
    q.randomise(5);
    const std::vector<float> t(q.data(), q.data() + 6);
    CRect cols(3, 0, 4, 0); // R + nX = 5 = width - 1: not a border
    ASSERT_TRUE(across.FiltrerBuffer(6, 1, q.data(), cols, 8));
    EXPECT_EQ(q.at(4, 0), 0.0f * t[4] + 0.5f * (t[3] + t[5]));
}

// A user kernel runs as a full kernel: on the left and bottom sides the taps
// outside read a shifted run (p + 2m - 1), not a mirror.
TEST(FiltreEngine, WideUserKernelReadsShiftedTapsOnTheLeftAndBottom)
{
    float K[5] = {1.0f, 10.0f, 100.0f, 1000.0f, 10000.0f};
    CFiltre row(K, 5, 1);
    GuardedPlane p(8, 1);
    p.randomise(6);
    const std::vector<float> s(p.data(), p.data() + 8);
    CRect rect = whole(p);
    ASSERT_TRUE(row.FiltrerBuffer(8, 1, p.data(), rect, 8));
    auto sum5 = [&](float a, float b, float c, float d, float e) {
        return 0.0f + K[0] * a + K[1] * b + K[2] * c + K[3] * d + K[4] * e;
    };
    // Column 0: two taps outside (m = 2): -2 -> 1, -1 -> 2.
    EXPECT_EQ(p.at(0, 0), sum5(s[1], s[2], s[0], s[1], s[2]));
    // Column 1: one tap outside (m = 1): -1 -> 0, the mirror.
    EXPECT_EQ(p.at(1, 0), sum5(s[0], s[0], s[1], s[2], s[3]));
    // Right side: the mirror, 8 -> 7, 9 -> 6.
    EXPECT_EQ(p.at(7, 0), sum5(s[5], s[6], s[7], s[7], s[6]));

    // Kernel row 0 meets the lowest buffer row; below B the same shifted run.
    CFiltre column(K, 1, 5);
    GuardedPlane q(1, 8);
    q.randomise(7);
    const std::vector<float> t(q.data(), q.data() + 8);
    CRect all = whole(q);
    ASSERT_TRUE(column.FiltrerBuffer(1, 8, q.data(), all, 8));
    EXPECT_EQ(q.at(0, 0), sum5(t[1], t[2], t[0], t[1], t[2]));
    EXPECT_EQ(q.at(0, 4), sum5(t[2], t[3], t[4], t[5], t[6]));
    EXPECT_EQ(q.at(0, 7), sum5(t[5], t[6], t[7], t[7], t[6]));
}

// Kernel row 0 meets the neighbourhood's lowest buffer row: not flipped. At
// buffer row height - 2 (T + nY = height - 1) the row above is mirrored
// although it exists.
TEST(FiltreEngine, GradientYIsNotFlippedAndTopEqualityMirrors)
{
    CFiltre g(CFiltre::Filtre_GradientY, 3, 0.0f);
    for (int height : {4, 3}) {
        GuardedPlane p(3, height);
        for (int r = 0; r < height; ++r)
            for (int x = 0; x < 3; ++x)
                p.at(x, r) = static_cast<float>(10 * r);
        CRect pixel(1, height - 2, 1, height - 2); // buffer row 1
        ASSERT_TRUE(g.FiltrerBuffer(3, height, p.data(), pixel, 8));
        EXPECT_EQ(p.at(1, 1), height == 4 ? 60.0f : 30.0f); // -3*0 + 3*20, or row 2 read as row 1
    }
}

TEST(FiltreEngine, FullKernelsApplyFactorThenOffsetAndAreNotClipped)
{
    CFiltre lap(CFiltre::Filtre_Laplacien, 3, 0.0f);
    GuardedPlane p(5, 5);
    p.fill(50.0f);
    p.at(2, 2) = 60.0f;
    CRect rect = whole(p);
    ASSERT_TRUE(lap.FiltrerBufferAvecOffsetFacteur(5, 5, p.data(), rect, 8, 128.0f, 2.0f));
    EXPECT_EQ(p.at(2, 2), 80.0f * 2.0f + 128.0f);
    EXPECT_EQ(p.at(1, 2), -10.0f * 2.0f + 128.0f);
    EXPECT_EQ(p.at(0, 0), 128.0f); // flat region: 0
    // Offset and factor stay for the next call.
    p.fill(50.0f);
    p.at(2, 2) = 60.0f;
    ASSERT_TRUE(lap.FiltrerBuffer(5, 5, p.data(), rect, 8));
    EXPECT_EQ(p.at(2, 2), 288.0f);

    CFiltre plain(CFiltre::Filtre_Laplacien, 3, 0.0f);
    p.fill(50.0f);
    p.at(2, 2) = 60.0f;
    ASSERT_TRUE(plain.FiltrerBuffer(5, 5, p.data(), rect, 8));
    EXPECT_EQ(p.at(1, 2), -10.0f); // the buffer form does not clip
}

TEST(FiltreEngine, OnePixelRectangleChangesOnlyThatPixel)
{
    CFiltre f(CFiltre::Filtre_Moyenne, 3, 0.0f);
    const float k = f.Donne_TabFiltreX()[0];
    GuardedPlane p(7, 5);
    p.randomise(9);
    const GuardedPlane before = p;
    CRect rect(3, 2, 3, 2); // picture row 2 = buffer row 2
    ASSERT_TRUE(f.FiltrerBuffer(7, 5, p.data(), rect, 8));
    auto across = [&](int r) {
        const GuardedPlane & s = before;
        return k * s.data()[r * 7 + 3] + k * (s.data()[r * 7 + 2] + s.data()[r * 7 + 4]);
    };
    EXPECT_EQ(p.at(3, 2), k * across(2) + k * (across(1) + across(3)));
    p.at(3, 2) = before.data()[2 * 7 + 3];
    EXPECT_TRUE(p.same_bytes(before));
}

// The 3-colour engines are the 1-colour ones applied to each component.
TEST(FiltreEngine, ThreeColoursFilterEachComponentLikeOneColour)
{
    float user[15] = {1, -2, 3, 0.5f, 4, -1, 2, 2, -3, 1, 0, 1, 7, -4, 0.25f};
    CFiltre filters[] = {CFiltre(CFiltre::Filtre_Gaussien, 7, 2.0f), CFiltre(user, 5, 3),
                         CFiltre(CFiltre::Filtre_GradientDiagonal, 3, 0.0f)};
    for (CFiltre & f : filters) {
        GuardedPlane colour(10, 8, 3);
        colour.randomise(10);
        std::vector<GuardedPlane> grey(3, GuardedPlane(10, 8, 1));
        for (int ch = 0; ch < 3; ++ch)
            for (int r = 0; r < 8; ++r)
                for (int x = 0; x < 10; ++x)
                    grey[ch].at(x, r) = colour.at(x, r, ch);
        CRect rect(0, 1, 8, 7);
        ASSERT_TRUE(f.FiltrerBuffer(10, 8, colour.data(), rect, 24));
        for (int ch = 0; ch < 3; ++ch) {
            ASSERT_TRUE(f.FiltrerBuffer(10, 8, grey[ch].data(), rect, 16));
            for (int r = 0; r < 8; ++r)
                for (int x = 0; x < 10; ++x)
                    ASSERT_EQ(colour.at(x, r, ch), grey[ch].at(x, r)) << x << "," << r << "," << ch;
        }
        EXPECT_TRUE(colour.guards_intact());
    }
}

TEST(FiltreEngine, RectangleBoundsAreClampedAndTurnedIntoBufferRows)
{
    CFiltre f(CFiltre::Filtre_Gaussien, 5, 1.0f);
    GuardedPlane p(9, 7), q(9, 7);
    p.randomise(11);
    q.randomise(11);
    CRect huge(-50, -20, 400, 300), exact(0, 0, 8, 6);
    ASSERT_TRUE(f.FiltrerBuffer(9, 7, p.data(), huge, 8));
    ASSERT_TRUE(f.FiltrerBuffer(9, 7, q.data(), exact, 8));
    EXPECT_TRUE(p.same_bytes(q));
    EXPECT_TRUE(p.guards_intact());

    // The picture's top rows are the last buffer rows; a rectangle wholly
    // beyond the right edge is clamped onto the last column.
    GuardedPlane r(9, 7), expected(9, 7);
    r.randomise(12);
    expected.randomise(12);
    const GuardedPlane before = r;
    CRect top_right(20, -3, 30, 1), clamped(8, 0, 8, 1);
    ASSERT_TRUE(f.FiltrerBuffer(9, 7, r.data(), top_right, 8));
    ASSERT_TRUE(f.FiltrerBuffer(9, 7, expected.data(), clamped, 8));
    EXPECT_TRUE(r.same_bytes(expected));
    for (int row = 0; row < 7; ++row)
        for (int x = 0; x < 9; ++x) {
            if (x == 8 && row >= 5)
                EXPECT_NE(r.at(x, row), before.data()[row * 9 + x]);
            else
                ASSERT_EQ(r.at(x, row), before.data()[row * 9 + x]) << x << "," << row;
        }
}

// Near an edge, a rectangle narrower than the kernel is folded into itself.
TEST(FiltreEngine, NarrowRectangleFoldsItsTapsIntoItself)
{
    CFiltre f(CFiltre::Filtre_Rampe, 5, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    const float * k = f.Donne_TabFiltreX();
    GuardedPlane p(3, 1);
    p.randomise(13);
    const std::vector<float> s(p.data(), p.data() + 3);
    CRect rect = whole(p);
    ASSERT_TRUE(f.FiltrerBuffer(3, 1, p.data(), rect, 8));
    EXPECT_EQ(p.at(0, 0), k[0] * s[0] + k[1] * (s[0] + s[1]) + k[2] * (s[1] + s[2]));
    EXPECT_EQ(p.at(1, 0), k[0] * s[1] + k[1] * (s[0] + s[2]) + k[2] * (s[0] + s[2]));
    EXPECT_EQ(p.at(2, 0), k[0] * s[2] + k[1] * (s[1] + s[2]) + k[2] * (s[0] + s[1]));

    // A one-pixel image reads only its pixel, whatever the kernel.
    float K[25];
    for (int i = 0; i < 25; ++i)
        K[i] = 1.0f;
    CFiltre wide(K, 5, 5);
    GuardedPlane one(1, 1, 3);
    one.randomise(14);
    const GuardedPlane before = one;
    CRect px(0, 0, 0, 0);
    ASSERT_TRUE(wide.FiltrerBuffer(1, 1, one.data(), px, 24));
    for (int ch = 0; ch < 3; ++ch) {
        float sum = 0.0f;
        for (int i = 0; i < 25; ++i)
            sum = sum + 1.0f * before.data()[ch];
        EXPECT_EQ(one.at(0, 0, ch), sum);
    }
    EXPECT_TRUE(one.guards_intact());
}

TEST(FiltreEngine, FailuresLeaveTheBufferUnchanged)
{
    GuardedPlane p(6, 6);
    p.randomise(15);
    const GuardedPlane before = p;
    CRect rect = whole(p);

    CFiltre invalid;
    EXPECT_FALSE(invalid.FiltrerBuffer(6, 6, p.data(), rect, 8));
    CFiltre f(CFiltre::Filtre_Gaussien, 3, 1.0f);
    EXPECT_FALSE(f.FiltrerBuffer(6, 6, nullptr, rect, 8));
    EXPECT_FALSE(f.FiltrerBuffer(0, 6, p.data(), rect, 8));
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(f.FiltrerBuffer(6, 6, p.data(), rect, 8));
    }
    {
        // The result buffer is obtained, the separable intermediate is not.
        int calls = 0;
        auto old = platform::set_allocation_hook([&](std::size_t) { return ++calls == 2; });
        EXPECT_FALSE(f.FiltrerBuffer(6, 6, p.data(), rect, 8));
        platform::set_allocation_hook(old);
    }
    EXPECT_TRUE(p.same_bytes(before));
}

} // namespace
} // namespace kevra
