// The library's corrections as functions that take an array and return a new
// one: each copies the array into an image once, runs the library member
// named in its docstring without the interpreter lock, and copies back once.
#include "arrays.h"
#include "operations.h"
#include "steps_bridge.h"

#include "kevra/filtre.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "kevra/traitement.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <vector>

namespace kevra_py {

using kevra::CDib;
using kevra::CSequenceur;
using Channel = std::optional<std::string>;

namespace {

// Runs op(image, bits) on the array's image; op runs without the lock.
template <class F>
py::array run(py::array array, const Zone & zone, const Channel & channels, const std::string & what, F op,
              bool colour_only = false)
{
    const Channels order = parse_channels(channels);
    const ArrayView view = inspect(std::move(array), order);
    check_zone(zone, view.width, view.height);
    if (colour_only && view.bits != 24)
        throw py::value_error(what + " needs a 24-bit colour image (this one is " + std::to_string(view.bits) +
                              "-bit)");
    CDib dib;
    bool ok = false;
    {
        py::gil_scoped_release unlocked;
        copy_in(view, dib);
        apply_zone(dib, zone);
        take_notices();
        ok = op(dib, view.bits);
    }
    if (!ok)
        throw Error(what + ": the library refused or failed on this " + std::to_string(view.bits) + "-bit " +
                    std::to_string(view.width) + " x " + std::to_string(view.height) + " image" + notice_suffix());
    return copy_out(dib, order);
}

// f(processing object of the image's depth).
template <class F>
bool by_depth(int bits, F && f)
{
    if (bits == 8) {
        kevra::CTraitementImg_8_Bpp t;
        return f(t);
    }
    if (bits == 16) {
        kevra::CTraitementImg_16_Bpp t;
        return f(t);
    }
    kevra::CTraitementImg_24_Bpp t;
    return f(t);
}

std::string option_text(const std::string & name, const std::string & value)
{
    return "--" + name + (value.empty() ? "" : " " + value);
}

std::string optional_number(const std::optional<double> & v, const char * fallback)
{
    return v ? number(*v) : std::string(fallback);
}

} // namespace

// Shared keyword arguments of the image functions.
#define IMAGE_KW py::kw_only(), py::arg("zone") = py::none(), py::arg("channels") = py::none()
#define WHOLE_KW py::kw_only(), py::arg("channels") = py::none()

void bind_operations(py::module_ & m)
{
    // ---- point and geometric operations --------------------------------------
    m.def(
        "negative",
        [](py::array image, Zone zone, Channel channels) {
            return run(image, zone, channels, "negative", [](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.Negatif(&d); });
            });
        },
        py::arg("image"), IMAGE_KW,
        doc("Negative of the zone (CTraitementImg_*_Bpp::Negatif); at 24 bits through the inverted grey\n"
            "palette.",
            {"negative"}));
    m.def(
        "mirror_horizontal",
        [](py::array image, Zone zone, Channel channels) {
            return run(image, zone, channels, "mirror_horizontal", [](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.Mirroir_Horizontal(&d); });
            });
        },
        py::arg("image"), IMAGE_KW,
        doc("Left-right reflection within the zone (Mirroir_Horizontal).", {"mirror-horizontal"}));
    m.def(
        "mirror_vertical",
        [](py::array image, Zone zone, Channel channels) {
            return run(image, zone, channels, "mirror_vertical", [](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.Mirroir_Vertical(&d); });
            });
        },
        py::arg("image"), IMAGE_KW,
        doc("Top-bottom reflection within the zone (Mirroir_Vertical).", {"mirror-vertical"}));
    m.def(
        "rotate",
        [](py::array image, long long degrees, Channel channels) {
            const auto p = one_step("rotate", number(degrees)).params;
            return run(image, Zone(), channels, option_text("rotate", number(degrees)), [p](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.QuickRotate(p.angle, &d); });
            });
        },
        py::arg("image"), py::arg("degrees"), WHOLE_KW,
        doc("Quarter turn of the whole image (QuickRotate).", {"rotate"}));
    m.def(
        "fill",
        [](py::array image, py::object value, Zone zone, Channel channels) {
            unsigned long v = 0;
            const Channels order = parse_channels(channels);
            const ArrayView view = inspect(image, order);
            if (py::isinstance<py::int_>(value)) {
                const long long level = value.cast<long long>();
                const long long top = view.bits == 16 ? 65535 : view.bits == 8 ? 255 : 0xFFFFFF;
                if (level < 0 || level > top)
                    throw py::value_error("fill: the value must be a level from 0 to " + std::to_string(top));
                v = static_cast<unsigned long>(level);
            } else {
                // Three values in the array's channel order, packed as the pixel's bytes
                // (bits 0-7 first byte = blue).
                const auto c = value.cast<std::vector<long long>>();
                if (c.size() != 3 || std::any_of(c.begin(), c.end(), [](long long x) { return x < 0 || x > 255; }))
                    throw py::value_error("fill: a colour is three levels from 0 to 255");
                const long long b = order == Channels::rgb ? c[2] : c[0], r = order == Channels::rgb ? c[0] : c[2];
                v = static_cast<unsigned long>(b | (c[1] << 8) | (r << 16));
            }
            return run(image, zone, channels, "fill", [v](CDib & d, int bits) {
                if (bits == 8) {
                    kevra::CTraitementImg_8_Bpp t;
                    return t.Fill(static_cast<unsigned char>(v), &d);
                }
                if (bits == 16) {
                    kevra::CTraitementImg_16_Bpp t;
                    return t.Fill(static_cast<unsigned short>(v), &d);
                }
                kevra::CTraitementImg_24_Bpp t;
                return t.Fill(v, &d);
            });
        },
        py::arg("image"), py::arg("value"), IMAGE_KW,
        "Fills the zone with one value (Fill): a level, or for a colour image three levels in the\n"
        "array's channel order (or one integer packing blue, green, red in bits 0-7, 8-15, 16-23).");

    // ---- histograms and the stretch --------------------------------------------
    m.def(
        "histogram",
        [](py::array image, Zone zone, Channel channels) {
            const Channels order = parse_channels(channels);
            const ArrayView view = inspect(std::move(image), order);
            check_zone(zone, view.width, view.height);
            const std::size_t levels = view.bits == 16 ? 65536 : 256;
            std::vector<long> counts(view.bits == 24 ? 3 * 256 : levels, 0);
            bool ok = false;
            {
                py::gil_scoped_release unlocked;
                CDib d;
                copy_in(view, d);
                apply_zone(d, zone);
                if (view.bits == 8) {
                    kevra::CTraitementImg_8_Bpp t;
                    ok = t.Donne_Histogrammes(counts.data(), &d);
                } else if (view.bits == 16) {
                    kevra::CTraitementImg_16_Bpp t;
                    ok = t.Donne_Histogrammes(counts.data(), &d);
                } else {
                    kevra::CTraitementImg_24_Bpp t;
                    // The library names the first byte (blue) "red": arrays count by their own channels.
                    ok = t.Donne_Histogrammes(counts.data(), counts.data() + 256, counts.data() + 512, &d);
                }
            }
            if (!ok)
                throw Error("histogram: the library refused the image" + notice_suffix());
            if (view.bits != 24) {
                py::array_t<int64_t> out(static_cast<py::ssize_t>(levels));
                for (std::size_t i = 0; i < levels; ++i)
                    out.mutable_at(i) = counts[i];
                return out;
            }
            py::array_t<int64_t> out({py::ssize_t(3), py::ssize_t(256)});
            for (int c = 0; c < 3; ++c) {
                const int byte = order == Channels::rgb ? 2 - c : c;
                for (int i = 0; i < 256; ++i)
                    out.mutable_at(c, i) = counts[byte * 256 + i];
            }
            return out;
        },
        py::arg("image"), IMAGE_KW,
        "Histogram of the zone (Donne_Histogrammes): 256 counts at 8 bits, 65536 at 16 bits; for a\n"
        "colour image a (3, 256) array, one row per channel of the array in its channel order.");
    m.def(
        "luminance_histogram",
        [](py::array image, Zone zone, Channel channels) {
            const ArrayView view = inspect(std::move(image), parse_channels(channels));
            check_zone(zone, view.width, view.height);
            if (view.bits != 24)
                throw py::value_error("luminance_histogram needs a 24-bit colour image (this one is " +
                                      std::to_string(view.bits) + "-bit)");
            std::vector<long> counts(256, 0);
            bool ok = false;
            {
                py::gil_scoped_release unlocked;
                CDib d;
                copy_in(view, d);
                apply_zone(d, zone);
                kevra::CTraitementImg_24_Bpp t;
                ok = t.Donne_HistogrammeLuminance(counts.data(), &d);
            }
            if (!ok)
                throw Error("luminance_histogram: the library refused the image" + notice_suffix());
            py::array_t<int64_t> out(256);
            for (int i = 0; i < 256; ++i)
                out.mutable_at(i) = counts[i];
            return out;
        },
        py::arg("image"), IMAGE_KW,
        "256 counts of the level 0.587 G + 0.299 B + 0.114 R (Donne_HistogrammeLuminance: the library\n"
        "weighs the first byte, blue, as 0.299).");
    m.def(
        "stretch",
        [](py::array image, double low, double high, Zone zone, Channel channels) {
            const std::string value = number(low) + "," + number(high);
            const auto p = one_step("stretch", value).params;
            return run(image, zone, channels, option_text("stretch", value), [p](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.EgalisationHistogramme(p.min, p.max, &d); });
            });
        },
        py::arg("image"), py::arg("low"), py::arg("high"), IMAGE_KW,
        doc("Histogram stretch of the zone (EgalisationHistogramme). At 24 bits one table for all three\n"
            "channels keeps the colour balance.",
            {"stretch"}));

    // ---- resampling, median, unsharp masking -------------------------------------
    m.def(
        "resample",
        [](py::array image, long long width, long long height, long long mode, Channel channels) {
            const std::string value = number(width) + "x" + number(height) + "," + number(mode);
            const auto p = one_step("resample", value).params;
            return run(image, Zone(), channels, option_text("resample", value), [p](CDib & d, int bits) {
                CDib out(p.width, p.height, bits);
                if (!out.IsOK())
                    return false;
                const bool ok = by_depth(bits, [&](auto & t) { return t.Resample(&d, &out, p.facteur); });
                d.SwapImage(out);
                return ok;
            });
        },
        py::arg("image"), py::arg("width"), py::arg("height"), py::arg("mode") = 0, WHOLE_KW,
        doc("The whole image resampled to width x height (CTraitementImg_*_Bpp::Resample).", {"resample"}));
    m.def(
        "median",
        [](py::array image, double tolerance, long long radius, Zone zone, Channel channels) {
            const std::string value = number(tolerance) + "," + number(radius);
            const auto p = one_step("median", value).params;
            return run(image, zone, channels, option_text("median", value), [p](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.FiltreMedian(&d, p.Ecart, p.TailleFiltre); });
            });
        },
        py::arg("image"), py::arg("tolerance"), py::arg("radius"), IMAGE_KW,
        doc("Selective median of the zone (FiltreMedian).", {"median"}));
    m.def(
        "unsharp",
        [](py::array image, double radius, double gain_pos, std::optional<double> gain_neg, double threshold_pos,
           std::optional<double> threshold_neg, Zone zone, Channel channels) {
            const std::string value = number(radius) + "," + number(gain_pos) + "," +
                                      optional_number(gain_neg, number(gain_pos).c_str()) + "," +
                                      number(threshold_pos) + "," +
                                      optional_number(threshold_neg, number(threshold_pos).c_str());
            const auto p = one_step("unsharp", value).params;
            return run(image, zone, channels, option_text("unsharp", value), [p](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) {
                    return t.UnsharpMasking(&d, p.rayon, p.gainP, p.gainN, p.SeuilP, p.SeuilN);
                });
            });
        },
        py::arg("image"), py::arg("radius"), py::arg("gain_pos"), py::arg("gain_neg") = py::none(),
        py::arg("threshold_pos") = 0.0, py::arg("threshold_neg") = py::none(), IMAGE_KW,
        doc("Unsharp masking of the zone (UnsharpMasking).", {"unsharp"}));
    m.def(
        "unsharp_disc",
        [](py::array image, long long x, long long y, long long disc, double radius, double gain_pos,
           std::optional<double> gain_neg, double threshold_pos, std::optional<double> threshold_neg,
           Channel channels) {
            const std::string value = number(x) + "," + number(y) + "," + number(disc) + "," + number(radius) +
                                      "," + number(gain_pos) + "," +
                                      optional_number(gain_neg, number(gain_pos).c_str()) + "," +
                                      number(threshold_pos) + "," +
                                      optional_number(threshold_neg, number(threshold_pos).c_str());
            const Step step = one_step("unsharp-disc", value);
            const auto p = step.params;
            if (image.ndim() >= 2)
                check_image({step}, static_cast<long>(image.shape(1)), static_cast<long>(image.shape(0)), 24, Zone());
            return run(image, Zone(), channels, option_text("unsharp-disc", value), [p](CDib & d, int bits) {
                kevra::CPoint centre(p.X, p.Y);
                return by_depth(bits, [&](auto & t) {
                    return t.UnsharpMasking(&d, centre, p.Radius, p.rayon, p.gainP, p.gainN, p.SeuilP, p.SeuilN);
                });
            });
        },
        py::arg("image"), py::arg("x"), py::arg("y"), py::arg("disc"), py::arg("radius"), py::arg("gain_pos"),
        py::arg("gain_neg") = py::none(), py::arg("threshold_pos") = 0.0, py::arg("threshold_neg") = py::none(),
        WHOLE_KW,
        doc("Unsharp masking of a disc (UnsharpMasking with a centre point and a radius).", {"unsharp-disc"}));

    // ---- tone ------------------------------------------------------------------
    m.def(
        "tone",
        [](py::array image, double brightness, double contrast, double gamma, Zone zone, Channel channels) {
            const float l = one_step("brightness", number(brightness)).params.luminosite;
            const float c = one_step("contrast", number(contrast)).params.contraste;
            const float g = one_step("gamma", number(gamma)).params.gamma;
            return run(image, zone, channels, "tone", [=](CDib & d, int bits) {
                return by_depth(bits, [&](auto & t) { return t.ReglageLuminositeContrasteGamma(l, c, g, &d); });
            });
        },
        py::arg("image"), py::arg("brightness") = 0.0, py::arg("contrast") = 1.0, py::arg("gamma") = 1.0, IMAGE_KW,
        doc("Brightness, contrast and gamma of the zone through one table\n"
            "(ReglageLuminositeContrasteGamma).",
            {"brightness", "contrast", "gamma"}));
    struct ToneOne {
        const char * name;
        bool (kevra::CTraitementImg::*member)(float, kevra::CDibRoot *);
        const char * doc;
    };
    static const ToneOne tones[] = {
        {"brightness", &kevra::CTraitementImg::ReglageLuminosite, "Brightness of the zone (ReglageLuminosite)."},
        {"contrast", &kevra::CTraitementImg::ReglageContraste, "Contrast of the zone (ReglageContraste)."},
        {"gamma", &kevra::CTraitementImg::ReglageGamma, "Gamma of the zone (ReglageGamma)."},
    };
    for (const ToneOne & one : tones) {
        m.def(
            one.name,
            [one](py::array image, double value, Zone zone, Channel channels) {
                const auto p = one_step(one.name, number(value)).params;
                const float v = std::string(one.name) == "brightness" ? p.luminosite
                                : std::string(one.name) == "contrast" ? p.contraste
                                                                       : p.gamma;
                return run(image, zone, channels, one.name, [&](CDib & d, int bits) {
                    return by_depth(bits, [&](kevra::CTraitementImg & t) { return (t.*one.member)(v, &d); });
                });
            },
            py::arg("image"), py::arg("value"), IMAGE_KW, doc(one.doc, {one.name}));
    }

    // ---- colour (24 bits) ------------------------------------------------------
    struct ColourOne {
        const char * name; // also the command-line option, when step is true
        bool step;
        bool (kevra::CTraitementImg_24_Bpp::*member)(int, kevra::CDibRoot *);
        const char * doc;
    };
    static const ColourOne colours[] = {
        {"saturation", true, &kevra::CTraitementImg_24_Bpp::ReglageSaturation,
         "Saturation of the zone (ReglageSaturation); its right and bottom edges are exclusive."},
        {"hue", true, &kevra::CTraitementImg_24_Bpp::ReglageTeinte,
         "Hue of the zone (ReglageTeinte); its right and bottom edges are exclusive."},
        {"whiten", true, &kevra::CTraitementImg_24_Bpp::BlanchimentDents,
         "Teeth whitening of the zone (BlanchimentDents); its right and bottom edges are exclusive."},
        {"luminance", false, &kevra::CTraitementImg_24_Bpp::ReglageLuminance,
         "Lightness multiplied by percent/100 (ReglageLuminance); right and bottom edges exclusive."},
    };
    for (const ColourOne & one : colours) {
        m.def(
            one.name,
            [one](py::array image, long long percent, Zone zone, Channel channels) {
                int v = 0;
                std::string what = one.name;
                if (one.step) {
                    const auto p = one_step(one.name, number(percent)).params;
                    v = std::string(one.name) == "whiten" ? p.niveau : p.pourcentage;
                    what = option_text(one.name, number(percent));
                } else {
                    if (percent < INT32_MIN || percent > INT32_MAX)
                        throw py::value_error(std::string(one.name) + ": '" + number(percent) +
                                              "' is not a valid percent (a whole number from -2147483648 to "
                                              "2147483647)");
                    v = static_cast<int>(percent);
                }
                return run(
                    image, zone, channels, what,
                    [&](CDib & d, int) {
                        kevra::CTraitementImg_24_Bpp t;
                        return (t.*one.member)(v, &d);
                    },
                    true);
            },
            py::arg("image"), py::arg("percent"), IMAGE_KW, doc(one.doc, {one.step ? one.name : ""}));
    }
    m.def(
        "levels",
        [](py::array image, long long red, long long green, long long blue, Zone zone, Channel channels) {
            const int r = one_step("red", number(red)).params.rouge;
            const int g = one_step("green", number(green)).params.vert;
            const int b = one_step("blue", number(blue)).params.bleu;
            return run(
                image, zone, channels, "levels",
                [=](CDib & d, int) {
                    kevra::CTraitementImg_24_Bpp t;
                    return t.ReglageRougeVertBleu(r, g, b, &d);
                },
                true);
        },
        py::arg("image"), py::arg("red") = 0, py::arg("green") = 0, py::arg("blue") = 0, IMAGE_KW,
        doc("Red, green and blue levels of the zone (CTraitementImg_24_Bpp::ReglageRougeVertBleu).",
            {"red", "green", "blue"}));
    m.def(
        "black_white",
        [](py::array image, Zone zone, Channel channels) {
            return run(
                image, zone, channels, "--black-white",
                [](CDib & d, int) {
                    kevra::CTraitementImg_24_Bpp t;
                    return t.NoirEtBlanc(&d);
                },
                true);
        },
        py::arg("image"), IMAGE_KW, doc("Black and white (NoirEtBlanc).", {"black-white"}));
    m.def(
        "palette",
        [](py::array image, py::object palette, Zone zone, Channel channels) {
            const std::string value = name_or_number(palette);
            const auto p = one_step("lut-palette", value).params;
            return run(
                image, zone, channels, option_text("lut-palette", value),
                [p](CDib & d, int) {
                    kevra::CLUT_24_Bpp lut;
                    return lut.SetPalette(p.Palette) && lut.Filtre(&d);
                },
                true);
        },
        py::arg("image"), py::arg("palette"), IMAGE_KW,
        doc("A predefined palette applied as a colour table (CLUT_24_Bpp::SetPalette, then Filtre).",
            {"lut-palette"}));
    m.def(
        "display_palette",
        [](double brightness, double contrast, double gamma, py::object palette, long long red, long long green,
           long long blue, bool negative) {
            const float l = one_step("brightness", number(brightness)).params.luminosite;
            const float c = one_step("contrast", number(contrast)).params.contraste;
            const float g = one_step("gamma", number(gamma)).params.gamma;
            const int r = one_step("red", number(red)).params.rouge;
            const int gr = one_step("green", number(green)).params.vert;
            const int b = one_step("blue", number(blue)).params.bleu;
            kevra::e_Palette pal = kevra::e_PaletteNone;
            if (!(py::isinstance<py::int_>(palette) && palette.cast<long long>() == 0))
                pal = one_step("lut-palette", name_or_number(palette)).params.Palette;
            kevra::CLUT_24_Bpp lut;
            take_notices();
            if (!CSequenceur::ComputeDisplayPalette(&lut, l, c, g, pal, r, gr, b, negative, nullptr))
                throw Error("display_palette: the library refused these settings" + notice_suffix());
            py::array_t<uint8_t> out({py::ssize_t(256), py::ssize_t(3)});
            for (int i = 0; i < 256; ++i) {
                out.mutable_at(i, 0) = lut.Donne_Rouge()[i];
                out.mutable_at(i, 1) = lut.Donne_Vert()[i];
                out.mutable_at(i, 2) = lut.Donne_Bleu()[i];
            }
            return out;
        },
        py::kw_only(), py::arg("brightness") = 0.0, py::arg("contrast") = 1.0, py::arg("gamma") = 1.0,
        py::arg("palette") = 0, py::arg("red") = 0, py::arg("green") = 0, py::arg("blue") = 0,
        py::arg("negative") = false,
        "The display palette of a grey image for these settings (CSequenceur::ComputeDisplayPalette):\n"
        "a (256, 3) uint8 array, row i = (red, green, blue) shown for level i. palette 0: none.");

    // ---- filters ---------------------------------------------------------------
    m.def(
        "filter",
        [](py::array image, py::object kind, std::optional<long long> size, std::optional<double> param, Zone zone,
           Channel channels) {
            const std::string value = filter_value(name_or_number(kind), size, param);
            const auto p = one_step("filter", value).params;
            return run(image, zone, channels, option_text("filter", value), [p](CDib & d, int) {
                kevra::CFiltre f(p.filtre, p.taille, p.param);
                return f.Filtrer(&d);
            });
        },
        py::arg("image"), py::arg("kind"), py::arg("size") = py::none(), py::arg("param") = py::none(), IMAGE_KW,
        doc("A catalogue filter over the zone (CFiltre(kind, size, param), then Filtrer), results clipped\n"
            "to the depth's range. A chain's filter step adds 128.5 (32768.5 at 16 bits) to the diagonal\n"
            "gradient; Filter(...).apply(offset=...) does the same here.",
            {"filter"}));
}

} // namespace kevra_py
