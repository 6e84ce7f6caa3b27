// The colour table: three grey tables, the predefined palettes, drawing and INI persistence.
#include "kevra/lut.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>

#include "core/fast_path.h"
#include "kevra/drawing.h"
#include "kevra/platform.h"
#include "lut/detail/ini_file.h"
#include "lut/detail/table_kernels.h"

namespace kevra {

namespace {

const wchar_t kSectionParDefaut[] = L"RGBLut";
const char kValeurAbsente[] = "ECHEC";

// ---- predefined palettes ----------------------------------------------------------------------

// Fills red, green and blue with palette `code`; false for a code without content.
// The steps between quarters of 21 and 22 (green 252 at 127 then 255 at 128, red 126 at 191 then
// 128 at 192 in palette 21) belong to the palettes' definition, so a palette looks the same
// on every display.
bool fill_palette(int code, uint8_t *red, uint8_t *green, uint8_t *blue)
{
    auto set = [&](int i, int r, int g, int b) {
        red[i] = static_cast<uint8_t>(r);
        green[i] = static_cast<uint8_t>(g);
        blue[i] = static_cast<uint8_t>(b);
    };
    switch (code) {
    case e_Palette11: // grey ramp
        for (int i = 0; i < 256; ++i)
            set(i, i, i, i);
        return true;
    case e_Palette12: // inverted grey ramp: also the 24-bit negative
        for (int i = 0; i < 256; ++i)
            set(i, 255 - i, 255 - i, 255 - i);
        return true;
    case e_Palette21: // black, blue, green, red
        for (int k = 0; k < 64; ++k) {
            set(k, 0, 0, 4 * k);
            set(64 + k, 0, 4 * k, 255 - 4 * k);
            set(128 + k, 2 * k, 255 - 4 * k, 0);
            set(192 + k, 2 * k + 128, 0, 0);
        }
        return true;
    case e_Palette22:
        for (int k = 0; k < 64; ++k) {
            set(k, 4 * k, k, k);
            set(64 + k, 255 - 2 * k, 4 * k, 64);
            set(128 + k, 127 - 2 * k, 255 - 2 * k, 4 * k);
            set(192 + k, 4 * k, 127 + 2 * k, 255);
        }
        return true;
    case e_Palette23: // blue-weighted ramp, pure blue up to 32
        for (int i = 0; i < 256; ++i) {
            if (i <= 32)
                set(i, 0, 0, i);
            else
                set(i, i - 32, i - 32, i);
        }
        return true;
    default:
        return false;
    }
}

// ---- the application's profile ------------------------------------------------------------------

std::mutex &profile_mutex()
{
    static std::mutex m;
    return m;
}

std::wstring &profile_override()
{
    static std::wstring name;
    return name;
}

// atoi-like: blanks, an optional sign, decimal digits; anything else ends the number. The value
// wraps like 32-bit arithmetic; only its low 8 bits are stored anyway.
uint8_t parse_level(const std::string &field)
{
    std::string::size_type i = 0;
    while (i < field.size() && (field[i] == ' ' || field[i] == '\t'))
        ++i;
    bool negative = false;
    if (i < field.size() && (field[i] == '+' || field[i] == '-')) {
        negative = field[i] == '-';
        ++i;
    }
    uint32_t value = 0;
    for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i)
        value = value * 10u + static_cast<uint32_t>(field[i] - '0');
    if (negative)
        value = 0u - value;
    return static_cast<uint8_t>(value);
}

// The first three fields of a value split at any of ",;:" (empty fields are skipped, as a
// tokenizer does); missing fields read 0.
void parse_entry(const std::string &value, uint8_t &r, uint8_t &g, uint8_t &b)
{
    std::string fields[3];
    int count = 0;
    std::string::size_type pos = 0;
    while (count < 3) {
        pos = value.find_first_not_of(",;:", pos);
        if (pos == std::string::npos)
            break;
        const std::string::size_type end = value.find_first_of(",;:", pos);
        fields[count++] = value.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        pos = end;
    }
    r = parse_level(fields[0]);
    g = parse_level(fields[1]);
    b = parse_level(fields[2]);
}

std::string entry_key(int i)
{
    char key[16];
    std::snprintf(key, sizeof key, "%s%d", "RGB", i);
    return key;
}

} // namespace

KEVRA_IMPLEMENT_DYNAMIC(CLUT_24_Bpp, CLUT)

// ---- construction -------------------------------------------------------------------------------

CLUT_24_Bpp::CLUT_24_Bpp()
    : CLUT(24), m_LUTRouge(nullptr), m_LUTVert(nullptr), m_LUTBleu(nullptr),
      m_strSectionIni(kSectionParDefaut)
{
}

CLUT_24_Bpp::CLUT_24_Bpp(const CLUT_24_Bpp &other)
    : CLUT(24), m_LUTRouge(nullptr), m_LUTVert(nullptr), m_LUTBleu(nullptr),
      m_strFichierIni(other.m_strFichierIni), m_strSectionIni(other.m_strSectionIni),
      m_bIniDefini(other.m_bIniDefini)
{
    if (other.IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp))) {
        m_LUTRouge = other.m_LUTRouge;
        m_LUTVert = other.m_LUTVert;
        m_LUTBleu = other.m_LUTBleu;
    }
}

