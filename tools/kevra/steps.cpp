#include "steps.h"

#include "common.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

namespace kevra_cli {

using kevra::CSequenceur;
using Code = CSequenceur::e_Traitements;

namespace {

enum class Kind { Float, Double, Int, UShort, UChar, Angle, FilterKind, Palette };

struct Field {
    const char * key;   // English name
    const char * alias; // the library's parameter name
    Kind kind;
    const char * fallback; // value when omitted; null: required
};

// One command-line option. Several options may feed one step (brightness,
// contrast and gamma make one look-up step).
struct OptionDef {
    const char * name;  // without the leading "--"
    Code code;
    const char * group;
    const char * value_name; // null: a flag
    const char * help;
    std::vector<Field> fields;
};

const char * const geometry = "Geometry steps";
const char * const neighbourhood = "Noise and sharpness steps";
const char * const colour = "Colour steps (24-bit images)";
const char * const tone = "Tone and look-up steps";

const std::vector<OptionDef> & option_defs()
{
    static const std::vector<OptionDef> defs = {
        {"mirror-vertical", CSequenceur::e_Mirroir_Vertical, geometry, nullptr,
         "Top-bottom reflection within the zone (the library leaves the zone's bottom row in place)", {}},
        {"mirror-horizontal", CSequenceur::e_Mirroir_Horizontal, geometry, nullptr,
         "Left-right reflection within the zone (the library leaves the zone's bottom row, and the two "
         "centre pixels of an even span, in place)",
         {}},
        {"rotate", CSequenceur::e_QuickRotate, geometry, "DEGREES",
         "Quarter turn of the whole image, clockwise: 90, 180 or 270",
         {{"degrees", "angle", Kind::Angle, nullptr}}},
        {"median", CSequenceur::e_FiltreMedian, neighbourhood, "TOLERANCE,RADIUS",
         "Selective median: a pixel further than TOLERANCE (relative, 0.01 to 0.99) from its "
         "neighbourhood's mean takes the median of the (2 RADIUS + 1)^2 window; RADIUS 3 or more",
         {{"tolerance", "Ecart", Kind::Double, nullptr}, {"radius", "TailleFiltre", Kind::UShort, nullptr}}},
        {"filter", CSequenceur::e_Filtre, neighbourhood, "KIND[,SIZE[,PARAM]]",
         "Convolution filter. KIND: mean, gaussian, ramp, parabola, sine, sinc (separable, SIZE odd, "
         "3 or more, default 3; PARAM: gaussian deviation or sinc period, default 1), laplacian, "
         "gradient-x, gradient-y, gradient-diagonal (3x3), or the kind's number 0 to 9",
         {{"kind", "filtre", Kind::FilterKind, nullptr},
          {"size", "taille", Kind::UShort, "3"},
          {"param", "param", Kind::Float, "1"}}},
        {"unsharp", CSequenceur::e_UnsharpMasking, neighbourhood, "RADIUS,GAIN+[,GAIN-[,THRESHOLD+[,THRESHOLD-]]]",
         "Unsharp masking of the zone: filter radius, gains for bright and dark detail (GAIN- "
         "defaults to GAIN+), detail thresholds in pixel levels (THRESHOLD+ defaults to 0, "
         "THRESHOLD- to THRESHOLD+)",
         {{"radius", "rayon", Kind::Float, nullptr},
          {"gain+", "gainP", Kind::Float, nullptr},
          {"gain-", "gainN", Kind::Float, "@gain+"},
          {"threshold+", "SeuilP", Kind::Float, "0"},
          {"threshold-", "SeuilN", Kind::Float, "@threshold+"}}},
        {"unsharp-disc", CSequenceur::e_UnsharpMaskingCircle, neighbourhood,
         "X,Y,DISC,RADIUS,GAIN+[,GAIN-[,THRESHOLD+[,THRESHOLD-]]]",
         "Unsharp masking of a disc of radius DISC pixels centred on column X, picture row Y (from "
         "the top); the other values as for --unsharp. The zone is not used",
         {{"x", "X", Kind::Int, nullptr},
          {"y", "Y", Kind::Int, nullptr},
          {"disc", "Radius", Kind::Int, nullptr},
          {"radius", "rayon", Kind::Float, nullptr},
          {"gain+", "gainP", Kind::Float, nullptr},
          {"gain-", "gainN", Kind::Float, "@gain+"},
          {"threshold+", "SeuilP", Kind::Float, "0"},
          {"threshold-", "SeuilN", Kind::Float, "@threshold+"}}},
        {"resample", CSequenceur::e_Resample, neighbourhood, "WIDTHxHEIGHT[,MODE]",
         "Resample the whole image to WIDTH x HEIGHT pixels. MODE 0 (default): bilinear; k > 0: "
         "reductions low-pass filtered over k times the scale",
         {{"width", "width", Kind::Int, nullptr},
          {"height", "height", Kind::Int, nullptr},
          {"mode", "facteur", Kind::UChar, "0"}}},
        {"black-white", CSequenceur::e_NoirEtBlanc, colour, nullptr,
         "Black and white: each pixel takes its green value", {}},
        {"negative", CSequenceur::e_Negatif, colour, nullptr, "Negative of the zone (any depth)", {}},
        {"saturation", CSequenceur::e_Saturation, colour, "PERCENT",
         "Colour saturation: 100 leaves it, 0 gives grey, 200 doubles it (limited per pixel)",
         {{"percent", "pourcentage", Kind::Int, nullptr}}},
        {"hue", CSequenceur::e_Teinte, colour, "PERCENT",
         "Hue angles multiplied by PERCENT/100 (100 leaves them)", {{"percent", "pourcentage", Kind::Int, nullptr}}},
        {"whiten", CSequenceur::e_Blanchiment, colour, "PERCENT",
         "Teeth whitening: lightness multiplied by PERCENT/100 (not 0)", {{"percent", "niveau", Kind::Int, nullptr}}},
        {"lut-palette", CSequenceur::e_LUT, tone, "PALETTE",
         "Look-up table from a predefined palette: 11 grey, 12 inverted grey, 21 and 22 false colour, "
         "23 blue-weighted (or grey, inverted, false-colour-1, false-colour-2, blue). 24-bit images "
         "only: grey images skip it (see `kevra palette` for their display palette)",
         {{"palette", "Palette", Kind::Palette, nullptr}}},
        {"brightness", CSequenceur::e_LUT_LuminositeContrasteGamma, tone, "L",
         "Brightness, a fraction of full scale added after contrast (default 0). With --contrast "
         "and --gamma it makes one look-up table: out = (in^G * C + L) * full scale",
         {{"value", "luminosite", Kind::Float, nullptr}}},
        {"contrast", CSequenceur::e_LUT_LuminositeContrasteGamma, tone, "C",
         "Contrast, a gain about black (default 1)", {{"value", "contraste", Kind::Float, nullptr}}},
        {"gamma", CSequenceur::e_LUT_LuminositeContrasteGamma, tone, "G",
         "Gamma applied to the normalised level (default 1)", {{"value", "gamma", Kind::Float, nullptr}}},
        {"red", CSequenceur::e_LUT_RougeVertBleu, tone, "PERCENT",
         "Red level: gain (100 + PERCENT)/100 (default 0). With --green and --blue it makes one "
         "look-up table; 24-bit images only (grey images skip it)",
         {{"value", "rouge", Kind::Int, nullptr}}},
        {"green", CSequenceur::e_LUT_RougeVertBleu, tone, "PERCENT", "Green level (default 0)",
         {{"value", "vert", Kind::Int, nullptr}}},
        {"blue", CSequenceur::e_LUT_RougeVertBleu, tone, "PERCENT", "Blue level (default 0)",
         {{"value", "bleu", Kind::Int, nullptr}}},
        {"stretch", CSequenceur::e_EgalisationHistogramme, tone, "LOW,HIGH",
         "Histogram stretch: the darkest pixels, up to the share LOW of them but only among the levels "
         "below LOW x full scale, go to black; the brightest, up to the share 1 - HIGH but only above "
         "HIGH x full scale, go to white; the levels between are spread over the full range "
         "(0 <= LOW < HIGH <= 1; e.g. 0.01,0.99 trims thin tails, 0.08,0.6 brightens an underexposed image)",
         {{"low", "min", Kind::Float, nullptr}, {"high", "max", Kind::Float, nullptr}}},
        {"pseudo3d", CSequenceur::e_Pseudo3D, tone, nullptr,
         "Pseudo-relief (not available in this version of the library: the run fails)", {}},
    };
    return defs;
}

const OptionDef * find_def(const std::string & name)
{
    for (const OptionDef & d : option_defs())
        if (name == d.name)
            return &d;
    return nullptr;
}

// Position of each code in the sequencer's execution order.
int execution_rank(Code code)
{
    static const int order[] = {1, 2, 0, 100, 101, 102, 104, 103, 57, 56, 58, 59, 55, 50, 51, 52, 53, 54};
    for (int i = 0; i < static_cast<int>(sizeof order / sizeof order[0]); ++i)
        if (order[i] == code)
            return i;
    return 1000;
}

std::string lower(std::string s)
{
    for (char & c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(const std::string & s)
{
    std::size_t a = 0;
    std::size_t b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a])))
        ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1])))
        --b;
    return s.substr(a, b - a);
}

