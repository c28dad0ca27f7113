#include "support/Scene.h"

#include <X11/Xlib.h>

namespace ovtest {

Scene::Scene() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return;
  m_display = display;
  m_root = DefaultRootWindow(display);
  m_gc = XCreateGC(display, m_root, 0, nullptr);
  XSetSubwindowMode(display, static_cast<GC>(m_gc), IncludeInferiors);
}

Scene::~Scene() {
  if (!m_display) return;
  XFreeGC(static_cast<Display*>(m_display), static_cast<GC>(m_gc));
  XCloseDisplay(static_cast<Display*>(m_display));
}

void Scene::Fill(int x, int y, int width, int height, uint32_t colour) {
  auto* display = static_cast<Display*>(m_display);
  XSetForeground(display, static_cast<GC>(m_gc), colour);
  XFillRectangle(display, m_root, static_cast<GC>(m_gc), x, y, static_cast<unsigned>(width),
                 static_cast<unsigned>(height));
}

void Scene::Sync() { XSync(static_cast<Display*>(m_display), False); }

int Scene::Width() const {
  auto* display = static_cast<Display*>(m_display);
  return DisplayWidth(display, DefaultScreen(display));
}

int Scene::Height() const {
  auto* display = static_cast<Display*>(m_display);
  return DisplayHeight(display, DefaultScreen(display));
}

}  // namespace ovtest
