// Images to and from the clipboard, as packed bitmaps (format 8).
#include "kevra/clipboard.h"
#include "kevra/dib.h"
#include "kevra/platform.h"

#include "image/ximage.h"

namespace kevra {

bool CDibRoot::CopyToClipboard()
{
    platform::clipboard &board = platform::current_clipboard();
    if (!board.open())
        return false;
    // An empty image returns before closing: the clipboard stays open, which
    // callers rely on (the next open from this thread still succeeds).
    if (m_pCxImage == nullptr)
        return false;

    const bool emptied = board.empty();
    void *block = CopyToHandle();
    bool placed = false;
    if (block != nullptr) {
        placed = board.set_data(platform::clipboard_format_dib, block);
        if (!placed)
            FreeHandle(block);
    }
    board.close();
    return emptied && placed;
}

bool CDibRoot::PasteAvailable()
{
    return platform::current_clipboard().is_format_available(platform::clipboard_format_dib);
}

bool CDibRoot::PasteFromClipboard()
{
    platform::clipboard &board = platform::current_clipboard();
    if (!board.open())
        return false;
    void *packed = board.get_data(platform::clipboard_format_dib);

    detach();
    attach(detail::try_new<CxImage>(kFormatBmp));
    const bool allocated = m_pCxImage != nullptr;
    if (allocated) {
        // With no bitmap on the clipboard the store stays without pixels:
        // the result still says true, IsOK tells the caller.
        m_pCxImage->build_from_packed(packed);
        SetZoneTravail(CRect(0, 0, m_pCxImage->width(), m_pCxImage->height()));
    }
    board.close();
    return allocated;
}

} // namespace kevra
