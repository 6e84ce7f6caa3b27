// Chain: the sequencer as a Python object. Its steps are the kevra command
// line's process options, built by the same code, so that a chain run gives
// the bytes `kevra process` writes for the same options.
#include "arrays.h"
#include "operations.h"
#include "steps_bridge.h"

#include "kevra/platform.h"
#include "kevra/sequenceur.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <chrono>

namespace kevra_py {

using kevra::CSequenceur;

namespace {

// The sequencer reads the millisecond clock before and after each timed step.
// This clock also counts the readings of the running thread, which tells at
// which step a failed run stopped.
thread_local bool t_counting = false;
thread_local std::size_t t_readings = 0;

void install_step_clock()
{
    static const auto start = std::chrono::steady_clock::now();
    kevra::platform::set_tick_count_handler([] {
        if (t_counting)
            ++t_readings;
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        return static_cast<uint32_t>(ms.count());
    });
}

using kevra_cli::timed;

class Chain {
public:
    Chain & add(const std::string & name, const std::string & value)
    {
        for (const auto & o : options_)
            if (o.first == name)
                throw py::value_error("--" + name + ": given twice (each step option may be given once)");
        Options next = options_;
        next.emplace_back(name, value);
        steps_ = build_steps(next); // raises ValueError, leaving the chain as it was
        options_ = std::move(next);
        return *this;
    }

    const Options & options() const { return options_; }
    const std::vector<Step> & steps() const { return steps_; }