[[noreturn]] void bad(const std::string & option, const std::string & why)
{
    throw UsageError(option + ": " + why);
}

bool parse_double(const std::string & text, double & out)
{
    if (text.empty())
        return false;
    errno = 0;
    char * end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && errno != ERANGE && std::isfinite(out);
}

bool parse_long(const std::string & text, long long & out)
{
    if (text.empty())
        return false;
    errno = 0;
    char * end = nullptr;
    out = std::strtoll(text.c_str(), &end, 10);
    return end == text.c_str() + text.size() && errno != ERANGE;
}

// A field's value as a double holding the exact value of its type.
double convert(const std::string & option, const Field & f, const std::string & text)
{
    const std::string what = std::string("'") + text + "' is not a valid " + f.key;
    switch (f.kind) {
    case Kind::Float: {
        double v = 0;
        if (!parse_double(text, v) || std::fabs(v) > std::numeric_limits<float>::max())
            bad(option, what + " (a number)");
        return v;
    }
    case Kind::Double: {
        double v = 0;
        if (!parse_double(text, v))
            bad(option, what + " (a number)");
        return v;
    }
    case Kind::Int:
    case Kind::UShort:
    case Kind::UChar: {
        long long v = 0;
        const long long lo = f.kind == Kind::Int ? INT32_MIN : 0;
        const long long hi = f.kind == Kind::Int ? INT32_MAX : f.kind == Kind::UShort ? 65535 : 255;
        if (!parse_long(text, v) || v < lo || v > hi)
            bad(option, what + " (a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) + ")");
        return static_cast<double>(v);
    }
    case Kind::Angle: {
        if (text == "90")
            return kevra::CTraitementImgBase::e_Angle90;
        if (text == "180")
            return kevra::CTraitementImgBase::e_Angle180;
        if (text == "270")
            return kevra::CTraitementImgBase::e_Angle270;
        bad(option, what + " (90, 180 or 270)");
    }
    case Kind::FilterKind: {
        static const char * const names[] = {"mean", "gaussian", "ramp", "parabola", "sine", "sinc",
                                             "laplacian", "gradient-x", "gradient-y", "gradient-diagonal"};
        for (int i = 0; i < 10; ++i)
            if (lower(text) == names[i])
                return i;
        long long v = 0;
        if (!parse_long(text, v) || v < INT32_MIN || v > INT32_MAX)
            bad(option, what + " (see --help)");
        return static_cast<double>(v); // the sequencer refuses numbers out of the catalogue
    }
    case Kind::Palette: {
        static const std::pair<const char *, int> names[] = {{"grey", 11}, {"gray", 11}, {"inverted", 12},
                                                            {"false-colour-1", 21}, {"false-color-1", 21},
                                                            {"false-colour-2", 22}, {"false-color-2", 22},
                                                            {"blue", 23}};
        for (const auto & n : names)
            if (lower(text) == n.first)
                return n.second;
        long long v = 0;
        if (!parse_long(text, v) || v < INT32_MIN || v > INT32_MAX)
            bad(option, what + " (11, 12, 21, 22, 23 or a palette name)");
        return static_cast<double>(v);
    }
    }
    bad(option, what);
}

