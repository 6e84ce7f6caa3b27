// A run of the sequencer: the ordered chain over a private working buffer,
// with the processing class and look-up tables of the run's depth.
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/float_store.h"
#include "core/pixel.h"
#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/filtre.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "kevra/sequenceur.h"
#include "kevra/traitement.h"
#include "sequencer/detail/steps.h"
#include "sequencer/detail/trace.h"

namespace kevra {
namespace detail {
namespace {

using Seq = CSequenceur;

// Bytes of a bottom-up buffer; 0 when the size is not positive or the buffer
// would pass the largest block an image may hold, so that every later size
// computation stays inside 32 bits.
std::size_t buffer_bytes(int bpp, long width, long height)
{
    if (width < 1 || height < 1)
        return 0;
    const int64_t pitch = row_pitch(width, bpp);
    if (pitch > INT32_MAX || static_cast<int64_t>(height) > INT32_MAX / pitch)
        return 0;
    return static_cast<std::size_t>(pitch * height);
}

// A buffer for a step's result, cleared so that the row padding, which no
// operation writes, comes out the same on every run.
uint8_t *alloc_buffer(int bpp, long width, long height)
{
    const std::size_t bytes = buffer_bytes(bpp, width, height);
    return bytes == 0 ? nullptr : static_cast<uint8_t *>(try_alloc_zeroed(bytes));
}

// Runs a timed step: the clock is read before the step's own trace line and
// after the operation, and the difference is traced whatever the result.
template <class Operation>
bool timed(const std::string &line, Operation &&operation)
{
    const uint32_t start = platform::tick_count_ms();
    trace_line(line, false);
    const bool result = operation();
    const uint32_t end = platform::tick_count_ms();
    trace_line(trace_format("---------> Execution en %d ms", static_cast<int>(end - start)), false);
    return result;
}

// The same for the final table, which has no line of its own: only the timing.
template <class Operation>
bool timed_silently(Operation &&operation)
{
    const uint32_t start = platform::tick_count_ms();
    const bool result = operation();
    const uint32_t end = platform::tick_count_ms();
    trace_line(trace_format("---------> Execution en %d ms", static_cast<int>(end - start)), false);
    return result;
}

// ---- steps that exist only for colour images -----------------------------------
// At 8 and 16 bits these steps fail the run; at 24 bits they call the colour
// operations. Overloads keep the two cases apart at compile time.

template <class Processor>
bool noir_et_blanc(Processor &, long, long, void *, CRect &)
{
    return false;
}
// The colour operation's own result is not looked at: black-and-white never
// fails a 24-bit run, deliberately.
bool noir_et_blanc(CTraitementImg_24_Bpp &processor, long w, long h, void *bits, CRect &rect)
{
    processor.NoirEtBlanc(w, h, bits, rect);
    return true;
}

template <class Processor>
bool saturation(Processor &, int32_t, long, long, void *, CRect &)
{
    return false;
}
bool saturation(CTraitementImg_24_Bpp &processor, int32_t pourcentage, long w, long h, void *bits,
                CRect &rect)
{
    return processor.ReglageSaturation(pourcentage, w, h, bits, rect);
}

template <class Processor>
bool teinte(Processor &, int32_t, long, long, void *, CRect &)
{
    return false;
}
bool teinte(CTraitementImg_24_Bpp &processor, int32_t pourcentage, long w, long h, void *bits,
            CRect &rect)
{
    return processor.ReglageTeinte(pourcentage, w, h, bits, rect);
}

template <class Processor>
bool blanchiment(Processor &, long, long, void *, CRect &, int32_t)
{
    return false;
}
bool blanchiment(CTraitementImg_24_Bpp &processor, long w, long h, void *bits, CRect &rect,
                 int32_t niveau)
{
    return processor.BlanchimentDents(w, h, bits, rect, niveau);
}

// ---- look-up steps that exist only for colour tables ---------------------------
// A predefined palette and the red/green/blue levels only mean something for
// a colour table: at 8 and 16 bits the step is skipped without failing. Each
// returns whether the table was set.

template <class Lut>
bool set_palette(Lut &, int32_t)
{
    return false;
}
bool set_palette(CLUT_24_Bpp &table, int32_t palette)
{
    table.SetPalette(static_cast<e_Palette>(palette));
    return true;
}

template <class Lut>
bool rouge_vert_bleu(Lut &, int32_t, int32_t, int32_t, bool &)
{
    return false;
}
bool rouge_vert_bleu(CLUT_24_Bpp &table, int32_t rouge, int32_t vert, int32_t bleu, bool &result)
{
    result = table.ReglageRougeVertBleu(rouge, vert, bleu);
    return true;
}

} // namespace

// Has the sequencer's step list and its protected float-plane helpers.
struct sequence_runner {
    // FiltrerBuffer's run; see its definition for `rows_in_input`.
    static bool run_buffer(CSequenceur &seq, long width, long height, void *pBitsIn, long widthOut, long heightOut,
                           void *pBitsOut, CRect &rect, unsigned short bpp, bool *rows_in_input);

