// Display palettes of grey images (set from a palette, a table or display
// settings, read back), and images through the clipboard (format 8).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kevra/clipboard.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "support/kevra_test.h"

using namespace kevra;

namespace {

std::vector<uint8_t> table_bytes(CLUT_24_Bpp & table)
{
    std::vector<uint8_t> out(1024);
    table.Donne_RGBQUAD(reinterpret_cast<tagRGBQUAD *>(out.data()), 256);
    return out;
}

// Header, palette and rows, as a packed bitmap holds them.
std::vector<uint8_t> whole_block(CDibRoot & image)
{
    const auto & h = image.GetInfo()->bmiHeader;
    const uint8_t * bits = image.GetBits();
    std::vector<uint8_t> out(reinterpret_cast<const uint8_t *>(&h), reinterpret_cast<const uint8_t *>(&h + 1));
    out.insert(out.end(), bits - h.biClrUsed * 4, bits + image.SizeImage());
    return out;
}

void fill(CDibRoot & image)
{
    for (unsigned long i = 0; i < image.SizeImage(); ++i)
        image.GetBits()[i] = static_cast<uint8_t>(i * 37 + image.BitCount());
}

} // namespace

// Each form puts 256 entries into a grey image's palette, changes nothing else
// and returns 0; a 4-bit, colour or empty image is left alone, with 0 too.
TEST(DisplayPalette, SetFormsRecolourGreyImagesOnly)
{
    kevra_test::CaptureMessageBoxes boxes;
    CLUT_24_Bpp false_colour(e_Palette21), shifted, extra(e_Palette22), settings;
    shifted.ReglageRougeVertBleu(-40, 0, 60);
    ASSERT_TRUE(CSequenceur::ComputeDisplayPalette(&settings, 0.1f, 1.3f, 0.9f, e_Palette12, 5, 10, -15, true, &extra));
    const std::pair<std::function<long(CDibRoot &)>, CLUT_24_Bpp *> forms[] = {
        {[](CDibRoot & d) { return d.SetDisplayPalette(e_Palette21); }, &false_colour},
        {[&](CDibRoot & d) { return d.SetDisplayPalette(shifted); }, &shifted},
        {[&](CDibRoot & d) { return d.SetDisplayPalette(&extra, 0.1f, 1.3f, 0.9f, e_Palette12, 5, 10, -15, true); },
         &settings},
    };
    for (unsigned short bpp : {4, 8, 16, 24}) {
        CDibRoot image(CSize(5, 3), bpp);
        fill(image);
        std::vector<uint8_t> want = whole_block(image);
        for (const auto & form : forms) {
            SCOPED_TRACE(testing::Message() << bpp << " bits, form " << &form - forms);
            EXPECT_EQ(form.first(image), 0);
            if (bpp == 8 || bpp == 16)
                std::memcpy(want.data() + 40, table_bytes(*form.second).data(), 1024);
            EXPECT_EQ(whole_block(image), want);
        }
    }
    EXPECT_TRUE(boxes.texts.empty());
    CDibRoot empty;
    tagRGBQUAD quads[256];
    EXPECT_EQ(empty.SetDisplayPalette(e_Palette12), 0);
    EXPECT_EQ(empty.GetCurrentDisplayPalette(quads, 256), 0);
    EXPECT_EQ(empty.GetCurrentDisplayPalette(&false_colour), 0);
}

// Into a buffer: all entries or nothing. Into a table: the entries first,
// black after them.
TEST(DisplayPalette, GetFormsCopyTheWholePalette)
{
    CDibRoot image(CSize(3, 2), 8), colour(CSize(3, 2), 24), nibble(CSize(3, 2), 4), bilevel(CSize(3, 2), 1);
    std::vector<uint8_t> got(1024, 0x77);
    tagRGBQUAD * quads = reinterpret_cast<tagRGBQUAD *>(got.data());
    EXPECT_EQ(image.GetCurrentDisplayPalette(quads, 255), 0);
    EXPECT_EQ(image.GetCurrentDisplayPalette(nullptr, 256), 0);
    EXPECT_EQ(colour.GetCurrentDisplayPalette(quads, 256), 0);
    EXPECT_EQ(got, std::vector<uint8_t>(1024, 0x77));
    EXPECT_EQ(image.GetCurrentDisplayPalette(quads, 256), 1);
    for (int i = 0; i < 256; ++i)
        ASSERT_TRUE(quads[i].rgbRed == i && quads[i].rgbGreen == i && quads[i].rgbBlue == i) << i;
    EXPECT_EQ(bilevel.GetCurrentDisplayPalette(quads, 2), 1);

    CLUT_24_Bpp table, blue(e_Palette23);
    image.SetDisplayPalette(e_Palette23);
    EXPECT_EQ(image.GetCurrentDisplayPalette(&table), 1);
    EXPECT_EQ(table_bytes(table), table_bytes(blue));
    EXPECT_EQ(image.GetCurrentDisplayPalette(static_cast<CLUT_24_Bpp *>(nullptr)), 0);
    EXPECT_EQ(colour.GetCurrentDisplayPalette(&table), 0);
    EXPECT_EQ(nibble.GetCurrentDisplayPalette(&table), 1);
    EXPECT_EQ(table_bytes(table), std::vector<uint8_t>(1024, 0));
}

