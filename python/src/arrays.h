// Images as numpy arrays: the one place where array layout (top row first,
// channel order chosen by the caller) meets the library's bitmap layout
// (bottom row first, blue-green-red bytes, rows padded to 4 bytes).
#ifndef KEVRA_PYTHON_ARRAYS_H
#define KEVRA_PYTHON_ARRAYS_H

#include "kevra/dib.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace kevra_py {

namespace py = pybind11;

// Raised to Python as kevra.Error: the library refused or failed, with its reason.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Channel order of a (H, W, 3) array. Grey arrays have none.
enum class Channels { none, rgb, bgr };

// "rgb" or "bgr" (None: none). Anything else raises ValueError.
Channels parse_channels(const std::optional<std::string> & text);

// Inclusive (left, top, right, bottom) in picture coordinates, row 0 at the top.
using Zone = std::optional<std::tuple<int, int, int, int>>;

// What an array holds, read while the interpreter lock is held; the pixels
// are copied later without it. The array stays alive with the view.
struct ArrayView {
    py::array array;
    int bits = 0;
    long width = 0;
    long height = 0;
    Channels channels = Channels::none;
    const unsigned char * data = nullptr;
    py::ssize_t row_stride = 0;
    py::ssize_t col_stride = 0;
    py::ssize_t chan_stride = 0;
};

// Checks dtype, shape and channel choice; raises TypeError or ValueError.
ArrayView inspect(py::array array, Channels channels);

// A new image of the array's size and depth holding its pixels (one copy).
// Runs without the interpreter lock. Throws Error when the image cannot be
// created. The working zone is the whole image.
void copy_in(const ArrayView & view, kevra::CDib & dib);

// A new array holding the image's pixels (one copy; the copy itself runs
// without the interpreter lock). 8, 16 and 24-bit images only; a colour
// image needs a channel order.
py::array copy_out(kevra::CDib & dib, Channels channels);

// SetZoneTravail from an optional zone.
void apply_zone(kevra::CDib & dib, const Zone & zone);

// UTF-8 path to the library's wide file name.
std::wstring widen(const std::string & utf8);

// The texts the library showed in a message box or sent to debug output on
// this thread since the last call, joined with "; " ("" when none).
std::string take_notices();
void install_notice_handlers();

// " (reason)" when the library showed one, else "".
std::string notice_suffix();

} // namespace kevra_py

#endif
