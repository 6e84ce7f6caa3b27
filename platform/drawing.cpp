// The drawing surface interface and the surface that draws into a 24-bit image.
#include "kevra/drawing.h"

#include <cstdint>
#include <cstdlib>

#include "kevra/dib.h"

namespace kevra {

CDC::~CDC() = default;

CRasterDC::CRasterDC(CDibRoot &image) : m_pImage(&image), m_pPen(&m_defaultPen) {}

CRasterDC::~CRasterDC() = default;

int CRasterDC::SetBkMode(int mode)
{
    const int previous = m_bkMode;
    m_bkMode = mode;
    return previous;
}

CPen *CRasterDC::SelectObject(CPen *pen)
{
    CPen *previous = m_pPen;
    m_pPen = pen != nullptr ? pen : &m_defaultPen;
    return previous;
}

CPoint CRasterDC::MoveTo(int x, int y)
{
    const CPoint previous = m_position;
    m_position = CPoint(x, y);
    return previous;
}

bool CRasterDC::SetPixel(int x, int y, unsigned long couleur)
{
    if (m_pImage->BitCount() != 24)
        return false;
    const long width = m_pImage->Width();
    const long height = m_pImage->Height();
    if (x < 0 || y < 0 || x >= width || y >= height)
        return false;
    unsigned char *bits = m_pImage->GetBits();
    if (bits == nullptr)
        return false;
    // Device row y is picture row y, which is memory row height - 1 - y.
    unsigned char *p = bits + static_cast<std::ptrdiff_t>(m_pImage->Pitch()) * (height - 1 - y) +
                       static_cast<std::ptrdiff_t>(x) * 3;
    p[0] = static_cast<unsigned char>((couleur >> 16) & 0xFF); // blue
    p[1] = static_cast<unsigned char>((couleur >> 8) & 0xFF);  // green
    p[2] = static_cast<unsigned char>(couleur & 0xFF);         // red
    return true;
}

unsigned long CRasterDC::GetPixel(int x, int y) const
{
    if (m_pImage->BitCount() != 24)
        return 0xFFFFFFFFul;
    const long width = m_pImage->Width();
    const long height = m_pImage->Height();
    if (x < 0 || y < 0 || x >= width || y >= height)
        return 0xFFFFFFFFul;
    const unsigned char *bits = m_pImage->GetBits();
    if (bits == nullptr)
        return 0xFFFFFFFFul;
    const unsigned char *p = bits + static_cast<std::ptrdiff_t>(m_pImage->Pitch()) * (height - 1 - y) +
                             static_cast<std::ptrdiff_t>(x) * 3;
    return static_cast<unsigned long>(p[2]) | (static_cast<unsigned long>(p[1]) << 8) |
           (static_cast<unsigned long>(p[0]) << 16);
}

bool CRasterDC::LineTo(int x, int y)
{
    const CPoint from = m_position;
    m_position = CPoint(x, y);
    if (m_pImage->BitCount() != 24 || m_pImage->GetBits() == nullptr)
        return false;
    const unsigned long couleur = m_pPen->Couleur();
    // Bresenham over 64-bit coordinates, the end point left out.
    int64_t x0 = from.x, y0 = from.y;
    const int64_t x1 = x, y1 = y;
    // A line wholly beside the image draws nothing: skip its walk (it may be very long).
    const int64_t w = m_pImage->Width(), h = m_pImage->Height();
    if ((x0 < 0 && x1 < 0) || (y0 < 0 && y1 < 0) || (x0 >= w && x1 >= w) || (y0 >= h && y1 >= h))
        return true;
    const int64_t dx = x1 > x0 ? x1 - x0 : x0 - x1;
    const int64_t dy = -(y1 > y0 ? y1 - y0 : y0 - y1);
    const int sx = x0 < x1 ? 1 : -1;
    const int sy = y0 < y1 ? 1 : -1;
    int64_t err = dx + dy;
    while (x0 != x1 || y0 != y1) {
        if (x0 >= 0 && y0 >= 0 && x0 <= INT32_MAX && y0 <= INT32_MAX)
            SetPixel(static_cast<int>(x0), static_cast<int>(y0), couleur);
        const int64_t e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x0 += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y0 += sy;
        }
    }
    return true;
}

void CRasterDC::Draw3dRect(const CRect &rect, unsigned long topLeft, unsigned long bottomRight)
{
    auto fill = [&](int64_t x0, int64_t y0, int64_t x1, int64_t y1, unsigned long c) {
        // Inclusive, and cut to the image so that huge rectangles cost nothing.
        const int64_t w = m_pImage->Width(), h = m_pImage->Height();
        if (x0 < 0) x0 = 0;
        if (y0 < 0) y0 = 0;
        if (x1 >= w) x1 = w - 1;
        if (y1 >= h) y1 = h - 1;
        for (int64_t yy = y0; yy <= y1; ++yy)
            for (int64_t xx = x0; xx <= x1; ++xx)
                SetPixel(static_cast<int>(xx), static_cast<int>(yy), c);
    };
    const int64_t l = rect.left, t = rect.top, r = rect.right, b = rect.bottom;
    if (r <= l || b <= t)
        return;
    fill(l, t, r - 2, t, topLeft);        // top row, last pixel left to the right edge
    fill(l, t, l, b - 2, topLeft);        // left column, last pixel left to the bottom edge
    fill(r - 1, t, r - 1, b - 1, bottomRight);
    fill(l, b - 1, r - 1, b - 1, bottomRight);
}

unsigned long CRasterDC::GetSysColor(int index) const
{
    switch (index) {
    case e_Color3DHighlight:
        return m_highlight;
    case e_Color3DDkShadow:
        return m_darkShadow;
    default:
        return 0;
    }
}

void CRasterDC::SetSysColor(int index, unsigned long couleur)
{
    if (index == e_Color3DHighlight)
        m_highlight = couleur;
    else if (index == e_Color3DDkShadow)
        m_darkShadow = couleur;
}

} // namespace kevra