    py::array run(py::array image, const Zone & zone, const std::optional<std::string> & channels) const
    {
        if (steps_.empty())
            throw py::value_error("process: no step given");
        const Channels order = parse_channels(channels);
        const ArrayView view = inspect(std::move(image), order);
        for (const std::string & note : check_image(steps_, view.width, view.height, view.bits, zone))
            if (PyErr_WarnEx(PyExc_UserWarning, note.c_str(), 1) != 0)
                throw py::error_already_set(); // warnings turned into errors
        kevra::CDib dib;
        bool ok = false;
        std::size_t readings = 0;
        {
            py::gil_scoped_release unlocked;
            copy_in(view, dib);
            apply_zone(dib, zone);
            CSequenceur sequencer;
            for (const Step & s : steps_)
                sequencer.AddTraitement(s.code, s.params);
            take_notices();
            t_readings = 0;
            t_counting = true;
            ok = sequencer.Filtrer(&dib);
            t_counting = false;
            readings = t_readings;
        }
        if (!ok) {
            std::vector<const Step *> timed_steps;
            for (const Step & s : steps_)
                if (timed(s.code))
                    timed_steps.push_back(&s);
            const std::size_t pairs = readings / 2;
            const std::string where = pairs == 0 ? "before the first step"
                                                 : "at " + timed_steps[std::min(pairs, timed_steps.size()) - 1]->option;
            throw Error("processing failed " + where + ": the library could not complete it (not enough memory?)" +
                        notice_suffix());
        }
        return copy_out(dib, order);
    }

private:
    Options options_;
    std::vector<Step> steps_;
};

std::string opt(const std::optional<double> & v, double fallback)
{
    return number(v ? *v : fallback);
}

} // namespace

void bind_chain(py::module_ & m)
{
    install_step_clock();
    const auto ref = py::return_value_policy::reference_internal;
    py::class_<Chain>(m, "Chain",
                      "A chain of sequencer steps (CSequenceur), built like `kevra process` options:\n\n"
                      "    kevra.Chain().median(0.2, 3).unsharp(2, 1.5).gamma(0.8).run(image)\n\n"
                      "Each method adds the step of the command-line option of the same name, checks its\n"
                      "values as the command line does (ValueError with its message) and returns the chain.\n"
                      "Steps run in the sequencer's fixed order whatever the order they were added in:\n"
                      "mirrors, quarter turn, median, filter, unsharp masking (zone, then disc), resampling,\n"
                      "black and white, negative, saturation, hue, whitening, histogram stretch; the look-up\n"
                      "steps (lut_palette, brightness/contrast/gamma, red/green/blue) are composed into one\n"
                      "table applied last. Each step may be given once.")
        .def(py::init<>())
        .def_static(
            "from_options",
            [](const std::vector<std::string> & args) {
                Chain c;
                for (std::size_t i = 0; i < args.size(); ++i) {
                    std::string a = args[i];
                    if (a.rfind("--", 0) != 0)
                        throw py::value_error("'" + a + "': expected a step option such as --median");
                    a = a.substr(2);
                    const std::size_t eq = a.find('=');
                    if (eq != std::string::npos)
                        c.add(a.substr(0, eq), a.substr(eq + 1));
                    else if (is_flag(a))
                        c.add(a, "");
                    else if (i + 1 < args.size())
                        c.add(a, args[++i]);
                    else
                        throw py::value_error("--" + a + ": a value is expected");
                }
                return c;
            },
            py::arg("args"),
            "A chain from `kevra process` step options, e.g. ['--median', '0.2,3', '--negative'].")
        .def("option", &Chain::add, py::arg("name"), py::arg("value") = "", ref,
             "Adds the step of a `kevra process` option by name and value text, e.g.\n"
             "option('median', 'tolerance=0.2,radius=3'); value '' for flags.")
        .def(
            "mirror_vertical", [](Chain & c) -> Chain & { return c.add("mirror-vertical", ""); }, ref,
            doc("Adds the step e_Mirroir_Vertical.", {"mirror-vertical"}))
        .def(
            "mirror_horizontal", [](Chain & c) -> Chain & { return c.add("mirror-horizontal", ""); }, ref,
            doc("Adds the step e_Mirroir_Horizontal.", {"mirror-horizontal"}))
        .def(
            "rotate", [](Chain & c, long long d) -> Chain & { return c.add("rotate", number(d)); }, py::arg("degrees"),
            ref, doc("Adds the step e_QuickRotate.", {"rotate"}))
        .def(
            "median",
            [](Chain & c, double t, long long r) -> Chain & { return c.add("median", number(t) + "," + number(r)); },
            py::arg("tolerance"), py::arg("radius"), ref, doc("Adds the step e_FiltreMedian.", {"median"}))
        .def(
            "filter",
            [](Chain & c, py::object k, std::optional<long long> size, std::optional<double> param) -> Chain & {
                return c.add("filter", filter_value(name_or_number(k), size, param));
            },
            py::arg("kind"), py::arg("size") = py::none(), py::arg("param") = py::none(), ref,
            doc("Adds the step e_Filtre.", {"filter"}))
        .def(
            "unsharp",
            [](Chain & c, double radius, double gp, std::optional<double> gn, double tp,
               std::optional<double> tn) -> Chain & {
                return c.add("unsharp", number(radius) + "," + number(gp) + "," + opt(gn, gp) + "," + number(tp) +
                                            "," + opt(tn, tp));
            },
            py::arg("radius"), py::arg("gain_pos"), py::arg("gain_neg") = py::none(), py::arg("threshold_pos") = 0.0,
            py::arg("threshold_neg") = py::none(), ref, doc("Adds the step e_UnsharpMasking.", {"unsharp"}))
        .def(
            "unsharp_disc",
            [](Chain & c, long long x, long long y, long long disc, double radius, double gp, std::optional<double> gn,
               double tp, std::optional<double> tn) -> Chain & {
                return c.add("unsharp-disc", number(x) + "," + number(y) + "," + number(disc) + "," + number(radius) +
                                                 "," + number(gp) + "," + opt(gn, gp) + "," + number(tp) + "," +
                                                 opt(tn, tp));
            },
            py::arg("x"), py::arg("y"), py::arg("disc"), py::arg("radius"), py::arg("gain_pos"),
            py::arg("gain_neg") = py::none(), py::arg("threshold_pos") = 0.0, py::arg("threshold_neg") = py::none(),
            ref, doc("Adds the step e_UnsharpMaskingCircle.", {"unsharp-disc"}))
        .def(
            "resample",
            [](Chain & c, long long w, long long h, long long mode) -> Chain & {
                return c.add("resample", number(w) + "x" + number(h) + "," + number(mode));
            },
            py::arg("width"), py::arg("height"), py::arg("mode") = 0, ref,
            doc("Adds the step e_Resample.", {"resample"}))
        .def(
            "black_white", [](Chain & c) -> Chain & { return c.add("black-white", ""); }, ref,
            doc("Adds the step e_NoirEtBlanc.", {"black-white"}))
        .def(
            "negative", [](Chain & c) -> Chain & { return c.add("negative", ""); }, ref,
            doc("Adds the step e_Negatif.", {"negative"}))
        .def(
            "saturation", [](Chain & c, long long p) -> Chain & { return c.add("saturation", number(p)); },
            py::arg("percent"), ref, doc("Adds the step e_Saturation.", {"saturation"}))
        .def(
            "hue", [](Chain & c, long long p) -> Chain & { return c.add("hue", number(p)); }, py::arg("percent"), ref,
            doc("Adds the step e_Teinte.", {"hue"}))
        .def(
            "whiten", [](Chain & c, long long p) -> Chain & { return c.add("whiten", number(p)); }, py::arg("percent"),
            ref, doc("Adds the step e_Blanchiment.", {"whiten"}))
        .def(
            "lut_palette", [](Chain & c, py::object p) -> Chain & { return c.add("lut-palette", name_or_number(p)); },
            py::arg("palette"), ref, doc("Adds the step e_LUT.", {"lut-palette"}))
        .def(
            "brightness", [](Chain & c, double v) -> Chain & { return c.add("brightness", number(v)); },
            py::arg("value"), ref, doc("Adds the step e_LUT_LuminositeContrasteGamma.", {"brightness"}))
        .def(
            "contrast", [](Chain & c, double v) -> Chain & { return c.add("contrast", number(v)); }, py::arg("value"),
            ref, doc("Adds the step e_LUT_LuminositeContrasteGamma.", {"contrast"}))
        .def(
            "gamma", [](Chain & c, double v) -> Chain & { return c.add("gamma", number(v)); }, py::arg("value"), ref,
            doc("Adds the step e_LUT_LuminositeContrasteGamma.", {"gamma"}))
        .def(
            "red", [](Chain & c, long long v) -> Chain & { return c.add("red", number(v)); }, py::arg("percent"), ref,
            doc("Adds the step e_LUT_RougeVertBleu.", {"red"}))
        .def(
            "green", [](Chain & c, long long v) -> Chain & { return c.add("green", number(v)); }, py::arg("percent"),
            ref, doc("Adds the step e_LUT_RougeVertBleu.", {"green"}))
        .def(
            "blue", [](Chain & c, long long v) -> Chain & { return c.add("blue", number(v)); }, py::arg("percent"),
            ref, doc("Adds the step e_LUT_RougeVertBleu.", {"blue"}))
        .def(
            "stretch",
            [](Chain & c, double lo, double hi) -> Chain & { return c.add("stretch", number(lo) + "," + number(hi)); },
            py::arg("low"), py::arg("high"), ref, doc("Adds the step e_EgalisationHistogramme.", {"stretch"}))
        .def_property_readonly(
            "steps",
            [](const Chain & c) {
                std::vector<std::string> out;
                for (const Step & s : c.steps())
                    out.push_back(s.option);
                return out;
            },
            "The steps as command-line options, in the order the sequencer runs them.")
        .def("run", &Chain::run, py::arg("image"), py::kw_only(), py::arg("zone") = py::none(),
             py::arg("channels") = py::none(),
             "Runs the chain over the image's zone (CSequenceur::Filtrer) and returns the result as a new\n"
             "array (its size may change). Colour-only steps on a grey image raise ValueError; look-up\n"
             "steps that grey images skip give a UserWarning. A failed run raises kevra.Error.")
        .def("__repr__", [](const Chain & c) {
            std::string s = "<kevra.Chain";
            for (const Step & b : c.steps())
                s += " " + b.option;
            return s + ">";
        });
}

} // namespace kevra_py
