// `kevra histogram` (bars of an image's histograms) and `kevra lut` (the
// curves of a look-up table).
#include "commands.h"
#include "common.h"
#include "imageio.h"
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
    std::string format;
    std::string size = "512x200";
    std::string zone;
    bool log = false;
};

int run_histogram(const HistogramOptions & o)
{
    int width = 0;
    int height = 0;
    parse_size("--size", o.size, width, height);
    const std::string format = output_format(o.out, o.format);
    const kevra::CRect * zone = nullptr;
    kevra::CRect z;
    if (!o.zone.empty())
        zone = &(z = parse_zone(o.zone));
    install_library_notices();
    kevra::CDib image;
    show_notes(o.in, load_image(o.in, image, {8, 16, 24}));
    if (zone != nullptr) {
        check_zone(*zone, image.Width(), image.Height(), false);
        image.SetZoneTravail(*zone);
    }
    const std::vector<Histogram> histograms = image_histograms(image);
    if (histograms.empty())
        throw Failure(o.in + ": the library gave no histogram");
    kevra::CDib picture;
    if (!histogram_picture(picture, histograms, width, height, o.log))
        throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    save_image(picture, o.out, format);
    return 0;
}

struct LutOptions {
    std::string out;
    std::string format;
    int bits = 24;
    // The tone and level values, checked as the step options of process are.
    std::string brightness, contrast, gamma, red, green, blue, palette;
    bool negative = false;
    std::string size = "256x256";
    CLI::App * app = nullptr;
};

int run_lut(const LutOptions & o)
{
    int width = 0;
    int height = 0;
    parse_size("--size", o.size, width, height);
    const std::string format = output_format(o.out, o.format);
    OptionList given;
    for (const auto & v : {std::make_pair("brightness", &o.brightness), std::make_pair("contrast", &o.contrast),
                           std::make_pair("gamma", &o.gamma), std::make_pair("red", &o.red),
                           std::make_pair("green", &o.green), std::make_pair("blue", &o.blue),
                           std::make_pair("lut-palette", &o.palette)})
        if (o.app->count(std::string("--") + v.first) > 0)
            given.emplace_back(v.first, *v.second);
    kevra::CSequenceur::Params_Struct tone = {};
    tone.contraste = 1.0f;
    tone.gamma = 1.0f;
    kevra::CSequenceur::Params_Struct levels = {};
    kevra::e_Palette palette = kevra::e_PaletteNone;
    for (const Step & s : build_steps(given)) {
        if (s.code == kevra::CSequenceur::e_LUT_LuminositeContrasteGamma)
            tone = s.params;
        else if (s.code == kevra::CSequenceur::e_LUT_RougeVertBleu)
            levels = s.params;
        else if (s.code == kevra::CSequenceur::e_LUT)
            palette = s.params.Palette;
    }
    install_library_notices();
    kevra::CDib picture;
    if (o.bits == 24) {
        kevra::CLUT_24_Bpp table;
        // The library's own composition of display settings, in its order:
        // brightness/contrast/gamma, levels, negative, then the palette.
        if (!kevra::CSequenceur::ComputeDisplayPalette(&table, tone.luminosite, tone.contraste, tone.gamma, palette,
                                                        levels.rouge, levels.vert, levels.bleu, o.negative, nullptr))
            throw Failure(o.out + ": the library could not compose this table");
        if (!colour_curves_picture(picture, table, width, height))
            throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    } else {
        for (const char * colour_only : {"--red", "--green", "--blue", "--lut-palette", "--negative"})
            if (o.app->count(colour_only) > 0)
                throw UsageError(std::string(colour_only) + " needs --bits 24 (grey tables have one curve)");
        if (!grey_curve_picture(picture, o.bits, tone.luminosite, tone.contraste, tone.gamma, width, height))
            throw Failure(o.out + ": cannot draw a " + o.size + " picture (at least 20 x 20 pixels)");
    }
    save_image(picture, o.out, format);
    return 0;
}

} // namespace

Command add_histogram_command(CLI::App & app)
{
    auto o = std::make_shared<HistogramOptions>();
    CLI::App * c = app.add_subcommand("histogram", "Draw the histograms of an image as bars (a 24-bit colour picture)");
    c->add_option("in", o->in, "Image (- for standard input)")->required()->type_name("IN");
    c->add_option("out", o->out, "Picture to write (- for standard output)")->required()->type_name("OUT");
    add_format_option(*c, o->format);
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
    CLI::App * c = app.add_subcommand("lut", "Draw the curves of a look-up table (a 24-bit colour picture)");
    o->app = c;
    c->add_option("out", o->out, "Picture to write (- for standard output)")->required()->type_name("OUT");
    add_format_option(*c, o->format);
    c->add_option("--bits", o->bits, "Table depth: 8 or 16 (one grey curve) or 24 (default: red, green, blue curves)")
        ->check(CLI::IsMember({8, 16, 24}))
        ->type_name("8|16|24");
    c->add_option("--brightness", o->brightness, "Brightness, a fraction of full scale, above -1 and below 1 (default 0)")
        ->type_name("BRIGHTNESS");
    c->add_option("--contrast", o->contrast, "Contrast, a gain about black, above 0 up to 10 (default 1)")
        ->type_name("CONTRAST");
    c->add_option("--gamma", o->gamma, "Gamma, above 0 up to 10 (default 1)")->type_name("GAMMA");
    c->add_option("--red", o->red, "Red level in percent, -100 to 100, 24 bits (default 0)")->type_name("PERCENT");
    c->add_option("--green", o->green, "Green level in percent, -100 to 100, 24 bits (default 0)")->type_name("PERCENT");
    c->add_option("--blue", o->blue, "Blue level in percent, -100 to 100, 24 bits (default 0)")->type_name("PERCENT");
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
