// Image resampling and rectangle fitting: CDibRoot::Resample,
// CDibRoot::RectHomothetique and CRectInterieur.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/float_store.h"
#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"

namespace kevra {
namespace {

// 32-bit signed arithmetic that wraps instead of overflowing, so that rectangles
// near the 32-bit limits (the only ones that reach it) give the same, defined
// result everywhere.
int32_t wrap_add(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b)); }
int32_t wrap_sub(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)); }
int32_t wrap_mul(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b)); }

template <class Processor>
bool resample_rows(CxImage &from, CxImage &to, long newWidth, long newHeight)
{
    Processor processor;
    // The per-depth resampling always gets mode 1, whatever the caller asked.
    return processor.Resample(from.width(), from.height(), from.bits(), newWidth, newHeight,
                              to.bits(), 1);
}

} // namespace

bool CDibRoot::Resample(unsigned int newWidth, unsigned int newHeight, unsigned int)
{
    if (m_pCxImage == nullptr)
        return false;
    CxImage *temp = detail::try_new<CxImage>(kFormatBmp);
    if (temp == nullptr)
        return false;
    const uint16_t bitCount = m_pCxImage->bit_count();
    // A fresh store: default resolution (2835 pels per metre) and working zone
    // (0, 0, 0, 0). Both end up in the image, deliberately: callers set the
    // working zone again after a resampling.
    temp->create(newWidth, newHeight, bitCount, kFormatBmp);

    tagRGBQUAD *from = m_pCxImage->palette();
    tagRGBQUAD *to = temp->palette();
    if (from != nullptr && to != nullptr) {
        uint32_t entries = m_pCxImage->palette_entries();
        if (entries > temp->palette_entries())
            entries = temp->palette_entries();
        if (entries > 256)
            entries = 256;
        std::memcpy(to, from, entries * sizeof(tagRGBQUAD));
    }

    bool result = false;
    const long w = static_cast<long>(newWidth);
    const long h = static_cast<long>(newHeight);
    switch (bitCount) {
    case 8: result = resample_rows<CTraitementImg_8_Bpp>(*m_pCxImage, *temp, w, h); break;
    case 16: result = resample_rows<CTraitementImg_16_Bpp>(*m_pCxImage, *temp, w, h); break;
    case 24: result = resample_rows<CTraitementImg_24_Bpp>(*m_pCxImage, *temp, w, h); break;
    default: result = false; break;
    }

    // Whatever the outcome, the image takes the new store: after a failure it
    // has the new size with undefined pixels.
    m_pCxImage->transfer(*temp);
    delete temp;
    return result;
}

bool CDibRoot::Resample(long newWidth, long newHeight, int)
{
    return Resample(static_cast<unsigned int>(newWidth), static_cast<unsigned int>(newHeight), 1u);
}

void CDibRoot::RectHomothetique(int aspectWidth, int aspectHeight, CRect *rect)
{
    if (rect == nullptr)
        return;
    const double ratio = static_cast<double>(aspectWidth) / static_cast<double>(aspectHeight);
    const int32_t rw = wrap_sub(rect->right, rect->left);
    const int32_t rh = wrap_sub(rect->bottom, rect->top);
    int32_t h = detail::truncate_i32(rw / ratio);
    int32_t w = rw;
    if (h > rh) {
        h = rh;
        w = detail::truncate_i32(rh * ratio);
    }
    const int32_t dy = wrap_sub(rh, h) / 2;
    const int32_t dx = wrap_sub(rw, w) / 2;
    const int32_t left = wrap_add(rect->left, dx);
    const int32_t top = wrap_add(rect->top, dy);
    *rect = CRect(left, top, wrap_add(left, w), wrap_add(top, h));
}

void CDibRoot::RectHomothetique(CRect *rect)
{
    if (rect == nullptr)
        return;
    // IsOK also discards a 16-bit image's grey view, as every validity test does.
    if (IsOK())
        RectHomothetique(static_cast<int>(Width()), static_cast<int>(Height()), rect);
    else
        *rect = CRect(0, 0, 0, 0);
}

// ---- CRectInterieur ------------------------------------------------------------

CRectInterieur::CRectInterieur(CRect &outer, int aspectWidth, int aspectHeight, e_Place place)
{
    Init(outer, aspectWidth, aspectHeight, place);
}

CRectInterieur::CRectInterieur(CRect &outer, CSize aspect, e_Place place)
{
    Init(outer, aspect.cx, aspect.cy, place);
}

CRectInterieur &CRectInterieur::operator=(const CRect &rect)
{
    left = rect.left;
    top = rect.top;
    right = rect.right;
    bottom = rect.bottom;
    return *this;
}

void CRectInterieur::Init(CRect &outer, int aspectWidth, int aspectHeight, e_Place place)
{
    // outer may be this very rectangle: read it all first.
    const int32_t oLeft = outer.left;
    const int32_t oTop = outer.top;
    const int32_t oRight = outer.right;
    const int32_t oBottom = outer.bottom;
    const int32_t a = aspectWidth;
    const int32_t b = aspectHeight;
    const int32_t w = wrap_sub(oRight, oLeft);
    const int32_t h = wrap_sub(oBottom, oTop);
    if (a <= 0 || b <= 0 || w < 1 || h < 1)
        return;

    int32_t innerWidth;
    int32_t innerHeight;
    if (wrap_mul(h, a) > wrap_mul(w, b)) {
        innerHeight = wrap_mul(w, b) / a;
        innerWidth = w;
    } else {
        innerWidth = wrap_mul(h, a) / b;
        innerHeight = h;
    }

    const int flags = static_cast<int>(place);
    int32_t newLeft;
    if (flags & e_PlaceLeft)
        newLeft = oLeft;
    else if (flags & e_PlaceRight)
        newLeft = wrap_sub(oRight, innerWidth);
    else
        newLeft = wrap_add(oLeft, wrap_sub(w, innerWidth) / 2);

    int32_t newTop;
    if (flags & e_PlaceTop)
        newTop = oTop;
    else if (flags & e_PlaceBottom)
        newTop = wrap_sub(oBottom, innerHeight);
    else
        newTop = wrap_add(oTop, wrap_sub(h, innerHeight) / 2);

    left = newLeft;
    right = wrap_add(newLeft, innerWidth);
    top = newTop;
    bottom = wrap_add(newTop, innerHeight);
}

} // namespace kevra
