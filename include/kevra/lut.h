// Look-up tables: CLUT (abstract), CLUT_8_Bpp and CLUT_16_Bpp (grey), CLUT_24_Bpp (one grey
// table per colour channel, also the display palette of grey images).
//
// Common rules:
//  * A table maps every level of its depth to a new level: 256 one-byte entries (8 and 24 bits,
//    the latter once per channel) or 65536 16-bit entries. Every loop over entries takes its
//    count from the depth field: 65536 when it is 16, else 256 (Donne_NbEntrees).
//  * Tables are values: they keep no pointer to any image.
//  * Copier and Combiner accept only a table of the same class (run-time kind test); given a
//    null table or one of another class they change nothing and report nothing.
//  * FiltrerBuffer works in place on a bottom-up buffer of the table's depth (rows padded to 4
//    bytes) over the rectangle, in picture coordinates with all four edges inclusive: buffer
//    rows height - 1 - bottom to height - 1 - top, columns left to right. A rectangle whose top
//    is below its bottom does nothing. Callers pass a rectangle inside the image; any part of
//    one that reaches outside the buffer is left out rather than walked.
//  * The run-time record of CLUT names CObject, not CTraitementImgBase, as its base: a kind test
//    of any table against CTraitementImgBase is false. Kept as it is.
//  * Entry access for callers: Donne_Table() (the raw entries, writable through a non-const
//    table) and operator[] (read). CLUT_24_Bpp gives its channels with Donne_Rouge, Donne_Vert
//    and Donne_Bleu.
#ifndef KEVRA_LUT_H
#define KEVRA_LUT_H

#include <string>

#include "kevra/palette.h"
#include "kevra/traitement_base.h"
#include "kevra/types.h"

namespace kevra {

class CDC;
class CDibRoot;

class CLUT : public CTraitementImgBase {
    KEVRA_DECLARE_DYNAMIC(CLUT)
public:
    explicit CLUT(unsigned char bpp);
    ~CLUT() override;

    // Virtual slots after the root's, in this order.
    virtual void Copier(CLUT *pLUT) = 0;
    // Entry i becomes pLUT's entry at (entry i): this table is applied first, pLUT on its result.
    virtual void Combiner(CLUT *pLUT) = 0;
    virtual bool FiltrerBuffer(long width, long height, void *bits, CRect &rect) = 0;
    // Rebuilds the whole table from brightness (a fraction of full scale added after the
    // contrast), contrast (a gain about black) and gamma (bends the normalised input). The name
    // is spelt so in the interface.
    virtual bool SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma) = 0;

    // SetLuminositeConstrateGamma(0, contraste, 1.0) through the virtual slot.
    bool SetContraste(float contraste);
    // FiltrerBuffer over the image's working zone; false for a null image, an image of another
    // depth or an image that is not IsOK().
    bool Filtre(CDibRoot *image);
    // Draws a grey table (8 or 16 bits) as a curve in the rectangle with a solid 1-pixel pen of
    // the colour (0x00BBGGRR): entry i at x = left + i * (right - left) / N,
    // y = bottom - entry * (bottom - top) / N, in single precision, truncated. The scale divides
    // by N, not N - 1, so the curve never quite reaches the top or right edge. The background
    // mode and pen are restored afterwards. Nothing is drawn for a null surface or a colour
    // table (CLUT_24_Bpp has its own Display).
    void Display(CDC *pDC, CRect rect, unsigned long couleur);

    // 65536 when the depth field is 16, else 256.
    int Donne_NbEntrees() const;

protected:
    CLUT(const CLUT &) = default;
    CLUT &operator=(const CLUT &) = default;
};

class CLUT_8_Bpp : public CLUT {
    KEVRA_DECLARE_DYNAMIC(CLUT_8_Bpp)
public:
    // Null: identity table; else a copy of 256 entries.
    explicit CLUT_8_Bpp(const unsigned char *pLUT = nullptr);
    CLUT_8_Bpp(const CLUT_8_Bpp &other);
    CLUT_8_Bpp &operator=(const CLUT_8_Bpp &other);
    ~CLUT_8_Bpp() override;

