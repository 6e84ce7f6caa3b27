// Kevra against OpenCV's nearest equivalent of each operation, in the same process, on the same
// 2048 x 2048 pictures at 8, 16 and 24 bits, both on one thread. Each time is the median of
// several runs; before every run the input is restored outside the timing. Prints a markdown
// table with both times and the ratio Kevra / OpenCV (above 1: Kevra is slower), and the same
// ratio of the two sides' fastest runs, which a busy machine disturbs less than the medians. For the
// operations that may split rows among threads (filters, unsharp masking, median, resampling),
// Kevra also runs with two threads; where the library does not split an operation, that
// column only repeats the one-thread time.
//
// The operations are not the same algorithms (OpenCV's normalize stretches min..max, its median
// replaces every pixel, its HLS round trip is not Kevra's hue gain...): the peer is the nearest
// operation a user would pick instead, and the table says what is being compared.
//
//   build/bench/kevra_bench_peer                  every operation
//   build/bench/kevra_bench_peer Negatif BMP      only the rows whose name contains a word
//   build/bench/kevra_bench_peer --reps 5         fewer runs per time (default 15, 3 for heavy ones)
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "core/fast_path.h"
#include "kevra/dib.h"
#include "kevra/filtre.h"
#include "kevra/lut.h"
#include "kevra/palette.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"

using namespace kevra;

