// CFiltre: the filtering engine and its image and buffer entries.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/fast_path.h"
#include "core/float_store.h"
#include "filters/detail/convolution.h"
#include "filters/detail/stream.h"
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

// The plain engines: whole intermediate plane, pixel by pixel (the definition).
template <int C>
bool separable_plain(long width, long height, const float * source, float * destination, const FilterRegion & g,
                     unsigned short nX, unsigned short nY, const float * tableX, const float * tableY)
{
    float * mid = detail::try_new_array<float>(plane_count(width, height, C));
    if (mid == nullptr)
        return false;
    if (!g.empty()) {
        const PlaneGeometry pg{width, height};
        const FilterAxis ax = column_axis(width, g, nX, LowBorder::mirror);
        const FilterAxis ay = row_axis(height, g, nY, LowBorder::mirror);
        detail::separable_plain<C>(pg, source, mid, destination, g, ax, ay, tableX, tableY);
    }
    delete[] mid;
    return true;
}

detail::KernelShape full_shape(long width, long height, const FilterRegion & g, int channels, unsigned short nX,
                               unsigned short nY)
{
    return {column_axis(width, g, nX, LowBorder::shifted_run), row_axis(height, g, nY, LowBorder::shifted_run),
            int64_t(width) * channels};
}

// The streaming engines over any source and sink (stream.h). in_place: the sink overwrites the
// rows the source reads.
template <int C, class Source, class Sink>
bool separable_stream(long width, long height, const FilterRegion & g, unsigned short nX, unsigned short nY,
                      const float * tableX, const float * tableY, bool in_place, const Source & src, const Sink & sink)
{
    if (g.empty())
        return true;
    const detail::KernelShape k = detail::separable_shape(width, height, g, C, nX, nY);
    return detail::run_stages<detail::SeparableStage<C>>(
        g.B, g.T, in_place, k.stride, [&] { return detail::SeparableStage<C>(k, tableX, tableY); }, src, sink);
}

template <int C, class Source, class Sink>
bool full_stream(long width, long height, const FilterRegion & g, unsigned short nX, unsigned short nY,
                 const float * kernel, float offset, float factor, bool in_place, bool persistent_source,
                 const Source & src, const Sink & sink)
{
    if (g.empty())
        return true;
    const detail::KernelShape k = full_shape(width, height, g, C, nX, nY);
    const bool copy_rows = in_place || !persistent_source;
    return detail::run_stages<detail::FullStage<C>>(
        g.B, g.T, in_place, k.stride, [&] { return detail::FullStage<C>(k, kernel, offset, factor, copy_rows); },
        src, sink);
}

template <int C>
bool separable_engine(long width, long height, const float * source, float * destination, const CRect & rect,
                      unsigned short nX, unsigned short nY, const float * tableX, const float * tableY)
{
    const std::size_t count = plane_count(width, height, C);
    if (count == 0 || source == nullptr || destination == nullptr || tableX == nullptr || tableY == nullptr)
        return false;
    const FilterRegion g = detail::filter_region(width, height, rect);
    if (!detail::fast_paths_enabled())
        return separable_plain<C>(width, height, source, destination, g, nX, nY, tableX, tableY);
    // Source and destination may be one plane: the stream reads each row before writing it.
    const int64_t stride = int64_t(width) * C;
    return separable_stream<C>(width, height, g, nX, nY, tableX, tableY, source == destination,
                               detail::PlaneSource{source, stride}, detail::PlaneSink{destination, stride});
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
    // One plane as both source and destination is filtered pixel by pixel as the plain walk
    // defines it (each pixel reads the results already written before it).
    if (detail::fast_paths_enabled() && source != destination) {
        const int64_t stride = int64_t(width) * C;
        return full_stream<C>(width, height, g, nX, nY, kernel, offset, factor, false, true,
                              detail::PlaneSource{source, stride}, detail::PlaneSink{destination, stride});
    }
    const PlaneGeometry pg{width, height};
    const FilterAxis ax = column_axis(width, g, nX, LowBorder::shifted_run);
    const FilterAxis ay = row_axis(height, g, nY, LowBorder::shifted_run);
    detail::full_plain<C>(pg, source, destination, g, ax, ay, kernel, offset, factor);
    return true;
}

// Image rows as floats, whole rows, as the float conversion of the processing base gives them.
template <class Px>
struct ImageRowSource {
    detail::View<Px> v;
    const float * row(int64_t r, float * into) const
    {
        detail::samples_to_floats(v.row(static_cast<int32_t>(r)), into, int64_t(v.width) * Px::channels);
        return into;
    }
};

