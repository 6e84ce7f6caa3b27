// Display tables: the look-up steps of a sequencer, or a set of display
// settings, composed into one colour table without touching any pixel.
#include <cstring>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "sequencer/detail/steps.h"
#include "sequencer/detail/trace.h"

namespace kevra {

bool CSequenceur::Donne_LUT_Affichage(CLUT_24_Bpp *pLUT_Affichage)
{
    if (pLUT_Affichage == nullptr) {
        detail::trace_line("Donne_LUT_Affichage paramètre invalide", true);
        return false;
    }

    CLUT_24_Bpp accumulated;
    CLUT_24_Bpp scratch;
    bool filled = false;
    bool result = true;

    // The list is walked as it stands: neither ordered nor deduplicated, so
    // every repeated look-up step counts. Each later table is applied on the
    // result of the earlier ones.
    const int count = IsEmpty() ? 0 : m_NbTraitements;
    for (int i = 0; result && i < count; ++i) {
        const Params_Struct &p = m_pParams[i];
        switch (m_pTraitements[i]) {
        case e_LUT: {
            bool set = false;
            if (p.pLUT == nullptr && detail::palette_word(p) != 0) {
                scratch.SetPalette(static_cast<e_Palette>(detail::palette_word(p)));
                set = true;
            } else if (p.pLUT != nullptr && p.pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp))) {
                scratch.Copier(p.pLUT);
                set = true;
            }
            if (set) {
                if (!filled) {
                    accumulated.Copier(&scratch);
                    filled = true;
                } else {
                    accumulated.Combiner(&scratch);
                }
            }
            break;
        }
        case e_LUT_LuminositeContrasteGamma:
            if (!filled) {
                result = accumulated.SetLuminositeConstrateGamma(p.luminosite, p.contraste, p.gamma);
                filled = true;
            } else {
                result = scratch.SetLuminositeConstrateGamma(p.luminosite, p.contraste, p.gamma);
                accumulated.Combiner(&scratch);
            }
            break;
        case e_LUT_RougeVertBleu:
            if (!filled) {
                result = accumulated.ReglageRougeVertBleu(p.rouge, p.vert, p.bleu);
                filled = true;
            } else {
                result = scratch.ReglageRougeVertBleu(p.rouge, p.vert, p.bleu);
                accumulated.Combiner(&scratch);
            }
            break;
        default:
            break;
        }
    }

    if (filled && result)
        pLUT_Affichage->Copier(&accumulated);
    return result;
}

bool CSequenceur::ComputeDisplayPalette(CLUT_24_Bpp *pLUT_Affichage, float luminosite,
                                        float contraste, float gamma, e_Palette palette, int rouge,
                                        int vert, int bleu, bool negatif,
                                        CLUT_24_Bpp *additionnelle)
{
    CSequenceur sequence;
    CLUT_24_Bpp table;

    const int32_t value = static_cast<int32_t>(palette);
    if (pLUT_Affichage == nullptr)
        detail::trace_line("ComputeDisplayPalette, le parammètre pLUT_Affichage doit être non null !",
                           true);
    else if (value != 0 && value != 11 && value != 12 && value != 21 && value != 22 && value != 23)
        detail::trace_line(detail::trace_format("ComputeDisplayPalette, le parammètre Palette (%d) "
                                                "est invalide !",
                                                static_cast<int>(value)),
                           true);
    // Neither error stops the composition.

    // Order of application: tone, levels, negative, additional table, palette.
    Params_Struct p = {};
    p.luminosite = luminosite;
    p.contraste = contraste;
    p.gamma = gamma;
    sequence.AddTraitement(e_LUT_LuminositeContrasteGamma, p);

    p = Params_Struct{};
    p.rouge = rouge;
    p.vert = vert;
    p.bleu = bleu;
    sequence.AddTraitement(e_LUT_RougeVertBleu, p);

    if (negatif) {
        p = Params_Struct{};
        p.pLUT = nullptr;
        p.Palette = e_Palette12;
        sequence.AddTraitement(e_LUT, p);
    }
    if (additionnelle != nullptr) {
        p = Params_Struct{};
        p.pLUT = additionnelle;
        p.Palette = e_PaletteNone;
        sequence.AddTraitement(e_LUT, p);
    }
    if (value != 0) {
        // An invalid value is refused here by CheckParams, with its own line.
        p = Params_Struct{};
        p.pLUT = nullptr;
        std::memcpy(&p.Palette, &value, sizeof value);
        sequence.AddTraitement(e_LUT, p);
    }

    sequence.Donne_LUT_Affichage(&table);

    if (pLUT_Affichage == nullptr)
        return false;
    pLUT_Affichage->Copier(&table);
    return true;
}

} // namespace kevra
