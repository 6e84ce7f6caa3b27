#include "synth.h"

#include "kevra/dib.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace kevra_cli {

uint64_t Random::next()
{
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double Random::uniform()
{
    return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0);
}

double Random::normal()
{
    const double sum = uniform() + uniform() + uniform() + uniform();
    return (sum - 2.0) * std::sqrt(3.0);
}

namespace {

double clamp01(double v)
{
    return v < 0.0 ? 0.0 : v > 1.0 ? 1.0 : v;
}

// Coverage of a shape at a signed distance d (positive inside): a 1.5-pixel
// ramp keeps the outlines free of stair steps.
double coverage(double d)
{
    return clamp01(d / 1.5 + 0.5);
}

// Value noise: random values on a square lattice, smoothly interpolated.
double lattice(int64_t ix, int64_t iy, uint64_t seed)
{
    Random r(seed ^ (static_cast<uint64_t>(ix) * 0x9E3779B97F4A7C15ull) ^
             (static_cast<uint64_t>(iy) * 0xC2B2AE3D27D4EB4Full));
    return r.uniform();
}

double value_noise(double x, double y, double cell, uint64_t seed)
{
    const double fx = x / cell;
    const double fy = y / cell;
    const double flx = std::floor(fx);
    const double fly = std::floor(fy);
    const auto ix = static_cast<int64_t>(flx);
    const auto iy = static_cast<int64_t>(fly);
    double tx = fx - flx;
    double ty = fy - fly;
    tx = tx * tx * (3.0 - 2.0 * tx);
    ty = ty * ty * (3.0 - 2.0 * ty);
    const double a = lattice(ix, iy, seed);
    const double b = lattice(ix + 1, iy, seed);
    const double c = lattice(ix, iy + 1, seed);
    const double d = lattice(ix + 1, iy + 1, seed);
    const double top = a + (b - a) * tx;
    const double bottom = c + (d - c) * tx;
    return top + (bottom - top) * ty;
}

// ---- X-ray ------------------------------------------------------------------

struct Tooth {
    double cx;         // centre column
    double crown_half; // half width of the crown
    double top;        // occlusal surface row
    double neck;       // enamel-cement junction row
    double apex;       // root tip row
};

// Half width of the tooth's outline at row y; negative outside its rows.
double tooth_half_width(const Tooth & t, double y)
{
    if (y < t.top || y > t.apex)
        return -1.0;
    if (y <= t.neck) {
        const double corner = t.crown_half * 0.35;
        double w = t.crown_half;
        const double dy = y - t.top;
        if (dy < corner) {
            const double d = corner - dy;
            w = t.crown_half - corner + std::sqrt(corner * corner - d * d);
        }
        const double k = (y - t.top) / (t.neck - t.top);
        if (k > 0.7) {
            const double q = (k - 0.7) / 0.3;
            w *= 1.0 - 0.25 * q * q;
        }
        return w;
    }
    const double k = (y - t.neck) / (t.apex - t.neck);
    double w = t.crown_half * 0.75 * (1.0 - 0.8 * k);
    if (k > 0.9) {
        const double q = (k - 0.9) / 0.1;
        w *= std::sqrt(std::max(0.0, 1.0 - q * q));
    }
    return w;
}

// Half width of the pulp (chamber in the crown, canal in the root).
double pulp_half_width(const Tooth & t, double y)
{
    const double roof = t.top + 0.4 * (t.neck - t.top);
    const double end = t.apex - 0.05 * (t.apex - t.neck);
    if (y < roof || y > end)
        return -1.0;
    if (y <= t.neck) {
        const double k = (y - roof) / (t.neck - roof);
        double w = t.crown_half * 0.34 * (1.0 - 0.3 * k);
        const double horn = 0.12 * (t.neck - t.top);
        if (y - roof < horn)
            w *= std::sqrt((y - roof) / horn);
        return w;
    }
    const double k = (y - t.neck) / (t.apex - t.neck);
    return t.crown_half * 0.24 * (1.0 - 0.85 * k);
}

// Signed distance to the tooth's outline (positive inside): horizontal within
// the tooth's rows, to the occlusal surface or the apex beyond them.
double tooth_distance(const Tooth & t, double x, double y)
{
    const double dx = std::fabs(x - t.cx);
    if (y < t.top) {
        const double beyond = std::max(0.0, dx - tooth_half_width(t, t.top));
        return -std::sqrt((t.top - y) * (t.top - y) + beyond * beyond);
    }
    if (y > t.apex)
        return -std::sqrt((y - t.apex) * (y - t.apex) + dx * dx);
    double d = tooth_half_width(t, y) - dx;
    d = std::min(d, y - t.top);
    d = std::min(d, t.apex - y);
    return d;
}

} // namespace

