// The processing sequencer: a caller-built chain of steps run over one image in
// a single call.
//
// Common rules:
// - Steps are added one by one with AddTraitement; each is checked by
//   CheckParams first, and a refused step leaves the list unchanged. There is
//   no way to remove a step: a new chain needs a new sequencer.
// - A run (FiltrerBuffer, Filtrer) puts the list into the fixed execution
//   order, keeping only the first occurrence of each code with its parameters;
//   the list stays ordered afterwards. The order is: vertical mirror,
//   horizontal mirror, quarter turn, median, convolution filter, unsharp
//   masking, circular unsharp masking, resampling, black-and-white, negative,
//   saturation, hue, whitening, then the three look-up steps, histogram
//   equalization and pseudo-relief.
// - The look-up steps (e_LUT, e_LUT_LuminositeContrasteGamma,
//   e_LUT_RougeVertBleu) are folded into one table applied once, after every
//   other step, histogram equalization and pseudo-relief included.
// - Rectangles are inclusive on all four edges, in picture coordinates (y
//   downwards); buffers are bottom-up with rows padded to 4 bytes.
// - Failures are reported by the result and by the trace file only. The trace
//   ("./Sequenceur.txt" by default, see platform::set_sequencer_trace_path) is
//   written only when that file exists the first time the process traces a
//   line; that decision is never revisited.
#ifndef KEVRA_SEQUENCEUR_H
#define KEVRA_SEQUENCEUR_H

#include <cstddef>
#include <cstdint>

#include "kevra/filtre.h"
#include "kevra/palette.h"
#include "kevra/traitement_base.h"
#include "kevra/types.h"

namespace kevra {

class CDibRoot;
class CLUT;
class CLUT_24_Bpp;

namespace detail {
struct sequence_runner;
}

// Derives from the processing base and shares its run-time class record: the
// sequencer has none of its own. Built at 24 bits; each run sets the depth to
// the run's.
class CSequenceur : public CTraitementImgBase {
public:
    enum e_Traitements : int32_t {
        e_QuickRotate = 0,
        e_Mirroir_Vertical = 1,
        e_Mirroir_Horizontal = 2,
        e_LUT = 50,
        e_LUT_LuminositeContrasteGamma = 51,
        e_LUT_RougeVertBleu = 52,
        e_EgalisationHistogramme = 53,
        e_Pseudo3D = 54,
        e_Blanchiment = 55,
        e_Negatif = 56,
        e_NoirEtBlanc = 57,
        e_Saturation = 58,
        e_Teinte = 59,
        e_FiltreMedian = 100,
        e_Filtre = 101,
        e_UnsharpMasking = 102,
        e_Resample = 103,
        e_UnsharpMaskingCircle = 104,
    };

    // The parameters of one step: 32 bytes, passed and stored by value. Each
    // step reads its own view; the bytes it does not read are ignored.
    // `Params_Struct p = {};` clears all 32 bytes.
    //
    //   step                       offsets (32-bit pointers; 64-bit where different)
    //   e_QuickRotate              angle 0
    //   e_LUT                      pLUT 0, Palette 4 (8)
    //   e_LUT_LuminositeContr...   luminosite 0, contraste 4, gamma 8
    //   e_LUT_RougeVertBleu        rouge 0, vert 4, bleu 8
    //   e_EgalisationHistogramme   min 0, max 4
    //   e_Blanchiment              niveau 0
    //   e_Saturation, e_Teinte     pourcentage 0
    //   e_FiltreMedian             Ecart 0 (a double), TailleFiltre 8
    //   e_Filtre                   filtre 0, taille 4, param 8
    //   e_UnsharpMasking(Circle)   rayon 0, gainP 4, gainN 8, SeuilP 12, SeuilN 16,
    //                              X 20, Y 24, Radius 28 (the last three: circle only)
    //   e_Resample                 width 0, height 4, facteur 8
    union Params_Struct {
        uint32_t Mots[8]; // the raw words; first, so that value-initialisation clears them all
        struct {
            e_angle angle;
        };
        struct {
            CLUT *pLUT;
            e_Palette Palette;
        };
        struct {
            float luminosite;
            float contraste;
            float gamma;
        };
        struct {
            int32_t rouge;
            int32_t vert;
            int32_t bleu;
        };
        struct {
            float min;
            float max;
        };
        struct {
            int32_t niveau;
        };
        struct {
            int32_t pourcentage;
        };
        struct {
            double Ecart;
            unsigned short TailleFiltre;
        };
        struct {
            CFiltre::e_Filtre filtre;
            unsigned short taille;
            float param;
        };
        struct {
            float rayon;
            float gainP;
            float gainN;
            float SeuilP;
            float SeuilN;
            int32_t X;
            int32_t Y;
            int32_t Radius;
        };
        struct {
            int32_t width;
            int32_t height;
            unsigned char facteur;
        };
    };

    CSequenceur();
    ~CSequenceur() override;
    CSequenceur(const CSequenceur &) = delete;
    CSequenceur &operator=(const CSequenceur &) = delete;

