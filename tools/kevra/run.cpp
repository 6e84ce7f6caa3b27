#include "run.h"

#include "common.h"
#include "output.h"

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/sequenceur.h"

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kevra_cli {

namespace {

std::string g_trace_path;
bool g_trace_private = false;
bool g_verbose_trace = false;

} // namespace

void open_trace(const std::string & user_path, const std::string & first_line)
{
    std::string path = user_path;
    if (!path.empty()) {
        std::FILE * f = std::fopen(path.c_str(), "w");
        if (f == nullptr)
            throw Failure(path + ": cannot write: " + std::strerror(errno));
        std::fclose(f);
    } else {
        const char * tmp = std::getenv("TMPDIR");
        std::string dir = tmp != nullptr && *tmp != 0 ? tmp : "/tmp";
        std::string name = dir + "/kevra-trace-XXXXXX";
        const int fd = ::mkstemp(&name[0]);
        if (fd >= 0) {
            ::close(fd);
            path = name;
            g_trace_private = true;
            register_temporary(path);
        } else {
            // No place for a trace: point the sequencer at a file that does
            // not exist, so that it never writes one in the working directory.
            path = dir + "/kevra-no-trace-" + std::to_string(::getpid());
        }
    }
    g_trace_path = path;
    kevra::platform::set_sequencer_trace_path(path);
    // The first line decides, once for the process, that tracing is on.
    kevra::CSequenceur::TraceAppels(widen(first_line).c_str(), false, false);
}

void set_verbose_trace(bool on)
{
    g_verbose_trace = on;
}

bool verbose_trace()
{
    return g_verbose_trace;
}

void close_trace()
{
    if (g_trace_private && !g_trace_path.empty())
        remove_temporary(g_trace_path);
    g_trace_private = false;
}

uint64_t trace_size()
{
    struct stat st {};
    if (g_trace_path.empty() || ::stat(g_trace_path.c_str(), &st) != 0)
        return 0;
    return static_cast<uint64_t>(st.st_size);
}

std::string trace_errors_since(uint64_t offset)
{
    if (g_trace_path.empty())
        return std::string();
    std::FILE * f = std::fopen(g_trace_path.c_str(), "rb");
    if (f == nullptr)
        return std::string();
    std::string text;
    if (std::fseek(f, static_cast<long>(offset), SEEK_SET) == 0) {
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
            text.append(buf, n);
    }
    std::fclose(f);
    std::string errors;
    const std::string prefix = "ERROR : ";
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(pos, end - pos);
        if (line.compare(0, prefix.size(), prefix) == 0)
            errors += (errors.empty() ? "" : "; ") + line.substr(prefix.size());
        pos = end + 1;
    }
    return errors;
}

namespace {

using clock_type = std::chrono::steady_clock;
thread_local bool t_recording = false;
thread_local std::vector<clock_type::time_point> t_readings;

} // namespace

void install_step_clock()
{
    static const clock_type::time_point start = clock_type::now();
    kevra::platform::set_tick_count_handler([] {
        const clock_type::time_point now = clock_type::now();
        if (t_recording)
            t_readings.push_back(now);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - start).count();
        return static_cast<uint32_t>(ms);
    });
}

void check_chain(const std::vector<Step> & steps)
{
    kevra::CSequenceur sequencer;
    for (const Step & s : steps) {
        const uint64_t offset = trace_size();
        if (sequencer.AddTraitement(s.code, s.params))
            continue;
        const std::string why = trace_errors_since(offset);
        throw UsageError(refusal_text(s) + (verbose_trace() && !why.empty() ? ": " + why : ""));
    }
}

RunResult run_chain(const std::vector<Step> & steps, kevra::CDib & image, bool read_trace)
{
    RunResult r;
    kevra::CSequenceur sequencer;
    for (const Step & s : steps) {
        if (!sequencer.AddTraitement(s.code, s.params)) {
            r.failure = refusal_text(s);
            return r;
        }
    }
    const uint64_t offset = read_trace ? trace_size() : 0;
    take_library_notices();
    t_readings.clear();
    t_recording = true;
    r.ok = sequencer.Filtrer(&image);
    t_recording = false;

    std::vector<const Step *> timed_steps;
    for (const Step & s : steps)
        if (timed(s.code))
            timed_steps.push_back(&s);
    const std::size_t pairs = t_readings.size() / 2;
    for (std::size_t i = 0; i < pairs; ++i) {
        const double ms =
            std::chrono::duration<double, std::milli>(t_readings[2 * i + 1] - t_readings[2 * i]).count();
        r.times.push_back({i < timed_steps.size() ? timed_steps[i]->option : "look-up table", ms});
    }
    r.width = image.Width();
    r.height = image.Height();
    if (!r.ok) {
        // The values were checked beforehand: what is left is a lack of memory.
        std::string where;
        if (pairs == 0)
            where = "before the first step";
        else
            where = "at " + timed_steps[std::min(pairs, timed_steps.size()) - 1]->option;
        const std::string errors = read_trace ? trace_errors_since(offset) : std::string();
        const std::string notices = take_library_notices();
        r.failure = "processing failed " + where + ": the library could not complete it (not enough memory?)";
        if (verbose_trace())
            r.failure += (errors.empty() ? "" : ": " + errors) + (notices.empty() ? "" : " (" + notices + ")");
    }
    return r;
}

} // namespace kevra_cli
