// `kevra convert` (grey depth conversion) and `kevra palette` (display palette).
#include "commands.h"
#include "common.h"
#include "imageio.h"

#include "kevra/dib.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace kevra_cli {

namespace {

struct ConvertOptions {
    std::string in;
    std::string out;
    std::string format;
    int bits = 0;
};

int run_convert(const ConvertOptions & o)
{
    const std::string format = output_format(o.out, o.format);
    install_library_notices();
    kevra::CDib source;
    show_notes(o.in, load_image(o.in, source, o.bits == 0 ? std::vector<int>{} : std::vector<int>{8, 16}));
    if (o.bits == 0 || o.bits == source.BitCount()) { // another file format only
        save_image(source, o.out, format);
        return 0;
    }
    kevra::CDib target;
    if (!target.Create(source.Size(), static_cast<unsigned short>(o.bits)) || !target.IsOK())
        throw Failure(o.in + ": not enough memory for the converted image");
    if (!target.CopyToDifferentBpp(source)) {
        const std::string notices = take_library_notices();
        throw Failure(o.in + ": conversion to " + std::to_string(o.bits) + " bits failed" +
                      (notices.empty() ? "" : " (" + notices + ")"));
    }
    // The converted rows keep the picture; keep its resolution too.
    target.SetXPelsPerMeter(source.GetXPelsPerMeter());
    target.SetYPelsPerMeter(source.GetYPelsPerMeter());
    save_image(target, o.out, format);
    return 0;
}

struct PaletteOptions {
    std::string in;
    std::string out;
    std::string format;
    std::string palette;
};

kevra::e_Palette palette_value(const std::string & text)
{
    static const std::pair<const char *, kevra::e_Palette> names[] = {
        {"11", kevra::e_Palette11},         {"grey", kevra::e_Palette11},
        {"gray", kevra::e_Palette11},       {"12", kevra::e_Palette12},
        {"inverted", kevra::e_Palette12},   {"21", kevra::e_Palette21},
        {"false-colour-1", kevra::e_Palette21}, {"false-color-1", kevra::e_Palette21},
        {"22", kevra::e_Palette22},         {"false-colour-2", kevra::e_Palette22},
        {"false-color-2", kevra::e_Palette22}, {"23", kevra::e_Palette23},
        {"blue", kevra::e_Palette23},
    };
    for (const auto & n : names)
        if (text == n.first)
            return n.second;
    throw UsageError("--palette: '" + text + "' is not a predefined palette (11, 12, 21, 22, 23, or grey, "
                     "inverted, false-colour-1, false-colour-2, blue)");
}

int run_palette(const PaletteOptions & o)
{
    const kevra::e_Palette palette = palette_value(o.palette);
    const std::string format = output_format(o.out, o.format);
    if (format != "bmp")
        throw UsageError(o.out + ": a display palette is kept in BMP files only (write .bmp)");
    install_library_notices();
    kevra::CDib image;
    show_notes(o.in, load_image(o.in, image, {8, 16}));
    image.SetDisplayPalette(palette); // says nothing: it returns 0 whatever happens
    const std::string notices = take_library_notices();
    if (!notices.empty())
        throw Failure(o.in + ": the palette could not be applied (" + notices + ")");
    save_image(image, o.out, format);
    return 0;
}

} // namespace

Command add_convert_command(CLI::App & app)
{
    auto o = std::make_shared<ConvertOptions>();
    CLI::App * c = app.add_subcommand("convert", "Convert an image to another file format, or a grey image between 8 and 16 bits");
    c->add_option("in", o->in, "Image (8- or 16-bit grey with --bits; - for standard input)")->required()->type_name("IN");
    c->add_option("out", o->out, "Converted file (- for standard output)")->required()->type_name("OUT");
    add_format_option(*c, o->format);
    c->add_option("--bits", o->bits, "Depth of the result (default: the input's)")
        ->check(CLI::IsMember({8, 16}))
        ->type_name("8|16");
    c->footer("Without --bits the image is written as it is, in the output's format (its resolution kept).\n"
              "8 to 16 bits multiplies each level by 256 (255 becomes 65280); 16 to 8 bits keeps the high\n"
              "byte of each sample. The library's CDibRoot::CopyToDifferentBpp does the conversion.");
    return {c, [o]() { return run_convert(*o); }};
}

Command add_palette_command(CLI::App & app)
{
    auto o = std::make_shared<PaletteOptions>();
    CLI::App * c = app.add_subcommand("palette", "Give a grey image a predefined display palette (pixels unchanged)");
    c->add_option("in", o->in, "8- or 16-bit grey image (- for standard input)")->required()->type_name("IN");
    c->add_option("out", o->out, "The same pixels with the new palette (BMP)")->required()->type_name("OUT.bmp");
    add_format_option(*c, o->format);
    c->add_option("--palette", o->palette,
                  "11 grey ramp, 12 inverted grey ramp, 21 and 22 false colour, 23 blue-weighted (or grey, "
                  "inverted, false-colour-1, false-colour-2, blue)")
        ->required()
        ->type_name("N");
    return {c, [o]() { return run_palette(*o); }};
}

} // namespace kevra_cli
