// The other commands of `kevra`: info, convert, palette, histogram, lut and
// demo, and the help (their usage errors are with those of process).
#include "cli_support.h"

#include <map>
#include <sstream>

namespace cli_test {
namespace {

class CliCommands : public CliTest {};

// An 8-bit file holding these levels, memory row 0 (the bottom) first, at 96 dpi.
void write_levels(const std::string & path, int width, int height, const std::vector<int> & levels)
{
    kevra::CDib image(width, height, 8);
    ASSERT_TRUE(image.IsOK());
    for (int i = 0; i < width * height; ++i)
        *image.GetPixelPtr(i % width, i / width) = static_cast<unsigned char>(levels[i]);
    image.SetXPelsPerMeter(3780);
    image.SetYPelsPerMeter(3780);
    ASSERT_TRUE(image.Save(wide(path).c_str(), 0));
}

// Pixel (x, y) of a 24-bit file, y from the top, as 0xRRGGBB.
uint32_t pixel(const std::vector<uint8_t> & bmp, int x, int y)
{
    const int width = bmp[18] | (bmp[19] << 8), height = bmp[22] | (bmp[23] << 8);
    const std::size_t at = 54 + static_cast<std::size_t>((3 * width + 3) & ~3) * (height - 1 - y) + 3 * x;
    return (static_cast<uint32_t>(bmp[at + 2]) << 16) | (bmp[at + 1] << 8) | bmp[at];
}

TEST_F(CliCommands, InfoGivesSizeDepthPaletteResolutionZoneAndStatistics)
{
    const std::string in = dir.file("levels.bmp");
    write_levels(in, 4, 2, {0, 10, 10, 20, 30, 40, 250, 255});
    CliRun r = run_ok({"info", in}, dir);
    EXPECT_EQ(r.out, "file:        " + in + "\n"
                     "format:      BMP, 8-bit grey\n"
                     "size:        4 x 2 pixels\n"
                     "depth:       8 bits (grey levels 0-255)\n"
                     "palette:     grey ramp (palette 11)\n"
                     "resolution:  3780 x 3780 pixels per metre (96 x 96 dpi)\n"
                     "zone:        0,0,3,1 (whole image, 4 x 2 pixels)\n"
                     "grey:        min 0, max 255, mean 76.88, percentiles 1%=0 5%=0 25%=10 50%=20 75%=40 "
                     "95%=255 99%=255\n");

    // Memory row 0 is the bottom row: the zone's top row holds 30, 40, 250.
    r = run_ok({"info", in, "--zone", "0,0,2,0"}, dir);
    const std::string zone = "zone:        0,0,2,0 (3 x 1 pixels)\n"
                             "grey:        min 30, max 250, mean 106.67,";
    EXPECT_NE(r.out.find(zone), std::string::npos) << r.out;

    const std::string inverted = dir.file("inverted.bmp");
    run_ok({"palette", in, inverted, "--palette", "inverted"}, dir);
    r = run_ok({"info", inverted}, dir);
    EXPECT_NE(r.out.find("palette:     inverted grey ramp (palette 12)\n"), std::string::npos) << r.out;

    const std::string colour = dir.file("colour.bmp");
    write_picture(colour, 9, 5, 24, 1);
    r = run_ok({"info", colour}, dir);
    for (const char * line :
         {"depth:       24 bits", "palette:     none", "\nblue:", "\ngreen:", "\nred:", "\nluminance:"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << " in\n" << r.out;

    // A top-down file of another tool is read like any other.
    r = run_ok({"info", std::string(KEVRA_TEST_DATA_DIR) + "/rgb24_topdown.bmp"}, dir);
    EXPECT_NE(r.out.find("size:        3 x 2 pixels\n"), std::string::npos) << r.out;
}

TEST_F(CliCommands, ConvertAndPaletteMatchTheLibraryAndKeepTheResolution)
{
    const std::string in = dir.file("in8.bmp"), out16 = dir.file("out16.bmp"), expected = dir.file("expected.bmp");
    write_levels(in, 5, 3, {0, 1, 2, 3, 4, 100, 101, 102, 103, 104, 250, 251, 252, 254, 255});
    run_ok({"convert", in, out16, "--bits", "16"}, dir);
    kevra::CDib source;
    ASSERT_TRUE(source.Load(wide(in).c_str(), 0));
    kevra::CDib target(source.Size(), 16);
    ASSERT_TRUE(target.CopyToDifferentBpp(source));
    target.SetXPelsPerMeter(3780);
    target.SetYPelsPerMeter(3780);
    ASSERT_TRUE(target.Save(wide(expected).c_str(), 0));
    EXPECT_EQ(read_file(out16), read_file(expected));

    // And back: the high byte of each sample, the original file.
    run_ok({"convert", out16, dir.file("back8.bmp"), "--bits", "8"}, dir);
    EXPECT_EQ(read_file(dir.file("back8.bmp")), read_file(in));

    // A display palette, as the library sets it.
    const std::string in16 = dir.file("in16.bmp");
    write_picture(in16, 7, 6, 16, 3);
    run_ok({"palette", in16, dir.file("out.bmp"), "--palette", "21"}, dir);
    kevra::CDib image;
    ASSERT_TRUE(image.Load(wide(in16).c_str(), 0));
    image.SetDisplayPalette(kevra::e_Palette21);
    ASSERT_TRUE(image.Save(wide(expected).c_str(), 0));
    EXPECT_EQ(read_file(dir.file("out.bmp")), read_file(expected));
}

TEST_F(CliCommands, HistogramBarsStandWhereTheLevelsAre)
{
    const std::string in = dir.file("flat.bmp");
    write_levels(in, 10, 10, std::vector<int>(100, 100));
    run_ok({"histogram", in, dir.file("h.bmp")}, dir);
    const std::vector<uint8_t> h = read_file(dir.file("h.bmp"));
    ASSERT_GT(h.size(), 54u);
    EXPECT_EQ(h[18] | (h[19] << 8), 512);
    EXPECT_EQ(h[22] | (h[23] << 8), 200);
    EXPECT_EQ(h[28], 24);
    // 500 columns for 256 levels: level 100 fills columns 196 and 197, from
    // the baseline up to the top of the plot.
    const uint32_t background = 0x181818;
    EXPECT_NE(pixel(h, 6 + 196, 193), background);
    EXPECT_NE(pixel(h, 6 + 197, 6), background);
    EXPECT_EQ(pixel(h, 6 + 198, 193), background);
    EXPECT_EQ(pixel(h, 6 + 195, 193), background);
}

TEST_F(CliCommands, LutCurvesAreDrawnByTheTables)
{
    CliRun r = run_ok({"lut", dir.file("grey.bmp"), "--bits", "8", "--size", "100x80"}, dir);
    // Inside the frame (7, 7)-(93, 73): entry 128 of the identity table at
    // x = 128 * 86 / 256 + 7 = 50, y = 73 - 128 * 66 / 256 = 40.
    EXPECT_EQ(pixel(read_file(dir.file("grey.bmp")), 50, 40), 0xE0E0E0u);

    r = run_ok({"lut", dir.file("colour.bmp"), "--negative", "--red", "20", "--blue=-30"}, dir);
    const std::vector<uint8_t> c = read_file(dir.file("colour.bmp"));
    std::map<uint32_t, int> count;
    for (int i = 0; i < 256 * 256; ++i)
        ++count[pixel(c, i % 256, i / 256)];
    for (uint32_t curve : {0xFF0000u, 0x00FF00u, 0x0000FFu})
        EXPECT_GT(count[curve], 100) << std::hex << curve;
}

// Every picture is written and shown on the page, the command shown for each
// chain gives the demo's result, and a second demo gives the same bytes.
TEST_F(CliCommands, DemoWritesItsPicturesAndPageTheSameEveryTime)
{
    const std::string out = dir.file("demo");
    const CliRun r = run_ok({"demo", out}, dir);
    const std::string page = read_text(out + "/index.html");
    const std::vector<std::string> pictures = {
        "xray.bmp", "xray-view.bmp", "xray-histogram.bmp", "xray-result.bmp", "xray-result-view.bmp",
        "xray-result-histogram.bmp", "xray-curve.bmp", "photo.bmp", "photo-histogram.bmp", "photo-result.bmp",
        "photo-result-histogram.bmp", "photo-curves.bmp"};
    for (const std::string & p : pictures) {
        EXPECT_TRUE(fs::exists(out + "/" + p)) << p;
        EXPECT_NE(page.find("\"" + p + "\""), std::string::npos) << p;
    }
    std::size_t at = 0;
    int commands = 0;
    for (; (at = r.out.find("  kevra process ", at)) != std::string::npos; ++commands) {
        const std::size_t end = r.out.find('\n', at);
        std::istringstream line(r.out.substr(at + 16, end - at - 16));
        std::vector<std::string> args = {"process"};
        for (std::string word; line >> word;)
            args.push_back(word);
        ASSERT_GE(args.size(), 3u);
        const std::string shown = args[2];
        args[2] = "again.bmp";
        run_ok(args, dir, out);
        EXPECT_EQ(read_file(out + "/again.bmp"), read_file(out + "/" + shown)) << shown;
        at = end;
    }
    EXPECT_EQ(commands, 2);

    const std::string out2 = dir.file("demo2");
    run_ok({"demo", out2}, dir);
    for (const std::string & p : pictures)
        EXPECT_EQ(read_file(out + "/" + p), read_file(out2 + "/" + p)) << p;
}

// The version, and help that exits with 0 and names every command.
TEST_F(CliCommands, VersionAndHelp)
{
    CliRun r = run_ok({"--version"}, dir);
    EXPECT_EQ(r.out.rfind("kevra 0.1.0 (Kevra library 0.1.0)\nformats: read BMP", 0), 0u) << r.out;
    r = run_ok({"--help"}, dir);
    for (const char * command : {"process", "info", "histogram", "lut", "convert", "palette", "demo"})
        EXPECT_NE(r.out.find(command), std::string::npos) << command;
    r = run_ok({"help", "process"}, dir);
    EXPECT_NE(r.out.find("ImageMagick's -gamma"), std::string::npos);
    EXPECT_EQ(run_cli({"process", "--help"}, dir).code, 0);
}

} // namespace
} // namespace cli_test
