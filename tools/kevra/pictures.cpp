#include "pictures.h"

#include "kevra/dib.h"
#include "kevra/drawing.h"
#include "kevra/lut.h"
#include "kevra/traitement.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kevra_cli {

std::vector<Histogram> image_histograms(kevra::CDib & image)
{
    std::vector<Histogram> out;
    switch (image.BitCount()) {
    case 8: {
        kevra::CTraitementImg_8_Bpp p;
        Histogram h{"grey", std::vector<long>(256), 0xD8D8D8ul};
        if (p.Donne_Histogrammes(h.counts.data(), &image))
            out.push_back(std::move(h));
        break;
    }
    case 16: {
        kevra::CTraitementImg_16_Bpp p;
        Histogram h{"grey", std::vector<long>(65536), 0xD8D8D8ul};
        if (p.Donne_Histogrammes(h.counts.data(), &image))
            out.push_back(std::move(h));
        break;
    }
    case 24: {
        kevra::CTraitementImg_24_Bpp p;
        Histogram b{"blue", std::vector<long>(256), 0xFF4020ul};
        Histogram g{"green", std::vector<long>(256), 0x20D020ul};
        Histogram r{"red", std::vector<long>(256), 0x2020FFul};
        Histogram l{"luminance", std::vector<long>(256), 0xD8D8D8ul};
        // First byte of each pixel: the library calls it red, the file holds blue there.
        if (p.Donne_Histogrammes(b.counts.data(), g.counts.data(), r.counts.data(), &image) &&
            p.Donne_HistogrammeLuminance(l.counts.data(), &image)) {
            out.push_back(std::move(b));
            out.push_back(std::move(g));
            out.push_back(std::move(r));
            out.push_back(std::move(l));
        }
        break;
    }
    default:
        break;
    }
    return out;
}

Statistics statistics(const std::vector<long> & counts)
{
    Statistics s;
    double sum = 0.0;
    bool first = true;
    for (std::size_t v = 0; v < counts.size(); ++v) {
        if (counts[v] <= 0)
            continue;
        s.count += static_cast<uint64_t>(counts[v]);
        sum += static_cast<double>(v) * static_cast<double>(counts[v]);
        if (first)
            s.min = static_cast<long>(v);
        first = false;
        s.max = static_cast<long>(v);
    }
    if (s.count == 0)
        return s;
    s.mean = sum / static_cast<double>(s.count);
    // Nearest rank: the smallest level whose cumulated count reaches p %.
    for (int p : {1, 5, 25, 50, 75, 95, 99}) {
        const uint64_t rank = (s.count * static_cast<uint64_t>(p) + 99) / 100;
        uint64_t cumul = 0;
        long level = s.max;
        for (std::size_t v = 0; v < counts.size(); ++v) {
            cumul += static_cast<uint64_t>(std::max(counts[v], 0L));
            if (cumul >= rank && rank > 0) {
                level = static_cast<long>(v);
                break;
            }
        }
        s.percentiles.emplace_back(p, level);
    }
    return s;
}

