#include "image/ximage.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "core/float_store.h"
#include "core/pixel.h"
#include "kevra/platform.h"

namespace kevra {

namespace detail {

int32_t dpi_to_pels(int32_t dpi)
{
    return round_half_up_i32(static_cast<double>(dpi) * 39.37007874015748);
}

int32_t pels_to_dpi(int32_t pels)
{
    return round_half_up_i32(static_cast<double>(pels) * 0.0254);
}

namespace {
void put16(uint8_t * p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void put32(uint8_t * p, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}
uint16_t get16(const uint8_t * p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t get32(const uint8_t * p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
} // namespace

void put_header(uint8_t * d, const tagBITMAPINFOHEADER & h)
{
    put32(d + 0, h.biSize);
    put32(d + 4, static_cast<uint32_t>(h.biWidth));
    put32(d + 8, static_cast<uint32_t>(h.biHeight));
    put16(d + 12, h.biPlanes);
    put16(d + 14, h.biBitCount);
    put32(d + 16, h.biCompression);
    put32(d + 20, h.biSizeImage);
    put32(d + 24, static_cast<uint32_t>(h.biXPelsPerMeter));
    put32(d + 28, static_cast<uint32_t>(h.biYPelsPerMeter));
    put32(d + 32, h.biClrUsed);
    put32(d + 36, h.biClrImportant);
}

tagBITMAPINFOHEADER get_header(const uint8_t * s)
{
    tagBITMAPINFOHEADER h;
    h.biSize = get32(s + 0);
    h.biWidth = static_cast<int32_t>(get32(s + 4));
    h.biHeight = static_cast<int32_t>(get32(s + 8));
    h.biPlanes = get16(s + 12);
    h.biBitCount = get16(s + 14);
    h.biCompression = get32(s + 16);
    h.biSizeImage = get32(s + 20);
    h.biXPelsPerMeter = static_cast<int32_t>(get32(s + 24));
    h.biYPelsPerMeter = static_cast<int32_t>(get32(s + 28));
    h.biClrUsed = get32(s + 32);
    h.biClrImportant = get32(s + 36);
    return h;
}

} // namespace detail

CxImage::CxImage(uint32_t image_type) : m_type(image_type)
{
    m_head.bmiHeader.biSize = kInfoHeaderSize;
    set_x_dpi(72);
    set_y_dpi(72);
}

CxImage::~CxImage()
{
    free_block();
}

void CxImage::free_block()
{
    if (m_dib != nullptr && m_borrowed == nullptr) {
        drop_selection();
        drop_alpha();
        std::free(m_dib);
    }
    m_dib = nullptr;
    m_bits = nullptr;
    m_borrowed = nullptr;
    release_grey_view();
}

bool CxImage::create(int64_t width, int64_t height, uint32_t bit_count, uint32_t image_type)
{
    free_block();

    uint32_t bpp;
    uint32_t entries;
    if (bit_count <= 1) {
        bpp = 1;
        entries = 2;
    } else if (bit_count <= 4) {
        bpp = 4;
        entries = 16;
    } else if (bit_count <= 8) {
        bpp = 8;
        entries = 256;
    } else if (bit_count <= 16) {
        bpp = 16;
        entries = 256;
    } else {
        bpp = 24;
        entries = 0;
    }

    if (width <= 0 || height <= 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF)
        return false;
    const uint64_t pitch = static_cast<uint64_t>(detail::row_pitch(width, bpp));
    if (pitch > kMaxBlockBytes || pitch * static_cast<uint64_t>(height) > kMaxBlockBytes - kInfoHeaderSize - entries * 4)
        return false;
    // The application's ceiling on pixel data: a header announcing more is
    // refused before a byte is allocated or cleared.
    const uint64_t limit = platform::max_image_bytes();
    if (limit != 0 && pitch * static_cast<uint64_t>(height) > limit)
        return false;

    tagBITMAPINFOHEADER & h = m_head.bmiHeader;
    m_pitch = static_cast<uint32_t>(pitch);
    m_palette_entries = entries;
    h.biSize = kInfoHeaderSize;
    h.biWidth = static_cast<int32_t>(width);
    h.biHeight = static_cast<int32_t>(height);
    h.biPlanes = 1;
    h.biBitCount = static_cast<uint16_t>(bpp);
    h.biCompression = 0;
    h.biSizeImage = static_cast<uint32_t>(pitch * static_cast<uint64_t>(height));
    h.biClrUsed = entries;
    h.biClrImportant = 0;
    m_type = image_type;

    // The whole block starts cleared: the ramp leaves the palette's reserved
    // bytes alone and the rows are not written here, and files must never
    // carry indeterminate bytes. No operation may rely on the cleared rows.
    m_dib = static_cast<uint8_t *>(detail::try_alloc_zeroed(block_size()));
    if (m_dib == nullptr)
        return false;

    if (bpp == 8 || bpp == 16)
        set_grey_palette();
    else if (entries != 0)
        std::memset(m_dib + kInfoHeaderSize, 0, entries * 4);
    drop_selection();
    drop_alpha();
    write_header_to_block();
    m_bits = m_dib + kInfoHeaderSize + entries * 4;
    return true;
}

void CxImage::transfer(CxImage & from)
{
    free_block();
    drop_selection();
    drop_alpha();

    m_dib = from.m_dib;
    m_head = from.m_head;
    m_pitch = from.m_pitch;
    m_bits = from.m_bits;
    m_borrowed = from.m_borrowed;
    m_palette_entries = from.m_palette_entries;
    copy_bookkeeping(from);
    m_selection = from.m_selection;
    m_alpha = from.m_alpha;
    m_grey_view = from.m_grey_view;

    from.m_dib = nullptr;
    from.m_bits = nullptr;
    from.m_borrowed = nullptr;
    from.m_selection = nullptr;
    from.m_alpha = nullptr;
    from.m_grey_view = nullptr;
    from.m_pitch = 0;
    from.m_palette_entries = 0;
}

void CxImage::copy_bookkeeping(const CxImage & from)
{
    m_type = from.m_type;
    std::memcpy(m_last_error, from.m_last_error, sizeof m_last_error);
    m_bkg_index = from.m_bkg_index;
    m_bkg_color = from.m_bkg_color;
    m_x_dpi = from.m_x_dpi;
    m_y_dpi = from.m_y_dpi;
    m_zone = from.m_zone;
}

tagRGBQUAD * CxImage::palette()
{
    if (m_dib == nullptr || m_palette_entries == 0)
        return nullptr;
    return reinterpret_cast<tagRGBQUAD *>(m_dib + kInfoHeaderSize);
}

uint8_t * CxImage::pixel_ptr(int32_t x, int32_t y)
{
    if (m_bits == nullptr)
        return nullptr;
    uint8_t * row = m_bits + static_cast<std::ptrdiff_t>(m_pitch) * y;
    switch (bit_count()) {
    case 1: return row + x / 8;
    case 4: return row + x / 2;
    case 8: return row + x;
    case 16: return row + 2 * static_cast<std::ptrdiff_t>(x);
    case 24: return row + 3 * static_cast<std::ptrdiff_t>(x);
    default: return nullptr;
    }
}

void CxImage::write_header_to_block()
{
    if (m_dib != nullptr)
        detail::put_header(m_dib, m_head.bmiHeader);
}

void CxImage::set_grey_palette()
{
    tagRGBQUAD * pal = palette();
    if (pal == nullptr || m_palette_entries < 2)
        return;
    const uint32_t step = 255u / (m_palette_entries - 1);
    for (uint32_t i = 0; i < m_palette_entries; ++i) {
        const uint8_t v = static_cast<uint8_t>(step * i);
        pal[i].rgbBlue = v;
        pal[i].rgbGreen = v;
        pal[i].rgbRed = v;
    }
}

void CxImage::set_x_dpi(int32_t dpi)
{
    m_x_dpi = dpi;
    m_head.bmiHeader.biXPelsPerMeter = detail::dpi_to_pels(dpi);
}

void CxImage::set_y_dpi(int32_t dpi)
{
    m_y_dpi = dpi;
    m_head.bmiHeader.biYPelsPerMeter = detail::dpi_to_pels(dpi);
}

void CxImage::set_zone(CRect r)
{
    drop_selection();
    const int32_t w = width();
    const int32_t h = height();
    // Low bound first, then the high one. A store without pixels may carry
    // any header (a refused packed bitmap's): 64-bit bounds keep w - 1 and
    // h - 1 defined, and the result stays inside 32 bits.
    auto clamp = [](int32_t v, int32_t size) {
        const int64_t hi = std::max<int64_t>(int64_t(size) - 1, INT32_MIN);
        const int64_t x = v < 0 ? 0 : v;
        return static_cast<int32_t>(x > hi ? hi : x);
    };
    const int32_t l = r.left < r.right ? r.left : r.right;
    const int32_t rr = r.left < r.right ? r.right : r.left;
    const int32_t t = r.top < r.bottom ? r.top : r.bottom;
    const int32_t b = r.top < r.bottom ? r.bottom : r.top;
    m_zone = CRect(clamp(l, w), clamp(t, h), clamp(rr, w), clamp(b, h));
}

bool CxImage::exchange_rows(CxImage & other)
{
    if (this == &other || m_dib == nullptr || other.m_dib == nullptr || m_borrowed != nullptr ||
        other.m_borrowed != nullptr || block_size() != other.block_size() ||
        m_bits - m_dib != other.m_bits - other.m_dib)
        return false;
    // Header and palette: everything before the rows.
    uint8_t mine[kInfoHeaderSize + 256 * 4];
    const std::size_t head = static_cast<std::size_t>(m_bits - m_dib);
    if (head > sizeof mine)
        return false;
    std::memcpy(mine, m_dib, head);
    std::memcpy(m_dib, other.m_dib, head);
    std::memcpy(other.m_dib, mine, head);
    std::swap(m_dib, other.m_dib);
    std::swap(m_bits, other.m_bits);
    release_grey_view();
    other.release_grey_view();
    return true;
}

bool CxImage::build_grey_view()
{
    release_grey_view();
    if (m_bits == nullptr || bit_count() != 16)
        return false;
    const uint32_t w = static_cast<uint32_t>(width());
    const uint32_t h = static_cast<uint32_t>(height());
    const uint32_t view_pitch = (w + 3) & ~3u;
    m_grey_view = static_cast<uint8_t *>(detail::try_alloc(static_cast<std::size_t>(view_pitch) * h));
    if (m_grey_view == nullptr)
        return false;
    for (uint32_t y = 0; y < h; ++y) {
        const uint8_t * src = m_bits + static_cast<std::size_t>(m_pitch) * y;
        uint8_t * dst = m_grey_view + static_cast<std::size_t>(view_pitch) * y;
        // Little-endian sample: the high byte is the second one.
        for (uint32_t x = 0; x < w; ++x)
            dst[x] = src[2 * x + 1];
        for (uint32_t x = w; x < view_pitch; ++x)
            dst[x] = 0;
    }
    return true;
}

void CxImage::release_grey_view()
{
    std::free(m_grey_view);
    m_grey_view = nullptr;
}

void CxImage::drop_selection()
{
    std::free(m_selection);
    m_selection = nullptr;
}

void CxImage::drop_alpha()
{
    std::free(m_alpha);
    m_alpha = nullptr;
}

namespace {
uint8_t * copy_plane(const uint8_t * src, std::size_t n)
{
    uint8_t * p = static_cast<uint8_t *>(detail::try_alloc(n));
    if (p != nullptr)
        std::memcpy(p, src, n);
    return p;
}
} // namespace

bool CxImage::set_selection_copy(const uint8_t * src)
{
    const std::size_t n = static_cast<std::size_t>(width()) * static_cast<std::size_t>(height());
    uint8_t * p = copy_plane(src, n);
    if (p == nullptr)
        return false;
    drop_selection();
    m_selection = p;
    return true;
}

bool CxImage::set_alpha_copy(const uint8_t * src)
{
    const std::size_t n = static_cast<std::size_t>(width()) * static_cast<std::size_t>(height());
    uint8_t * p = copy_plane(src, n);
    if (p == nullptr)
        return false;
    drop_alpha();
    m_alpha = p;
    return true;
}

void CxImage::set_last_error(const char * text)
{
    std::strncpy(m_last_error, text, sizeof m_last_error - 1);
    m_last_error[sizeof m_last_error - 1] = '\0';
}

} // namespace kevra
