// Start and stop of the engine, and the root of every object a host holds.
#pragma once

#include "orvanta/types.h"

// Root of the objects that the exported factories hand out. The host ends
// each of them with Destroy; objects still alive at ovUninitialize are listed
// in the log.
class OV_API CBaseClassObject {
 public:
  virtual ~CBaseClassObject();
  virtual void Destroy();

  const char* Name() const { return m_pszName; }

 protected:
  explicit CBaseClassObject(const char* pszName);
  CBaseClassObject(const CBaseClassObject&) = delete;
  CBaseClassObject& operator=(const CBaseClassObject&) = delete;

 private:
  const char* m_pszName;
};

extern "C" {

// Brings the engine up; call once before anything else. Always returns 0.
OV_API HRESULT ovInitialize();

// Reports the objects the host left alive; call once before unloading.
OV_API void ovUninitialize();
}
