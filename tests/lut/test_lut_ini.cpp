// INI persistence of the colour table, in a private temporary directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "kevra/lut.h"
#include "kevra/platform.h"

using namespace kevra;
namespace fs = std::filesystem;

namespace {

class LutIni : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::temp_directory_path() / (std::string("kevra_lut_ini_") + info->name() + "_" +
                                           std::to_string(static_cast<long>(::getpid())));
        fs::remove_all(dir);
        fs::create_directories(dir);
        file = (dir / "table.ini").wstring();
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string read(const fs::path &p) const
    {
        std::ifstream in(p);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    void write(const std::string &text) const { std::ofstream(dir / "table.ini") << text; }

    fs::path dir;
    std::wstring file;
};

bool same_tables(const CLUT_24_Bpp &a, const CLUT_24_Bpp &b)
{
    for (int i = 0; i < 256; ++i)
        if (a.Donne_Rouge()[i] != b.Donne_Rouge()[i] || a.Donne_Vert()[i] != b.Donne_Vert()[i] ||
            a.Donne_Bleu()[i] != b.Donne_Bleu()[i])
            return false;
    return true;
}

} // namespace

TEST_F(LutIni, SaveThenReadRestoresTheTable)
{
    CLUT_24_Bpp saved(e_Palette22);
    ASSERT_TRUE(saved.Sauvegarde_INI(file.c_str(), nullptr));
    const std::string text = read(dir / "table.ini");
    EXPECT_EQ(text.find("[RGBLut]\n"), 0u);
    EXPECT_NE(text.find("\nRGB0=0,0,0\n"), std::string::npos);
    EXPECT_NE(text.find("\nRGB64=255,0,64\n"), std::string::npos);
    EXPECT_NE(text.find("\nRGB255=252,253,255\n"), std::string::npos);

    CLUT_24_Bpp read1;
    EXPECT_TRUE(read1.Lecture_INI(file.c_str(), L"RGBLut"));
    EXPECT_TRUE(same_tables(read1, saved));
    CLUT_24_Bpp read2(file.c_str(), nullptr); // constructor form
    EXPECT_TRUE(same_tables(read2, saved));
}

TEST_F(LutIni, StoredFileAndSectionAreReused)
{
    CLUT_24_Bpp lut(e_Palette21);
    ASSERT_TRUE(lut.Sauvegarde_INI(file.c_str(), L"Autre"));
    lut.SetPalette(e_Palette23);
    ASSERT_TRUE(lut.Sauvegarde_INI()); // same file, same section: overwrites
    CLUT_24_Bpp copy(lut);             // copies file and section too
    copy.SetPalette(e_Palette11);
    ASSERT_TRUE(copy.Lecture_INI());
    EXPECT_TRUE(same_tables(copy, CLUT_24_Bpp(e_Palette23)));
    CLUT_24_Bpp other;
    EXPECT_FALSE(other.Lecture_INI(file.c_str(), nullptr)); // section RGBLut is absent
}

TEST_F(LutIni, OtherSectionsAndKeysSurvive)
{
    write("; notes\n[Affichage]\nZoom=2\n\n[rgblut]\nRGB5=1,2,3\nAutre=x\n");
    CLUT_24_Bpp lut(e_Palette11);
    ASSERT_TRUE(lut.Sauvegarde_INI(file.c_str(), nullptr));
    const std::string text = read(dir / "table.ini");
    EXPECT_EQ(text.find("; notes\n[Affichage]\nZoom=2\n"), 0u);
    EXPECT_NE(text.find("RGB5=5,5,5\n"), std::string::npos);
    EXPECT_NE(text.find("Autre=x\n"), std::string::npos);
    EXPECT_EQ(text.find("RGBLut"), std::string::npos); // the existing section (any case) was used
}

TEST_F(LutIni, MissingKeysAndEchecFailButTheRestIsRead)
{
    std::string text = "[RGBLut]\n";
    for (int i = 0; i < 256; ++i) {
        if (i == 10)
            continue; // missing
        if (i == 11) {
            text += "RGB11=ECHEC\n";
            continue;
        }
        text += "RGB" + std::to_string(i) + "=" + std::to_string(255 - i) + ";" + std::to_string(i) + ":,7\n";
    }
    write(text);
    CLUT_24_Bpp lut;
    EXPECT_FALSE(lut.Lecture_INI(file.c_str(), nullptr));
    EXPECT_EQ(lut.Donne_Rouge()[10], 10); // unchanged
    EXPECT_EQ(lut.Donne_Rouge()[11], 11);
    EXPECT_EQ(lut.Donne_Rouge()[12], 243);
    EXPECT_EQ(lut.Donne_Vert()[12], 12);
    EXPECT_EQ(lut.Donne_Bleu()[12], 7);
}

