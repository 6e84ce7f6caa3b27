#include "kevra_steps.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace kevra_cli {

using kevra::CSequenceur;
using Code = CSequenceur::e_Traitements;

namespace {

enum class Kind { Float, Double, Int, Angle, FilterKind, Palette };


// One value of an option and its valid range. Float values are checked after
// their rounding to single precision: the library receives that value.
struct Field {
    const char * key;      // English name (upper-cased in messages)
    const char * alias;    // the library's parameter name
    Kind kind;
    const char * fallback; // value when omitted; null: required; "@key": that field's value
    double lo, hi;
    bool lo_open = false;  // lo itself excluded
    bool hi_open = false;
};

struct OptionDef {
    StepOptionInfo info;
    std::vector<Field> fields;
};

const char * const geometry = "Geometry steps";
const char * const neighbourhood = "Noise and sharpness steps";
const char * const colour = "Colour steps (24-bit images)";
const char * const tone = "Tone and look-up steps";

const std::vector<OptionDef> & option_defs()
{
    static const std::vector<OptionDef> defs = {
        {{"mirror-vertical", geometry, nullptr,
          "Top-bottom reflection within the zone (the library leaves the zone's bottom row in place)",
          CSequenceur::e_Mirroir_Vertical},
         {}},
        {{"mirror-horizontal", geometry, nullptr,
          "Left-right reflection within the zone (the library leaves the zone's bottom row, and the two "
          "centre pixels of an even span, in place)",
          CSequenceur::e_Mirroir_Horizontal},
         {}},
        {{"rotate", geometry, "DEGREES", "Quarter turn of the whole image, clockwise: 90, 180 or 270",
          CSequenceur::e_QuickRotate},
         {{"degrees", "angle", Kind::Angle, nullptr, 0, 0}}},
        {{"median", neighbourhood, "TOLERANCE,RADIUS",
          "Selective median: a pixel further than TOLERANCE (relative, 0.01 to 0.99) from its "
          "neighbourhood's mean takes the median of the (2 RADIUS + 1)^2 window; RADIUS 3 to 50",
          CSequenceur::e_FiltreMedian},
         {{"tolerance", "Ecart", Kind::Double, nullptr, 0.01, 0.99},
          {"radius", "TailleFiltre", Kind::Int, nullptr, 3, 50}}},
        {{"filter", neighbourhood, "KIND[,SIZE[,PARAM]]",
          "Convolution filter. KIND: mean, gaussian, ramp, parabola, sine, sinc (separable; SIZE odd, "
          "3 to 99, default 3; PARAM: gaussian deviation or sinc period, above 0 up to 100, default 1), "
          "laplacian, gradient-x, gradient-y, gradient-diagonal (3x3, no SIZE or PARAM), or the kind's "
          "number 0 to 9",
          CSequenceur::e_Filtre},
         {{"kind", "filtre", Kind::FilterKind, nullptr, 0, 9},
          {"size", "taille", Kind::Int, "3", 3, 99},
          {"param", "param", Kind::Float, "1", 0, 100, true}}},
        {{"unsharp", neighbourhood, "RADIUS,GAIN+[,GAIN-[,THRESHOLD+[,THRESHOLD-]]]",
          "Unsharp masking of the zone: filter radius 1 to 100 (its whole part is used), gains 0 to 100 "
          "for bright and dark detail, not both 0 (GAIN- defaults to GAIN+), detail thresholds in pixel "
          "levels, 0 or more (THRESHOLD+ defaults to 0, THRESHOLD- to THRESHOLD+)",
          CSequenceur::e_UnsharpMasking},
         {{"radius", "rayon", Kind::Float, nullptr, 1, 100},
          {"gain+", "gainP", Kind::Float, nullptr, 0, 100},
          {"gain-", "gainN", Kind::Float, "@gain+", 0, 100},
          {"threshold+", "SeuilP", Kind::Float, "0", 0, 65535},
          {"threshold-", "SeuilN", Kind::Float, "@threshold+", 0, 65535}}},
        {{"unsharp-disc", neighbourhood, "X,Y,DISC,RADIUS,GAIN+[,GAIN-[,THRESHOLD+[,THRESHOLD-]]]",
          "Unsharp masking of a disc of radius DISC pixels (1 or more) centred on column X, picture row Y "
          "(from the top), inside the image; the other values as for --unsharp. The zone is not used",
          CSequenceur::e_UnsharpMaskingCircle},
         {{"x", "X", Kind::Int, nullptr, 0, 2147483647.0},
          {"y", "Y", Kind::Int, nullptr, 0, 2147483647.0},
          {"disc", "Radius", Kind::Int, nullptr, 1, 65535},
          {"radius", "rayon", Kind::Float, nullptr, 1, 100},
          {"gain+", "gainP", Kind::Float, nullptr, 0, 100},
          {"gain-", "gainN", Kind::Float, "@gain+", 0, 100},
          {"threshold+", "SeuilP", Kind::Float, "0", 0, 65535},
          {"threshold-", "SeuilN", Kind::Float, "@threshold+", 0, 65535}}},
        {{"resample", neighbourhood, "WIDTHxHEIGHT[,MODE]",
          "Resample the whole image to WIDTH x HEIGHT pixels (1 to 65535 each). MODE 0 (default): "
          "bilinear; k from 1 to 255: reductions low-pass filtered over k times the scale",
          CSequenceur::e_Resample},
         {{"width", "width", Kind::Int, nullptr, 1, 65535},
          {"height", "height", Kind::Int, nullptr, 1, 65535},
          {"mode", "facteur", Kind::Int, "0", 0, 255}}},
        {{"black-white", colour, nullptr, "Black and white: each pixel takes its green value",
          CSequenceur::e_NoirEtBlanc},
         {}},
        {{"negative", colour, nullptr, "Negative of the zone (any depth)", CSequenceur::e_Negatif}, {}},
        {{"saturation", colour, "PERCENT",
          "Colour saturation, 0 to 400: 100 leaves it, 0 gives grey, 200 doubles it (limited per pixel)",
          CSequenceur::e_Saturation},
         {{"percent", "pourcentage", Kind::Int, nullptr, 0, 400}}},
        {{"hue", colour, "PERCENT", "Hue angles multiplied by PERCENT/100, 0 to 400 (100 leaves them)",
          CSequenceur::e_Teinte},
         {{"percent", "pourcentage", Kind::Int, nullptr, 0, 400}}},
        {{"whiten", colour, "PERCENT",
          "Teeth whitening: lightness multiplied by PERCENT/100, 1 to 400 (100 leaves it)",
          CSequenceur::e_Blanchiment},
         {{"percent", "niveau", Kind::Int, nullptr, 1, 400}}},
        {{"lut-palette", tone, "PALETTE",
          "Look-up table from a predefined palette: 11 grey, 12 inverted grey, 21 and 22 false colour, "
          "23 blue-weighted (or grey, inverted, false-colour-1, false-colour-2, blue). 24-bit images "
          "only: grey images skip it (see `kevra palette` for their display palette)",
          CSequenceur::e_LUT},
         {{"palette", "Palette", Kind::Palette, nullptr, 0, 0}}},
        {{"brightness", tone, "BRIGHTNESS",
          "Brightness, a fraction of full scale added after contrast, between -1 and 1 (default 0). With "
          "--contrast and --gamma it makes one look-up table: out = (in^GAMMA * CONTRAST + BRIGHTNESS) * "
          "full scale",
          CSequenceur::e_LUT_LuminositeContrasteGamma},
         {{"brightness", "luminosite", Kind::Float, nullptr, -1, 1, true, true}}},
        {{"contrast", tone, "CONTRAST", "Contrast, a gain about black, above 0 up to 10 (default 1)",
          CSequenceur::e_LUT_LuminositeContrasteGamma},
         {{"contrast", "contraste", Kind::Float, nullptr, 0, 10, true}}},
        {{"gamma", tone, "GAMMA",
          "Power applied to the normalised level, above 0 up to 10 (default 1): below 1 brightens the "
          "dark levels, above 1 darkens them",
          CSequenceur::e_LUT_LuminositeContrasteGamma},
         {{"gamma", "gamma", Kind::Float, nullptr, 0, 10, true}}},
        {{"red", tone, "PERCENT",
          "Red level, -100 to 100: gain (100 + PERCENT)/100 (default 0). With --green and --blue it makes "
          "one look-up table; 24-bit images only (grey images skip it)",
          CSequenceur::e_LUT_RougeVertBleu},
         {{"red", "rouge", Kind::Int, nullptr, -100, 100}}},
        {{"green", tone, "PERCENT", "Green level, -100 to 100 (default 0)", CSequenceur::e_LUT_RougeVertBleu},
         {{"green", "vert", Kind::Int, nullptr, -100, 100}}},
        {{"blue", tone, "PERCENT", "Blue level, -100 to 100 (default 0)", CSequenceur::e_LUT_RougeVertBleu},
         {{"blue", "bleu", Kind::Int, nullptr, -100, 100}}},
        {{"stretch", tone, "LOW,HIGH",
          "Histogram stretch: the darkest pixels, up to the share LOW of them but only among the levels "
          "below LOW x full scale, go to black; the brightest, up to the share 1 - HIGH but only above "
          "HIGH x full scale, go to white; the levels between are spread over the full range "
          "(0 <= LOW < HIGH <= 1; e.g. 0.01,0.99 trims thin tails, 0.08,0.6 brightens an underexposed image)",
          CSequenceur::e_EgalisationHistogramme},
         {{"low", "min", Kind::Float, nullptr, 0, 1}, {"high", "max", Kind::Float, nullptr, 0, 1}}},
    };
    return defs;
}

const OptionDef * find_def(const std::string & name)
{
    for (const OptionDef & d : option_defs())
        if (name == d.info.name)
            return &d;
    return nullptr;
}

const char * const filter_names[] = {"mean",      "gaussian",   "ramp",       "parabola",         "sine", "sinc",
                                     "laplacian", "gradient-x", "gradient-y", "gradient-diagonal"};

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

std::string upper(std::string s)
{
    for (char & c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
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

std::string number_text(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
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

// The valid values of a field, in words.
std::string range_text(const Field & f)
{
    switch (f.kind) {
    case Kind::Angle:
        return "90, 180 or 270";
    case Kind::FilterKind: {
        std::string s = "one of ";
        for (const char * n : filter_names)
            s += std::string(n) + ", ";
        return s + "or a number from 0 to 9";
    }
    case Kind::Palette:
        return "11, 12, 21, 22, 23, grey, inverted, false-colour-1, false-colour-2 or blue";
    case Kind::Int:
        return f.hi == 2147483647.0 ? "a whole number, " + number_text(f.lo) + " or more"
                                    : "a whole number from " + number_text(f.lo) + " to " + number_text(f.hi);
    case Kind::Float:
    case Kind::Double:
        break;
    }
    const std::string lo = number_text(f.lo), hi = number_text(f.hi);
    if (f.lo_open && f.hi_open)
        return "a number above " + lo + " and below " + hi;
    if (f.lo_open)
        return "a number above " + lo + ", up to " + hi;
    return "a number from " + lo + " to " + hi;
}

class OptionValues {
public:
    OptionValues(const OptionDef & def, const std::string & raw) : def_(def), raw_(raw) {}

    std::string option() const { return std::string("--") + def_.info.name; }
    std::string shown() const { return option() + (def_.info.value_name != nullptr ? " " + raw_ : ""); }

    [[noreturn]] void bad(const std::string & why) const { throw UsageError(shown() + ": " + why); }
    [[noreturn]] void out_of_range(std::size_t k, const std::string & text) const
    {
        bad(upper(def_.fields[k].key) + " must be " + range_text(def_.fields[k]) + " (not " + text + ")");
    }

    void parse();
    double value(std::size_t k) const { return values_[k]; }
    bool given(std::size_t k) const { return have_[k]; }

private:
    double convert(std::size_t k, const std::string & text) const;

    const OptionDef & def_;
    std::string raw_;
    std::vector<double> values_;
    std::vector<bool> have_;
};

// A field's value as a double holding the exact value of its type.
double OptionValues::convert(std::size_t k, const std::string & text) const
{
    const Field & f = def_.fields[k];
    switch (f.kind) {
    case Kind::Float:
    case Kind::Double: {
        double v = 0;
        if (!parse_double(text, v))
            out_of_range(k, "'" + text + "'");
        if (f.kind == Kind::Float) {
            if (std::fabs(v) > std::numeric_limits<float>::max())
                out_of_range(k, text);
            v = static_cast<float>(v);
        }
        if (v < f.lo || v > f.hi || (f.lo_open && v == f.lo) || (f.hi_open && v == f.hi))
            out_of_range(k, text);
        return v;
    }
    case Kind::Int: {
        long long v = 0;
        if (!parse_long(text, v))
            out_of_range(k, "'" + text + "'");
        if (static_cast<double>(v) < f.lo || static_cast<double>(v) > f.hi)
            out_of_range(k, text);
        return static_cast<double>(v);
    }
    case Kind::Angle:
        if (text == "90")
            return kevra::CTraitementImgBase::e_Angle90;
        if (text == "180")
            return kevra::CTraitementImgBase::e_Angle180;
        if (text == "270")
            return kevra::CTraitementImgBase::e_Angle270;
        out_of_range(k, text);
    case Kind::FilterKind: {
        for (int i = 0; i < 10; ++i)
            if (lower(text) == filter_names[i])
                return i;
        long long v = 0;
        if (!parse_long(text, v) || v < 0 || v > 9)
            out_of_range(k, text);
        return static_cast<double>(v);
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
        if (!parse_long(text, v) || (v != 11 && v != 12 && v != 21 && v != 22 && v != 23))
            out_of_range(k, text);
        return static_cast<double>(v);
    }
    }
    out_of_range(k, text);
}

// The values by field, after positional and named items and the fallbacks.
void OptionValues::parse()
{
    std::vector<std::string> items;
    {
        std::string cur;
        for (char c : raw_) {
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
    if (def_.info.code == CSequenceur::e_Resample && !items.empty() && items[0].find('=') == std::string::npos) {
        const std::size_t x = lower(items[0]).find('x');
        if (x != std::string::npos) {
            const std::string w = items[0].substr(0, x);
            const std::string h = items[0].substr(x + 1);
            items.erase(items.begin());
            items.insert(items.begin(), {w, h});
        }
    }

    const std::size_t n = def_.fields.size();
    std::vector<std::string> text(n);
    have_.assign(n, false);
    std::size_t next = 0;
    bool named_seen = false;
    for (const std::string & item : items) {
        const std::size_t eq = item.find('=');
        if (eq == std::string::npos) {
            if (item.empty())
                bad("empty value (expected " + std::string(def_.info.value_name) + ")");
            if (named_seen)
                bad("'" + item + "': values without a name must come first");
            if (next >= n)
                bad(std::string("too many values (expected ") + def_.info.value_name + ")");
            text[next] = item;
            have_[next] = true;
            ++next;
            continue;
        }
        named_seen = true;
        const std::string key = lower(trim(item.substr(0, eq)));
        std::size_t k = 0;
        while (k < n && key != lower(def_.fields[k].key) && key != lower(def_.fields[k].alias))
            ++k;
        if (k == n) {
            std::string names;
            for (const Field & f : def_.fields)
                names += std::string(names.empty() ? "" : ", ") + f.key;
            bad("unknown name '" + key + "' (expected " + names + ")");
        }
        if (have_[k])
            bad(std::string(def_.fields[k].key) + " given twice");
        text[k] = trim(item.substr(eq + 1));
        have_[k] = true;
    }

    values_.assign(n, 0.0);
    for (std::size_t k = 0; k < n; ++k)
        if (have_[k])
            values_[k] = convert(k, text[k]);
    for (std::size_t k = 0; k < n; ++k) {
        if (have_[k])
            continue;
        const char * fb = def_.fields[k].fallback;
        if (fb == nullptr)
            bad(upper(def_.fields[k].key) + " is missing (expected " + def_.info.value_name + ")");
        if (fb[0] == '@') {
            std::size_t j = 0;
            while (j < n && std::string(def_.fields[j].key) != fb + 1)
                ++j;
            values_[k] = values_[j];
        } else {
            values_[k] = convert(k, fb);
        }
    }
}

// The checks that join several values.
void check_together(const OptionValues & v, Code code)
{
    switch (code) {
    case CSequenceur::e_Filtre: {
        const int kind = static_cast<int>(v.value(0));
        const std::string name = filter_names[kind];
        if (kind >= 6) {
            if (v.given(1) && v.value(1) != 3)
                v.bad("SIZE must be 3 for " + name + " (a 3x3 kernel)");
            if (v.given(2))
                v.bad(name + " takes no PARAM");
        } else {
            if (static_cast<int>(v.value(1)) % 2 == 0)
                v.bad("SIZE must be odd (3, 5, 7 ... 99)");
            if (v.given(2) && kind != kevra::CFiltre::Filtre_Gaussien && kind != kevra::CFiltre::Filtre_SinusCardinal)
                v.bad(name + " takes no PARAM (only gaussian and sinc do)");
        }
        break;
    }
    case CSequenceur::e_UnsharpMasking:
    case CSequenceur::e_UnsharpMaskingCircle: {
        const std::size_t g = code == CSequenceur::e_UnsharpMasking ? 1 : 4;
        if (v.value(g) == 0 && v.value(g + 1) == 0)
            v.bad("GAIN+ and GAIN- cannot both be 0");
        break;
    }
    case CSequenceur::e_EgalisationHistogramme:
        if (!(v.value(0) < v.value(1)))
            v.bad("LOW must be below HIGH (0 <= LOW < HIGH <= 1)");
        break;
    default:
        break;
    }
}

// The options feeding one shared step.
struct SharedStep {
    std::string option;
    CSequenceur::Params_Struct params = {};
    bool present = false;

    void add(const std::string & text)
    {
        option += (option.empty() ? "" : " ") + text;
        present = true;
    }
};

std::string zone_text(const kevra::CRect & z)
{
    return std::to_string(z.left) + "," + std::to_string(z.top) + "," + std::to_string(z.right) + "," +
           std::to_string(z.bottom);
}

} // namespace

const std::vector<StepOptionInfo> & step_options()
{
    static const std::vector<StepOptionInfo> infos = [] {
        std::vector<StepOptionInfo> v;
        for (const OptionDef & d : option_defs())
            v.push_back(d.info);
        return v;
    }();
    return infos;
}

std::vector<Step> build_steps(const OptionList & options)
{
    std::vector<Step> steps;
    SharedStep tone;
    tone.params.luminosite = 0.0f;
    tone.params.contraste = 1.0f;
    tone.params.gamma = 1.0f;
    SharedStep levels;

    for (std::size_t i = 0; i < options.size(); ++i) {
        const auto & g = options[i];
        const OptionDef * def = find_def(g.first);
        if (def == nullptr)
            throw UsageError("--" + g.first + ": unknown step option");
        for (std::size_t j = 0; j < i; ++j)
            if (options[j].first == g.first)
                throw UsageError("--" + g.first + ": given twice (each step option may be given once)");
        OptionValues v(*def, g.second);
        if (def->info.value_name != nullptr) {
            v.parse();
            check_together(v, def->info.code);
        } else if (!g.second.empty()) {
            throw UsageError("--" + g.first + ": takes no value");
        }
        const std::string text = v.shown();
        CSequenceur::Params_Struct p = {};
        switch (def->info.code) {
        case CSequenceur::e_QuickRotate:
            p.angle = static_cast<kevra::CTraitementImgBase::e_angle>(static_cast<int>(v.value(0)));
            break;
        case CSequenceur::e_FiltreMedian:
            p.Ecart = v.value(0);
            p.TailleFiltre = static_cast<unsigned short>(v.value(1));
            break;
        case CSequenceur::e_Filtre:
            p.filtre = static_cast<kevra::CFiltre::e_Filtre>(static_cast<int32_t>(v.value(0)));
            p.taille = static_cast<unsigned short>(v.value(1));
            p.param = static_cast<float>(v.value(2));
            break;
        case CSequenceur::e_UnsharpMasking:
            p.rayon = static_cast<float>(v.value(0));
            p.gainP = static_cast<float>(v.value(1));
            p.gainN = static_cast<float>(v.value(2));
            p.SeuilP = static_cast<float>(v.value(3));
            p.SeuilN = static_cast<float>(v.value(4));
            break;
        case CSequenceur::e_UnsharpMaskingCircle:
            p.X = static_cast<int32_t>(v.value(0));
            p.Y = static_cast<int32_t>(v.value(1));
            p.Radius = static_cast<int32_t>(v.value(2));
            p.rayon = static_cast<float>(v.value(3));
            p.gainP = static_cast<float>(v.value(4));
            p.gainN = static_cast<float>(v.value(5));
            p.SeuilP = static_cast<float>(v.value(6));
            p.SeuilN = static_cast<float>(v.value(7));
            break;
        case CSequenceur::e_Resample:
            p.width = static_cast<int32_t>(v.value(0));
            p.height = static_cast<int32_t>(v.value(1));
            p.facteur = static_cast<unsigned char>(v.value(2));
            break;
        case CSequenceur::e_Saturation:
        case CSequenceur::e_Teinte:
            p.pourcentage = static_cast<int32_t>(v.value(0));
            break;
        case CSequenceur::e_Blanchiment:
            p.niveau = static_cast<int32_t>(v.value(0));
            break;
        case CSequenceur::e_LUT:
            p.pLUT = nullptr;
            p.Palette = static_cast<kevra::e_Palette>(static_cast<int32_t>(v.value(0)));
            break;
        case CSequenceur::e_EgalisationHistogramme:
            p.min = static_cast<float>(v.value(0));
            p.max = static_cast<float>(v.value(1));
            break;
        case CSequenceur::e_LUT_LuminositeContrasteGamma: {
            const std::string n = def->info.name;
            const float f = static_cast<float>(v.value(0));
            (n == "brightness" ? tone.params.luminosite : n == "contrast" ? tone.params.contraste : tone.params.gamma) = f;
            tone.add(text);
            continue;
        }
        case CSequenceur::e_LUT_RougeVertBleu: {
            const std::string n = def->info.name;
            const auto x = static_cast<int32_t>(v.value(0));
            (n == "red" ? levels.params.rouge : n == "green" ? levels.params.vert : levels.params.bleu) = x;
            levels.add(text);
            continue;
        }
        default:
            break; // flags: no parameters
        }
        steps.push_back({text, def->info.code, p});
    }
    if (tone.present)
        steps.push_back({tone.option, CSequenceur::e_LUT_LuminositeContrasteGamma, tone.params});
    if (levels.present)
        steps.push_back({levels.option, CSequenceur::e_LUT_RougeVertBleu, levels.params});

    std::stable_sort(steps.begin(), steps.end(),
                     [](const Step & a, const Step & b) { return execution_rank(a.code) < execution_rank(b.code); });
    return steps;
}

void final_size(const std::vector<Step> & steps, long width, long height, long & width_out, long & height_out)
{
    width_out = width;
    height_out = height;
    for (const Step & s : steps) {
        if (s.code == CSequenceur::e_QuickRotate && s.params.angle != kevra::CTraitementImgBase::e_Angle180)
            std::swap(width_out, height_out);
        if (s.code == CSequenceur::e_Resample) {
            width_out = s.params.width;
            height_out = s.params.height;
        }
    }
}

kevra::CRect parse_zone(const std::string & text)
{
    long long v[4];
    int n = 0;
    std::size_t pos = 0;
    while (n < 4) {
        const std::size_t end = text.find(',', pos);
        const std::string item = trim(text.substr(pos, end == std::string::npos ? std::string::npos : end - pos));
        long long x = 0;
        if (!parse_long(item, x) || x < INT32_MIN || x > INT32_MAX)
            break;
        v[n++] = x;
        if (end == std::string::npos)
            break;
        pos = end + 1;
    }
    if (n != 4 || std::count(text.begin(), text.end(), ',') != 3)
        throw UsageError("--zone " + text + ": not LEFT,TOP,RIGHT,BOTTOM (whole numbers)");
    return kevra::CRect(static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[2]),
                        static_cast<int>(v[3]));
}

void check_zone(const kevra::CRect & z, long width, long height, bool for_run)
{
    const char * lt = for_run ? " < " : " <= ";
    const bool inside = z.left >= 0 && z.top >= 0 && z.right < width && z.bottom < height &&
                        (for_run ? z.left < z.right && z.top < z.bottom : z.left <= z.right && z.top <= z.bottom);
    if (!inside)
        throw UsageError("--zone " + zone_text(z) + ": the zone must lie within the " + std::to_string(width) + " x " +
                         std::to_string(height) + " image (0 <= LEFT" + lt + "RIGHT <= " + std::to_string(width - 1) +
                         ", 0 <= TOP" + lt + "BOTTOM <= " + std::to_string(height - 1) + ")");
}

std::vector<std::string> check_image(const std::vector<Step> & steps, long width, long height, int bits,
                                     const kevra::CRect * zone)
{
    std::vector<std::string> notes;
    if (zone != nullptr)
        check_zone(*zone, width, height, true);
    else if (width < 2 || height < 2)
        throw UsageError("the image is " + std::to_string(width) + " x " + std::to_string(height) +
                         " pixels: processing needs at least 2 x 2");
    long w = width, h = height;
    for (const Step & s : steps) {
        if (bits != 24 && colour_only(s.code))
            throw ImageError(s.option + " needs a 24-bit colour image (this one is " + std::to_string(bits) + "-bit)");
        if (bits != 24 && skipped_on_grey(s.code))
            notes.push_back(s.option + " has no effect on a " + std::to_string(bits) + "-bit image (skipped)");
        if (s.code == CSequenceur::e_QuickRotate && s.params.angle != kevra::CTraitementImgBase::e_Angle180)
            std::swap(w, h);
        if (s.code == CSequenceur::e_UnsharpMaskingCircle && (s.params.X >= w || s.params.Y >= h))
            throw UsageError(s.option + ": the centre must lie within the " + std::to_string(w) + " x " +
                             std::to_string(h) + " image" + (w != width ? " (turned)" : "") + " (X <= " +
                             std::to_string(w - 1) + ", Y <= " + std::to_string(h - 1) + ")");
    }
    return notes;
}

std::string refusal_text(const Step & step)
{
    for (const OptionDef & d : option_defs()) {
        if (d.info.code != step.code)
            continue;
        std::string valid;
        for (const Field & f : d.fields)
            valid += std::string(valid.empty() ? "" : "; ") + upper(f.key) + " " + range_text(f);
        return step.option + ": refused by the library" + (valid.empty() ? "" : " (valid values: " + valid + ")");
    }
    return step.option + ": refused by the library";
}

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

std::string steps_footer()
{
    return "Steps run in the sequencer's fixed order whatever their order on the command line:\n"
           "mirrors, quarter turn, median, filter, unsharp masking (zone, then disc), resampling,\n"
           "black and white, negative, saturation, hue, whitening, histogram stretch; the look-up\n"
           "steps (--lut-palette, --brightness/--contrast/--gamma, --red/--green/--blue) are composed\n"
           "into one table applied last. Each step option may be given once.\n"
           "Values: comma-separated in the order shown, or as name=value pairs using the English\n"
           "names or the library's (e.g. --median tolerance=0.2,radius=3 or --median Ecart=0.2,\n"
           "TailleFiltre=3). Negative values: --red=-20.\n"
           "Compared with the usual tools: --gamma G raises the normalised level to the power G, so\n"
           "G below 1 brightens (ImageMagick's -gamma and GIMP's levels take the inverse: their 2.0 is\n"
           "this 0.5). --stretch LOW,HIGH are shares of pixels and fractions of full scale (0 to 1),\n"
           "not percentages or levels as in ImageMagick's -contrast-stretch / -level, and the\n"
           "stretch runs before the look-up steps.\n"
           "Example: kevra process in.bmp out.bmp --median 0.2,3 --unsharp 2,1.5 --gamma 0.8 --stretch 0.01,0.99";
}

} // namespace kevra_cli
