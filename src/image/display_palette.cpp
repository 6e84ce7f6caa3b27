// Display palettes of grey images: the 256 palette entries recolour or re-tone
// the picture on screen without touching the pixels.
#include <cstring>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"

namespace kevra {
namespace {

// Only a 256-entry palette (8 and 16 bits) takes a display palette; 24-bit
// images and 1- or 4-bit images are left alone, silently.
tagRGBQUAD *display_palette_of(CxImage *store)
{
    if (store == nullptr || store->palette_entries() != 256)
        return nullptr;
    return store->palette();
}

} // namespace

long CDibRoot::SetDisplayPalette(e_Palette palette)
{
    tagRGBQUAD *entries = display_palette_of(m_pCxImage);
    if (entries != nullptr) {
        CLUT_24_Bpp table(palette);
        tagRGBQUAD quads[256];
        table.Donne_RGBQUAD(quads, 256);
        std::memcpy(entries, quads, sizeof quads);
    }
    // 0 whatever happened: callers do not learn whether it was applied.
    return 0;
}

long CDibRoot::SetDisplayPalette(CLUT_24_Bpp lut)
{
    tagRGBQUAD *entries = display_palette_of(m_pCxImage);
    if (entries != nullptr) {
        tagRGBQUAD quads[256];
        lut.Donne_RGBQUAD(quads, 256);
        std::memcpy(entries, quads, sizeof quads);
    }
    return 0;
}

long CDibRoot::SetDisplayPalette(CLUT_24_Bpp *pLUT_Affichage, float luminosite, float contraste,
                                 float gamma, e_Palette palette, int rouge, int vert, int bleu,
                                 bool negatif)
{
    // The caller's table is the additional table of the display chain.
    CLUT_24_Bpp table;
    if (CSequenceur::ComputeDisplayPalette(&table, luminosite, contraste, gamma, palette, rouge, vert,
                                           bleu, negatif, pLUT_Affichage))
        SetDisplayPalette(table);
    return 0;
}

long CDibRoot::GetCurrentDisplayPalette(tagRGBQUAD *buffer, unsigned int capacity)
{
    if (m_pCxImage == nullptr || buffer == nullptr)
        return 0;
    const tagRGBQUAD *entries = m_pCxImage->palette();
    const uint32_t count = m_pCxImage->palette_entries();
    if (entries == nullptr || count > capacity)
        return 0;
    std::memcpy(buffer, entries, count * sizeof(tagRGBQUAD));
    return 1;
}

long CDibRoot::GetCurrentDisplayPalette(CLUT_24_Bpp *lut)
{
    if (m_pCxImage == nullptr || lut == nullptr)
        return 0;
    const tagRGBQUAD *entries = m_pCxImage->palette();
    const uint32_t count = m_pCxImage->palette_entries();
    if (entries == nullptr || count > 256)
        return 0;
    // A shorter palette (1 and 4 bits) fills the first entries; the rest are black.
    tagRGBQUAD quads[256] = {};
    std::memcpy(quads, entries, count * sizeof(tagRGBQUAD));
    *lut = CLUT_24_Bpp(quads, 256);
    return 1;
}

} // namespace kevra
