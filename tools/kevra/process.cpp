// `kevra process`: a chain of sequencer steps over one file, or over several
// files in parallel.
#include "commands.h"
#include "common.h"
#include "imageio.h"
#include "run.h"
#include "steps.h"

#include "kevra/dib.h"
#include "kevra/platform.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace kevra_cli {

void add_format_option(CLI::App & command, std::string & format)
{
    command.add_option("--format", format, "Output format, whatever the output name says (default: from its extension)")
        ->check(CLI::IsMember({"bmp", "png", "tiff", "tif"}, CLI::ignore_case))
        ->type_name("bmp|png|tiff");
}

void show_notes(const std::string & file, const SourceInfo & info)
{
    for (const std::string & n : info.notes)
        note((file == "-" ? std::string("standard input") : file) + ": " + n);
}

void parse_size(const std::string & option, const std::string & text, int & width, int & height)
{
    const std::size_t x = text.find_first_of("xX");
    char * e1 = nullptr;
    char * e2 = nullptr;
    long w = 0;
    long h = 0;
    if (x != std::string::npos) {
        const std::string a = text.substr(0, x);
        const std::string b = text.substr(x + 1);
        w = std::strtol(a.c_str(), &e1, 10);
        h = std::strtol(b.c_str(), &e2, 10);
        if (!a.empty() && !b.empty() && *e1 == 0 && *e2 == 0 && w >= 1 && h >= 1 && w <= 16384 && h <= 16384) {
            width = static_cast<int>(w);
            height = static_cast<int>(h);
            return;
        }
    }
    throw UsageError(option + ": '" + text + "' is not WIDTHxHEIGHT (1 to 16384 pixels each)");
}

