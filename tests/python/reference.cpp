// Reference outputs of the C++ library for the Python tests: loads a BMP file,
// runs one library member on it and writes the result (or prints counts), so
// that the module's arrays can be compared with what C++ callers get.
//
//   kevra_pyref [--zone L,T,R,B] OP IN.bmp [OUT.bmp] ARGS...
#include "kevra/kevra.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace kevra;

namespace {

std::wstring wide(const char * s)
{
    return std::wstring(s, s + std::strlen(s));
}

float f(const char * s)
{
    return std::strtof(s, nullptr);
}

int i(const char * s)
{
    return static_cast<int>(std::strtol(s, nullptr, 10));
}

void print(const long * counts, int n)
{
    for (int k = 0; k < n; ++k)
        std::printf("%ld%c", counts[k], k + 1 < n ? ' ' : '\n');
}

// f(processing object of the image's depth)
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
    if (argc - a < 1)
        return 2;
    const std::string op = argv[a++];
    if (op == "display_palette") { // L C G PALETTE R G B NEGATIVE
        CLUT_24_Bpp lut;
        if (argc - a < 8 || !CSequenceur::ComputeDisplayPalette(&lut, f(argv[a]), f(argv[a + 1]), f(argv[a + 2]),
                                                                 static_cast<e_Palette>(i(argv[a + 3])), i(argv[a + 4]),
                                                                 i(argv[a + 5]), i(argv[a + 6]), i(argv[a + 7]) != 0,
                                                                 nullptr))
            return 1;
        for (int k = 0; k < 256; ++k)
            std::printf("%d %d %d\n", lut.Donne_Rouge()[k], lut.Donne_Vert()[k], lut.Donne_Bleu()[k]);
        return 0;
    }
    if (argc - a < 1)
        return 2;
    CDib image(wide(argv[a++]).c_str());
    if (!image.IsOK())
        return 1;
    if (zoned)
        image.SetZoneTravail(zone);
    const int bits = image.BitCount();

    if (op == "histogram" || op == "luminance_histogram") {
        std::vector<long> counts(3 * 65536, 0);
        bool ok = false;
        if (op == "luminance_histogram") {
            CTraitementImg_24_Bpp t;
            ok = t.Donne_HistogrammeLuminance(counts.data(), &image);
            print(counts.data(), 256);
        } else if (bits == 24) {
            CTraitementImg_24_Bpp t;
            ok = t.Donne_Histogrammes(counts.data(), counts.data() + 256, counts.data() + 512, &image);
            for (int c = 0; c < 3; ++c)
                print(counts.data() + 256 * c, 256);
        } else {
            CTraitementImg_8_Bpp t8;
            CTraitementImg_16_Bpp t16;
            ok = bits == 8 ? t8.Donne_Histogrammes(counts.data(), &image)
                           : t16.Donne_Histogrammes(counts.data(), &image);
            print(counts.data(), bits == 16 ? 65536 : 256);
        }
        return ok ? 0 : 1;
    }

    if (argc - a < 1)
        return 2;
    const std::wstring out = wide(argv[a++]);
    char ** v = argv + a;
    const int n = argc - a;
    bool ok = false;
    if (op == "copy") {
        ok = true;
    } else if (op == "fill" && n == 1) {
        const unsigned long value = std::strtoul(v[0], nullptr, 10);
        ok = by_depth(bits, [&](auto & t) { return t.Fill(value, &image); });
    } else if (op == "tone" && n == 3) {
        ok = by_depth(bits, [&](CTraitementImg & t) {
            return t.ReglageLuminositeContrasteGamma(f(v[0]), f(v[1]), f(v[2]), &image);
        });
    } else if (op == "brightness" && n == 1) {
        ok = by_depth(bits, [&](CTraitementImg & t) { return t.ReglageLuminosite(f(v[0]), &image); });
    } else if (op == "contrast" && n == 1) {
        ok = by_depth(bits, [&](CTraitementImg & t) { return t.ReglageContraste(f(v[0]), &image); });
    } else if (op == "gamma" && n == 1) {
        ok = by_depth(bits, [&](CTraitementImg & t) { return t.ReglageGamma(f(v[0]), &image); });
    } else if (op == "luminance" && n == 1) {
        CTraitementImg_24_Bpp t;
        ok = t.ReglageLuminance(i(v[0]), &image);
    } else if (op == "levels" && n == 3) {
        CTraitementImg_24_Bpp t;
        ok = t.ReglageRougeVertBleu(i(v[0]), i(v[1]), i(v[2]), &image);
    } else if (op == "kernel" && n >= 4) { // OFFSET|none FACTOR W H COEFFICIENTS (library order)
        std::vector<float> k;
        for (int c = 4; c < n; ++c)
            k.push_back(f(v[c]));
        CFiltre filter(k.data(), static_cast<unsigned short>(i(v[2])), static_cast<unsigned short>(i(v[3])));
        ok = std::strcmp(v[0], "none") == 0 ? filter.Filtrer(&image)
                                            : filter.FiltrerAvecOffsetFacteur(&image, f(v[0]), f(v[1]));
    } else if (op == "separable" && n == 6) {
        CFiltre filter(static_cast<CFiltre::e_Filtre>(i(v[0])), static_cast<unsigned short>(i(v[1])),
                       static_cast<CFiltre::e_Filtre>(i(v[2])), static_cast<unsigned short>(i(v[3])), f(v[4]), f(v[5]));
        ok = filter.Filtrer(&image);
    } else if (op == "lut" && n == 3) {
        if (bits == 8) {
            CLUT_8_Bpp lut;
            ok = lut.SetLuminositeConstrateGamma(f(v[0]), f(v[1]), f(v[2])) && lut.Filtre(&image);
        } else if (bits == 16) {
            CLUT_16_Bpp lut;
            ok = lut.SetLuminositeConstrateGamma(f(v[0]), f(v[1]), f(v[2])) && lut.Filtre(&image);
        } else {
            CLUT_24_Bpp lut;
            ok = lut.SetLuminositeConstrateGamma(f(v[0]), f(v[1]), f(v[2])) && lut.ReglageRouge(30) &&
                 lut.Filtre(&image);
        }
    } else if (op == "convert" && n == 1) {
        CDib converted(static_cast<int>(image.Width()), static_cast<int>(image.Height()), i(v[0]));
        ok = converted.CopyToDifferentBpp(image);
        image.SwapImage(converted);
    }
    return ok && image.Save(out.c_str(), 0) ? 0 : 1;
}
