// Builds a small colour picture and a grey one, saves them as BMP files, reads
// the first back and prints what it holds.
//
//   kevra_example_gradient [output-directory]
#include <cstdio>
#include <string>

#include <kevra/kevra.h>

using namespace kevra;

static std::wstring widen(const std::string & s) { return std::wstring(s.begin(), s.end()); }

int main(int argc, char ** argv)
{
    const std::string dir = argc > 1 ? argv[1] : ".";
    const int width = 256, height = 128;

    // 24 bits: blue rises to the right, red to the top. Memory row 0 is the
    // bottom of the picture.
    CDib colour(width, height, 24);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            unsigned char * px = colour.GetPixelPtr(x, row);
            px[0] = static_cast<unsigned char>(x);              // blue
            px[1] = 64;                                          // green
            px[2] = static_cast<unsigned char>(row * 255 / (height - 1)); // red
        }
    }

    // 8-bit grey: the mean of blue and red, then widened to 16 bits.
    CDib grey(width, height, 8);
    for (int row = 0; row < height; ++row)
        for (int x = 0; x < width; ++x) {
            const unsigned char * px = colour.GetPixelPtr(x, row);
            *grey.GetPixelPtr(x, row) = static_cast<unsigned char>((px[0] + px[2]) / 2);
        }
    CDib grey16(width, height, 16);
    grey16.CopyToDifferentBpp(grey);

    const std::string colourPath = dir + "/kevra_colour.bmp";
    const std::string greyPath = dir + "/kevra_grey16.bmp";
    if (!colour.Save(widen(colourPath).c_str(), 0) || !grey16.Save(widen(greyPath).c_str(), 0)) {
        std::fprintf(stderr, "cannot write into %s\n", dir.c_str());
        return 1;
    }

    CDib back(widen(colourPath).c_str());
    if (!back.IsOK()) {
        std::fprintf(stderr, "cannot read %s back: %s\n", colourPath.c_str(), back.GetLastError());
        return 1;
    }
    std::printf("%s: %ld x %ld, %u bits, %lu bytes of pixels, %lu pels per metre\n", colourPath.c_str(),
                back.Width(), back.Height(), static_cast<unsigned>(back.BitCount()), back.SizeImage(),
                back.GetXPelsPerMeter());
    std::printf("%s: 16-bit grey, %ld x %ld\n", greyPath.c_str(), grey16.Width(), grey16.Height());
    return 0;
}
