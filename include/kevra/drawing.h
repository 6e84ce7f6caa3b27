// Drawing surfaces: what the look-up tables need to draw their curves (CLUT::Display,
// CLUT_24_Bpp::Display), and one surface that draws into a 24-bit image.
//
// Coordinates are device coordinates: x to the right, y DOWNWARDS from the top-left corner.
// Colours are 0x00BBGGRR (red in the low byte). A line drawn with LineTo covers its start point
// and every pixel up to, but not including, its end point; the current position then moves to
// the end point.
#ifndef KEVRA_DRAWING_H
#define KEVRA_DRAWING_H

#include "kevra/types.h"

namespace kevra {

class CDibRoot;

// A pen as a value: style, width in pixels and colour. Selecting a pen into a surface does not
// copy it: the pen must outlive its selection.
class CPen {
public:
    enum e_Style { e_Solid = 0 };

    CPen() = default;
    CPen(int style, int width, unsigned long couleur)
        : m_style(style), m_width(width), m_couleur(couleur) {}

    int Style() const { return m_style; }
    int Width() const { return m_width; }
    unsigned long Couleur() const { return m_couleur; }

private:
    int m_style = e_Solid;
    int m_width = 1;
    unsigned long m_couleur = 0; // black
};

// The abstract drawing surface (a device context).
class CDC {
public:
    enum e_BkMode { e_Transparent = 1, e_Opaque = 2 };
    // System colour indexes (the values the desktop systems use for these two).
    enum e_SysColor { e_Color3DHighlight = 20, e_Color3DDkShadow = 21 };

    virtual ~CDC();

    // Returns the previous mode.
    virtual int SetBkMode(int mode) = 0;
    // Selects a pen and returns the one it replaces, so that it can be restored. Null selects
    // the surface's own default pen (solid, 1 pixel, black).
    virtual CPen *SelectObject(CPen *pen) = 0;
    // Moves the current position; returns the previous one.
    virtual CPoint MoveTo(int x, int y) = 0;
    // Line with the selected pen from the current position to (x, y), end point excluded.
    virtual bool LineTo(int x, int y) = 0;
    // A 3-D frame on the rectangle (right and bottom exclusive): the top row (without its last
    // pixel) and the left column (without its last pixel) in topLeft, then the right column and
    // the bottom row in bottomRight.
    virtual void Draw3dRect(const CRect &rect, unsigned long topLeft, unsigned long bottomRight) = 0;
    // Colour of a system element (e_SysColor).
    virtual unsigned long GetSysColor(int index) const = 0;

protected:
    CDC() = default;
    CDC(const CDC &) = default;
    CDC &operator=(const CDC &) = default;
};

// A surface over a 24-bit image: pixel (x, y) is the image's pixel in picture row y (memory row
// height - 1 - y). Pixels outside the image are not drawn. On an empty image or one of another
// depth nothing is drawn and LineTo returns false. Pens are drawn 1 pixel wide whatever their
// width; lines follow the Bresenham rule. System colours: highlight white (0xFFFFFF) and dark
// shadow 0x404040 until SetSysColor changes them.
class CRasterDC : public CDC {
public:
    explicit CRasterDC(CDibRoot &image);
    ~CRasterDC() override;
    CRasterDC(const CRasterDC &) = delete;
    CRasterDC &operator=(const CRasterDC &) = delete;

    int SetBkMode(int mode) override;
    CPen *SelectObject(CPen *pen) override;
    CPoint MoveTo(int x, int y) override;
    bool LineTo(int x, int y) override;
    void Draw3dRect(const CRect &rect, unsigned long topLeft, unsigned long bottomRight) override;
    unsigned long GetSysColor(int index) const override;

    void SetSysColor(int index, unsigned long couleur);
    int GetBkMode() const { return m_bkMode; }
    CPoint GetCurrentPosition() const { return m_position; }
    // One pixel; false outside the image or when the image cannot be drawn on.
    bool SetPixel(int x, int y, unsigned long couleur);
    // 0xFFFFFFFF outside the image or when the image cannot be drawn on.
    unsigned long GetPixel(int x, int y) const;

private:
    CDibRoot *m_pImage;
    CPen m_defaultPen;
    CPen *m_pPen;
    int m_bkMode = e_Opaque;
    CPoint m_position;
    unsigned long m_highlight = 0xFFFFFFul;
    unsigned long m_darkShadow = 0x404040ul;
};

} // namespace kevra

#endif
