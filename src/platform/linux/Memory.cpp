#include "platform/Memory.h"

#include <sys/mman.h>

namespace ov {

void* AllocateZeroedPages(size_t bytes) {
  void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return block == MAP_FAILED ? nullptr : block;
}

void FreeZeroedPages(void* block, size_t bytes) {
  if (block) munmap(block, bytes);
}

}  // namespace ov