    // The working buffer and its current size; rect is the caller's.
    struct Work {
        int bpp;
        long width;
        long height;
        uint8_t *bits;
        CRect &rect;
        bool owned; // false while the run works in the caller's output buffer
    };

    // Gives up the working buffer.
    static void release(Work &work)
    {
        if (work.owned)
            std::free(work.bits);
        work.bits = nullptr;
        work.owned = true;
    }

    // Replaces the working buffer by a result of the new size.
    static void replace(Work &work, uint8_t *result, long width, long height)
    {
        release(work);
        work.bits = result;
        work.width = width;
        work.height = height;
    }

    template <class Processor>
    static bool quick_rotate(Processor &processor, Work &work, int32_t angle)
    {
        const long w = work.width;
        const long h = work.height;
        long newWidth;
        long newHeight;
        if (angle == Seq::e_Angle90 || angle == Seq::e_Angle270) {
            newWidth = h;
            newHeight = w;
        } else if (angle == Seq::e_Angle180) {
            newWidth = w;
            newHeight = h;
        } else {
            return false;
        }

        // The zone turns with the picture; the caller's rect keeps the turned
        // zone even when a later step fails.
        CRect &r = work.rect;
        const int32_t W = static_cast<int32_t>(w);
        const int32_t H = static_cast<int32_t>(h);
        if (angle == Seq::e_Angle90)
            r = CRect(H - 1 - r.bottom, r.left, H - 1 - r.top, r.right);
        else if (angle == Seq::e_Angle180)
            r = CRect(W - 1 - r.right, H - 1 - r.bottom, W - 1 - r.left, H - 1 - r.top);
        else
            r = CRect(r.top, W - 1 - r.right, r.bottom, W - 1 - r.left);

        uint8_t *turned = alloc_buffer(work.bpp, newWidth, newHeight);
        if (turned == nullptr)
            return false;
        const bool result = processor.QuickRotate(static_cast<CTraitementImgBase::e_angle>(angle), w,
                                                  h, work.bits, r, newWidth, newHeight, turned);
        replace(work, turned, newWidth, newHeight);
        return result;
    }

    template <class Processor>
    static bool resample(Processor &processor, Work &work, const Seq::Params_Struct &p)
    {
        const long newWidth = p.width;
        const long newHeight = p.height;
        uint8_t *resampled = alloc_buffer(work.bpp, newWidth, newHeight);
        if (resampled == nullptr)
            return false;

        // Each edge scales as edge * new / old, in single precision, truncated.
        CRect &r = work.rect;
        const float fw = static_cast<float>(newWidth);
        const float fh = static_cast<float>(newHeight);
        const float ow = static_cast<float>(work.width);
        const float oh = static_cast<float>(work.height);
        r.left = detail::truncate_i32(static_cast<float>(r.left) * fw / ow);
        r.right = detail::truncate_i32(static_cast<float>(r.right) * fw / ow);
        r.top = detail::truncate_i32(static_cast<float>(r.top) * fh / oh);
        r.bottom = detail::truncate_i32(static_cast<float>(r.bottom) * fh / oh);

        const bool result = processor.Resample(work.width, work.height, work.bits, newWidth,
                                               newHeight, resampled, p.facteur);
        replace(work, resampled, newWidth, newHeight);
        return result;
    }

