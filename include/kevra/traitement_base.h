// Common base of every processing class.
//
// Common rules for all processing classes:
// - Two calling forms: a buffer form (operation parameters, then width, height,
//   pixel buffer, rectangle) that works in place and trusts its arguments, and
//   an image form (CDibRoot *) that refuses a null image, an image whose bit
//   count is not this object's depth and an image that is not IsOK, then runs
//   the buffer form on the image's working zone and releases the bits.
// - Pixel buffers are bottom-up (buffer row 0 = bottom row of the picture),
//   rows padded to 4 bytes. Rectangles are in picture coordinates, y
//   downwards, all four edges inclusive unless an operation says otherwise;
//   picture row y is buffer row height - 1 - y. Rectangles are clipped to the
//   image, never refused; an empty clip does nothing and succeeds.
// - Float planes hold exactly width values per row (3 per pixel at 24 bits,
//   blue, green, red), rows in buffer order, without padding.
#ifndef KEVRA_TRAITEMENT_BASE_H
#define KEVRA_TRAITEMENT_BASE_H

#include "kevra/object.h"
#include "kevra/types.h"

namespace kevra {

class CDibRoot;

class CTraitementImgBase : public CObject {
    KEVRA_DECLARE_DYNAMIC(CTraitementImgBase)

public:
    // Quarter-turn selector: (x, y) of a W x H picture goes to
    // (H-1-y, x) for e_Angle90 (clockwise), (W-1-x, H-1-y) for e_Angle180,
    // (y, W-1-x) for e_Angle270.
    enum e_angle { e_Angle90 = 0, e_Angle180 = 1, e_Angle270 = 2 };

    explicit CTraitementImgBase(unsigned char bpp);
    CTraitementImgBase();
    ~CTraitementImgBase() override;

    unsigned char GetBpp() const;

    // The image is valid and its bit count is this object's depth.
    bool IsOK(CDibRoot * pDib);

    // ((bpp * width + 31) & ~31) / 8, signed.
    int Pitch(long width) const;
    // (bpp * x) >> 3, unsigned shift.
    int XOffset(int x) const;
    // Pitch(width) * y; y is a buffer row.
    int YOffset(int y, long width) const;
    // buffer + YOffset(y, width) + XOffset(x); y is a buffer row; no bounds check.
    unsigned char * PixelPtr(int x, int y, long width, unsigned char * pBits) const;

protected:
    // Pixels of the clipped rectangle to the float plane; the rest of the plane
    // is left untouched. False for a null buffer or plane; another depth than
    // 8, 16, 24 converts nothing and succeeds.
    bool ConvertToFloat(long width, long height, unsigned char * pBits, float * pFloat, CRect rect);
    bool ConvertToFloat(CDibRoot * pDib, float * pFloat);
    // The inverse walk: truncation toward zero, low 8 or 16 bits kept; no
    // rounding, no clamping (clamp first with TronqueValeurs).
    bool ConvertToBits(long width, long height, unsigned char * pBits, float * pFloat, CRect rect);
    bool ConvertToBits(CDibRoot * pDib, float * pFloat);
    // Values below fMin become fMin, then values above fMax become fMax.
    bool TronqueValeurs(long width, long height, float * pFloat, CRect rect, float fMin, float fMax);
    // pDest[i] = pDest[i] + fFacteur * pSrc[i] over the clipped rectangle.
    bool AdditionSoustractionFloat(float fFacteur, long width, long height, float * pDest,
                                   float * pSrc, CRect rect);

    unsigned char m_bpp;
};

} // namespace kevra

#endif
