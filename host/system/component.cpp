#include "host/system/component.h"

#include "host/system/system.h"

#include <algorithm>

CSystemComponentDef::CSystemComponentDef(int type, CGXString name, CGXString text, int flags, int)
    : m_iType(type), m_Name(std::move(name)), m_Text(std::move(text)), m_iFlags(flags) {}
CSystemComponentDef::~CSystemComponentDef() = default;

CDeviceInterfaceDef::CDeviceInterfaceDef(int id, CGXString name, int number, int flags)
    : m_iID(id), m_Name(std::move(name)), m_iNumber(number), m_iFlags(flags) {}
CDeviceInterfaceDef::~CDeviceInterfaceDef() = default;

CDeviceConfig::~CDeviceConfig() = default;

CGXString CDeviceConfig::DescriptorVal(const char* name) const {
  for (const Descriptor& descriptor : m_Descriptors)
    if (descriptor.Name == name) return descriptor.Value;
  return {};
}

CComponentSink::~CComponentSink() = default;

CSystemComponent::CSystemComponent(CSystemComponentDef* definition)
    : m_iType(definition != nullptr ? definition->Type() : 0) {
  if (definition != nullptr) m_Name = definition->TypeName();
}

CSystemComponent::~CSystemComponent() = default;

CGXString CSystemComponent::Name() const {
  CGXLock lock(m_ComponentLock);
  return m_Name;
}

void CSystemComponent::Name(const CGXString& name) {
  CGXLock lock(m_ComponentLock);
  m_Name = name;
}

int CSystemComponent::NSinks() const {
  CGXLock lock(m_SinkLock);
  return static_cast<int>(m_Sinks.size());
}

CComponentSink* CSystemComponent::Sink(int index) const {
  CGXLock lock(m_SinkLock);
  return index >= 0 && index < static_cast<int>(m_Sinks.size()) ? m_Sinks[static_cast<size_t>(index)] : nullptr;
}

bool CSystemComponent::FindSink(const CComponentSink* sink) const {
  CGXLock lock(m_SinkLock);
  return std::find(m_Sinks.begin(), m_Sinks.end(), sink) != m_Sinks.end();
}

bool CSystemComponent::AddSinkEntry(CComponentSink* sink) {
  CGXLock lock(m_SinkLock);
  if (sink == nullptr || FindSink(sink)) return false;
  m_Sinks.push_back(sink);
  return true;
}

bool CSystemComponent::RemoveSinkEntry(const CComponentSink* sink) {
  CGXLock lock(m_SinkLock);
  return std::erase(m_Sinks, sink) > 0;
}

void CSystemComponent::ForEachSink(const std::function<void(CComponentSink*)>& call) const {
  CGXLock lock(m_SinkLock);
  for (size_t i = 0; i < m_Sinks.size();) {
    CComponentSink* const sink = m_Sinks[i];
    call(sink);
    // It may have removed itself, or one before it: then the next one has moved to this place.
    if (i < m_Sinks.size() && m_Sinks[i] == sink) ++i;
  }
}

bool CSystemComponent::IsSameConfig(CDeviceConfig*) {
  return false;
}
void CSystemComponent::LoadFrom(CDeviceConfig*) {}
void CSystemComponent::SinkAdded(CComponentSink*) {}
void CSystemComponent::SinkRemoved(CComponentSink*) {}
int CSystemComponent::ConnectionType() {
  return 0;
}
CGXString CSystemComponent::GetConfigURL() {
  return {};
}
void CSystemComponent::SetConfigURL(CGXString) {}
bool CSystemComponent::ReadData(CGXFile*, int) {
  return true;
}
bool CSystemComponent::WriteData(CGXFile*, int) {
  return true;
}
void CSystemComponent::OnComponentIdle() {}
void CSystemComponent::FileThreadOnIdle() {}
void CSystemComponent::FileThreadProcessEvent(unsigned char*, int) {}
CIntercomClient* CSystemComponent::GetIcomClient(ICOM_CLIENT_CTX) {
  return nullptr;
}

// Events go by component id and need no registration here; what is left to do for such a record is to save it
// in its present form.
void CSystemComponent::RegisterEventServer() {
  CSystem::Instance()->NotifyConfigChanged();
}
