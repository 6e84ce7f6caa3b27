// Table curves: the calls made on a drawing surface, and the pixels a raster surface draws.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "kevra/dib.h"
#include "kevra/drawing.h"
#include "kevra/lut.h"

using namespace kevra;

namespace {

// Records what a table asks of a surface.
class RecordingDC : public CDC {
public:
    int SetBkMode(int mode) override
    {
        calls.push_back("bk " + std::to_string(mode));
        const int p = mode_;
        mode_ = mode;
        return p;
    }
    CPen *SelectObject(CPen *pen) override
    {
        calls.push_back(pen == &own ? "pen own"
                                    : "pen " + std::to_string(pen->Style()) + " " + std::to_string(pen->Width()) +
                                          " " + std::to_string(pen->Couleur()));
        CPen *p = pen_;
        pen_ = pen;
        return p;
    }
    CPoint MoveTo(int x, int y) override
    {
        points.push_back(CPoint(x, y));
        calls.push_back("move");
        return CPoint();
    }
    bool LineTo(int x, int y) override
    {
        points.push_back(CPoint(x, y));
        if (calls.back() != "line")
            calls.push_back("line");
        return true;
    }
    void Draw3dRect(const CRect &, unsigned long, unsigned long) override { calls.push_back("frame"); }
    unsigned long GetSysColor(int) const override { return 0; }

