// The parts of the Python module, each binding one family.
#ifndef KEVRA_PYTHON_OPERATIONS_H
#define KEVRA_PYTHON_OPERATIONS_H

#include <pybind11/pybind11.h>

namespace kevra_py {

void bind_operations(pybind11::module_ & m); // functions over arrays
void bind_classes(pybind11::module_ & m);    // Dib, look-up tables, Filter, BMP files
void bind_chain(pybind11::module_ & m);      // Chain

} // namespace kevra_py

#endif
