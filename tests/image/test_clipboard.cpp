// Images to and from the clipboard (format 8), with the in-process clipboard
// and with a replacement.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "kevra/clipboard.h"
#include "kevra/dib.h"

using kevra::CDibRoot;
using kevra::CRect;
using kevra::CSize;
namespace platform = kevra::platform;

namespace {

void clear_clipboard()
{
    platform::clipboard &board = platform::in_process_clipboard();
    ASSERT_TRUE(board.open());
    ASSERT_TRUE(board.empty());
    ASSERT_TRUE(board.close());
}

std::vector<uint8_t> whole_block(CDibRoot &image)
{
    // Header, palette and rows, as the packed bitmap holds them.
    const auto &h = image.GetInfo()->bmiHeader;
    std::vector<uint8_t> out(sizeof h);
    std::memcpy(out.data(), &h, sizeof h);
    const unsigned char *bits = image.GetBits();
    const std::size_t palette = static_cast<std::size_t>(h.biClrUsed) * 4;
    out.insert(out.end(), bits - palette, bits + image.SizeImage());
    image.ReleaseBits();
    return out;
}

// Records the calls; can refuse to open.
class Recorder : public platform::clipboard {
public:
    bool open_result = true;
    std::vector<std::string> calls;
    void *data = nullptr;

    ~Recorder() override
    {
        if (data != nullptr)
            CDibRoot::FreeHandle(data);
    }
    bool open() override
    {
        calls.push_back("open");
        return open_result;
    }
    bool empty() override
    {
        calls.push_back("empty");
        return true;
    }
    bool set_data(unsigned int format, void *block) override
    {
        calls.push_back("set " + std::to_string(format));
        if (data != nullptr)
            CDibRoot::FreeHandle(data);
        data = block;
        return true;
    }
    void *get_data(unsigned int format) override
    {
        calls.push_back("get " + std::to_string(format));
        return format == 8 ? data : nullptr;
    }
    bool is_format_available(unsigned int format) override { return format == 8 && data != nullptr; }
    bool close() override
    {
        calls.push_back("close");
        return true;
    }
};

struct Install {
    explicit Install(platform::clipboard *c) { platform::set_clipboard(c); }
    ~Install() { platform::set_clipboard(nullptr); }
};

} // namespace

TEST(Clipboard, CopyThenPasteGivesBackTheImage)
{
    for (unsigned short bpp : {8, 16, 24}) {
        clear_clipboard();
        CDibRoot image(CSize(7, 5), bpp);
        unsigned char *bits = image.GetBits();
        for (unsigned long i = 0; i < image.SizeImage(); ++i)
            bits[i] = static_cast<unsigned char>(i * 37 + bpp);
        image.ReleaseBits();
        if (bpp == 8)
            image.SetDisplayPalette(kevra::e_Palette22);

        EXPECT_FALSE(CDibRoot::PasteAvailable());
        ASSERT_TRUE(image.CopyToClipboard());
        EXPECT_TRUE(CDibRoot::PasteAvailable());

        CDibRoot pasted(CSize(2, 2), 24);
        pasted.SetZoneTravail(CRect(1, 1, 1, 1));
        ASSERT_TRUE(pasted.PasteFromClipboard());
        ASSERT_TRUE(pasted.IsOK());
        EXPECT_EQ(whole_block(pasted), whole_block(image)) << bpp;
        EXPECT_EQ(pasted.BoundingRectangle(), CRect(0, 0, 6, 4));

        // The clipboard keeps its block: a second paste gives the same.
        CDibRoot again;
        ASSERT_TRUE(again.PasteFromClipboard());
        EXPECT_EQ(whole_block(again), whole_block(image));
    }
}

TEST(Clipboard, PastingFromAnEmptyClipboardLeavesAnImageWithoutPixels)
{
    clear_clipboard();
    EXPECT_FALSE(CDibRoot::PasteAvailable());
    CDibRoot image(CSize(3, 3), 8);
    EXPECT_TRUE(image.PasteFromClipboard());
    EXPECT_FALSE(image.IsOK());
}

// An empty image returns before closing: the clipboard stays open for this
// thread (another thread cannot open it) until someone closes it.
TEST(Clipboard, CopyingAnEmptyImageLeavesTheClipboardOpen)
{
    clear_clipboard();
    CDibRoot empty;
    EXPECT_FALSE(empty.CopyToClipboard());
    bool other_opened = true;
    std::thread([&] { other_opened = platform::in_process_clipboard().open(); }).join();
    EXPECT_FALSE(other_opened);
    EXPECT_TRUE(platform::in_process_clipboard().close());
    std::thread([&] {
        other_opened = platform::in_process_clipboard().open();
        platform::in_process_clipboard().close();
    }).join();
    EXPECT_TRUE(other_opened);
}

TEST(Clipboard, InProcessClipboardNeedsToBeOpen)
{
    clear_clipboard();
    platform::clipboard &board = platform::in_process_clipboard();
    EXPECT_FALSE(board.empty());
    EXPECT_EQ(board.get_data(8), nullptr);
    CDibRoot image(CSize(2, 2), 8);
    void *block = image.CopyToHandle();
    EXPECT_FALSE(board.set_data(8, block));
    CDibRoot::FreeHandle(block);
    EXPECT_FALSE(board.close());
}

TEST(Clipboard, ReplacementClipboardIsUsed)
{
    Recorder recorder;
    Install install(&recorder);
    CDibRoot image(CSize(4, 3), 24);
    ASSERT_TRUE(image.CopyToClipboard());
    const std::vector<std::string> copy_calls = {"open", "empty", "set 8", "close"};
    EXPECT_EQ(recorder.calls, copy_calls);
    EXPECT_TRUE(CDibRoot::PasteAvailable());

    recorder.calls.clear();
    CDibRoot pasted;
    ASSERT_TRUE(pasted.PasteFromClipboard());
    const std::vector<std::string> paste_calls = {"open", "get 8", "close"};
    EXPECT_EQ(recorder.calls, paste_calls);
    EXPECT_EQ(whole_block(pasted), whole_block(image));

    // A clipboard that cannot be opened: nothing happens to the image.
    recorder.open_result = false;
    recorder.calls.clear();
    EXPECT_FALSE(image.CopyToClipboard());
    EXPECT_FALSE(pasted.PasteFromClipboard());
    EXPECT_TRUE(pasted.IsOK());
    EXPECT_EQ(pasted.Width(), 4);
    const std::vector<std::string> refused = {"open", "open"};
    EXPECT_EQ(recorder.calls, refused);
}
