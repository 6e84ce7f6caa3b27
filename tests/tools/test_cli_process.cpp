// `kevra process` end to end: the program's output files against the library
// run directly on the same input, its report and trace, and batches.
#include "cli_support.h"

namespace cli_test {
namespace {

class CliProcess : public CliTest {};

// Each chain at each depth, its options given out of the execution order
// (values by position or by name), gives the bytes of the library's own run
// with the steps it names.
TEST_F(CliProcess, ChainsMatchTheLibrary)
{
    const kevra::CRect zone(2, 3, 30, 25);
    const struct Case {
        int bits, width, height;
        std::vector<std::string> args;
        std::vector<Step> steps;
        const kevra::CRect * zone;
    } cases[] = {
        {8, 40, 33,
         {"--zone", "2,3,30,25", "--rotate", "90", "--mirror-vertical", "--mirror-horizontal", "--median", "0.2,3",
          "--filter", "gaussian,5,1.2", "--unsharp-disc", "10,12,8,2,1.5,1,4,4", "--resample", "30x20,2",
          "--negative", "--brightness", "0.05", "--contrast", "1.2", "--gamma", "0.9", "--stretch", "0.01,0.99"},
         {{S::e_Mirroir_Vertical, params()}, {S::e_Mirroir_Horizontal, params()}, {S::e_QuickRotate, rotate(0)},
          {S::e_FiltreMedian, median(0.2, 3)}, {S::e_Filtre, filter(kevra::CFiltre::Filtre_Gaussien, 5, 1.2f)},
          {S::e_UnsharpMaskingCircle, unsharp(2.0f, 1.5f, 1.0f, 4.0f, 4.0f, 10, 12, 8)},
          {S::e_Resample, resample(30, 20, 2)}, {S::e_Negatif, params()},
          {S::e_LUT_LuminositeContrasteGamma, tone(0.05f, 1.2f, 0.9f)},
          {S::e_EgalisationHistogramme, stretch(0.01f, 0.99f)}},
         &zone},
        {16, 37, 29,
         {"--median", "radius=3,Ecart=0.25", "--filter", "gradient-diagonal", "--unsharp",
          "SeuilN=20,gainP=1.5,rayon=2,gain-=1,threshold+=10", "--gamma", "0.8",
          "--stretch", "0.005,0.995", "--threads", "2"},
         {{S::e_FiltreMedian, median(0.25, 3)}, {S::e_Filtre, filter(kevra::CFiltre::Filtre_GradientDiagonal, 3, 1.0f)},
          {S::e_UnsharpMasking, unsharp(2.0f, 1.5f, 1.0f, 10.0f, 20.0f)},
          {S::e_LUT_LuminositeContrasteGamma, tone(0.0f, 1.0f, 0.8f)},
          {S::e_EgalisationHistogramme, stretch(0.005f, 0.995f)}},
         nullptr},
        {24, 31, 22,
         {"--saturation", "80", "--hue", "90", "--whiten", "110", "--red=-5", "--green", "3", "--blue", "7",
          "--brightness", "0.02", "--contrast", "1.1", "--gamma", "0.9", "--lut-palette", "22", "--stretch",
          "0.02,0.98"},
         {{S::e_Saturation, percent(80)}, {S::e_Teinte, percent(90)}, {S::e_Blanchiment, level(110)},
          {S::e_LUT, palette(nullptr, kevra::e_Palette22)},
          {S::e_LUT_LuminositeContrasteGamma, tone(0.02f, 1.1f, 0.9f)},
          {S::e_LUT_RougeVertBleu, levels(-5, 3, 7)}, {S::e_EgalisationHistogramme, stretch(0.02f, 0.98f)}},
         nullptr},
        {24, 31, 22,
         {"--black-white", "--negative", "--filter", "mean", "--unsharp", "2,1.5", "--resample", "20x15", "--rotate",
          "270"},
         {{S::e_QuickRotate, rotate(2)}, {S::e_Filtre, filter(kevra::CFiltre::Filtre_Moyenne, 3, 1.0f)},
          {S::e_UnsharpMasking, unsharp(2.0f, 1.5f, 1.5f, 0.0f, 0.0f)}, {S::e_Resample, resample(20, 15, 0)},
          {S::e_NoirEtBlanc, params()}, {S::e_Negatif, params()}},
         nullptr},
    };
    int seed = 0;
    for (const Case & c : cases) {
        SCOPED_TRACE(c.args.front());
        const std::string in = dir.file("in.bmp"), out = dir.file("out.bmp");
        write_picture(in, c.width, c.height, c.bits, ++seed);
        std::remove(out.c_str());
        std::vector<std::string> args = {"process", in, out};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const CliRun r = run_ok(args, dir);
        EXPECT_EQ(r.err, "");
        const std::vector<uint8_t> expected = library_result(in, c.steps, c.zone, dir);
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(read_file(out), expected);
    }
}

TEST_F(CliProcess, VerboseAndTrace)
{
    const std::string in = dir.file("in.bmp"), out = dir.file("out.bmp"), trace = dir.file("trace.txt");
    write_picture(in, 30, 20, 8, 8);
    const CliRun r = run_ok(
        {"process", in, out, "-v", "--trace", trace, "--rotate", "90", "--median", "0.2,3", "--gamma", "0.9"}, dir);
    EXPECT_EQ(r.out.find(out + ": 20 x 30 pixels\n"), 0u) << r.out;
    for (const char * label : {"\n  --rotate 90 ", "\n  --median 0.2,3 ", "\n  look-up table ", "\n  total "})
        EXPECT_NE(r.out.find(label), std::string::npos) << label << " in\n" << r.out;

    const std::string text = read_text(trace);
    EXPECT_EQ(text.find("### kevra process : " + in + " -> " + out + "\n"), 0u);
    EXPECT_NE(text.find("### Fin de FiltrerBuffer"), std::string::npos);
}

// Several inputs: each output matches the library, a bad file does not stop
// the others, and an output that would replace an input is refused.
TEST_F(CliProcess, SeveralFilesInParallelCarryOnAfterAFailure)
{
    std::vector<std::string> inputs;
    for (int i = 0; i < 5; ++i) {
        inputs.push_back(dir.file("in" + std::to_string(i) + ".bmp"));
        write_picture(inputs.back(), 21 + i, 17, i == 3 ? 24 : 8, 10 + i);
    }
    const std::string bad = dir.file("bad.bmp");
    write_file(bad, {'B', 'M', 0});
    std::vector<std::string> args = {"process", "--out-dir", dir.file("out"), "--jobs", "3"};
    args.insert(args.end(), inputs.begin(), inputs.end());
    args.insert(args.end(), {bad, "--median", "0.2,3", "--negative"});
    const std::vector<Step> steps = {{S::e_FiltreMedian, median(0.2, 3)}, {S::e_Negatif, params()}};
    CliRun r = run_cli(args, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + bad + ": not a BMP file (header cut short)\nkevra: 5 of 6 files written, 1 failed\n");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(read_file(dir.file("out/in" + std::to_string(i) + ".bmp")),
                  library_result(inputs[i], steps, nullptr, dir)) << i;
    EXPECT_EQ(listing(dir.file("out")).size(), 5u);

    // Away from a terminal a clean batch ends with one line (none with -q);
    // -v counts the files.
    r = run_ok({"process", "--out-dir", dir.file("out2"), "-j", "1", "-v", inputs[0], inputs[1], "--negative"},
               dir);
    EXPECT_EQ(r.err, "kevra: 2 of 2 files written\n");
    EXPECT_EQ(r.out.rfind("[1/2] " + dir.file("out2/in0.bmp") + ": 21 x 17 pixels, ", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\n[2/2] " + dir.file("out2/in1.bmp") + ": 22 x 17 pixels, "), std::string::npos) << r.out;
    r = run_ok({"process", "--out-dir", dir.file("out2"), "-q", inputs[0], "--negative"}, dir);
    EXPECT_EQ(r.err, "");

    const std::vector<uint8_t> before = read_file(inputs[0]);
    r = run_cli({"process", "--out-dir", dir.path().string(), inputs[0], "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + inputs[0] + ": its output " + dir.path().string() + "/in0.bmp would replace an input "
                     "(choose another --out-dir)\nkevra: 0 of 1 files written, 1 failed\n");
    EXPECT_EQ(read_file(inputs[0]), before);
}

} // namespace
} // namespace cli_test
