// Tone operations and the per-depth processing classes.
//
// Common rules for every operation declared here:
//  * Two calling forms. The buffer form takes the operation's own parameters, then
//    (long width, long height, void *bits, CRect &rect) and works in place on a raw bottom-up
//    pixel buffer of the object's depth; it trusts its arguments. The image form takes the
//    operation's own parameters, then a CDibRoot *: it refuses a null image, an image whose bit
//    count differs from the object's depth and an image that is not IsOK(), then runs the
//    buffer form on the image's working zone (BoundingRectangle) and releases the bits.
//  * Rows are bottom-up: picture row y (0 = top) is buffer row height - 1 - y. Every row is
//    padded to 4 bytes. Rectangles are in picture coordinates; unless a member says otherwise
//    all four edges are inclusive.
//  * Results are success flags; nothing throws.
// Members state only their exceptions to these rules.
#ifndef KEVRA_TRAITEMENT_H
#define KEVRA_TRAITEMENT_H

#include "kevra/traitement_base.h"
#include "kevra/types.h"

namespace kevra {

class CDibRoot;
class CLUT;
class CLUT_8_Bpp;
class CLUT_16_Bpp;
class CLUT_24_Bpp;

// Middle class between the processing base and the per-depth classes: one working look-up
// table of the object's depth (owned by the per-depth class that created it) and the tone
// adjustments built on it.
class CTraitementImg : public CTraitementImgBase {
    KEVRA_DECLARE_DYNAMIC(CTraitementImg)
public:
    explicit CTraitementImg(unsigned char bpp);
    ~CTraitementImg() override;

    // Each tone adjustment rebuilds the working table with
    // SetLuminositeConstrateGamma(luminosite, contraste, gamma) and applies it to the rectangle.
    // The result is the table rebuild's; false when the object has no table.
    bool ReglageLuminosite(float luminosite, long width, long height, void *bits, CRect &rect);
    bool ReglageLuminosite(float luminosite, CDibRoot *image);
    bool ReglageContraste(float contraste, long width, long height, void *bits, CRect &rect);
    bool ReglageContraste(float contraste, CDibRoot *image);
    bool ReglageGamma(float gamma, long width, long height, void *bits, CRect &rect);
    bool ReglageGamma(float gamma, CDibRoot *image);
    bool ReglageLuminositeContrasteGamma(float luminosite, float contraste, float gamma,
                                         long width, long height, void *bits, CRect &rect);
    bool ReglageLuminositeContrasteGamma(float luminosite, float contraste, float gamma,
                                         CDibRoot *image);

    // Pseudo-relief. The relief kernel is a placeholder: both forms always return false and
    // never touch the target.
    bool Pseudo3D(tagBITMAPINFO *sourceHeader, void *sourceBits, tagBITMAPINFO *targetHeader,
                  void *targetBits);
    bool Pseudo3D(CDibRoot *source, CDibRoot *target);

protected:
    CLUT *m_pLUT; // working table; null until a per-depth constructor installs one
};

// 8-bit grey images (one byte a pixel).
class CTraitementImg_8_Bpp : public CTraitementImg {
    KEVRA_DECLARE_DYNAMIC(CTraitementImg_8_Bpp)
public:
    CTraitementImg_8_Bpp();
    ~CTraitementImg_8_Bpp() override;
    CTraitementImg_8_Bpp(const CTraitementImg_8_Bpp &) = delete;
    CTraitementImg_8_Bpp &operator=(const CTraitementImg_8_Bpp &) = delete;