namespace {

struct ProcessOptions {
    std::vector<std::string> files;
    std::string out_dir;
    std::string zone;
    std::string trace;
    std::string format;
    bool verbose = false;
    unsigned jobs = 0;
    unsigned threads = 1;
    StepOptions steps;
};

std::string ms_text(double ms)
{
    return format_number(ms, ms < 10.0 ? 2 : 1) + " ms";
}

// The input's resolution, carried through the chain: a quarter turn swaps
// the two directions, a resampling scales them with the pixel counts.
void carry_resolution(const std::vector<Step> & steps, unsigned long xppm, unsigned long yppm, long width,
                      long height, kevra::CDib & image)
{
    double x = static_cast<double>(xppm), y = static_cast<double>(yppm);
    long w = width, h = height;
    for (const Step & s : steps) {
        if (s.code == kevra::CSequenceur::e_QuickRotate && s.params.angle != kevra::CTraitementImgBase::e_Angle180) {
            std::swap(x, y);
            std::swap(w, h);
        } else if (s.code == kevra::CSequenceur::e_Resample) {
            x = x * s.params.width / w;
            y = y * s.params.height / h;
            w = s.params.width;
            h = s.params.height;
        }
    }
    image.SetXPelsPerMeter(static_cast<unsigned long>(std::floor(x + 0.5)));
    image.SetYPelsPerMeter(static_cast<unsigned long>(std::floor(y + 0.5)));
}

// One file through the chain; throws Failure (and UsageError for a zone or a
// disc outside the image). Notes go to `notes`.
RunResult process_file(const std::vector<Step> & steps, const std::string & in, const std::string & out,
                       const std::string & format, const kevra::CRect * zone, bool read_trace,
                       std::vector<std::string> & notes)
{
    kevra::CDib image;
    const std::string shown = in == "-" ? "standard input" : in;
    const SourceInfo source = load_image(in, image, {8, 16, 24});
    for (const std::string & n : source.notes)
        notes.push_back(shown + ": " + n);
    try {
        for (const std::string & n : check_image(steps, image.Width(), image.Height(), image.BitCount(), zone))
            notes.push_back(shown + ": " + n);
    } catch (const ImageError & e) {
        throw Failure(shown + ": " + e.what());
    }
    long wout = 0, hout = 0;
    final_size(steps, image.Width(), image.Height(), wout, hout);
    if (static_cast<uint64_t>(wout) * static_cast<uint64_t>(hout) > max_pixels())
        throw Failure(shown + ": the result of " + std::to_string(wout) + " x " + std::to_string(hout) +
                      " pixels is more than --max-pixels allows (" + std::to_string(max_pixels()) + ")");
    if (zone != nullptr)
        image.SetZoneTravail(*zone);
    const unsigned long xppm = image.GetXPelsPerMeter(), yppm = image.GetYPelsPerMeter();
    const long width = image.Width(), height = image.Height();
    RunResult r = run_chain(steps, image, read_trace);
    if (!r.ok)
        throw Failure(shown + ": " + r.failure);
    carry_resolution(steps, xppm, yppm, width, height, image);
    save_image(image, out, format);
    return r;
}

int run_single(ProcessOptions & o, const std::vector<Step> & steps, const kevra::CRect * zone)
{
    const std::string & in = o.files[0];
    const std::string & out = o.files[1];
    const std::string format = output_format(out, o.format);
    std::vector<std::string> notes;
    const auto start = std::chrono::steady_clock::now();
    const RunResult r = process_file(steps, in, out, format, zone, true, notes);
    const double total = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    for (const std::string & n : notes)
        note(n);
    if (o.verbose) {
        // Standard output may be the image itself.
        std::FILE * to = out == "-" ? stderr : stdout;
        std::fprintf(to, "%s: %ld x %ld pixels\n", out.c_str(), r.width, r.height);
        for (const StepTime & t : r.times)
            std::fprintf(to, "  %-40s %s\n", t.label.c_str(), ms_text(t.ms).c_str());
        std::fprintf(to, "  %-40s %s\n", "total (load, run, save)", ms_text(total).c_str());
    }
    return 0;
}

int run_batch(ProcessOptions & o, const std::vector<Step> & steps, const kevra::CRect * zone)
{
    const std::vector<std::string> & inputs = o.files;
    struct stat st {};
    if (::stat(o.out_dir.c_str(), &st) != 0) {
        if (::mkdir(o.out_dir.c_str(), 0777) != 0)
            throw Failure(o.out_dir + ": cannot create the output directory: " + std::strerror(errno));
    } else if (!S_ISDIR(st.st_mode)) {
        throw Failure(o.out_dir + ": not a directory");
    }
    const std::string dir = o.out_dir.back() == '/' ? o.out_dir : o.out_dir + "/";

    // Each input's output, refused when it would replace an input or the
    // output of an earlier input.
    std::vector<std::string> outputs(inputs.size());
    std::vector<std::string> formats(inputs.size());
    std::vector<std::string> refused(inputs.size());
    std::map<std::string, std::string> owner;
    std::set<std::pair<dev_t, ino_t>> input_files;
    for (const std::string & in : inputs) {
        struct stat s {};
        if (::stat(in.c_str(), &s) == 0)
            input_files.insert({s.st_dev, s.st_ino});
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i] == "-")
            throw UsageError("process: standard input (-) cannot be part of a batch");
        outputs[i] = dir + batch_output_name(inputs[i], o.format);
        try {
            formats[i] = output_format(outputs[i], o.format);
        } catch (const UsageError & e) {
            refused[i] = inputs[i] + ": its output " + e.what() + " (give --format)";
        }
        struct stat s {};
        if (refused[i].empty() && ::stat(outputs[i].c_str(), &s) == 0 && input_files.count({s.st_dev, s.st_ino}) != 0)
            refused[i] = inputs[i] + ": its output " + outputs[i] + " would replace an input (choose another --out-dir)";
        if (refused[i].empty()) {
            const auto found = owner.find(outputs[i]);
            if (found != owner.end())
                refused[i] = inputs[i] + ": its output " + outputs[i] + " is already the output of " + found->second;
            else
                owner[outputs[i]] = inputs[i];
        }
    }

    unsigned jobs = o.jobs != 0 ? o.jobs : std::thread::hardware_concurrency();
    if (jobs == 0)
        jobs = 1;
    if (jobs > inputs.size())
        jobs = static_cast<unsigned>(inputs.size());

    const bool progress = ::isatty(STDERR_FILENO) != 0;
    std::mutex io;
    std::atomic<std::size_t> next{0};
    std::size_t done = 0;
    std::size_t failed = 0;
    const std::size_t total = inputs.size();

    auto show_progress = [&] {
        if (progress)
            std::fprintf(stderr, "\r\033[Kkevra: %zu/%zu files, %zu failed", done, total, failed);
    };
    auto report = [&](const std::string & line, bool to_stderr) {
        if (progress)
            std::fputs("\r\033[K", stderr);
        std::fprintf(to_stderr ? stderr : stdout, "%s\n", line.c_str());
        if (!to_stderr)
            std::fflush(stdout);
    };

    auto worker = [&] {
        for (;;) {
            const std::size_t i = next.fetch_add(1);
            if (i >= total)
                return;
            std::string error;
            std::vector<std::string> notes;
            RunResult r;
            const auto start = std::chrono::steady_clock::now();
            if (!refused[i].empty()) {
                error = refused[i];
            } else {
                try {
                    r = process_file(steps, inputs[i], outputs[i], formats[i], zone, false, notes);
                } catch (const Failure & e) {
                    error = e.what();
                } catch (const std::exception & e) {
                    error = inputs[i] + ": " + e.what();
                }
            }
            const double ms =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
            std::lock_guard<std::mutex> lock(io);
            ++done;
            for (const std::string & n : notes)
                if (!quiet())
                    report("kevra: note: " + n, true);
            if (!error.empty()) {
                ++failed;
                report("kevra: " + error, true);
            } else if (o.verbose) {
                std::string line = "[" + std::to_string(done) + "/" + std::to_string(total) + "] " + outputs[i] + ": " + std::to_string(r.width) + " x " + std::to_string(r.height) +
                                   " pixels, " + ms_text(ms);
                std::string sep = " (";
                for (const StepTime & t : r.times) {
                    line += sep + t.label + " " + ms_text(t.ms);
                    sep = ", ";
                }
                report(line + (r.times.empty() ? "" : ")"), false);
            }
            show_progress();
        }
    };

    show_progress();
    std::vector<std::thread> pool;
    for (unsigned k = 1; k < jobs; ++k)
        pool.emplace_back(worker);
    worker();
    for (std::thread & t : pool)
        t.join();
    if (progress)
        std::fputs("\r\033[K", stderr);
    // Away from a terminal, one line tells how the batch went.
    if (failed != 0 || (!progress && !quiet()))
        std::fprintf(stderr, "kevra: %zu of %zu files written%s\n", total - failed, total,
                     failed != 0 ? (", " + std::to_string(failed) + " failed").c_str() : "");
    return failed != 0 ? exit_failure : 0;
}

} // namespace