// Results clipped to 0 .. high (below first, then above, as the clip of the processing base)
// and truncated back into the image, over the clipped working rectangle only.
template <class Px>
struct ImageRowSink {
    detail::View<Px> v;
    detail::Span s;
    float high;
    float * begin(int64_t, float * scratch) const { return scratch; }
    void end(int64_t y, const float * row) const
    {
        if (y < s.r0 || y > s.r1)
            return;
        typename Px::sample * d = v.row(static_cast<int32_t>(y));
        for (int64_t f = int64_t(s.x0) * Px::channels; f < (int64_t(s.x1) + 1) * Px::channels; ++f) {
            float x = row[f];
            if (x < 0.0f)
                x = 0.0f;
            if (x > high)
                x = high;
            d[f] = detail::store_sample<typename Px::sample>(x);
        }
    }
};

// The filter's kernel as the engines take it.
struct KernelTables {
    bool separable;
    unsigned short nX, nY;
    const float *tableX, *tableY, *kernel;
    float offset, factor;
};

// The image entry streamed: rows converted, filtered, clipped and stored back without a plane
// of the whole image. The result is that of the plain entry: every rectangle pixel is computed
// from the image as it was (the stream reads each row before it writes it).
template <class Px>
bool filter_image_stream(long width, long height, unsigned char * bits, const CRect & rect, const KernelTables & t)
{
    constexpr int C = Px::channels;
    const detail::View<Px> v = detail::view<Px>(width, height, bits);
    const detail::Span s = detail::clip_rect(width, height, rect);
    if (s.empty())
        return true;
    const FilterRegion g = detail::filter_region(width, height, rect);
    const ImageRowSource<Px> src{v};
    const ImageRowSink<Px> sink{v, s, Px::bpp == 16 ? 65535.0f : 255.0f};
    if (t.separable)
        return separable_stream<C>(width, height, g, t.nX, t.nY, t.tableX, t.tableY, true, src, sink);
    return full_stream<C>(width, height, g, t.nX, t.nY, t.kernel, t.offset, t.factor, true, false, src, sink);
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
    if (detail::fast_paths_enabled() && (bitCount == 8 || bitCount == 16 || bitCount == 24)) {
        if (!IsOK())
            return false;
        unsigned char * bits = image->GetBits();
        if (bits == nullptr) {
            image->ReleaseBits();
            return false;
        }
        const KernelTables t{m_bConvolutif != 0, m_nX, m_nY, m_pTabFiltreX, m_pTabFiltreY, m_pTabFiltre,
                             m_fOffset, m_fFacteur};
        const CRect rect = image->BoundingRectangle();
        bool ok;
        if (bitCount == 8)
            ok = filter_image_stream<detail::Grey8>(width, height, bits, rect, t);
        else if (bitCount == 16)
            ok = filter_image_stream<detail::Grey16>(width, height, bits, rect, t);
        else
            ok = filter_image_stream<detail::Bgr24>(width, height, bits, rect, t);
        image->ReleaseBits();
        return ok;
    }
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
    if (detail::fast_paths_enabled()) {
        // In place through the stream: the caller's plane and a few rows, no second plane. Only
        // the rectangle changes, each pixel computed from the plane as it was.
        m_bpp = static_cast<unsigned char>(bitCount);
        if (!IsOK())
            return false;
        const FilterRegion g = detail::filter_region(width, height, rect);
        const int C = channels_for(bitCount);
        const int64_t stride = int64_t(width) * C;
        const detail::PlaneSource src{buffer, stride};
        const detail::PlaneSink sink{buffer, stride};
        if (m_bConvolutif)
            return C == 3 ? separable_stream<3>(width, height, g, m_nX, m_nY, m_pTabFiltreX, m_pTabFiltreY, true, src, sink)
                          : separable_stream<1>(width, height, g, m_nX, m_nY, m_pTabFiltreX, m_pTabFiltreY, true, src, sink);
        return C == 3 ? full_stream<3>(width, height, g, m_nX, m_nY, m_pTabFiltre, m_fOffset, m_fFacteur, true, true, src, sink)
                      : full_stream<1>(width, height, g, m_nX, m_nY, m_pTabFiltre, m_fOffset, m_fFacteur, true, true, src, sink);
    }
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
