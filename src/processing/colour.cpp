// Colour operations of the 24-bit class: the RGB/HSL model and the colour adjustments.
//
// Two rectangle conventions live side by side here, each part of its operations' results
// (callers rely on both):
//  * half-open (saturation, hue, luminance, whitening): columns left .. right - 1, picture rows
//    top .. bottom - 1. Through an image form, which passes the inclusive working zone, these
//    leave the zone's rightmost column and bottom row as they were.
//  * inclusive (red/green/blue levels, black and white): columns left .. right, picture rows
//    top .. bottom.
// Neither is clipped to the image: buffer forms trust their rectangle.
#include <cstddef>
#include <cstdint>

#include "core/fast_path.h"
#include "core/image_form.h"
#include "core/pixel.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/traitement.h"
#include "processing/detail/colour_model.h"
#include "processing/detail/colour_walk.h"

namespace kevra {

namespace {

using detail::Bgr24;
using detail::PixelRuns;
using detail::View;

View<Bgr24> colour_view(long width, long height, void *bits)
{
    return detail::view<Bgr24>(width, height, static_cast<unsigned char *>(bits));
}

// Below this many pixels filling the memo table costs more than it saves.
constexpr int64_t kMemoMinPixels = 65536;

// The hue and lightness gains: every pixel of the half-open rectangle through the model.
// What the memo leaves (or all of a small rectangle) goes four pixels at a time where the
// processor has AVX2, through the plain model elsewhere.
template <detail::ModelGain Gain>
void apply_model(long width, long height, void *bits, const CRect &rect, double factor)
{
    constexpr detail::ModelFn model = detail::model_of<Gain>();
    const View<Bgr24> v = colour_view(width, height, bits);
    const PixelRuns runs = detail::half_open_runs(height, rect);
    if (!detail::fast_paths_enabled()) {
        detail::apply_model_plain(v, runs, factor, model);
        return;
    }
    const bool wide = detail::vector_level() == detail::VectorLevel::avx2;
    auto direct = [&](const PixelRuns &left) {
#if defined(KEVRA_MODEL_LANES)
        if (wide) {
            detail::apply_model_lanes<Gain>(v, left, factor);
            return;
        }
#endif
        detail::apply_model_plain(v, left, factor, model);
    };
    // A miss costs about twice what the four-pixel model costs a pixel; a hit almost nothing.
    if (runs.pixels() < kMemoMinPixels ||
        !detail::apply_model_memo(v, runs, factor, model, direct, wide ? 4 : 7))
        direct(runs);
}

} // namespace

// ---- RGB/HSL model ----------------------------------------------------------------------------

void CTraitementImg_24_Bpp::RGBtoHSL(unsigned char c1, unsigned char c2, unsigned char c3,
                                     double *H, double *S, double *L)
{
    const detail::Hsl m = detail::rgb_to_hsl(c1, c2, c3);
    *H = m.h;
    *S = m.s;
    *L = m.l;
}

void CTraitementImg_24_Bpp::RGBtoHSL(unsigned long couleur, double *H, double *S, double *L)
{
    const uint32_t packed = static_cast<uint32_t>(couleur);
    RGBtoHSL(static_cast<unsigned char>(packed & 0xFFu),
             static_cast<unsigned char>((packed >> 8) & 0xFFu),
             static_cast<unsigned char>((packed >> 16) & 0xFFu), H, S, L);
}

void CTraitementImg_24_Bpp::HSLtoRGB(double H, double S, double L, unsigned char *c1,
                                     unsigned char *c2, unsigned char *c3)
{
    const detail::Rgb8 out = detail::hsl_to_rgb(H, S, L);
    *c1 = out.c1;
    *c2 = out.c2;
    *c3 = out.c3;
}

unsigned long CTraitementImg_24_Bpp::HSLtoRGB(double H, double S, double L)
{
    unsigned char c1 = 0, c2 = 0, c3 = 0;
    HSLtoRGB(H, S, L, &c1, &c2, &c3);
    return static_cast<unsigned long>(static_cast<uint32_t>(c1) | (static_cast<uint32_t>(c2) << 8)
                                      | (static_cast<uint32_t>(c3) << 16));
}

double CTraitementImg_24_Bpp::HuetoRGB(double m1, double m2, double h)
{
    return detail::hue_to_rgb(m1, m2, h);
}

// ---- Saturation -------------------------------------------------------------------------------

void CTraitementImg_24_Bpp::ProcessingSat(unsigned char *source, unsigned char *destination,
                                          int nombre, double facteur)
{
    const int32_t s0 = detail::saturation_fixed_factor(facteur);
    for (int i = 0; i < nombre; ++i)
        detail::saturate_pixel(source + 3 * static_cast<std::ptrdiff_t>(i),
                               destination + 3 * static_cast<std::ptrdiff_t>(i), s0);
}

// Half-open rectangle: one in-place run of right - left pixels per row.
bool CTraitementImg_24_Bpp::ReglageSaturation(int pourcentage, long width, long height,
                                              void *bits, CRect &rect)
{
    const double facteur = static_cast<double>(pourcentage) * 0.01;
    const View<Bgr24> v = colour_view(width, height, bits);
    const PixelRuns runs = detail::half_open_runs(height, rect);
    if (runs.count <= 0)
        return true;
    for (int64_t r = runs.r0; r <= runs.r1; ++r) {
        uint8_t *p = detail::run_start(v, runs, r);
        ProcessingSat(p, p, detail::wrap_int32(runs.count), facteur);
    }
    return true;
}

bool CTraitementImg_24_Bpp::ReglageSaturation(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageSaturation(pourcentage, w, h, b, rc);
    });
}

