// Default implementations of the platform services and their handler slots.
#include "kevra/platform.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

namespace kevra {
namespace platform {

namespace {

std::mutex & settings_mutex()
{
    static std::mutex m;
    return m;
}

message_box_handler & message_box_slot()
{
    static message_box_handler h;
    return h;
}
debug_output_handler & debug_output_slot()
{
    static debug_output_handler h;
    return h;
}
tick_count_handler & tick_count_slot()
{
    static tick_count_handler h;
    return h;
}
processor_count_handler & processor_count_slot()
{
    static processor_count_handler h;
    return h;
}
allocation_hook & allocation_slot()
{
    static allocation_hook h;
    return h;
}
profile_path_handler & profile_path_slot()
{
    static profile_path_handler h;
    return h;
}

std::string program_name()
{
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec && !exe.stem().empty())
        return exe.stem().string();
    return "kevra";
}

struct Paths {
    bool root_initialised = false;
    std::string root;
    std::string sequencer_trace = "./Sequenceur.txt";
};
Paths & paths()
{
    static Paths p;
    return p;
}

template <class H>
H swap_handler(H & slot, H handler)
{
    H previous = std::move(slot);
    slot = std::move(handler);
    return previous;
}

} // namespace

namespace {
std::atomic<unsigned> g_thread_count{1};
std::atomic<uint64_t> g_max_image_bytes{uint64_t(1) << 30};
} // namespace

std::string default_profile_path()
{
    if (profile_path_slot())
        return profile_path_slot()();
    std::filesystem::path base;
    const char * xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg != nullptr && xdg[0] == '/') {
        base = xdg;
    } else {
        const char * home = std::getenv("HOME");
        if (home == nullptr || home[0] == 0)
            return std::string();
        base = std::filesystem::path(home) / ".config";
    }
    return (base / "kevra" / (program_name() + ".ini")).string();
}

profile_path_handler set_default_profile_path_handler(profile_path_handler handler)
{
    return swap_handler(profile_path_slot(), std::move(handler));
}

void set_thread_count(unsigned count) { g_thread_count.store(count == 0 ? 1 : count, std::memory_order_relaxed); }
unsigned thread_count() { return g_thread_count.load(std::memory_order_relaxed); }

void set_max_image_bytes(uint64_t bytes) { g_max_image_bytes.store(bytes, std::memory_order_relaxed); }
uint64_t max_image_bytes() { return g_max_image_bytes.load(std::memory_order_relaxed); }

// UTF-8 encoding of a wide string (UTF-32 or UTF-16 wchar_t alike). Surrogate pairs are joined;
// a lone surrogate or a value beyond U+10FFFF becomes U+FFFD, so the output is always valid UTF-8.
bool from_utf8(const std::string & text, std::wstring & out)
{
    out.clear();
    const auto * s = reinterpret_cast<const unsigned char *>(text.data());
    const std::size_t n = text.size();
    for (std::size_t i = 0; i < n;) {
        const unsigned char c = s[i];
        const std::size_t len = c < 0x80               ? 1
                                : (c & 0xE0) == 0xC0   ? 2
                                : (c & 0xF0) == 0xE0   ? 3
                                : (c & 0xF8) == 0xF0   ? 4
                                                       : 0;
        if (len == 0 || i + len > n)
            return false;
        uint32_t cp = len == 1 ? c : len == 2 ? (c & 0x1F) : len == 3 ? (c & 0x0F) : (c & 0x07);
        for (std::size_t k = 1; k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (s[i + k] & 0x3F);
        }
        if (sizeof(wchar_t) == 2 && cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (cp >> 10));
            out += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<wchar_t>(cp);
        }
        i += len;
    }
    return true;
}

std::string to_utf8(const wchar_t * text)
{
    std::string out;
    for (; text != nullptr && *text != 0; ++text) {
        uint32_t c = static_cast<uint32_t>(*text);
        if (sizeof(wchar_t) == 2 && c >= 0xD800 && c < 0xDC00 && text[1] >= 0xDC00 && text[1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint32_t>(text[1]) - 0xDC00);
            ++text;
        } else if ((c >= 0xD800 && c < 0xE000) || c > 0x10FFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

void message_box(const char * text)
{
    if (message_box_slot()) {
        message_box_slot()(text);
        return;
    }
    std::fprintf(stderr, "%s\n", text != nullptr ? text : "");
}

message_box_handler set_message_box_handler(message_box_handler handler)
{
    return swap_handler(message_box_slot(), std::move(handler));
}

void debug_output(const wchar_t * text)
{
    if (debug_output_slot()) {
        debug_output_slot()(text);
        return;
    }
    std::fputs(to_utf8(text).c_str(), stderr);
}

debug_output_handler set_debug_output_handler(debug_output_handler handler)
{
    return swap_handler(debug_output_slot(), std::move(handler));
}

uint32_t tick_count_ms()
{
    if (tick_count_slot())
        return tick_count_slot()();
    static const auto start = std::chrono::steady_clock::now();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

tick_count_handler set_tick_count_handler(tick_count_handler handler)
{
    return swap_handler(tick_count_slot(), std::move(handler));
}

unsigned processor_count()
{
    if (processor_count_slot())
        return processor_count_slot()();
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : n;
}

processor_count_handler set_processor_count_handler(processor_count_handler handler)
{
    return swap_handler(processor_count_slot(), std::move(handler));
}

void set_device_root(const std::string & path)
{
    std::lock_guard<std::mutex> lock(settings_mutex());
    paths().root_initialised = true;
    paths().root = path;
}

std::string device_root()
{
    std::lock_guard<std::mutex> lock(settings_mutex());
    Paths & p = paths();
    if (!p.root_initialised) {
        p.root_initialised = true;
        const char * env = std::getenv("KEVRA_DEVICE_ROOT");
        p.root = env != nullptr ? env : "";
    }
    return p.root;
}

std::string map_device_path(const char * device_path)
{
    const std::string root = device_root();
    if (root.empty() || device_path == nullptr)
        return std::string();
    const std::string path(device_path);
    if (path.size() < 3 || (path[0] != 'c' && path[0] != 'C') || path[1] != ':' ||
        (path[2] != '\\' && path[2] != '/'))
        return std::string();
    std::string rest = path.substr(3);
    for (char & ch : rest)
        if (ch == '\\')
            ch = '/';
    if (root.back() == '/')
        return root + rest;
    return root + "/" + rest;
}

void set_sequencer_trace_path(const std::string & path)
{
    std::lock_guard<std::mutex> lock(settings_mutex());
    paths().sequencer_trace = path;
}

std::string sequencer_trace_path()
{
    std::lock_guard<std::mutex> lock(settings_mutex());
    return paths().sequencer_trace;
}

allocation_hook set_allocation_hook(allocation_hook hook)
{
    return swap_handler(allocation_slot(), std::move(hook));
}

bool allocation_should_fail(std::size_t bytes)
{
    const allocation_hook & hook = allocation_slot();
    return hook ? hook(bytes) : false;
}

} // namespace platform

namespace detail {

void * try_alloc(std::size_t bytes)
{
    if (platform::allocation_should_fail(bytes))
        return nullptr;
    // A zero-byte request still gets a distinct block, so null always means failure.
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void * try_alloc_zeroed(std::size_t bytes)
{
    if (platform::allocation_should_fail(bytes))
        return nullptr;
    // Fresh pages from the system are zero already: calloc then skips the clearing pass.
    return std::calloc(bytes == 0 ? 1 : bytes, 1);
}

} // namespace detail
} // namespace kevra
