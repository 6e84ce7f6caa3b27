// CFiltre: the filtering engine and its image and buffer entries.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filters/detail/convolution.h"
#include "kevra/dib.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"

namespace kevra {

namespace {

using detail::FilterAxis;
using detail::FilterRegion;
using detail::LowBorder;
using detail::PlaneGeometry;

// 24 bits: blue, green, red floats a pixel; every other bit count is grey.
int channels_for(unsigned short bitCount) { return bitCount == 24 ? 3 : 1; }

// Floats of a width x height plane, 0 when the sizes cannot make one. Image
// sizes are 32-bit on every target, whatever the width of long.
std::size_t plane_count(long width, long height, int channels)
{
    if (width <= 0 || height <= 0 || width > INT32_MAX || height > INT32_MAX)
        return 0;
    const uint64_t count = uint64_t(width) * uint64_t(height) * uint64_t(channels);
    if (count > static_cast<uint64_t>(SIZE_MAX) / sizeof(float))
        return 0;
    return static_cast<std::size_t>(count);
}

// The column axis; the test on the right edge is strict.
FilterAxis column_axis(long width, const FilterRegion & g, int64_t nX, LowBorder low)
{
    return FilterAxis(width, g.L, g.R, nX, false, low);
}

// The row axis; the test on the top edge (high buffer rows) admits equality.
FilterAxis row_axis(long height, const FilterRegion & g, int64_t nY, LowBorder low)
{
    return FilterAxis(height, g.B, g.T, nY, true, low);
}

template <int C>
bool separable_engine(long width, long height, const float * source, float * destination, const CRect & rect,
                      unsigned short nX, unsigned short nY, const float * tableX, const float * tableY)
{
    const std::size_t count = plane_count(width, height, C);
    if (count == 0 || source == nullptr || destination == nullptr || tableX == nullptr || tableY == nullptr)
        return false;
    float * mid = detail::try_new_array<float>(count);
    if (mid == nullptr)
        return false;
    const FilterRegion g = detail::filter_region(width, height, rect);
    if (!g.empty()) {
        const PlaneGeometry pg{width, height};
        const FilterAxis ax = column_axis(width, g, nX, LowBorder::mirror);
        const FilterAxis ay = row_axis(height, g, nY, LowBorder::mirror);
        if (detail::fast_paths_enabled())
            detail::separable_fast<C>(pg, source, mid, destination, g, ax, ay, tableX, tableY);
        else
            detail::separable_plain<C>(pg, source, mid, destination, g, ax, ay, tableX, tableY);
    }
    delete[] mid;
    return true;
}

template <int C>
bool full_kernel_engine(long width, long height, const float * source, float * destination, const CRect & rect,
                        unsigned short nX, unsigned short nY, const float * kernel, float offset, float factor)
{
    if (plane_count(width, height, C) == 0 || source == nullptr || destination == nullptr || kernel == nullptr)
        return false;
    const FilterRegion g = detail::filter_region(width, height, rect);
    if (g.empty())
        return true;
    const PlaneGeometry pg{width, height};
    const FilterAxis ax = column_axis(width, g, nX, LowBorder::shifted_run);
    const FilterAxis ay = row_axis(height, g, nY, LowBorder::shifted_run);
    if (detail::fast_paths_enabled())
        detail::full_fast<C>(pg, source, destination, g, ax, ay, kernel, offset, factor);
    else
        detail::full_plain<C>(pg, source, destination, g, ax, ay, kernel, offset, factor);
    return true;
}

} // namespace

bool CFiltre::Filtrer(CDibRoot * image)
{
    if (image == nullptr)
        return false;
    const unsigned short bitCount = image->BitCount();
    m_bpp = static_cast<unsigned char>(bitCount);
    if (!image->IsOK())
        return false;

    const long width = image->Width();
    const long height = image->Height();
    const std::size_t count = plane_count(width, height, channels_for(bitCount));
    if (count == 0)
        return false;
    float * plane = detail::try_new_array<float>(count);
    if (plane == nullptr)
        return false;

    // The whole image goes to the plane, not only the working zone: pixels of
    // the zone read their real neighbours beyond it, which must exist. Other
    // depths convert nothing; their plane is cleared so nothing undefined is read.
    if (bitCount != 8 && bitCount != 16 && bitCount != 24)
        std::fill(plane, plane + count, 0.0f);
    bool ok = ConvertToFloat(width, height, image->GetBits(), plane, CRect(0, 0, static_cast<int>(width - 1), static_cast<int>(height - 1)));
    image->ReleaseBits();

    if (ok) {
        CRect rect = image->BoundingRectangle();
        ok = FiltrerBuffer(width, height, plane, rect, bitCount);
        if (ok) {
            const float high = bitCount == 16 ? 65535.0f : 255.0f;
            ok = TronqueValeurs(width, height, plane, rect, 0.0f, high) && ConvertToBits(image, plane);
        }
    }
    delete[] plane;
    return ok;
}

bool CFiltre::FiltrerAvecOffsetFacteur(CDibRoot * image, float offset, float factor)
{
    m_fOffset = offset;
    m_fFacteur = factor;
    return Filtrer(image);
}

bool CFiltre::FiltrerBuffer(long width, long height, float * buffer, CRect & rect, unsigned short bitCount)
{
    const std::size_t count = plane_count(width, height, channels_for(bitCount));
    if (count == 0 || buffer == nullptr)
        return false;
    float * result = detail::try_new_array<float>(count);
    if (result == nullptr)
        return false;
    const bool ok = FiltrerBufferSimple(width, height, buffer, result, rect, bitCount);
    if (ok)
        RecopieZoneTraitee(width, height, buffer, result, rect, bitCount);
    delete[] result;
    return ok;
}

bool CFiltre::FiltrerBufferAvecOffsetFacteur(long width, long height, float * buffer, CRect & rect,
                                             unsigned short bitCount, float offset, float factor)
{
    m_fOffset = offset;
    m_fFacteur = factor;
    return FiltrerBuffer(width, height, buffer, rect, bitCount);
}

bool CFiltre::FiltrerBufferSimple(long width, long height, float * source, float * destination, CRect & rect,
                                  unsigned short bitCount)
{
    m_bpp = static_cast<unsigned char>(bitCount);
    // The engines trust the tables; a filter without them is not run.
    if (!IsOK())
        return false;
    const bool colour = bitCount == 24;
    if (m_bConvolutif) {
        if (colour)
            return FiltrerBuffer3CouleurConvolutif(width, height, source, destination, rect, m_nX, m_nY,
                                                   m_pTabFiltreX, m_pTabFiltreY, m_fOffset, m_fFacteur);
        return FiltrerBuffer1CouleurConvolutif(width, height, source, destination, rect, m_nX, m_nY,
                                               m_pTabFiltreX, m_pTabFiltreY, m_fOffset, m_fFacteur);
    }
    if (colour)
        return FiltrerBuffer3CouleurNonConvolutif(width, height, source, destination, rect, m_nX, m_nY,
                                                  m_pTabFiltre, m_fOffset, m_fFacteur);
    return FiltrerBuffer1CouleurNonConvolutif(width, height, source, destination, rect, m_nX, m_nY, m_pTabFiltre,
                                              m_fOffset, m_fFacteur);
}

void CFiltre::RecopieZoneTraitee(long width, long height, float * buffer, float * result, CRect & rect,
                                 unsigned short bitCount)
{
    const int channels = channels_for(bitCount);
    if (plane_count(width, height, channels) == 0 || buffer == nullptr || result == nullptr)
        return;
    const FilterRegion g = detail::filter_region(width, height, rect);
    if (g.empty())
        return;
    const int64_t stride = int64_t(width) * channels;
    const std::size_t run = static_cast<std::size_t>((g.R - g.L + 1) * channels);
    for (int64_t r = g.B; r <= g.T; ++r) {
        const int64_t at = r * stride + g.L * channels;
        std::memcpy(buffer + at, result + at, run * sizeof(float));
    }
}

// Offset and factor are accepted and ignored by the separable engines: a
// catalogue kind 0..5 is normalised and is never rescaled.
bool CFiltre::FiltrerBuffer1CouleurConvolutif(long width, long height, float * source, float * destination,
                                              CRect & rect, unsigned short nX, unsigned short nY, float * tableX,
                                              float * tableY, float /*offset*/, float /*factor*/)
{
    return separable_engine<1>(width, height, source, destination, rect, nX, nY, tableX, tableY);
}

bool CFiltre::FiltrerBuffer3CouleurConvolutif(long width, long height, float * source, float * destination,
                                              CRect & rect, unsigned short nX, unsigned short nY, float * tableX,
                                              float * tableY, float /*offset*/, float /*factor*/)
{
    return separable_engine<3>(width, height, source, destination, rect, nX, nY, tableX, tableY);
}

bool CFiltre::FiltrerBuffer1CouleurNonConvolutif(long width, long height, float * source, float * destination,
                                                 CRect & rect, unsigned short nX, unsigned short nY, float * kernel,
                                                 float offset, float factor)
{
    return full_kernel_engine<1>(width, height, source, destination, rect, nX, nY, kernel, offset, factor);
}

bool CFiltre::FiltrerBuffer3CouleurNonConvolutif(long width, long height, float * source, float * destination,
                                                 CRect & rect, unsigned short nX, unsigned short nY, float * kernel,
                                                 float offset, float factor)
{
    return full_kernel_engine<3>(width, height, source, destination, rect, nX, nY, kernel, offset, factor);
}

} // namespace kevra
