// Running the built `kevra` program from the tests, and the library results
// its outputs are compared with.
#ifndef KEVRA_TESTS_TOOLS_CLI_SUPPORT_H
#define KEVRA_TESTS_TOOLS_CLI_SUPPORT_H

#include "support/kevra_test.h"
#include "support/sequencer_steps.h"

#include "kevra/dib.h"
#include "kevra/sequenceur.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace cli_test {

using namespace kevra_test;
using S = kevra::CSequenceur;

#ifdef KEVRA_CLI_PATH
#define KEVRA_CLI_REQUIRED()
#else
#define KEVRA_CLI_PATH ""
#define KEVRA_CLI_REQUIRED() GTEST_SKIP() << "the kevra program is not built (CLI11 missing)"
#endif
// Words run before the program (the emulator of a cross build), each space-separated.
#ifndef KEVRA_CLI_EMULATOR
#define KEVRA_CLI_EMULATOR ""
#endif

struct CliRun {
    int code = -1;
    std::string out, err;
};

// Runs kevra with these arguments in `cwd`, stdout and stderr to files. The
// shell runs it: each argument is quoted (none of ours holds a quote).
inline CliRun run_cli(const std::vector<std::string> & args, const TempDir & dir, const std::string & cwd = "")
{
    const std::string out = dir.file(".stdout"), err = dir.file(".stderr");
    std::string command = (cwd.empty() ? "" : "cd '" + cwd + "' && ") + KEVRA_CLI_EMULATOR + "'" + KEVRA_CLI_PATH + "'";
    for (const std::string & a : args)
        command += " '" + a + "'";
    const int status = std::system((command + " >'" + out + "' 2>'" + err + "'").c_str());
    CliRun r{WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_text(out), read_text(err)};
    std::remove(out.c_str());
    std::remove(err.c_str());
    return r;
}

// run_cli, expecting the program to succeed.
inline CliRun run_ok(const std::vector<std::string> & args, const TempDir & dir, const std::string & cwd = "")
{
    CliRun r = run_cli(args, dir, cwd);
    EXPECT_EQ(r.code, 0) << r.err;
    return r;
}

inline std::wstring wide(const std::string & s)
{
    return TempDir::widen(s);
}

// Deterministic test pictures (bits 8, 16 or 24), saved with the library.
inline void write_picture(const std::string & path, int width, int height, int bits, uint32_t seed)
{
    kevra::CDib image(width, height, bits);
    ASSERT_TRUE(image.IsOK());
    uint32_t s = seed * 2654435761u + 1;
    unsigned char * pixels = image.GetBits();
    for (int y = 0; y < height; ++y) {
        unsigned char * row = pixels + static_cast<std::size_t>(image.Pitch()) * y;
        for (int i = 0; i < image.Pitch(); ++i) {
            s = s * 1664525u + 1013904223u;
            // A ramp with noise: smooth enough for the filters to matter.
            const int ramp = (i / std::max(1, bits / 8) * 255 / std::max(1, width - 1) + y * 3) & 0xFF;
            row[i] = static_cast<unsigned char>(ramp ^ ((s >> 24) & 0x1F));
        }
    }
    image.ReleaseBits();
    ASSERT_TRUE(image.Save(wide(path).c_str(), 0));
}

// The bytes the library itself gives: load, optional zone, the steps added in
// execution order, Filtrer, Save, with the input's resolution carried through
// (a quarter turn swaps it, a resampling scales it). Empty when the run fails.
inline std::vector<uint8_t> library_result(const std::string & in, const std::vector<Step> & steps,
                                           const kevra::CRect * zone, const TempDir & dir)
{
    kevra::CDib image;
    EXPECT_TRUE(image.Load(wide(in).c_str(), 0));
    if (zone != nullptr)
        image.SetZoneTravail(*zone);
    kevra::CSequenceur sequencer;
    for (const Step & s : steps)
        EXPECT_TRUE(sequencer.AddTraitement(s.code, s.params)) << "step " << s.code;
    double x = image.GetXPelsPerMeter(), y = image.GetYPelsPerMeter();
    long w = image.Width(), h = image.Height();
    for (const Step & s : steps) {
        if (s.code == S::e_QuickRotate && s.params.angle != kevra::CTraitementImgBase::e_Angle180) {
            std::swap(x, y);
            std::swap(w, h);
        } else if (s.code == S::e_Resample) {
            x = x * s.params.width / w, y = y * s.params.height / h;
            w = s.params.width, h = s.params.height;
        }
    }
    const std::string out = dir.file(".library.bmp");
    if (!sequencer.Filtrer(&image))
        return {};
    image.SetXPelsPerMeter(static_cast<unsigned long>(x + 0.5));
    image.SetYPelsPerMeter(static_cast<unsigned long>(y + 0.5));
    if (!image.Save(wide(out).c_str(), 0))
        return {};
    std::vector<uint8_t> bytes = read_file(out);
    std::remove(out.c_str());
    return bytes;
}

// Files in a directory, hidden ones included: to catch leftover temporaries.
inline std::vector<std::string> listing(const std::string & dir)
{
    std::vector<std::string> names;
    for (const auto & e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Skips when the program is not built; a fresh directory for each test.
class CliTest : public ::testing::Test {
protected:
    void SetUp() override { KEVRA_CLI_REQUIRED(); }
    TempDir dir;
};

} // namespace cli_test

#endif
