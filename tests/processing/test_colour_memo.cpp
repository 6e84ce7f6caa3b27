// The memoised hue/lightness path against the plain one, byte for byte.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kevra/traitement.h"
#include "processing/detail/colour_walk.h"
#include "support/kevra_test.h"

using kevra::CRect;
using kevra::CTraitementImg_24_Bpp;
namespace detail = kevra::detail;

namespace {

// Random bytes everywhere (padding and guard included); with few_colours the pixels are drawn
// from a small set so that the memo's hits and slot collisions are both exercised.
std::vector<uint8_t> random_buffer(int width, int height, unsigned seed, bool few_colours)
{
    const size_t pitch = static_cast<size_t>(((width * 24 + 31) & ~31) / 8);
    std::vector<uint8_t> bytes(pitch * height + 64);
    std::mt19937 rng(seed);
    for (auto &b : bytes)
        b = static_cast<uint8_t>(rng());
    if (few_colours) {
        std::vector<uint32_t> palette(300);
        for (auto &c : palette)
            c = rng() & 0xFFFFFF;
        for (int r = 0; r < height; ++r)
            for (int x = 0; x < width; ++x) {
                const uint32_t c = palette[rng() % palette.size()];
                uint8_t *p = bytes.data() + r * pitch + x * 3;
                p[0] = static_cast<uint8_t>(c);
                p[1] = static_cast<uint8_t>(c >> 8);
                p[2] = static_cast<uint8_t>(c >> 16);
            }
    }
    return bytes;
}

struct Case {
    int width, height;
    CRect rect; // half-open
};

void expect_same(const std::vector<uint8_t> &plain, const std::vector<uint8_t> &memo, int width)
{
    const size_t pitch = static_cast<size_t>(((width * 24 + 31) & ~31) / 8);
    for (size_t i = 0; i < plain.size(); ++i)
        if (plain[i] != memo[i]) {
            ADD_FAILURE() << "first difference at byte " << i << " (buffer row " << i / pitch
                          << ", column " << (i % pitch) / 3 << "): plain " << int(plain[i])
                          << ", memo " << int(memo[i]);
            return;
        }
}

} // namespace

TEST(ColourMemo, SameBytesAsThePlainPath)
{
    const std::vector<Case> cases = {
        {1, 1, CRect(0, 0, 1, 1)},     {7, 5, CRect(0, 0, 7, 5)},   {7, 5, CRect(2, 1, 7, 4)},
        {13, 9, CRect(0, 3, 5, 9)},    {1, 40, CRect(0, 0, 1, 40)}, {41, 1, CRect(3, 0, 41, 1)},
        {301, 217, CRect(0, 0, 301, 217)}, {301, 217, CRect(17, 5, 290, 200)},
        // Enough random colours that the memo gives up part way and finishes plainly.
        {331, 250, CRect(1, 2, 330, 249)},
    };
    const detail::ModelFn models[] = {detail::scale_hue, detail::scale_lightness};
    const int levels[] = {0, 37, 100, 200, 1000};
    unsigned seed = 1;
    for (const Case &c : cases)
        for (detail::ModelFn model : models)
            for (int level : levels)
                for (bool few : {false, true}) {
                    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " level "
                                                    << level << (few ? " few colours" : ""));
                    std::vector<uint8_t> plain = random_buffer(c.width, c.height, ++seed, few);
                    std::vector<uint8_t> memo = plain;
                    const double factor = detail::model_factor(level);
                    detail::apply_model_plain(
                        detail::view<detail::Bgr24>(c.width, c.height, plain.data()),
                        detail::half_open_runs(c.height, c.rect), factor, model);
                    ASSERT_TRUE(detail::apply_model_memo(
                        detail::view<detail::Bgr24>(c.width, c.height, memo.data()),
                        detail::half_open_runs(c.height, c.rect), factor, model));
                    expect_same(plain, memo, c.width);
                }
}

TEST(ColourMemo, PublicFormsGiveTheSameBytesWithTheSwitchOnOrOff)
{
    const int W = 311, H = 263; // above the size where the memo is chosen
    const std::vector<uint8_t> source = random_buffer(W, H, 77, true);
    CTraitementImg_24_Bpp t;
    CRect rc(0, 1, W, H - 2);
    for (int op = 0; op < 2; ++op) {
        std::vector<uint8_t> on = source, off = source;
        detail::set_colour_memo_enabled(false);
        op == 0 ? t.ReglageTeinte(150, W, H, off.data(), rc)
                : t.ReglageLuminance(80, W, H, off.data(), rc);
        detail::set_colour_memo_enabled(true);
        op == 0 ? t.ReglageTeinte(150, W, H, on.data(), rc)
                : t.ReglageLuminance(80, W, H, on.data(), rc);
        expect_same(off, on, W);
    }
}

TEST(ColourMemo, FallsBackToThePlainPathWhenItsTableCannotBeAllocated)
{
    const int W = 300, H = 300;
    const std::vector<uint8_t> source = random_buffer(W, H, 5, true);
    std::vector<uint8_t> plain = source, fallback = source;
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, W, H);
    detail::set_colour_memo_enabled(false);
    EXPECT_TRUE(t.ReglageLuminance(130, W, H, plain.data(), rc));
    detail::set_colour_memo_enabled(true);
    {
        kevra_test::FailAllocations fail(1);
        EXPECT_TRUE(t.ReglageLuminance(130, W, H, fallback.data(), rc));
        EXPECT_FALSE(detail::apply_model_memo(detail::view<detail::Bgr24>(W, H, fallback.data()),
                                              detail::half_open_runs(H, rc), 1.0,
                                              detail::scale_lightness));
    }
    expect_same(plain, fallback, W);
}
