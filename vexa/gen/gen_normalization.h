// Tone helpers.
#pragma once

#include <vexa/vexa_export.h>

namespace VEXA {

// The hue of an 8-bit colour in whole degrees, 0..360, in integer arithmetic: 0 for grays; on ties
// blue wins over green and green over red. 360 can occur (255, 0, 1), as the formula gives it.
VEXA_EXPORT int createHue(int red, int green, int blue);

} // namespace VEXA