    void Copier(CLUT *pLUT) override;
    void Combiner(CLUT *pLUT) override;
    bool FiltrerBuffer(long width, long height, void *bits, CRect &rect) override;
    // Always true.
    bool SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma) override;

    // Every entry i equals i.
    bool IsLinear45();

    const unsigned char *Donne_Table() const { return m_LUT; }
    unsigned char *Donne_Table() { return m_LUT; }
    unsigned char operator[](int i) const { return m_LUT[i]; }

private:
    unsigned char m_LUT[256];
};

class CLUT_16_Bpp : public CLUT {
    KEVRA_DECLARE_DYNAMIC(CLUT_16_Bpp)
public:
    // Null: identity table. Otherwise 65536 BYTES are copied from the array, that is its first
    // 32768 entries; the upper half of the table is not set from the array (it is zero).
    explicit CLUT_16_Bpp(const unsigned short *pLUT = nullptr);
    CLUT_16_Bpp(const CLUT_16_Bpp &other);
    CLUT_16_Bpp &operator=(const CLUT_16_Bpp &other);
    ~CLUT_16_Bpp() override;

    void Copier(CLUT *pLUT) override;
    void Combiner(CLUT *pLUT) override;
    bool FiltrerBuffer(long width, long height, void *bits, CRect &rect) override;
    bool SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma) override;

    bool IsLinear45();

    const unsigned short *Donne_Table() const { return m_LUT; }
    unsigned short *Donne_Table() { return m_LUT; }
    unsigned short operator[](int i) const { return m_LUT[i]; }

private:
    unsigned short m_LUT[65536];
};

// Colour table: a red, a green and a blue CLUT_8_Bpp. Applied to a 24-bit pixel it replaces the
// first byte (blue) through the blue table, the second through the green, the third through
// the red. As a display palette, entry i is (red[i], green[i], blue[i]).
//
// INI persistence: section "RGBLut" by default, keys "RGB0" to "RGB255", values "r,g,b" in
// decimal. The default file is the application's profile: the file given to
// SetFichierIniDefaut, else "<program name>.ini" in the directory "kevra" under
// $XDG_CONFIG_HOME, or under ~/.config when that variable is not set (the directory is made on
// the first save). Nothing is written to the working directory unless a caller names a file
// there. An existing file keeps its other sections and keys.
class CLUT_24_Bpp : public CLUT {
public:
    typedef kevra::e_Palette e_Palette;

    KEVRA_DECLARE_DYNAMIC(CLUT_24_Bpp)
public:
    // Identity tables, default INI file and section.
    CLUT_24_Bpp();
    // The argument's three channels, INI file and section.
    CLUT_24_Bpp(const CLUT_24_Bpp &other);
    // Each channel copied (Copier) from the given table; a null table leaves that channel
    // identity.
    CLUT_24_Bpp(CLUT_8_Bpp *rouge, CLUT_8_Bpp *vert, CLUT_8_Bpp *bleu);
    // count must be 256: channel i takes the entry's red, green and blue bytes. With another
    // count (or no entries) the tables stay identity and the INI file and section are left
    // unset, so that the INI members fail until they are given both.
    CLUT_24_Bpp(tagRGBQUAD *entrees, unsigned count);
    // SetPalette(palette), whose result is not looked at (an unknown value shows its message).
    explicit CLUT_24_Bpp(e_Palette palette);
    // INI file (null: the default file) and section (null: "RGBLut"), then Lecture_INI.
    CLUT_24_Bpp(const wchar_t *fichier, const wchar_t *section);
    CLUT_24_Bpp &operator=(const CLUT_24_Bpp &other);
    ~CLUT_24_Bpp() override;

