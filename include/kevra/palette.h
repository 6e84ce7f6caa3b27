// Predefined display palettes. The values are fixed by the stored settings and
// step parameters that carry them; only 11, 12, 21, 22 and 23 have content.
#ifndef KEVRA_PALETTE_H
#define KEVRA_PALETTE_H

namespace kevra {

enum e_Palette : int {
    e_PaletteNone = 0, // no predefined palette, where a caller allows it
    e_Palette11 = 11,  // grey ramp
    e_Palette12 = 12,  // inverted grey ramp
    e_Palette21 = 21,  // false-colour ramp
    e_Palette22 = 22,  // false-colour ramp
    e_Palette23 = 23,  // blue-weighted ramp
};

} // namespace kevra

#endif