namespace {

constexpr int kSide = 2048;

int g_reps = 15;
std::vector<std::string> g_filters;

long pitch_of(long width, int bpp) { return ((width * bpp + 31) & ~31L) / 8; }

int cv_type(int bpp) { return bpp == 8 ? CV_8UC1 : bpp == 16 ? CV_16UC1 : CV_8UC3; }

// A photograph-like picture: smooth ramps with per-sample noise, every channel its own, so a
// colour picture has many distinct colours. 16 bits: a 12-bit range as dental sensors give.
std::vector<uint8_t> make_picture(long w, long h, int bpp)
{
    const long pitch = pitch_of(w, bpp);
    std::vector<uint8_t> bytes(static_cast<std::size_t>(pitch * h));
    std::mt19937 rng(static_cast<uint32_t>(bpp));
    for (long r = 0; r < h; ++r)
        for (long x = 0; x < w; ++x) {
            auto noisy = [&](long base) {
                return std::max(0L, std::min(255L, base + static_cast<long>(rng() % 17) - 8));
            };
            const long v = 30 + (x + r) * 190 / (w + h);
            uint8_t *p = bytes.data() + r * pitch + x * bpp / 8;
            if (bpp == 8) {
                p[0] = static_cast<uint8_t>(noisy(v));
            } else if (bpp == 16) {
                const uint16_t s = static_cast<uint16_t>(noisy(v) * 16 + static_cast<long>(rng() % 16));
                std::memcpy(p, &s, 2);
            } else {
                p[0] = static_cast<uint8_t>(noisy(v));
                p[1] = static_cast<uint8_t>(noisy(230 - v / 2));
                p[2] = static_cast<uint8_t>(noisy(40 + (x * 170) / w));
            }
        }
    return bytes;
}

const std::vector<uint8_t> &picture(int bpp)
{
    static std::vector<uint8_t> pictures[3];
    std::vector<uint8_t> &p = pictures[bpp / 8 - 1];
    if (p.empty())
        p = make_picture(kSide, kSide, bpp);
    return p;
}

// A float plane of the picture (1 channel from the 8-bit picture, 3 from the 24-bit one).
std::vector<float> float_plane(int channels)
{
    const std::vector<uint8_t> &src = picture(channels == 1 ? 8 : 24);
    const long pitch = pitch_of(kSide, channels * 8);
    std::vector<float> plane(static_cast<std::size_t>(kSide) * kSide * channels);
    for (long r = 0; r < kSide; ++r)
        for (long i = 0; i < kSide * channels; ++i)
            plane[static_cast<std::size_t>(r * kSide * channels + i)] = src[static_cast<std::size_t>(r * pitch + i)];
    return plane;
}

double now_ms()
{
    using clock = std::chrono::steady_clock;
    return std::chrono::duration<double, std::milli>(clock::now().time_since_epoch()).count();
}

// Median of the runs of each side. The two sides take turns (Kevra, OpenCV, Kevra, ...) so
// that a change of load on the machine weighs on both; each run is preceded by `setup` (not
// timed). NaN for a side that fails or is missing.
struct Times {
    double kevra;
    double opencv;
    double kevra_min;
    double opencv_min;
};

Times median_ms(int reps, const std::function<void()> &setup, const std::function<bool()> &kevra,
                const std::function<bool()> &opencv)
{
    std::vector<double> times[2];
    bool ok[2] = {true, static_cast<bool>(opencv)};
    for (int i = 0; i < reps; ++i)
        for (int side = 0; side < 2; ++side) {
            if (!ok[side])
                continue;
            setup();
            const double t0 = now_ms();
            ok[side] = side == 0 ? kevra() : opencv();
            times[side].push_back(now_ms() - t0);
        }
    double median[2], least[2];
    for (int side = 0; side < 2; ++side) {
        std::sort(times[side].begin(), times[side].end());
        median[side] = ok[side] ? times[side][times[side].size() / 2] : std::nan("");
        least[side] = ok[side] ? times[side].front() : std::nan("");
    }
    return {median[0], median[1], least[0], least[1]};
}

struct Row {
    std::string operation;
    std::string peer;
    int bpp;
    double kevra;
    double opencv; // NaN: no OpenCV equivalent at this depth
    double kevra2; // NaN: not measured
    double min_ratio; // Kevra's fastest run over OpenCV's
};

std::vector<Row> g_rows;

bool wanted(const std::string &name)
{
    if (g_filters.empty())
        return true;
    for (const std::string &f : g_filters)
        if (name.find(f) != std::string::npos)
            return true;
    return false;
}

using Output = std::function<std::vector<uint8_t>()>;

// One pair. `kevra` and `opencv` run the operation once; `setup` restores the inputs. `heavy`:
// also time Kevra with two threads. An empty `opencv` means no peer at this depth. With an
// `output` (Kevra's result bytes), Kevra first runs on its plain and on its fast paths (with the
// baseline kernels and with the widest the processor has), and the program stops unless all
// give the same bytes.
void pair(const std::string &operation, const std::string &peer, int bpp, bool heavy,
          const std::function<void()> &setup, const std::function<bool()> &kevra,
          const std::function<bool()> &opencv, const Output &output = {})
{
    if (!wanted(operation))
        return;
    if (output) {
        std::vector<uint8_t> plain;
        {
            kevra::detail::FastPathScope scope(false);
            setup();
            kevra();
            plain = output();
        }
        for (const auto level : {kevra::detail::VectorLevel::baseline, kevra::detail::widest_vector_level()}) {
            kevra::detail::VectorLevelScope scope(level);
            setup();
            kevra();
            if (output() != plain) {
                std::fprintf(stderr, "%s at %d bits: the fast path differs from the plain path\n", operation.c_str(),
                             bpp);
                std::exit(EXIT_FAILURE);
            }
        }
    }
    const int reps = heavy ? std::max(1, std::min(g_reps, 3)) : g_reps;
    Row row{operation, peer, bpp, 0.0, std::nan(""), std::nan(""), std::nan("")};
    platform::set_thread_count(1);
    const Times t = median_ms(reps, setup, kevra, opencv);
    row.kevra = t.kevra;
    row.opencv = t.opencv;
    row.min_ratio = t.kevra_min / t.opencv_min;
    if (heavy) {
        platform::set_thread_count(2);
        row.kevra2 = median_ms(reps, setup, kevra, {}).kevra;
        platform::set_thread_count(1);
    }
    std::fprintf(stderr, "%-40s %2d bits  %9.2f ms  %9.2f ms\n", operation.c_str(), bpp, row.kevra, row.opencv);
    g_rows.push_back(row);
}

const CRect kWhole(0, 0, kSide - 1, kSide - 1);

// ---- the pairs --------------------------------------------------------------------------------------

template <class Proc>
struct Depth;
template <>
struct Depth<CTraitementImg_8_Bpp> {
    static constexpr int bpp = 8;
};
template <>
struct Depth<CTraitementImg_16_Bpp> {
    static constexpr int bpp = 16;
};
template <>
struct Depth<CTraitementImg_24_Bpp> {
    static constexpr int bpp = 24;
};

// In-place operations of the per-depth classes on one working copy of the picture.
template <class Proc>
void per_depth_pairs()
{
    constexpr int bpp = Depth<Proc>::bpp;
    const std::vector<uint8_t> &source = picture(bpp);
    std::vector<uint8_t> work = source;
    const long pitch = pitch_of(kSide, bpp);
    cv::Mat in(kSide, kSide, cv_type(bpp), work.data(), static_cast<std::size_t>(pitch));
    cv::Mat out;
    auto restore = [&] { work = source; };
    Proc proc;
    CRect rc = kWhole;

    const Output result = [&] { return work; };
    pair("Negatif", "bitwise_not", bpp, false, restore,
         [&] { return proc.Negatif(kSide, kSide, work.data(), rc); },
         [&] { cv::bitwise_not(in, in); return true; }, result);
    pair("Mirroir_Horizontal", "flip (y axis)", bpp, false, restore,
         [&] { return proc.Mirroir_Horizontal(kSide, kSide, work.data(), rc); },
         [&] { cv::flip(in, in, 1); return true; }, result);
    pair("Mirroir_Vertical", "flip (x axis)", bpp, false, restore,
         [&] { return proc.Mirroir_Vertical(kSide, kSide, work.data(), rc); },
         [&] { cv::flip(in, in, 0); return true; }, result);
    {
        std::vector<uint8_t> turned(static_cast<std::size_t>(pitch_of(kSide, bpp) * kSide));
        cv::Mat turned_mat;
        pair("QuickRotate 90", "rotate 90", bpp, false, [] {},
             [&] {
                 return proc.QuickRotate(CTraitementImgBase::e_Angle90, kSide, kSide, work.data(), rc, kSide, kSide,
                                         turned.data());
             },
             [&] { cv::rotate(in, turned_mat, cv::ROTATE_90_CLOCKWISE); return true; },
             [&] { return turned; });
    }
    pair("EgalisationHistogramme 1%/99%", "normalize MINMAX", bpp, false, restore,
         [&] { return proc.EgalisationHistogramme(0.01f, 0.99f, kSide, kSide, work.data(), rc); },
         [&] { cv::normalize(in, in, 0, bpp == 16 ? 65535 : 255, cv::NORM_MINMAX); return true; }, result);
    pair("FiltreMedian r1 tol 0.2", "medianBlur 3", bpp, true, restore,
         [&] { return proc.FiltreMedian(kSide, kSide, work.data(), rc, 0.2, 1); },
         [&] { cv::medianBlur(in, out, 3); return true; }, result);
    pair("FiltreMedian r2 tol 0.2", "medianBlur 5", bpp, true, restore,
         [&] { return proc.FiltreMedian(kSide, kSide, work.data(), rc, 0.2, 2); },
         [&] { cv::medianBlur(in, out, 5); return true; }, result);
    pair("UnsharpMasking r2", "GaussianBlur 5 + addWeighted", bpp, true, restore,
         [&] { return proc.UnsharpMasking(kSide, kSide, work.data(), rc, 2.0f, 1.5f, 1.0f, 2.0f, 2.0f); },
         [&] {
             cv::Mat blur;
             cv::GaussianBlur(in, blur, cv::Size(5, 5), 0);
             cv::addWeighted(in, 1.5, blur, -0.5, 0, out);
             return true;
         },
         result);
    {
        std::vector<uint8_t> big(static_cast<std::size_t>(pitch_of(2 * kSide, bpp) * 2 * kSide));
        std::vector<uint8_t> half(static_cast<std::size_t>(pitch_of(kSide / 2, bpp) * (kSide / 2)));
        pair("ResampleSimple x2 bilinear", "resize LINEAR x2", bpp, true, restore,
             [&] { return proc.ResampleSimple(kSide, kSide, work.data(), 2 * kSide, 2 * kSide, big.data(), 0); },
             [&] { cv::resize(in, out, cv::Size(2 * kSide, 2 * kSide), 0, 0, cv::INTER_LINEAR); return true; },
             [&] { return big; });
        pair("ResampleSimple 1/2 sinc mode 1", "resize LANCZOS4 1/2", bpp, true, restore,
             [&] { return proc.ResampleSimple(kSide, kSide, work.data(), kSide / 2, kSide / 2, half.data(), 1); },
             [&] {
                 cv::resize(in, out, cv::Size(kSide / 2, kSide / 2), 0, 0, cv::INTER_LANCZOS4);
                 return true;
             },
             [&] { return half; });
    }
}

// Tables, at each depth: a brightness/contrast/gamma table; 24 bits the false-colour palette 22.
void table_pairs()
{
    for (int bpp : {8, 16, 24}) {
        const std::vector<uint8_t> &source = picture(bpp);
        std::vector<uint8_t> work = source;
        const long pitch = pitch_of(kSide, bpp);
        cv::Mat in(kSide, kSide, cv_type(bpp), work.data(), static_cast<std::size_t>(pitch));
        auto restore = [&] { work = source; };
        CRect rc = kWhole;
        if (bpp == 8) {
            CLUT_8_Bpp lut;
            lut.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.9f);
            cv::Mat table(1, 256, CV_8UC1, lut.Donne_Table());
            pair("CLUT FiltrerBuffer", "LUT", 8, false, restore,
                 [&] { return lut.FiltrerBuffer(kSide, kSide, work.data(), rc); },
                 [&] { cv::LUT(in, table, in); return true; }, [&] { return work; });
        } else if (bpp == 16) {
            // OpenCV's LUT takes 8-bit input only.
            CLUT_16_Bpp lut;
            lut.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.9f);
            pair("CLUT FiltrerBuffer", "(none: LUT is 8-bit only)", 16, false, restore,
                 [&] { return lut.FiltrerBuffer(kSide, kSide, work.data(), rc); }, {}, [&] { return work; });
        } else {
            CLUT_24_Bpp lut(e_Palette22);
            tagRGBQUAD quads[256];
            lut.Donne_RGBQUAD(quads, 256);
            cv::Mat table(1, 256, CV_8UC3);
            for (int i = 0; i < 256; ++i)
                table.at<cv::Vec3b>(0, i) = cv::Vec3b(quads[i].rgbBlue, quads[i].rgbGreen, quads[i].rgbRed);
            pair("CLUT FiltrerBuffer", "LUT", 24, false, restore,
                 [&] { return lut.FiltrerBuffer(kSide, kSide, work.data(), rc); },
                 [&] { cv::LUT(in, table, in); return true; }, [&] { return work; });
        }
    }
}

