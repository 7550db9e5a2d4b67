// Components of the controller: their types, the records they are made from, and the base class of all of them.
#pragma once

#include "host/base/gxfile.h"
#include "host/base/gxlist.h"
#include "host/base/gxstring.h"
#include "host/base/gxthread.h"

#include <atomic>
#include <functional>
#include <vector>

// Component categories and flags that the host knows.
inline constexpr int COMPONENT_CATEGORY_VIDEO = 8;
inline constexpr int COMPONENT_FLAG_DYNAMIC = 3;            // a finder of devices, not a device
inline constexpr int COMPONENT_FLAG_DISCOVERED = 0x100000;  // created from a finder's record

// One component type that a plug-in offers.
class CSystemComponentDef {
 public:
  CSystemComponentDef(int type, CGXString name, CGXString text, int flags, int reserved);
  virtual ~CSystemComponentDef();
  int Type() const { return m_iType; }
  CGXString TypeName() const { return m_Name; }
  CGXString Text() const { return m_Text; }
  int Flags() const { return m_iFlags; }

 private:
  int m_iType;
  CGXString m_Name, m_Text;
  int m_iFlags;
};

// One device interface that a plug-in offers.
class CDeviceInterfaceDef {
 public:
  CDeviceInterfaceDef(int id, CGXString name, int number, int flags);
  virtual ~CDeviceInterfaceDef();
  int ID() const { return m_iID; }
  CGXString Name() const { return m_Name; }
  int Number() const { return m_iNumber; }
  int Flags() const { return m_iFlags; }

 private:
  int m_iID;
  CGXString m_Name;
  int m_iNumber, m_iFlags;
};

// What a finder says of a device that could be installed: a component type and named descriptors.
class CDeviceConfig {
 public:
  struct Descriptor {
    CGXString Name, Value;
    int Flag;  // 0: for the user to read; 1: needed to reach the device
  };
  explicit CDeviceConfig(int componentType) : m_iType(componentType) {}
  virtual ~CDeviceConfig();

  int ComponentType() const { return m_iType; }
  void AddDescriptor(CGXString name, CGXString value, int flag) {
    m_Descriptors.push_back({name, value, flag});
  }
  CGXString DescriptorVal(const char* name) const;  // empty when there is none
  const std::vector<Descriptor>& Descriptors() const { return m_Descriptors; }

 private:
  int m_iType;
  std::vector<Descriptor> m_Descriptors;
};

// Somebody who uses a component's output; see CVideoSink for pictures.
class CComponentSink {
 public:
  virtual ~CComponentSink();
};

class CIntercomClient;
enum ICOM_CLIENT_CTX : int { ICOM_CLIENT_SELF = 1 };

// A component. The host creates it through the plug-in, gives it its id and name, loads its record, and deletes
// it.
class CSystemComponent {
 public:
  explicit CSystemComponent(CSystemComponentDef* definition);
  virtual ~CSystemComponent();
  CSystemComponent(const CSystemComponent&) = delete;
  CSystemComponent& operator=(const CSystemComponent&) = delete;

  int ComponentType() const { return m_iType; }
  int ID() const { return m_iID; }
  void ID(int id) { m_iID = id; }
  CGXString Name() const;
  void Name(const CGXString& name);

  // Sinks, in the order added. The component does not own them. Any thread; Sink() is null past the end, and
  // what it gives may be used under the main-thread lock, without which no sink is taken away.
  int NSinks() const;
  CComponentSink* Sink(int index) const;
  bool FindSink(const CComponentSink* sink) const;

  // True once the host has begun to take the component away: it gets no sinks any more.
  bool Leaving() const { return m_bLeaving; }
  void Leaving(bool leaving) { m_bLeaving = leaving; }

  virtual bool IsSameConfig(CDeviceConfig* record);  // whether the record describes this very device
  virtual void LoadFrom(CDeviceConfig* record);      // takes over a finder's record
  virtual void SinkAdded(CComponentSink* sink);      // under the main-thread lock
  virtual void SinkRemoved(CComponentSink* sink);    // under the main-thread lock
  virtual int ConnectionType();                      // 8: reached by a URL that the user enters; 0: found
  virtual CGXString GetConfigURL();
  virtual void SetConfigURL(CGXString url);
  virtual bool ReadData(CGXFile* file,
                        int version);  // the persisted record; false at the first item that fails
  virtual bool WriteData(CGXFile* file, int version);
  virtual void OnComponentIdle();   // main thread, again and again
  virtual void FileThreadOnIdle();  // file thread, about every 100 ms
  virtual void FileThreadProcessEvent(unsigned char* data, int length);
  virtual CIntercomClient* GetIcomClient(ICOM_CLIENT_CTX ctx);

 protected:
  void RegisterEventServer();                        // for records of hosts that kept no event registration
  bool AddSinkEntry(CComponentSink* sink);           // false: null, or there already
  bool RemoveSinkEntry(const CComponentSink* sink);  // waits for a ForEachSink in flight; false: unknown
  // Calls `call` for every sink, under the sink lock; it may remove sinks from within.
  void ForEachSink(const std::function<void(CComponentSink*)>& call) const;

 private:
  const int m_iType;
  std::atomic<int> m_iID{0};
  std::atomic<bool> m_bLeaving{false};
  mutable CGXCritical m_ComponentLock;
  CGXString m_Name GUARDED_BY(m_ComponentLock);
  mutable CGXCritical m_SinkLock;
  std::vector<CComponentSink*> m_Sinks GUARDED_BY(m_SinkLock);
};
