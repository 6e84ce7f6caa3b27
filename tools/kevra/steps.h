// The step options of `kevra process` on the command line: the shared step
// catalogue (kevra_steps.h) registered with CLI11.
#ifndef KEVRA_CLI_STEPS_H
#define KEVRA_CLI_STEPS_H

#include "kevra_steps.h"

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}

namespace kevra_cli {

// Register with add_to, parse, then call steps(): the options given, checked
// and built by build_steps (throws UsageError naming the option).
class StepOptions {
public:
    void add_to(CLI::App & command);
    std::vector<Step> steps() const;

private:
    struct Slot {
        std::string name;
        std::string value;
        bool set = false;
        const CLI::Option * option = nullptr;
    };
    std::vector<Slot> slots_;
};

} // namespace kevra_cli

#endif