namespace {

void clear_clipboard()
{
    platform::clipboard & board = platform::in_process_clipboard();
    ASSERT_TRUE(board.open() && board.empty() && board.close());
}

// A host clipboard that records the calls made to it; it can refuse to open.
struct Recorder : platform::clipboard {
    bool open_result = true;
    std::string calls;
    void * data = nullptr;
    ~Recorder() override { CDibRoot::FreeHandle(data); }
    bool open() override { return calls += "open ", open_result; }
    bool empty() override { return calls += "empty ", true; }
    bool set_data(unsigned format, void * block) override
    {
        CDibRoot::FreeHandle(data);
        data = block;
        return calls += "set " + std::to_string(format) + " ", true;
    }
    void * get_data(unsigned format) override { return calls += "get " + std::to_string(format) + " ", data; }
    bool is_format_available(unsigned format) override { return format == 8 && data != nullptr; }
    bool close() override { return calls += "close", true; }
};

} // namespace

// The clipboard keeps its block: a second paste gives the same image again.
TEST(Clipboard, CopyThenPasteGivesBackTheImage)
{
    for (unsigned short bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        clear_clipboard();
        CDibRoot image(CSize(7, 5), bpp), pasted(CSize(2, 2), 24), again;
        fill(image);
        image.SetDisplayPalette(e_Palette22);
        EXPECT_FALSE(CDibRoot::PasteAvailable());
        ASSERT_TRUE(image.CopyToClipboard());
        EXPECT_TRUE(CDibRoot::PasteAvailable());
        pasted.SetZoneTravail(CRect(1, 1, 1, 1));
        ASSERT_TRUE(pasted.PasteFromClipboard() && pasted.IsOK());
        EXPECT_EQ(whole_block(pasted), whole_block(image));
        EXPECT_EQ(pasted.BoundingRectangle(), CRect(0, 0, 6, 4));
        ASSERT_TRUE(again.PasteFromClipboard());
        EXPECT_EQ(whole_block(again), whole_block(image));
    }
    // An empty clipboard: the paste succeeds, with an image without pixels.
    clear_clipboard();
    CDibRoot image(CSize(3, 3), 8);
    EXPECT_TRUE(image.PasteFromClipboard());
    EXPECT_FALSE(image.IsOK());
}

// A host clipboard replaces the in-process one. Copying an empty image
// returns before closing (deliberately kept: the clipboard stays open); a
// clipboard that cannot be opened leaves the image alone.
TEST(Clipboard, HostClipboardSeesEachCall)
{
    Recorder recorder;
    platform::set_clipboard(&recorder);
    CDibRoot image(CSize(4, 3), 24), pasted, empty;
    EXPECT_TRUE(image.CopyToClipboard());
    EXPECT_EQ(recorder.calls, "open empty set 8 close");
    EXPECT_TRUE(CDibRoot::PasteAvailable());
    recorder.calls.clear();
    EXPECT_TRUE(pasted.PasteFromClipboard());
    EXPECT_EQ(recorder.calls, "open get 8 close");
    EXPECT_EQ(whole_block(pasted), whole_block(image));
    recorder.calls.clear();
    EXPECT_FALSE(empty.CopyToClipboard());
    EXPECT_EQ(recorder.calls, "open ");

    recorder.open_result = false;
    recorder.calls.clear();
    EXPECT_FALSE(image.CopyToClipboard());
    EXPECT_FALSE(pasted.PasteFromClipboard());
    EXPECT_EQ(pasted.Width(), 4);
    EXPECT_EQ(recorder.calls, "open open ");
    platform::set_clipboard(nullptr);
}
