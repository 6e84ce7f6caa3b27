// Helpers for the sequencer tests: a trace file of our own, a deterministic
// clock and images filled with random pixels.
#ifndef KEVRA_TESTS_SEQUENCER_SEQ_SUPPORT_H
#define KEVRA_TESTS_SEQUENCER_SEQ_SUPPORT_H

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/sequenceur.h"
#include "sequencer/detail/trace.h"
#include "support/kevra_test.h"
#include "support/sequencer_steps.h"

namespace seq_test {

using namespace kevra_test;
using kevra::CSequenceur;

// Points the trace at a file in a fresh temp dir (created empty unless asked
// otherwise) and makes the process decide again at the next line.
class TraceFile {
public:
    explicit TraceFile(bool create = true)
    {
        m_path = m_dir.file("Sequenceur.txt");
        if (create)
            write_file(m_path, {});
        m_previous = kevra::platform::sequencer_trace_path();
        kevra::platform::set_sequencer_trace_path(m_path);
        kevra::detail::reset_trace_state_for_tests();
    }
    ~TraceFile()
    {
        kevra::platform::set_sequencer_trace_path(m_previous);
        kevra::detail::reset_trace_state_for_tests();
    }

    const std::string &path() const { return m_path; }
    std::string text() const { return read_text(m_path); }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> out;
        std::istringstream in(text());
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }
    void clear() const { write_file(m_path, {}); }

private:
    TempDir m_dir;
    std::string m_path;
    std::string m_previous;
};

// Each test of a suite derived from this one traces to a file of its own.
class TracedTest : public ::testing::Test {
protected:
    TraceFile trace;
};

// A clock that advances by `step` milliseconds at every reading.
class FakeTicks {
public:
    explicit FakeTicks(uint32_t start, uint32_t step)
    {
        m_previous =
            kevra::platform::set_tick_count_handler([this, start, step] { return start + m_readings++ * step; });
    }
    ~FakeTicks() { kevra::platform::set_tick_count_handler(m_previous); }
    uint32_t readings() const { return m_readings; }

private:
    uint32_t m_readings = 0;
    kevra::platform::tick_count_handler m_previous;
};

inline std::size_t buffer_size(long width, long height, int bpp)
{
    return static_cast<std::size_t>(((width * bpp + 31) & ~31L) / 8) * static_cast<std::size_t>(height);
}

inline std::vector<uint8_t> pixels(kevra::CDibRoot &image) { return image_bytes(image); }

// An image of that size and depth with random pixels, padding included.
struct RandomImage {
    kevra::CDibRoot image;
    RandomImage(int w, int h, int bpp, uint32_t seed) : image(kevra::CSize(w, h), static_cast<unsigned short>(bpp))
    {
        image_bytes(image, seed);
    }
};

} // namespace seq_test

#endif
