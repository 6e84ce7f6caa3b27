#include "sequencer/detail/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

#include "kevra/platform.h"
#include "kevra/sequenceur.h"

namespace kevra {
namespace detail {
namespace {

enum : int { trace_unknown = 0, trace_on = 1, trace_off = 2 };

std::atomic<int> g_trace_state{trace_unknown};
std::mutex g_trace_mutex;

// The file decides once: a file created later, or removed later, changes
// nothing for the rest of the process.
bool trace_enabled(const std::string &path)
{
    int state = g_trace_state.load(std::memory_order_acquire);
    if (state == trace_unknown) {
        std::lock_guard<std::mutex> lock(g_trace_mutex);
        state = g_trace_state.load(std::memory_order_relaxed);
        if (state == trace_unknown) {
            std::FILE *probe = std::fopen(path.c_str(), "r");
            state = probe != nullptr ? trace_on : trace_off;
            if (probe != nullptr)
                std::fclose(probe);
            g_trace_state.store(state, std::memory_order_release);
        }
    }
    return state == trace_on;
}


} // namespace

std::string trace_format(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, again);
        text.assign(buffer.data(), static_cast<std::size_t>(length));
    }
    va_end(again);
    return text;
}

void trace_line(const std::string &utf8_text, bool error)
{
    const std::string path = platform::sequencer_trace_path();
    if (!trace_enabled(path))
        return;
    const std::string line = (error ? std::string("ERROR : ") : std::string()) + utf8_text;
    // Each line opens and closes the file, so that a crash loses nothing; the
    // lock keeps the lines of concurrent runs whole.
    std::lock_guard<std::mutex> lock(g_trace_mutex);
    std::FILE *file = std::fopen(path.c_str(), "a");
    if (file == nullptr)
        return;
    std::fprintf(file, "%s\n", line.c_str());
    std::fclose(file);
}

void reset_trace_state_for_tests()
{
    std::lock_guard<std::mutex> lock(g_trace_mutex);
    g_trace_state.store(trace_unknown, std::memory_order_release);
}

} // namespace detail

void CSequenceur::TraceAppels(const wchar_t *message, bool, bool bError)
{
    detail::trace_line(platform::to_utf8(message), bError);
}

} // namespace kevra