CLUT_24_Bpp::CLUT_24_Bpp(CLUT_8_Bpp *rouge, CLUT_8_Bpp *vert, CLUT_8_Bpp *bleu)
    : CLUT_24_Bpp()
{
    m_LUTRouge.Copier(rouge);
    m_LUTVert.Copier(vert);
    m_LUTBleu.Copier(bleu);
}

CLUT_24_Bpp::CLUT_24_Bpp(tagRGBQUAD *entrees, unsigned count)
    : CLUT(24), m_LUTRouge(nullptr), m_LUTVert(nullptr), m_LUTBleu(nullptr)
{
    // A wrong count returns at once, before the INI file and section are set: such a table
    // cannot be saved or read until both are given.
    if (entrees == nullptr || count != static_cast<unsigned>(Donne_NbEntrees())) {
        m_bIniDefini = false;
        return;
    }
    unsigned char *r = m_LUTRouge.Donne_Table();
    unsigned char *g = m_LUTVert.Donne_Table();
    unsigned char *b = m_LUTBleu.Donne_Table();
    for (unsigned i = 0; i < count; ++i) {
        r[i] = entrees[i].rgbRed;
        g[i] = entrees[i].rgbGreen;
        b[i] = entrees[i].rgbBlue;
    }
    m_strSectionIni = kSectionParDefaut;
}

CLUT_24_Bpp::CLUT_24_Bpp(e_Palette palette) : CLUT_24_Bpp()
{
    SetPalette(palette);
}

CLUT_24_Bpp::CLUT_24_Bpp(const wchar_t *fichier, const wchar_t *section) : CLUT_24_Bpp()
{
    if (fichier != nullptr)
        m_strFichierIni = fichier;
    if (section != nullptr)
        m_strSectionIni = section;
    Lecture_INI(fichier, section);
}

CLUT_24_Bpp &CLUT_24_Bpp::operator=(const CLUT_24_Bpp &other)
{
    CLUT::operator=(other);
    m_LUTRouge = other.m_LUTRouge;
    m_LUTVert = other.m_LUTVert;
    m_LUTBleu = other.m_LUTBleu;
    m_strFichierIni = other.m_strFichierIni;
    m_strSectionIni = other.m_strSectionIni;
    m_bIniDefini = other.m_bIniDefini;
    return *this;
}

CLUT_24_Bpp::~CLUT_24_Bpp() = default;

// ---- table operations -----------------------------------------------------------------------------

void CLUT_24_Bpp::Copier(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp)))
        return;
    CLUT_24_Bpp *other = static_cast<CLUT_24_Bpp *>(pLUT);
    m_LUTRouge.Copier(&other->m_LUTRouge);
    m_LUTVert.Copier(&other->m_LUTVert);
    m_LUTBleu.Copier(&other->m_LUTBleu);
}

void CLUT_24_Bpp::Combiner(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp)))
        return;
    CLUT_24_Bpp *other = static_cast<CLUT_24_Bpp *>(pLUT);
    m_LUTRouge.Combiner(&other->m_LUTRouge);
    m_LUTVert.Combiner(&other->m_LUTVert);
    m_LUTBleu.Combiner(&other->m_LUTBleu);
}

bool CLUT_24_Bpp::FiltrerBuffer(long width, long height, void *bits, CRect &rect)
{
    if (bits == nullptr)
        return false;
    const auto v = detail::view<detail::Bgr24>(width, height, static_cast<unsigned char *>(bits));
    if (detail::fast_paths_enabled())
        detail::apply_tables_bgr_fast(v, detail::table_span(width, height, rect), m_LUTBleu.Donne_Table(),
                                      m_LUTVert.Donne_Table(), m_LUTRouge.Donne_Table());
    else
        detail::apply_tables_bgr(v, detail::table_span(width, height, rect), m_LUTBleu.Donne_Table(),
                                 m_LUTVert.Donne_Table(), m_LUTRouge.Donne_Table());
    return true;
}

bool CLUT_24_Bpp::SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma)
{
    // Built once on the blue table, then copied: the three channels end up equal whatever
    // they held before.
    m_LUTBleu.SetLuminositeConstrateGamma(luminosite, contraste, gamma);
    const unsigned char *b = m_LUTBleu.Donne_Table();
    unsigned char *r = m_LUTRouge.Donne_Table();
    unsigned char *g = m_LUTVert.Donne_Table();
    for (int i = 0; i < Donne_NbEntrees(); ++i)
        r[i] = g[i] = b[i];
    return true;
}

bool CLUT_24_Bpp::Donne_RGBQUAD(tagRGBQUAD *entrees, unsigned count)
{
    if (entrees == nullptr || count != static_cast<unsigned>(Donne_NbEntrees()))
        return false;
    for (unsigned i = 0; i < count; ++i) {
        entrees[i].rgbRed = m_LUTRouge[static_cast<int>(i)];
        entrees[i].rgbGreen = m_LUTVert[static_cast<int>(i)];
        entrees[i].rgbBlue = m_LUTBleu[static_cast<int>(i)];
        entrees[i].rgbReserved = 0;
    }
    return true;
}

