// `kevra process` end to end: the program's output files against the library
// run directly on the same input, and its failures.
#include "cli_support.h"

namespace cli_test {
namespace {

using S = kevra::CSequenceur;

Params params()
{
    return Params{};
}

class CliProcess : public ::testing::Test {
protected:
    void SetUp() override { KEVRA_CLI_REQUIRED(); }
    TempDir dir;
};

TEST_F(CliProcess, GreyGeometryAndNeighbourhoodChainMatchesTheLibrary)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 40, 33, 8, 1);
    const CliRun r = run_cli({"process", in, dir.file("out.bmp"), "--zone", "2,3,30,25", "--rotate", "90",
                           "--mirror-vertical", "--mirror-horizontal", "--median", "0.2,3", "--filter",
                           "gaussian,5,1.2", "--unsharp-disc", "10,12,8,2,1.5,1,4,4", "--resample", "30x20,2",
                           "--negative", "--brightness", "0.05", "--contrast", "1.2", "--gamma", "0.9",
                           "--stretch", "0.01,0.99"},
                          dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");

    std::vector<LibraryStep> steps;
    steps.push_back({S::e_Mirroir_Vertical, params()});
    steps.push_back({S::e_Mirroir_Horizontal, params()});
    Params p = params();
    p.angle = kevra::CTraitementImgBase::e_Angle90;
    steps.push_back({S::e_QuickRotate, p});
    p = params();
    p.Ecart = 0.2;
    p.TailleFiltre = 3;
    steps.push_back({S::e_FiltreMedian, p});
    p = params();
    p.filtre = kevra::CFiltre::Filtre_Gaussien;
    p.taille = 5;
    p.param = 1.2f;
    steps.push_back({S::e_Filtre, p});
    p = params();
    p.rayon = 2.0f;
    p.gainP = 1.5f;
    p.gainN = 1.0f;
    p.SeuilP = 4.0f;
    p.SeuilN = 4.0f;
    p.X = 10;
    p.Y = 12;
    p.Radius = 8;
    steps.push_back({S::e_UnsharpMaskingCircle, p});
    p = params();
    p.width = 30;
    p.height = 20;
    p.facteur = 2;
    steps.push_back({S::e_Resample, p});
    steps.push_back({S::e_Negatif, params()});
    p = params();
    p.luminosite = 0.05f;
    p.contraste = 1.2f;
    p.gamma = 0.9f;
    steps.push_back({S::e_LUT_LuminositeContrasteGamma, p});
    p = params();
    p.min = 0.01f;
    p.max = 0.99f;
    steps.push_back({S::e_EgalisationHistogramme, p});
    const kevra::CRect zone(2, 3, 30, 25);
    const std::vector<uint8_t> expected = library_result(in, steps, &zone, dir);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(read_file(dir.file("out.bmp")), expected);
}

TEST_F(CliProcess, SixteenBitChainMatchesTheLibrary)
{
    const std::string in = dir.file("in16.bmp");
    write_picture(in, 37, 29, 16, 2);
    const CliRun r = run_cli({"process", in, dir.file("out16.bmp"), "--median", "0.25,3", "--filter",
                           "gradient-diagonal", "--unsharp", "2,1.5,1,10,20", "--gamma", "0.8", "--stretch",
                           "0.005,0.995"},
                          dir);
    ASSERT_EQ(r.code, 0) << r.err;

    std::vector<LibraryStep> steps;
    Params p = params();
    p.Ecart = 0.25;
    p.TailleFiltre = 3;
    steps.push_back({S::e_FiltreMedian, p});
    p = params();
    p.filtre = kevra::CFiltre::Filtre_GradientDiagonal;
    p.taille = 3;
    p.param = 1.0f;
    steps.push_back({S::e_Filtre, p});
    p = params();
    p.rayon = 2.0f;
    p.gainP = 1.5f;
    p.gainN = 1.0f;
    p.SeuilP = 10.0f;
    p.SeuilN = 20.0f;
    steps.push_back({S::e_UnsharpMasking, p});
    p = params();
    p.luminosite = 0.0f;
    p.contraste = 1.0f;
    p.gamma = 0.8f;
    steps.push_back({S::e_LUT_LuminositeContrasteGamma, p});
    p = params();
    p.min = 0.005f;
    p.max = 0.995f;
    steps.push_back({S::e_EgalisationHistogramme, p});
    const std::vector<uint8_t> expected = library_result(in, steps, nullptr, dir);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(read_file(dir.file("out16.bmp")), expected);
}

TEST_F(CliProcess, ColourChainsMatchTheLibrary)
{
    const std::string in = dir.file("colour.bmp");
    write_picture(in, 31, 22, 24, 3);
    CliRun r = run_cli({"process", in, dir.file("a.bmp"), "--saturation", "80", "--hue", "90", "--whiten", "110",
                     "--red=-5", "--green", "3", "--blue", "7", "--brightness", "0.02", "--contrast", "1.1",
                     "--gamma", "0.9", "--lut-palette", "22", "--stretch", "0.02,0.98"},
                    dir);
    ASSERT_EQ(r.code, 0) << r.err;
    std::vector<LibraryStep> steps;
    Params p = params();
    p.pourcentage = 80;
    steps.push_back({S::e_Saturation, p});
    p.pourcentage = 90;
    steps.push_back({S::e_Teinte, p});
    p = params();
    p.niveau = 110;
    steps.push_back({S::e_Blanchiment, p});
    p = params();
    p.Palette = kevra::e_Palette22;
    steps.push_back({S::e_LUT, p});
    p = params();
    p.luminosite = 0.02f;
    p.contraste = 1.1f;
    p.gamma = 0.9f;
    steps.push_back({S::e_LUT_LuminositeContrasteGamma, p});
    p = params();
    p.rouge = -5;
    p.vert = 3;
    p.bleu = 7;
    steps.push_back({S::e_LUT_RougeVertBleu, p});
    p = params();
    p.min = 0.02f;
    p.max = 0.98f;
    steps.push_back({S::e_EgalisationHistogramme, p});
    std::vector<uint8_t> expected = library_result(in, steps, nullptr, dir);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(read_file(dir.file("a.bmp")), expected);

    r = run_cli({"process", in, dir.file("b.bmp"), "--black-white", "--negative", "--filter", "mean", "--unsharp",
                 "2,1.5", "--resample", "20x15", "--rotate", "270"},
                dir);
    ASSERT_EQ(r.code, 0) << r.err;
    steps.clear();
    p = params();
    p.angle = kevra::CTraitementImgBase::e_Angle270;
    steps.push_back({S::e_QuickRotate, p});
    p = params();
    p.filtre = kevra::CFiltre::Filtre_Moyenne;
    p.taille = 3;
    p.param = 1.0f;
    steps.push_back({S::e_Filtre, p});
    p = params();
    p.rayon = 2.0f;
    p.gainP = 1.5f;
    p.gainN = 1.5f;
    steps.push_back({S::e_UnsharpMasking, p});
    p = params();
    p.width = 20;
    p.height = 15;
    steps.push_back({S::e_Resample, p});
    steps.push_back({S::e_NoirEtBlanc, params()});
    steps.push_back({S::e_Negatif, params()});
    expected = library_result(in, steps, nullptr, dir);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(read_file(dir.file("b.bmp")), expected);
}

TEST_F(CliProcess, NamedValuesEqualPositionalOnes)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 24, 18, 8, 4);
    ASSERT_EQ(run_cli({"process", in, dir.file("p.bmp"), "--median", "0.3,3", "--unsharp", "2,1.5,1.2,3,4"}, dir).code, 0);
    ASSERT_EQ(run_cli({"process", in, dir.file("n.bmp"), "--unsharp", "SeuilN=4,gainP=1.5,rayon=2,gain-=1.2,threshold+=3",
                       "--median", "radius=3,Ecart=0.3"},
                      dir)
                  .code,
              0);
    EXPECT_EQ(read_file(dir.file("p.bmp")), read_file(dir.file("n.bmp")));
}

