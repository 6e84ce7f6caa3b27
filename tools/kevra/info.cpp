// `kevra info`: what the library sees in a BMP file.
#include "commands.h"
#include "common.h"
#include "imageio.h"
#include "pictures.h"

#include "kevra/dib.h"
#include "kevra/lut.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace kevra_cli {

namespace {

// Which predefined palette the image's display palette is, if any.
std::string palette_kind(kevra::CDib & image)
{
    if (image.BitCount() == 24)
        return "none (colour pixels)";
    kevra::tagRGBQUAD current[256];
    if (image.GetCurrentDisplayPalette(current, 256) != 1)
        return "none";
    const int bits = image.BitCount();
    if (bits == 1 || bits == 4)
        return std::to_string(bits == 1 ? 2 : 16) + " entries";
    static const std::pair<kevra::e_Palette, const char *> known[] = {
        {kevra::e_Palette11, "grey ramp (palette 11)"},
        {kevra::e_Palette12, "inverted grey ramp (palette 12)"},
        {kevra::e_Palette21, "false colour (palette 21)"},
        {kevra::e_Palette22, "false colour (palette 22)"},
        {kevra::e_Palette23, "blue-weighted ramp (palette 23)"},
    };
    for (const auto & k : known) {
        kevra::CLUT_24_Bpp table(k.first);
        kevra::tagRGBQUAD entries[256];
        if (!table.Donne_RGBQUAD(entries, 256))
            continue;
        bool same = true;
        for (int i = 0; i < 256 && same; ++i)
            same = entries[i].rgbRed == current[i].rgbRed && entries[i].rgbGreen == current[i].rgbGreen &&
                   entries[i].rgbBlue == current[i].rgbBlue;
        if (same)
            return k.second;
    }
    return "custom";
}

std::string depth_text(int bits)
{
    switch (bits) {
    case 8: return "8 bits (grey levels 0-255)";
    case 16: return "16 bits (grey samples 0-65535)";
    case 24: return "24 bits (colour: blue, green, red bytes)";
    default: return std::to_string(bits) + " bits (not processed by the library)";
    }
}

struct InfoOptions {
    std::string file;
    std::string zone;
};

int run_info(const InfoOptions & o)
{
    const kevra::CRect * zone = nullptr;
    kevra::CRect given;
    if (!o.zone.empty())
        zone = &(given = parse_zone(o.zone));
    install_library_notices();
    kevra::CDib image;
    const SourceInfo source = load_image(o.file, image, {});
    show_notes(o.file, source);
    if (zone != nullptr) {
        check_zone(*zone, image.Width(), image.Height(), false);
        image.SetZoneTravail(*zone);
    }
    const long w = image.Width();
    const long h = image.Height();
    const kevra::CRect z = image.BoundingRectangle();
    const bool whole = z.left == 0 && z.top == 0 && z.right == w - 1 && z.bottom == h - 1;
    const auto xres = static_cast<long>(image.GetXPelsPerMeter());
    const auto yres = static_cast<long>(image.GetYPelsPerMeter());

    std::printf("file:        %s\n", o.file == "-" ? "standard input" : o.file.c_str());
    std::printf("format:      %s%s\n", source.form.c_str(),
                source.read_as.empty() ? "" : (" (read as " + source.read_as + ")").c_str());
    std::printf("size:        %ld x %ld pixels\n", w, h);
    std::printf("depth:       %s\n", depth_text(image.BitCount()).c_str());
    std::printf("palette:     %s\n", palette_kind(image).c_str());
    std::printf("resolution:  %ld x %ld pixels per metre (%s x %s dpi)\n", xres, yres,
                format_number(std::floor(xres * 0.0254 + 0.5), 0).c_str(),
                format_number(std::floor(yres * 0.0254 + 0.5), 0).c_str());
    std::printf("zone:        %d,%d,%d,%d (%s%d x %d pixels)\n", z.left, z.top, z.right, z.bottom,
                whole ? "whole image, " : "", z.right - z.left + 1, z.bottom - z.top + 1);
    for (const Histogram & hist : image_histograms(image)) {
        const Statistics s = statistics(hist.counts);
        std::printf("%-12s min %ld, max %ld, mean %s, percentiles", (hist.name + ":").c_str(), s.min, s.max,
                    format_number(s.mean, 2).c_str());
        for (const auto & p : s.percentiles)
            std::printf(" %d%%=%ld", p.first, p.second);
        std::printf("\n");
    }
    return 0;
}

} // namespace

Command add_info_command(CLI::App & app)
{
    auto o = std::make_shared<InfoOptions>();
    CLI::App * c = app.add_subcommand("info", "File format, size, depth, palette, resolution, working zone and histogram statistics");
    c->add_option("file", o->file, "The image (- for standard input)")->required()->type_name("IN");
    c->add_option("--zone", o->zone, "Statistics over this zone only (inclusive, row 0 at the top)")
        ->type_name("L,T,R,B");
    c->footer("Histogram lines: one for grey images; blue, green, red and the library's luminance for colour\n"
              "images. Percentiles: the smallest level reached by that share of the zone's pixels.");
    return {c, [o]() { return run_info(*o); }};
}

} // namespace kevra_cli
