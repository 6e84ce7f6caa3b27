#include "arrays.h"

#include "kevra/platform.h"

#include <cstring>
#include <vector>

namespace kevra_py {

Channels parse_channels(const std::optional<std::string> & text)
{
    if (!text)
        return Channels::none;
    if (*text == "rgb")
        return Channels::rgb;
    if (*text == "bgr")
        return Channels::bgr;
    throw py::value_error("channels must be 'rgb' or 'bgr', not '" + *text + "'");
}

namespace {

std::string describe(const py::array & a)
{
    std::string shape = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i)
        shape += (i ? ", " : "") + std::to_string(a.shape(i));
    if (a.ndim() == 1)
        shape += ",";
    return std::string(py::str(a.dtype())) + " " + shape + ")";
}

// Byte of array channel c within a blue-green-red pixel.
int bgr_byte(Channels channels, int c)
{
    return channels == Channels::rgb ? 2 - c : c;
}

} // namespace

ArrayView inspect(py::array array, Channels channels)
{
    ArrayView v;
    // Equivalent types, in native byte order: a big-endian uint16 array is not taken for one.
    const bool u8 = py::array_t<uint8_t>::check_(array);
    const bool u16 = py::array_t<uint16_t>::check_(array);
    if (array.ndim() == 2 && (u8 || u16))
        v.bits = u8 ? 8 : 16;
    else if (array.ndim() == 3 && array.shape(2) == 3 && u8)
        v.bits = 24;
    else
        throw py::type_error("an image is a uint8 (H, W), uint16 (H, W) or uint8 (H, W, 3) array, not " +
                             describe(array));
    if (v.bits == 24 && channels == Channels::none)
        throw py::value_error("a colour (H, W, 3) array needs its channel order: channels='rgb' or channels='bgr'");
    if (array.shape(0) < 1 || array.shape(1) < 1)
        throw py::value_error("an image needs at least one row and one column, not " + describe(array));
    if (array.shape(0) > INT32_MAX || array.shape(1) > INT32_MAX)
        throw py::value_error("image too large: " + describe(array));
    v.channels = v.bits == 24 ? channels : Channels::none;
    v.height = static_cast<long>(array.shape(0));
    v.width = static_cast<long>(array.shape(1));
    v.row_stride = array.strides(0);
    v.col_stride = array.strides(1);
    v.chan_stride = v.bits == 24 ? array.strides(2) : 0;
    v.data = static_cast<const unsigned char *>(array.data());
    v.array = std::move(array);
    return v;
}

void copy_in(const ArrayView & v, kevra::CDib & dib)
{
    kevra::CDib made(static_cast<int>(v.width), static_cast<int>(v.height), v.bits);
    if (!made.IsOK())
        throw Error("cannot create a " + std::to_string(v.width) + " x " + std::to_string(v.height) + " " +
                    std::to_string(v.bits) + "-bit image (not enough memory, or beyond the image size limit)");
    const int pitch = made.Pitch();
    unsigned char * bits = made.GetBits();
    const int byte0 = bgr_byte(v.channels, 0), byte1 = bgr_byte(v.channels, 1), byte2 = bgr_byte(v.channels, 2);
    for (long y = 0; y < v.height; ++y) {
        // Picture row y (top first) is memory row height - 1 - y.
        unsigned char * out = bits + static_cast<std::ptrdiff_t>(pitch) * (v.height - 1 - y);
        const unsigned char * in = v.data + v.row_stride * y;
        for (long x = 0; x < v.width; ++x, in += v.col_stride) {
            if (v.bits == 8) {
                out[x] = *in;
            } else if (v.bits == 16) {
                uint16_t s;
                std::memcpy(&s, in, 2);
                out[2 * x] = static_cast<unsigned char>(s & 0xFF);
                out[2 * x + 1] = static_cast<unsigned char>(s >> 8);
            } else {
                out[3 * x + byte0] = in[0];
                out[3 * x + byte1] = in[v.chan_stride];
                out[3 * x + byte2] = in[2 * v.chan_stride];
            }
        }
    }
    made.ReleaseBits();
    dib.SwapImage(made);
}

py::array copy_out(kevra::CDib & dib, Channels channels)
{
    const int bits = dib.BitCount();
    if (bits != 8 && bits != 16 && bits != 24)
        throw py::value_error("only 8, 16 and 24-bit images become arrays; this one is " + std::to_string(bits) +
                              "-bit (Dib.copy_to_bits converts between 8 and 16)");
    if (bits == 24 && channels == Channels::none)
        throw py::value_error("a colour image needs its channel order: channels='rgb' or channels='bgr'");
    const py::ssize_t h = dib.Height(), w = dib.Width();
    py::array out = bits == 8    ? py::array(py::dtype::of<uint8_t>(), {h, w})
                    : bits == 16 ? py::array(py::dtype::of<uint16_t>(), {h, w})
                                 : py::array(py::dtype::of<uint8_t>(), {h, w, py::ssize_t(3)});
    auto * dst = static_cast<unsigned char *>(out.mutable_data());
    const unsigned char * src = dib.GetBits();
    const int pitch = dib.Pitch();
    const int byte0 = bgr_byte(channels, 0), byte1 = bgr_byte(channels, 1), byte2 = bgr_byte(channels, 2);
    {
        py::gil_scoped_release unlocked;
        const std::size_t row_bytes = static_cast<std::size_t>(w) * (bits / 8);
        for (py::ssize_t y = 0; y < h; ++y) {
            const unsigned char * in = src + static_cast<std::ptrdiff_t>(pitch) * (h - 1 - y);
            unsigned char * o = dst + row_bytes * y;
            if (bits == 8) {
                std::memcpy(o, in, row_bytes);
            } else if (bits == 16) {
                for (py::ssize_t x = 0; x < w; ++x) {
                    const uint16_t s = static_cast<uint16_t>(in[2 * x] | (in[2 * x + 1] << 8));
                    std::memcpy(o + 2 * x, &s, 2);
                }
            } else {
                for (py::ssize_t x = 0; x < w; ++x) {
                    o[3 * x] = in[3 * x + byte0];
                    o[3 * x + 1] = in[3 * x + byte1];
                    o[3 * x + 2] = in[3 * x + byte2];
                }
            }
        }
    }
    return out;
}

void apply_zone(kevra::CDib & dib, const Zone & zone)
{
    if (!zone)
        return;
    const auto [l, t, r, b] = *zone;
    dib.SetZoneTravail(kevra::CRect(l, t, r, b));
}

std::wstring widen(const std::string & utf8)
{
    std::wstring out; // Python hands over valid UTF-8
    kevra::platform::from_utf8(utf8, out);
    return out;
}

namespace {
thread_local std::string t_notices;

void note(const std::string & text)
{
    t_notices += (t_notices.empty() ? "" : "; ") + text;
}
} // namespace

void install_notice_handlers()
{
    kevra::platform::set_message_box_handler([](const char * text) { note(text != nullptr ? text : ""); });
    kevra::platform::set_debug_output_handler(
        [](const wchar_t * text) { note(text != nullptr ? kevra::platform::to_utf8(text) : ""); });
}

std::string take_notices()
{
    std::string n;
    n.swap(t_notices);
    return n;
}

std::string notice_suffix()
{
    const std::string n = take_notices();
    return n.empty() ? std::string() : " (" + n + ")";
}

} // namespace kevra_py
