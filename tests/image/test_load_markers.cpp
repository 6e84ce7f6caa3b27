#include <gtest/gtest.h>

#include <string>

#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::read_file;
using kevra_test::TempDir;

namespace {
std::string text_of(const std::string & path)
{
    const std::vector<uint8_t> b = read_file(path);
    return std::string(b.begin(), b.end());
}
const std::string kBegin = "=================== [BEGIN] CDibRoot::Load ===================\n";
const std::string kEnd = "=================== [END] CDibRoot::Load ===================\n";
} // namespace

TEST(LoadMarkers, TwoLoadsAppendTwoPairs)
{
    TempDir dir, device;
    kevra_test::DeviceRoot root(device.path().string());
    CDibRoot d(CSize(2, 2), 8);
    ASSERT_TRUE(d.Save(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_FALSE(kevra_test::fs::exists(device.file("trace.txt"))); // Save writes no trace
    EXPECT_TRUE(d.Load(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_FALSE(d.Load(dir.wfile("missing.bmp").c_str(), 0));
    EXPECT_EQ(text_of(device.file("trace.txt")), kBegin + kEnd + kBegin + kEnd);
    EXPECT_FALSE(kevra_test::fs::exists(device.file("traceLoadNULL.txt")));
}

TEST(LoadMarkers, UnopenableTraceLeavesTheNullMarker)
{
    TempDir dir, device;
    kevra_test::DeviceRoot root(device.path().string());
    kevra_test::fs::create_directory(device.file("trace.txt")); // cannot be opened as a file
    CDibRoot d(CSize(2, 2), 8);
    ASSERT_TRUE(d.Save(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_TRUE(d.Load(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_TRUE(kevra_test::fs::exists(device.file("traceLoadNULL.txt")));
    EXPECT_EQ(kevra_test::fs::file_size(device.file("traceLoadNULL.txt")), 0u);
}

TEST(LoadMarkers, NoDeviceRootNoFiles)
{
    TempDir dir;
    kevra_test::DeviceRoot root("");
    EXPECT_EQ(platform::map_device_path("c:\\trace.txt"), "");
    CDibRoot d(CSize(2, 2), 8);
    ASSERT_TRUE(d.Save(dir.wfile("a.bmp").c_str(), 0));
    EXPECT_TRUE(d.Load(dir.wfile("a.bmp").c_str(), 0));
}

TEST(LoadMarkers, DevicePathsMapUnderTheRoot)
{
    kevra_test::DeviceRoot root("/tmp/dev/");
    EXPECT_EQ(platform::map_device_path("c:\\trace.txt"), "/tmp/dev/trace.txt");
    EXPECT_EQ(platform::map_device_path("C:\\a\\b.txt"), "/tmp/dev/a/b.txt");
    EXPECT_EQ(platform::map_device_path("d:\\x.txt"), "");
}

TEST(LoadMarkers, LoadIntoEmptyImageMakesAStore)
{
    TempDir dir;
    CDibRoot src(CSize(6, 2), 24);
    ASSERT_TRUE(src.Save(dir.wfile("s.bmp").c_str(), 0));
    CDibRoot d;
    EXPECT_TRUE(d.Load(dir.wfile("s.bmp").c_str(), 0));
    EXPECT_EQ(d.Width(), 6);
    CDibRoot e;
    EXPECT_FALSE(e.Load(dir.wfile("nothing.bmp").c_str(), 0));
    EXPECT_EQ(e.BitCount(), 0);
    EXPECT_STREQ(e.GetLastError(), ""); // a store exists now, with no text
    EXPECT_FALSE(e.Save(dir.wfile("e.bmp").c_str(), 0)); // no pixels to write
}
