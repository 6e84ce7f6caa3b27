// The sequencer's steps, built and checked exactly as the kevra command line
// builds and checks them, so that a function, a chain and `kevra process`
// accept the same values, refuse the same ones with the same messages and
// hand the library the same parameter records.
#ifndef KEVRA_PYTHON_STEPS_BRIDGE_H
#define KEVRA_PYTHON_STEPS_BRIDGE_H

#include "kevra/sequenceur.h"

#include <string>
#include <utility>
#include <vector>

namespace kevra_py {

struct BuiltStep {
    std::string option; // as the command line writes it, e.g. "--median 0.2,3"
    kevra::CSequenceur::e_Traitements code;
    kevra::CSequenceur::Params_Struct params;
};

// (option name without "--", value text; "" for flags) in the user's order.
using Options = std::vector<std::pair<std::string, std::string>>;

// The steps in the sequencer's execution order, each value checked for its
// syntax and range and each step passed through the sequencer's own check.
// Raises ValueError with the command line's message.
std::vector<BuiltStep> build_steps(const Options & options);

// The parameters of the single step of one option.
kevra::CSequenceur::Params_Struct step_params(const std::string & name, const std::string & value);

// Shortest decimal text that reads back as the same double.
std::string number(double value);
std::string number(long long value);

// Whether a step code needs a colour image / is skipped on grey ones.
bool colour_only_step(kevra::CSequenceur::e_Traitements code);
bool skipped_on_grey_step(kevra::CSequenceur::e_Traitements code);

} // namespace kevra_py

#endif
