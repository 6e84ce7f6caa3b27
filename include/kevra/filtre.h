// Convolution filters.
//
// A CFiltre holds one kernel, built from the catalogue (e_Filtre, a size and a
// shape parameter, possibly a different kind across and down) or from the
// caller's coefficients, and applies it to an image or to a float plane.
//
// Common rules:
// - Two modes. Separable (kinds 0..5): the kernel is the product of an X half
//   table and a Y half table of n+1 weights each (index 0 = centre, index i =
//   the two taps at distance i), normalised so that the whole kernel sums to 1.
//   Full kernel (kinds 6..9 and every user table): one table of (2nX+1)(2nY+1)
//   coefficients, row-major, row 0 meeting the LOWEST buffer row of the
//   neighbourhood; never normalised; it is a correlation (not flipped).
// - Creation never fails loudly: IsOK() tells whether the kernel was built.
// - Float planes are width*height pixels, bottom row first, 3 floats a pixel
//   (blue, green, red) when the bit count is 24 and 1 otherwise.
// - Rectangles are in picture coordinates (row 0 at the top), all four edges
//   inclusive; each bound is clamped into the image, then the rows are turned
//   into buffer rows. Only pixels of the rectangle change.
// - Near an image edge the kernel is mirrored about the RECTANGLE's edges.
// - Offset and factor (result * factor + offset) apply to full kernels only;
//   the separable engines accept and ignore them. Once set they stay for the
//   later calls.
// - Only the image entry clips values (to 0..255, or 0..65535 at 16 bits);
//   the buffer entries leave negative or large values as they are.
#ifndef KEVRA_FILTRE_H
#define KEVRA_FILTRE_H

#include <cstdint>

#include "kevra/traitement_base.h"
#include "kevra/types.h"

namespace kevra {

class CDibRoot;

class CFiltre : public CTraitementImgBase {
    KEVRA_DECLARE_DYNAMIC(CFiltre)

public:
    // Passed as a 32-bit integer: any value is representable; values other
    // than 0..9 make an invalid filter.
    enum e_Filtre : int32_t {
        Filtre_Moyenne = 0,          // box: every weight 1
        Filtre_Gaussien = 1,         // exp(-i^2 / (2 p^2))
        Filtre_Rampe = 2,            // i (0 at the centre)
        Filtre_Parabole = 3,         // 1 - (1 - i/n)^2 with an integer quotient
        Filtre_Sinus = 4,            // sin(i pi / (2n))
        Filtre_SinusCardinal = 5,    // sin(x)/x, x = i pi / p; 1 at the centre
        Filtre_Laplacien = 6,        // 3x3 full kernels from here on
        Filtre_GradientX = 7,
        Filtre_GradientY = 8,
        Filtre_GradientDiagonal = 9
    };

    // No kernel: not valid until DefinirCoefficientsFiltre.
    CFiltre();
    // User kernel of width x height coefficients (both odd), row-major.
    CFiltre(float * coefficients, unsigned short width, unsigned short height);
    // The same catalogue kind across and down.
    CFiltre(CFiltre::e_Filtre kind, unsigned short size, float parameter);
    // Separable kinds may differ across and down; full-kernel kinds may not.
    // A full-kernel kind is always 3x3, whatever size is given.
    CFiltre(CFiltre::e_Filtre kindX, unsigned short sizeX, CFiltre::e_Filtre kindY,
            unsigned short sizeY, float parameterX, float parameterY);
    ~CFiltre() override;

    CFiltre(const CFiltre &) = delete;
    CFiltre & operator=(const CFiltre &) = delete;

    // Replaces the kernel by the caller's coefficients; returns IsOK().
    bool DefinirCoefficientsFiltre(float * coefficients, unsigned short width, unsigned short height);