    // True exactly for the codes of e_Traitements. Writes nothing.
    bool CheckTraitement(e_Traitements code);
    // True when the code exists and its parameters pass; otherwise writes the
    // refusal's error line (an e_Filtre step whose taille is below 3 is
    // refused without any line) and returns false.
    bool CheckParams(e_Traitements code, Params_Struct params);
    // Appends the step when CheckParams passes. The count of steps is 8 bits
    // wide: the 256th step wraps it to 0 and the list is then seen as empty.
    bool AddTraitement(e_Traitements code, Params_Struct params);

    // Runs the chain on a copy of the input (width x height, bpp 8, 16 or 24)
    // and, on success only, writes the result to the output, which must hold
    // widthOut x heightOut pixels: the run fails when the chain ends at another
    // size. rect is the zone to process; a quarter turn or a resampling
    // updates it in place, even when a later step fails. A zone one pixel wide
    // or high (left == right or top == bottom) is refused.
    bool FiltrerBuffer(long width, long height, void *pBitsIn, long widthOut, long heightOut,
                       void *pBitsOut, CRect &rect, unsigned short bpp);
    // Runs the chain on the image's working zone and swaps the result in.
    // On a failed run the image is left holding the new image as created (its
    // pixel bytes undefined): callers keep a copy when they need one.
    bool Filtrer(CDibRoot *pDib);
    // The size the chain gives from width x height, walking the list in its
    // current order (a list not yet run is not ordered).
    bool DonneTailleFinale(long width, long height, long &widthOut, long &heightOut);

    // Composes the look-up steps, in list order and with repetitions, into
    // pLUT_Affichage. With no look-up step the table is left alone and the
    // result is true.
    bool Donne_LUT_Affichage(CLUT_24_Bpp *pLUT_Affichage);
    // The display table of a set of settings, applied in this order:
    // brightness/contrast/gamma, red/green/blue levels, negative (palette 12),
    // the additional table, the predefined palette (0 = none).
    static bool ComputeDisplayPalette(CLUT_24_Bpp *pLUT_Affichage, float luminosite,
                                      float contraste, float gamma, e_Palette palette, int rouge,
                                      int vert, int bleu, bool negatif,
                                      CLUT_24_Bpp *additionnelle);

    // Writes one line to the trace file, prefixed "ERROR : " when bError is
    // set. The middle flag has no effect.
    static void TraceAppels(const wchar_t *message, bool bUnused, bool bError);

    using CTraitementImgBase::IsOK;

protected:
    // True when both step arrays exist (a step was added).
    bool IsOK();
    // Puts the list into the execution order, first occurrences only.
    bool OrderTraitements();

private:
    friend struct detail::sequence_runner;

    bool IsEmpty();

    uint8_t m_NbTraitements;
    e_Traitements *m_pTraitements;
    Params_Struct *m_pParams;
};

// The layout is part of the interface: records are built and stored by
// callers, byte for byte.
static_assert(sizeof(CSequenceur::Params_Struct) == 32, "Params_Struct is eight 32-bit words");
static_assert(sizeof(CTraitementImgBase::e_angle) == 4, "angle is a 32-bit value");
static_assert(sizeof(e_Palette) == 4, "Palette is a 32-bit value");
static_assert(sizeof(CFiltre::e_Filtre) == 4, "filtre is a 32-bit value");
static_assert(offsetof(CSequenceur::Params_Struct, angle) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, pLUT) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, Palette) == (sizeof(void *) == 8 ? 8 : 4),
              "Palette follows the pointer at its natural alignment");
static_assert(offsetof(CSequenceur::Params_Struct, luminosite) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, contraste) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, gamma) == 8, "");
static_assert(offsetof(CSequenceur::Params_Struct, rouge) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, vert) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, bleu) == 8, "");
static_assert(offsetof(CSequenceur::Params_Struct, min) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, max) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, niveau) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, pourcentage) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, Ecart) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, TailleFiltre) == 8, "");
static_assert(offsetof(CSequenceur::Params_Struct, filtre) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, taille) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, param) == 8, "");
static_assert(offsetof(CSequenceur::Params_Struct, rayon) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, gainP) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, gainN) == 8, "");
static_assert(offsetof(CSequenceur::Params_Struct, SeuilP) == 12, "");
static_assert(offsetof(CSequenceur::Params_Struct, SeuilN) == 16, "");
static_assert(offsetof(CSequenceur::Params_Struct, X) == 20, "");
static_assert(offsetof(CSequenceur::Params_Struct, Y) == 24, "");
static_assert(offsetof(CSequenceur::Params_Struct, Radius) == 28, "");
static_assert(offsetof(CSequenceur::Params_Struct, width) == 0, "");
static_assert(offsetof(CSequenceur::Params_Struct, height) == 4, "");
static_assert(offsetof(CSequenceur::Params_Struct, facteur) == 8, "");

} // namespace kevra

#endif
