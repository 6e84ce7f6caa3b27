// The C++ library's results for the Python module's tests: loads a BMP file, runs one library
// member on it and writes the result (or prints counts), so that the module's arrays can be
// compared with what C++ callers get for the same input.
//
//   kevra_cpp_results [--zone L,T,R,B] OP IN.bmp [OUT.bmp] ARGS...
//   kevra_cpp_results display_palette L C G PALETTE R G B NEGATIVE
#include "kevra/kevra.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace kevra;

namespace {

std::wstring wide(const char * s) { return std::wstring(s, s + std::strlen(s)); }
float f(const char * s) { return std::strtof(s, nullptr); }
int i(const char * s) { return static_cast<int>(std::strtol(s, nullptr, 10)); }

void print(const long * counts, int n)
{
    for (int k = 0; k < n; ++k)
        std::printf("%ld%c", counts[k], k + 1 < n ? ' ' : '\n');
}

// fn(processing object of the image's depth)
template <class F>
bool by_depth(int bits, F && fn)
{
    if (bits == 8) {
        CTraitementImg_8_Bpp t;
        return fn(t);
    }
    if (bits == 16) {
        CTraitementImg_16_Bpp t;
        return fn(t);
    }
    CTraitementImg_24_Bpp t;
    return fn(t);
}

bool histogram(CDib & image, bool luminance)
{
    std::vector<long> counts(65536, 0);
    const int bits = image.BitCount();
    CTraitementImg_24_Bpp t24;
    bool ok = false;
    if (luminance)
        ok = t24.Donne_HistogrammeLuminance(counts.data(), &image);
    else if (bits == 24)
        ok = t24.Donne_Histogrammes(counts.data(), counts.data() + 256, counts.data() + 512, &image);
    else
        ok = bits == 8 ? CTraitementImg_8_Bpp().Donne_Histogrammes(counts.data(), &image)
                       : CTraitementImg_16_Bpp().Donne_Histogrammes(counts.data(), &image);
    for (int c = 0; c < (bits == 24 && !luminance ? 3 : 1); ++c)
        print(counts.data() + 256 * c, bits == 16 && !luminance ? 65536 : 256);
    return ok;
}

// The members that change the image; v holds the n arguments after the file names.
bool change(const std::string & op, CDib & image, char ** v, int n)
{
    const int bits = image.BitCount();
    if (op == "copy")
        return true;
    if (op == "fill" && n == 1) {
        const unsigned long value = std::strtoul(v[0], nullptr, 10);
        return by_depth(bits, [&](auto & t) { return t.Fill(value, &image); });
    }
    if (op == "tone" && n == 3)
        return by_depth(bits, [&](CTraitementImg & t) {
            return t.ReglageLuminositeContrasteGamma(f(v[0]), f(v[1]), f(v[2]), &image);
        });
    if (op == "luminance" && n == 1)
        return CTraitementImg_24_Bpp().ReglageLuminance(i(v[0]), &image);
    if (op == "kernel" && n >= 4) { // OFFSET|none FACTOR W H COEFFICIENTS (library order)
        std::vector<float> k;
        for (int c = 4; c < n; ++c)
            k.push_back(f(v[c]));
        CFiltre filter(k.data(), static_cast<unsigned short>(i(v[2])), static_cast<unsigned short>(i(v[3])));
        return std::strcmp(v[0], "none") == 0 ? filter.Filtrer(&image)
                                               : filter.FiltrerAvecOffsetFacteur(&image, f(v[0]), f(v[1]));
    }
    if (op == "separable" && n == 6)
        return CFiltre(static_cast<CFiltre::e_Filtre>(i(v[0])), static_cast<unsigned short>(i(v[1])),
                       static_cast<CFiltre::e_Filtre>(i(v[2])), static_cast<unsigned short>(i(v[3])), f(v[4]), f(v[5]))
            .Filtrer(&image);
    if (op == "lut" && n == 3) { // the colour table also gets red + 30
        std::unique_ptr<CLUT> lut;
        if (bits == 24)
            lut = std::make_unique<CLUT_24_Bpp>();
        else if (bits == 16)
            lut = std::make_unique<CLUT_16_Bpp>();
        else
            lut = std::make_unique<CLUT_8_Bpp>();
        return lut->SetLuminositeConstrateGamma(f(v[0]), f(v[1]), f(v[2])) &&
               (bits != 24 || static_cast<CLUT_24_Bpp &>(*lut).ReglageRouge(30)) && lut->Filtre(&image);
    }
    if (op == "convert" && n == 1) {
        CDib converted(static_cast<int>(image.Width()), static_cast<int>(image.Height()), i(v[0]));
        const bool ok = converted.CopyToDifferentBpp(image);
        image.SwapImage(converted);
        return ok;
    }
    return false;
}

} // namespace

int main(int argc, char ** argv)
{
    int a = 1;
    bool zoned = false;
    CRect zone;
    if (argc > 2 && std::strcmp(argv[1], "--zone") == 0) {
        zoned = std::sscanf(argv[2], "%d,%d,%d,%d", &zone.left, &zone.top, &zone.right, &zone.bottom) == 4;
        a = 3;
    }
    if (argc - a < 2)
        return 2;
    const std::string op = argv[a++];
    if (op == "display_palette") {
        CLUT_24_Bpp lut;
        char ** v = argv + a;
        if (argc - a < 8 ||
            !CSequenceur::ComputeDisplayPalette(&lut, f(v[0]), f(v[1]), f(v[2]), static_cast<e_Palette>(i(v[3])),
                                                i(v[4]), i(v[5]), i(v[6]), i(v[7]) != 0, nullptr))
            return 1;
        for (int k = 0; k < 256; ++k)
            std::printf("%d %d %d\n", lut.Donne_Rouge()[k], lut.Donne_Vert()[k], lut.Donne_Bleu()[k]);
        return 0;
    }
    CDib image(wide(argv[a++]).c_str());
    if (!image.IsOK())
        return 1;
    if (zoned)
        image.SetZoneTravail(zone);
    if (op == "histogram" || op == "luminance_histogram")
        return histogram(image, op == "luminance_histogram") ? 0 : 1;
    if (argc - a < 1)
        return 2;
    const std::wstring out = wide(argv[a++]);
    return change(op, image, argv + a, argc - a) && image.Save(out.c_str(), 0) ? 0 : 1;
}
