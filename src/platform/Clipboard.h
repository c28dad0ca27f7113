// The desktop's clipboard: what we copy stays on offer from a window of our
// own until another program takes the clipboard or the offer is dropped.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ov {

class ClipboardOffer {
 public:
  virtual ~ClipboardOffer() = default;
  // False once another program has taken the clipboard.
  virtual bool Owned() const = 0;
};

// Contents by type ("image/png" ...), the first the preferred one. Null
// without a server.
using ClipboardContents = std::vector<std::pair<std::string, std::vector<unsigned char>>>;
std::unique_ptr<ClipboardOffer> OfferClipboard(ClipboardContents contents);

}  // namespace ov