bool CLUT_24_Bpp::SetPalette(e_Palette palette)
{
    const int code = static_cast<int>(palette);
    // 13 to 20 pass the range test but have no content: they end with the same message.
    if (code < 11 || code > 23 ||
        !fill_palette(code, m_LUTRouge.Donne_Table(), m_LUTVert.Donne_Table(), m_LUTBleu.Donne_Table())) {
        platform::message_box("CLUT_24_Bpp::SetPalette Unknow parameter!");
        return false;
    }
    return true;
}

bool CLUT_24_Bpp::ReglageRouge(int x)
{
    return m_LUTRouge.SetContraste((static_cast<float>(x) + 100.0f) * 0.01f);
}

bool CLUT_24_Bpp::ReglageVert(int x)
{
    return m_LUTVert.SetContraste((static_cast<float>(x) + 100.0f) * 0.01f);
}

bool CLUT_24_Bpp::ReglageBleu(int x)
{
    return m_LUTBleu.SetContraste((static_cast<float>(x) + 100.0f) * 0.01f);
}

bool CLUT_24_Bpp::ReglageRougeVertBleu(int rouge, int vert, int bleu)
{
    return ReglageRouge(rouge) && ReglageVert(vert) && ReglageBleu(bleu);
}

void CLUT_24_Bpp::Display(CDC *pDC, CRect rect)
{
    if (pDC == nullptr)
        return;
    pDC->Draw3dRect(rect, pDC->GetSysColor(CDC::e_Color3DHighlight),
                    pDC->GetSysColor(CDC::e_Color3DDkShadow));
    CRect inner(rect.left + 1, rect.top + 1, rect.right - 1, rect.bottom - 1);
    m_LUTRouge.Display(pDC, inner, 0x0000FFul);
    m_LUTVert.Display(pDC, inner, 0x00FF00ul);
    m_LUTBleu.Display(pDC, inner, 0xFF0000ul);
}

// ---- INI persistence ----------------------------------------------------------------------------

void CLUT_24_Bpp::SetFichierIniDefaut(const wchar_t *fichier)
{
    std::lock_guard<std::mutex> lock(profile_mutex());
    profile_override() = fichier != nullptr ? fichier : L"";
}

std::string CLUT_24_Bpp::Donne_FichierIniDefaut()
{
    std::lock_guard<std::mutex> lock(profile_mutex());
    if (!profile_override().empty())
        return platform::to_utf8(profile_override().c_str());
    return platform::default_profile_path();
}

std::string CLUT_24_Bpp::ini_path() const
{
    if (!m_strFichierIni.empty())
        return platform::to_utf8(m_strFichierIni.c_str());
    return Donne_FichierIniDefaut();
}

bool CLUT_24_Bpp::adopt_ini(const wchar_t *fichier, const wchar_t *section, std::string &path,
                            std::string &sectionName)
{
    if (fichier != nullptr) {
        m_strFichierIni = fichier;
        m_bIniDefini = true;
    }
    if (section != nullptr)
        m_strSectionIni = section;
    if (!m_bIniDefini || m_strSectionIni.empty())
        return false;
    path = ini_path();
    if (path.empty())
        return false;
    sectionName = platform::to_utf8(m_strSectionIni.c_str());
    return true;
}

bool CLUT_24_Bpp::Sauvegarde_INI(const wchar_t *fichier, const wchar_t *section)
{
    std::string path, sectionName;
    if (!adopt_ini(fichier, section, path, sectionName))
        return false;
    if (m_strFichierIni.empty()) {
        // The default location may not exist yet; a file the caller names must be in a
        // directory the caller made.
        std::error_code ec;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    }
    detail::IniFile ini;
    if (!ini.load(path))
        return false;
    for (int i = 0; i < Donne_NbEntrees(); ++i) {
        char value[48];
        std::snprintf(value, sizeof value, "%d,%d,%d", m_LUTRouge[i], m_LUTVert[i], m_LUTBleu[i]);
        ini.set(sectionName, entry_key(i), value);
    }
    return ini.save(path);
}

bool CLUT_24_Bpp::Lecture_INI(const wchar_t *fichier, const wchar_t *section)
{
    std::string path, sectionName;
    if (!adopt_ini(fichier, section, path, sectionName))
        return false;
    detail::IniFile ini;
    if (!ini.load(path))
        return false;
    bool complete = true;
    unsigned char *r = m_LUTRouge.Donne_Table();
    unsigned char *g = m_LUTVert.Donne_Table();
    unsigned char *b = m_LUTBleu.Donne_Table();
    for (int i = 0; i < Donne_NbEntrees(); ++i) {
        const std::string *found = ini.find(sectionName, entry_key(i));
        const std::string value = found != nullptr ? *found : std::string(kValeurAbsente);
        // A missing key reads as "ECHEC": the read fails, the entry stays, the rest goes on.
        if (value == kValeurAbsente) {
            complete = false;
            continue;
        }
        parse_entry(value, r[i], g[i], b[i]);
    }
    return complete;
}

} // namespace kevra
