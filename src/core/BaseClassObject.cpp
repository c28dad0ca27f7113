#include "core/Log.h"
#include "core/ObjectRegistry.h"
#include "orvanta/module.h"

namespace {

// Circular doubly linked list with a sentinel; the host creates and destroys
// objects from one thread at a time, so it takes no lock.
struct ObjectNode {
  ObjectNode* prev;
  ObjectNode* next;
  CBaseClassObject* object;
};

struct ObjectList {
  ObjectNode* sentinel;
  int32_t count = 0;

  ObjectList() : sentinel(new ObjectNode{nullptr, nullptr, nullptr}) {
    sentinel->prev = sentinel->next = sentinel;
  }
  ~ObjectList() {
    ObjectNode* node = sentinel->next;
    while (node != sentinel) {
      ObjectNode* next = node->next;
      delete node;
      node = next;
    }
    delete sentinel;
  }
};

ObjectList g_ObjectList;

}  // namespace

CBaseClassObject::CBaseClassObject(const char* pszName) : m_pszName(pszName) {
  ObjectNode* tail = g_ObjectList.sentinel->prev;
  auto* node = new ObjectNode{tail, g_ObjectList.sentinel, this};
  tail->next = node;
  g_ObjectList.sentinel->prev = node;
  ++g_ObjectList.count;
  WriteLog(ov::kMsg, "[%p]%s Create\n", static_cast<void*>(this), m_pszName);
}

CBaseClassObject::~CBaseClassObject() {
  ObjectNode* node = g_ObjectList.sentinel->next;
  while (node != g_ObjectList.sentinel) {
    ObjectNode* next = node->next;
    if (node->object == this) {
      node->prev->next = node->next;
      node->next->prev = node->prev;
      delete node;
      --g_ObjectList.count;
    }
    node = next;
  }
  WriteLog(ov::kMsg, "[%p]%s Delete\n", static_cast<void*>(this), m_pszName);
}

void CBaseClassObject::Destroy() {
  WriteLog(ov::kMsg, "[%p]%s Destroy\n", static_cast<void*>(this), m_pszName);
  delete this;
}

namespace ov {

int32_t LiveObjectCount() { return g_ObjectList.count; }

void ReportLiveObjects() {
  if (g_ObjectList.sentinel->next == g_ObjectList.sentinel) return;
  WriteLog(kErr, "%d Object not free!\n", g_ObjectList.count);
  WriteLog(kErr, "==========================\n");
  for (ObjectNode* node = g_ObjectList.sentinel->next; node != g_ObjectList.sentinel;
       node = node->next) {
    WriteLog(kErr, "%s(%p)\n", node->object->Name(), static_cast<void*>(node->object));
  }
  WriteLog(kErr, "==========================\n");
}

}  // namespace ov
