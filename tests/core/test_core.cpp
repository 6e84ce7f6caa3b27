// The shared core: every float-to-integer rule, the clamps and the fast-path switch.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/fast_path.h"
#include "core/float_store.h"
#include "kevra/platform.h"

using namespace kevra::detail;

namespace {
const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();
} // namespace

// Sample stores: truncation toward zero, then the low bits; the same for float and double.
TEST(FloatStore, SamplesTruncateAndKeepTheLowBits)
{
    struct Row {
        double in;
        unsigned u8, u16;
    };
    const Row rows[] = {
        {300.7, 44, 300},    {255.9, 255, 255},  {0.99, 0, 0},       {65536.5, 0, 0},  {70000.0, 112, 4464},
        {-1.5, 0xFF, 0xFFFF}, {-2.0, 0xFE, 0xFFFE}, {1e30, 0, 0},     {-1e30, 0, 0},    {std::nan(""), 0, 0},
    };
    for (const Row &r : rows) {
        const float f = static_cast<float>(r.in);
        EXPECT_EQ(store_u8(f), r.u8) << r.in;
        EXPECT_EQ(store_u16(f), r.u16) << r.in;
        EXPECT_EQ(store_u8(r.in), r.u8) << r.in;
        EXPECT_EQ(store_u16(r.in), r.u16) << r.in;
        EXPECT_EQ(store_sample<uint16_t>(f), r.u16) << r.in;
        if (!(f < 0.0f || f > 65535.0f)) { // the values a clipped store takes
            EXPECT_EQ(store_clipped_sample<uint8_t>(f), r.u8) << r.in;
            EXPECT_EQ(store_clipped_sample<uint16_t>(f), r.u16) << r.in;
        }
    }
}

// Signed values saturate at the int32_t ends and NaN gives 0; counts saturate in 32 unsigned
// bits before keeping 16; rounding is half up.
TEST(FloatStore, SignedValuesCountsAndRounding)
{
    const std::pair<float, int32_t> signed_values[] = {
        {-2.9f, -2}, {2147483520.0f, 2147483520}, {2147483648.0f, INT32_MAX},
        {-2147483648.0f, INT32_MIN}, {-kInf, INT32_MIN}, {kNaN, 0}};
    for (const auto &[in, want] : signed_values)
        EXPECT_EQ(truncate_i32(in), want) << in;
    EXPECT_EQ(truncate_i32(2147483647.5), INT32_MAX);
    const std::pair<float, int> counts[] = {
        {0.9f, 0}, {-5.0f, 0}, {kNaN, 0}, {65537.9f, 1}, {5e9f, 0xFFFF}};
    for (const auto &[in, want] : counts)
        EXPECT_EQ(count_u16(in), want) << in;
    EXPECT_EQ(round_half_up_i32(72 * 39.37007874015748), 2835);
    EXPECT_EQ(round_half_up_i32(-0.5), 0);
    EXPECT_EQ(round_half_up_i32(-0.51), -1);
    EXPECT_EQ(round_half_up_i32(1e300), INT32_MAX);
}

// The scope sets the switch and restores the previous value, nested or not. A plain-only
// build keeps it off whatever is asked.
TEST(FastPath, ScopeRestoresThePreviousValue)
{
    const bool initial = fast_paths_enabled();
    {
        FastPathScope off(false);
        EXPECT_FALSE(fast_paths_enabled());
        {
            FastPathScope on(true);
#if defined(KEVRA_PLAIN_ONLY) && KEVRA_PLAIN_ONLY
            EXPECT_FALSE(fast_paths_enabled());
#else
            EXPECT_TRUE(fast_paths_enabled());
#endif
        }
        EXPECT_FALSE(fast_paths_enabled());
    }
    EXPECT_EQ(fast_paths_enabled(), initial);
}

// File names cross the API as wide strings: UTF-8 in and out, invalid input refused.
TEST(Utf8, FileNamesBothWays)
{
    const std::wstring wide = L"r\u00e9sultat-\u65e5-\U0001F600.bmp";
    const std::string utf8 = kevra::platform::to_utf8(wide.c_str());
    EXPECT_EQ(utf8, "r\xC3\xA9sultat-\xE6\x97\xA5-\xF0\x9F\x98\x80.bmp");
    std::wstring back;
    ASSERT_TRUE(kevra::platform::from_utf8(utf8, back));
    EXPECT_EQ(back, wide);
    for (const char * bad : {"\xC3", "a\xE6\x97", "\x80", "\xF8\x88\x80\x80\x80", "\xC3\x28"})
        EXPECT_FALSE(kevra::platform::from_utf8(bad, back)) << bad;
}
