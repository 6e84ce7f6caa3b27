// The fast path against the plain path, at zero tolerance, on random planes, sizes (1-pixel
// images, odd widths) and rectangles (touching each edge, narrower than the kernel, partly or
// wholly outside, upside down); the 3-colour engines against the 1-colour ones.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "filters/detail/convolution.h"
#include "kevra/dib.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"

#include "filters/plane.h"
#include "support/kevra_test.h"

namespace kevra {
namespace {

using test::GuardedPlane;

std::unique_ptr<CFiltre> random_filter(std::mt19937 &rng)
{
    auto odd = [&](int max_half) { return static_cast<unsigned short>(2 * (rng() % (max_half + 1)) + 1); };
    switch (rng() % 4) {
    case 0: {
        auto kx = static_cast<CFiltre::e_Filtre>(rng() % 6), ky = static_cast<CFiltre::e_Filtre>(rng() % 6);
        return std::make_unique<CFiltre>(kx, odd(7), ky, odd(7), 0.5f + (rng() % 8), 0.5f + (rng() % 8));
    }
    case 1:
        return std::make_unique<CFiltre>(static_cast<CFiltre::e_Filtre>(6 + rng() % 4), 3, 0.0f);
    default: {
        const unsigned short w = odd(4), h = odd(4);
        std::vector<float> k(std::size_t(w) * h);
        for (float &v : k)
            v = static_cast<float>(static_cast<int>(rng() % 2001) - 1000) / 256.0f;
        return std::make_unique<CFiltre>(k.data(), w, h);
    }
    }
}

TEST(FiltreDifferential, FastPathGivesThePlainBytes)
{
    std::mt19937 rng(20240611);
    int compared = 0;
    for (int iter = 0; iter < 4000; ++iter) {
        const int w = iter % 10 == 0 ? 1 : 1 + static_cast<int>(rng() % (iter % 7 == 0 ? 90 : 33));
        const int h = iter % 13 == 0 ? 1 : 1 + static_cast<int>(rng() % (iter % 5 == 0 ? 70 : 29));
        const int channels = rng() % 2 ? 3 : 1;
        const unsigned short bitCount = channels == 3 ? 24 : (rng() % 2 ? 8 : 16);
        std::unique_ptr<CFiltre> f = random_filter(rng);
        if (!f->IsOK())
            continue;
        // Inclusive bounds in -4 .. size + 3: touching, inside or beyond either edge.
        int b[4];
        for (int i = 0; i < 4; ++i)
            b[i] = static_cast<int>(rng() % ((i % 2 ? h : w) + 8)) - 4;
        if (rng() % 3 == 0)
            for (int i = 0; i < 2; ++i)
                if (b[i] > b[i + 2])
                    std::swap(b[i], b[i + 2]);
        CRect rect(b[0], b[1], b[2], b[3]);

        // The fast path on one thread or on three (odd strip heights, halos at the strip edges).
        const unsigned threads = iter % 2 ? 3 : 1;
        GuardedPlane src(w, h, channels, static_cast<uint32_t>(iter + 1)), plain(w, h, channels), fast(w, h, channels);
        const auto [ok_plain, ok_fast] = kevra_test::plain_and_fast(
            [&](bool on) { return f->FiltrerBufferSimple(w, h, src.data(), (on ? fast : plain).data(), rect, bitCount); },
            threads);
        ASSERT_TRUE(ok_plain && ok_fast);
        if (!plain.same_bytes(fast)) {
            for (std::size_t i = 0; i < plain.count(); ++i)
                if (std::memcmp(&plain.data()[i], &fast.data()[i], sizeof(float)) != 0)
                    FAIL() << "iteration " << iter << ": " << w << "x" << h << "x" << channels << " rect (" << b[0] << ","
                           << b[1] << "," << b[2] << "," << b[3] << ") first difference at pixel " << (i / channels) % w
                           << ", row " << i / channels / w << ": " << plain.data()[i] << " vs " << fast.data()[i];
            FAIL() << "iteration " << iter << ": guard zones differ";
        }
        ASSERT_TRUE(plain.guards_intact()) << iter;
        // The 3-colour engines are the 1-colour ones applied to each component.
        for (int ch = 0; channels == 3 && iter % 4 == 0 && ch < 3; ++ch) {
            GuardedPlane grey(w, h), one(w, h);
            for (int i = 0; i < w * h; ++i)
                grey.data()[i] = src.data()[3 * i + ch];
            ASSERT_TRUE(f->FiltrerBufferSimple(w, h, grey.data(), one.data(), rect, 8));
            for (int i = 0; i < w * h; ++i)
                ASSERT_EQ(std::memcmp(&one.data()[i], &plain.data()[3 * i + ch], sizeof(float)), 0) << iter << " component " << ch;
        }

        // In place: the rectangle takes the result, every other pixel keeps its bytes; the engine
        // itself writes nothing outside the rectangle.
        GuardedPlane inplace = src;
        platform::set_thread_count(4 - threads);
        ASSERT_TRUE(f->FiltrerBuffer(w, h, inplace.data(), rect, bitCount));
        platform::set_thread_count(1);
        ASSERT_TRUE(inplace.guards_intact()) << iter;
        // Bounds clamped into the image; picture rows top .. bottom are buffer rows h-1-bottom .. h-1-top.
        auto clamp = [](int v, int hi) { return v < 0 ? 0 : v > hi ? hi : v; };
        const int L = clamp(b[0], w - 1), R = clamp(b[2], w - 1), B = clamp(h - 1 - b[3], h - 1), T = clamp(h - 1 - b[1], h - 1);
        for (int row = 0; row < h; ++row)
            for (int x = 0; x < w; ++x)
                for (int ch = 0; ch < channels; ++ch) {
                    const bool inside = x >= L && x <= R && row >= B && row <= T;
                    const float expected = inside ? fast.at(x, row, ch) : src.at(x, row, ch);
                    ASSERT_TRUE(inside || plain.at(x, row, ch) == GuardedPlane::kSentinel) << iter;
                    ASSERT_EQ(std::memcmp(&inplace.at(x, row, ch), &expected, sizeof(float)), 0) << iter << " at " << x << "," << row;
                }
        ++compared;
    }
    EXPECT_GT(compared, 3000);
}


// The image entry (conversion, filter, clip, conversion back) streamed against the plain entry,
// on one and on three threads: the whole pixel store compared, padding included.
TEST(FiltreDifferential, StreamedImageEntryGivesThePlainBytes)
{
    std::mt19937 rng(77);
    for (int iter = 0; iter < 600; ++iter) {
        const int w = iter % 9 == 0 ? 1 : 1 + static_cast<int>(rng() % 40);
        const int h = iter % 11 == 0 ? 1 : 1 + static_cast<int>(rng() % 30);
        const int depth = iter % 3 == 0 ? 24 : (rng() % 2 ? 16 : 8);
        std::unique_ptr<CFiltre> f = random_filter(rng);
        if (!f->IsOK())
            continue;
        CDib plain(w, h, depth), fast(w, h, depth);
        for (unsigned long i = 0; i < plain.SizeImage(); ++i)
            plain.GetBits()[i] = fast.GetBits()[i] = static_cast<uint8_t>(rng());
        int b[4];
        for (int i = 0; i < 4; ++i)
            b[i] = static_cast<int>(rng() % ((i % 2 ? h : w) + 6)) - 3;
        plain.SetZoneTravail(CRect(b[0], b[1], b[2], b[3]));
        fast.SetZoneTravail(CRect(b[0], b[1], b[2], b[3]));
        const float offset = static_cast<float>(rng() % 256), factor = static_cast<float>(rng() % 5) * 0.5f;
        const auto [ok_plain, ok_fast] = kevra_test::plain_and_fast(
            [&](bool on) { return f->FiltrerAvecOffsetFacteur(on ? &fast : &plain, offset, factor); }, iter % 2 ? 3 : 1);
        ASSERT_EQ(ok_plain, ok_fast) << iter;
        for (unsigned long i = 0; i < plain.SizeImage(); ++i)
            ASSERT_EQ(plain.GetBits()[i], fast.GetBits()[i]) << "iteration " << iter << ": " << w << "x" << h << "x" << depth
                                                             << " byte " << i << " (row " << i / plain.Pitch() << ")";
    }
}

} // namespace
} // namespace kevra
