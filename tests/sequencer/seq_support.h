// Helpers for the sequencer tests: a trace file of our own, a deterministic
// clock, step records and images filled with random pixels.
#ifndef KEVRA_TESTS_SEQUENCER_SEQ_SUPPORT_H
#define KEVRA_TESTS_SEQUENCER_SEQ_SUPPORT_H

#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/sequenceur.h"
#include "sequencer/detail/trace.h"
#include "support/kevra_test.h"

namespace seq_test {

using kevra::CSequenceur;
using Params = CSequenceur::Params_Struct;

// Points the trace at a file in a fresh temp dir (created empty unless asked
// otherwise) and makes the process decide again at the next line.
class TraceFile {
public:
    explicit TraceFile(bool create = true)
    {
        m_path = m_dir.file("Sequenceur.txt");
        if (create)
            kevra_test::write_file(m_path, {});
        m_previous = kevra::platform::sequencer_trace_path();
        kevra::platform::set_sequencer_trace_path(m_path);
        kevra::detail::reset_trace_state_for_tests();
    }
    ~TraceFile()
    {
        kevra::platform::set_sequencer_trace_path(m_previous);
        kevra::detail::reset_trace_state_for_tests();
    }
    TraceFile(const TraceFile &) = delete;
    TraceFile &operator=(const TraceFile &) = delete;

    const std::string &path() const { return m_path; }
    std::string text() const
    {
        const std::vector<uint8_t> bytes = kevra_test::read_file(m_path);
        return std::string(bytes.begin(), bytes.end());
    }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> out;
        std::istringstream in(text());
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }
    void clear() const { kevra_test::write_file(m_path, {}); }

private:
    kevra_test::TempDir m_dir;
    std::string m_path;
    std::string m_previous;
};

// A clock that advances by `step` milliseconds at every reading.
class FakeTicks {
public:
    explicit FakeTicks(uint32_t start = 1000, uint32_t step = 5)
    {
        m_previous = kevra::platform::set_tick_count_handler([this, start, step] {
            const uint32_t now = start + m_readings * step;
            ++m_readings;
            return now;
        });
    }
    ~FakeTicks() { kevra::platform::set_tick_count_handler(m_previous); }
    uint32_t readings() const { return m_readings; }

private:
    uint32_t m_readings = 0;
    kevra::platform::tick_count_handler m_previous;
};

inline Params params() { return Params{}; }

inline Params rotate(int angle)
{
    Params p{};
    p.Mots[0] = static_cast<uint32_t>(angle);
    return p;
}

inline Params palette(kevra::CLUT *pLUT, int value)
{
    Params p{};
    p.pLUT = pLUT;
    std::memcpy(&p.Palette, &value, sizeof value);
    return p;
}

inline Params tone(float l, float c, float g)
{
    Params p{};
    p.luminosite = l;
    p.contraste = c;
    p.gamma = g;
    return p;
}

inline Params levels(int r, int g, int b)
{
    Params p{};
    p.rouge = r;
    p.vert = g;
    p.bleu = b;
    return p;
}

inline Params stretch(float min, float max)
{
    Params p{};
    p.min = min;
    p.max = max;
    return p;
}

inline Params median(double ecart, unsigned short taille)
{
    Params p{};
    p.Ecart = ecart;
    p.TailleFiltre = taille;
    return p;
}

inline Params filter(int kind, unsigned short taille, float param)
{
    Params p{};
    std::memcpy(&p.filtre, &kind, sizeof kind);
    p.taille = taille;
    p.param = param;
    return p;
}

inline Params unsharp(float rayon, float gainP, float gainN, float seuilP, float seuilN)
{
    Params p{};
    p.rayon = rayon;
    p.gainP = gainP;
    p.gainN = gainN;
    p.SeuilP = seuilP;
    p.SeuilN = seuilN;
    return p;
}

inline Params resample(int w, int h, unsigned char facteur)
{
    Params p{};
    p.width = w;
    p.height = h;
    p.facteur = facteur;
    return p;
}

inline Params level(int value)
{
    Params p{};
    p.niveau = value;
    return p;
}

inline Params percent(int value)
{
    Params p{};
    p.pourcentage = value;
    return p;
}

// An image of that size and depth with random pixels (padding included).
inline void randomise(kevra::CDibRoot &image, uint32_t seed)
{
    std::mt19937 rng(seed);
    unsigned char *bits = image.GetBits();
    const std::size_t bytes = static_cast<std::size_t>(image.Pitch()) * image.Height();
    for (std::size_t i = 0; i < bytes; ++i)
        bits[i] = static_cast<unsigned char>(rng());
    image.ReleaseBits();
}

inline std::vector<uint8_t> pixels(kevra::CDibRoot &image)
{
    const unsigned char *bits = image.GetBits();
    std::vector<uint8_t> out(bits, bits + static_cast<std::size_t>(image.Pitch()) * image.Height());
    image.ReleaseBits();
    return out;
}

inline std::size_t buffer_size(long width, long height, int bpp)
{
    return static_cast<std::size_t>(((width * bpp + 31) & ~31L) / 8) * static_cast<std::size_t>(height);
}

} // namespace seq_test

#endif
