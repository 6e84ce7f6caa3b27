#include "kevra/dib.h"

#include "image/ximage.h"

namespace kevra {

// Placeholder until the codec lands: both give an empty image.
CDibRoot::CDibRoot(wchar_t const *, unsigned long) {}
CDibRoot::CDibRoot(void *) {}

} // namespace kevra
