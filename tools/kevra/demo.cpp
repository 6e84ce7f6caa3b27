// `kevra demo`: made-up dental pictures run through representative chains,
// written as BMP files with a page showing them side by side.
#include "commands.h"
#include "common.h"
#include "imageio.h"
#include "pictures.h"
#include "run.h"
#include "steps.h"
#include "synth.h"

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace kevra_cli {

namespace {

using OptionList = std::vector<std::pair<std::string, std::string>>;

struct DemoOptions {
    std::string dir = "kevra-demo";
};

std::string html_escape(const std::string & s)
{
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string command_line(const std::string & in, const std::string & out, const OptionList & options)
{
    std::string s = "kevra process " + in + " " + out;
    for (const auto & o : options)
        s += " --" + o.first + (o.second.empty() ? "" : (o.second[0] == '-' ? "=" : " ") + o.second);
    return s;
}

// What one part of the page shows.
struct Section {
    std::string title;
    std::string description;
    std::string command;
    std::string input_preview;
    std::string result_preview;
    std::string input_histogram;
    std::string result_histogram;
    std::string curves;
    std::string curves_caption;
    std::vector<std::string> files;
    std::vector<StepTime> times;
};

class Demo {
public:
    explicit Demo(std::string dir) : dir_(std::move(dir)) {}

    void save(kevra::CDib & image, const std::string & name, Section & section)
    {
        save_image(image, dir_ + "/" + name, "bmp");
        section.files.push_back(name);
        ++written_;
    }

    // An 8-bit preview of a 16-bit image, through the library's conversion
    // (the high byte of each sample, as the library displays it).
    void save_preview(kevra::CDib & image, const std::string & name, Section & section)
    {
        kevra::CDib preview;
        if (!preview.Create(image.Size(), 8) || !preview.CopyToDifferentBpp(image))
            throw Failure(dir_ + "/" + name + ": cannot make the 8-bit preview");
        save(preview, name, section);
    }

    void save_histogram(kevra::CDib & image, const std::string & name, Section & section)
    {
        kevra::CDib picture;
        if (!histogram_picture(picture, image_histograms(image), 512, 200, false))
            throw Failure(dir_ + "/" + name + ": cannot draw the histogram");
        save(picture, name, section);
    }

    RunResult process(kevra::CDib & image, const OptionList & options)
    {
        const std::vector<Step> steps = build_steps(options);
        check_chain(steps);
        RunResult r = run_chain(steps, image, true);
        if (!r.ok)
            throw Failure("demo: " + r.failure);
        return r;
    }

    int written() const { return written_; }
    const std::string & dir() const { return dir_; }

private:
    std::string dir_;
    int written_ = 0;
};

Section xray_section(Demo & demo)
{
    Section s;
    s.title = "Intraoral X-ray, 16-bit grey";
    s.description = "Made-up sensor picture: teeth with enamel, dentin, pulp and roots in textured bone, a metal "
                    "filling, an exposure gradient, noise, and dead and hot pixels. The chain removes the "
                    "outlier pixels (selective median), sharpens (unsharp masking), stretches the "
                    "histogram (levels below 8 % of full scale to black, above 60 % to white: the raw "
                    "picture is underexposed) and lifts the mid-tones (gamma). The page shows the 8-bit views the library displays "
                    "(high byte of each sample); the 16-bit files are beside them.";
    const OptionList chain = {{"median", "0.25,3"}, {"unsharp", "3,1.2,0.8,300,300"}, {"gamma", "0.8"},
                              {"stretch", "0.08,0.6"}};
    s.command = command_line("xray.bmp", "xray-result.bmp", chain);

    kevra::CDib input;
    if (!make_xray(input, 768, 512, 20240611))
        throw Failure("demo: not enough memory for the X-ray picture");
    demo.save(input, "xray.bmp", s);
    demo.save_preview(input, "xray-view.bmp", s);
    demo.save_histogram(input, "xray-histogram.bmp", s);

    kevra::CDib result(&input);
    s.times = demo.process(result, chain).times;
    demo.save(result, "xray-result.bmp", s);
    demo.save_preview(result, "xray-result-view.bmp", s);
    demo.save_histogram(result, "xray-result-histogram.bmp", s);

    kevra::CDib curve;
    if (!grey_curve_picture(curve, 16, 0.0f, 1.0f, 0.8f, 256, 256))
        throw Failure("demo: cannot draw the tone curve");
    demo.save(curve, "xray-curve.bmp", s);
    s.input_preview = "xray-view.bmp";
    s.result_preview = "xray-result-view.bmp";
    s.input_histogram = "xray-histogram.bmp";
    s.result_histogram = "xray-result-histogram.bmp";
    s.curves = "xray-curve.bmp";
    s.curves_caption = "Tone curve of --gamma 0.8 (16-bit table)";
    return s;
}

Section photo_section(Demo & demo)
{
    Section s;
    s.title = "Intraoral photograph, 24-bit colour";
    s.description = "Made-up camera picture: lips, gums and two rows of slightly yellow teeth. The chain "
                    "lowers the saturation, whitens (lightness gain), corrects the colour levels, adds a "
                    "little contrast and stretches the histogram.";
    const OptionList chain = {{"saturation", "92"}, {"whiten", "106"}, {"red", "-3"}, {"blue", "5"},
                              {"contrast", "1.05"}, {"stretch", "0.04,0.96"}};
    s.command = command_line("photo.bmp", "photo-result.bmp", chain);

    kevra::CDib input;
    if (!make_photo(input, 640, 400, 20240611))
        throw Failure("demo: not enough memory for the colour picture");
    demo.save(input, "photo.bmp", s);
    demo.save_histogram(input, "photo-histogram.bmp", s);

    kevra::CDib result(&input);
    s.times = demo.process(result, chain).times;
    demo.save(result, "photo-result.bmp", s);
    demo.save_histogram(result, "photo-result-histogram.bmp", s);

    // The chain's look-up steps composed as the library composes them for display.
    kevra::CSequenceur sequencer;
    for (const Step & step : build_steps(chain))
        sequencer.AddTraitement(step.code, step.params);
    kevra::CLUT_24_Bpp table;
    kevra::CDib curves;
    if (!sequencer.Donne_LUT_Affichage(&table) || !colour_curves_picture(curves, table, 256, 256))
        throw Failure("demo: cannot draw the colour curves");
    demo.save(curves, "photo-curves.bmp", s);
    s.input_preview = "photo.bmp";
    s.result_preview = "photo-result.bmp";
    s.input_histogram = "photo-histogram.bmp";
    s.result_histogram = "photo-result-histogram.bmp";
    s.curves = "photo-curves.bmp";
    s.curves_caption = "Look-up curves of --red -3 --blue 5 --contrast 1.05 (red, green, blue)";
    return s;
}

void write_page(const Demo & demo, const std::vector<Section> & sections)
{
    std::string h;
    h += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Kevra demo</title>\n"
         "<style>\n"
         "body { font-family: sans-serif; background: #202225; color: #e8e8e8; margin: 2em; }\n"
         "h1, h2 { font-weight: normal; } code { color: #ffd98a; }\n"
         "table { border-collapse: collapse; } td { padding: 6px 12px; vertical-align: top; }\n"
         "th { text-align: left; padding: 6px 12px; font-weight: normal; color: #a8a8a8; }\n"
         "img { max-width: 100%; border: 1px solid #444; }\n"
         ".small { font-size: 90%; color: #b8b8b8; }\n"
         "</style>\n</head>\n<body>\n<h1>Kevra demo</h1>\n"
         "<p>Pictures made by <code>kevra demo</code>, processed by the Kevra library's sequencer. Each chain "
         "can be run again on the files of this directory with the command shown.</p>\n";
    for (const Section & s : sections) {
        h += "<h2>" + html_escape(s.title) + "</h2>\n<p>" + html_escape(s.description) + "</p>\n";
        h += "<p><code>" + html_escape(s.command) + "</code></p>\n";
        h += "<table>\n<tr><th>Input</th><th>Result</th></tr>\n";
        h += "<tr><td><img src=\"" + s.input_preview + "\" alt=\"input\"></td><td><img src=\"" + s.result_preview +
             "\" alt=\"result\"></td></tr>\n";
        h += "<tr><td><img src=\"" + s.input_histogram + "\" alt=\"input histogram\"></td><td><img src=\"" +
             s.result_histogram + "\" alt=\"result histogram\"></td></tr>\n</table>\n";
        h += "<p><img src=\"" + s.curves + "\" alt=\"curves\"><br><span class=\"small\">" +
             html_escape(s.curves_caption) + "</span></p>\n<p class=\"small\">Step times:";
        for (std::size_t i = 0; i < s.times.size(); ++i)
            h += std::string(i == 0 ? " " : "; ") + html_escape(s.times[i].label) + " " +
                 format_number(s.times[i].ms, 1) + " ms";
        h += ".<br>Files:";
        for (const std::string & f : s.files)
            h += " <a href=\"" + f + "\">" + f + "</a>";
        h += "</p>\n";
    }
    h += "</body>\n</html>\n";

    const std::string path = demo.dir() + "/index.html";
    const std::string temp = path + ".tmp";
    std::FILE * f = std::fopen(temp.c_str(), "wb");
    if (f == nullptr)
        throw Failure(path + ": cannot write: " + std::strerror(errno));
    const bool ok = std::fwrite(h.data(), 1, h.size(), f) == h.size();
    if (std::fclose(f) != 0 || !ok || std::rename(temp.c_str(), path.c_str()) != 0) {
        std::remove(temp.c_str());
        throw Failure(path + ": cannot write");
    }
}

int run_demo(const DemoOptions & o)
{
    const auto start = std::chrono::steady_clock::now();
    std::string dir = o.dir;
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    struct stat st {};
    if (::stat(dir.c_str(), &st) != 0) {
        if (::mkdir(dir.c_str(), 0777) != 0)
            throw Failure(dir + ": cannot create the directory: " + std::strerror(errno));
    } else if (!S_ISDIR(st.st_mode)) {
        throw Failure(dir + ": not a directory");
    }
    install_library_notices();
    install_step_clock();
    open_trace("", "### kevra demo");

    Demo demo(dir);
    std::vector<Section> sections;
    sections.push_back(xray_section(demo));
    sections.push_back(photo_section(demo));
    write_page(demo, sections);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    std::printf("kevra demo: %d pictures and index.html written to %s/ in %s s\n", demo.written(), dir.c_str(),
                format_number(ms / 1000.0, 2).c_str());
    for (const Section & s : sections)
        std::printf("  %s\n", s.command.c_str());
    return 0;
}

} // namespace

Command add_demo_command(CLI::App & app)
{
    auto o = std::make_shared<DemoOptions>();
    CLI::App * c = app.add_subcommand("demo", "Make test pictures, process them and write a page showing the results");
    c->add_option("dir", o->dir, "Directory to write into (created if needed; default kevra-demo)")->type_name("DIR");
    c->footer("Writes a 16-bit grey picture like an intraoral X-ray and a 24-bit picture like an intraoral\n"
              "photograph (the same bytes every time), their processed versions, histograms, curves,\n"
              "8-bit views of the 16-bit pictures, and index.html.");
    return {c, [o]() { return run_demo(*o); }};
}

} // namespace kevra_cli
