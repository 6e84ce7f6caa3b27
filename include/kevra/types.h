// Value types shared by the whole library: rectangle, size, point and the
// records of the device-independent bitmap format.
#ifndef KEVRA_TYPES_H
#define KEVRA_TYPES_H

#include <cstdint>

namespace kevra {

// Integer rectangle: left, top, right, bottom, 32-bit signed on every target.
// Whether right and bottom are inclusive is a property of each operation,
// not of the type. The default rectangle is (0, 0, 0, 0).
class CRect {
public:
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    CRect() = default;
    CRect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}

    // right - left and bottom - top, as plain differences.
    int Width() const { return right - left; }
    int Height() const { return bottom - top; }

    bool operator==(const CRect & o) const
    {
        return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
    }
    bool operator!=(const CRect & o) const { return !(*this == o); }
};

class CSize {
public:
    int32_t cx = 0;
    int32_t cy = 0;

    CSize() = default;
    CSize(int x, int y) : cx(x), cy(y) {}

    bool operator==(const CSize & o) const { return cx == o.cx && cy == o.cy; }
    bool operator!=(const CSize & o) const { return !(*this == o); }
};

class CPoint {
public:
    int32_t x = 0;
    int32_t y = 0;

    CPoint() = default;
    CPoint(int px, int py) : x(px), y(py) {}

    bool operator==(const CPoint & o) const { return x == o.x && y == o.y; }
    bool operator!=(const CPoint & o) const { return !(*this == o); }
};

// Bitmap records with their customary field names. Their in-memory layout has
// no padding (4, 40 and 44 bytes), but files and packed bitmaps are always
// read and written field by field in little-endian order, never by dumping
// these structures.
struct tagRGBQUAD {
    uint8_t rgbBlue;
    uint8_t rgbGreen;
    uint8_t rgbRed;
    uint8_t rgbReserved;
};

struct tagBITMAPINFOHEADER {
    uint32_t biSize;
    int32_t biWidth;
    int32_t biHeight;
    uint16_t biPlanes;
    uint16_t biBitCount;
    uint32_t biCompression;
    uint32_t biSizeImage;
    int32_t biXPelsPerMeter;
    int32_t biYPelsPerMeter;
    uint32_t biClrUsed;
    uint32_t biClrImportant;
};

struct tagBITMAPINFO {
    tagBITMAPINFOHEADER bmiHeader;
    tagRGBQUAD bmiColors[1];
};

typedef tagRGBQUAD RGBQUAD;
typedef tagBITMAPINFOHEADER BITMAPINFOHEADER;
typedef tagBITMAPINFO BITMAPINFO;

static_assert(sizeof(tagRGBQUAD) == 4, "RGBQUAD must be 4 bytes");
static_assert(sizeof(tagBITMAPINFOHEADER) == 40, "BITMAPINFOHEADER must be 40 bytes");
static_assert(sizeof(tagBITMAPINFO) == 44, "BITMAPINFO must be header plus one entry");

} // namespace kevra

#endif
