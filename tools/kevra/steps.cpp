#include "steps.h"

#include <CLI/CLI.hpp>

namespace kevra_cli {

void StepOptions::add_to(CLI::App & command)
{
    slots_.clear();
    slots_.reserve(step_options().size()); // CLI11 keeps pointers into the slots
    for (const StepOptionInfo & d : step_options()) {
        slots_.push_back(Slot{d.name, std::string(), false});
        Slot & s = slots_.back();
        const std::string name = std::string("--") + d.name;
        if (d.value_name == nullptr)
            s.option = command.add_flag(name, s.set, d.help)
                           ->group(d.group)
                           ->multi_option_policy(CLI::MultiOptionPolicy::Throw);
        else
            s.option = command.add_option(name, s.value, d.help)
                           ->type_name(d.value_name)
                           ->group(d.group)
                           ->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    }
}

std::vector<Step> StepOptions::steps() const
{
    OptionList given;
    for (const Slot & s : slots_)
        if (s.option != nullptr && s.option->count() > 0)
            given.emplace_back(s.name, s.value);
    return build_steps(given);
}

} // namespace kevra_cli
