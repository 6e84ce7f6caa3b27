// Tone adjustments: each rebuilds the working table and applies it to the rectangle.
#include "kevra/traitement.h"

#include "core/image_form.h"
#include "kevra/dib.h"
#include "kevra/lut.h"

namespace kevra {

KEVRA_IMPLEMENT_DYNAMIC(CTraitementImg, CTraitementImgBase)

CTraitementImg::CTraitementImg(unsigned char bpp) : CTraitementImgBase(bpp), m_pLUT(nullptr) {}

CTraitementImg::~CTraitementImg() = default;

namespace {

// Rebuild, then apply. The result is the rebuild's: the application's is not looked at.
bool tone(CLUT *lut, float luminosite, float contraste, float gamma, long width, long height,
          void *bits, CRect &rect)
{
    if (lut == nullptr)
        return false;
    const bool built = lut->SetLuminositeConstrateGamma(luminosite, contraste, gamma);
    lut->FiltrerBuffer(width, height, bits, rect);
    return built;
}

} // namespace

bool CTraitementImg::ReglageLuminosite(float luminosite, long width, long height, void *bits, CRect &rect)
{
    return tone(m_pLUT, luminosite, 1.0f, 1.0f, width, height, bits, rect);
}

bool CTraitementImg::ReglageLuminosite(float luminosite, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return ReglageLuminosite(luminosite, w, h, bits, rc);
    });
}

bool CTraitementImg::ReglageContraste(float contraste, long width, long height, void *bits, CRect &rect)
{
    return tone(m_pLUT, 0.0f, contraste, 1.0f, width, height, bits, rect);
}

bool CTraitementImg::ReglageContraste(float contraste, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return ReglageContraste(contraste, w, h, bits, rc);
    });
}

bool CTraitementImg::ReglageGamma(float gamma, long width, long height, void *bits, CRect &rect)
{
    return tone(m_pLUT, 0.0f, 1.0f, gamma, width, height, bits, rect);
}

bool CTraitementImg::ReglageGamma(float gamma, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return ReglageGamma(gamma, w, h, bits, rc);
    });
}

bool CTraitementImg::ReglageLuminositeContrasteGamma(float luminosite, float contraste, float gamma,
                                                     long width, long height, void *bits, CRect &rect)
{
    return tone(m_pLUT, luminosite, contraste, gamma, width, height, bits, rect);
}

bool CTraitementImg::ReglageLuminositeContrasteGamma(float luminosite, float contraste, float gamma,
                                                     CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return ReglageLuminositeContrasteGamma(luminosite, contraste, gamma, w, h, bits, rc);
    });
}

// The relief kernel has no body in this version: it reports failure, so Pseudo3D always
// returns false (and a sequencer step asking for it fails its run). Kept that way on purpose.
static bool relief_kernel(tagBITMAPINFO *, void *, long, long, long, long)
{
    return false;
}

bool CTraitementImg::Pseudo3D(tagBITMAPINFO *sourceHeader, void *sourceBits,
                              tagBITMAPINFO *targetHeader, void *targetBits)
{
    if (sourceHeader == nullptr || sourceBits == nullptr || targetHeader == nullptr ||
        targetBits == nullptr)
        return false;
    const int bpp = sourceHeader->bmiHeader.biBitCount;
    if (bpp != 8 && bpp != 16)
        return false;
    if (bpp != targetHeader->bmiHeader.biBitCount)
        return false;
    return relief_kernel(sourceHeader, sourceBits, sourceHeader->bmiHeader.biWidth,
                         sourceHeader->bmiHeader.biHeight, targetHeader->bmiHeader.biWidth,
                         targetHeader->bmiHeader.biHeight);
}

bool CTraitementImg::Pseudo3D(CDibRoot *source, CDibRoot *target)
{
    if (source == nullptr || target == nullptr)
        return false;
    bool result = false;
    if (source->BitCount() == target->BitCount())
        result = Pseudo3D(source->GetInfo(), source->GetBits(), target->GetInfo(), target->GetBits());
    source->ReleaseBits();
    target->ReleaseBits();
    return result;
}

} // namespace kevra