namespace {

const unsigned long background = 0x181818ul;
const unsigned long grid = 0x383838ul;
const int margin = 6;

void put(unsigned char * bits, int pitch, int height, int x, int y, int r, int g, int b)
{
    unsigned char * p = bits + static_cast<std::size_t>(pitch) * (height - 1 - y) + 3 * x;
    p[0] = static_cast<unsigned char>(std::min(b, 255));
    p[1] = static_cast<unsigned char>(std::min(g, 255));
    p[2] = static_cast<unsigned char>(std::min(r, 255));
}

bool blank_picture(kevra::CDib & picture, int width, int height)
{
    if (width < 2 * margin + 8 || height < 2 * margin + 8)
        return false;
    if (!picture.Create(kevra::CSize(width, height), 24) || !picture.IsOK())
        return false;
    unsigned char * bits = picture.GetBits();
    const int pitch = picture.Pitch();
    std::memset(bits, 0, static_cast<std::size_t>(pitch) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            put(bits, pitch, height, x, y, background & 0xFF, (background >> 8) & 0xFF, (background >> 16) & 0xFF);
    return true;
}

// Quarter lines of the plot area, drawn through the surface.
void draw_grid(kevra::CRasterDC & dc, const kevra::CRect & area)
{
    kevra::CPen pen(kevra::CPen::e_Solid, 1, grid);
    kevra::CPen * old = dc.SelectObject(&pen);
    for (int k = 1; k < 4; ++k) {
        const int x = area.left + (area.right - area.left) * k / 4;
        const int y = area.top + (area.bottom - area.top) * k / 4;
        dc.MoveTo(x, area.top);
        dc.LineTo(x, area.bottom);
        dc.MoveTo(area.left, y);
        dc.LineTo(area.right, y);
    }
    dc.SelectObject(old);
}

} // namespace

bool histogram_picture(kevra::CDib & picture, const std::vector<Histogram> & histograms, int width, int height,
                       bool log)
{
    if (!blank_picture(picture, width, height))
        return false;
    const kevra::CRect area(margin, margin, width - margin, height - margin);
    {
        kevra::CRasterDC dc(picture);
        draw_grid(dc, area);
    }
    unsigned char * bits = picture.GetBits();
    const int pitch = picture.Pitch();
    const int cols = area.right - area.left;
    const int rows = area.bottom - area.top;
    std::vector<std::vector<double>> heights;
    for (const Histogram & h : histograms) {
        const std::size_t levels = h.counts.size();
        std::vector<double> column(cols, 0.0);
        for (int c = 0; c < cols; ++c) {
            const std::size_t lo = levels * static_cast<std::size_t>(c) / cols;
            const std::size_t hi = std::max(lo + 1, levels * static_cast<std::size_t>(c + 1) / cols);
            double sum = 0.0;
            for (std::size_t v = lo; v < hi && v < levels; ++v)
                sum += static_cast<double>(std::max(h.counts[v], 0L));
            column[c] = log ? std::log1p(sum) : sum;
        }
        double top = 0.0;
        for (int c = cols > 2 ? 1 : 0; c < (cols > 2 ? cols - 1 : cols); ++c)
            top = std::max(top, column[c]);
        if (top <= 0.0)
            top = *std::max_element(column.begin(), column.end());
        for (double & v : column)
            v = top > 0.0 ? std::min(1.0, v / top) * rows : 0.0;
        heights.push_back(std::move(column));
    }
    for (int c = 0; c < cols; ++c) {
        for (int y = 0; y < rows; ++y) {
            int r = 0, g = 0, b = 0;
            bool any = false;
            for (std::size_t k = 0; k < histograms.size(); ++k) {
                if (histograms[k].name == "luminance" || rows - y > heights[k][c] + 0.5)
                    continue;
                const unsigned long colour = histograms[k].colour;
                r += static_cast<int>(colour & 0xFF) * 3 / 4;
                g += static_cast<int>((colour >> 8) & 0xFF) * 3 / 4;
                b += static_cast<int>((colour >> 16) & 0xFF) * 3 / 4;
                any = true;
            }
            if (any)
                put(bits, pitch, height, area.left + c, area.top + y, r + 0x18, g + 0x18, b + 0x18);
        }
    }
    picture.ReleaseBits();
    return true;
}

bool grey_curve_picture(kevra::CDib & picture, int bits, float luminosite, float contraste, float gamma, int width,
                        int height)
{
    if (!blank_picture(picture, width, height))
        return false;
    kevra::CRasterDC dc(picture);
    kevra::CRect frame(margin, margin, width - margin, height - margin);
    dc.Draw3dRect(frame, dc.GetSysColor(kevra::CDC::e_Color3DHighlight), dc.GetSysColor(kevra::CDC::e_Color3DDkShadow));
    const kevra::CRect inside(frame.left + 1, frame.top + 1, frame.right - 1, frame.bottom - 1);
    draw_grid(dc, inside);
    if (bits == 16) {
        kevra::CLUT_16_Bpp table;
        table.SetLuminositeConstrateGamma(luminosite, contraste, gamma);
        table.Display(&dc, inside, 0xE0E0E0ul);
    } else {
        kevra::CLUT_8_Bpp table;
        table.SetLuminositeConstrateGamma(luminosite, contraste, gamma);
        table.Display(&dc, inside, 0xE0E0E0ul);
    }
    return true;
}

bool colour_curves_picture(kevra::CDib & picture, kevra::CLUT_24_Bpp & table, int width, int height)
{
    if (!blank_picture(picture, width, height))
        return false;
    kevra::CRasterDC dc(picture);
    const kevra::CRect frame(margin, margin, width - margin, height - margin);
    draw_grid(dc, kevra::CRect(frame.left + 1, frame.top + 1, frame.right - 1, frame.bottom - 1));
    table.Display(&dc, frame); // its own frame, then red, green and blue curves
    return true;
}

} // namespace kevra_cli
