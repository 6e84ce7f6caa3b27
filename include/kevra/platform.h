// Services the library takes from the system it runs on. Each is a plain
// function with a replaceable handler: an application (or a test) installs its
// own with the matching set_..._handler, and passing an empty handler restores
// the default. Handlers are process-wide; install them before using the library
// from several threads.
#ifndef KEVRA_PLATFORM_H
#define KEVRA_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <utility>

namespace kevra {
namespace platform {

// Modal message box with one text. Default: the text on one line of stderr.
using message_box_handler = std::function<void(const char * text)>;
void message_box(const char * text);
message_box_handler set_message_box_handler(message_box_handler handler);

// Debug output of a wide string. Default: the text as UTF-8 on stderr.
using debug_output_handler = std::function<void(const wchar_t * text)>;
void debug_output(const wchar_t * text);
debug_output_handler set_debug_output_handler(debug_output_handler handler);

// Millisecond tick count (wraps like a 32-bit counter). Default: steady clock,
// milliseconds since the first call in the process.
using tick_count_handler = std::function<uint32_t()>;
uint32_t tick_count_ms();
tick_count_handler set_tick_count_handler(tick_count_handler handler);

// Number of processors. Default: std::thread::hardware_concurrency(), at least 1.
using processor_count_handler = std::function<unsigned()>;
unsigned processor_count();
processor_count_handler set_processor_count_handler(processor_count_handler handler);

// Device root: the directory that stands for the device's "c:\" drive, where
// the image loader leaves its marker files. Initially taken from the
// environment variable KEVRA_DEVICE_ROOT; when none is chosen (empty), no
// marker file is written at all.
void set_device_root(const std::string & path);
std::string device_root();
// Maps a device path such as "c:\\trace.txt" to a path under the device root
// ("<root>/trace.txt"). Empty when no root is chosen or the path is not on "c:".
std::string map_device_path(const char * device_path);

// UTF-8 form of a wide string (file names are opened through it).
std::string to_utf8(const wchar_t * text);
// Wide form of UTF-8 text (file names given as UTF-8); code points above
// U+FFFF become surrogate pairs where wchar_t has 16 bits. False, with `out`
// unspecified, when the text is not valid UTF-8.
bool from_utf8(const std::string & text, std::wstring & out);

// Path of the sequencer's trace file. Default "./Sequenceur.txt".
void set_sequencer_trace_path(const std::string & path);
std::string sequencer_trace_path();

// Threads the heavy operations (filters, unsharp masking, median, resampling)
// may split their rows among. Default 1: the library runs on the caller's
// thread only. Results are the same bytes for every count. 0 means 1.
void set_thread_count(unsigned count);
unsigned thread_count();

// Largest pixel store (bytes of pixel data) an image may create; creation
// beyond it fails like a failed allocation. Default 1 GiB; 0 = no limit.
// Guards applications against hostile headers that claim huge images.
void set_max_image_bytes(uint64_t bytes);
uint64_t max_image_bytes();

// The application's profile: the INI file a colour table that names none saves
// to and reads from (CLUT_24_Bpp::SetFichierIniDefaut overrides it). Default:
// "<config home>/kevra/<program>.ini", where config home is $XDG_CONFIG_HOME
// when absolute, else $HOME/.config, and program is the running executable's
// name ("kevra" when unknown); empty (no profile) when there is no home.
using profile_path_handler = std::function<std::string()>;
std::string default_profile_path();
profile_path_handler set_default_profile_path_handler(profile_path_handler handler);

// Allocation hook: called with the byte count before every allocation made
// through kevra::detail::try_alloc / try_new_array / try_new; returning true
// makes that allocation fail (tests use it to reach the failure paths).
using allocation_hook = std::function<bool(std::size_t bytes)>;
allocation_hook set_allocation_hook(allocation_hook hook);
bool allocation_should_fail(std::size_t bytes);

} // namespace platform

namespace detail {

// The one way the library allocates work buffers: null on failure, never throws.
// try_alloc memory is released with std::free.
void * try_alloc(std::size_t bytes);
// The same, the block cleared to zero.
void * try_alloc_zeroed(std::size_t bytes);

// new[] without throwing; null on failure or when count * sizeof(T) overflows.
// Release with delete[].
template <class T>
T * try_new_array(std::size_t count)
{
    if (count > static_cast<std::size_t>(-1) / sizeof(T))
        return nullptr;
    if (platform::allocation_should_fail(count * sizeof(T)))
        return nullptr;
    return new (std::nothrow) T[count];
}

// new without throwing; null on failure. Release with delete.
template <class T, class... Args>
T * try_new(Args &&... args)
{
    if (platform::allocation_should_fail(sizeof(T)))
        return nullptr;
    return new (std::nothrow) T(std::forward<Args>(args)...);
}

} // namespace detail
} // namespace kevra

#endif