Command add_process_command(CLI::App & app)
{
    auto o = std::make_shared<ProcessOptions>();
    CLI::App * c = app.add_subcommand("process", "Run a chain of processing steps over an image (or several)");
    c->add_option("files", o->files,
                  "IN OUT (- for standard input or output), or with --out-dir: IN... (each written to DIR "
                  "under its own name, its extension changed by --format)")
        ->required()
        ->type_name("FILE");
    c->add_option("--out-dir", o->out_dir, "Process every FILE, in parallel, into this directory (created if needed)")
        ->type_name("DIR");
    c->add_option("-j,--jobs", o->jobs, "Files processed at once with --out-dir (default: one per processor core)")
        ->check(CLI::Range(1u, 1024u))
        ->type_name("N");
    c->add_option("--zone", o->zone,
                  "Working zone, inclusive picture coordinates (row 0 at the top); default: the whole image")
        ->type_name("L,T,R,B");
    add_format_option(*c, o->format);
    c->add_option("--threads", o->threads,
                  "Threads the library may split each heavy step among (default 1; the bytes are the same "
                  "for every count)")
        ->check(CLI::Range(1u, 256u))
        ->type_name("N");
    c->add_flag("-v,--verbose", o->verbose,
                "Print the final size and the time of each step; failures end with the library's own trace text");
    c->add_option("--trace", o->trace, "Write the sequencer's own trace (French) to FILE (replaced)")->type_name("FILE");
    o->steps.add_to(*c);
    c->footer(steps_footer());

    return {c, [o]() {
                std::vector<Step> steps = o->steps.steps();
                if (steps.empty())
                    throw UsageError("process: no step given (see `kevra process --help`)");
                kevra::CRect zone;
                const kevra::CRect * pzone = nullptr;
                if (!o->zone.empty()) {
                    zone = parse_zone(o->zone);
                    pzone = &zone;
                }
                const bool batch = !o->out_dir.empty();
                if (!batch && o->files.size() != 2)
                    throw UsageError("process: give IN OUT, or several inputs with --out-dir DIR");
                if (!batch && o->jobs != 0)
                    throw UsageError("process: --jobs goes with --out-dir");
                if (!batch)
                    output_format(o->files[1], o->format);
                kevra::platform::set_thread_count(o->threads);

                set_verbose_trace(o->verbose);
                install_library_notices();
                install_step_clock();
                open_trace(o->trace, batch ? "### kevra process : " + std::to_string(o->files.size()) + " files"
                                           : "### kevra process : " + o->files[0] + " -> " + o->files[1]);
                check_chain(steps);
                return batch ? run_batch(*o, steps, pzone) : run_single(*o, steps, pzone);
            }};
}

} // namespace kevra_cli
