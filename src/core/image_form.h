// The image form of every processing operation, written once.
//
// An image form refuses a null image, an image whose bit count differs from the processing
// object's depth and an image that is not IsOK(); it then runs the buffer form on the image's
// width, height, bits and working zone, and releases the bits (which, for a 16-bit image,
// discards the grey view so that the display is rebuilt from the new samples).
#ifndef KEVRA_CORE_IMAGE_FORM_H
#define KEVRA_CORE_IMAGE_FORM_H

#include "kevra/dib.h"
#include "kevra/types.h"

namespace kevra::detail {

// buffer_form(long width, long height, void *bits, CRect &rect) -> bool
template <class BufferForm>
bool run_image_form(unsigned depth, CDibRoot *image, BufferForm &&buffer_form)
{
    if (image == nullptr)
        return false;
    if (image->BitCount() != depth)
        return false;
    if (!image->IsOK())
        return false;
    CRect rect = image->BoundingRectangle();
    void *bits = image->GetBits();
    const long height = image->Height();
    const long width = image->Width();
    const bool result = buffer_form(width, height, bits, rect);
    image->ReleaseBits();
    return result;
}

} // namespace kevra::detail

#endif
