// The fixed execution order of the step codes, and the reading of the enum
// fields of a step record.
#ifndef KEVRA_SEQUENCER_DETAIL_STEPS_H
#define KEVRA_SEQUENCER_DETAIL_STEPS_H

#include <cstdint>
#include <cstring>

#include "kevra/sequenceur.h"

namespace kevra::detail {

// Geometry first (mirrors, then the quarter turn), then the neighbourhood
// operations, the resampling, the colour steps, and last the look-up steps,
// the histogram stretch and the pseudo-relief.
constexpr int step_order_count = 18;
constexpr CSequenceur::e_Traitements step_order[step_order_count] = {
    CSequenceur::e_Mirroir_Vertical,
    CSequenceur::e_Mirroir_Horizontal,
    CSequenceur::e_QuickRotate,
    CSequenceur::e_FiltreMedian,
    CSequenceur::e_Filtre,
    CSequenceur::e_UnsharpMasking,
    CSequenceur::e_UnsharpMaskingCircle,
    CSequenceur::e_Resample,
    CSequenceur::e_NoirEtBlanc,
    CSequenceur::e_Negatif,
    CSequenceur::e_Saturation,
    CSequenceur::e_Teinte,
    CSequenceur::e_Blanchiment,
    CSequenceur::e_LUT,
    CSequenceur::e_LUT_LuminositeContrasteGamma,
    CSequenceur::e_LUT_RougeVertBleu,
    CSequenceur::e_EgalisationHistogramme,
    CSequenceur::e_Pseudo3D,
};

// The enum fields of a record are read as the 32-bit words they are: a
// caller may store any value there, and the checks must see it as stored.
inline int32_t angle_word(const CSequenceur::Params_Struct &p)
{
    int32_t v;
    std::memcpy(&v, &p.angle, sizeof v);
    return v;
}

inline int32_t filtre_word(const CSequenceur::Params_Struct &p)
{
    int32_t v;
    std::memcpy(&v, &p.filtre, sizeof v);
    return v;
}

inline int32_t palette_word(const CSequenceur::Params_Struct &p)
{
    int32_t v;
    std::memcpy(&v, &p.Palette, sizeof v);
    return v;
}

} // namespace kevra::detail

#endif
