// Shared helpers for the Kevra tests: temporary directories, file bytes, image pixels, the
// plain and fast paths of one call, and switches for the platform hooks.
#ifndef KEVRA_TESTS_SUPPORT_KEVRA_TEST_H
#define KEVRA_TESTS_SUPPORT_KEVRA_TEST_H

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/fast_path.h"
#include "core/row_threads.h"
#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"

namespace kevra_test {

namespace fs = std::filesystem;

// A fresh directory under the system temp dir, removed with its content.
class TempDir {
public:
    TempDir()
    {
        std::string templ = (fs::temp_directory_path() / "kevra-test-XXXXXX").string();
        if (mkdtemp(templ.data()) != nullptr)
            m_path = templ;
    }
    ~TempDir()
    {
        std::error_code ec; // an empty path (mkdtemp failed) is an error here, and ignored
        fs::remove_all(m_path, ec);
    }
    TempDir(const TempDir &) = delete;
    TempDir & operator=(const TempDir &) = delete;

    const fs::path & path() const { return m_path; }
    std::string file(const std::string & name) const { return (m_path / name).string(); }
    std::wstring wfile(const std::string & name) const { return widen(file(name)); }

    static std::wstring widen(const std::string & s) { return std::wstring(s.begin(), s.end()); }

private:
    fs::path m_path;
};

inline std::vector<uint8_t> read_file(const std::string & path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string read_text(const std::string & path)
{
    const std::vector<uint8_t> bytes = read_file(path);
    return std::string(bytes.begin(), bytes.end());
}

inline void write_file(const std::string & path, const std::vector<uint8_t> & bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Little-endian byte builder for hand-made files.
struct Bytes {
    std::vector<uint8_t> v;
    Bytes & u8(uint32_t x) { return v.push_back(static_cast<uint8_t>(x)), *this; }
    Bytes & u16(uint32_t x) { return u8(x).u8(x >> 8); }
    Bytes & u32(uint32_t x) { return u16(x).u16(x >> 16); }
    Bytes & fill(std::size_t n, uint8_t value) { return v.insert(v.end(), n, value), *this; }
    Bytes & append(const std::vector<uint8_t> & more) { return v.insert(v.end(), more.begin(), more.end()), *this; }
};

inline std::string data_file(const std::string & name)
{
    return std::string(KEVRA_TEST_DATA_DIR) + "/" + name;
}

// An image's pixel bytes, row padding included; with a seed, first filled with random bytes.
inline std::vector<uint8_t> image_bytes(kevra::CDibRoot & image, uint32_t seed = 0)
{
    uint8_t * bits = image.GetBits();
    const std::size_t n = bits ? static_cast<std::size_t>(image.Pitch()) * image.Height() : 0;
    std::mt19937 rng(seed);
    for (std::size_t i = 0; seed != 0 && i < n; ++i)
        bits[i] = static_cast<uint8_t>(rng());
    std::vector<uint8_t> v(bits, bits + n);
    image.ReleaseBits();
    return v;
}

// A colour table's entries as 0xRRGGBB.
inline std::vector<uint32_t> lut_entries(const kevra::CLUT_24_Bpp & table)
{
    std::vector<uint32_t> out;
    for (int i = 0; i < 256; ++i)
        out.push_back(uint32_t(table.Donne_Rouge()[i]) << 16 | table.Donne_Vert()[i] << 8 | table.Donne_Bleu()[i]);
    return out;
}

// Exposes an image's store for checks the public interface cannot make.
class DibProbe : public kevra::CDibRoot {
public:
    using kevra::CDibRoot::CDibRoot;
    kevra::CxImage * store() { return Donne_pCxImage(); }
};

// run(false) on the plain path, then run(true) on the fast path with `threads` threads (the
// previous count again afterwards): the two results, plain first. The fast path's vector level
// changes every second call (baseline, then the widest present) and, every fourth, its strips
// run on threads or one after another, the last first; so a test alternating thread counts
// call by call meets every combination.
template <class F>
std::pair<bool, bool> plain_and_fast(F && run, unsigned threads = 1)
{
    static unsigned calls = 0;
    const unsigned call = calls++;
    bool plain;
    {
        kevra::detail::FastPathScope off(false);
        plain = run(false);
    }
    kevra::detail::FastPathScope on(true);
    kevra::detail::VectorLevelScope level(call / 2 % 2 ? kevra::detail::VectorLevel::avx2
                                                       : kevra::detail::VectorLevel::baseline);
    kevra::detail::set_strips_last_first(call / 4 % 2 == 1);
    const unsigned previous = kevra::platform::thread_count();
    kevra::platform::set_thread_count(threads);
    const bool fast = run(true);
    kevra::detail::set_strips_last_first(false);
    kevra::platform::set_thread_count(previous);
    return {plain, fast};
}

// Makes every allocation through the library's helpers fail while alive, or
// only those of at least min_bytes, or those the predicate selects.
class FailAllocations {
public:
    explicit FailAllocations(std::size_t min_bytes = 0)
        : FailAllocations([min_bytes](std::size_t bytes) { return bytes >= min_bytes; })
    {
    }
    explicit FailAllocations(kevra::platform::allocation_hook fails)
        : m_previous(kevra::platform::set_allocation_hook(std::move(fails)))
    {
    }
    ~FailAllocations() { kevra::platform::set_allocation_hook(m_previous); }

private:
    kevra::platform::allocation_hook m_previous;
};

// Records message-box texts instead of printing them.
class CaptureMessageBoxes {
public:
    CaptureMessageBoxes()
    {
        m_previous = kevra::platform::set_message_box_handler(
            [this](const char * text) { texts.push_back(text); });
    }
    ~CaptureMessageBoxes() { kevra::platform::set_message_box_handler(m_previous); }
    std::vector<std::string> texts;

private:
    kevra::platform::message_box_handler m_previous;
};

// Points the device root somewhere for the life of the object.
class DeviceRoot {
public:
    explicit DeviceRoot(const std::string & root)
    {
        m_previous = kevra::platform::device_root();
        kevra::platform::set_device_root(root);
    }
    ~DeviceRoot() { kevra::platform::set_device_root(m_previous); }

private:
    std::string m_previous;
};

} // namespace kevra_test

#endif