    // Point and geometric operations.
    bool Negatif(long width, long height, void *bits, CRect &rect);
    bool Negatif(CDibRoot *image);
    bool Fill(unsigned char value, long width, long height, void *bits, CRect &rect);
    bool Fill(unsigned char value, CDibRoot *image);
    // Leaves the rectangle's bottom row alone, and the two centre pixels of an even span.
    bool Mirroir_Horizontal(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Horizontal(CDibRoot *image);
    // Leaves the rectangle's bottom row alone.
    bool Mirroir_Vertical(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Vertical(CDibRoot *image);
    // Turns the whole buffer into bitsOut (rect is ignored). The image form does not compare
    // the image's depth with the object's.
    bool QuickRotate(e_angle angle, long width, long height, void *bits, CRect &rect,
                     long widthOut, long heightOut, void *bitsOut);
    bool QuickRotate(e_angle angle, CDibRoot *image);
    // A no-op in this version (true, nothing touched); the image form still validates.
    bool AdditionSoustraction(float poids, long width, long height, void *bits, void *bits2,
                              CRect &rect);
    bool AdditionSoustraction(float poids, CDibRoot *image, CDibRoot *image2);

    // Histograms (256 counts) and the percentile stretch.
    bool Donne_Histogramme(long *const histogramme, long width, long height, void *bits,
                           CRect &rect);
    bool Donne_Histogrammes(long *const histogramme, CDibRoot *image);
    bool EgalisationHistogramme(float min, float max, long width, long height, void *bits,
                                CRect &rect);
    bool EgalisationHistogramme(float min, float max, CDibRoot *image);

    // Resampling of the whole buffer into a second one (no rectangle).
    bool ResampleSimple(long width, long height, void *bits, long widthOut, long heightOut,
                        void *bitsOut, unsigned char mode);
    bool Resample(long width, long height, void *bits, long widthOut, long heightOut,
                  void *bitsOut, unsigned char mode);
    // An image of another depth than the object's is not refused here.
    bool Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode);

    // Selective median.
    bool FiltreMedianSimple(long width, long height, void *bits, void *out, CRect &rect,
                            double tolerance, unsigned short rayon);
    bool FiltreMedian(long width, long height, void *bits, CRect &rect, double tolerance,
                      unsigned short rayon);
    bool FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon);
    void TriBulleOptimise(unsigned char *valeurs, int nombre);

    // Unsharp masking over the rectangle, or over a disc (centre in picture coordinates).
    bool UnsharpMasking(long width, long height, void *bits, CRect &rect, float rayon,
                        float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN, float SeuilP,
                        float SeuilN);
    bool UnsharpMasking(long width, long height, void *bits, CPoint &centre, long radius,
                        float rayon, float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon, float gainP,
                        float gainN, float SeuilP, float SeuilN);

protected:
    CLUT_8_Bpp *m_pLUT_8;  // same object as m_pLUT, typed
    int m_NbThreads;       // worker slots: processor count, at least 2
    void **m_phThreads;    // worker handles, all empty: no operation starts a worker
};

// 16-bit grey images (one unsigned little-endian 16-bit sample a pixel).
class CTraitementImg_16_Bpp : public CTraitementImg {
    KEVRA_DECLARE_DYNAMIC(CTraitementImg_16_Bpp)
public:
    CTraitementImg_16_Bpp();
    ~CTraitementImg_16_Bpp() override;
    CTraitementImg_16_Bpp(const CTraitementImg_16_Bpp &) = delete;
    CTraitementImg_16_Bpp &operator=(const CTraitementImg_16_Bpp &) = delete;

    bool Negatif(long width, long height, void *bits, CRect &rect);
    bool Negatif(CDibRoot *image);
    bool Fill(unsigned short value, long width, long height, void *bits, CRect &rect);
    bool Fill(unsigned short value, CDibRoot *image);
    bool Mirroir_Horizontal(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Horizontal(CDibRoot *image);
    bool Mirroir_Vertical(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Vertical(CDibRoot *image);
    bool QuickRotate(e_angle angle, long width, long height, void *bits, CRect &rect,
                     long widthOut, long heightOut, void *bitsOut);
    bool QuickRotate(e_angle angle, CDibRoot *image);
    bool AdditionSoustraction(float poids, long width, long height, void *bits, void *bits2,
                              CRect &rect);
    bool AdditionSoustraction(float poids, CDibRoot *image, CDibRoot *image2);

    // 65536 counts, whatever the sample range in use.
    bool Donne_Histogramme(long *const histogramme, long width, long height, void *bits,
                           CRect &rect);
    bool Donne_Histogrammes(long *const histogramme, CDibRoot *image);
    bool EgalisationHistogramme(float min, float max, long width, long height, void *bits,
                                CRect &rect);
    bool EgalisationHistogramme(float min, float max, CDibRoot *image);

    bool ResampleSimple(long width, long height, void *bits, long widthOut, long heightOut,
                        void *bitsOut, unsigned char mode);
    bool Resample(long width, long height, void *bits, long widthOut, long heightOut,
                  void *bitsOut, unsigned char mode);
    bool Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode);

    bool FiltreMedianSimple(long width, long height, void *bits, void *out, CRect &rect,
                            double tolerance, unsigned short rayon);
    bool FiltreMedian(long width, long height, void *bits, CRect &rect, double tolerance,
                      unsigned short rayon);
    bool FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon);
    void TriBulleOptimise(unsigned short *valeurs, int nombre);