bool make_xray(kevra::CDib & image, int width, int height, uint64_t seed)
{
    if (width < 1 || height < 1 || !image.Create(kevra::CSize(width, height), 16) || !image.IsOK())
        return false;
    const double W = width;
    const double H = height;

    std::vector<Tooth> teeth;
    const double centres[] = {-0.03, 0.22, 0.5, 0.78, 1.03};
    Random shape(seed ^ 0x5EEDull);
    for (double c : centres) {
        Tooth t;
        t.cx = c * W + (shape.uniform() - 0.5) * 0.02 * W;
        t.crown_half = W * (0.10 + 0.015 * shape.uniform());
        t.top = H * (0.08 + 0.04 * shape.uniform());
        t.neck = H * (0.40 + 0.03 * shape.uniform());
        t.apex = H * (0.86 + 0.08 * shape.uniform());
        teeth.push_back(t);
    }
    const Tooth & filled = teeth[2];
    const double fill_x = filled.cx + 0.12 * filled.crown_half;
    const double fill_y = filled.top + 0.2 * (filled.neck - filled.top);
    const double fill_rx = 0.5 * filled.crown_half;
    const double fill_ry = 0.14 * (filled.neck - filled.top);

    Random noise(seed);
    std::vector<double> plane(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int py = 0; py < height; ++py) {
        const double y = py;
        for (int px = 0; px < width; ++px) {
            const double x = px;
            const double soft = 9000.0 + 3000.0 * (y / H);
            const double crest = H * (0.46 + 0.04 * (value_noise(x, 0.0, W * 0.15, seed + 1) - 0.5));
            const double in_bone = coverage(y - crest);
            const double trabeculae = 0.65 * value_noise(x, y, 9.0, seed + 2) +
                                      0.35 * value_noise(x, y, 3.5, seed + 3);
            const double bone = soft + 11000.0 + 7000.0 * (trabeculae - 0.5);
            double v = soft + (bone - soft) * in_bone;

            for (const Tooth & t : teeth) {
                const double d = tooth_distance(t, x, y);
                if (d < -9.0)
                    continue;
                // Periodontal space (dark) and lamina dura (bright) around roots in bone.
                if (d < 0.0 && y > t.neck) {
                    if (d >= -3.5)
                        v -= 5000.0 * in_bone;
                    else if (d >= -7.5)
                        v += 3500.0 * in_bone;
                    continue;
                }
                const double a = coverage(d);
                if (a <= 0.0)
                    continue;
                // Attenuation grows with the path through a roughly round tooth.
                const double hw = std::max(tooth_half_width(t, y), 1.0);
                const double u = std::min(1.0, std::fabs(x - t.cx) / hw);
                const double path = std::sqrt(1.0 - u * u);
                double tooth = 24000.0 + 13000.0 * path;
                if (y < t.neck) {
                    const double k = (y - t.top) / (t.neck - t.top);
                    const double enamel = t.crown_half * 0.24 * (1.0 - k * k);
                    if (d < enamel)
                        tooth += (13000.0 - 4000.0 * path) * coverage(enamel - d);
                }
                const double pw = pulp_half_width(t, y);
                if (pw > 0.0)
                    tooth -= 11000.0 * path * coverage(pw - std::fabs(x - t.cx));
                tooth += 0.35 * (bone - soft) * in_bone;
                v += (tooth - v) * a;
            }

            const double fx = (x - fill_x) / fill_rx;
            const double fy = (y - fill_y) / fill_ry;
            const double e = fx * fx + fy * fy + 0.3 * (value_noise(x, y, 14.0, seed + 4) - 0.5);
            if (e < 1.0)
                v += (61000.0 - v) * coverage((1.0 - e) * std::min(fill_rx, fill_ry) * 0.5);

            // A short exposure: the raw picture is dark and flat, as sensors
            // give it, and falls off across the sensor.
            v *= 0.6 * (0.9 + 0.16 * (x / W) - 0.07 * (y / H));
            v += noise.normal() * 2.8 * std::sqrt(std::max(v, 0.0));
            plane[static_cast<std::size_t>(py) * width + px] = v;
        }
    }

    unsigned char * bits = image.GetBits();
    const int pitch = image.Pitch();
    for (int py = 0; py < height; ++py) {
        unsigned char * row = bits + static_cast<std::size_t>(pitch) * (height - 1 - py);
        std::memset(row, 0, pitch);
        for (int px = 0; px < width; ++px) {
            const double v = plane[static_cast<std::size_t>(py) * width + px];
            const auto s = static_cast<uint16_t>(v < 0.0 ? 0.0 : v > 65535.0 ? 65535.0 : v);
            row[2 * px] = static_cast<unsigned char>(s & 0xFF);
            row[2 * px + 1] = static_cast<unsigned char>(s >> 8);
        }
    }
    // Dead and hot pixels of the sensor.
    const int outliers = std::max(1, width * height / 1500);
    for (int i = 0; i < outliers; ++i) {
        const int px = static_cast<int>(noise.next() % static_cast<uint64_t>(width));
        const int py = static_cast<int>(noise.next() % static_cast<uint64_t>(height));
        const uint16_t s = (i & 1) ? static_cast<uint16_t>(65535 - noise.next() % 400)
                                   : static_cast<uint16_t>(noise.next() % 400);
        unsigned char * p = bits + static_cast<std::size_t>(pitch) * py + 2 * px;
        p[0] = static_cast<unsigned char>(s & 0xFF);
        p[1] = static_cast<unsigned char>(s >> 8);
    }
    image.ReleaseBits();
    return true;
}

