// The clipboard service the image objects use (CDibRoot::CopyToClipboard,
// PasteAvailable, PasteFromClipboard).
//
// The library talks to the clipboard through this interface only. By default a
// process-wide in-process clipboard is used; an application that has a system
// clipboard installs its own implementation with set_clipboard.
//
// Blocks: the data of format 8 (clipboard_format_dib) is a packed bitmap
// (header, palette, rows) made by CDibRoot::CopyToHandle. A block handed to
// set_data belongs to the clipboard from then on; the in-process clipboard
// releases it with CDibRoot::FreeHandle when it is emptied or the format is
// set again. A block returned by get_data still belongs to the clipboard.
#ifndef KEVRA_CLIPBOARD_H
#define KEVRA_CLIPBOARD_H

namespace kevra {
namespace platform {

// Device-independent bitmap: a packed bitmap.
constexpr unsigned int clipboard_format_dib = 8;

class clipboard {
public:
    virtual ~clipboard() = default;

    // Opens the clipboard with no owner window. Fails while another thread
    // holds it open; opening it again from the thread that holds it succeeds.
    virtual bool open() = 0;
    // Releases every block. Requires the clipboard open.
    virtual bool empty() = 0;
    // Puts a block on the clipboard in that format (see Blocks above).
    // Requires the clipboard open; on failure the block stays the caller's.
    virtual bool set_data(unsigned int format, void *block) = 0;
    // The block of that format, or null. Requires the clipboard open.
    virtual void *get_data(unsigned int format) = 0;
    // Whether a block of that format is on the clipboard; needs no open.
    virtual bool is_format_available(unsigned int format) = 0;
    // Closes the clipboard (one close ends any number of opens).
    virtual bool close() = 0;
};

// The clipboard in use.
clipboard &current_clipboard();

// Installs a replacement (the caller keeps ownership and keeps it alive while
// installed); null restores the in-process clipboard. Returns the previous
// replacement, null when the in-process one was in use.
clipboard *set_clipboard(clipboard *replacement);

// The default in-process clipboard, for tests and for applications that want
// to reach it while a replacement is installed.
clipboard &in_process_clipboard();

} // namespace platform
} // namespace kevra

#endif