    void Copier(CLUT *pLUT) override;
    void Combiner(CLUT *pLUT) override;
    bool FiltrerBuffer(long width, long height, void *bits, CRect &rect) override;
    // The blue table is rebuilt (CLUT_8_Bpp's formula), then red and green become copies of it.
    bool SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma) override;

    // False when count is not 256 (or out is null); else entry i = (red[i], green[i], blue[i])
    // with a zero reserved byte.
    bool Donne_RGBQUAD(tagRGBQUAD *entrees, unsigned count);
    // Fills the three tables with a predefined palette: 11 grey ramp, 12 inverted grey ramp,
    // 21 and 22 false-colour ramps, 23 blue-weighted ramp. Any other value shows
    // "CLUT_24_Bpp::SetPalette Unknow parameter!" through the platform message box, leaves the
    // tables as they were and returns false.
    bool SetPalette(e_Palette palette);

    // That channel's SetContraste((x + 100) * 0.01) in single precision: 0 keeps the channel
    // (nearly) as it is, -100 makes it black.
    bool ReglageRouge(int x);
    bool ReglageVert(int x);
    bool ReglageBleu(int x);
    // Red, then green, then blue, stopping at the first false.
    bool ReglageRougeVertBleu(int rouge, int vert, int bleu);

    // A 3-D frame on the rectangle (system highlight at top-left, dark shadow at bottom-right),
    // then, inside it shrunk by one pixel, the red, green and blue curves in pure red, green and
    // blue (CLUT::Display). Nothing for a null surface.
    void Display(CDC *pDC, CRect rect);

    // Non-null arguments first replace the stored file and section. Both write or read all 256
    // keys; false when the file or section is unset, when the file cannot be read or written,
    // and (Lecture_INI) when any key is missing or holds "ECHEC": such an entry is left as it
    // is while the others are still read. A value is split at any of ",;:" and its first three
    // fields read as decimal integers (a missing field reads 0; the low 8 bits are kept).
    bool Sauvegarde_INI(const wchar_t *fichier = nullptr, const wchar_t *section = nullptr);
    bool Lecture_INI(const wchar_t *fichier = nullptr, const wchar_t *section = nullptr);

    CLUT_8_Bpp &Donne_Rouge() { return m_LUTRouge; }
    CLUT_8_Bpp &Donne_Vert() { return m_LUTVert; }
    CLUT_8_Bpp &Donne_Bleu() { return m_LUTBleu; }
    const CLUT_8_Bpp &Donne_Rouge() const { return m_LUTRouge; }
    const CLUT_8_Bpp &Donne_Vert() const { return m_LUTVert; }
    const CLUT_8_Bpp &Donne_Bleu() const { return m_LUTBleu; }

    // The application's profile, used when a table names no INI file. Null or empty restores
    // the default location described above. Process-wide.
    static void SetFichierIniDefaut(const wchar_t *fichier);
    // The file a table with no INI file of its own reads and writes (UTF-8 path); empty when no
    // location can be found (no HOME and no XDG_CONFIG_HOME).
    static std::string Donne_FichierIniDefaut();

private:
    // Where the INI members read and write: the stored file (or the default file), as a path.
    std::string ini_path() const;
    // The common start of both INI members: the non-null arguments replace the stored file
    // and section, then the path and the section name (UTF-8); false when either is unset.
    bool adopt_ini(const wchar_t *fichier, const wchar_t *section, std::string &path,
                   std::string &sectionName);

    CLUT_8_Bpp m_LUTRouge;
    CLUT_8_Bpp m_LUTVert;
    CLUT_8_Bpp m_LUTBleu;
    // INI file and section. An empty file means the application's profile (the default file).
    std::wstring m_strFichierIni;
    std::wstring m_strSectionIni;
    // False only after the colour-array constructor was given a wrong count.
    bool m_bIniDefini = true;
};

} // namespace kevra

#endif