// The values of one option, by field, after positional and named items and
// the fallbacks.
std::vector<double> parse_values(const OptionDef & def, const std::string & raw)
{
    const std::string option = std::string("--") + def.name;
    std::vector<std::string> items;
    {
        std::string cur;
        for (char c : raw) {
            if (c == ',') {
                items.push_back(trim(cur));
                cur.clear();
            } else {
                cur += c;
            }
        }
        items.push_back(trim(cur));
    }
    // WIDTHxHEIGHT is one item for two fields.
    if (def.code == CSequenceur::e_Resample && !items.empty() && items[0].find('=') == std::string::npos) {
        const std::size_t x = lower(items[0]).find('x');
        if (x != std::string::npos) {
            const std::string w = items[0].substr(0, x);
            const std::string h = items[0].substr(x + 1);
            items.erase(items.begin());
            items.insert(items.begin(), {w, h});
        }
    }

    const std::size_t n = def.fields.size();
    std::vector<std::string> text(n);
    std::vector<bool> have(n, false);
    std::size_t next = 0;
    bool named_seen = false;
    for (const std::string & item : items) {
        const std::size_t eq = item.find('=');
        if (eq == std::string::npos) {
            if (item.empty())
                bad(option, "empty value in '" + raw + "'");
            if (named_seen)
                bad(option, "'" + item + "': values without a name must come first");
            if (next >= n)
                bad(option, "too many values in '" + raw + "' (expected " + def.value_name + ")");
            text[next] = item;
            have[next] = true;
            ++next;
            continue;
        }
        named_seen = true;
        const std::string key = lower(trim(item.substr(0, eq)));
        std::size_t k = 0;
        while (k < n && key != lower(def.fields[k].key) && key != lower(def.fields[k].alias))
            ++k;
        if (k == n) {
            std::string names;
            for (const Field & f : def.fields)
                names += std::string(names.empty() ? "" : ", ") + f.key;
            bad(option, "unknown name '" + key + "' (expected " + names + ")");
        }
        if (have[k])
            bad(option, std::string(def.fields[k].key) + " given twice");
        text[k] = trim(item.substr(eq + 1));
        have[k] = true;
    }

    std::vector<double> values(n, 0.0);
    for (std::size_t k = 0; k < n; ++k)
        if (have[k])
            values[k] = convert(option, def.fields[k], text[k]);
    for (std::size_t k = 0; k < n; ++k) {
        if (have[k])
            continue;
        const char * fb = def.fields[k].fallback;
        if (fb == nullptr)
            bad(option, std::string("missing ") + def.fields[k].key + " (expected " + def.value_name + ")");
        if (fb[0] == '@') {
            std::size_t j = 0;
            while (j < n && std::string(def.fields[j].key) != fb + 1)
                ++j;
            values[k] = values[j];
        } else {
            values[k] = convert(option, def.fields[k], fb);
        }
    }
    return values;
}

