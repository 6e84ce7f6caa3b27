// Resampling of the 8-, 16- and 24-bit classes (kernels in detail/resample.h). The depths
// differ only in storage and in the clip of the filtered path, which follows the sample range.
#include "kevra/traitement.h"

#include <initializer_list>

#include "kevra/dib.h"
#include "processing/detail/resample.h"

namespace kevra {

namespace {

using detail::Bgr24;
using detail::Grey16;
using detail::Grey8;

bool resample_checked_sizes(long width, long height, void *bits, long width_out, long height_out,
                            void *bits_out)
{
    return bits != nullptr && bits_out != nullptr && width >= 1 && height >= 1 && width_out >= 1 &&
           height_out >= 1;
}

// The image form: an image whose depth is the object's must be OK; an image of another depth
// is deliberately let through and its bytes resampled at the object's depth. Such an image
// is refused only when its depth is below the object's, since its rows would then be too short
// for the object's pitch.
template <class Resample>
bool resample_images(unsigned depth, CDibRoot *source, CDibRoot *destination, Resample &&resample)
{
    if (source == nullptr || destination == nullptr)
        return false;
    for (CDibRoot *image : {source, destination}) {
        if (image->BitCount() == depth && !image->IsOK())
            return false;
        if (image->BitCount() < depth)
            return false;
    }
    const long w = source->Width(), h = source->Height();
    void *bits = source->GetBits();
    const long w2 = destination->Width(), h2 = destination->Height();
    void *bits2 = destination->GetBits();
    const bool ok = resample(w, h, bits, w2, h2, bits2);
    source->ReleaseBits();
    destination->ReleaseBits();
    return ok;
}

} // namespace

// ---- 8 bits -------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::ResampleSimple(long width, long height, void *bits, long widthOut,
                                          long heightOut, void *bitsOut, unsigned char mode)
{
    return detail::resample_simple<Grey8>(width, height, bits, widthOut, heightOut, bitsOut, mode,
                                          255.0f);
}

bool CTraitementImg_8_Bpp::Resample(long width, long height, void *bits, long widthOut,
                                    long heightOut, void *bitsOut, unsigned char mode)
{
    if (!resample_checked_sizes(width, height, bits, widthOut, heightOut, bitsOut))
        return false;
    return ResampleSimple(width, height, bits, widthOut, heightOut, bitsOut, mode);
}

bool CTraitementImg_8_Bpp::Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode)
{
    return resample_images(m_bpp, source, destination,
                           [&](long w, long h, void *b, long w2, long h2, void *b2) {
                               return Resample(w, h, b, w2, h2, b2, mode);
                           });
}

// ---- 16 bits ------------------------------------------------------------------------------

// The filtered path clips to the 16-bit range.
bool CTraitementImg_16_Bpp::ResampleSimple(long width, long height, void *bits, long widthOut,
                                           long heightOut, void *bitsOut, unsigned char mode)
{
    return detail::resample_simple<Grey16>(width, height, bits, widthOut, heightOut, bitsOut, mode,
                                           65535.0f);
}

bool CTraitementImg_16_Bpp::Resample(long width, long height, void *bits, long widthOut,
                                     long heightOut, void *bitsOut, unsigned char mode)
{
    if (!resample_checked_sizes(width, height, bits, widthOut, heightOut, bitsOut))
        return false;
    return ResampleSimple(width, height, bits, widthOut, heightOut, bitsOut, mode);
}

bool CTraitementImg_16_Bpp::Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode)
{
    return resample_images(m_bpp, source, destination,
                           [&](long w, long h, void *b, long w2, long h2, void *b2) {
                               return Resample(w, h, b, w2, h2, b2, mode);
                           });
}

// ---- 24 bits ------------------------------------------------------------------------------

// Each of the three bytes of a pixel on its own, at a stride of 3 bytes.
bool CTraitementImg_24_Bpp::ResampleSimple(long width, long height, void *bits, long widthOut,
                                           long heightOut, void *bitsOut, unsigned char mode)
{
    return detail::resample_simple<Bgr24>(width, height, bits, widthOut, heightOut, bitsOut, mode,
                                          255.0f);
}

bool CTraitementImg_24_Bpp::Resample(long width, long height, void *bits, long widthOut,
                                     long heightOut, void *bitsOut, unsigned char mode)
{
    if (!resample_checked_sizes(width, height, bits, widthOut, heightOut, bitsOut))
        return false;
    return ResampleSimple(width, height, bits, widthOut, heightOut, bitsOut, mode);
}

bool CTraitementImg_24_Bpp::Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode)
{
    return resample_images(m_bpp, source, destination,
                           [&](long w, long h, void *b, long w2, long h2, void *b2) {
                               return Resample(w, h, b, w2, h2, b2, mode);
                           });
}

} // namespace kevra
