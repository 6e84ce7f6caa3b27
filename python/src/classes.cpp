// Classes of the module: Dib (the library's image), the look-up tables, Filter,
// and the BMP file functions.
#include "arrays.h"
#include "operations.h"
#include "steps_bridge.h"

#include "kevra/filtre.h"
#include "kevra/lut.h"
#include "kevra/traitement.h"

#include <pybind11/stl.h>

#include <memory>
#include <vector>

namespace kevra_py {

using kevra::CDib;
using Channel = std::optional<std::string>;

namespace {

std::unique_ptr<CDib> load(const std::string & path)
{
    auto dib = std::make_unique<CDib>();
    bool ok = false;
    {
        py::gil_scoped_release unlocked;
        ok = dib->Load(widen(path).c_str(), 0);
    }
    if (!ok || !dib->IsOK()) {
        const char * why = dib->GetLastError();
        throw Error(path + ": cannot read" + (why != nullptr && *why ? std::string(": ") + why : std::string()));
    }
    return dib;
}

void save(CDib & dib, const std::string & path)
{
    bool ok = false;
    {
        py::gil_scoped_release unlocked;
        ok = dib.Save(widen(path).c_str(), 0);
    }
    if (!ok) {
        const char * why = dib.GetLastError();
        throw Error(path + ": cannot write" + (why != nullptr && *why ? std::string(": ") + why : std::string()));
    }
}

std::unique_ptr<CDib> from_array(py::array array, const Channel & channels)
{
    const ArrayView view = inspect(std::move(array), parse_channels(channels));
    auto dib = std::make_unique<CDib>();
    py::gil_scoped_release unlocked;
    copy_in(view, *dib);
    return dib;
}

std::unique_ptr<CDib> converted(CDib & source, int bits)
{
    if (bits != 8 && bits != 16)
        throw py::value_error("bits must be 8 or 16, not " + std::to_string(bits));
    if (source.BitCount() != 8 && source.BitCount() != 16)
        throw py::value_error("only 8 and 16-bit images convert (this one is " + std::to_string(source.BitCount()) +
                              "-bit)");
    CDib out(static_cast<int>(source.Width()), static_cast<int>(source.Height()), bits);
    bool ok = out.IsOK();
    if (ok) {
        py::gil_scoped_release unlocked;
        take_notices();
        ok = out.CopyToDifferentBpp(source);
    }
    if (!ok)
        throw Error("CopyToDifferentBpp failed" + notice_suffix());
    auto result = std::make_unique<CDib>();
    result->SwapImage(out);
    return result;
}

// A writable array over a table owned by a Python object.
template <class T>
py::array table_view(T * data, py::ssize_t n, py::handle owner)
{
    return py::array_t<T>({n}, {py::ssize_t(sizeof(T))}, data, owner);
}

// One channel of a colour table, as a writable view.
template <kevra::CLUT_8_Bpp & (kevra::CLUT_24_Bpp::*Channel)()>
py::array channel_view(py::object self)
{
    return table_view((self.cast<kevra::CLUT_24_Bpp &>().*Channel)().Donne_Table(), 256, self);
}

template <class T>
void set_table(T * data, std::size_t n, const py::array & values)
{
    const auto a = py::array_t<T, py::array::c_style>::ensure(values);
    if (!a || a.ndim() != 1 || static_cast<std::size_t>(a.shape(0)) != n || !values.dtype().is(py::dtype::of<T>()))
        throw py::value_error("a table is " + std::to_string(n) + " entries of " +
                              std::string(py::str(py::dtype::of<T>())));
    std::copy(a.data(), a.data() + n, data);
}

// Applies a copy of the table (so that the lock can be let go) with CLUT::Filtre.
template <class Lut>
py::array apply_lut(const Lut & lut, py::array image, const Zone & zone, const Channel & channels)
{
    const Channels order = parse_channels(channels);
    const ArrayView view = inspect(std::move(image), order);
    check_zone(zone, view.width, view.height);
    auto copy = std::make_unique<Lut>(lut);
    CDib dib;
    bool ok = false;
    {
        py::gil_scoped_release unlocked;
        copy_in(view, dib);
        apply_zone(dib, zone);
        ok = copy->Filtre(&dib);
    }
    if (!ok)
        throw Error("Filtre: a " + std::to_string(copy->GetBpp()) + "-bit table does not apply to a " +
                    std::to_string(view.bits) + "-bit image");
    return copy_out(dib, order);
}

// A filter is kept as its description and built afresh for each use, so that
// threads share nothing and offset and factor never stay from an earlier call.
struct Filter {
    bool separable_form = true;
    kevra::CFiltre::e_Filtre kind_x = kevra::CFiltre::Filtre_Moyenne, kind_y = kevra::CFiltre::Filtre_Moyenne;
    unsigned short size_x = 3, size_y = 3;
    float param_x = 1, param_y = 1;
    std::vector<float> coefficients; // library order: row 0 = bottom row of the neighbourhood
    unsigned short width = 0, height = 0;

