#include "onvif/device.h"

#include <utility>

CONVIFDevice::~CONVIFDevice() = default;

void CONVIFDevice::CopyDataFrom(CONVIFDevice* other) {
  m_Manufacturer = other->m_Manufacturer;
  m_Model = other->m_Model;
  m_Firmware = other->m_Firmware;
  m_SerialNo = other->m_SerialNo;
  m_HardwareID = other->m_HardwareID;
  m_ServiceURL = other->m_ServiceURL;
}

bool CONVIFDevice::IsSameDevice(CONVIFDevice* other) const {
  return m_Manufacturer == other->m_Manufacturer && m_Model == other->m_Model &&
         m_SerialNo == other->m_SerialNo && m_HardwareID == other->m_HardwareID;
}

CONVIFDeviceSet::~CONVIFDeviceSet() {
  RemoveAll();
}

void CONVIFDeviceSet::AddDevice(CONVIFDevice* device) {
  device->Next(nullptr);
  if (m_pLast != nullptr) {
    m_pLast->Next(device);
  } else {
    m_pFirst = device;
  }
  m_pLast = device;
}

bool CONVIFDeviceSet::HasDevice(CONVIFDevice* device) const {
  for (const CONVIFDevice* member = m_pFirst; member != nullptr; member = member->Next()) {
    if (member->IsSameDevice(device)) return true;
  }
  return false;
}

void CONVIFDeviceSet::RemoveAll() {
  while (m_pFirst != nullptr) delete std::exchange(m_pFirst, m_pFirst->Next());
  m_pLast = nullptr;
}