    bool UnsharpMasking(long width, long height, void *bits, CRect &rect, float rayon,
                        float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN, float SeuilP,
                        float SeuilN);
    bool UnsharpMasking(long width, long height, void *bits, CPoint &centre, long radius,
                        float rayon, float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon, float gainP,
                        float gainN, float SeuilP, float SeuilN);

protected:
    CLUT_16_Bpp *m_pLUT_16;
    int m_NbThreads;
    void **m_phThreads;
};

// 24-bit colour images (blue, green, red bytes).
class CTraitementImg_24_Bpp : public CTraitementImg {
    KEVRA_DECLARE_DYNAMIC(CTraitementImg_24_Bpp)
public:
    CTraitementImg_24_Bpp();
    ~CTraitementImg_24_Bpp() override;
    CTraitementImg_24_Bpp(const CTraitementImg_24_Bpp &) = delete;
    CTraitementImg_24_Bpp &operator=(const CTraitementImg_24_Bpp &) = delete;

    // Negative through the inverted grey palette applied to all three channels.
    bool Negatif(long width, long height, void *bits, CRect &rect);
    bool Negatif(CDibRoot *image);
    // Writes bits 0-7, 8-15, 16-23 of value to the pixel's three bytes in memory order.
    bool Fill(unsigned long value, long width, long height, void *bits, CRect &rect);
    bool Fill(unsigned long value, CDibRoot *image);
    bool Mirroir_Horizontal(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Horizontal(CDibRoot *image);
    bool Mirroir_Vertical(long width, long height, void *bits, CRect &rect);
    bool Mirroir_Vertical(CDibRoot *image);
    bool QuickRotate(e_angle angle, long width, long height, void *bits, CRect &rect,
                     long widthOut, long heightOut, void *bitsOut);
    bool QuickRotate(e_angle angle, CDibRoot *image);

    // Histograms count the pixel's first byte as red, its second as green, its third as blue.
    bool Donne_HistogrammeRouge(long *const histogramme, long width, long height, void *bits,
                                CRect &rect);
    bool Donne_HistogrammeRouge(long *const histogramme, CDibRoot *image);
    bool Donne_HistogrammeVert(long *const histogramme, long width, long height, void *bits,
                               CRect &rect);
    bool Donne_HistogrammeVert(long *const histogramme, CDibRoot *image);
    bool Donne_HistogrammeBleu(long *const histogramme, long width, long height, void *bits,
                               CRect &rect);
    bool Donne_HistogrammeBleu(long *const histogramme, CDibRoot *image);
    bool Donne_HistogrammeLuminance(long *const histogramme, long width, long height,
                                    void *bits, CRect &rect);
    bool Donne_HistogrammeLuminance(long *const histogramme, CDibRoot *image);
    bool Donne_Histogrammes(long *const rouge, long *const vert, long *const bleu, long width,
                            long height, void *bits, CRect &rect);
    bool Donne_Histogrammes(long *const rouge, long *const vert, long *const bleu,
                            CDibRoot *image);
    // The stretch finds the percentile limits of each byte's 256-level histogram as the grey
    // classes do, then applies ONE table, from the lowest low limit to the highest high limit,
    // to all three bytes: the colour balance is kept (a grey pixel stays grey).
    bool EgalisationHistogramme(float min, float max, long width, long height, void *bits,
                                CRect &rect);
    bool EgalisationHistogramme(float min, float max, CDibRoot *image);

    bool ResampleSimple(long width, long height, void *bits, long widthOut, long heightOut,
                        void *bitsOut, unsigned char mode);
    bool Resample(long width, long height, void *bits, long widthOut, long heightOut,
                  void *bitsOut, unsigned char mode);
    bool Resample(CDibRoot *source, CDibRoot *destination, unsigned char mode);

    // Each channel is tested and replaced on its own.
    bool FiltreMedianSimple(long width, long height, void *bits, void *out, CRect &rect,
                            double tolerance, unsigned short rayon);
    bool FiltreMedian(long width, long height, void *bits, CRect &rect, double tolerance,
                      unsigned short rayon);
    bool FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon);
    void TriBulleOptimise(unsigned char *valeurs, int nombre);

