// The memoised hue/lightness path against the plain one, byte for byte.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kevra/traitement.h"
#include "processing/detail/colour_walk.h"
#include "processing_test.h"

using kevra::CRect;
using proc_test::Buf;
namespace detail = kevra::detail;

namespace {

// Random pixels; with few_colours they are drawn from 300 colours so that the memo's hits and
// slot collisions are both exercised.
Buf random_buffer(long width, long height, uint32_t seed, bool few_colours)
{
    Buf b(width, height, 24, seed);
    std::mt19937 rng(seed);
    std::vector<uint32_t> palette(300);
    for (auto &c : palette)
        c = rng();
    for (long r = 0; r < height && few_colours; ++r)
        for (long x = 0; x < width; ++x) {
            const uint32_t colour = palette[rng() % 300];
            for (int c = 0; c < 3; ++c)
                b.set(x, r, static_cast<int>(colour >> 8 * c & 0xFF), c);
        }
    return b;
}

bool run(bool memo, Buf &b, const CRect &rc, double factor, detail::ModelFn model)
{
    const auto v = detail::view<detail::Bgr24>(b.w, b.h, b.bits());
    if (memo)
        return detail::apply_model_memo(v, detail::half_open_runs(b.h, rc), factor, model);
    detail::apply_model_plain(v, detail::half_open_runs(b.h, rc), factor, model);
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
        // Enough random colours that the memo gives up part way and finishes plainly.
        {331, 250, CRect(1, 2, 330, 249)},
    };
    uint32_t seed = 1;
    for (const Case &c : cases)
        for (detail::ModelFn model : {detail::scale_hue, detail::scale_lightness})
            for (int level : {0, 37, 100, 200, 1000})
                for (bool few : {false, true}) {
                    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " level " << level << (few ? " few colours" : ""));
                    Buf plain = random_buffer(c.width, c.height, ++seed, few), memo = plain;
                    run(false, plain, c.rect, detail::model_factor(level), model);
                    ASSERT_TRUE(run(true, memo, c.rect, detail::model_factor(level), model));
                    ASSERT_EQ(proc_test::first_difference(plain.rows(), memo.rows(), plain.pitch), "");
                    ASSERT_TRUE(memo.intact());
                }
}

// Through the public forms (above the size where the memo is chosen), with the switch on or
// off, and with the memo's table made to fail: the bytes of the plain path each time.
TEST(ColourMemo, PublicFormsAndAllocationFallback)
{
    const Buf source = random_buffer(311, 263, 77, true);
    kevra::CTraitementImg_24_Bpp t;
    CRect rc(0, 1, 311, 261);
    for (int op = 0; op < 2; ++op)
        for (int mode = 0; mode < 2; ++mode) {
            Buf plain = source, other = source;
            auto call = [&](Buf &b) { return op == 0 ? t.ReglageTeinte(150, b.w, b.h, b.bits(), rc) : t.ReglageLuminance(130, b.w, b.h, b.bits(), rc); };
            detail::set_colour_memo_enabled(false);
            EXPECT_TRUE(call(plain));
            detail::set_colour_memo_enabled(true);
            proc_test::FailIf fail([mode](std::size_t) { return mode == 1; });
            EXPECT_TRUE(call(other));
            EXPECT_FALSE(mode == 1 && run(true, other, rc, 1.0, detail::scale_lightness));
            EXPECT_EQ(proc_test::first_difference(plain.rows(), other.rows(), plain.pitch), "") << op << mode;
        }
}