    // Fills table[0..n] with the half kernel of a separable kind and
    // normalises it. False (table untouched) when this filter has no tables,
    // for an unknown kind (with the debug text), for Filtre_Parabole of n = 0;
    // false with the raw weights left in place when the kernel sums to 0.
    bool RemplirFiltreConvolutif(float * table, CFiltre::e_Filtre kind, unsigned short n, float parameter);
    // Fills the full table with a 3x3 kind; false unless this filter holds a
    // 3x3 full table.
    bool RemplirFiltreNonConvolutif(CFiltre::e_Filtre kind);

    // Separable: both half tables exist; full kernel: the full table exists.
    bool IsOK();

    // Half tables of a separable filter (null otherwise). Owned by the filter.
    float * Donne_TabFiltreX();
    float * Donne_TabFiltreY();

    // Image entry: filters the image's working zone in place (8, 16, 24 bits),
    // clipping the results to the depth's range. False for an invalid image or
    // when a work buffer cannot be obtained; the image is then unchanged.
    bool Filtrer(CDibRoot * image);
    // Stores offset and factor, then Filtrer.
    bool FiltrerAvecOffsetFacteur(CDibRoot * image, float offset, float factor);

    // In-place buffer entry (bitCount 24 = 3 colours, anything else 1 colour).
    bool FiltrerBuffer(long width, long height, float * buffer, CRect & rect, unsigned short bitCount);
    // Stores offset and factor, then FiltrerBuffer.
    bool FiltrerBufferAvecOffsetFacteur(long width, long height, float * buffer, CRect & rect,
                                        unsigned short bitCount, float offset, float factor);
    // Filters the rectangle of source into the same place of destination with
    // this filter's kernel, offset and factor; the rest of destination is not
    // written.
    bool FiltrerBufferSimple(long width, long height, float * source, float * destination, CRect & rect,
                             unsigned short bitCount);
    // Copies the rectangle's values from result into buffer.
    void RecopieZoneTraitee(long width, long height, float * buffer, float * result, CRect & rect,
                            unsigned short bitCount);

    // The engines, for callers that bring their own tables. The separable ones
    // take the half tables and ignore offset and factor; the full-kernel ones
    // take a (2nX+1)(2nY+1) table.
    bool FiltrerBuffer1CouleurConvolutif(long width, long height, float * source, float * destination,
                                         CRect & rect, unsigned short nX, unsigned short nY,
                                         float * tableX, float * tableY, float offset, float factor);
    bool FiltrerBuffer3CouleurConvolutif(long width, long height, float * source, float * destination,
                                         CRect & rect, unsigned short nX, unsigned short nY,
                                         float * tableX, float * tableY, float offset, float factor);
    bool FiltrerBuffer1CouleurNonConvolutif(long width, long height, float * source, float * destination,
                                            CRect & rect, unsigned short nX, unsigned short nY,
                                            float * kernel, float offset, float factor);
    bool FiltrerBuffer3CouleurNonConvolutif(long width, long height, float * source, float * destination,
                                            CRect & rect, unsigned short nX, unsigned short nY,
                                            float * kernel, float offset, float factor);

protected:
    void CreerFiltre(float * coefficients, unsigned short width, unsigned short height);
    void CreerFiltre(CFiltre::e_Filtre kindX, unsigned short sizeX, CFiltre::e_Filtre kindY,
                     unsigned short sizeY, float parameterX, float parameterY);

    uint8_t m_bConvolutif = 0;       // 1 = separable, 0 = full kernel
    uint16_t m_nX = 0;               // half width: 2nX+1 columns
    uint16_t m_nY = 0;               // half height: 2nY+1 rows
    float * m_pTabFiltre = nullptr;  // full kernel, row-major
    float * m_pTabFiltreX = nullptr; // separable: nX+1 weights
    float * m_pTabFiltreY = nullptr; // separable: nY+1 weights
    float m_fOffset = 0.0f;
    float m_fFacteur = 1.0f;
    uint32_t m_nNbThreads = 0;       // processors reported, at least 2
    void ** m_phThreads = nullptr;   // worker handles: sized, never started

private:
    void init_worker_count();
    void release_tables();
    void renew_worker_table();
};

} // namespace kevra

#endif