void colour_pairs()
{
    const std::vector<uint8_t> &source = picture(24);
    std::vector<uint8_t> work = source;
    cv::Mat in(kSide, kSide, CV_8UC3, work.data(), static_cast<std::size_t>(pitch_of(kSide, 24)));
    cv::Mat hls;
    auto restore = [&] { work = source; };
    CTraitementImg_24_Bpp proc;
    CRect rc = kWhole;
    pair("ReglageTeinte 150", "cvtColor HLS and back", 24, false, restore,
         [&] { return proc.ReglageTeinte(150, kSide, kSide, work.data(), rc); },
         [&] {
             cv::cvtColor(in, hls, cv::COLOR_BGR2HLS);
             cv::cvtColor(hls, in, cv::COLOR_HLS2BGR);
             return true;
         },
         [&] { return work; });
    pair("ReglageSaturation 150", "cvtColor HLS and back", 24, false, restore,
         [&] { return proc.ReglageSaturation(150, kSide, kSide, work.data(), rc); },
         [&] {
             cv::cvtColor(in, hls, cv::COLOR_BGR2HLS);
             cv::cvtColor(hls, in, cv::COLOR_HLS2BGR);
             return true;
         },
         [&] { return work; });
}

// Float planes through CFiltre's buffer entry (in place) and OpenCV's filters (into a second plane).
void filter_pairs()
{
    for (int channels : {1, 3}) {
        const int bpp = channels == 1 ? 8 : 24;
        const std::vector<float> source = float_plane(channels);
        std::vector<float> work = source;
        cv::Mat in(kSide, kSide, CV_MAKETYPE(CV_32F, channels), work.data());
        cv::Mat out;
        auto restore = [&] { work = source; };
        CRect rc = kWhole;
        struct Case {
            const char *name;
            const char *peer;
            CFiltre::e_Filtre kind;
            unsigned short size;
            float parameter;
        };
        const Case cases[] = {
            {"CFiltre Gaussian 5", "sepFilter2D 5", CFiltre::Filtre_Gaussien, 5, 1.25f},
            {"CFiltre Gaussian 15", "sepFilter2D 15", CFiltre::Filtre_Gaussien, 15, 3.75f},
            {"CFiltre Laplacian 3x3", "filter2D 3x3", CFiltre::Filtre_Laplacien, 3, 0.0f},
        };
        for (const Case &c : cases) {
            CFiltre filter(c.kind, c.size, c.parameter);
            cv::Mat kx, ky, kernel;
            if (c.kind == CFiltre::Filtre_Laplacien) {
                kernel = (cv::Mat_<float>(3, 3) << 0, -1, 0, -1, 4, -1, 0, -1, 0);
            } else {
                kx = cv::getGaussianKernel(c.size, c.parameter, CV_32F);
                ky = kx;
            }
            pair(c.name, c.peer, bpp, true, restore,
                 [&] { return filter.FiltrerBuffer(kSide, kSide, work.data(), rc, static_cast<unsigned short>(bpp)); },
                 [&] {
                     if (kernel.empty())
                         cv::sepFilter2D(in, out, -1, kx, ky);
                     else
                         cv::filter2D(in, out, -1, kernel);
                     return true;
                 },
                 [&] {
                     const uint8_t *p = reinterpret_cast<const uint8_t *>(work.data());
                     return std::vector<uint8_t>(p, p + work.size() * sizeof(float));
                 });
        }
    }
}