std::string describe(const OptionDef & def, const std::string & value)
{
    return std::string("--") + def.name + (def.value_name != nullptr ? " " + value : "");
}

// The option texts of the options feeding one shared step, in table order.
struct SharedStep {
    std::string option;
    CSequenceur::Params_Struct params = {};
    bool present = false;
};

std::vector<Step> build(const std::vector<std::pair<std::string, std::string>> & given)
{
    std::vector<Step> steps;
    SharedStep tone;
    tone.params.luminosite = 0.0f;
    tone.params.contraste = 1.0f;
    tone.params.gamma = 1.0f;
    SharedStep levels;

    for (const auto & g : given) {
        const OptionDef * def = find_def(g.first);
        if (def == nullptr)
            throw UsageError("--" + g.first + ": unknown step");
        std::vector<double> v;
        if (def->value_name != nullptr)
            v = parse_values(*def, g.second);
        const std::string text = describe(*def, g.second);
        CSequenceur::Params_Struct p = {};
        switch (def->code) {
        case CSequenceur::e_QuickRotate:
            p.angle = static_cast<kevra::CTraitementImgBase::e_angle>(static_cast<int>(v[0]));
            break;
        case CSequenceur::e_FiltreMedian:
            p.Ecart = v[0];
            p.TailleFiltre = static_cast<unsigned short>(v[1]);
            break;
        case CSequenceur::e_Filtre:
            p.filtre = static_cast<kevra::CFiltre::e_Filtre>(static_cast<int32_t>(v[0]));
            p.taille = static_cast<unsigned short>(v[1]);
            p.param = static_cast<float>(v[2]);
            break;
        case CSequenceur::e_UnsharpMasking:
            p.rayon = static_cast<float>(v[0]);
            p.gainP = static_cast<float>(v[1]);
            p.gainN = static_cast<float>(v[2]);
            p.SeuilP = static_cast<float>(v[3]);
            p.SeuilN = static_cast<float>(v[4]);
            break;
        case CSequenceur::e_UnsharpMaskingCircle:
            p.X = static_cast<int32_t>(v[0]);
            p.Y = static_cast<int32_t>(v[1]);
            p.Radius = static_cast<int32_t>(v[2]);
            p.rayon = static_cast<float>(v[3]);
            p.gainP = static_cast<float>(v[4]);
            p.gainN = static_cast<float>(v[5]);
            p.SeuilP = static_cast<float>(v[6]);
            p.SeuilN = static_cast<float>(v[7]);
            break;
        case CSequenceur::e_Resample:
            p.width = static_cast<int32_t>(v[0]);
            p.height = static_cast<int32_t>(v[1]);
            p.facteur = static_cast<unsigned char>(v[2]);
            break;
        case CSequenceur::e_Saturation:
        case CSequenceur::e_Teinte:
            p.pourcentage = static_cast<int32_t>(v[0]);
            break;
        case CSequenceur::e_Blanchiment:
            p.niveau = static_cast<int32_t>(v[0]);
            break;
        case CSequenceur::e_LUT:
            p.pLUT = nullptr;
            p.Palette = static_cast<kevra::e_Palette>(static_cast<int32_t>(v[0]));
            break;
        case CSequenceur::e_EgalisationHistogramme:
            p.min = static_cast<float>(v[0]);
            p.max = static_cast<float>(v[1]);
            break;
        case CSequenceur::e_LUT_LuminositeContrasteGamma: {
            const std::string n = def->name;
            const float f = static_cast<float>(v[0]);
            (n == "brightness" ? tone.params.luminosite : n == "contrast" ? tone.params.contraste : tone.params.gamma) = f;
            tone.option += (tone.option.empty() ? "" : " ") + text;
            tone.present = true;
            continue;
        }
        case CSequenceur::e_LUT_RougeVertBleu: {
            const std::string n = def->name;
            const auto i = static_cast<int32_t>(v[0]);
            (n == "red" ? levels.params.rouge : n == "green" ? levels.params.vert : levels.params.bleu) = i;
            levels.option += (levels.option.empty() ? "" : " ") + text;
            levels.present = true;
            continue;
        }
        default:
            break; // flags: no parameters
        }
        steps.push_back({text, def->code, p});
    }
    if (tone.present)
        steps.push_back({tone.option, CSequenceur::e_LUT_LuminositeContrasteGamma, tone.params});
    if (levels.present)
        steps.push_back({levels.option, CSequenceur::e_LUT_RougeVertBleu, levels.params});

    // Add the steps in the order the sequencer runs them: it reorders its list
    // before a run anyway, but predicts the final size from the list as added
    // (a resampling added before a quarter turn would be predicted wrongly).
    std::stable_sort(steps.begin(), steps.end(),
                     [](const Step & a, const Step & b) { return execution_rank(a.code) < execution_rank(b.code); });
    return steps;
}

} // namespace

