// Sequencer step records built from their values (one builder per view of the
// record, other words zero), and a helper that adds a list of steps.
#ifndef KEVRA_TESTS_SUPPORT_SEQUENCER_STEPS_H
#define KEVRA_TESTS_SUPPORT_SEQUENCER_STEPS_H

#include <cstdint>
#include <initializer_list>

#include <gtest/gtest.h>

#include "kevra/sequenceur.h"

namespace kevra_test {

using Params = kevra::CSequenceur::Params_Struct;
using Code = kevra::CSequenceur::e_Traitements;

struct Step {
    Code code;
    Params params;
};

// The short views, one line each.
inline Params params() { return Params{}; }
inline Params tone(float l, float c, float g) { Params p{}; p.luminosite = l; p.contraste = c; p.gamma = g; return p; }
inline Params levels(int r, int g, int b) { Params p{}; p.rouge = r; p.vert = g; p.bleu = b; return p; }
inline Params stretch(float min, float max) { Params p{}; p.min = min; p.max = max; return p; }
inline Params level(int value) { Params p{}; p.niveau = value; return p; }
inline Params percent(int value) { Params p{}; p.pourcentage = value; return p; }

// Through the raw word: e_angle cannot hold the out-of-range angles tried.
inline Params rotate(int angle)
{
    Params p{};
    p.Mots[0] = static_cast<uint32_t>(angle);
    return p;
}

inline Params palette(kevra::CLUT *lut, int value)
{
    Params p{};
    p.pLUT = lut;
    p.Palette = static_cast<kevra::e_Palette>(value);
    return p;
}

inline Params median(double ecart, unsigned short size)
{
    Params p{};
    p.Ecart = ecart;
    p.TailleFiltre = size;
    return p;
}

inline Params resample(int w, int h, unsigned char factor)
{
    Params p{};
    p.width = w;
    p.height = h;
    p.facteur = factor;
    return p;
}

inline Params filter(int kind, unsigned short size, float param)
{
    Params p{};
    p.filtre = static_cast<kevra::CFiltre::e_Filtre>(kind);
    p.taille = size;
    p.param = param;
    return p;
}

// The disc form reads X, Y and Radius too; the plain form leaves them zero.
inline Params unsharp(float rayon, float gainP, float gainN, float seuilP, float seuilN, int x = 0, int y = 0,
                      int radius = 0)
{
    Params p{};
    p.rayon = rayon;
    p.gainP = gainP;
    p.gainN = gainN;
    p.SeuilP = seuilP;
    p.SeuilN = seuilN;
    p.X = x;
    p.Y = y;
    p.Radius = radius;
    return p;
}

// ASSERT_TRUE(add_steps(seq, {...})): names the first step refused.
inline ::testing::AssertionResult add_steps(kevra::CSequenceur &seq, std::initializer_list<Step> steps)
{
    for (const Step &s : steps)
        if (!seq.AddTraitement(s.code, s.params))
            return ::testing::AssertionFailure() << "step " << s.code << " refused";
    return ::testing::AssertionSuccess();
}

} // namespace kevra_test

#endif
