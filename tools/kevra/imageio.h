// Image files in and out of the command line. BMP files in the forms the
// library's codec reads (8-bit grey, Kevra's 16-bit grey, 24-bit colour) go
// through the library; the other BMP variants (1/4/8-bit colour palettes,
// RLE4/RLE8, 16-bit RGB555/RGB565, 32-bit with or without alpha, core headers)
// are decoded here into 8-bit grey (palettes of grey entries) or 24-bit colour.
// PNG, TIFF, JPEG and DICOM go through OpenImageIO when the program is built
// with it. The library itself stays BMP-only and standard-C++-only.
#ifndef KEVRA_CLI_IMAGEIO_H
#define KEVRA_CLI_IMAGEIO_H

#include <cstdint>
#include <string>
#include <vector>

namespace kevra {
class CDib;
}

namespace kevra_cli {

// What a file was and how it was read.
struct SourceInfo {
    std::string form;               // e.g. "BMP, 8-bit colour palette, RLE8 compression"
    std::string read_as;            // e.g. "24-bit colour"; empty when read as it is
    std::vector<std::string> notes; // e.g. "its alpha channel is dropped"
};

// Largest input, in pixels (default 2^28); larger headers are refused before
// any pixel is read.
void set_max_pixels(uint64_t pixels);
uint64_t max_pixels();

// Loads a file ("-": standard input) into one of the library's forms.
// `depths` lists the accepted bit counts (empty: any). Throws Failure
// ("<path>: <reason>").
SourceInfo load_image(const std::string & path, kevra::CDib & image, const std::vector<int> & depths);

// The output format ("bmp", "png" or "tiff") of a name, or `forced` (the
// --format value) when not empty. "-" is BMP unless forced. Throws UsageError
// for an unknown extension or format, or one this build cannot write.
std::string output_format(const std::string & path, const std::string & forced);

// Writes the image (see output.h for how each kind of destination is written).
// The resolution goes with it. Throws Failure ("<path>: <reason>").
void save_image(kevra::CDib & image, const std::string & path, const std::string & format);

// "read BMP, PNG, ...; write BMP, PNG, TIFF (OpenImageIO x.y.z)" for --version.
std::string formats_text();

// The output name of an input in a batch: its base name, the extension
// replaced by the forced format's when one is given.
std::string batch_output_name(const std::string & input, const std::string & forced);

} // namespace kevra_cli

#endif
