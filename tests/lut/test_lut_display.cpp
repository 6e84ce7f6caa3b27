// Table curves: the calls made on a drawing surface, and the pixels a raster surface draws.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/drawing.h"
#include "kevra/lut.h"

using namespace kevra;

namespace {

// A raster surface that also records what a table asks of it.
class RecordingDC : public CRasterDC {
public:
    using CRasterDC::CRasterDC;
    int SetBkMode(int mode) override { return log("bk " + std::to_string(mode)), CRasterDC::SetBkMode(mode); }
    CPen *SelectObject(CPen *pen) override
    {
        log("pen " + std::to_string(pen->Style()) + " " + std::to_string(pen->Width()) + " " + std::to_string(pen->Couleur()));
        return CRasterDC::SelectObject(pen);
    }
    CPoint MoveTo(int x, int y) override { return log("move"), points.push_back(CPoint(x, y)), CRasterDC::MoveTo(x, y); }
    bool LineTo(int x, int y) override { return points.push_back(CPoint(x, y)), CRasterDC::LineTo(x, y); }
    void log(const std::string &call) { calls.push_back(call); }
    std::vector<std::string> calls;
    std::vector<CPoint> points;
};

CDib black_image(int w, int h)
{
    CDib image(CSize(w, h), 24);
    std::memset(image.GetBits(), 0, static_cast<size_t>(image.Pitch()) * h);
    return image;
}

} // namespace

TEST(LutDisplay, CurvePointsAndRestoredSurface)
{
    CDib image = black_image(4, 4);
    RecordingDC dc(image);
    CPen mine(CPen::e_Solid, 3, 0x777);
    dc.SelectObject(&mine);
    dc.calls.clear();
    CLUT_8_Bpp lut;
    lut.Display(&dc, CRect(10, 20, 138, 84), 0x123456);
    EXPECT_EQ(dc.calls, (std::vector<std::string>{"bk 1", "pen 0 1 1193046", "move", "pen 0 3 1911", "bk 2"}));
    EXPECT_EQ(dc.GetBkMode(), CDC::e_Opaque);
    ASSERT_EQ(dc.points.size(), 256u);
    // sx = 128 / 256, sy = 64 / 256
    EXPECT_EQ(dc.points[0], CPoint(10, 84));
    EXPECT_EQ(dc.points[1], CPoint(10, 83)); // 84 - 0.25 truncated
    EXPECT_EQ(dc.points[3], CPoint(11, 83));
    EXPECT_EQ(dc.points[255], CPoint(137, 20)); // 84 - 63.75 = 20.25: never reaches the top
    lut.Display(nullptr, CRect(0, 0, 10, 10), 0); // nothing, no crash

    dc.points.clear();
    CLUT_16_Bpp l16;
    l16.Display(&dc, CRect(0, 0, 65536, 1000), 0);
    ASSERT_EQ(dc.points.size(), 65536u);
    EXPECT_EQ(dc.points[65535], CPoint(65535, 0)); // 1000 - 65535 * (1000/65536) = 0.015...
    EXPECT_EQ(dc.points[32768], CPoint(32768, 500));

    dc.calls.clear();
    CLUT_24_Bpp colour;
    colour.CLUT::Display(&dc, CRect(0, 0, 10, 10), 0); // a colour table is no grey curve
    EXPECT_TRUE(dc.calls.empty());
}

// A 3-D frame on the rectangle (H highlight, S dark shadow), then inside it the red (all 0),
// green (all 255) and blue (identity) curves with sx = 10/256, sy = 8/256. Lines leave out their
// end point and zero-length lines draw nothing, so the last point of each curve stays bare.
TEST(LutDisplay, ColourTableFrameAndThreeCurves)
{
    const char *const expected[] = {
        "HHHHHHHHHHHS",
        "HGGGGGGGGB.S",
        "H.......BB.S",
        "H......BB..S",
        "H.....BB...S",
        "H...BBB....S",
        "H..BB......S",
        "H.BB.......S",
        "HBB........S",
        "SBRRRRRRRRSS",
    };
    CDib image = black_image(12, 10);
    CRasterDC dc(image);
    CLUT_24_Bpp lut;
    lut.Donne_Rouge().SetContraste(0.0f);
    for (int i = 0; i < 256; ++i)
        lut.Donne_Vert().Donne_Table()[i] = 255;
    lut.Display(&dc, CRect(0, 0, 12, 10));
    const std::string codes = ".HSRGB";
    const unsigned long colours[] = {0, 0xFFFFFF, 0x404040, 0x0000FF, 0x00FF00, 0xFF0000};
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 12; ++x)
            EXPECT_EQ(dc.GetPixel(x, y), colours[codes.find(expected[y][x])]) << x << "," << y;
    // Memory order of a drawn pixel: blue, green, red; picture row 9 = memory row 0.
    const unsigned char *p = image.GetBits() + 3 * 3;
    EXPECT_EQ(p[0] << 16 | p[1] << 8 | p[2], 0x0000FF);
}

TEST(LutDisplay, RasterSurfaceRefusesOtherDepthsAndClipsToTheImage)
{
    CDib grey(CSize(4, 4), 8);
    CRasterDC dc(grey);
    EXPECT_FALSE(dc.LineTo(3, 3) || dc.SetPixel(0, 0, 1));
    EXPECT_EQ(dc.GetPixel(0, 0), 0xFFFFFFFFul);

    CDib image = black_image(5, 5);
    CRasterDC rdc(image);
    CPen pen(CPen::e_Solid, 1, 0xABCDEF);
    rdc.SelectObject(&pen);
    rdc.MoveTo(-3, 2);
    EXPECT_TRUE(rdc.LineTo(9, 2));
    rdc.Draw3dRect(CRect(-10, -10, 100, 100), 1, 2); // every edge lies outside the image
    for (int i = 0; i < 25; ++i)
        EXPECT_EQ(rdc.GetPixel(i % 5, i / 5), i / 5 == 2 ? 0xABCDEFul : 0ul) << i;
}
