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
    const auto * s = reinterpret_cast<const unsigned char *>(utf8.data());
    const std::size_t n = utf8.size();
    for (std::size_t i = 0; i < n;) {
        const unsigned char c = s[i];
        uint32_t cp = 0;
        std::size_t len = 0;
        if (c < 0x80) {
            cp = c;
            len = 1;
        } else if ((c & 0xE0) == 0xC0) {
            cp = c & 0x1F;
            len = 2;
        } else if ((c & 0xF0) == 0xE0) {
            cp = c & 0x0F;
            len = 3;
        } else if ((c & 0xF8) == 0xF0) {
            cp = c & 0x07;
            len = 4;
        } else {
            throw Failure(utf8 + ": file name is not valid UTF-8");
        }
        if (i + len > n)
            throw Failure(utf8 + ": file name is not valid UTF-8");
        for (std::size_t k = 1; k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                throw Failure(utf8 + ": file name is not valid UTF-8");
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
    return out;
}

std::string narrow(const wchar_t * text)
{
    return kevra::platform::to_utf8(text);
}

namespace {

uint32_t le32(const unsigned char * p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t le16(const unsigned char * p)
{
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

std::string errno_text(int e)
{
    return std::strerror(e);
}

// What the library's decoder would accept silently or report poorly: a file
// that is not a BMP at all (the decoder would take it for a headerless
// bitmap), or rows cut short. Top-down files are the library's to read.
void check_bmp_file(const std::string & path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        throw Failure(path + ": " + errno_text(errno));
    if (S_ISDIR(st.st_mode))
        throw Failure(path + ": is a directory");
    std::FILE * f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        throw Failure(path + ": " + errno_text(errno));
    unsigned char h[54];
    const std::size_t got = std::fread(h, 1, sizeof h, f);
    std::fclose(f);
    if (got < 2 || h[0] != 'B' || h[1] != 'M')
        throw Failure(path + ": not a BMP file");
    if (got < sizeof h)
        throw Failure(path + ": not a BMP file (header cut short)");
    const uint32_t bits_offset = le32(h + 10);
    const int32_t width = static_cast<int32_t>(le32(h + 18));
    const int32_t height = static_cast<int32_t>(le32(h + 22));
    const uint16_t bit_count = le16(h + 28);
    const uint32_t compression = le32(h + 30);
    if (le32(h + 14) == 12)
        return; // old core header: leave it to the library
    if (width <= 0 || height == 0)
        throw Failure(path + ": BMP file has no pixels (" + std::to_string(width) + " x " +
                      std::to_string(height) + ")");
    if (compression != 0)
        return; // the library names the compression it refuses
    const uint64_t pitch = ((static_cast<uint64_t>(width) * bit_count + 31) / 32) * 4;
    const uint64_t rows = pitch * static_cast<uint64_t>(height < 0 ? -static_cast<int64_t>(height) : height);
    const uint64_t start = bits_offset != 0 ? bits_offset : 54;
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    if (size < start + rows)
        throw Failure(path + ": truncated BMP file (" + std::to_string(size) + " bytes, " +
                      std::to_string(start + rows) + " expected)");
}

std::string depth_list(const std::vector<int> & depths)
{
    std::string s;
    for (std::size_t i = 0; i < depths.size(); ++i) {
        if (i != 0)
            s += i + 1 == depths.size() ? " or " : ", ";
        s += std::to_string(depths[i]);
    }
    return s;
}

} // namespace

void load_bmp(const std::string & path, kevra::CDib & image, const std::vector<int> & depths)
{
    check_bmp_file(path);
    const std::wstring name = widen(path);
    if (!image.Load(name.c_str(), 0) || !image.IsOK()) {
        const char * why = image.GetLastError();
        throw Failure(path + ": " + (why != nullptr && *why != 0 ? why : "cannot be decoded"));
    }
    if (!depths.empty()) {
        const int bits = image.BitCount();
        bool accepted = false;
        for (int d : depths)
            accepted = accepted || d == bits;
        if (!accepted)
            throw Failure(path + ": " + std::to_string(bits) + "-bit images are not supported here (" +
                          depth_list(depths) + " bits)");
    }
}

void save_bmp(kevra::CDib & image, const std::string & path)
{
    static std::atomic<unsigned> serial{0};
    const std::size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.empty())
        throw Failure(path + ": not a file name");
    const std::string temp = dir + "." + base + ".kevra-" + std::to_string(::getpid()) + "-" +
                             std::to_string(serial.fetch_add(1)) + ".tmp";

    // Create the temporary file ourselves: the library's save says only
    // true or false, and the system's reason is worth telling.
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd < 0)
        throw Failure(path + ": cannot write: " + errno_text(errno));
    ::close(fd);

    const std::wstring name = widen(temp);
    if (!image.Save(name.c_str(), 0)) {
        std::remove(temp.c_str());
        const char * why = image.GetLastError();
        throw Failure(path + ": cannot write" + (why != nullptr && *why != 0 ? std::string(": ") + why : ""));
    }
    // The encoder does not notice write errors (a full disk): check the size.
    const int bits = image.BitCount();
    const uint64_t palette = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 || bits == 16 ? 256 : 0;
    const uint64_t expected = 14 + 40 + palette * 4 + image.SizeImage();
    struct stat st {};
    if (::stat(temp.c_str(), &st) != 0 || static_cast<uint64_t>(st.st_size) != expected) {
        std::remove(temp.c_str());
        throw Failure(path + ": cannot write: the file came out incomplete (disk full?)");
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        const int e = errno;
        std::remove(temp.c_str());
        throw Failure(path + ": cannot write: " + errno_text(e));
    }
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
