// libFuzzer target for the BMP reader: every input is loaded as a file through
// CDibRoot::Load and, when it holds what its header announces, built as a
// packed bitmap in memory. A loaded image is then saved and its rows read, so
// that a header the reader accepted is also one every later step can use.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <unistd.h>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/platform.h"

namespace {

// Reads every row byte, so a store smaller than its header says shows up
// under AddressSanitizer; the sum keeps the reads from being optimised away.
unsigned touch(kevra::CDibRoot & d)
{
    unsigned sum = 0;
    if (!d.IsOK())
        return sum;
    const unsigned char * bits = d.GetBits();
    const unsigned long bytes = d.SizeImage();
    for (unsigned long i = 0; i < bytes; ++i)
        sum += bits[i];
    d.ReleaseBits();
    return sum;
}

struct Scratch {
    std::string in, out;
    std::wstring win, wout;
    Scratch()
    {
        const std::string dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") +
                                "/kevra-fuzz-" + std::to_string(getpid());
        std::string mk = "mkdir -p '" + dir + "'";
        if (std::system(mk.c_str()) != 0)
            std::abort();
        in = dir + "/in.bmp";
        out = dir + "/out.bmp";
        win.assign(in.begin(), in.end());
        wout.assign(out.begin(), out.end());
        // Images beyond 4 MiB are refused like hostile headers, so the
        // fuzzer spends its time on parsing rather than on clearing memory.
        kevra::platform::set_max_image_bytes(uint64_t(4) << 20);
        kevra::platform::set_message_box_handler([](const char *) {});
        kevra::platform::set_debug_output_handler([](const wchar_t *) {});
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    static Scratch scratch;
    volatile unsigned sink = 0;

    if (FILE * f = std::fopen(scratch.in.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
        kevra::CDibRoot d(kevra::CSize(3, 2), 8);
        if (d.Load(scratch.win.c_str(), 0)) {
            sink += touch(d);
            d.Save(scratch.wout.c_str(), 0);
        }
    }

    // The packed form trusts its caller for the length: only blocks that hold
    // what their header announces are built.
    if (size >= kevra::kInfoHeaderSize && kevra::packed_bitmap_bytes(data) <= size) {
        std::vector<uint8_t> block(data, data + size); // the build may complete the header in place
        kevra::CDibRoot d(block.data());
        sink += touch(d);
        if (void * copy = d.CopyToHandle())
            kevra::CDibRoot::FreeHandle(copy);
    }
    (void)sink;
    return 0;
}