    bool UnsharpMasking(long width, long height, void *bits, CRect &rect, float rayon,
                        float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN, float SeuilP,
                        float SeuilN);
    bool UnsharpMasking(long width, long height, void *bits, CPoint &centre, long radius,
                        float rayon, float gainP, float gainN, float SeuilP, float SeuilN);
    bool UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon, float gainP,
                        float gainN, float SeuilP, float SeuilN);

    // RGB/HSL model, in double precision. c1 is the pixel's first byte (blue in a standard
    // bitmap): the model calls it red, which moves the hue origin on purpose.
    void RGBtoHSL(unsigned char c1, unsigned char c2, unsigned char c3, double *H, double *S,
                  double *L);
    void RGBtoHSL(unsigned long couleur, double *H, double *S, double *L);
    void HSLtoRGB(double H, double S, double L, unsigned char *c1, unsigned char *c2,
                  unsigned char *c3);
    unsigned long HSLtoRGB(double H, double S, double L);
    double HuetoRGB(double m1, double m2, double h);

    // Colour adjustments. Saturation, hue, luminance and whitening treat the rectangle's
    // right and bottom edges as exclusive; the level gains and NoirEtBlanc as inclusive.
    // None of them clamps the rectangle to the image.
    bool ReglageSaturation(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageSaturation(int pourcentage, CDibRoot *image);
    bool ReglageTeinte(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageTeinte(int pourcentage, CDibRoot *image);
    bool ReglageLuminance(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageLuminance(int pourcentage, CDibRoot *image);
    // Teeth whitening is a lightness gain: exactly ReglageLuminance. The sequencer's calling
    // order (level last) and the common order (level first) are both offered.
    bool BlanchimentDents(long width, long height, void *bits, CRect &rect, int niveau);
    bool BlanchimentDents(int niveau, long width, long height, void *bits, CRect &rect);
    bool BlanchimentDents(int niveau, CDibRoot *image);
    bool ReglageRouge(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageRouge(int pourcentage, CDibRoot *image);
    bool ReglageVert(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageVert(int pourcentage, CDibRoot *image);
    bool ReglageBleu(int pourcentage, long width, long height, void *bits, CRect &rect);
    bool ReglageBleu(int pourcentage, CDibRoot *image);
    bool ReglageRougeVertBleu(int rouge, int vert, int bleu, long width, long height,
                              void *bits, CRect &rect);
    bool ReglageRougeVertBleu(int rouge, int vert, int bleu, CDibRoot *image);
    // The first and third bytes take the value of the second: the image becomes its green
    // channel, no weighted luminance.
    bool NoirEtBlanc(long width, long height, void *bits, CRect &rect);
    bool NoirEtBlanc(CDibRoot *image);
    // Saturation kernel on one run of pixels, 10-bit fixed point.
    void ProcessingSat(unsigned char *source, unsigned char *destination, int nombre,
                       double facteur);

protected:
    CLUT_24_Bpp *m_pLUT_24;
    int m_NbThreads;
    void **m_phThreads;
};

} // namespace kevra

#endif
