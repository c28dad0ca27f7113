// Sizes of the RECTs that hosts and the engine pass around (right and bottom
// exclusive). Header-only: the command-line host uses it too.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

namespace ov {

inline int32_t Width(const RECT& r) { return r.right - r.left; }
inline int32_t Height(const RECT& r) { return r.bottom - r.top; }

}  // namespace ov
