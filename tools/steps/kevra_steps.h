// The processing steps of the kevra tools, shared by the command line and the
// Python module: one readable option per sequencer step, its values checked
// against their valid ranges (refusals are English sentences naming the option,
// the value given and the valid range), and the sequencer's step codes and
// parameter records built from them. Two front ends that hand the same
// (option, value) texts to build_steps get the same steps, hence the same bytes.
//
// Values are written as a comma-separated list, either in the documented order
// or as name=value pairs (the English names or the library's parameter names),
// e.g. "0.2,3" or "tolerance=0.2,radius=3" for the option "median". Numbers are
// read with strtod/strtoll in the C locale: a front end that holds numbers
// writes them in their shortest round-trip form (Python's repr).
//
// No dependency beyond the Kevra library and the standard library.
#ifndef KEVRA_TOOLS_STEPS_H
#define KEVRA_TOOLS_STEPS_H

#include "kevra/sequenceur.h"
#include "kevra/types.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kevra_cli {

// A value that can never be right (exit code 2 of the command line). The text
// names the option: "--gamma 0: GAMMA must be a number above 0, up to 10 (not 0)".
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A step that the image cannot take (a colour step on a grey image). The text
// does not name the file: "--saturation 50 needs a 24-bit colour image (this one is 8-bit)".
class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Step {
    std::string option; // as the user would type it, e.g. "--median 0.2,3"
    kevra::CSequenceur::e_Traitements code;
    kevra::CSequenceur::Params_Struct params;
};

// One step option, in help order.
struct StepOptionInfo {
    const char * name;       // without the leading "--", e.g. "median"
    const char * group;      // help section
    const char * value_name; // e.g. "TOLERANCE,RADIUS"; null for a flag
    const char * help;       // one paragraph, the valid ranges included
    kevra::CSequenceur::e_Traitements code;
};
const std::vector<StepOptionInfo> & step_options();

// (option name without "--", value text; empty for a flag), in any order.
using OptionList = std::vector<std::pair<std::string, std::string>>;

// Parses and checks every value, makes one step of the brightness/contrast/
// gamma options and one of the red/green/blue options, and returns the steps in
// the sequencer's execution order (the order to add them in: the sequencer
// predicts the final size from the list as added). An option may be given once.
// Throws UsageError.
std::vector<Step> build_steps(const OptionList & options);

// The final size of the chain from width x height (quarter turns and resampling).
void final_size(const std::vector<Step> & steps, long width, long height, long & width_out, long & height_out);

// "L,T,R,B" (inclusive picture coordinates, row 0 at the top). Throws UsageError.
kevra::CRect parse_zone(const std::string & text);
// Refuses a zone that is not wholly inside a width x height image. A sequencer
// run needs at least 2 columns and 2 rows (`for_run`); statistics take a single
// pixel. Throws UsageError: "--zone 30,0,40,5: the zone must lie within the
// 20 x 10 image (0 <= LEFT < RIGHT <= 19, 0 <= TOP < BOTTOM <= 9)".
void check_zone(const kevra::CRect & zone, long width, long height, bool for_run);

// What the image cannot take: throws UsageError for a zone (null: the whole
// image) or a disc centre outside the image, ImageError for a colour step on a
// grey image; returns notes for the steps skipped on grey images
// ("--red 20 has no effect on a 16-bit image (skipped)").
std::vector<std::string> check_image(const std::vector<Step> & steps, long width, long height, int bits,
                                     const kevra::CRect * zone);

// The English sentence for a step the library refused although its values
// passed the checks above: the option, and its valid values.
std::string refusal_text(const Step & step);

// Whether a step code is run only at 24 bits (the run fails on grey images).
bool colour_only(kevra::CSequenceur::e_Traitements code);
// Whether a look-up step is skipped without failing on grey images.
bool skipped_on_grey(kevra::CSequenceur::e_Traitements code);
// Whether the sequencer times the step (every step but the look-up steps).
bool timed(kevra::CSequenceur::e_Traitements code);
// The code's name as the sequencer's trace writes it, e.g. "e_FiltreMedian".
const char * code_name(kevra::CSequenceur::e_Traitements code);

// Help text on the order of the steps and the value syntax.
std::string steps_footer();

} // namespace kevra_cli

#endif
