// Histograms of an image through the library, their statistics, and the
// pictures the command line draws: histogram bars and look-up curves.
#ifndef KEVRA_CLI_PICTURES_H
#define KEVRA_CLI_PICTURES_H

#include <cstdint>
#include <string>
#include <vector>

namespace kevra {
class CDib;
class CLUT_24_Bpp;
} // namespace kevra

namespace kevra_cli {

struct Histogram {
    std::string name;         // "grey", "blue", "green", "red", "luminance"
    std::vector<long> counts; // one per level: 256, or 65536 for 16-bit images
    unsigned long colour;     // bar colour, 0x00BBGGRR
};

// The histograms of the image's working zone, counted by the library: one
// for a grey image; blue, green, red and luminance for a colour image (the
// colour names are those of the bytes in the file: the library's
// Donne_HistogrammeRouge counts the first byte, which a BMP file holds blue).
std::vector<Histogram> image_histograms(kevra::CDib & image);

struct Statistics {
    uint64_t count = 0;
    long min = 0;
    long max = 0;
    double mean = 0.0;
    std::vector<std::pair<int, long>> percentiles; // (percent, smallest level reaching it)
};
Statistics statistics(const std::vector<long> & counts);

// Bars of the histograms, one colour each, on a dark background (24 bits).
// Each column sums the levels that fall in it. The scale is set by the
// tallest column apart from the first and the last (which often hold the
// clipped ends of a stretched image: they are cut at the top). With `log`, the
// heights follow log(1 + count).
bool histogram_picture(kevra::CDib & picture, const std::vector<Histogram> & histograms, int width, int height,
                       bool log);

// Look-up curves drawn by the tables' own Display on a raster surface over a
// 24-bit picture, with a dark background and a grid of quarters.
bool grey_curve_picture(kevra::CDib & picture, int bits, float luminosite, float contraste, float gamma, int width,
                        int height);
bool colour_curves_picture(kevra::CDib & picture, kevra::CLUT_24_Bpp & table, int width, int height);

} // namespace kevra_cli

#endif