// ---- photograph ----------------------------------------------------------------

namespace {

struct Rgb {
    double r, g, b;
};

Rgb mix(const Rgb & a, const Rgb & b, double t)
{
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Rgb scale(const Rgb & a, double k)
{
    return {a.r * k, a.g * k, a.b * k};
}

struct PhotoTooth {
    double cx, half;
};

// Teeth of one row from the middle outwards: central incisors, laterals,
// canines, premolars, molars.
std::vector<PhotoTooth> tooth_row(double cx, double W, double size)
{
    const double halves[] = {0.043, 0.033, 0.031, 0.028, 0.026, 0.030};
    std::vector<PhotoTooth> row;
    double right = cx;
    for (double h : halves) {
        const double half = h * W * size;
        row.push_back({right + half, half * 0.97});
        row.push_back({2.0 * cx - right - half, half * 0.97});
        right += 2.0 * half;
    }
    return row;
}

} // namespace

bool make_photo(kevra::CDib & image, int width, int height, uint64_t seed)
{
    if (width < 1 || height < 1 || !image.Create(kevra::CSize(width, height), 24) || !image.IsOK())
        return false;
    const double W = width;
    const double H = height;
    const double cx = W * 0.5;
    const double cy = H * 0.52;
    const double a = W * 0.46;
    const double b = H * 0.36;
    const Rgb skin{224, 172, 148};
    const Rgb lip{176, 72, 82};
    const Rgb dark{62, 18, 24};
    const Rgb gum{200, 106, 116};
    const Rgb enamel{228, 213, 174};
    const std::vector<PhotoTooth> upper = tooth_row(cx, W, 1.0);
    const std::vector<PhotoTooth> lower = tooth_row(cx, W, 0.82);

    Random noise(seed);
    unsigned char * bits = image.GetBits();
    const int pitch = image.Pitch();
    for (int py = 0; py < height; ++py) {
        unsigned char * row = bits + static_cast<std::size_t>(pitch) * (height - 1 - py);
        std::memset(row, 0, pitch);
        const double y = py;
        for (int px = 0; px < width; ++px) {
            const double x = px;
            const double ux = (x - cx) / a;
            const double uy = (y - cy) / b;
            const double r = std::sqrt(ux * ux + uy * uy);
            const double side = 1.0 - 0.4 * ux * ux; // the arch turns away from the light
            Rgb c = mix(skin, scale(skin, 0.9), clamp01(y / H));
            if (r < 1.25)
                c = mix(c, mix(lip, scale(lip, 0.7), clamp01((1.25 - r) / 0.25)), coverage((1.25 - r) * b));
            if (r < 1.0) {
                Rgb m = scale(dark, 1.0 - 0.3 * r);
                const double arch = 0.12 * b * ux * ux;
                const double upper_gum = cy - 0.62 * b + arch;
                const double upper_edge = cy + 0.04 * b - arch;
                const double lower_edge = cy + 0.12 * b - 0.5 * arch;
                const double lower_gum = cy + 0.55 * b - arch;
                if (y < upper_gum + 0.12 * b)
                    m = mix(m, scale(gum, side), coverage(upper_gum + 0.12 * b - y));
                if (y > lower_gum - 0.1 * b)
                    m = mix(m, scale(gum, side), coverage(y - lower_gum + 0.1 * b));
                for (const PhotoTooth & t : upper) {
                    const double u = (x - t.cx) / t.half;
                    if (std::fabs(u) >= 1.0)
                        continue;
                    const double bottom = upper_edge - 0.25 * t.half * u * u * u * u;
                    const double scallop = upper_gum + 0.1 * b * u * u;
                    const double d = std::min({(1.0 - std::fabs(u)) * t.half, bottom - y, y - scallop});
                    const double shade = side * (0.82 + 0.18 * (1.0 - u * u)) *
                                         (0.93 + 0.07 * clamp01((y - scallop) / (0.2 * b)));
                    m = mix(m, scale(enamel, shade), coverage(d));
                }
                for (const PhotoTooth & t : lower) {
                    const double u = (x - t.cx) / t.half;
                    if (std::fabs(u) >= 1.0)
                        continue;
                    const double topy = lower_edge + 0.2 * t.half * u * u * u * u;
                    const double scallop = lower_gum - 0.08 * b * u * u;
                    const double d = std::min({(1.0 - std::fabs(u)) * t.half, y - topy, scallop - y});
                    const double shade = side * 0.88 * (0.82 + 0.18 * (1.0 - u * u));
                    m = mix(m, scale(enamel, shade), coverage(d));
                }
                c = mix(c, m, coverage((1.0 - r) * b));
            }
            const double channel[3] = {c.b, c.g, c.r};
            for (int k = 0; k < 3; ++k) {
                const double v = channel[k] + noise.normal() * 2.5;
                row[3 * px + k] = static_cast<unsigned char>(v < 0.0 ? 0.0 : v > 255.0 ? 255.0 : v);
            }
        }
    }
    image.ReleaseBits();
    return true;
}

} // namespace kevra_cli
