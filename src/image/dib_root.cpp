// CDibRoot and CDib: the image handle, its geometry and its copies.
#include "kevra/dib.h"

#include <cstring>

#include "image/ximage.h"
#include "kevra/platform.h"

namespace kevra {

// ---- store ownership ----------------------------------------------------------

void CDibRoot::attach(CxImage * store)
{
    m_pCxImage = store;
    if (store != nullptr)
        ++store->m_handles;
}

void CDibRoot::detach()
{
    CxImage * store = m_pCxImage;
    m_pCxImage = nullptr;
    if (store != nullptr && --store->m_handles == 0)
        delete store;
}

CxImage * CDibRoot::Donne_pCxImage() { return m_pCxImage; }

// ---- construction --------------------------------------------------------------

CDibRoot::CDibRoot() = default;

CDibRoot::CDibRoot(CSize size, unsigned short bitCount)
{
    Create(size, bitCount);
}

CDibRoot::CDibRoot(CDibRoot & src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha)
    : CDibRoot(&src, bCopyPixels, bCopySelection, bCopyAlpha)
{
}

CDibRoot::CDibRoot(CDibRoot * src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha)
{
    // The source must hold a store; an empty source gives an empty copy.
    if (src == nullptr || src->m_pCxImage == nullptr)
        return;
    attach(detail::try_new<CxImage>(src->m_pCxImage->image_type()));
    if (m_pCxImage != nullptr)
        Copy(*src, bCopyPixels, bCopySelection, bCopyAlpha);
}

CDibRoot::CDibRoot(const CDibRoot & other)
{
    attach(other.m_pCxImage);
}

CDibRoot::~CDibRoot()
{
    detach();
}

CDibRoot & CDibRoot::operator=(CDibRoot const & other)
{
    if (m_pCxImage != other.m_pCxImage) {
        CxImage * store = other.m_pCxImage;
        detach();
        attach(store);
    }
    return *this;
}

void CDibRoot::Destroy()
{
    detach();
}

bool CDibRoot::Create(CSize size, unsigned short bitCount)
{
    detach();
    attach(detail::try_new<CxImage>(kFormatBmp));
    if (m_pCxImage == nullptr)
        return false;
    // On failure the new, empty store stays attached: IsOK is false afterwards.
    if (!m_pCxImage->create(size.cx, size.cy, bitCount, kFormatBmp))
        return false;
    SetZoneTravail(CRect(0, 0, size.cx, size.cy));
    return true;
}

bool CDibRoot::Copy(CDibRoot & src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha)
{
    CxImage * dst = m_pCxImage;
    CxImage * from = src.m_pCxImage;
    if (dst == nullptr || from == nullptr)
        return false;
    if (dst == from)
        return true; // one store shared by both handles: it already holds the image

    dst->copy_bookkeeping(*from);
    if (!dst->create(from->width(), from->height(), from->bit_count(), from->image_type()))
        return true; // creation failed: the store is left without pixels; callers test IsOK
    dst->header().biXPelsPerMeter = from->header().biXPelsPerMeter;
    dst->header().biYPelsPerMeter = from->header().biYPelsPerMeter;

    if (bCopyPixels && dst->has_block() && from->has_block()) {
        std::memcpy(dst->block(), from->block(), from->block_size());
        if (dst->bit_count() == 16)
            dst->build_grey_view();
    }
    tagRGBQUAD * from_pal = from->palette();
    tagRGBQUAD * dst_pal = dst->palette();
    if (from_pal != nullptr && dst_pal != nullptr) {
        uint32_t n = dst->palette_entries();
        if (n > 256)
            n = 256;
        std::memcpy(dst_pal, from_pal, n * 4);
    }
    if (bCopySelection && from->selection() != nullptr)
        dst->set_selection_copy(from->selection());
    if (bCopyAlpha && from->alpha() != nullptr)
        dst->set_alpha_copy(from->alpha());
    return true;
}

void CDibRoot::SwapImage(CDibRoot & other)
{
    CxImage * tmp = m_pCxImage;
    m_pCxImage = other.m_pCxImage;
    other.m_pCxImage = tmp;
}

// ---- geometry and access -----------------------------------------------------------

unsigned short CDibRoot::BitCount() const
{
    return m_pCxImage != nullptr ? m_pCxImage->bit_count() : 0;
}

long CDibRoot::Width() const
{
    return m_pCxImage != nullptr ? m_pCxImage->width() : 0;
}

long CDibRoot::Height() const
{
    return m_pCxImage != nullptr ? m_pCxImage->height() : 0;
}

CSize CDibRoot::Size() const
{
    return CSize(static_cast<int>(Width()), static_cast<int>(Height()));
}

CRect CDibRoot::Rect() const
{
    return CRect(0, 0, static_cast<int>(Width()), static_cast<int>(Height()));
}

int CDibRoot::ScanBytes(long width, int bitCount) const
{
    // 32-bit signed arithmetic whatever the width of long; for absurd sizes
    // the product wraps (two's complement) instead of being undefined.
    const uint32_t product = static_cast<uint32_t>(static_cast<int32_t>(width)) * static_cast<uint32_t>(bitCount);
    const int32_t bits = static_cast<int32_t>(product + 31u);
    return (bits & ~31) / 8;
}

int CDibRoot::Pitch() const
{
    if (m_pCxImage == nullptr)
        return 0;
    return ScanBytes(Width(), BitCount());
}

int CDibRoot::XOffset(int x) const
{
    return static_cast<int>((static_cast<uint32_t>(BitCount()) * static_cast<uint32_t>(x)) >> 3);
}

int CDibRoot::YOffset(int y) const
{
    return Pitch() * y;
}

unsigned long CDibRoot::SizeImage() const
{
    return m_pCxImage != nullptr ? m_pCxImage->header().biSizeImage : 0;
}

tagBITMAPINFO * CDibRoot::GetInfo()
{
    return m_pCxImage != nullptr ? &m_pCxImage->info() : nullptr;
}

unsigned char * CDibRoot::GetBits()
{
    if (m_pCxImage == nullptr || !m_pCxImage->has_block())
        return nullptr;
    // Block + the block's own biSize + the palette, as the block says.
    const uint8_t * block = m_pCxImage->block();
    const uint32_t bi_size = detail::get_header(block).biSize;
    return m_pCxImage->block() + bi_size + m_pCxImage->palette_entries() * 4;
}

void CDibRoot::ReleaseBits()
{
    if (m_pCxImage != nullptr && m_pCxImage->bit_count() == 16)
        m_pCxImage->release_grey_view();
}

void CDibRoot::ReleasePixelPtr()
{
    ReleaseBits();
}

unsigned char * CDibRoot::GetPixelPtr(int x, int y)
{
    if (m_pCxImage == nullptr)
        return nullptr;
    return m_pCxImage->pixel_ptr(x, y);
}

bool CDibRoot::IsOK()
{
    if (m_pCxImage == nullptr)
        return false;
    const bool ok = GetPixelPtr(0, 0) != nullptr;
    ReleaseBits();
    return ok;
}

bool CDibRoot::IsGrayScale() const
{
    if (m_pCxImage == nullptr)
        return false;
    const tagRGBQUAD * pal = m_pCxImage->palette();
    if (pal == nullptr)
        return false;
    for (uint32_t i = 0; i < m_pCxImage->palette_entries(); ++i) {
        const uint8_t v = static_cast<uint8_t>(i);
        if (pal[i].rgbBlue != v || pal[i].rgbGreen != v || pal[i].rgbRed != v)
            return false;
    }
    return true;
}

void CDibRoot::SetGrayPalette()
{
    if (m_pCxImage != nullptr)
        m_pCxImage->set_grey_palette();
}

unsigned long CDibRoot::GetXPelsPerMeter() const
{
    return m_pCxImage != nullptr ? static_cast<unsigned long>(static_cast<uint32_t>(m_pCxImage->header().biXPelsPerMeter)) : 0;
}

unsigned long CDibRoot::GetYPelsPerMeter() const
{
    return m_pCxImage != nullptr ? static_cast<unsigned long>(static_cast<uint32_t>(m_pCxImage->header().biYPelsPerMeter)) : 0;
}

void CDibRoot::SetXPelsPerMeter(unsigned long value)
{
    if (m_pCxImage != nullptr)
        m_pCxImage->header().biXPelsPerMeter = static_cast<int32_t>(static_cast<uint32_t>(value));
}

void CDibRoot::SetYPelsPerMeter(unsigned long value)
{
    if (m_pCxImage != nullptr)
        m_pCxImage->header().biYPelsPerMeter = static_cast<int32_t>(static_cast<uint32_t>(value));
}

char * CDibRoot::GetLastError()
{
    return m_pCxImage != nullptr ? m_pCxImage->last_error() : nullptr;
}

void CDibRoot::SetZoneTravail(CRect rect)
{
    if (m_pCxImage != nullptr)
        m_pCxImage->set_zone(rect);
}

CRect CDibRoot::BoundingRectangle() const
{
    return m_pCxImage != nullptr ? m_pCxImage->zone() : CRect(0, 0, 0, 0);
}

bool CDibRoot::PointInSelection(CPoint & point) const
{
    if (m_pCxImage == nullptr)
        return false;
    const int32_t w = m_pCxImage->width();
    const int32_t h = m_pCxImage->height();
    if (point.x < 0 || point.x >= w || point.y < 0 || point.y >= h)
        return false;
    const uint8_t * mask = m_pCxImage->selection();
    if (mask == nullptr)
        return true;
    return mask[static_cast<std::size_t>(point.y) * static_cast<std::size_t>(w) + static_cast<std::size_t>(point.x)] != 0;
}

// ---- CDib --------------------------------------------------------------------------

CDib::CDib() : CDibRoot() {}
CDib::CDib(CDib & src) : CDibRoot(&src, true, true, true) {}
CDib::CDib(CDib * src) : CDibRoot(src, true, true, true) {}
CDib::CDib(wchar_t const * fileName) : CDibRoot(fileName, kFormatUnknown) {}
CDib::CDib(CSize size, unsigned short bitCount) : CDibRoot(size, bitCount) {}
CDib::CDib(int width, int height, int bitCount)
    : CDibRoot(CSize(width, height), static_cast<unsigned short>(bitCount))
{
}
CDib::CDib(void * handle) : CDibRoot(handle) {}
CDib::~CDib() = default;

CDib & CDib::operator=(CDib const & other)
{
    CDibRoot::operator=(other);
    return *this;
}

} // namespace kevra
