// Load, Save, the constructors from a file name and from a packed bitmap, and
// the packed-bitmap handles.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <string>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/platform.h"

namespace kevra {

namespace {

// Codes from 1 to 7 are other formats of the codec family (refused by the
// BMP-only codec); above 7 the format is recognised from the name; from 19 on
// (99 after recognition) nothing is attempted.
constexpr uint32_t kLastFormatCode = 7;
constexpr uint32_t kFirstRefusedCode = 19;

constexpr const char * kTraceBegin = "=================== [BEGIN] CDibRoot::Load ===================\n";
constexpr const char * kTraceEnd = "=================== [END] CDibRoot::Load ===================\n";

uint32_t resolve_format(wchar_t const * fileName, unsigned long imageType)
{
    // Only the low 32 bits count, whatever the width of long.
    const uint32_t type = static_cast<uint32_t>(imageType);
    if (type > kLastFormatCode)
        return static_cast<uint32_t>(CDibRoot::AutoDetectImageFormat(fileName));
    return type;
}

std::FILE * open_file(wchar_t const * fileName, const char * mode)
{
    if (fileName == nullptr)
        return nullptr;
    return std::fopen(platform::to_utf8(fileName).c_str(), mode);
}

// Marker files live under the platform's device root; without one, none is written.
std::FILE * open_marker(const char * device_path)
{
    const std::string path = platform::map_device_path(device_path);
    if (path.empty())
        return nullptr;
    return std::fopen(path.c_str(), "a+");
}

void touch_marker(const char * device_path)
{
    if (std::FILE * f = open_marker(device_path))
        std::fclose(f);
}

// True when the trace line could be written (the trace file opened).
bool trace_line(const char * line)
{
    std::FILE * f = open_marker("c:\\trace.txt");
    if (f == nullptr)
        return false;
    std::fputs(line, f);
    std::fclose(f);
    return true;
}

} // namespace

unsigned long CDibRoot::AutoDetectImageFormat(wchar_t const * fileName)
{
    if (fileName == nullptr)
        return kFormatUnknown;
    std::wstring upper(fileName);
    for (wchar_t & c : upper)
        c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    return upper.find(L".BMP") != std::wstring::npos ? kFormatBmp : kFormatUnknown;
}

CDibRoot::CDibRoot(wchar_t const * fileName, unsigned long imageType)
{
    // No trace, and no filtering of codes 19 and above: the codec refuses
    // every code but 0 and leaves its text in the store.
    const uint32_t type = resolve_format(fileName, imageType);
    attach(detail::try_new<CxImage>(type));
    if (m_pCxImage == nullptr)
        return;
    if (std::FILE * f = open_file(fileName, "rb")) {
        m_pCxImage->decode(f, type);
        std::fclose(f);
    }
    SetZoneTravail(CRect(0, 0, static_cast<int>(Width()), static_cast<int>(Height())));
}

CDibRoot::CDibRoot(void * handle)
{
    attach(detail::try_new<CxImage>(kFormatBmp));
    if (m_pCxImage == nullptr)
        return;
    m_pCxImage->build_from_packed(handle);
    SetZoneTravail(CRect(0, 0, static_cast<int>(Width()), static_cast<int>(Height())));
}

bool CDibRoot::Load(wchar_t const * fileName, unsigned long imageType)
{
    // The trace never decides the result.
    const bool tracing = trace_line(kTraceBegin);
    if (!tracing)
        touch_marker("c:\\traceLoadNULL.txt");

    bool result = false;
    if (m_pCxImage == nullptr)
        attach(detail::try_new<CxImage>(kFormatBmp));
    if (m_pCxImage != nullptr) {
        const uint32_t type = resolve_format(fileName, imageType);
        if (type < kFirstRefusedCode) {
            if (std::FILE * f = open_file(fileName, "rb")) {
                try {
                    result = m_pCxImage->decode(f, type);
                } catch (...) {
                    std::fclose(f);
                    touch_marker("c:\\traceLoadCatch.txt");
                    return false;
                }
                std::fclose(f);
                if (result)
                    SetZoneTravail(CRect(0, 0, static_cast<int>(Width()), static_cast<int>(Height())));
            }
        }
    }

    if (tracing)
        trace_line(kTraceEnd);
    return result;
}

bool CDibRoot::Save(wchar_t const * fileName, unsigned long imageType)
{
    if (m_pCxImage == nullptr)
        return false;
    const uint32_t type = resolve_format(fileName, imageType);
    if (type >= kFirstRefusedCode)
        return false;
    std::FILE * f = open_file(fileName, "wb");
    if (f == nullptr)
        return false;
    const bool ok = m_pCxImage->encode(f, type);
    std::fclose(f);
    return ok;
}

void * CDibRoot::CopyToHandle()
{
    if (m_pCxImage == nullptr || !m_pCxImage->has_block())
        return nullptr;
    const std::size_t size = m_pCxImage->block_size();
    void * handle = detail::try_alloc(size);
    if (handle == nullptr)
        return nullptr;
    std::memset(handle, 0, size);
    // The block as it is: header as last stored at its head, palette, rows.
    std::memcpy(handle, m_pCxImage->block(), size);
    return handle;
}

void CDibRoot::FreeHandle(void * handle)
{
    std::free(handle);
}

} // namespace kevra
