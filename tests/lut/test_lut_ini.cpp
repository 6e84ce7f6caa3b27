// INI persistence of the colour table, in a private temporary directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kevra/lut.h"
#include "kevra/platform.h"
#include "support/kevra_test.h"

using namespace kevra;
namespace fs = std::filesystem;

using kevra_test::lut_entries;

// Keys RGB0 .. RGB255 with "r,g,b" values, section "RGBLut" by default. The file and section
// given last are kept, and copied with the table; an existing file keeps its other sections and
// keys, and a section is found whatever its case.
TEST(LutIni, SaveThenReadRestoresTheTable)
{
    kevra_test::TempDir dir;
    const std::wstring file = dir.wfile("table.ini");
    CLUT_24_Bpp saved(e_Palette22), read1;
    ASSERT_TRUE(saved.Sauvegarde_INI(file.c_str(), nullptr));
    std::string text = kevra_test::read_text(dir.file("table.ini"));
    EXPECT_EQ(text.find("[RGBLut]\nRGB0=0,0,0\nRGB1=4,1,1\n"), 0u);
    EXPECT_NE(text.find("\nRGB64=255,0,64\n"), std::string::npos);
    EXPECT_NE(text.find("\nRGB255=252,253,255\n"), std::string::npos);
    EXPECT_TRUE(read1.Lecture_INI(file.c_str(), L"RGBLut"));
    EXPECT_EQ(lut_entries(read1), lut_entries(saved));
    CLUT_24_Bpp read2(file.c_str(), nullptr); // the constructor reads too
    EXPECT_EQ(lut_entries(read2), lut_entries(saved));

    std::ofstream(dir.file("app.ini")) << "; notes\n[Affichage]\nZoom=2\n\n[autre]\nRGB5=1,2,3\nCle=x\n";
    ASSERT_TRUE(saved.Sauvegarde_INI(dir.wfile("app.ini").c_str(), L"Autre"));
    saved.SetPalette(e_Palette23);
    ASSERT_TRUE(saved.Sauvegarde_INI());
    CLUT_24_Bpp copy(saved);
    copy.SetPalette(e_Palette11);
    ASSERT_TRUE(copy.Lecture_INI());
    EXPECT_EQ(lut_entries(copy), lut_entries(CLUT_24_Bpp(e_Palette23)));
    text = kevra_test::read_text(dir.file("app.ini"));
    EXPECT_EQ(text.find("; notes\n[Affichage]\nZoom=2\n"), 0u);
    EXPECT_NE(text.find("\nRGB5=0,0,5\n"), std::string::npos);
    EXPECT_NE(text.find("\nCle=x\n"), std::string::npos);
    EXPECT_EQ(text.find("[Autre]"), std::string::npos);
}

// A missing key or "ECHEC" fails the read and keeps that entry; the other keys are still read,
// split at any of ",;:" as decimal integers (low 8 bits kept, missing fields 0); the first of
// two keys of one name counts.
TEST(LutIni, ReadingKeysAndValues)
{
    kevra_test::TempDir dir;
    std::string text = "[RGBLut]\nRGB0 = 300, -1 ,12abc\nRGB1=5\n";
    for (int i = 2; i < 256; ++i)
        if (i != 10)
            text += "RGB" + std::to_string(i) + "=" + (i == 11 ? "ECHEC" : i == 13 ? "1:2:3" : std::to_string(255 - i) + ";" + std::to_string(i) + ":,7") + "\n";
    text += "RGB12=1,1,1\n";
    std::ofstream(dir.file("table.ini")) << text;
    CLUT_24_Bpp lut;
    EXPECT_FALSE(lut.Lecture_INI(dir.wfile("table.ini").c_str(), nullptr));
    const std::vector<uint32_t> got = lut_entries(lut); // 0xRRGGBB
    const struct { int i; uint32_t rgb; } want[] = {{0, 0x2CFF0C}, {1, 0x050000}, {10, 0x0A0A0A},
                                                   {11, 0x0B0B0B}, {12, 0xF30C07}, {13, 0x010203}};
    for (const auto &w : want)
        EXPECT_EQ(got[w.i], w.rgb) << w.i;
}

TEST(LutIni, FailuresChangeNothing)
{
    kevra_test::TempDir dir;
    CLUT_24_Bpp lut(e_Palette21);
    EXPECT_FALSE(lut.Lecture_INI(dir.wfile("absent.ini").c_str(), nullptr));
    EXPECT_EQ(lut_entries(lut), lut_entries(CLUT_24_Bpp(e_Palette21)));
    EXPECT_FALSE(fs::exists(dir.file("absent.ini")));
    EXPECT_FALSE(lut.Sauvegarde_INI(dir.wfile("no/such/dir.ini").c_str(), nullptr));

    // The colour-array constructor given a wrong count returns before setting file and section.
    tagRGBQUAD q[4] = {};
    CLUT_24_Bpp noFile(q, 4), noSection(q, 4);
    EXPECT_FALSE(noFile.Sauvegarde_INI() || noFile.Sauvegarde_INI(nullptr, L"RGBLut"));
    EXPECT_FALSE(noSection.Sauvegarde_INI(dir.wfile("table.ini").c_str(), nullptr));
    EXPECT_FALSE(fs::exists(dir.file("table.ini")));
    EXPECT_TRUE(noSection.Sauvegarde_INI(nullptr, L"RGBLut"));
    EXPECT_TRUE(fs::exists(dir.file("table.ini")));
}

// A table naming no file uses the application's profile under the configuration directory,
// the file the application set, or the platform's replacement location.
TEST(LutIni, DefaultFileLivesUnderTheConfigDirectory)
{
    kevra_test::TempDir dir;
    const char *old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old != nullptr ? old : "";
    ::setenv("XDG_CONFIG_HOME", dir.path().c_str(), 1);
    CLUT_24_Bpp lut(e_Palette23), back;
    EXPECT_TRUE(lut.Sauvegarde_INI());
    EXPECT_TRUE(fs::exists(dir.path() / "kevra" / "kevra_tests_lut.ini"));
    EXPECT_TRUE(back.Lecture_INI());
    EXPECT_EQ(lut_entries(back), lut_entries(lut));
    CLUT_24_Bpp::SetFichierIniDefaut(dir.wfile("app.ini").c_str());
    EXPECT_TRUE(lut.Sauvegarde_INI());
    EXPECT_TRUE(fs::exists(dir.file("app.ini")));
    CLUT_24_Bpp::SetFichierIniDefaut(nullptr);
    // The location is a platform service the application can replace.
    auto previous = platform::set_default_profile_path_handler([&] { return dir.file("host.ini"); });
    EXPECT_TRUE(lut.Sauvegarde_INI());
    EXPECT_TRUE(fs::exists(dir.file("host.ini")));
    platform::set_default_profile_path_handler(previous);
    if (old != nullptr)
        ::setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    else
        ::unsetenv("XDG_CONFIG_HOME");
}
