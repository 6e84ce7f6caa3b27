// BMP files and packed bitmaps in and out of the pixel store.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/pixel.h"
#include "image/byte_source.h"
#include "image/ximage.h"
#include "kevra/platform.h"

namespace kevra {

namespace {

constexpr uint32_t kFileHeaderSize = 14;
constexpr uint32_t kCoreHeaderSize = 12;
constexpr uint32_t kBitfields = 3; // compression code of masked 16- and 32-bit data

// Texts of the decoder. The two "allocate" texts differ in case on purpose:
// callers tell the store creation failure from the 32-bit scratch failure.
constexpr const char * kNotBmp = "Not a BMP";
constexpr const char * kInfoError = "Error reading BMP info";
constexpr const char * kStoreAllocError = "Can't allocate memory";
constexpr const char * kPaletteCompression = "compression type not supported";
constexpr const char * kUnknownCompression = "unknown compression";
constexpr const char * kScratchAllocError = "can't allocate memory";
constexpr const char * kUnsupportedFormat = "Unsupported operation for this format";
// Our own addition: the rows (or 16-bit masks) end before the file does.
constexpr const char * kTruncated = "Error reading BMP data";

uint16_t le16(const uint8_t * p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t le32(const uint8_t * p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
void put_le32(uint8_t * p, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Palette entries of the store that creation makes for a file bit count.
uint32_t palette_entries_for(uint32_t bit_count)
{
    if (bit_count <= 1)
        return 2;
    if (bit_count <= 4)
        return 16;
    if (bit_count <= 16)
        return 256;
    return 0;
}

// Turns a top-down picture (rows stored top row first) into the bottom-up
// order the store keeps.
void flip_rows(uint8_t * bits, uint32_t pitch, uint32_t height)
{
    if (height < 2)
        return;
    for (uint32_t a = 0, b = height - 1; a < b; ++a, --b) {
        uint8_t * ra = bits + static_cast<std::size_t>(pitch) * a;
        uint8_t * rb = bits + static_cast<std::size_t>(pitch) * b;
        for (uint32_t i = 0; i < pitch; ++i) {
            const uint8_t t = ra[i];
            ra[i] = rb[i];
            rb[i] = t;
        }
    }
}

} // namespace

// 32-to-24 conversion: the source has width * 4 bytes a row, no padding;
// bytes 0..2 (blue, green, red) of each pixel are kept, the fourth dropped.
// Walked from the last row and the last pixel down; source and rows never
// overlap here, so the order does not change the result.
void CxImage::convert_32_to_24(const uint8_t * src)
{
    const std::size_t w = static_cast<std::size_t>(width());
    for (int32_t y = height() - 1; y >= 0; --y) {
        uint8_t * row = m_bits + static_cast<std::size_t>(m_pitch) * static_cast<std::size_t>(y);
        const uint8_t * s = src + static_cast<std::size_t>(y) * w * 4;
        for (std::size_t x = w; x-- > 0;) {
            row[3 * x] = s[4 * x];
            row[3 * x + 1] = s[4 * x + 1];
            row[3 * x + 2] = s[4 * x + 2];
        }
    }
}

bool CxImage::decode(std::FILE * f, uint32_t image_type)
{
    detail::FileSource src(f);
    return decode(src, image_type);
}

bool CxImage::decode(detail::ByteSource & src, uint32_t image_type)
{
    if (image_type != kFormatBmp) {
        set_last_error(kUnsupportedFormat);
        return false;
    }
    // Decode into a temporary store, so that a failure leaves this one as it
    // was (but for its error text).
    CxImage tmp(image_type);
    if (!tmp.decode_into(src)) {
        set_last_error(tmp.last_error());
        return false;
    }
    // The error text of an earlier failure survives a success.
    char kept[sizeof m_last_error];
    std::memcpy(kept, m_last_error, sizeof kept);
    transfer(tmp);
    std::memcpy(m_last_error, kept, sizeof kept);
    return true;
}

bool CxImage::decode_into(detail::ByteSource & src)
{
    auto fail = [this](const char * text) {
        set_last_error(text);
        return false;
    };

    const int64_t start = src.tell();
    uint8_t fh[kFileHeaderSize];
    if (src.read(fh, sizeof fh) != sizeof fh)
        return fail(kNotBmp);
    uint32_t bits_offset;
    if (fh[0] == 'B' && fh[1] == 'M') {
        bits_offset = le32(fh + 10);
    } else {
        // No file header: a packed bitmap starts right here.
        bits_offset = 0;
        src.seek(start);
    }

    uint8_t ih[kInfoHeaderSize];
    if (src.read(ih, sizeof ih) != sizeof ih)
        return fail(kInfoError);
    tagBITMAPINFOHEADER h = detail::get_header(ih);
    if (h.biSize == kCoreHeaderSize) {
        // Core header: rebuild a 40-byte one and step back so that the
        // palette is read from right after the 12 bytes. Its entries are then
        // read as 4-byte ones too (the 3-byte form is not converted).
        tagBITMAPINFOHEADER core{};
        core.biSize = kInfoHeaderSize;
        core.biWidth = le16(ih + 4);
        core.biHeight = le16(ih + 6);
        core.biPlanes = le16(ih + 8);
        core.biBitCount = le16(ih + 10);
        h = core;
        src.seek(src.tell() - (kInfoHeaderSize - kCoreHeaderSize));
    }

    // Top-down pictures (negative height) are stored bottom-up like any other.
    const bool top_down = h.biHeight < 0;
    const int64_t height = top_down ? -static_cast<int64_t>(h.biHeight) : h.biHeight;
    const int64_t width = h.biWidth;
    if (h.biSizeImage == 0) {
        const uint64_t pitch = static_cast<uint64_t>(detail::row_pitch(width < 0 ? 0 : width, h.biBitCount));
        h.biSizeImage = static_cast<uint32_t>(pitch * static_cast<uint64_t>(height));
    }
    if (h.biClrUsed == 0)
        h.biClrUsed = h.biBitCount <= 8 ? (1u << h.biBitCount) : 0;
    const uint16_t file_bpp = h.biBitCount;
    const uint32_t compression = h.biCompression;

    // Compression is checked before the store is made, so that a refused
    // file never costs an allocation of its announced size.
    switch (file_bpp) {
    case 1:
    case 4:
    case 8:
        if (compression != 0)
            return fail(kPaletteCompression);
        break;
    case 24:
        if (compression != 0)
            return fail(kUnknownCompression);
        break;
    case 32:
        if (compression != kBitfields)
            return fail(kUnknownCompression);
        break;
    default:
        break;
    }

    // Refuse before allocating when the stream is known to be too short for
    // the rows: a tiny hostile file must not make us allocate gigabytes.
    // Sizes the store cannot hold at all are left to creation to refuse.
    const int64_t total = src.size();
    const bool reads_rows = file_bpp == 1 || file_bpp == 4 || file_bpp == 8 || file_bpp == 16 ||
                            file_bpp == 24 || file_bpp == 32;
    if (total >= 0 && reads_rows && width > 0 && height > 0 && width <= 0x7FFFFFFF && height <= 0x7FFFFFFF) {
        const uint64_t rows = file_bpp == 32
                                  ? static_cast<uint64_t>(width) * 4 * static_cast<uint64_t>(height)
                                  : static_cast<uint64_t>(detail::row_pitch(width, file_bpp)) *
                                        static_cast<uint64_t>(height);
        const int64_t rows_at = bits_offset != 0 ? start + bits_offset
                                                 : src.tell() + palette_entries_for(file_bpp) * 4;
        if (rows <= kMaxBlockBytes && static_cast<uint64_t>(rows_at) + rows > static_cast<uint64_t>(total))
            return fail(kTruncated);
    }

    m_head.bmiHeader = h;
    if (!create(width, height, file_bpp, m_type))
        return fail(kStoreAllocError);
    // The header keeps the file's pels per metre; only the dpi fields follow them.
    set_dpi_fields(detail::pels_to_dpi(h.biXPelsPerMeter), detail::pels_to_dpi(h.biYPelsPerMeter));

    // Palette: as many entries as the created store holds, whatever the file's
    // biClrUsed says (a short palette is followed by rows; the bits offset
    // below puts the reader back on them). A short read leaves the rest of the
    // creation palette in place.
    if (tagRGBQUAD * pal = palette())
        src.read(pal, static_cast<std::size_t>(m_palette_entries) * 4);

    if (bits_offset != 0 && !src.seek(start + bits_offset))
        return fail(kTruncated);

    const std::size_t size_image = m_head.bmiHeader.biSizeImage;
    switch (file_bpp) {
    case 1:
    case 4:
    case 8:
        if (src.read(m_bits, size_image) != size_image)
            return fail(kTruncated);
        break;
    case 16: {
        // The masks are read after the bits offset (so a masked file's rows
        // start 12 bytes late: files written by us never carry masks) and are
        // not used: 16-bit files are grey samples, never 5-5-5 colour.
        if (compression == kBitfields) {
            uint8_t masks[12];
            if (src.read(masks, sizeof masks) != sizeof masks)
                return fail(kTruncated);
        }
        if (src.read(m_bits, size_image) != size_image)
            return fail(kTruncated);
        if (top_down)
            flip_rows(m_bits, m_pitch, static_cast<uint32_t>(height));
        build_grey_view();
        return true;
    }
    case 24:
        if (src.read(m_bits, size_image) != size_image)
            return fail(kTruncated);
        break;
    case 32: {
        // The scratch buffer holds the whole 32-bit picture (width * 4 bytes
        // a row, no padding), read in one go and converted.
        const uint64_t scratch_size = static_cast<uint64_t>(width) * 4 * static_cast<uint64_t>(height);
        uint8_t * scratch = scratch_size > kMaxBlockBytes
                                ? nullptr
                                : static_cast<uint8_t *>(detail::try_alloc(static_cast<std::size_t>(scratch_size)));
        if (scratch == nullptr)
            return fail(kScratchAllocError);
        const bool complete = src.read(scratch, static_cast<std::size_t>(scratch_size)) == scratch_size;
        if (complete)
            convert_32_to_24(scratch);
        std::free(scratch);
        if (!complete)
            return fail(kTruncated);
        break;
    }
    default:
        // Other bit counts: success with the rows unread (left cleared).
        return true;
    }
    if (top_down)
        flip_rows(m_bits, m_pitch, static_cast<uint32_t>(height));
    return true;
}

bool CxImage::encode(std::FILE * f, uint32_t image_type)
{
    if (image_type != kFormatBmp) {
        set_last_error(kUnsupportedFormat);
        return false;
    }
    if (m_dib == nullptr || f == nullptr)
        return false;
    const uint32_t offset = kFileHeaderSize + kInfoHeaderSize + m_palette_entries * 4;
    uint8_t fh[kFileHeaderSize] = {'B', 'M'};
    put_le32(fh + 2, offset + m_head.bmiHeader.biSizeImage);
    put_le32(fh + 10, offset);
    write_header_to_block();
    // Write errors are not reported.
    std::fwrite(fh, 1, sizeof fh, f);
    std::fwrite(m_dib, 1, block_size(), f);
    return true;
}

uint64_t packed_bitmap_bytes(const void * header)
{
    const tagBITMAPINFOHEADER h = detail::get_header(static_cast<const uint8_t *>(header));
    const int64_t width = h.biWidth, height = h.biHeight;
    if (width <= 0 || height <= 0)
        return kInfoHeaderSize; // creation fails: nothing past the header is read
    const uint32_t store_bpp = h.biBitCount <= 1 ? 1 : h.biBitCount <= 4 ? 4 : h.biBitCount <= 8 ? 8
                             : h.biBitCount <= 16 ? 16 : 24;
    const uint64_t rows = static_cast<uint64_t>(detail::row_pitch(width, store_bpp)) * static_cast<uint64_t>(height);
    if (h.biCompression != 0) // masks, then for 32 bits the unpadded rows
        return kInfoHeaderSize + 12 +
               (h.biBitCount == 32 ? static_cast<uint64_t>(width) * 4 * static_cast<uint64_t>(height) : 0);
    if (h.biClrUsed != 0)
        return kInfoHeaderSize + uint64_t(palette_entries_for(h.biBitCount)) * 4 + rows;
    return std::max<uint64_t>(h.biSize, kInfoHeaderSize) + rows;
}

bool CxImage::build_from_packed(void * packed)
{
    free_block();
    if (packed == nullptr)
        return false;
    uint8_t * m = static_cast<uint8_t *>(packed);
    const tagBITMAPINFOHEADER h = detail::get_header(m);
    m_head.bmiHeader = h;
    const uint32_t clr_used = h.biClrUsed;

    // The caller's header is completed in place for 8-bit bitmaps without a
    // colour count (kept: callers have seen their memory changed this way).
    if (h.biBitCount == 8 && clr_used == 0) {
        put_le32(m + 32, 256);
        put_le32(m + 36, 256);
    }

    if (!create(h.biWidth, h.biHeight, h.biBitCount, kFormatBmp))
        return false;

    // Resolution goes through dots per inch and back, and the vertical value
    // is then replaced by the horizontal one (the bitmap's own is lost).
    set_dpi_fields(detail::pels_to_dpi(h.biXPelsPerMeter), detail::pels_to_dpi(h.biYPelsPerMeter));
    set_x_dpi(m_x_dpi);
    set_y_dpi(m_y_dpi);
    m_head.bmiHeader.biYPelsPerMeter = m_head.bmiHeader.biXPelsPerMeter;

    if (h.biCompression != 0) {
        write_header_to_block();
        const uint8_t * after_masks = m + kInfoHeaderSize + 12;
        if (h.biBitCount == 16)
            build_grey_view(); // from the store's rows: the bitmap's rows are not copied
        else if (h.biBitCount == 32)
            convert_32_to_24(after_masks);
    } else if (clr_used != 0) {
        std::memcpy(m_dib, m, block_size());
    } else {
        std::memcpy(m_bits, m + h.biSize, m_head.bmiHeader.biSizeImage);
    }
    // The block's head always describes the block as the store built it, so
    // that the rows are found right after header and palette.
    write_header_to_block();
    return true;
}

} // namespace kevra
