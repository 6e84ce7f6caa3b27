// Conversion between 8- and 16-bit grey images of the same size.
#include <cstdint>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/platform.h"

namespace kevra {

namespace {

// 8 to 16 bits multiplies by 256, not 257: white 255 becomes 65280. Kept:
// stored images and their histograms depend on it.
inline uint16_t widen_8_to_16(uint8_t v) { return static_cast<uint16_t>(v << 8); }

// 16 to 8 bits keeps the high byte, no rounding.
inline uint8_t narrow_16_to_8(uint16_t v) { return static_cast<uint8_t>(v >> 8); }

} // namespace

bool CDibRoot::CopyToDifferentBpp(CDibRoot & source)
{
    const long width = Width();
    const long height = Height();
    if (!IsOK() || !source.IsOK())
        return false;
    if (source.Width() != width || source.Height() != height)
        return false;

    const unsigned short from = source.BitCount();
    const unsigned short to = BitCount();
    if ((from == 8 && to == 8) || (from == 16 && to == 16)) {
        Copy(source, true, true, true);
        return true;
    }
    if ((from == 8 && to == 16) || (from == 16 && to == 8)) {
        // Row by row through the address of column 0, so padding is never
        // touched; the grey views are dropped after each row.
        for (int y = 0; y < static_cast<int>(height); ++y) {
            const uint8_t * src = source.GetPixelPtr(0, y);
            uint8_t * dst = GetPixelPtr(0, y);
            for (long x = 0; x < width; ++x) {
                if (from == 8) {
                    const uint16_t v = widen_8_to_16(src[x]);
                    dst[2 * x] = static_cast<uint8_t>(v);
                    dst[2 * x + 1] = static_cast<uint8_t>(v >> 8);
                } else {
                    const uint16_t v = static_cast<uint16_t>(src[2 * x] | (src[2 * x + 1] << 8));
                    dst[x] = narrow_16_to_8(v);
                }
            }
            source.ReleaseBits();
            ReleaseBits();
        }
        return true;
    }
    platform::message_box("TO DO");
    return false;
}

} // namespace kevra