    // The convolution step goes through a float plane: convert, filter, clamp
    // to the depth's range, convert back over the zone.
    static bool convolution(Seq &seq, Work &work, const Seq::Params_Struct &p)
    {
        const int32_t kind = filtre_word(p);
        const uint64_t channels = work.bpp == 24 ? 3 : 1;
        const uint64_t count = static_cast<uint64_t>(work.width) * static_cast<uint64_t>(work.height)
                               * channels;
        // Above 2^30 - 1 floats the plane is treated as impossible to allocate.
        if (count > (uint64_t(1) << 30) - 1)
            return false;
        float *plane = try_new_array<float>(static_cast<std::size_t>(count));
        if (plane == nullptr)
            return false;

        // The kernel reads up to half its size beyond the zone: the whole
        // picture goes into the plane so that those neighbours are the real
        // pixels. Only the zone is written back.
        CRect whole(0, 0, static_cast<int>(work.width) - 1, static_cast<int>(work.height) - 1);
        seq.ConvertToFloat(work.width, work.height, work.bits, plane, whole);

        CFiltre filter(static_cast<CFiltre::e_Filtre>(kind), p.taille, p.param);
        bool result = false;
        if (filter.IsOK()) {
            if (kind == CFiltre::Filtre_GradientDiagonal) {
                // The diagonal gradient is centred on mid-grey: (N + 1) / 2 with N
                // = 65536 or 256, that is 32768.5 or 128.5 (the + 1 is deliberate).
                const float levels = work.bpp == 16 ? 65536.0f : 256.0f;
                const float offset = (levels + 1.0f) * 0.5f;
                result = filter.FiltrerBufferAvecOffsetFacteur(
                    work.width, work.height, plane, work.rect,
                    static_cast<unsigned short>(work.bpp), offset, 1.0f);
            } else {
                result = filter.FiltrerBuffer(work.width, work.height, plane, work.rect,
                                              static_cast<unsigned short>(work.bpp));
            }
        }
        const float top = work.bpp == 16 ? 65535.0f : 255.0f;
        seq.TronqueValeurs(work.width, work.height, plane, work.rect, 0.0f, top);
        seq.ConvertToBits(work.width, work.height, work.bits, plane, work.rect);
        delete[] plane;
        return result;
    }

    // The relief kernel is a placeholder that always fails (see
    // CTraitementImg::Pseudo3D), so this step ends any run it is part of.
    template <class Processor>
    static bool pseudo_3d(Processor &processor, Work &work)
    {
        const CSize size(static_cast<int>(work.width), static_cast<int>(work.height));
        const unsigned short bitCount = static_cast<unsigned short>(work.bpp);
        CDibRoot *source = try_new<CDibRoot>(size, bitCount);
        CDibRoot *target = try_new<CDibRoot>(size, bitCount);
        bool result = false;
        if (source != nullptr && target != nullptr && source->IsOK() && target->IsOK()) {
            std::memcpy(source->GetBits(), work.bits, source->SizeImage());
            result = processor.Pseudo3D(source, target);
        }
        delete source;
        release(work);
        if (result) {
            work.bits = alloc_buffer(work.bpp, work.width, work.height);
            if (work.bits != nullptr)
                std::memcpy(work.bits, target->GetBits(),
                            buffer_bytes(work.bpp, work.width, work.height));
            else
                result = false;
        }
        delete target;
        return result;
    }

