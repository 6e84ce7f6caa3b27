// Umbrella header: the whole public API of Kevra.
#ifndef KEVRA_KEVRA_H
#define KEVRA_KEVRA_H

#include "kevra/types.h"
#include "kevra/object.h"
#include "kevra/platform.h"
#include "kevra/palette.h"
#include "kevra/dib.h"
#include "kevra/traitement_base.h"

#if __has_include("kevra/lut.h")
#include "kevra/lut.h"
#endif
#if __has_include("kevra/traitement.h")
#include "kevra/traitement.h"
#endif
#if __has_include("kevra/filtre.h")
#include "kevra/filtre.h"
#endif
#if __has_include("kevra/sequenceur.h")
#include "kevra/sequenceur.h"
#endif
#if __has_include("kevra/drawing.h")
#include "kevra/drawing.h"
#endif
#if __has_include("kevra/clipboard.h")
#include "kevra/clipboard.h"
#endif

#endif
