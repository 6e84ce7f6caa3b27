// Histograms of the three depths and the percentile stretch (EgalisationHistogramme).
// Kernels: processing/detail/histogram.h.
#include "kevra/traitement.h"

#include <cstdint>
#include <type_traits>

#include "core/fast_path.h"
#include "core/image_form.h"
#include "core/pixel.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "processing/detail/histogram.h"
#include "processing/detail/histogram_fast.h"

namespace kevra {

namespace detail {

template void stretch_table<uint8_t>(uint8_t *, int32_t, const StretchLimits &);
template void stretch_table<uint16_t>(uint16_t *, int32_t, const StretchLimits &);

namespace {

// Level of a pixel for each kind of count.
struct FirstSample {
    template <class S>
    int32_t operator()(const S *p) const { return *p; }
};
struct Byte {
    int index;
    int32_t operator()(const uint8_t *p) const { return p[index]; }
};
struct Luminance {
    int32_t operator()(const uint8_t *p) const { return luminance_level(p); }
};

// Grey levels, one bin a level (256 at 8 bits, 65536 at 16). The fast path deals 8-bit pixels
// to sub-histograms (histogram_fast.h). At 16 bits neighbouring pixels rarely share a level
// and sub-histograms of 65536 counts cost more to clear and merge than they save: the plain
// walk counts them.
template <class Px>
void count_grey(const View<Px> &v, const Span &s, long *bins, int32_t nbins)
{
    if constexpr (Px::bpp == 8) {
        if (fast_paths_enabled() && counts_fit(s) && nbins == 256) {
            uint32_t scratch[4 * 256];
            count_grey_fast<Px, 4>(v, s, bins, 256, scratch);
            return;
        }
    }
    count_levels<Px>(v, s, bins, nbins, FirstSample());
}

// The three bytes of each 24-bit pixel, each into its own 256 bins.
void count_bytes(const View<Bgr24> &v, const Span &s, long *first, long *second, long *third)
{
    if (fast_paths_enabled() && counts_fit(s))
        count_channels_fast(v, s, first, second, third);
    else
        count_channels(v, s, first, second, third);
}

template <class Px, class Level>
bool histogram(long *bins, int32_t nbins, long width, long height, void *bits, const CRect &rect, Level level)
{
    if (bins == nullptr || bits == nullptr)
        return false;
    const View<Px> v = view<Px>(width, height, as_bytes(bits));
    if constexpr (std::is_same_v<Level, FirstSample>)
        count_grey<Px>(v, clip_rect(width, height, rect), bins, nbins);
    else
        count_levels<Px>(v, clip_rect(width, height, rect), bins, nbins, level);
    return true;
}

float buffer_pixels(long width, long height)
{
    return static_cast<float>(static_cast<int64_t>(width) * static_cast<int64_t>(height));
}

// Grey stretch: L = 65536 levels when the depth is 16, else 256; histogram of the rectangle,
// percentile limits, a local table of the class's kind, applied with the table's own walk.
// The counts (up to 512 KiB) and the 16-bit table live on the heap: false when they cannot be
// had, buffer unchanged.
template <class Lut, class Px>
bool stretch_grey(unsigned bpp, float low_share, float high_point, long width, long height, void *bits, CRect &rect)
{
    if (bits == nullptr)
        return false;
    const int32_t levels = lut_entries(bpp);
    long *bins = try_new_array<long>(static_cast<std::size_t>(levels));
    Lut *lut = try_new<Lut>(nullptr);
    bool result = false;
    if (bins != nullptr && lut != nullptr) {
        count_grey<Px>(view<Px>(width, height, as_bytes(bits)), clip_rect(width, height, rect), bins, levels);
        const StretchLimits lim = stretch_limits(bins, levels, low_share, high_point, buffer_pixels(width, height));
        stretch_table(lut->Donne_Table(), levels, lim);
        lut->FiltrerBuffer(width, height, bits, rect);
        result = true;
    }
    delete lut;
    delete[] bins;
    return result;
}

// Colour stretch: the limits of each byte's histogram are found as in the grey stretch (256
// levels), then ONE table, from the lowest of the three low limits to the highest of the three
// high limits, is applied to all three bytes. No channel is cut beyond its share and the
// colour balance is kept: grey stays grey and a colour cast is not "corrected" away, which is
// what a user expects of a contrast stretch on a colour picture.
bool stretch_colour(float low_share, float high_point, long width, long height, void *bits, CRect &rect)
{
    if (bits == nullptr)
        return false;
    long bins[3][256];
    count_bytes(view<Bgr24>(width, height, as_bytes(bits)), clip_rect(width, height, rect), bins[0], bins[1],
                bins[2]);
    const float pixels = buffer_pixels(width, height);
    StretchLimits common = stretch_limits(bins[0], 256, low_share, high_point, pixels);
    for (int c = 1; c < 3; ++c) {
        const StretchLimits lim = stretch_limits(bins[c], 256, low_share, high_point, pixels);
        if (lim.low < common.low)
            common.low = lim.low;
        if (lim.high > common.high)
            common.high = lim.high;
    }
    CLUT_8_Bpp table;
    stretch_table(table.Donne_Table(), 256, common);
    CLUT_24_Bpp lut(&table, &table, &table);
    lut.FiltrerBuffer(width, height, bits, rect);
    return true;
}

} // namespace
} // namespace detail

using detail::Bgr24;
using detail::Grey16;
using detail::Grey8;

// ---- 8 bits ------------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::Donne_Histogramme(long *const histogramme, long width, long height, void *bits, CRect &rect)
{
    return detail::histogram<Grey8>(histogramme, 256, width, height, bits, rect, detail::FirstSample());
}

bool CTraitementImg_8_Bpp::Donne_Histogrammes(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_Histogramme(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_8_Bpp::EgalisationHistogramme(float min, float max, long width, long height, void *bits, CRect &rect)
{
    return detail::stretch_grey<CLUT_8_Bpp, Grey8>(m_bpp, min, max, width, height, bits, rect);
}

bool CTraitementImg_8_Bpp::EgalisationHistogramme(float min, float max, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return EgalisationHistogramme(min, max, w, h, b, rc);
    });
}

// ---- 16 bits: 65536 counts whatever the sample range in use ---------------------------------------

bool CTraitementImg_16_Bpp::Donne_Histogramme(long *const histogramme, long width, long height, void *bits, CRect &rect)
{
    return detail::histogram<Grey16>(histogramme, 65536, width, height, bits, rect, detail::FirstSample());
}

bool CTraitementImg_16_Bpp::Donne_Histogrammes(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_Histogramme(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_16_Bpp::EgalisationHistogramme(float min, float max, long width, long height, void *bits, CRect &rect)
{
    return detail::stretch_grey<CLUT_16_Bpp, Grey16>(m_bpp, min, max, width, height, bits, rect);
}

bool CTraitementImg_16_Bpp::EgalisationHistogramme(float min, float max, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return EgalisationHistogramme(min, max, w, h, b, rc);
    });
}

// ---- 24 bits: the first byte of a pixel is counted as red, the second as green, the third as
// blue (the reverse of the bitmap's own order; the counts are defined so and callers read them so)

bool CTraitementImg_24_Bpp::Donne_HistogrammeRouge(long *const histogramme, long width, long height, void *bits, CRect &rect)
{
    return detail::histogram<Bgr24>(histogramme, 256, width, height, bits, rect, detail::Byte{0});
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeVert(long *const histogramme, long width, long height, void *bits, CRect &rect)
{
    return detail::histogram<Bgr24>(histogramme, 256, width, height, bits, rect, detail::Byte{1});
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeBleu(long *const histogramme, long width, long height, void *bits, CRect &rect)
{
    return detail::histogram<Bgr24>(histogramme, 256, width, height, bits, rect, detail::Byte{2});
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeLuminance(long *const histogramme, long width, long height, void *bits,
                                                       CRect &rect)
{
    return detail::histogram<Bgr24>(histogramme, 256, width, height, bits, rect, detail::Luminance());
}

bool CTraitementImg_24_Bpp::Donne_Histogrammes(long *const rouge, long *const vert, long *const bleu, long width,
                                               long height, void *bits, CRect &rect)
{
    if (rouge == nullptr || vert == nullptr || bleu == nullptr || bits == nullptr)
        return false;
    detail::count_bytes(detail::view<Bgr24>(width, height, static_cast<unsigned char *>(bits)),
                        detail::clip_rect(width, height, rect), rouge, vert, bleu);
    return true;
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeRouge(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_HistogrammeRouge(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeVert(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_HistogrammeVert(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeBleu(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_HistogrammeBleu(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::Donne_HistogrammeLuminance(long *const histogramme, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_HistogrammeLuminance(histogramme, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::Donne_Histogrammes(long *const rouge, long *const vert, long *const bleu, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return Donne_Histogrammes(rouge, vert, bleu, w, h, b, rc);
    });
}

bool CTraitementImg_24_Bpp::EgalisationHistogramme(float min, float max, long width, long height, void *bits, CRect &rect)
{
    return detail::stretch_colour(min, max, width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::EgalisationHistogramme(float min, float max, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return EgalisationHistogramme(min, max, w, h, b, rc);
    });
}

} // namespace kevra