    std::unique_ptr<kevra::CFiltre> make() const
    {
        if (separable_form)
            return std::make_unique<kevra::CFiltre>(kind_x, size_x, kind_y, size_y, param_x, param_y);
        std::vector<float> c = coefficients;
        return std::make_unique<kevra::CFiltre>(c.data(), width, height);
    }
};

py::array half_table(const Filter & f, bool x)
{
    auto built = f.make();
    const float * t = x ? built->Donne_TabFiltreX() : built->Donne_TabFiltreY();
    if (t == nullptr)
        return py::array_t<float>(0);
    const std::size_t n = (x ? f.size_x : f.size_y) / 2 + 1;
    py::array_t<float> out(static_cast<py::ssize_t>(n));
    std::copy(t, t + n, out.mutable_data());
    return out;
}

kevra::CFiltre::e_Filtre kind_of(const py::object & kind)
{
    return one_step("filter", name_or_number(kind)).params.filtre;
}

} // namespace

void bind_classes(py::module_ & m)
{
    py::class_<CDib>(m, "Dib",
                     "The library's image (CDib): 8 or 16-bit grey or 24-bit colour, rows bottom-up inside.\n"
                     "Built from an array (one copy) or read from a BMP file; to_array copies back once.")
        .def(py::init(&from_array), py::arg("array"), py::kw_only(), py::arg("channels") = py::none(),
             "An image holding the array's pixels (channels='rgb' or 'bgr' for a colour array).")
        .def_static(
            "read", [](const std::string & path) { return load(path); }, py::arg("path"),
            "Reads a BMP file (CDibRoot::Load); raises kevra.Error with the codec's reason.")
        .def(
            "save", [](CDib & d, const std::string & path) { save(d, path); }, py::arg("path"),
            "Writes a BMP file (CDibRoot::Save); raises kevra.Error with the codec's reason.")
        .def(
            "to_array", [](CDib & d, Channel channels) { return copy_out(d, parse_channels(channels)); },
            py::kw_only(), py::arg("channels") = py::none(), "The pixels as a new array, top row first.")
        .def(
            "copy", [](CDib & d) { return std::make_unique<CDib>(d); }, "A deep copy (pixels, zone, resolution).")
        .def(
            "copy_to_bits", [](CDib & d, int bits) { return converted(d, bits); }, py::arg("bits"),
            "A new image of 8 or 16 bits made from this 8 or 16-bit one (CopyToDifferentBpp).")
        .def_property_readonly("width", [](const CDib & d) { return d.Width(); })
        .def_property_readonly("height", [](const CDib & d) { return d.Height(); })
        .def_property_readonly("bits", [](const CDib & d) { return d.BitCount(); }, "BitCount()")
        .def_property(
            "zone",
            [](const CDib & d) {
                const kevra::CRect r = d.BoundingRectangle();
                return py::make_tuple(r.left, r.top, r.right, r.bottom);
            },
            [](CDib & d, std::tuple<int, int, int, int> z) { apply_zone(d, Zone(z)); },
            "Working zone (SetZoneTravail / BoundingRectangle): inclusive, row 0 at the top, clamped\n"
            "to the image when set.")
        .def_property(
            "pels_per_metre",
            [](const CDib & d) { return py::make_tuple(d.GetXPelsPerMeter(), d.GetYPelsPerMeter()); },
            [](CDib & d, std::tuple<unsigned long, unsigned long> v) {
                d.SetXPelsPerMeter(std::get<0>(v));
                d.SetYPelsPerMeter(std::get<1>(v));
            },
            "Resolution (x, y) in pels per metre, as stored in the BMP header.")
        .def("__repr__", [](const CDib & d) {
            return "<kevra.Dib " + std::to_string(d.Width()) + " x " + std::to_string(d.Height()) + ", " +
                   std::to_string(d.BitCount()) + " bits>";
        });

    m.def(
        "read_bmp",
        [](const std::string & path, Channel channels) {
            return copy_out(*load(path), parse_channels(channels));
        },
        py::arg("path"), py::kw_only(), py::arg("channels") = py::none(),
        "Reads an 8, 16 or 24-bit BMP file into a new array (channels='rgb' or 'bgr' for colour).\n"
        "An 8-bit file with a colour palette gives its palette indices.");
    m.def(
        "write_bmp",
        [](const std::string & path, py::array image, Channel channels) {
            auto d = from_array(std::move(image), channels);
            save(*d, path);
        },
        py::arg("path"), py::arg("image"), py::kw_only(), py::arg("channels") = py::none(),
        "Writes an array as a BMP file of its depth (8 and 16-bit files carry the grey palette).");
    m.def(
        "convert",
        [](py::array image, int bits) {
            auto d = from_array(std::move(image), py::none().cast<Channel>());
            return copy_out(*converted(*d, bits), Channels::none);
        },
        py::arg("image"), py::arg("bits"),
        "A grey array converted to 8 or 16 bits (CopyToDifferentBpp): uint8 <-> uint16.");

    // ---- look-up tables ----------------------------------------------------------
    py::class_<kevra::CLUT_8_Bpp>(m, "CLUT_8_Bpp", "8-bit look-up table: 256 levels mapped to new levels.")
        .def(py::init([](std::optional<py::array> table) {
                 auto lut = std::make_unique<kevra::CLUT_8_Bpp>();
                 if (table)
                     set_table(lut->Donne_Table(), 256, *table);
                 return lut;
             }),
             py::arg("table") = py::none(), "Identity, or a copy of 256 uint8 entries.")
        .def_property(
            "table", [](py::object self) {
                return table_view(self.cast<kevra::CLUT_8_Bpp &>().Donne_Table(), 256, self);
            },
            [](kevra::CLUT_8_Bpp & l, py::array t) { set_table(l.Donne_Table(), 256, t); },
            "The 256 entries (Donne_Table), a writable view.")
        .def("SetLuminositeConstrateGamma", &kevra::CLUT_8_Bpp::SetLuminositeConstrateGamma, py::arg("luminosite"),
             py::arg("contraste"), py::arg("gamma"), "Rebuilds the table from brightness, contrast and gamma.")
        .def("SetContraste", &kevra::CLUT::SetContraste, py::arg("contraste"))
        .def(
            "Combiner", [](kevra::CLUT_8_Bpp & l, kevra::CLUT_8_Bpp & o) { l.Combiner(&o); }, py::arg("other"),
            "Entry i becomes other[entry i]: this table first, other on its result.")
        .def(
            "Copier", [](kevra::CLUT_8_Bpp & l, kevra::CLUT_8_Bpp & o) { l.Copier(&o); }, py::arg("other"))
        .def("IsLinear45", &kevra::CLUT_8_Bpp::IsLinear45)
        .def("apply", &apply_lut<kevra::CLUT_8_Bpp>, py::arg("image"), py::kw_only(), py::arg("zone") = py::none(),
             py::arg("channels") = py::none(), "The table applied to a uint8 (H, W) array's zone (Filtre).");

    py::class_<kevra::CLUT_16_Bpp>(m, "CLUT_16_Bpp", "16-bit look-up table: 65536 levels mapped to new levels.")
        .def(py::init([](std::optional<py::array> table) {
                 auto lut = std::make_unique<kevra::CLUT_16_Bpp>();
                 if (table)
                     set_table(lut->Donne_Table(), 65536, *table);
                 return lut;
             }),
             py::arg("table") = py::none(),
             "Identity, or a copy of all 65536 uint16 entries (unlike the C++ constructor, which copies\n"
             "65536 bytes).")
        .def_property(
            "table", [](py::object self) {
                return table_view(self.cast<kevra::CLUT_16_Bpp &>().Donne_Table(), 65536, self);
            },
            [](kevra::CLUT_16_Bpp & l, py::array t) { set_table(l.Donne_Table(), 65536, t); },
            "The 65536 entries (Donne_Table), a writable view.")
        .def("SetLuminositeConstrateGamma", &kevra::CLUT_16_Bpp::SetLuminositeConstrateGamma,
             py::arg("luminosite"), py::arg("contraste"), py::arg("gamma"))
        .def("SetContraste", &kevra::CLUT::SetContraste, py::arg("contraste"))
        .def(
            "Combiner", [](kevra::CLUT_16_Bpp & l, kevra::CLUT_16_Bpp & o) { l.Combiner(&o); }, py::arg("other"))
        .def(
            "Copier", [](kevra::CLUT_16_Bpp & l, kevra::CLUT_16_Bpp & o) { l.Copier(&o); }, py::arg("other"))
        .def("IsLinear45", &kevra::CLUT_16_Bpp::IsLinear45)
        .def("apply", &apply_lut<kevra::CLUT_16_Bpp>, py::arg("image"), py::kw_only(), py::arg("zone") = py::none(),
             py::arg("channels") = py::none(), "The table applied to a uint16 (H, W) array's zone (Filtre).");

    py::class_<kevra::CLUT_24_Bpp>(m, "CLUT_24_Bpp",
                                   "Colour table: a red, a green and a blue 8-bit table (also a grey image's\n"
                                   "display palette).")
        .def(py::init([](py::object palette) {
                 auto lut = std::make_unique<kevra::CLUT_24_Bpp>();
                 if (!palette.is_none()) {
                     take_notices();
                     if (!lut->SetPalette(one_step("lut-palette", name_or_number(palette)).params.Palette))
                         throw Error("SetPalette failed" + notice_suffix());
                 }
                 return lut;
             }),
             py::arg("palette") = py::none(), "Identity tables, or a predefined palette (SetPalette).")
        .def_property_readonly(
            "red", &channel_view<&kevra::CLUT_24_Bpp::Donne_Rouge>,
            "Red table (Donne_Rouge), a writable view.")
        .def_property_readonly(
            "green", &channel_view<&kevra::CLUT_24_Bpp::Donne_Vert>,
            "Green table (Donne_Vert), a writable view.")
        .def_property_readonly(
            "blue", &channel_view<&kevra::CLUT_24_Bpp::Donne_Bleu>,
            "Blue table (Donne_Bleu), a writable view.")
        .def("SetLuminositeConstrateGamma", &kevra::CLUT_24_Bpp::SetLuminositeConstrateGamma,
             py::arg("luminosite"), py::arg("contraste"), py::arg("gamma"))
        .def("SetContraste", &kevra::CLUT::SetContraste, py::arg("contraste"))
        .def("SetPalette", [](kevra::CLUT_24_Bpp & l, int p) {
                 take_notices();
                 if (!l.SetPalette(static_cast<kevra::e_Palette>(p)))
                     throw Error("SetPalette failed" + notice_suffix());
             }, py::arg("palette"), "11, 12, 21, 22 or 23; another value raises kevra.Error.")
        .def("ReglageRouge", &kevra::CLUT_24_Bpp::ReglageRouge, py::arg("x"))
        .def("ReglageVert", &kevra::CLUT_24_Bpp::ReglageVert, py::arg("x"))
        .def("ReglageBleu", &kevra::CLUT_24_Bpp::ReglageBleu, py::arg("x"))
        .def("ReglageRougeVertBleu", &kevra::CLUT_24_Bpp::ReglageRougeVertBleu, py::arg("rouge"), py::arg("vert"),
             py::arg("bleu"))
        .def(
            "Combiner", [](kevra::CLUT_24_Bpp & l, kevra::CLUT_24_Bpp & o) { l.Combiner(&o); }, py::arg("other"))
        .def(
            "Copier", [](kevra::CLUT_24_Bpp & l, kevra::CLUT_24_Bpp & o) { l.Copier(&o); }, py::arg("other"))
        .def("apply", &apply_lut<kevra::CLUT_24_Bpp>, py::arg("image"), py::kw_only(), py::arg("zone") = py::none(),
             py::arg("channels") = py::none(),
             "The table applied to a colour array's zone (Filtre): red table to the red channel, and so on.");

    // ---- filters -------------------------------------------------------------------
    py::class_<Filter>(m, "Filter",
                       "A convolution filter (CFiltre): a catalogue kind or the caller's kernel. Built afresh\n"
                       "for each apply, so one Filter can serve several threads.")
        .def(py::init([](py::object kind, std::optional<long long> size, std::optional<double> param) {
                 Filter f;
                 const auto p = one_step("filter", filter_value(name_or_number(kind), size, param)).params;
                 f.kind_x = f.kind_y = p.filtre;
                 f.size_x = f.size_y = p.taille;
                 f.param_x = f.param_y = p.param;
                 return f;
             }),
             py::arg("kind"), py::arg("size") = py::none(), py::arg("param") = py::none(),
             "CFiltre(kind, size, param); kind as for kevra.filter.")
        .def_static(
            "separable",
            [](py::object kind_x, unsigned short size_x, py::object kind_y, unsigned short size_y, float param_x,
               float param_y) {
                Filter f;
                f.kind_x = kind_of(kind_x);
                f.kind_y = kind_of(kind_y);
                f.size_x = size_x;
                f.size_y = size_y;
                f.param_x = param_x;
                f.param_y = param_y;
                return f;
            },
            py::arg("kind_x"), py::arg("size_x"), py::arg("kind_y"), py::arg("size_y"), py::arg("param_x") = 1.0,
            py::arg("param_y") = 1.0,
            "CFiltre(kindX, sizeX, kindY, sizeY, paramX, paramY): separable kinds may differ across and down.")
        .def_static(
            "kernel",
            [](py::array coefficients) {
                const auto a = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(coefficients);
                if (!a || a.ndim() != 2 || a.shape(0) % 2 == 0 || a.shape(1) % 2 == 0 || a.shape(0) > 65535 ||
                    a.shape(1) > 65535)
                    throw py::value_error("a kernel is a 2-D array of odd height and odd width");
                Filter f;
                f.separable_form = false;
                f.height = static_cast<unsigned short>(a.shape(0));
                f.width = static_cast<unsigned short>(a.shape(1));
                // Picture order (row 0 at the top) to the library's (row 0 = bottom row).
                for (py::ssize_t r = a.shape(0) - 1; r >= 0; --r)
                    for (py::ssize_t c = 0; c < a.shape(1); ++c)
                        f.coefficients.push_back(a.at(r, c));
                return f;
            },
            py::arg("coefficients"),
            "A user kernel: a 2-D array of odd height and width, row 0 at the top like the images (the\n"
            "library's CFiltre(coefficients, width, height) counts rows from the bottom). A correlation,\n"
            "never normalised.")
        .def("IsOK", [](const Filter & f) { return f.make()->IsOK(); }, "Whether the kernel was built.")
        .def_property_readonly("table_x", [](const Filter & f) { return half_table(f, true); },
                               "Normalised half table across (Donne_TabFiltreX); empty for a full kernel.")
        .def_property_readonly("table_y", [](const Filter & f) { return half_table(f, false); },
                               "Normalised half table down (Donne_TabFiltreY); empty for a full kernel.")
        .def(
            "apply",
            [](const Filter & f, py::array image, Zone zone, Channel channels, std::optional<float> offset,
               std::optional<float> factor) {
                const Channels order = parse_channels(channels);
                const ArrayView view = inspect(std::move(image), order);
                check_zone(zone, view.width, view.height);
                CDib dib;
                bool ok = false;
                {
                    py::gil_scoped_release unlocked;
                    copy_in(view, dib);
                    apply_zone(dib, zone);
                    auto built = f.make();
                    ok = offset || factor ? built->FiltrerAvecOffsetFacteur(&dib, offset.value_or(0.0f),
                                                                            factor.value_or(1.0f))
                                          : built->Filtrer(&dib);
                }
                if (!ok)
                    throw Error("Filtrer: the filter is not valid (IsOK false) or no work buffer could be had");
                return copy_out(dib, order);
            },
            py::arg("image"), py::kw_only(), py::arg("zone") = py::none(), py::arg("channels") = py::none(),
            py::arg("offset") = py::none(), py::arg("factor") = py::none(),
            "Filters the zone (Filtrer), results clipped to the depth's range. With offset or factor:\n"
            "FiltrerAvecOffsetFacteur, result * factor + offset (full kernels only).");
}

} // namespace kevra_py
