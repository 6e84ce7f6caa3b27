// Filtering engine on float planes: border rules, offset and factor, rectangles.
#include <gtest/gtest.h>

#include <algorithm>

#include "kevra/filtre.h"
#include "kevra/platform.h"

#include "filters/plane.h"
#include "support/kevra_test.h"

namespace kevra {
namespace {

using test::GuardedPlane;

// A copy of the plane filtered in place over the rectangle (picture coordinates), by default
// the whole plane.
GuardedPlane filtered(CFiltre &f, const GuardedPlane &p, CRect rect)
{
    GuardedPlane out = p;
    EXPECT_TRUE(f.FiltrerBuffer(p.w, p.h, out.data(), rect, p.c == 3 ? 24 : 8));
    EXPECT_TRUE(out.guards_intact());
    return out;
}
GuardedPlane filtered(CFiltre &f, const GuardedPlane &p) { return filtered(f, p, CRect(0, 0, p.w - 1, p.h - 1)); }

// Rampe 5 across (0, 1/6, 1/3), identity down. The mirror is about the rectangle's edges, the
// edge sample repeated; only taps whose mirror would leave the image fold into the rectangle.
TEST(FiltreEngine, SeparableMirrorsAboutTheRectangleEdges)
{
    CFiltre f(CFiltre::Filtre_Rampe, 5, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    const float *k = f.Donne_TabFiltreX();
    const GuardedPlane p(8, 1, 1, 3);
    auto s = [&](int x) { return p.at(x, 0); };
    GuardedPlane o = filtered(f, p);
    // Column 0 uses columns 1, 0 | 0, 1, 2 (position q < 0 reads -1 - q); column 7 uses 5, 6, 7 | 7, 6.
    EXPECT_EQ(o.at(0, 0), k[0] * s(0) + k[1] * (s(0) + s(1)) + k[2] * (s(1) + s(2)));
    EXPECT_EQ(o.at(1, 0), k[0] * s(1) + k[1] * (s(0) + s(2)) + k[2] * (s(0) + s(3)));
    EXPECT_EQ(o.at(4, 0), k[0] * s(4) + k[1] * (s(3) + s(5)) + k[2] * (s(2) + s(6)));
    EXPECT_EQ(o.at(7, 0), k[0] * s(7) + k[1] * (s(6) + s(7)) + k[2] * (s(5) + s(6)));
    o = filtered(f, p, CRect(1, 0, 7, 0)); // column 0 is never read
    EXPECT_EQ(o.at(0, 0), s(0));
    EXPECT_EQ(o.at(1, 0), k[0] * s(1) + k[1] * (s(1) + s(2)) + k[2] * (s(2) + s(3)));
    const GuardedPlane n(3, 1, 1, 13); // three columns: both border zones overlap
    auto t = [&](int x) { return n.at(x, 0); };
    o = filtered(f, n);
    EXPECT_EQ(o.at(0, 0), k[0] * t(0) + k[1] * (t(0) + t(1)) + k[2] * (t(1) + t(2)));
    EXPECT_EQ(o.at(1, 0), k[0] * t(1) + k[1] * (t(0) + t(2)) + k[2] * (t(0) + t(2)));
    EXPECT_EQ(o.at(2, 0), k[0] * t(2) + k[1] * (t(1) + t(2)) + k[2] * (t(0) + t(1)));
    // Two columns at the left edge of eight, Rampe 7: both pixels lie in the left zone and read
    // their left taps mirrored, their right taps from the real columns beyond the rectangle.
    CFiltre g(CFiltre::Filtre_Rampe, 7, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    const float *r = g.Donne_TabFiltreX();
    o = filtered(g, p, CRect(0, 0, 1, 0));
    EXPECT_EQ(o.at(0, 0), r[0] * s(0) + r[1] * (s(0) + s(1)) + r[2] * (s(1) + s(2)) + r[3] * (s(2) + s(3)));
    EXPECT_EQ(o.at(1, 0), r[0] * s(1) + r[1] * (s(0) + s(2)) + r[2] * (s(0) + s(3)) + r[3] * (s(1) + s(4)));
}

// The top test admits equality while the right test does not: a rectangle whose top lies nY rows
// below the image's top mirrors its top row although the real rows exist, in both engines.
TEST(FiltreEngine, TopTestAdmitsEqualityButRightTestDoesNot)
{
    CFiltre down(CFiltre::Filtre_Moyenne, 1, CFiltre::Filtre_Rampe, 3, 0.0f, 0.0f); // 0.5 * (below + above)
    const GuardedPlane p(1, 6, 1, 5);
    GuardedPlane o = filtered(down, p, CRect(0, 1, 0, 2)); // buffer rows 3..4, T + nY = height - 1
    EXPECT_EQ(o.at(0, 4), 0.0f * p.at(0, 4) + 0.5f * (p.at(0, 3) + p.at(0, 4)));
    EXPECT_EQ(o.at(0, 3), 0.0f * p.at(0, 3) + 0.5f * (p.at(0, 2) + p.at(0, 4))); // real row 2 below
    EXPECT_EQ(o.at(0, 5), p.at(0, 5));

    CFiltre across(CFiltre::Filtre_Rampe, 3, CFiltre::Filtre_Moyenne, 1, 0.0f, 0.0f);
    const GuardedPlane q(6, 1, 1, 5);
    o = filtered(across, q, CRect(3, 0, 4, 0)); // R + nX = width - 1: the real column 5 is read
    EXPECT_EQ(o.at(4, 0), 0.0f * q.at(4, 0) + 0.5f * (q.at(3, 0) + q.at(5, 0)));

    // Full kernel, GradientY (row 0 meets the lowest buffer row: not flipped) at buffer row 1 of
    // a ramp 0, 10, 20, ...: -3 * 0 + 3 * 20 with 4 rows, row 2 read as row 1 with 3 rows.
    CFiltre g(CFiltre::Filtre_GradientY, 3, 0.0f);
    for (int height : {4, 3}) {
        GuardedPlane r(3, height);
        for (int i = 0; i < 3 * height; ++i)
            r.data()[i] = static_cast<float>(10 * (i / 3));
        EXPECT_EQ(filtered(g, r, CRect(1, height - 2, 1, height - 2)).at(1, 1), height == 4 ? 60.0f : 30.0f);
    }
}

// A user kernel runs as a full kernel: on the left and bottom sides the m taps outside read a
// shifted run (q + 2m - 1), not a mirror; on the right and top sides the mirror.
TEST(FiltreEngine, WideUserKernelReadsShiftedTapsOnTheLeftAndBottom)
{
    float K[5] = {1.0f, 10.0f, 100.0f, 1000.0f, 10000.0f};
    auto sum5 = [&](float a, float b, float c, float d, float e) { return 0.0f + K[0] * a + K[1] * b + K[2] * c + K[3] * d + K[4] * e; };
    CFiltre row(K, 5, 1), column(K, 1, 5);
    const GuardedPlane p(8, 1, 1, 6), q(1, 8, 1, 7);
    const GuardedPlane o = filtered(row, p), v = filtered(column, q);
    for (int axis = 0; axis < 2; ++axis) {
        auto s = [&](int i) { return axis == 0 ? p.at(i, 0) : q.at(0, i); };
        auto out = [&](int i) { return axis == 0 ? o.at(i, 0) : v.at(0, i); };
        EXPECT_EQ(out(0), sum5(s(1), s(2), s(0), s(1), s(2))) << axis; // m = 2: -2 -> 1, -1 -> 2
        EXPECT_EQ(out(1), sum5(s(0), s(0), s(1), s(2), s(3))) << axis; // m = 1: the mirror
        EXPECT_EQ(out(4), sum5(s(2), s(3), s(4), s(5), s(6))) << axis;
        EXPECT_EQ(out(7), sum5(s(5), s(6), s(7), s(7), s(6))) << axis; // 8 -> 7, 9 -> 6
    }
}

TEST(FiltreEngine, FullKernelsApplyFactorThenOffsetAndAreNotClipped)
{
    GuardedPlane p(5, 5);
    std::fill(p.data(), p.data() + p.count(), 50.0f);
    p.at(2, 2) = 60.0f;
    CFiltre lap(CFiltre::Filtre_Laplacien, 3, 0.0f), plain(CFiltre::Filtre_Laplacien, 3, 0.0f);
    GuardedPlane o = p;
    CRect rect(0, 0, 4, 4);
    ASSERT_TRUE(lap.FiltrerBufferAvecOffsetFacteur(5, 5, o.data(), rect, 8, 128.0f, 2.0f));
    EXPECT_EQ(o.at(2, 2), 80.0f * 2.0f + 128.0f);
    EXPECT_EQ(o.at(1, 2), -10.0f * 2.0f + 128.0f);
    EXPECT_EQ(o.at(0, 0), 128.0f); // flat region: 0
    EXPECT_EQ(filtered(lap, p).at(2, 2), 288.0f); // offset and factor stay for the next call
    EXPECT_EQ(filtered(plain, p).at(1, 2), -10.0f); // the buffer form does not clip
}

TEST(FiltreEngine, FailuresLeaveTheBufferUnchanged)
{
    GuardedPlane p(6, 6, 1, 15);
    const GuardedPlane before = p;
    CRect rect(0, 0, 5, 5);
    CFiltre invalid, f(CFiltre::Filtre_Gaussien, 3, 1.0f);
    EXPECT_FALSE(invalid.FiltrerBuffer(6, 6, p.data(), rect, 8) || f.FiltrerBuffer(6, 6, nullptr, rect, 8) || f.FiltrerBuffer(0, 6, p.data(), rect, 8));
    for (int fail : {1, 2}) { // the result buffer, or the separable intermediate, is not obtained
        int calls = 0;
        kevra_test::FailAllocations failing([&](std::size_t) { return ++calls == fail; });
        EXPECT_FALSE(f.FiltrerBuffer(6, 6, p.data(), rect, 8)) << fail;
    }
    EXPECT_TRUE(p.same_bytes(before));
}

} // namespace
} // namespace kevra
