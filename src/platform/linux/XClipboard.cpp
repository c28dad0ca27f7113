// The CLIPBOARD selection, served from an unmapped window on a connection
// and a thread of its own: requests come whenever another program pastes.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/Clipboard.h"
#include "platform/Thread.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

class XClipboardOffer : public ClipboardOffer {
 public:
  explicit XClipboardOffer(ClipboardContents contents) : m_contents(std::move(contents)) {}
  ~XClipboardOffer() override {
    if (m_thread.joinable()) {
      const char stop = 1;
      [[maybe_unused]] ssize_t n = write(m_wake[1], &stop, 1);
      m_thread.join();
    }
    if (m_wake[0] >= 0) close(m_wake[0]), close(m_wake[1]);
    if (m_display) {
      if (!XConnectionLost(m_display)) XDestroyWindow(m_display, m_window);
      CloseXConnection(m_display);
    }
  }

  bool Open() {
    m_display = OpenXConnection();
    if (!m_display || pipe(m_wake) != 0) return false;
    m_window = XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, 1, 1, 0, 0, 0);
    m_clipboard = XInternAtom(m_display, "CLIPBOARD", False);
    m_targets = XInternAtom(m_display, "TARGETS", False);
    for (const auto& [type, bytes] : m_contents)
      m_types.push_back(XInternAtom(m_display, type.c_str(), False));
    XSetSelectionOwner(m_display, m_clipboard, m_window, CurrentTime);
    if (XGetSelectionOwner(m_display, m_clipboard) != m_window) return false;
    m_owned = true;
    m_thread = std::thread(&XClipboardOffer::Serve, this);
    return true;
  }

  bool Owned() const override { return m_owned.load(); }

 private:
  void Serve() {
    SetCurrentThreadName("ov-clipboard");
    pollfd fds[2] = {{ConnectionNumber(m_display), POLLIN, 0}, {m_wake[0], POLLIN, 0}};
    for (;;) {
      while (!XConnectionLost(m_display) && XPending(m_display)) {
        XEvent e;
        XNextEvent(m_display, &e);
        if (e.type == SelectionClear) m_owned = false;
        if (e.type == SelectionRequest) Answer(e.xselectionrequest);
      }
      if (XConnectionLost(m_display) || poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN)) return;
    }
  }

  void Answer(const XSelectionRequestEvent& request) {
    // The requestor may be gone by now.
    XErrorTrap trap(m_display);
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    reply.property = None;
    const Atom property = request.property != None ? request.property : request.target;
    const size_t limit =
        static_cast<size_t>(XExtendedMaxRequestSize(m_display) ? XExtendedMaxRequestSize(m_display)
                                                               : XMaxRequestSize(m_display)) *
            4 -
        1024;
    if (m_owned && request.target == m_targets) {
      std::vector<Atom> atoms{m_targets};
      atoms.insert(atoms.end(), m_types.begin(), m_types.end());
      XChangeProperty(m_display, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(atoms.data()),
                      static_cast<int>(atoms.size()));
      reply.property = property;
    }
    for (size_t i = 0; m_owned && i < m_types.size(); ++i) {
      const auto& bytes = m_contents[i].second;
      if (request.target != m_types[i] || bytes.size() > limit) continue;
      XChangeProperty(m_display, request.requestor, property, m_types[i], 8, PropModeReplace,
                      bytes.data(), static_cast<int>(bytes.size()));
      reply.property = property;
    }
    XSendEvent(m_display, request.requestor, False, 0, reinterpret_cast<XEvent*>(&reply));
    trap.Failed();
  }

  ClipboardContents m_contents;
  std::vector<Atom> m_types;
  Display* m_display = nullptr;
  Window m_window = 0;
  Atom m_clipboard = 0, m_targets = 0;
  int m_wake[2] = {-1, -1};
  std::atomic<bool> m_owned{false};
  std::thread m_thread;
};

}  // namespace

std::unique_ptr<ClipboardOffer> OfferClipboard(ClipboardContents contents) {
  auto offer = std::make_unique<XClipboardOffer>(std::move(contents));
  if (!offer->Open()) return nullptr;
  return offer;
}

}  // namespace ov
