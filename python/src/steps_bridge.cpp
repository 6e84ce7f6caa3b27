#include "steps_bridge.h"

#include "common.h"
#include "steps.h"

#include <pybind11/pybind11.h>

#include <cstdio>
#include <cstdlib>

namespace kevra_py {

std::vector<BuiltStep> build_steps(const Options & options)
{
    std::vector<kevra_cli::Step> steps;
    try {
        steps = kevra_cli::StepOptions::parse(options);
    } catch (const kevra_cli::UsageError & e) {
        throw pybind11::value_error(e.what());
    }
    std::vector<BuiltStep> out;
    kevra::CSequenceur sequencer;
    for (const kevra_cli::Step & s : steps) {
        if (!sequencer.AddTraitement(s.code, s.params))
            throw pybind11::value_error(s.option + ": refused by the sequencer");
        out.push_back({s.option, s.code, s.params});
    }
    return out;
}

kevra::CSequenceur::Params_Struct step_params(const std::string & name, const std::string & value)
{
    return build_steps({{name, value}}).at(0).params;
}

std::string number(double value)
{
    char text[40];
    for (int digits = 1; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, value);
        if (std::strtod(text, nullptr) == value)
            break;
    }
    return text;
}

std::string number(long long value)
{
    return std::to_string(value);
}

bool colour_only_step(kevra::CSequenceur::e_Traitements code)
{
    return kevra_cli::colour_only(code);
}

bool skipped_on_grey_step(kevra::CSequenceur::e_Traitements code)
{
    return kevra_cli::skipped_on_grey(code);
}

} // namespace kevra_py
