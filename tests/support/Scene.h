// Draws known pictures straight onto the root window of the test's X server,
// so tests can check what a capture saw.
#pragma once

#include <cstdint>

namespace ovtest {

class Scene {
 public:
  Scene();
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  bool Ok() const { return m_display != nullptr; }

  // colour 0xRRGGBB
  void Fill(int x, int y, int width, int height, uint32_t colour);
  // Waits until the server has drawn everything asked so far.
  void Sync();
  int Width() const;
  int Height() const;

 private:
  void* m_display = nullptr;
  unsigned long m_root = 0;
  void* m_gc = nullptr;
};

}  // namespace ovtest