TEST_F(LutIni, ValuesReadLikeDecimalIntegers)
{
    std::string text = "[RGBLut]\n";
    for (int i = 0; i < 256; ++i)
        text += "RGB" + std::to_string(i) + "=0,0,0\n";
    text += "RGB1 = 300, -1 ,12abc\nRGB2=5\n";
    write(text);
    // Later duplicates do not count: the first key of a name is the one read.
    CLUT_24_Bpp lut;
    EXPECT_TRUE(lut.Lecture_INI(file.c_str(), nullptr));
    EXPECT_EQ(lut.Donne_Rouge()[1], 0);

    text = "[RGBLut]\nRGB0 = 300, -1 ,12abc\nRGB1=5\n";
    for (int i = 2; i < 256; ++i)
        text += "RGB" + std::to_string(i) + "=1,1,1\n";
    write(text);
    EXPECT_TRUE(lut.Lecture_INI(file.c_str(), nullptr));
    EXPECT_EQ(lut.Donne_Rouge()[0], 44);   // low 8 bits of 300
    EXPECT_EQ(lut.Donne_Vert()[0], 255);   // -1
    EXPECT_EQ(lut.Donne_Bleu()[0], 12);
    EXPECT_EQ(lut.Donne_Rouge()[1], 5);
    EXPECT_EQ(lut.Donne_Vert()[1], 0);     // missing fields read 0
    EXPECT_EQ(lut.Donne_Bleu()[1], 0);
}

TEST_F(LutIni, MissingFileFailsAndChangesNothing)
{
    CLUT_24_Bpp lut(e_Palette21);
    EXPECT_FALSE(lut.Lecture_INI((dir / "absent.ini").wstring().c_str(), nullptr));
    EXPECT_TRUE(same_tables(lut, CLUT_24_Bpp(e_Palette21)));
    EXPECT_FALSE(fs::exists(dir / "absent.ini"));
    EXPECT_FALSE(lut.Sauvegarde_INI((dir / "no" / "such" / "dir.ini").wstring().c_str(), nullptr));
}

TEST_F(LutIni, WrongCountConstructorLeavesFileAndSectionUnset)
{
    tagRGBQUAD q[4] = {};
    CLUT_24_Bpp lut(q, 4);
    EXPECT_FALSE(lut.Sauvegarde_INI());
    EXPECT_FALSE(lut.Sauvegarde_INI(file.c_str(), nullptr)); // still no section
    EXPECT_FALSE(fs::exists(dir / "table.ini"));
    EXPECT_TRUE(lut.Sauvegarde_INI(nullptr, L"RGBLut"));
    EXPECT_TRUE(fs::exists(dir / "table.ini"));
}

TEST_F(LutIni, DefaultFileLivesUnderTheConfigDirectory)
{
    const char *old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old != nullptr ? old : "";
    ::setenv("XDG_CONFIG_HOME", dir.string().c_str(), 1);
    const fs::path expected = dir / "kevra" / "kevra_tests_lut.ini";
    EXPECT_EQ(CLUT_24_Bpp::Donne_FichierIniDefaut(), expected.string());

    CLUT_24_Bpp lut(e_Palette23);
    EXPECT_TRUE(lut.Sauvegarde_INI());
    EXPECT_TRUE(fs::exists(expected));
    CLUT_24_Bpp back;
    EXPECT_TRUE(back.Lecture_INI());
    EXPECT_TRUE(same_tables(back, lut));

    CLUT_24_Bpp::SetFichierIniDefaut((dir / "app.ini").wstring().c_str());
    EXPECT_EQ(CLUT_24_Bpp::Donne_FichierIniDefaut(), (dir / "app.ini").string());
    EXPECT_TRUE(lut.Sauvegarde_INI());
    EXPECT_TRUE(fs::exists(dir / "app.ini"));
    CLUT_24_Bpp::SetFichierIniDefaut(nullptr);

    if (old != nullptr)
        ::setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    else
        ::unsetenv("XDG_CONFIG_HOME");
}