    CPen own;
    CPen *pen_ = &own;
    int mode_ = 2;
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

TEST(LutDisplay, SurfaceCallsAndRestores)
{
    RecordingDC dc;
    CLUT_8_Bpp lut;
    lut.Display(&dc, CRect(10, 20, 138, 84), 0x123456);
    const std::vector<std::string> expected = {"bk 1", "pen 0 1 1193046", "move", "line", "pen own", "bk 2"};
    EXPECT_EQ(dc.calls, expected);
    ASSERT_EQ(dc.points.size(), 256u);
    // sx = 128 / 256, sy = 64 / 256
    EXPECT_EQ(dc.points[0], CPoint(10, 84));
    EXPECT_EQ(dc.points[1], CPoint(10, 83));   // 84 - 0.25 truncated
    EXPECT_EQ(dc.points[3], CPoint(11, 83));
    EXPECT_EQ(dc.points[255], CPoint(137, 20)); // 84 - 63.75 = 20.25: never reaches the top
    lut.Display(nullptr, CRect(0, 0, 10, 10), 0); // nothing, no crash

    RecordingDC dc16;
    CLUT_16_Bpp l16;
    l16.Display(&dc16, CRect(0, 0, 65536, 1000), 0);
    ASSERT_EQ(dc16.points.size(), 65536u);
    EXPECT_EQ(dc16.points[65535], CPoint(65535, 0)); // 1000 - 65535 * (1000/65536) = 0.015...
    EXPECT_EQ(dc16.points[32768], CPoint(32768, 500));

    RecordingDC dc24;
    CLUT_24_Bpp colour;
    colour.CLUT::Display(&dc24, CRect(0, 0, 10, 10), 0); // a colour table is no grey curve
    EXPECT_TRUE(dc24.calls.empty());
}

TEST(LutDisplay, IdentityCurveDrawnPixelByPixel)
{
    CDib image = black_image(260, 260);
    CRasterDC dc(image);
    CLUT_8_Bpp lut;
    lut.Display(&dc, CRect(0, 0, 256, 256), 0x00FF00);
    EXPECT_EQ(dc.GetBkMode(), CDC::e_Opaque);
    // Points (i, 256 - i); each line stops before its end point, so (255, 1) is left out.
    for (int y = 0; y < 260; ++y)
        for (int x = 0; x < 260; ++x) {
            const bool on = x <= 254 && y == 256 - x;
            ASSERT_EQ(dc.GetPixel(x, y), on ? 0x00FF00ul : 0ul) << x << "," << y;
        }
    // Memory order of the drawn pixel: blue, green, red; picture row 256 = memory row 3.
    const unsigned char *p = image.GetBits() + image.Pitch() * 3;
    EXPECT_EQ(p[0], 0);
    EXPECT_EQ(p[1], 255);
    EXPECT_EQ(p[2], 0);
}

TEST(LutDisplay, StepCurve)
{
    CDib image = black_image(20, 12);
    CRasterDC dc(image);
    CLUT_8_Bpp lut;
    for (int i = 0; i < 256; ++i)
        lut.Donne_Table()[i] = i < 128 ? 0 : 255;
    lut.Display(&dc, CRect(2, 1, 18, 11), 0x0000FF); // sx = 16/256, sy = 10/256
    // Lower half: y = 11 for x = 2 .. 9; at i = 128 the curve climbs to y = trunc(11 - 9.96) = 1.
    for (int x = 0; x < 20; ++x)
        EXPECT_EQ(dc.GetPixel(x, 11), (x >= 2 && x <= 9) ? 0x0000FFul : 0ul) << x;
    // Upper level: x from 10 to 17 (end 17 left out)
    for (int x = 0; x < 20; ++x)
        EXPECT_EQ(dc.GetPixel(x, 1), (x >= 10 && x <= 16) ? 0x0000FFul : 0ul) << x;
    // The climb from (9, 11) to (10, 1) has one pixel on each row 11 .. 2.
    for (int y = 2; y <= 11; ++y) {
        int n = 0;
        for (int x = 0; x < 20; ++x)
            n += dc.GetPixel(x, y) != 0;
        EXPECT_EQ(n, y == 11 ? 8 : 1) << y;
    }
    EXPECT_EQ(dc.GetPixel(0, 0), 0ul);
}

TEST(LutDisplay, ColourTableFrameAndThreeCurves)
{
    CDib image = black_image(40, 30);
    CRasterDC dc(image);
    CLUT_24_Bpp lut;
    lut.Donne_Rouge().SetContraste(0.0f); // all 0: along the bottom
    for (int i = 0; i < 256; ++i)
        lut.Donne_Vert().Donne_Table()[i] = 255; // all 255: near the top
    lut.Display(&dc, CRect(0, 0, 40, 30));
    const unsigned long hi = 0xFFFFFF, sh = 0x404040, red = 0x0000FF, green = 0x00FF00, blue = 0xFF0000;
    // Frame: top row and left column in highlight except their last pixel, right column and
    // bottom row in dark shadow.
    for (int x = 0; x < 40; ++x)
        EXPECT_EQ(dc.GetPixel(x, 0), x < 39 ? hi : sh) << x;
    for (int y = 0; y < 30; ++y) {
        EXPECT_EQ(dc.GetPixel(39, y), sh) << y;
        if (y < 29) {
            EXPECT_EQ(dc.GetPixel(0, y), hi) << y;
        }
    }
    // Inside (1, 1, 39, 29): sx = 38/256, sy = 28/256. Red: y = 29 from x = 1 to 37 (end 38 left
    // out), over the frame's bottom row; the blue identity curve starts at (1, 29) and is drawn last.
    EXPECT_EQ(dc.GetPixel(0, 29), sh);
    EXPECT_EQ(dc.GetPixel(1, 29), blue);
    for (int x = 2; x <= 37; ++x)
        EXPECT_EQ(dc.GetPixel(x, 29), red) << x;
    EXPECT_EQ(dc.GetPixel(38, 29), sh);
    // Green: y = trunc(29 - 255 * 28 / 256) = 1, x = 1 .. 37; blue reaches row 1 at x = 37 and its
    // zero-length last lines draw nothing, so (38, 1) stays black.
    for (int x = 1; x <= 36; ++x)
        EXPECT_EQ(dc.GetPixel(x, 1), green) << x;
    EXPECT_EQ(dc.GetPixel(37, 1), blue);
    EXPECT_EQ(dc.GetPixel(38, 1), 0ul);
    // No other colour anywhere.
    int blues = 0;
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            const unsigned long c = dc.GetPixel(x, y);
            ASSERT_TRUE(c == 0 || c == hi || c == sh || c == red || c == green || c == blue) << x << "," << y;
            blues += c == blue;
        }
    EXPECT_GE(blues, 28); // one per row at least from 29 up to 2, plus (37, 1)
}

TEST(LutDisplay, RasterSurfaceRefusesOtherDepthsAndClipsToTheImage)
{
    CDib grey(CSize(4, 4), 8);
    CRasterDC dc(grey);
    dc.MoveTo(0, 0);
    EXPECT_FALSE(dc.LineTo(3, 3));
    EXPECT_FALSE(dc.SetPixel(0, 0, 1));
    EXPECT_EQ(dc.GetPixel(0, 0), 0xFFFFFFFFul);
    EXPECT_EQ(dc.GetCurrentPosition(), CPoint(3, 3));

    CDib image = black_image(5, 5);
    CRasterDC rdc(image);
    CPen pen(CPen::e_Solid, 1, 0xABCDEF);
    CPen *previous = rdc.SelectObject(&pen);
    rdc.MoveTo(-3, 2);
    EXPECT_TRUE(rdc.LineTo(9, 2));
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(rdc.GetPixel(x, 2), 0xABCDEFul);
    EXPECT_EQ(rdc.SelectObject(previous), &pen);
    rdc.MoveTo(0, 0);
    rdc.LineTo(0, 3); // default pen: black
    rdc.Draw3dRect(CRect(-10, -10, 100, 100), 1, 2); // every edge lies outside the image
    EXPECT_EQ(rdc.GetPixel(4, 4), 0ul);
    EXPECT_EQ(rdc.GetSysColor(CDC::e_Color3DHighlight), 0xFFFFFFul);
    rdc.SetSysColor(CDC::e_Color3DDkShadow, 0x010203);
    EXPECT_EQ(rdc.GetSysColor(CDC::e_Color3DDkShadow), 0x010203ul);
}

TEST(LutDisplay, CurvePictureSavesAsBmp)
{
    CDib image = black_image(64, 48);
    CRasterDC dc(image);
    CLUT_24_Bpp lut(e_Palette21);
    lut.Display(&dc, CRect(0, 0, 64, 48));
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("kevra_lut_curve_" + std::to_string(::getpid()) + ".bmp");
    ASSERT_TRUE(image.Save(path.wstring().c_str(), 0));
    CDibRoot back(path.wstring().c_str(), 0);
    std::filesystem::remove(path);
    ASSERT_TRUE(back.IsOK());
    ASSERT_EQ(back.BitCount(), 24);
    ASSERT_EQ(back.Width(), 64);
    ASSERT_EQ(std::memcmp(back.GetBits(), image.GetBits(), static_cast<size_t>(image.Pitch()) * 48), 0);
    CRasterDC reader(back);
    EXPECT_EQ(reader.GetPixel(0, 0), 0xFFFFFFul); // frame highlight survives the file
    EXPECT_EQ(reader.GetPixel(63, 47), 0x404040ul);
}
