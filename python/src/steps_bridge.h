// The sequencer's steps, built and checked by the command line's step library
// (tools/steps), so that a function, a chain and `kevra process` accept the
// same values, refuse the same ones with the same messages and hand the
// library the same parameter records.
#ifndef KEVRA_PYTHON_STEPS_BRIDGE_H
#define KEVRA_PYTHON_STEPS_BRIDGE_H

#include "kevra_steps.h"

#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace kevra_py {

using Step = kevra_cli::Step;
using Options = kevra_cli::OptionList;

// The steps in the sequencer's execution order, each value checked and each
// step passed through the sequencer's own check. Raises ValueError with the
// command line's message.
std::vector<Step> build_steps(const Options & options);

// The single step of one option ("median", "0.2,3").
Step one_step(const std::string & name, const std::string & value);

// What the image cannot take (zone, disc centre, colour steps on grey images):
// ValueError with the command line's message; returns the notes of skipped steps.
std::vector<std::string> check_image(const std::vector<Step> & steps, long width, long height, int bits,
                                     const std::optional<std::tuple<int, int, int, int>> & zone);

// A zone given to a single operation must lie within the image (ValueError).
void check_zone(const std::optional<std::tuple<int, int, int, int>> & zone, long width, long height);

// Whether an option is a flag (takes no value).
bool is_flag(const std::string & name);

// A filter kind or a palette given as a number or by its command-line name.
std::string name_or_number(const pybind11::object & value);

// The value text of the filter option: KIND[,SIZE][,param=PARAM].
std::string filter_value(const std::string & kind, const std::optional<long long> & size,
                         const std::optional<double> & param);

// A docstring: `lead`, then the help of the named step options as
// `kevra process` gives it (values and their valid ranges), wrapped. The
// text lives as long as the module.
const char * doc(const std::string & lead, const std::vector<std::string> & options);

// Shortest decimal text that reads back as the same double.
std::string number(double value);
std::string number(long long value);

} // namespace kevra_py

#endif
