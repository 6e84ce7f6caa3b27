// `kevra histogram` (bars of an image's histograms) and `kevra lut` (the
// curves of a look-up table).
#include "commands.h"
#include "common.h"
#include "pictures.h"

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace kevra_cli {

namespace {

struct HistogramOptions {
    std::string in;
    std::string out;
    std::string size = "512x200";
    std::string zone;
    bool log = false;
};

int run_histogram(const HistogramOptions & o)
{
    install_library_notices();
    int width = 0;
    int height = 0;
    parse_size("--size", o.size, width, height);
    kevra::CDib image;
    load_bmp(o.in, image, {8, 16, 24});
    if (!o.zone.empty())
        image.SetZoneTravail(parse_zone(o.zone));
    const std::vector<Histogram> histograms = image_histograms(image);
    if (histograms.empty())
        throw Failure(o.in + ": the library gave no histogram");
    kevra::CDib picture;
    if (!histogram_picture(picture, histograms, width, height, o.log))
        throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    save_bmp(picture, o.out);
    return 0;
}

struct LutOptions {
    std::string out;
    int bits = 24;
    float brightness = 0.0f;
    float contrast = 1.0f;
    float gamma = 1.0f;
    int red = 0;
    int green = 0;
    int blue = 0;
    int palette = 0;
    bool negative = false;
    std::string size = "256x256";
    CLI::App * app = nullptr;
};

int run_lut(const LutOptions & o)
{
    install_library_notices();
    int width = 0;
    int height = 0;
    parse_size("--size", o.size, width, height);
    kevra::CDib picture;
    if (o.bits == 24) {
        if (o.palette != 0 && o.palette != 11 && o.palette != 12 && o.palette != 21 && o.palette != 22 &&
            o.palette != 23)
            throw UsageError("--lut-palette: " + std::to_string(o.palette) + " is not 11, 12, 21, 22 or 23");
        kevra::CLUT_24_Bpp table;
        // The library's own composition of display settings, in its order:
        // brightness/contrast/gamma, levels, negative, then the palette.
        if (!kevra::CSequenceur::ComputeDisplayPalette(&table, o.brightness, o.contrast, o.gamma,
                                                        static_cast<kevra::e_Palette>(o.palette), o.red, o.green,
                                                        o.blue, o.negative, nullptr))
            throw Failure(o.out + ": the library could not compose this table");
        if (!colour_curves_picture(picture, table, width, height))
            throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    } else {
        for (const char * colour_only : {"--red", "--green", "--blue", "--lut-palette", "--negative"})
            if (o.app->count(colour_only) > 0)
                throw UsageError(std::string(colour_only) + " needs --bits 24 (grey tables have one curve)");
        if (!grey_curve_picture(picture, o.bits, o.brightness, o.contrast, o.gamma, width, height))
            throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    }
    save_bmp(picture, o.out);
    return 0;
}

} // namespace

Command add_histogram_command(CLI::App & app)
{
    auto o = std::make_shared<HistogramOptions>();
    CLI::App * c = app.add_subcommand("histogram", "Draw the histograms of an image as bars (24-bit BMP)");
    c->add_option("in", o->in, "8-, 16- or 24-bit BMP file")->required()->type_name("IN.bmp");
    c->add_option("out", o->out, "Picture to write")->required()->type_name("OUT.bmp");
    c->add_option("--size", o->size, "Picture size (default 512x200)")->type_name("WIDTHxHEIGHT");
    c->add_option("--zone", o->zone, "Count this zone only (inclusive, row 0 at the top)")->type_name("L,T,R,B");
    c->add_flag("--log", o->log, "Bar heights follow log(1 + count)");
    c->footer("Grey images: one grey histogram (16-bit levels are summed into the picture's columns).\n"
              "Colour images: the blue, green and red histograms overlaid in their colours. The scale is\n"
              "set by the tallest column apart from the first and last, which may be cut at the top.");
    return {c, [o]() { return run_histogram(*o); }};
}

Command add_lut_command(CLI::App & app)
{
    auto o = std::make_shared<LutOptions>();
    CLI::App * c = app.add_subcommand("lut", "Draw the curves of a look-up table (24-bit BMP)");
    o->app = c;
    c->add_option("out", o->out, "Picture to write")->required()->type_name("OUT.bmp");
    c->add_option("--bits", o->bits, "Table depth: 8 or 16 (one grey curve) or 24 (default: red, green, blue curves)")
        ->check(CLI::IsMember({8, 16, 24}))
        ->type_name("8|16|24");
    c->add_option("--brightness", o->brightness, "Brightness, a fraction of full scale (default 0)")->type_name("L");
    c->add_option("--contrast", o->contrast, "Contrast, a gain about black (default 1)")->type_name("C");
    c->add_option("--gamma", o->gamma, "Gamma (default 1)")->type_name("G");
    c->add_option("--red", o->red, "Red level in percent, 24 bits (default 0)")->type_name("PERCENT");
    c->add_option("--green", o->green, "Green level in percent, 24 bits (default 0)")->type_name("PERCENT");
    c->add_option("--blue", o->blue, "Blue level in percent, 24 bits (default 0)")->type_name("PERCENT");
    c->add_option("--lut-palette", o->palette, "Predefined palette 11, 12, 21, 22 or 23, 24 bits (default none)")
        ->type_name("PALETTE");
    c->add_flag("--negative", o->negative, "Inverted table, 24 bits");
    c->add_option("--size", o->size, "Picture size (default 256x256)")->type_name("WIDTHxHEIGHT");
    c->footer("Level in goes to the right, level out upwards. The curves are drawn by the tables' own\n"
              "Display. At 24 bits the table is the library's display composition\n"
              "(CSequenceur::ComputeDisplayPalette): brightness/contrast/gamma, levels, negative, palette.");
    return {c, [o]() { return run_lut(*o); }};
}

} // namespace kevra_cli