bool colour_only(Code code)
{
    return code == CSequenceur::e_NoirEtBlanc || code == CSequenceur::e_Saturation ||
           code == CSequenceur::e_Teinte || code == CSequenceur::e_Blanchiment;
}

bool skipped_on_grey(Code code)
{
    return code == CSequenceur::e_LUT || code == CSequenceur::e_LUT_RougeVertBleu;
}

bool timed(Code code)
{
    return code != CSequenceur::e_LUT && code != CSequenceur::e_LUT_LuminositeContrasteGamma &&
           code != CSequenceur::e_LUT_RougeVertBleu;
}

const char * code_name(Code code)
{
    switch (code) {
    case CSequenceur::e_QuickRotate: return "e_QuickRotate";
    case CSequenceur::e_Mirroir_Vertical: return "e_Mirroir_Vertical";
    case CSequenceur::e_Mirroir_Horizontal: return "e_Mirroir_Horizontal";
    case CSequenceur::e_LUT: return "e_LUT";
    case CSequenceur::e_LUT_LuminositeContrasteGamma: return "e_LUT_LuminositeContrasteGamma";
    case CSequenceur::e_LUT_RougeVertBleu: return "e_LUT_RougeVertBleu";
    case CSequenceur::e_EgalisationHistogramme: return "e_EgalisationHistogramme";
    case CSequenceur::e_Pseudo3D: return "e_Pseudo3D";
    case CSequenceur::e_Blanchiment: return "e_Blanchiment";
    case CSequenceur::e_Negatif: return "e_Negatif";
    case CSequenceur::e_NoirEtBlanc: return "e_NoirEtBlanc";
    case CSequenceur::e_Saturation: return "e_Saturation";
    case CSequenceur::e_Teinte: return "e_Teinte";
    case CSequenceur::e_FiltreMedian: return "e_FiltreMedian";
    case CSequenceur::e_Filtre: return "e_Filtre";
    case CSequenceur::e_UnsharpMasking: return "e_UnsharpMasking";
    case CSequenceur::e_Resample: return "e_Resample";
    case CSequenceur::e_UnsharpMaskingCircle: return "e_UnsharpMaskingCircle";
    }
    return "?";
}

