// Running a chain of steps through the library's sequencer, with what the
// command line tells about it: the sequencer's own refusal texts (read back
// from its trace file) and the time of each step.
#ifndef KEVRA_CLI_RUN_H
#define KEVRA_CLI_RUN_H

#include "steps.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kevra {
class CDib;
}

namespace kevra_cli {

// The sequencer writes its trace only to a file that exists the first time it
// traces, and decides that once per process. The command line always gives it
// one: the user's (--trace FILE, emptied first) or a private temporary file,
// removed when the program ends, from which the refusal texts are read.
// Call once, before any thread starts; `first_line` opens the trace.
void open_trace(const std::string & user_path, const std::string & first_line);
void close_trace();
// With --verbose, refusals and failures end with the library's own trace
// text (French); otherwise they are told in English only.
void set_verbose_trace(bool on);
bool verbose_trace();
// Bytes in the trace file so far (0 without a trace).
uint64_t trace_size();
// The error lines ("ERROR : ...", prefix removed) written since `offset`,
// joined with "; ". Meaningful only while one thread runs the sequencer.
std::string trace_errors_since(uint64_t offset);

// The sequencer reads the platform's millisecond clock before and after each
// timed step. The command line installs a clock that also notes, per thread,
// the precise time of each reading, which gives each step's duration even
// when several files are processed at once. Call once, before any thread.
void install_step_clock();

// Adds every step to a sequencer, as a run would. Throws UsageError naming
// the first step the sequencer refuses, with its reason.
void check_chain(const std::vector<Step> & steps);

struct StepTime {
    std::string label;
    double ms;
};

struct RunResult {
    bool ok = false;
    long width = 0;
    long height = 0;
    std::vector<StepTime> times; // timed steps in run order, then the look-up table
    std::string failure;         // why the run failed
};

// Runs the chain over the image's working zone (CSequenceur::Filtrer). On
// success the image holds the result. `read_trace`: look up the sequencer's
// error lines on failure (single runs only: concurrent runs share the file).
RunResult run_chain(const std::vector<Step> & steps, kevra::CDib & image, bool read_trace);

} // namespace kevra_cli

#endif
