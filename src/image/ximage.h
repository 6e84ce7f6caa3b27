// The pixel store behind CDibRoot: header, palette and rows in one block, plus
// the image's bookkeeping. Private to the library.
#ifndef KEVRA_IMAGE_XIMAGE_H
#define KEVRA_IMAGE_XIMAGE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "kevra/dib.h"
#include "kevra/types.h"

namespace kevra {

namespace detail {
class ByteSource;
}

// Format codes of the store.
constexpr uint32_t kFormatBmp = 0;
constexpr uint32_t kFormatUnknown = 99;

// Size of the info header at the head of every DIB block.
constexpr uint32_t kInfoHeaderSize = 40;

// Largest DIB block the store accepts (header + palette + rows). Keeps every
// size computation inside 32 bits on every target and turns absurd headers
// into a plain allocation failure.
constexpr uint64_t kMaxBlockBytes = 0x7FFFFFFFu;

// Bytes a packed bitmap (header, palette or masks, rows) must hold for the
// build from it to read only inside the block, computed from its 40-byte
// header alone (which must itself be readable). Used by callers that receive
// blocks of a known length, such as the fuzzing harness.
uint64_t packed_bitmap_bytes(const void * header);

class CxImage {
public:
    explicit CxImage(uint32_t image_type = kFormatBmp);
    virtual ~CxImage();
    CxImage(const CxImage &) = delete;
    CxImage & operator=(const CxImage &) = delete;

    // Store creation: frees any block, rounds the bit count (<=1: 1 bit, 2
    // entries; 2-4: 4 bits, 16; 5-8: 8 bits, 256; 9-16: 16 bits, 256; above:
    // 24 bits, none), allocates header + palette + rows (rows cleared to 0),
    // writes the grey ramp at 8 and 16 bits and clears the palette at 1 and 4
    // bits, drops mask and alpha. False when the size is not positive, too
    // large, or the allocation fails; the store then has no block.
    bool create(int64_t width, int64_t height, uint32_t bit_count, uint32_t image_type);

    // Frees the block (unless borrowed), mask, alpha plane and grey view.
    void free_block();

    // Moves header, bookkeeping, block, mask, alpha and grey view from `from`
    // into this store (after freeing this one's); `from` is left empty.
    void transfer(CxImage & from);

    // Copies the bookkeeping fields (image type, last error, background,
    // resolutions, working zone) from another store.
    void copy_bookkeeping(const CxImage & from);

    // Trades pixel rows with a store of the same layout (same block size and
    // rows at the same offset, both blocks owned): the blocks change hands,
    // each store's header and palette are copied into the block it receives,
    // and both grey views are dropped. Cheaper than copying the rows; false
    // (nothing done) when the layouts differ.
    bool exchange_rows(CxImage & other);

    // ---- geometry ----------------------------------------------------------
    bool has_block() const { return m_dib != nullptr; }
    uint8_t * block() { return m_dib; }
    uint32_t block_size() const { return kInfoHeaderSize + m_palette_entries * 4 + m_head.bmiHeader.biSizeImage; }
    uint8_t * bits() { return m_bits; }
    uint32_t pitch() const { return m_pitch; }
    int32_t width() const { return m_head.bmiHeader.biWidth; }
    int32_t height() const { return m_head.bmiHeader.biHeight; }
    uint16_t bit_count() const { return m_head.bmiHeader.biBitCount; }
    uint32_t palette_entries() const { return m_palette_entries; }
    // The palette inside the block; null when there is none.
    tagRGBQUAD * palette();
    // Address of pixel (x, y), y a memory row; null for unsupported depths.
    uint8_t * pixel_ptr(int32_t x, int32_t y);

    tagBITMAPINFO & info() { return m_head; }
    tagBITMAPINFOHEADER & header() { return m_head.bmiHeader; }
    const tagBITMAPINFOHEADER & header() const { return m_head.bmiHeader; }
    // Writes the store's header (little-endian) at the head of the block.
    void write_header_to_block();

