// The C++ library's results for the Python module's tests: loads a BMP file, runs one library
// member on it and writes the result, so that the module's arrays can be compared with what C++
// callers get for the same input (for the members the command line does not reach).
//
//   kevra_cpp_results [--zone L,T,R,B] OP IN.bmp OUT.bmp ARGS...
#include "kevra/kevra.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace kevra;

namespace {

std::wstring wide(const char * s) { return std::wstring(s, s + std::strlen(s)); }
float f(const char * s) { return std::strtof(s, nullptr); }
int i(const char * s) { return static_cast<int>(std::strtol(s, nullptr, 10)); }
unsigned short u(const char * s) { return static_cast<unsigned short>(i(s)); }

// The members that change the image; v holds the n arguments after the file names.
bool change(const std::string & op, CDib & image, char ** v, int n)
{
    if (op == "copy")
        return true;
    if (op == "kernel" && n >= 4) { // OFFSET|none FACTOR W H COEFFICIENTS (library order)
        std::vector<float> k;
        for (int c = 4; c < n; ++c)
            k.push_back(f(v[c]));
        CFiltre filter(k.data(), u(v[2]), u(v[3]));
        return std::strcmp(v[0], "none") == 0 ? filter.Filtrer(&image)
                                               : filter.FiltrerAvecOffsetFacteur(&image, f(v[0]), f(v[1]));
    }
    if (op == "separable" && n == 6)
        return CFiltre(static_cast<CFiltre::e_Filtre>(i(v[0])), u(v[1]),
                       static_cast<CFiltre::e_Filtre>(i(v[2])), u(v[3]), f(v[4]), f(v[5]))
            .Filtrer(&image);
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
    if (argc - a < 3)
        return 2;
    const std::string op = argv[a++];
    CDib image(wide(argv[a++]).c_str());
    if (!image.IsOK())
        return 1;
    if (zoned)
        image.SetZoneTravail(zone);
    const std::wstring out = wide(argv[a++]);
    return change(op, image, argv + a, argc - a) && image.Save(out.c_str(), 0) ? 0 : 1;
}