void StepOptions::add_to(CLI::App & command)
{
    slots_.clear();
    slots_.reserve(option_defs().size()); // CLI11 keeps pointers into the slots
    for (const OptionDef & d : option_defs()) {
        slots_.push_back(Slot{d.name, std::string(), d.value_name == nullptr, false});
        Slot & s = slots_.back();
        const std::string name = std::string("--") + d.name;
        if (d.value_name == nullptr)
            s.option = command.add_flag(name, s.set, d.help)
                           ->group(d.group)
                           ->multi_option_policy(CLI::MultiOptionPolicy::Throw);
        else
            s.option = command.add_option(name, s.value, d.help)->type_name(d.value_name)->group(d.group);
    }
}

std::vector<std::pair<std::string, std::string>> StepOptions::given_() const
{
    std::vector<std::pair<std::string, std::string>> given;
    for (const Slot & s : slots_)
        if (s.option != nullptr && s.option->count() > 0)
            given.emplace_back(s.name, s.value);
    return given;
}

std::vector<Step> StepOptions::steps() const
{
    return build(given_());
}

std::vector<Step> StepOptions::parse(const std::vector<std::pair<std::string, std::string>> & options)
{
    return build(options);
}

std::string steps_footer()
{
    return "Steps run in the sequencer's fixed order whatever their order on the command line:\n"
           "mirrors, quarter turn, median, filter, unsharp masking (zone, then disc), resampling,\n"
           "black and white, negative, saturation, hue, whitening, histogram stretch, pseudo-relief;\n"
           "the look-up steps (--lut-palette, --brightness/--contrast/--gamma, --red/--green/--blue)\n"
           "are composed into one table applied last. Each step option may be given once.\n"
           "Values: comma-separated in the order shown, or as name=value pairs using the English\n"
           "names or the library's (e.g. --median tolerance=0.2,radius=3 or --median Ecart=0.2,\n"
           "TailleFiltre=3). Negative values: --red=-20.\n"
           "Example: kevra process in.bmp out.bmp --median 0.2,3 --unsharp 2,1.5 --gamma 0.8 --stretch 0.01,0.99";
}

} // namespace kevra_cli