std::wstring widen(const std::string &s) { return std::wstring(s.begin(), s.end()); }

// BMP files on the temporary directory, written and read by both libraries. OpenCV's BMP codec
// keeps 8 bits a sample, so 16 bits has no peer.
void bmp_pairs()
{
    const std::string base = "/tmp/kevra_peer_" + std::to_string(static_cast<long>(getpid()));
    const std::string kpath = base + "_k.bmp", cpath = base + "_c.bmp";
    for (int bpp : {8, 24}) {
        CDib dib(kSide, kSide, bpp);
        std::memcpy(dib.GetBits(), picture(bpp).data(), picture(bpp).size());
        cv::Mat mat(kSide, kSide, cv_type(bpp), const_cast<uint8_t *>(picture(bpp).data()),
                    static_cast<std::size_t>(pitch_of(kSide, bpp)));
        const std::wstring wk = widen(kpath);
        pair("BMP save", "imwrite .bmp", bpp, false, [] {}, [&] { return dib.Save(wk.c_str(), 0); },
             [&] { return cv::imwrite(cpath, mat); });
        pair("BMP load", "imread .bmp", bpp, false, [] {},
             [&] {
                 CDib back;
                 return back.Load(wk.c_str(), 0);
             },
             [&] { return !cv::imread(cpath, cv::IMREAD_UNCHANGED).empty(); });
    }
    std::remove(kpath.c_str());
    std::remove(cpath.c_str());
}

