// The step list of the sequencer: checks, additions, ordering and the
// predicted final size.
#include "kevra/sequenceur.h"

#include <cstring>

#include "kevra/platform.h"
#include "sequencer/detail/steps.h"
#include "sequencer/detail/trace.h"

namespace kevra {

using detail::trace_format;
using detail::trace_line;

CSequenceur::CSequenceur()
    : CTraitementImgBase(24), m_NbTraitements(0), m_pTraitements(nullptr), m_pParams(nullptr)
{
}

CSequenceur::~CSequenceur()
{
    delete[] m_pTraitements;
    delete[] m_pParams;
}

bool CSequenceur::IsOK()
{
    return m_pTraitements != nullptr && m_pParams != nullptr;
}

// After the 256th addition the count has wrapped to 0 while the arrays still
// exist: the list is empty then, whatever IsOK says.
bool CSequenceur::IsEmpty()
{
    return !IsOK() || m_NbTraitements == 0;
}

bool CSequenceur::CheckTraitement(e_Traitements code)
{
    const int32_t c = static_cast<int32_t>(code);
    return (c >= 0 && c <= 2) || (c >= 50 && c <= 59) || (c >= 100 && c <= 104);
}

bool CSequenceur::CheckParams(e_Traitements code, Params_Struct p)
{
    switch (code) {
    case e_QuickRotate:
        if (detail::angle_word(p) >= 0 && detail::angle_word(p) <= 2)
            return true;
        trace_line(trace_format("Traitement e_QuickRotate, params angle(%d) est invalide !",
                                static_cast<int>(detail::angle_word(p))),
                   true);
        return false;

    case e_Mirroir_Vertical:
    case e_Mirroir_Horizontal:
    case e_LUT_LuminositeContrasteGamma:
    case e_LUT_RougeVertBleu:
    case e_Pseudo3D:
    case e_Negatif:
    case e_NoirEtBlanc:
    case e_UnsharpMasking:
    case e_UnsharpMaskingCircle:
        return true;

    case e_LUT: {
        const int32_t palette = detail::palette_word(p);
        if (p.pLUT == nullptr && palette == 0) {
            trace_line("Traitement e_LUT, un des parametres Palette ou pLUT doit être initialisee!",
                       true);
            return false;
        }
        if (p.pLUT != nullptr && palette != 0) {
            trace_line(
                "Traitement e_LUT, seulement un des parametres Palette ou pLUT peut être non NULL!",
                true);
            return false;
        }
        if (p.pLUT == nullptr && palette != 11 && palette != 12 && palette != 21 && palette != 22
            && palette != 23) {
            trace_line(trace_format("Traitement e_LUT, params Palette (%d) est invalide !", palette),
                       true);
            return false;
        }
        return true;
    }

    case e_EgalisationHistogramme:
        if (p.max > p.min && p.min >= 0 && p.max <= 1.0)
            return true;
        trace_line(trace_format("Traitement e_EgalisationHistogramme, les parametres Min (%f), "
                                "Max (%f) sont invalides!",
                                static_cast<double>(p.min), static_cast<double>(p.max)),
                   true);
        return false;

    case e_Blanchiment:
        if (p.niveau != 0)
            return true;
        trace_line("Traitement e_Blanchiment, le paramètre 'niveau' doit être initialisé!", true);
        return false;

    case e_Saturation:
        if (p.pourcentage >= 0)
            return true;
        trace_line(trace_format("Traitement e_Saturation, le parametre pourcentage (%d) est "
                                "invalide!",
                                static_cast<int>(p.pourcentage)),
                   true);
        return false;

    case e_Teinte:
        if (p.pourcentage >= 0)
            return true;
        trace_line(trace_format("Traitement e_Teinte, le parametre pourcentage (%d) est invalide!",
                                static_cast<int>(p.pourcentage)),
                   true);
        return false;

    case e_FiltreMedian:
        if (p.Ecart >= 0.01 && p.Ecart <= 0.99 && p.TailleFiltre >= 3)
            return true;
        trace_line(trace_format("Traitement e_FiltreMedian, les parametres Ecart (%lf), "
                                "TailleFiltre (%d) sont invalides!",
                                p.Ecart, static_cast<int>(p.TailleFiltre)),
                   true);
        return false;

    case e_Filtre: {
        const int32_t filtre = detail::filtre_word(p);
        const bool known = filtre >= 0 && filtre <= 9;
        if (!known)
            trace_line(trace_format("Traitement e_Filtre, le parametres NomFiltre (%d) est "
                                    "invalide!",
                                    filtre),
                       true);
        // A kernel below 3 taps is refused without a line, unlike every other
        // refusal: kept as the callers know it.
        return known && p.taille >= 3;
    }

    case e_Resample:
        if (p.width > 0 && p.height > 0)
            return true;
        trace_line(trace_format("Traitement e_Resample, les parametres WidthNew (%d), HeighNew "
                                "(%d) sont invalides!",
                                static_cast<int>(p.width), static_cast<int>(p.height)),
                   true);
        return false;
    }
    trace_line(trace_format("le traitement %d n'existe pas!", static_cast<int>(code)), true);
    return false;
}

bool CSequenceur::AddTraitement(e_Traitements code, Params_Struct params)
{
    if (!CheckParams(code, params))
        return false;

    // The count is 8 bits wide: the 256th step wraps it to 0. The new arrays
    // are then empty and nothing can be stored; the old entries are dropped.
    const uint8_t old_count = m_NbTraitements;
    const uint8_t new_count = static_cast<uint8_t>(old_count + 1);

    // Built aside and swapped in, so that a failed allocation leaves the list
    // as it was.
    e_Traitements *codes = detail::try_new_array<e_Traitements>(new_count);
    Params_Struct *records = detail::try_new_array<Params_Struct>(new_count);
    if (codes == nullptr || records == nullptr) {
        delete[] codes;
        delete[] records;
        return false;
    }
    if (new_count > 0) {
        for (uint8_t i = 0; i < old_count; ++i) {
            codes[i] = m_pTraitements[i];
            records[i] = m_pParams[i];
        }
        codes[new_count - 1] = code;
        records[new_count - 1] = params;
    }
    delete[] m_pTraitements;
    delete[] m_pParams;
    m_pTraitements = codes;
    m_pParams = records;
    m_NbTraitements = new_count;
    return true;
}

bool CSequenceur::OrderTraitements()
{
    int first[detail::step_order_count];
    int kept = 0;
    for (int k = 0; k < detail::step_order_count; ++k) {
        first[k] = -1;
        for (int i = 0; i < m_NbTraitements; ++i) {
            if (m_pTraitements[i] == detail::step_order[k]) {
                first[k] = i;
                ++kept;
                break;
            }
        }
    }
    if (kept == 0)
        return false;

    e_Traitements *codes = detail::try_new_array<e_Traitements>(static_cast<std::size_t>(kept));
    Params_Struct *records = detail::try_new_array<Params_Struct>(static_cast<std::size_t>(kept));
    if (codes == nullptr || records == nullptr) {
        delete[] codes;
        delete[] records;
        return false;
    }
    int n = 0;
    for (int k = 0; k < detail::step_order_count; ++k) {
        if (first[k] < 0)
            continue;
        codes[n] = m_pTraitements[first[k]];
        records[n] = m_pParams[first[k]];
        ++n;
    }
    delete[] m_pTraitements;
    delete[] m_pParams;
    m_pTraitements = codes;
    m_pParams = records;
    m_NbTraitements = static_cast<uint8_t>(kept);
    return true;
}

bool CSequenceur::DonneTailleFinale(long width, long height, long &widthOut, long &heightOut)
{
    widthOut = width;
    heightOut = height;
    if (IsEmpty())
        return false;
    for (int i = 0; i < m_NbTraitements; ++i) {
        const Params_Struct &p = m_pParams[i];
        const int32_t code = static_cast<int32_t>(m_pTraitements[i]);
        if (code == e_QuickRotate) {
            const int32_t angle = detail::angle_word(p);
            if (angle == e_Angle90 || angle == e_Angle270) {
                const long w = widthOut;
                widthOut = heightOut;
                heightOut = w;
            } else if (angle != e_Angle180) {
                return false;
            }
        } else if (code == e_Resample) {
            widthOut = p.width;
            heightOut = p.height;
        } else if ((code >= 1 && code <= 2) || (code >= 50 && code <= 59)
                   || (code >= 100 && code <= 102) || code == 104) {
            // the size is kept
        } else {
            trace_line("DonneTailleFinale : filtre non reconnu!", true);
            return false;
        }
    }
    return true;
}

} // namespace kevra
