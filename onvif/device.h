// Who a camera is, and the set of cameras that a search has found.
#pragma once

#include "host/base/gxstring.h"

// Identity of one camera, as its GetDeviceInformation answers, and where its device service is.
class CONVIFDevice {
 public:
  CONVIFDevice() = default;
  virtual ~CONVIFDevice();
  CONVIFDevice(const CONVIFDevice&) = delete;
  CONVIFDevice& operator=(const CONVIFDevice&) = delete;

  CONVIFDevice* Next() const { return m_pNext; }  // the next one of its set
  void Next(CONVIFDevice* next) { m_pNext = next; }

  CGXString Manufacturer() const { return m_Manufacturer; }
  void Manufacturer(CGXString text) { m_Manufacturer = text; }
  CGXString Model() const { return m_Model; }
  void Model(CGXString text) { m_Model = text; }
  CGXString Firmware() const { return m_Firmware; }
  void Firmware(CGXString text) { m_Firmware = text; }
  CGXString SerialNo() const { return m_SerialNo; }
  void SerialNo(CGXString text) { m_SerialNo = text; }
  CGXString HardwareID() const { return m_HardwareID; }
  void HardwareID(CGXString text) { m_HardwareID = text; }
  CGXString ServiceURL() const { return m_ServiceURL; }
  void ServiceURL(CGXString text) { m_ServiceURL = text; }

  void CopyDataFrom(CONVIFDevice* other);  // all six texts, not the link
  // Manufacturer, model, serial number and hardware id are equal. Firmware and address may change in a camera's
  // life.
  bool IsSameDevice(CONVIFDevice* other) const;

 private:
  CONVIFDevice* m_pNext = nullptr;
  CGXString m_Manufacturer, m_Model, m_Firmware, m_SerialNo, m_HardwareID, m_ServiceURL;
};

// Cameras in the order found; owns them.
class CONVIFDeviceSet {
 public:
  CONVIFDeviceSet() = default;
  virtual ~CONVIFDeviceSet();
  CONVIFDeviceSet(const CONVIFDeviceSet&) = delete;
  CONVIFDeviceSet& operator=(const CONVIFDeviceSet&) = delete;

  void AddDevice(CONVIFDevice* device);  // takes ownership; appends
  bool HasDevice(CONVIFDevice* device) const;
  void RemoveAll();
  CONVIFDevice* Devices() const { return m_pFirst; }  // the first, null when empty; then Next()

 private:
  CONVIFDevice* m_pFirst = nullptr;
  CONVIFDevice* m_pLast = nullptr;
};
