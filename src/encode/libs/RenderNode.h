// GPU render nodes (/dev/dri/renderD*), told apart by their kernel driver:
// that is how a library picks the VA-API device of its own vendor.
#pragma once

#include <initializer_list>
#include <string>

namespace ov::enc {

// The first render node driven by one of these kernel drivers, or "".
std::string FindRenderNode(std::initializer_list<const char*> drivers);

}  // namespace ov::enc