TEST_F(CliProcess, StepsRefusedByTheSequencerGiveItsReason)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 16, 16, 8, 5);
    CliRun r = run_cli({"process", in, dir.file("out.bmp"), "--median", "0.001,3"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: --median 0.001,3: refused by the sequencer: Traitement e_FiltreMedian, les parametres "
                     "Ecart (0.001000), TailleFiltre (3) sont invalides!\n");
    r = run_cli({"process", in, dir.file("out.bmp"), "--stretch", "0.5,0.5"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: --stretch 0.5,0.5: refused by the sequencer: Traitement e_EgalisationHistogramme, les "
                     "parametres Min (0.500000), Max (0.500000) sont invalides!\n");
    // The one refusal the sequencer does not trace.
    r = run_cli({"process", in, dir.file("out.bmp"), "--filter", "mean,1"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: --filter mean,1: refused by the sequencer: the size must be 3 or more\n");
    r = run_cli({"process", in, dir.file("out.bmp"), "--median", "0.2"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: --median: missing radius (expected TOLERANCE,RADIUS)\n");
    r = run_cli({"process", in, dir.file("out.bmp"), "--rotate", "45"}, dir);
    EXPECT_EQ(r.err, "kevra: --rotate: '45' is not a valid degrees (90, 180 or 270)\n");
    r = run_cli({"process", in, dir.file("out.bmp")}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kevra: process: no step given (see `kevra process --help`)\n");
    EXPECT_FALSE(exists(dir.file("out.bmp")));
}

TEST_F(CliProcess, BadInputsAreOneLineMessagesNamingTheFile)
{
    const std::string missing = dir.file("missing.bmp");
    CliRun r = run_cli({"process", missing, dir.file("out.bmp"), "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + missing + ": No such file or directory\n");

    const std::string text = dir.file("notes.bmp");
    kevra_test::write_file(text, {'h', 'e', 'l', 'l', 'o', '\n'});
    r = run_cli({"process", text, dir.file("out.bmp"), "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + text + ": not a BMP file\n");

    const std::string good = dir.file("good.bmp");
    write_picture(good, 20, 10, 8, 6);
    std::vector<uint8_t> bytes = read_file(good);
    bytes.resize(bytes.size() - 7);
    const std::string cut = dir.file("cut.bmp");
    kevra_test::write_file(cut, bytes);
    r = run_cli({"process", cut, dir.file("out.bmp"), "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + cut + ": truncated BMP file (1271 bytes, 1278 expected)\n");

    // An 8-bit file with compression 1: the library's own text.
    bytes = read_file(good);
    bytes[30] = 1;
    const std::string rle = dir.file("rle.bmp");
    kevra_test::write_file(rle, bytes);
    r = run_cli({"process", rle, dir.file("out.bmp"), "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + rle + ": compression type not supported\n");

    r = run_cli({"process", good, dir.file("out.bmp"), "--saturation", "50"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + good + ": --saturation 50 needs a 24-bit colour image (this one is 8-bit)\n");
    EXPECT_FALSE(exists(dir.file("out.bmp")));
}

TEST_F(CliProcess, FailuresLeaveNoPartialOutputAndTheInputUntouched)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 20, 12, 8, 7);
    const std::vector<uint8_t> before = read_file(in);

    const std::string nowhere = dir.file("no-such-dir/out.bmp");
    CliRun r = run_cli({"process", in, nowhere, "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + nowhere + ": cannot write: No such file or directory\n");

    // A run that fails (pseudo-relief is a placeholder that always fails)
    // leaves an existing output as it was.
    const std::string out = dir.file("out.bmp");
    kevra_test::write_file(out, {1, 2, 3});
    r = run_cli({"process", in, out, "--negative", "--pseudo3d"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + in + ": processing failed at --pseudo3d\n");
    EXPECT_EQ(read_file(out), (std::vector<uint8_t>{1, 2, 3}));

    // A zone one pixel wide is refused by the sequencer, with its own text.
    r = run_cli({"process", in, out, "--negative", "--zone", "4,0,4,11"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + in + ": processing failed before the first step (the sequencer refused the image "
                     "size or working zone): FiltrerBuffer : Les parametres dimensionnels sont invalides!\n");

    EXPECT_EQ(read_file(in), before);
    EXPECT_EQ(listing(dir.path().string()), (std::vector<std::string>{"in.bmp", "out.bmp"}));

    // Named as the output, the input is replaced by the result.
    r = run_cli({"process", in, in, "--negative"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(read_file(in), before);
}

TEST_F(CliProcess, VerboseAndTrace)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 30, 20, 8, 8);
    const std::string out = dir.file("out.bmp");
    const std::string trace = dir.file("trace.txt");
    const CliRun r = run_cli({"process", in, out, "-v", "--trace", trace, "--rotate", "90", "--median", "0.2,3",
                           "--gamma", "0.9"},
                          dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.find(out + ": 20 x 30 pixels\n"), 0u) << r.out;
    for (const char * label : {"\n  --rotate 90 ", "\n  --median 0.2,3 ", "\n  look-up table ", "\n  total "})
        EXPECT_NE(r.out.find(label), std::string::npos) << label << " in\n" << r.out;

    const std::vector<uint8_t> t = read_file(trace);
    const std::string text(t.begin(), t.end());
    EXPECT_EQ(text.find("### kevra process : " + in + " -> " + out + "\n"), 0u);
    EXPECT_NE(text.find("### FiltrerBuffer : 3 traitements demandés sur une image 8 bits de 30 x 20 pixels."),
              std::string::npos);
    EXPECT_NE(text.find("Traitement=e_FiltreMedian, Ecart=0.200000, TailleFiltre=3\n"), std::string::npos);
    EXPECT_NE(text.find("### Fin de FiltrerBuffer"), std::string::npos);
}

TEST_F(CliProcess, SeveralFilesInParallelCarryOnAfterAFailure)
{
    std::vector<std::string> inputs;
    for (int i = 0; i < 5; ++i) {
        inputs.push_back(dir.file("in" + std::to_string(i) + ".bmp"));
        write_picture(inputs.back(), 21 + i, 17, i == 3 ? 24 : 8, 10 + i);
    }
    const std::string bad = dir.file("bad.bmp");
    kevra_test::write_file(bad, {'B', 'M', 0});
    std::vector<std::string> args = {"process", "--out-dir", dir.file("out"), "--jobs", "3"};
    args.insert(args.end(), inputs.begin(), inputs.end());
    args.push_back(bad);
    args.insert(args.end(), {"--median", "0.2,3", "--negative"});
    const CliRun r = run_cli(args, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + bad + ": not a BMP file (header cut short)\nkevra: 1 of 6 files failed\n");

    Params m = params();
    m.Ecart = 0.2;
    m.TailleFiltre = 3;
    for (int i = 0; i < 5; ++i) {
        const std::vector<uint8_t> expected =
            library_result(inputs[i], {{S::e_FiltreMedian, m}, {S::e_Negatif, params()}}, nullptr, dir);
        EXPECT_EQ(read_file(dir.file("out/in" + std::to_string(i) + ".bmp")), expected) << i;
    }
    EXPECT_EQ(listing(dir.file("out")).size(), 5u);
}

TEST_F(CliProcess, SeveralFilesNeverReplaceAnInput)
{
    const std::string in = dir.file("in.bmp");
    write_picture(in, 12, 12, 8, 20);
    const std::vector<uint8_t> before = read_file(in);
    const CliRun r = run_cli({"process", "--out-dir", dir.path().string(), in, "--negative"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + in + ": its output " + dir.path().string() + "/in.bmp would replace an input "
                     "(choose another --out-dir)\nkevra: 1 of 1 files failed\n");
    EXPECT_EQ(read_file(in), before);
}

} // namespace
} // namespace cli_test