std::string cell(double ms)
{
    if (std::isnan(ms))
        return "-";
    char text[32];
    std::snprintf(text, sizeof text, ms < 10 ? "%.2f" : "%.1f", ms);
    return text;
}

void print_table()
{
    std::printf("| Kevra operation | OpenCV peer | Bits | Kevra ms | OpenCV ms | Kevra / OpenCV | of fastest runs "
                "| Kevra 2 threads ms |\n");
    std::printf("|---|---|---:|---:|---:|---:|---:|---:|\n");
    auto ratio = [](double r) {
        if (std::isnan(r))
            return std::string("-");
        char text[32];
        std::snprintf(text, sizeof text, "%.2fx", r);
        return std::string(text);
    };
    for (const Row &r : g_rows)
        std::printf("| %s | %s | %d | %s | %s | %s | %s | %s |\n", r.operation.c_str(), r.peer.c_str(), r.bpp,
                    cell(r.kevra).c_str(), cell(r.opencv).c_str(), ratio(r.kevra / r.opencv).c_str(),
                    ratio(r.min_ratio).c_str(), cell(r.kevra2).c_str());
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--reps" && i + 1 < argc)
            g_reps = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--help" || arg == "-h") {
            std::printf("usage: %s [--reps N] [WORD...]\n", argv[0]);
            return EXIT_SUCCESS;
        } else
            g_filters.push_back(arg);
    }
    cv::setNumThreads(1);
    platform::set_thread_count(1);

    per_depth_pairs<CTraitementImg_8_Bpp>();
    per_depth_pairs<CTraitementImg_16_Bpp>();
    per_depth_pairs<CTraitementImg_24_Bpp>();
    table_pairs();
    colour_pairs();
    filter_pairs();
    bmp_pairs();

    std::printf("\n%dx%d, one thread each (cv::setNumThreads(1), Kevra thread count 1), median of %d runs "
                "(3 for the heavy ones); \"of fastest runs\": Kevra's fastest run over OpenCV's. Kevra's "
                "kernels: %s.\n\n",
                kSide, kSide, g_reps,
                kevra::detail::vector_level() == kevra::detail::VectorLevel::avx2 ? "AVX2 copies" : "baseline");
    print_table();
    return EXIT_SUCCESS;
}
