// `kevra` and files: the formats it reads and writes, the BMP variants of other
// tools, DICOM input, where outputs go (links, devices, standard output), the
// refusals that write nothing, and an interrupted save.
#include "cli_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace cli_test {
namespace {

class CliFiles : public CliTest {};

// Runs a shell command line with "{kevra}" standing for the program; its exit code.
int shell(std::string command)
{
    const std::string token = "{kevra}";
    for (std::size_t at; (at = command.find(token)) != std::string::npos;)
        command.replace(at, token.size(), std::string(KEVRA_CLI_EMULATOR) + "'" + KEVRA_CLI_PATH + "'");
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

[[maybe_unused]] bool have(const char * program)
{
    return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

// A BMP file: 40-byte header, then `extra` (masks, palette), then the rows.
std::vector<uint8_t> bmp(uint32_t w, uint32_t h, uint32_t bits, uint32_t compression, uint32_t colours,
                         const std::vector<uint8_t> & extra, const std::vector<uint8_t> & rows)
{
    const auto offset = static_cast<uint32_t>(54 + extra.size()), size = static_cast<uint32_t>(rows.size());
    return Bytes().u8('B').u8('M').u32(offset + size).u32(0).u32(offset).u32(40).u32(w).u32(h).u16(1).u16(bits)
        .u32(compression).u32(size).u32(3780).u32(3780).u32(colours).u32(0).append(extra).append(rows).v;
}

// The 4 x 2 test picture, bottom row first: black, yellow, cyan, magenta /
// red, green, blue, white, as 0xRRGGBB; exact in every variant.
const uint32_t colours[8] = {0x000000, 0xFFFF00, 0x00FFFF, 0xFF00FF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF};

// The same picture in each BMP variant the library's codec does not take.
std::vector<std::pair<std::string, std::vector<uint8_t>>> variants()
{
    Bytes palette, pal8, pal4, rle8, rgb565, rgb555, rgb32, argb;
    for (int i = 0; i < 8; ++i) {
        const uint32_t c = colours[i], r = c >> 16, g = (c >> 8) & 0xFF, b = c & 0xFF;
        palette.u32(c);
        pal8.u8(i);
        rle8.u8(1).u8(i);
        if (i % 2 == 0)
            pal4.u8((i << 4) | (i + 1));
        rgb565.u16(((r >> 3) << 11) | ((g >> 2) << 5) | (b >> 3));
        rgb555.u16(((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3));
        rgb32.u32(c);
        argb.u32(c | 0x80000000u);
        if (i % 4 == 3) { // end of a row: 4-bit padding, RLE end of line
            pal4.u16(0);
            rle8.u16(0);
        }
    }
    rle8.u8(0).u8(1);
    const Bytes masks565 = Bytes().u32(0xF800).u32(0x07E0).u32(0x001F),
                masks32 = Bytes().u32(0xFF0000).u32(0xFF00).u32(0xFF).u32(0xFF000000);
    return {
        {"BMP, 8-bit colour palette of 8 entries (read as 24-bit colour)", bmp(4, 2, 8, 0, 8, palette.v, pal8.v)},
        {"BMP, 8-bit colour palette of 8 entries, RLE8 compression (read as 24-bit colour)",
         bmp(4, 2, 8, 1, 8, palette.v, rle8.v)},
        {"BMP, 4-bit colour palette of 8 entries (read as 24-bit colour)", bmp(4, 2, 4, 0, 8, palette.v, pal4.v)},
        {"BMP, 16-bit colour (RGB565), bit fields (read as 24-bit colour)", bmp(4, 2, 16, 3, 0, masks565.v, rgb565.v)},
        {"BMP, 16-bit colour (RGB555) (read as 24-bit colour)", bmp(4, 2, 16, 0, 0, {}, rgb555.v)},
        {"BMP, 32-bit colour (read as 24-bit colour)", bmp(4, 2, 32, 0, 0, {}, rgb32.v)},
        {"BMP, 32-bit colour with alpha, alpha bit fields (read as 24-bit colour)",
         bmp(4, 2, 32, 6, 0, masks32.v, argb.v)},
    };
}

// Every variant is written as the plain 24-bit file of the same picture, and
// `info` tells the file's own form.
TEST_F(CliFiles, BmpVariantsOfOtherToolsBecomeTheLibrarysColourImage)
{
    Bytes rgb24;
    for (uint32_t c : colours)
        rgb24.u8(c).u8(c >> 8).u8(c >> 16);
    for (const auto & v : variants()) {
        SCOPED_TRACE(v.first);
        write_file(dir.file("v.bmp"), v.second);
        const CliRun info = run_ok({"info", dir.file("v.bmp")}, dir);
        EXPECT_NE(info.out.find("\nformat:      " + v.first + "\n"), std::string::npos) << info.out;
        const CliRun r = run_ok({"convert", dir.file("v.bmp"), dir.file("out.bmp")}, dir);
        EXPECT_EQ(r.err, v.first.find("alpha") != std::string::npos
                             ? "kevra: note: " + dir.file("v.bmp") + ": its alpha channel is dropped\n"
                             : "");
        EXPECT_EQ(read_file(dir.file("out.bmp")), bmp(4, 2, 24, 0, 0, {}, rgb24.v));
    }
}

#ifdef KEVRA_CLI_HAS_OIIO
// PNG and TIFF at each depth, with unequal resolutions: back to BMP, the same
// bytes; another tool reads the colours in their places.
TEST_F(CliFiles, PngAndTiffRoundTripsKeepSamplesAndResolution)
{
    int seed = 20;
    for (int bits : {8, 16, 24}) {
        for (const char * ext : {"png", "tif"}) {
            SCOPED_TRACE(std::to_string(bits) + " " + ext);
            const std::string in = dir.file("in.bmp"), mid = dir.file(std::string("mid.") + ext),
                              back = dir.file("back.bmp");
            write_picture(in, 12, 7, bits, ++seed); // no row padding: other formats do not keep it
            kevra::CDib image;
            ASSERT_TRUE(image.Load(wide(in).c_str(), 0));
            image.SetXPelsPerMeter(3780);  // 96 dpi
            image.SetYPelsPerMeter(15748); // 400 dpi
            ASSERT_TRUE(image.Save(wide(in).c_str(), 0));
            ASSERT_EQ(run_cli({"convert", in, mid}, dir).code, 0);
            run_ok({"convert", mid, back}, dir);
            EXPECT_EQ(read_file(back), read_file(in));
        }
    }
    if (!have("oiiotool"))
        return;
    write_file(dir.file("v.bmp"), variants()[0].second);
    ASSERT_EQ(run_cli({"convert", dir.file("v.bmp"), dir.file("v.png")}, dir).code, 0);
    ASSERT_EQ(shell("oiiotool --dumpdata '" + dir.file("v.png") + "' >'" + dir.file("dump.txt") + "'"), 0);
    EXPECT_NE(read_text(dir.file("dump.txt")).find("Pixel (0, 0): 255 0 0 ("), std::string::npos); // red, top left

    // Files of other tools: a JPEG photograph, grey with alpha, 16-bit colour (refused).
    const std::string make = "oiiotool --pattern constant:color=";
    ASSERT_EQ(shell(make + "1,0.5,0 4x4 3 -o '" + dir.file("c.jpg") + "'"), 0);
    ASSERT_EQ(shell(make + "0.5,0.5 4x4 2 -d uint16 -o '" + dir.file("ga.png") + "'"), 0);
    ASSERT_EQ(shell(make + "1,0,0 4x4 3 -d uint16 -o '" + dir.file("c16.png") + "'"), 0);
    CliRun r = run_cli({"info", dir.file("c.jpg")}, dir);
    EXPECT_NE(r.out.find("\nformat:      JPEG, 8-bit colour\n"), std::string::npos) << r.out;
    r = run_cli({"info", dir.file("ga.png")}, dir);
    EXPECT_NE(r.out.find("\nformat:      PNG, 16-bit grey with alpha\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "kevra: note: " + dir.file("ga.png") + ": its alpha channel is dropped\n");
    r = run_cli({"info", dir.file("c16.png")}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kevra: " + dir.file("c16.png") + ": 16-bit colour is not supported (8-bit colour, or 8- or "
                                                      "16-bit grey)\n");
}

// A DICOM file made by DCMTK: 12 stored bits (the high bits hold garbage),
// MONOCHROME1 shown inverted, the pixel spacing taken as the resolution.
TEST_F(CliFiles, DicomMonochromeOneWithTwelveStoredBits)
{
    if (!have("dump2dcm"))
        GTEST_SKIP() << "dump2dcm (DCMTK) is not installed";
    std::ofstream(dir.file("x.dump")) << "(0008,0016) UI =SecondaryCaptureImageStorage\n(0008,0018) UI 1.2.3.4\n"
                                         "(0008,0060) CS [IO]\n(0028,0002) US 1\n(0028,0004) CS [MONOCHROME1]\n"
                                         "(0028,0010) US 2\n(0028,0011) US 3\n(0028,0030) DS [0.02\\0.025]\n"
                                         "(0028,0100) US 16\n(0028,0101) US 12\n(0028,0102) US 11\n(0028,0103) US 0\n"
                                         "(7fe0,0010) OW 0000\\0001\\0fff\\0800\\f123\\0400\n";
    ASSERT_EQ(shell("dump2dcm --write-xfer-little '" + dir.file("x.dump") + "' '" + dir.file("x.dcm") + "'"), 0);
    CliRun r = run_ok({"info", dir.file("x.dcm")}, dir);
    EXPECT_NE(r.out.find("format:      DICOM, 12-bit grey (MONOCHROME1, inverted to display sense) (read as 16-bit "
                         "grey, samples 0 to 4095)\nsize:        3 x 2 pixels\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("resolution:  40000 x 50000 pixels per metre"), std::string::npos) << r.out;
    // Written as TIFF and read back: 4095 - each stored value, spacing kept.
    ASSERT_EQ(run_cli({"convert", dir.file("x.dcm"), dir.file("x.tif")}, dir).code, 0);
    ASSERT_EQ(run_cli({"convert", dir.file("x.tif"), dir.file("x.bmp")}, dir).code, 0);
    const std::vector<uint8_t> b = read_file(dir.file("x.bmp"));
    ASSERT_EQ(b.size(), 54u + 1024 + 16);
    EXPECT_EQ(b[38] | (b[39] << 8) | (b[40] << 16), 40000);
    EXPECT_EQ(b[42] | (b[43] << 8) | (b[44] << 16), 50000);
    const int expected[6] = {2047, 3804, 3071, 4095, 4094, 0}; // bottom row first
    for (int i = 0; i < 6; ++i) {
        const std::size_t at = 1078 + 8 * (i / 3) + 2 * (i % 3);
        EXPECT_EQ(b[at] | (b[at + 1] << 8), expected[i]) << i;
    }
}
#endif

// Refusals of a wrong command line (exit 2; a step's own refusal text when it
// has one) and failures (exit 1: files kevra cannot read, too large, a step of
// the wrong depth, an unwritable output), one line each. Nothing is written:
// the inputs untouched, an existing output left as it was, no temporary left.
TEST_F(CliFiles, RefusalsAndFailuresAreOneLineAndLeaveNoPartialOutput)
{
    const std::string in = dir.file("in.bmp"), text = dir.file("notes.bmp"), cut = dir.file("cut.bmp"),
                      rle = dir.file("rle.bmp"), missing = dir.file("missing.bmp"), out = dir.file("out.bmp"),
                      nowhere = dir.file("no-such-dir/out.bmp"), in24 = dir.file("in24.bmp"),
                      odd = dir.file("odd.bmp"), jpeg_bmp = dir.file("jpeg.bmp"), p = dir.path().string() + "/";
    write_picture(in, 20, 10, 8, 6);
    write_picture(in24, 6, 4, 24, 31);
    write_file(odd, bmp(2, 2, 7, 0, 0, {}, std::vector<uint8_t>(8)));
    write_file(jpeg_bmp, bmp(2, 2, 24, 4, 0, {}, std::vector<uint8_t>(16)));
    const std::vector<uint8_t> before = read_file(in);
    write_file(text, {'h', 'e', 'l', 'l', 'o', '\n'});
    write_file(cut, std::vector<uint8_t>(before.begin(), before.end() - 7));
    std::vector<uint8_t> bytes = before;
    bytes[30] = 1; // compression 1 in an 8-bit file
    write_file(rle, bytes);
    write_file(out, {1, 2, 3});
    const std::string formats = "(.bmp, .png, .tif or .tiff, or --format bmp|png|tiff)";
    const struct Case {
        std::vector<std::string> args; // options of `process in out` when they start with "--"
        std::string err;               // empty: not checked (the parser's own text)
        int code = 2;
    } cases[] = {
        {{"--contrast", "-1"}, "--contrast -1: CONTRAST must be a number above 0, up to 10 (not -1)"},
        {{"--brightness", "5"}, "--brightness 5: BRIGHTNESS must be a number above -1 and below 1 (not 5)"},
        {{"--red=-200"}, "--red -200: RED must be a whole number from -100 to 100 (not -200)"},
        {{"--hue", "x"}, "--hue x: PERCENT must be a whole number from 0 to 400 (not 'x')"},
        {{"--whiten", "-10"}, "--whiten -10: PERCENT must be a whole number from 1 to 400 (not -10)"},
        {{"--stretch", "0.5,0.5"}, "--stretch 0.5,0.5: LOW must be below HIGH (0 <= LOW < HIGH <= 1)"},
        {{"--filter", "gaussian,3,0"}, "--filter gaussian,3,0: PARAM must be a number above 0, up to 100 (not 0)"},
        {{"--filter", "gaussian,4"}, "--filter gaussian,4: SIZE must be odd (3, 5, 7 ... 99)"},
        {{"--filter", "mean,1"}, "--filter mean,1: SIZE must be a whole number from 3 to 99 (not 1)"},
        {{"--filter", "laplacian,5"}, "--filter laplacian,5: SIZE must be 3 for laplacian (a 3x3 kernel)"},
        {{"--filter", "mean,3,2"}, "--filter mean,3,2: mean takes no PARAM (only gaussian and sinc do)"},
        {{"--filter", "12"},
         "--filter 12: KIND must be one of mean, gaussian, ramp, parabola, sine, sinc, laplacian, gradient-x, "
         "gradient-y, gradient-diagonal, or a number from 0 to 9 (not 12)"},
        {{"--median", "0.2,1"}, "--median 0.2,1: RADIUS must be a whole number from 3 to 50 (not 1)"},
        {{"--median", "0.001,3"}, "--median 0.001,3: TOLERANCE must be a number from 0.01 to 0.99 (not 0.001)"},
        {{"--median", "0.2"}, "--median 0.2: RADIUS is missing (expected TOLERANCE,RADIUS)"},
        {{"--unsharp", "0,1.5"}, "--unsharp 0,1.5: RADIUS must be a number from 1 to 100 (not 0)"},
        {{"--unsharp", "2,0,0"}, "--unsharp 2,0,0: GAIN+ and GAIN- cannot both be 0"},
        {{"--unsharp", "2,1,1,-1"}, "--unsharp 2,1,1,-1: THRESHOLD+ must be a number from 0 to 65535 (not -1)"},
        {{"--rotate", "45"}, "--rotate 45: DEGREES must be 90, 180 or 270 (not 45)"},
        {{"--resample", "0x5"}, "--resample 0x5: WIDTH must be a whole number from 1 to 65535 (not 0)"},
        {{"--lut-palette", "13"},
         "--lut-palette 13: PALETTE must be 11, 12, 21, 22, 23, grey, inverted, false-colour-1, false-colour-2 or blue "
         "(not 13)"},
        {{"--negative", "--zone", "4,0,4,9"},
         "--zone 4,0,4,9: the zone must lie within the 20 x 10 image (0 <= LEFT < RIGHT <= 19, 0 <= TOP < BOTTOM <= 9)"},
        {{"--unsharp-disc", "20,2,3,2,1"},
         "--unsharp-disc 20,2,3,2,1: the centre must lie within the 20 x 10 image (X <= 19, Y <= 9)"},
        {{"process", in, out}, "process: no step given (see `kevra process --help`)"},
        {{"--pseudo3d"}, ""},
        {{"palette", in, out, "--palette", "13"},
         "--palette: '13' is not a predefined palette (11, 12, 21, 22, 23, or grey, inverted, false-colour-1, "
         "false-colour-2, blue)"},
        {{"lut", out, "--bits", "16", "--red", "5"}, "--red needs --bits 24 (grey tables have one curve)"},
        {{"convert", in, out, "--bits", "12"}, ""},
        {{"process", in, p + "o.jpg", "--negative"},
         p + "o.jpg: kevra reads JPEG but does not write it (write .png, .tif or .bmp)"},
        {{"process", in, p + "o.xyz", "--negative"},
         p + "o.xyz: unknown output format 'xyz' " + formats},
        {{"histogram", in, p + "o"}, p + "o: no extension to choose the format by " + formats},
        {{"lut", p + "o.txt"}, p + "o.txt: unknown output format 'txt' " + formats},
        {{"lut", p + "o.bmp", "--gamma", "0"}, "--gamma 0: GAMMA must be a number above 0, up to 10 (not 0)"},
        {{"info", in, "--zone", "2,2,29,3"},
         "--zone 2,2,29,3: the zone must lie within the 20 x 10 image (0 <= LEFT <= RIGHT <= 19, 0 <= TOP <= BOTTOM <= 9)"},
        {{"process", in, p + "o.bmp", "--negative", "--max-pixels", "199"},
         in + ": 20 x 10 pixels is more than --max-pixels allows (199)", 1},
        {{"process", in, p + "o.bmp", "--resample", "30x30", "--max-pixels", "899"},
         in + ": the result of 30 x 30 pixels is more than --max-pixels allows (899)", 1},
        {{"process", odd, p + "o.bmp", "--negative"},
         odd + ": BMP bit count 7 is not one kevra reads (1, 4, 8, 16, 24 or 32)", 1},
        {{"info", jpeg_bmp}, jpeg_bmp + ": BMP with 24-bit pixels and JPEG compression is not a form kevra reads", 1},
        {{"palette", in24, p + "o.bmp", "--palette", "21"},
         in24 + ": 24-bit images are not supported here (8 or 16 bits)", 1},
#ifdef KEVRA_CLI_HAS_OIIO
        {{"palette", in, p + "o.png", "--palette", "21"},
         p + "o.png: a display palette is kept in BMP files only (write .bmp)"},
#else
        {{"convert", in, p + "o.png"}, p + "o.png: this kevra was built without OpenImageIO and writes BMP only"},
#endif
        {{"bogus"}, "unknown command 'bogus' (commands: process, info, histogram, lut, convert, palette, demo, help)"},
        {{"help", "bogus"},
         "unknown command 'bogus' (commands: process, info, histogram, lut, convert, palette, demo, help)"},
        {{"process", "--bogus", in}, "unknown option --bogus for kevra process (see kevra process --help)"},
        {{}, "a command is required (process, info, histogram, lut, convert, palette, demo, help; see kevra --help)"},
        {{"process", missing, out, "--negative"}, missing + ": No such file or directory", 1},
        {{"process", text, out, "--negative"}, text + ": not an image file kevra reads (BMP, PNG, TIFF, JPEG or DICOM)", 1},
        {{"process", cut, out, "--negative"}, cut + ": truncated BMP file (1271 bytes, 1278 expected)", 1},
        {{"process", rle, out, "--negative"}, rle + ": truncated BMP file (RLE8 data cut short)", 1},
        {{"process", in, out, "--saturation", "50"},
         in + ": --saturation 50 needs a 24-bit colour image (this one is 8-bit)", 1},
        {{"process", in, nowhere, "--negative"}, nowhere + ": cannot write: No such file or directory", 1},
    };
    for (const Case & c : cases) {
        std::vector<std::string> args = c.args;
        if (!args.empty() && args[0].rfind("--", 0) == 0)
            args.insert(args.begin(), {"process", in, out});
        const CliRun r = run_cli(args, dir);
        EXPECT_EQ(r.code, c.code) << c.err;
        EXPECT_TRUE(c.err.empty() || r.err == "kevra: " + c.err + "\n") << r.err;
    }
    EXPECT_EQ(read_file(in), before);
    EXPECT_EQ(read_file(out), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(listing(dir.path().string()),
              (std::vector<std::string>{"cut.bmp", "in.bmp", "in24.bmp", "jpeg.bmp", "notes.bmp", "odd.bmp", "out.bmp",
                                        "rle.bmp"}));

    // Named as the output, the input is replaced by the result.
    run_ok({"process", in, in, "--negative"}, dir);
    EXPECT_NE(read_file(in), before);
}

// A symbolic link is written through, a device in place, "-" is standard
// input and output; the results are the bytes of a plain file.
TEST_F(CliFiles, OutputsBehaveLikeEveryUnixTool)
{
    const std::string in = dir.file("in.bmp"), plain = dir.file("plain.bmp"), target = dir.file("target.bmp"),
                      link = dir.file("link.bmp"), piped = dir.file("piped.bmp");
    write_picture(in, 9, 6, 16, 40);
    ASSERT_EQ(run_cli({"process", in, plain, "--gamma", "0.5"}, dir).code, 0);
    for (bool exists : {false, true}) {
        std::remove(target.c_str());
        if (exists)
            write_file(target, {1, 2, 3});
        fs::remove(link);
        fs::create_symlink("target.bmp", link);
        run_ok({"process", in, link, "--gamma", "0.5"}, dir);
        EXPECT_TRUE(fs::is_symlink(link));
        EXPECT_EQ(read_file(target), read_file(plain));
    }
    ASSERT_EQ(shell("cat '" + in + "' | {kevra} process - - --gamma 0.5 >'" + piped + "'"), 0);
    EXPECT_EQ(read_file(piped), read_file(plain));
    ASSERT_EQ(shell("{kevra} process '" + in + "' /dev/stdout --gamma 0.5 | cat >'" + piped + "'"), 0);
    EXPECT_EQ(read_file(piped), read_file(plain));
    if (::access("/dev/null", W_OK) == 0) {
        EXPECT_EQ(run_cli({"process", in, "/dev/null", "--gamma", "0.5"}, dir).code, 0);
        struct stat st {};
        ASSERT_EQ(::stat("/dev/null", &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
    }
    EXPECT_EQ(listing(dir.path().string()),
              (std::vector<std::string>{"in.bmp", "link.bmp", "piped.bmp", "plain.bmp", "target.bmp"}));
}

// SIGTERM while the result is being written to a pipe nobody reads: the
// temporary files (the encoded image, the trace) are removed.
TEST_F(CliFiles, InterruptedSaveLeavesNoTemporaryFile)
{
    const std::string in = dir.file("in.bmp"), fifo = dir.file("fifo"), tmp = dir.file("tmp"), pid = dir.file("pid");
    write_picture(in, 400, 300, 8, 41); // far more than a pipe holds
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_TRUE(fs::create_directory(tmp));
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    ASSERT_EQ(shell("TMPDIR='" + tmp + "' {kevra} process '" + in + "' - --negative >'" + fifo + "' 2>/dev/null & echo $! >'" +
                    pid + "'"),
              0);
    const pid_t child = std::stoi(read_text(pid));
    // Wait until the encoded image is complete and the copy to the pipe blocks.
    bool blocked = false;
    for (int i = 0; i < 600 && !blocked; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (const auto & e : fs::directory_iterator(tmp))
            blocked = blocked || (e.path().filename().string().find("kevra-output") != std::string::npos &&
                                  fs::file_size(e.path()) == 54 + 1024 + 400 * 300);
    }
    ASSERT_TRUE(blocked);
    ASSERT_EQ(::kill(child, SIGTERM), 0);
    for (int i = 0; i < 600 && ::kill(child, 0) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ::close(reader);
    EXPECT_NE(::kill(child, 0), 0);
    EXPECT_TRUE(listing(tmp).empty()) << listing(tmp).front();
}

} // namespace
} // namespace cli_test
