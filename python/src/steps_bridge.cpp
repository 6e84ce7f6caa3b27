#include "steps_bridge.h"

#include <pybind11/pybind11.h>

#include <cstdio>
#include <deque>
#include <sstream>
#include <cstdlib>

namespace kevra_py {

namespace {

kevra::CRect rect(const std::tuple<int, int, int, int> & z)
{
    return kevra::CRect(std::get<0>(z), std::get<1>(z), std::get<2>(z), std::get<3>(z));
}

} // namespace

std::vector<Step> build_steps(const Options & options)
{
    std::vector<Step> steps;
    try {
        steps = kevra_cli::build_steps(options);
    } catch (const kevra_cli::UsageError & e) {
        throw pybind11::value_error(e.what());
    }
    kevra::CSequenceur sequencer;
    for (const Step & s : steps)
        if (!sequencer.AddTraitement(s.code, s.params))
            throw pybind11::value_error(kevra_cli::refusal_text(s));
    return steps;
}

Step one_step(const std::string & name, const std::string & value)
{
    return build_steps({{name, value}}).at(0);
}

std::vector<std::string> check_image(const std::vector<Step> & steps, long width, long height, int bits,
                                     const std::optional<std::tuple<int, int, int, int>> & zone)
{
    try {
        const kevra::CRect r = zone ? rect(*zone) : kevra::CRect();
        return kevra_cli::check_image(steps, width, height, bits, zone ? &r : nullptr);
    } catch (const std::runtime_error & e) { // UsageError, ImageError
        throw pybind11::value_error(e.what());
    }
}

void check_zone(const std::optional<std::tuple<int, int, int, int>> & zone, long width, long height)
{
    if (!zone)
        return;
    try {
        kevra_cli::check_zone(rect(*zone), width, height, false);
    } catch (const kevra_cli::UsageError & e) {
        throw pybind11::value_error(e.what());
    }
}

bool is_flag(const std::string & name)
{
    for (const kevra_cli::StepOptionInfo & o : kevra_cli::step_options())
        if (name == o.name)
            return o.value_name == nullptr;
    return false;
}

std::string name_or_number(const pybind11::object & value)
{
    if (pybind11::isinstance<pybind11::str>(value))
        return value.cast<std::string>();
    return number(value.cast<long long>());
}

std::string filter_value(const std::string & kind, const std::optional<long long> & size,
                         const std::optional<double> & param)
{
    return kind + (size ? "," + number(*size) : "") + (param ? (size ? "," : ",param=") + number(*param) : "");
}

namespace {

std::string wrap(const std::string & text, std::size_t width)
{
    std::istringstream words(text);
    std::string out, line, word;
    while (words >> word) {
        if (!line.empty() && line.size() + 1 + word.size() > width) {
            out += line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + line;
}

} // namespace

const char * doc(const std::string & lead, const std::vector<std::string> & options)
{
    static std::deque<std::string> texts;
    std::string text = lead;
    for (const std::string & name : options)
        for (const kevra_cli::StepOptionInfo & o : kevra_cli::step_options())
            if (name == o.name)
                text += "\n\n" + wrap("--" + name + (o.value_name ? std::string(" ") + o.value_name : "") + ": " +
                                           o.help,
                                       92);
    texts.push_back(text);
    return texts.back().c_str();
}

std::string number(double value)
{
    char text[40];
    for (int digits = 1; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, value);
        if (std::strtod(text, nullptr) == value)
            break;
    }
    return text;
}

std::string number(long long value)
{
    return std::to_string(value);
}

} // namespace kevra_py
