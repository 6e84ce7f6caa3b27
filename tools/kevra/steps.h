// The processing steps of `kevra process` (and of the demo): one readable
// command-line option per sequencer step, turned into the sequencer's step
// codes and parameter records.
//
// Values are written as a comma-separated list, either in the documented order
// or as name=value pairs (the library's parameter names or their English
// ones), e.g. `--median 0.2,3` or `--median tolerance=0.2,radius=3`.
#ifndef KEVRA_CLI_STEPS_H
#define KEVRA_CLI_STEPS_H

#include "kevra/sequenceur.h"

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}

namespace kevra_cli {

struct Step {
    std::string option; // as the user would type it, e.g. "--median 0.2,3"
    kevra::CSequenceur::e_Traitements code;
    kevra::CSequenceur::Params_Struct params;
};

// Whether a step code is run only at 24 bits (the run fails on grey images).
bool colour_only(kevra::CSequenceur::e_Traitements code);
// Whether a step code is a look-up step, skipped without failing on grey
// images (a predefined palette, red/green/blue levels).
bool skipped_on_grey(kevra::CSequenceur::e_Traitements code);
// Whether the sequencer times the step (every step but the look-up steps).
bool timed(kevra::CSequenceur::e_Traitements code);
// The code's name as the sequencer's trace writes it, e.g. "e_FiltreMedian".
const char * code_name(kevra::CSequenceur::e_Traitements code);

// The step options of a command. Register them with add_to, parse, then call
// steps(): it checks each value's syntax and range of type (the sequencer
// checks the rest) and returns the steps in the sequencer's execution order.
class StepOptions {
public:
    void add_to(CLI::App & command);
    // Throws UsageError naming the option.
    std::vector<Step> steps() const;
    // Same, from (option, value) pairs, as the demo writes its chains
    // (value empty for flags). The options must be known.
    static std::vector<Step> parse(const std::vector<std::pair<std::string, std::string>> & options);

private:
    std::vector<std::pair<std::string, std::string>> given_() const;

    struct Slot {
        std::string name;
        std::string value;
        bool flag = false;
        bool set = false;
        const CLI::Option * option = nullptr;
    };
    std::vector<Slot> slots_;
};

// Help text appended to `kevra process --help`.
std::string steps_footer();

} // namespace kevra_cli

#endif
