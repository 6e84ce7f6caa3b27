// The kevra Python module.
#include "arrays.h"
#include "operations.h"

#ifndef KEVRA_VERSION
#define KEVRA_VERSION "0"
#endif

PYBIND11_MODULE(kevra, m)
{
    namespace py = pybind11;
    m.doc() =
        "Kevra image corrections for numpy arrays.\n\n"
        "Images are numpy arrays, top row first: uint8 (H, W) for 8-bit grey, uint16 (H, W) for\n"
        "16-bit grey, uint8 (H, W, 3) for colour. A colour array needs its channel order said with\n"
        "channels='rgb' (scikit-image, PIL) or channels='bgr' (OpenCV); it is never guessed.\n"
        "Functions return new arrays and leave their input alone. zone=(left, top, right, bottom)\n"
        "is the working zone, inclusive, in picture coordinates (row 0 at the top); default: the\n"
        "whole image. Values are checked as the kevra command line checks them (ValueError with its\n"
        "message); a refusal or failure of the library raises kevra.Error with its reason. The\n"
        "interpreter lock is released while pixels are copied and processed, so threads run\n"
        "images in parallel. Chain runs the sequencer as `kevra process` does.";
    m.attr("__version__") = KEVRA_VERSION;
    py::register_exception<kevra_py::Error>(m, "Error", PyExc_RuntimeError);
    kevra_py::install_notice_handlers();
    kevra_py::bind_classes(m);
    kevra_py::bind_operations(m);
    kevra_py::bind_chain(m);
}