    // ---- palette, resolution, zone ------------------------------------------
    // Grey ramp: entry i = (255 / (entries - 1)) * i; reserved bytes untouched.
    void set_grey_palette();
    // Sets dots per inch and the header's pels per metre from it.
    void set_x_dpi(int32_t dpi);
    void set_y_dpi(int32_t dpi);
    // Sets only the dots-per-inch fields.
    void set_dpi_fields(int32_t x_dpi, int32_t y_dpi) { m_x_dpi = x_dpi; m_y_dpi = y_dpi; }
    int32_t x_dpi() const { return m_x_dpi; }
    int32_t y_dpi() const { return m_y_dpi; }
    void set_zone(CRect r);
    CRect zone() const { return m_zone; }

    // ---- grey view of 16-bit images -----------------------------------------
    // Height rows of (width + 3) & ~3 bytes, the high byte of each sample.
    bool build_grey_view();
    void release_grey_view();
    const uint8_t * grey_view() const { return m_grey_view; }

    // ---- masks --------------------------------------------------------------
    uint8_t * selection() { return m_selection; }
    uint8_t * alpha() { return m_alpha; }
    void drop_selection();
    void drop_alpha();
    // Copies width * height bytes; false when the allocation fails.
    bool set_selection_copy(const uint8_t * src);
    bool set_alpha_copy(const uint8_t * src);

    // ---- codec ---------------------------------------------------------------
    uint32_t image_type() const { return m_type; }
    void set_image_type(uint32_t t) { m_type = t; }
    char * last_error() { return m_last_error; }
    void set_last_error(const char * text);

    // Decodes a BMP file or packed bitmap from the stream's current position.
    // On failure the store is unchanged except for its last-error text.
    bool decode(detail::ByteSource & src, uint32_t image_type);
    bool decode(std::FILE * f, uint32_t image_type);
    // Writes file header and block; fails only for a format code other than 0.
    bool encode(std::FILE * f, uint32_t image_type);
    // Builds the store from a packed bitmap in memory (null leaves no pixels).
    // Note: an 8-bit bitmap whose biClrUsed is 0 gets 256 written into its
    // biClrUsed and biClrImportant, in the caller's memory.
    bool build_from_packed(void * packed);

    // Handles sharing this store (see CDibRoot); the store is deleted when the
    // count drops to zero.
    int m_handles = 0;

private:
    bool decode_into(detail::ByteSource & src); // the temporary store's side
    void convert_32_to_24(const uint8_t * src);

    // The store's fields (pitch .. selection box is the bookkeeping that Copy
    // carries over).
    uint8_t * m_dib = nullptr;
    tagBITMAPINFO m_head{}; // only bmiHeader is meaningful
    uint32_t m_pitch = 0;
    uint8_t * m_bits = nullptr;
    CxImage * m_borrowed = nullptr;
    uint32_t m_type = kFormatBmp;
    char m_last_error[256] = {};
    int32_t m_bkg_index = -1;
    tagRGBQUAD m_bkg_color{};
    int32_t m_x_dpi = 0;
    int32_t m_y_dpi = 0;
    CRect m_zone;
    uint8_t * m_selection = nullptr;
    uint8_t * m_alpha = nullptr;
    uint8_t * m_grey_view = nullptr;
    uint32_t m_palette_entries = 0;

    friend class CxImageCodecAccess;
};

namespace detail {

// dpi -> pels per metre: floor(d * 39.37007874015748 + 0.5).
int32_t dpi_to_pels(int32_t dpi);
// pels per metre -> dpi: floor(p * 0.0254 + 0.5).
int32_t pels_to_dpi(int32_t pels);

// Little-endian header fields in and out of 40 bytes.
void put_header(uint8_t * dst, const tagBITMAPINFOHEADER & h);
tagBITMAPINFOHEADER get_header(const uint8_t * src);

// The store behind an image handle, for the library's own layers (the handle's accessor is
// protected; a member pointer taken through a derived class reaches it).
struct DibStoreAccess : CDibRoot {
    static CxImage * of(CDibRoot & dib) { return (dib.*&DibStoreAccess::Donne_pCxImage)(); }
};

} // namespace detail
} // namespace kevra

#endif