// ---- Hue, luminance, whitening (half-open) ----------------------------------------------------

bool CTraitementImg_24_Bpp::ReglageTeinte(int pourcentage, long width, long height, void *bits,
                                          CRect &rect)
{
    apply_model<detail::ModelGain::hue>(width, height, bits, rect, detail::model_factor(pourcentage));
    return true;
}

bool CTraitementImg_24_Bpp::ReglageTeinte(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageTeinte(pourcentage, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::ReglageLuminance(int pourcentage, long width, long height,
                                             void *bits, CRect &rect)
{
    apply_model<detail::ModelGain::lightness>(width, height, bits, rect, detail::model_factor(pourcentage));
    return true;
}

bool CTraitementImg_24_Bpp::ReglageLuminance(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageLuminance(pourcentage, w, h, b, rc);
    });
}

// Teeth whitening is a lightness gain and nothing else.
bool CTraitementImg_24_Bpp::BlanchimentDents(long width, long height, void *bits, CRect &rect,
                                             int niveau)
{
    return ReglageLuminance(niveau, width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::BlanchimentDents(int niveau, long width, long height, void *bits,
                                             CRect &rect)
{
    return ReglageLuminance(niveau, width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::BlanchimentDents(int niveau, CDibRoot *image)
{
    return ReglageLuminance(niveau, image);
}

// ---- Red, green, blue levels (inclusive, through a colour table) ------------------------------
//
// Each builds a fresh default table, sets the wanted channel gains (level + 100) / 100 on it
// and applies it to the inclusive rectangle; the object's own working table is not touched.

bool CTraitementImg_24_Bpp::ReglageRouge(int pourcentage, long width, long height, void *bits,
                                         CRect &rect)
{
    CLUT_24_Bpp table;
    table.ReglageRouge(pourcentage);
    return table.FiltrerBuffer(width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::ReglageRouge(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageRouge(pourcentage, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::ReglageVert(int pourcentage, long width, long height, void *bits,
                                        CRect &rect)
{
    CLUT_24_Bpp table;
    table.ReglageVert(pourcentage);
    return table.FiltrerBuffer(width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::ReglageVert(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageVert(pourcentage, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::ReglageBleu(int pourcentage, long width, long height, void *bits,
                                        CRect &rect)
{
    CLUT_24_Bpp table;
    table.ReglageBleu(pourcentage);
    return table.FiltrerBuffer(width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::ReglageBleu(int pourcentage, CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageBleu(pourcentage, w, h, b, rc);
    });
}

// The table sets red, then green, then blue, stopping at the first channel it refuses.
bool CTraitementImg_24_Bpp::ReglageRougeVertBleu(int rouge, int vert, int bleu, long width,
                                                 long height, void *bits, CRect &rect)
{
    CLUT_24_Bpp table;
    table.ReglageRougeVertBleu(rouge, vert, bleu);
    return table.FiltrerBuffer(width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::ReglageRougeVertBleu(int rouge, int vert, int bleu,
                                                 CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return ReglageRougeVertBleu(rouge, vert, bleu, w, h, b, rc);
    });
}

// ---- Black and white (inclusive) --------------------------------------------------------------

// The picture becomes its second byte (green): no weighted luminance, on purpose.
bool CTraitementImg_24_Bpp::NoirEtBlanc(long width, long height, void *bits, CRect &rect)
{
    const View<Bgr24> v = colour_view(width, height, bits);
    detail::for_each_pixel(v, detail::inclusive_runs(height, rect), [](uint8_t *p) {
        p[0] = p[1];
        p[2] = p[1];
    });
    return true;
}

bool CTraitementImg_24_Bpp::NoirEtBlanc(CDibRoot *image)
{
    return detail::run_image_form(GetBpp(), image, [&](long w, long h, void *b, CRect &rc) {
        return NoirEtBlanc(w, h, b, rc);
    });
}

} // namespace kevra