    // The chain with the processing class and tables of one depth. Look-up
    // steps only compose tables; the composed table is applied once after the
    // loop.
    template <class Processor, class Lut>
    static bool run_chain(Seq &seq, Work &work, long widthOut, long heightOut)
    {
        Processor processor;
        Lut accumulated;
        Lut scratch;
        bool filled = false;

        // The later table is applied on the result of the earlier ones.
        auto compose_scratch = [&]() {
            if (!filled) {
                accumulated.Copier(&scratch);
                filled = true;
            } else {
                accumulated.Combiner(&scratch);
            }
        };

        bool ok = true;
        for (int i = 0; ok && i < seq.m_NbTraitements; ++i) {
            const Seq::Params_Struct p = seq.m_pParams[i];
            long &w = work.width;
            long &h = work.height;
            CRect &rect = work.rect;
            switch (seq.m_pTraitements[i]) {
            case Seq::e_Mirroir_Vertical:
                ok = timed("Traitement=e_Mirroir_Vertical",
                           [&] { return processor.Mirroir_Vertical(w, h, work.bits, rect); });
                break;
            case Seq::e_Mirroir_Horizontal:
                ok = timed("Traitement=e_Mirroir_Horizontal",
                           [&] { return processor.Mirroir_Horizontal(w, h, work.bits, rect); });
                break;
            case Seq::e_QuickRotate:
                ok = timed(trace_format("Traitement=e_QuickRotate, angle=%d (voir e_angle)",
                                        static_cast<int>(angle_word(p))),
                           [&] { return quick_rotate(processor, work, angle_word(p)); });
                break;
            case Seq::e_FiltreMedian:
                ok = timed(trace_format("Traitement=e_FiltreMedian, Ecart=%lf, TailleFiltre=%d",
                                        p.Ecart, static_cast<int>(p.TailleFiltre)),
                           [&] {
                               return processor.FiltreMedian(w, h, work.bits, rect, p.Ecart,
                                                             p.TailleFiltre);
                           });
                break;
            case Seq::e_Filtre:
                ok = timed(trace_format("Traitement=e_Filtre, filtre=%d, taille=%d, param=%f",
                                        static_cast<int>(filtre_word(p)),
                                        static_cast<int>(p.taille), static_cast<double>(p.param)),
                           [&] { return convolution(seq, work, p); });
                break;
            case Seq::e_UnsharpMasking:
                ok = timed(trace_format("Traitement=e_UnsharpMasking, rayon=%f, gainP=%f, gainN=%f, "
                                        "SeuilP=%f, SeuilN=%f",
                                        static_cast<double>(p.rayon), static_cast<double>(p.gainP),
                                        static_cast<double>(p.gainN), static_cast<double>(p.SeuilP),
                                        static_cast<double>(p.SeuilN)),
                           [&] {
                               return processor.UnsharpMasking(w, h, work.bits, rect, p.rayon,
                                                               p.gainP, p.gainN, p.SeuilP,
                                                               p.SeuilN);
                           });
                break;
            case Seq::e_UnsharpMaskingCircle:
                // The disc replaces the zone: rect is not passed.
                ok = timed(trace_format("Traitement=e_UnsharpMaskingCircle, rayon=%f, gainP=%f, "
                                        "gainN=%f, SeuilP=%f, SeuilN=%f, X=%d, Y=%d, Radius = %d",
                                        static_cast<double>(p.rayon), static_cast<double>(p.gainP),
                                        static_cast<double>(p.gainN), static_cast<double>(p.SeuilP),
                                        static_cast<double>(p.SeuilN), static_cast<int>(p.X),
                                        static_cast<int>(p.Y), static_cast<int>(p.Radius)),
                           [&] {
                               CPoint centre(p.X, p.Y);
                               return processor.UnsharpMasking(w, h, work.bits, centre,
                                                               static_cast<long>(p.Radius), p.rayon,
                                                               p.gainP, p.gainN, p.SeuilP,
                                                               p.SeuilN);
                           });
                break;
            case Seq::e_Resample:
                ok = timed(trace_format("Traitement=e_Resample, width=%d, height=%d, facteur=%d",
                                        static_cast<int>(p.width), static_cast<int>(p.height),
                                        static_cast<int>(p.facteur)),
                           [&] { return resample(processor, work, p); });
                break;
            case Seq::e_NoirEtBlanc:
                ok = timed("Traitement=e_NoirEtBlanc",
                           [&] { return noir_et_blanc(processor, w, h, work.bits, rect); });
                break;
            case Seq::e_Negatif:
                ok = timed("Traitement=e_Negatif",
                           [&] { return processor.Negatif(w, h, work.bits, rect); });
                break;
            case Seq::e_Saturation:
                ok = timed("Traitement=e_Saturation", [&] {
                    return saturation(processor, p.pourcentage, w, h, work.bits, rect);
                });
                break;
            case Seq::e_Teinte:
                ok = timed("Traitement=e_Teinte",
                           [&] { return teinte(processor, p.pourcentage, w, h, work.bits, rect); });
                break;
            case Seq::e_Blanchiment:
                ok = timed("Traitement=e_Blanchiment",
                           [&] { return blanchiment(processor, w, h, work.bits, rect, p.niveau); });
                break;
            case Seq::e_LUT:
                trace_line(trace_format("Traitement=e_LUT, pLUT=%" PRIXPTR "h, Palette=%d",
                                        reinterpret_cast<uintptr_t>(p.pLUT),
                                        static_cast<int>(palette_word(p))),
                           false);
                if (p.pLUT != nullptr) {
                    // A table of another depth than the run's is ignored.
                    if (p.pLUT->GetBpp() == scratch.GetBpp()) {
                        scratch.Copier(p.pLUT);
                        compose_scratch();
                    }
                } else if (set_palette(scratch, palette_word(p))) {
                    compose_scratch();
                }
                break;
            case Seq::e_LUT_LuminositeContrasteGamma:
                trace_line(trace_format("Traitement=e_LUT_LuminositeContrasteGamma, luminosite=%f, "
                                        "constraste=%f, gamma=%f",
                                        static_cast<double>(p.luminosite),
                                        static_cast<double>(p.contraste),
                                        static_cast<double>(p.gamma)),
                           false);
                if (!filled) {
                    ok = accumulated.SetLuminositeConstrateGamma(p.luminosite, p.contraste, p.gamma);
                    filled = true;
                } else {
                    ok = scratch.SetLuminositeConstrateGamma(p.luminosite, p.contraste, p.gamma);
                    accumulated.Combiner(&scratch);
                }
                break;
            case Seq::e_LUT_RougeVertBleu:
                trace_line(trace_format("Traitement=e_LUT_RougeVertBleu, rouge=%d, vert=%d, bleu=%d",
                                        static_cast<int>(p.rouge), static_cast<int>(p.vert),
                                        static_cast<int>(p.bleu)),
                           false);
                if (!filled) {
                    if (rouge_vert_bleu(accumulated, p.rouge, p.vert, p.bleu, ok))
                        filled = true;
                } else if (rouge_vert_bleu(scratch, p.rouge, p.vert, p.bleu, ok)) {
                    accumulated.Combiner(&scratch);
                }
                break;
            case Seq::e_EgalisationHistogramme:
                ok = timed(trace_format("Traitement=e_EgalisationHistogramme, min=%f, max=%f",
                                        static_cast<double>(p.min), static_cast<double>(p.max)),
                           [&] {
                               return processor.EgalisationHistogramme(p.min, p.max, w, h,
                                                                       work.bits, rect);
                           });
                break;
            case Seq::e_Pseudo3D:
                ok = timed("Traitement=e_Pseudo3D", [&] { return pseudo_3d(processor, work); });
                break;
            default:
                trace_line("Traitement inconnu!", true);
                ok = false;
                break;
            }
        }

        if (ok && (work.width != widthOut || work.height != heightOut))
            ok = false;
        // Applied after the loop, hence after histogram equalization and
        // pseudo-relief although they come later in the order: kept so.
        if (ok && filled) {
            ok = timed_silently([&] {
                return accumulated.FiltrerBuffer(work.width, work.height, work.bits, work.rect);
            });
        }
        return ok;
    }
};

} // namespace detail

namespace detail {

// The run of FiltrerBuffer. Given `rows_in_input` (Filtrer, whose input image is discarded after
// the run), the input itself is the working buffer when the output has its size: no copy is
// made, and a successful run that ends in it sets *rows_in_input instead of copying the result
// to the output, which the caller then takes over as it is.
bool sequence_runner::run_buffer(CSequenceur &seq, long width, long height, void *pBitsIn, long widthOut,
                                 long heightOut, void *pBitsOut, CRect &rect, unsigned short bpp,
                                 bool *rows_in_input)
{
    if (rows_in_input != nullptr)
        *rows_in_input = false;
    trace_line(trace_format("### FiltrerBuffer : %d traitements demandés sur une image %d bits de "
                            "%d x %d pixels.\nZone traitée t=%d,b=%d - l=%d,r=%d\nImage de sortie "
                            "de %d x %d pixels.",
                            static_cast<int>(seq.m_NbTraitements), static_cast<int>(bpp),
                            static_cast<int>(width), static_cast<int>(height),
                            static_cast<int>(rect.top), static_cast<int>(rect.bottom),
                            static_cast<int>(rect.left), static_cast<int>(rect.right),
                            static_cast<int>(widthOut), static_cast<int>(heightOut)),
               false);

    bool result = false;
    Work work{bpp, width, height, nullptr, rect, true};
    // A zone one pixel wide or high is refused (strict < on both axes),
    // deliberately.
    const bool valid = width >= 1 && height >= 1 && pBitsIn != nullptr && widthOut >= 1
                       && heightOut >= 1 && rect.left >= 0 && rect.left < rect.right
                       && rect.right < width && rect.top >= 0 && rect.top < rect.bottom
                       && rect.bottom < height && (bpp == 8 || bpp == 16 || bpp == 24);
    if (!valid) {
        trace_line("FiltrerBuffer : Les parametres dimensionnels sont invalides!", true);
    } else {
        seq.m_bpp = static_cast<unsigned char>(bpp);
        const std::size_t bytes = buffer_bytes(bpp, width, height);
        const bool in_input = rows_in_input != nullptr && widthOut == width && heightOut == height;
        if (in_input) {
            work.bits = static_cast<uint8_t *>(pBitsIn);
            work.owned = false;
        } else {
            work.bits = bytes == 0 ? nullptr : static_cast<uint8_t *>(try_alloc(bytes));
            if (work.bits != nullptr)
                std::memcpy(work.bits, pBitsIn, bytes);
        }
        if (work.bits != nullptr) {
            if (!seq.IsEmpty() && seq.OrderTraitements()) {
                if (bpp == 8)
                    result = run_chain<CTraitementImg_8_Bpp, CLUT_8_Bpp>(seq, work, widthOut,
                                                                                          heightOut);
                else if (bpp == 16)
                    result = run_chain<CTraitementImg_16_Bpp, CLUT_16_Bpp>(seq, work, widthOut,
                                                                                            heightOut);
                else
                    result = run_chain<CTraitementImg_24_Bpp, CLUT_24_Bpp>(seq, work, widthOut,
                                                                                            heightOut);
                // Written only on success: a failed run leaves the output as it was.
                if (pBitsOut == nullptr)
                    result = false;
                else if (result && work.bits == pBitsIn)
                    *rows_in_input = true;
                else if (result)
                    std::memcpy(pBitsOut, work.bits, buffer_bytes(bpp, widthOut, heightOut));
            }
        }
    }
    release(work);
    trace_line("### Fin de FiltrerBuffer\n", false);
    return result;
}

} // namespace detail

bool CSequenceur::FiltrerBuffer(long width, long height, void *pBitsIn, long widthOut,
                                long heightOut, void *pBitsOut, CRect &rect, unsigned short bpp)
{
    return detail::sequence_runner::run_buffer(*this, width, height, pBitsIn, widthOut, heightOut, pBitsOut,
                                               rect, bpp, nullptr);
}

bool CSequenceur::Filtrer(CDibRoot *pDib)
{
    if (pDib == nullptr || !pDib->IsOK())
        return false;

    long widthOut = 0;
    long heightOut = 0;
    if (!DonneTailleFinale(pDib->Width(), pDib->Height(), widthOut, heightOut))
        return false;

    const unsigned short bpp = pDib->BitCount();
    CDibRoot *pNew = detail::try_new<CDibRoot>(
        CSize(static_cast<int>(widthOut), static_cast<int>(heightOut)), bpp);
    if (pNew == nullptr)
        return false;
    if (!pNew->IsOK()) {
        delete pNew;
        return false;
    }

    CRect rect = pDib->BoundingRectangle();
    // The image's own rows may serve as the run's working buffer when no other handle shares its
    // store: the store is discarded after the run anyway. A result left in them is then handed
    // to the new image by trading blocks, without a copy.
    CxImage *store = detail::DibStoreAccess::of(*pDib);
    CxImage *fresh = detail::DibStoreAccess::of(*pNew);
    const bool consumable = store != nullptr && fresh != nullptr && store->m_handles == 1;
    bool rows_in_input = false;
    const bool result = detail::sequence_runner::run_buffer(*this, pDib->Width(), pDib->Height(), pDib->GetBits(),
                                                            widthOut, heightOut, pNew->GetBits(), rect, bpp,
                                                            consumable ? &rows_in_input : nullptr);
    if (result && rows_in_input && !fresh->exchange_rows(*store))
        std::memcpy(pNew->GetBits(), pDib->GetBits(), detail::buffer_bytes(bpp, widthOut, heightOut));
    pDib->ReleaseBits();
    pNew->ReleaseBits();

    // Swapped whatever the run gave: a failed run leaves the image holding the
    // new image as created. Callers rely on the size being the predicted one.
    pDib->SwapImage(*pNew);
    delete pNew;
    return result;
}

} // namespace kevra
