#include "common.h"

#include "kevra/dib.h"
#include "kevra/platform.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kevra_cli {

std::wstring widen(const std::string & utf8)
{
    std::wstring out;
    if (!kevra::platform::from_utf8(utf8, out))
        throw Failure(utf8 + ": file name is not valid UTF-8");
    return out;
}

std::string narrow(const wchar_t * text)
{
    return kevra::platform::to_utf8(text);
}

namespace {
thread_local std::string notices;

void add_notice(const std::string & text)
{
    std::string t = text;
    while (!t.empty() && (t.front() == '\n' || t.front() == ' '))
        t.erase(t.begin());
    while (!t.empty() && (t.back() == '\n' || t.back() == ' '))
        t.pop_back();
    if (t.empty())
        return;
    if (!notices.empty())
        notices += "; ";
    notices += t;
}
} // namespace

void install_library_notices()
{
    kevra::platform::set_message_box_handler([](const char * text) { add_notice(text != nullptr ? text : ""); });
    kevra::platform::set_debug_output_handler([](const wchar_t * text) { add_notice(narrow(text)); });
}

std::string take_library_notices()
{
    std::string t;
    t.swap(notices);
    return t;
}

namespace {
bool g_quiet = false;
}

void set_quiet(bool on)
{
    g_quiet = on;
}

bool quiet()
{
    return g_quiet;
}

void note(const std::string & text)
{
    if (!g_quiet)
        std::fprintf(stderr, "kevra: note: %s\n", text.c_str());
}

std::string format_number(double value, int decimals)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
    std::string s = buf;
    if (s.find('.') != std::string::npos) {
        while (!s.empty() && s.back() == '0')
            s.pop_back();
        if (!s.empty() && s.back() == '.')
            s.pop_back();
    }
    return s;
}

} // namespace kevra_cli
