// The other commands of `kevra`: info, convert, palette, histogram, lut,
// demo and the help text.
#include "cli_support.h"

#include "kevra/lut.h"

namespace cli_test {
namespace {

class CliCommands : public ::testing::Test {
protected:
    void SetUp() override { KEVRA_CLI_REQUIRED(); }
    TempDir dir;
};

void write_levels(const std::string & path, int width, int height, int bits, const std::vector<int> & levels)
{
    kevra::CDib image(width, height, bits);
    ASSERT_TRUE(image.IsOK());
    for (int i = 0; i < width * height; ++i) {
        unsigned char * p = image.GetPixelPtr(i % width, i / width);
        if (bits == 16) {
            p[0] = static_cast<unsigned char>(levels[i] & 0xFF);
            p[1] = static_cast<unsigned char>(levels[i] >> 8);
        } else {
            p[0] = static_cast<unsigned char>(levels[i]);
        }
    }
    image.SetXPelsPerMeter(3780);
    image.SetYPelsPerMeter(3780);
    ASSERT_TRUE(image.Save(wide(path).c_str(), 0));
}

// Pixel (x, y) of a 24-bit file, y from the top, as 0xRRGGBB.
uint32_t pixel(const std::vector<uint8_t> & bmp, int x, int y)
{
    const int width = bmp[18] | (bmp[19] << 8);
    const int height = bmp[22] | (bmp[23] << 8);
    const int pitch = (3 * width + 3) & ~3;
    const std::size_t at = 54 + static_cast<std::size_t>(pitch) * (height - 1 - y) + 3 * x;
    return (static_cast<uint32_t>(bmp[at + 2]) << 16) | (bmp[at + 1] << 8) | bmp[at];
}

TEST_F(CliCommands, InfoGivesSizeDepthPaletteResolutionZoneAndStatistics)
{
    const std::string in = dir.file("levels.bmp");
    write_levels(in, 4, 2, 8, {0, 10, 10, 20, 30, 40, 250, 255});
    CliRun r = run_cli({"info", in}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "file:        " + in + "\n"
                     "size:        4 x 2 pixels\n"
                     "depth:       8 bits (grey levels 0-255)\n"
                     "palette:     grey ramp (palette 11)\n"
                     "resolution:  3780 x 3780 pixels per metre (96 x 96 dpi)\n"
                     "zone:        0,0,3,1 (whole image, 4 x 2 pixels)\n"
                     "grey:        min 0, max 255, mean 76.88, percentiles 1%=0 5%=0 25%=10 50%=20 75%=40 "
                     "95%=255 99%=255\n");

    // Memory row 0 is the bottom row: the zone's top row holds 30, 40, 250.
    r = run_cli({"info", in, "--zone", "0,0,2,0"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("zone:        0,0,2,0 (3 x 1 pixels)\n"
                         "grey:        min 30, max 250, mean 106.67,"),
              std::string::npos)
        << r.out;

    const std::string inverted = dir.file("inverted.bmp");
    ASSERT_EQ(run_cli({"palette", in, inverted, "--palette", "inverted"}, dir).code, 0);
    r = run_cli({"info", inverted}, dir);
    EXPECT_NE(r.out.find("palette:     inverted grey ramp (palette 12)\n"), std::string::npos) << r.out;

    const std::string colour = dir.file("colour.bmp");
    write_picture(colour, 9, 5, 24, 1);
    r = run_cli({"info", colour}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char * line : {"depth:       24 bits", "palette:     none", "\nblue:", "\ngreen:", "\nred:", "\nluminance:"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << " in\n" << r.out;
}

TEST_F(CliCommands, ConvertMatchesTheLibraryAndKeepsTheResolution)
{
    const std::string in = dir.file("in8.bmp");
    write_levels(in, 5, 3, 8, {0, 1, 2, 3, 4, 100, 101, 102, 103, 104, 250, 251, 252, 254, 255});
    CliRun r = run_cli({"convert", in, dir.file("out16.bmp"), "--bits", "16"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;

    kevra::CDib source;
    ASSERT_TRUE(source.Load(wide(in).c_str(), 0));
    kevra::CDib target(source.Size(), 16);
    ASSERT_TRUE(target.CopyToDifferentBpp(source));
    target.SetXPelsPerMeter(3780);
    target.SetYPelsPerMeter(3780);
    ASSERT_TRUE(target.Save(wide(dir.file("expected.bmp")).c_str(), 0));
    EXPECT_EQ(read_file(dir.file("out16.bmp")), read_file(dir.file("expected.bmp")));

    // And back: the high byte of each sample, the original levels.
    r = run_cli({"convert", dir.file("out16.bmp"), dir.file("back8.bmp"), "--bits", "8"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(read_file(dir.file("back8.bmp")), read_file(in));

    const std::string colour = dir.file("colour.bmp");
    write_picture(colour, 4, 4, 24, 2);
    r = run_cli({"convert", colour, dir.file("x.bmp"), "--bits", "8"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + colour + ": 24-bit images are not supported here (8 or 16 bits)\n");
    r = run_cli({"convert", in, dir.file("x.bmp"), "--bits", "12"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_FALSE(exists(dir.file("x.bmp")));
}

TEST_F(CliCommands, PaletteMatchesTheLibrary)
{
    const std::string in = dir.file("in16.bmp");
    write_picture(in, 7, 6, 16, 3);
    const CliRun r = run_cli({"palette", in, dir.file("out.bmp"), "--palette", "21"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    kevra::CDib image;
    ASSERT_TRUE(image.Load(wide(in).c_str(), 0));
    image.SetDisplayPalette(kevra::e_Palette21);
    ASSERT_TRUE(image.Save(wide(dir.file("expected.bmp")).c_str(), 0));
    EXPECT_EQ(read_file(dir.file("out.bmp")), read_file(dir.file("expected.bmp")));

    const CliRun bad = run_cli({"palette", in, dir.file("bad.bmp"), "--palette", "13"}, dir);
    EXPECT_EQ(bad.code, 2);
    EXPECT_EQ(bad.err, "kevra: --palette: '13' is not a predefined palette (11, 12, 21, 22, 23, or grey, inverted, "
                       "false-colour-1, false-colour-2, blue)\n");
}

TEST_F(CliCommands, HistogramBarsStandWhereTheLevelsAre)
{
    const std::string in = dir.file("flat.bmp");
    write_levels(in, 10, 10, 8, std::vector<int>(100, 100));
    const CliRun r = run_cli({"histogram", in, dir.file("h.bmp")}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
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
    CliRun r = run_cli({"lut", dir.file("grey.bmp"), "--bits", "8", "--size", "100x80"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<uint8_t> g = read_file(dir.file("grey.bmp"));
    // Inside the frame (7, 7)-(93, 73): entry 128 of the identity table at
    // x = 128 * 86 / 256 + 7 = 50, y = 73 - 128 * 66 / 256 = 40.
    EXPECT_EQ(pixel(g, 50, 40), 0xE0E0E0u);

    r = run_cli({"lut", dir.file("colour.bmp"), "--negative", "--red", "20", "--blue=-30"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<uint8_t> c = read_file(dir.file("colour.bmp"));
    int red = 0, green = 0, blue = 0;
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) {
            const uint32_t p = pixel(c, x, y);
            red += p == 0xFF0000;
            green += p == 0x00FF00;
            blue += p == 0x0000FF;
        }
    EXPECT_GT(red, 100);
    EXPECT_GT(green, 100);
    EXPECT_GT(blue, 100);

    r = run_cli({"lut", dir.file("x.bmp"), "--bits", "16", "--red", "5"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: --red needs --bits 24 (grey tables have one curve)\n");
}

TEST_F(CliCommands, DemoWritesItsPicturesAndPageTheSameEveryTime)
{
    const std::string out = dir.file("demo");
    const CliRun r = run_cli({"demo", out}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<uint8_t> page_bytes = read_file(out + "/index.html");
    const std::string page(page_bytes.begin(), page_bytes.end());
    const std::vector<std::string> pictures = {
        "xray.bmp",          "xray-view.bmp",   "xray-histogram.bmp",   "xray-result.bmp",
        "xray-result-view.bmp", "xray-result-histogram.bmp", "xray-curve.bmp", "photo.bmp",
        "photo-histogram.bmp", "photo-result.bmp", "photo-result-histogram.bmp", "photo-curves.bmp"};
    for (const std::string & p : pictures) {
        EXPECT_TRUE(exists(out + "/" + p)) << p;
        EXPECT_NE(page.find("\"" + p + "\""), std::string::npos) << p;
    }
    kevra::CDib xray;
    ASSERT_TRUE(xray.Load(wide(out + "/xray.bmp").c_str(), 0));
    EXPECT_EQ(xray.BitCount(), 16);
    kevra::CDib view;
    ASSERT_TRUE(view.Load(wide(out + "/xray-view.bmp").c_str(), 0));
    EXPECT_EQ(view.BitCount(), 8);
    kevra::CDib photo;
    ASSERT_TRUE(photo.Load(wide(out + "/photo.bmp").c_str(), 0));
    EXPECT_EQ(photo.BitCount(), 24);

    // The command shown for each chain gives the demo's result.
    std::size_t at = 0;
    int commands = 0;
    while ((at = r.out.find("  kevra process ", at)) != std::string::npos) {
        const std::size_t end = r.out.find('\n', at);
        std::vector<std::string> args;
        std::string word;
        for (char ch : r.out.substr(at + 16, end - at - 16) + " ") {
            if (ch == ' ') {
                if (!word.empty())
                    args.push_back(word);
                word.clear();
            } else {
                word += ch;
            }
        }
        ASSERT_GE(args.size(), 2u);
        const std::string shown = args[1];
        args[1] = "again.bmp";
        args.insert(args.begin(), "process");
        const CliRun again = run_cli(args, dir, out);
        ASSERT_EQ(again.code, 0) << again.err;
        EXPECT_EQ(read_file(out + "/again.bmp"), read_file(out + "/" + shown)) << shown;
        ++commands;
        at = end;
    }
    EXPECT_EQ(commands, 2);

    const std::string out2 = dir.file("demo2");
    ASSERT_EQ(run_cli({"demo", out2}, dir).code, 0);
    for (const std::string & p : pictures)
        EXPECT_EQ(read_file(out + "/" + p), read_file(out2 + "/" + p)) << p;
}

TEST_F(CliCommands, HelpDocumentsEveryStep)
{
    const CliRun r = run_cli({"process", "--help"}, dir);
    EXPECT_EQ(r.code, 0);
    for (const char * step : {"--mirror-vertical", "--mirror-horizontal", "--rotate", "--median", "--filter",
                              "--unsharp ", "--unsharp-disc", "--resample", "--black-white", "--negative",
                              "--saturation", "--hue", "--whiten", "--lut-palette", "--brightness", "--contrast",
                              "--gamma", "--red", "--green", "--blue", "--stretch", "--pseudo3d", "--zone",
                              "--verbose", "--trace", "--out-dir", "--jobs"})
        EXPECT_NE(r.out.find(step), std::string::npos) << step;
    const CliRun top = run_cli({"--help"}, dir);
    EXPECT_EQ(top.code, 0);
    for (const char * command : {"process", "info", "histogram", "lut", "convert", "palette", "demo"})
        EXPECT_NE(top.out.find(command), std::string::npos) << command;
    const CliRun none = run_cli({}, dir);
    EXPECT_EQ(none.code, 2);
}

} // namespace
} // namespace cli_test
