#include "rtsp/access_unit.h"

#include <cstring>

namespace {
constexpr size_t START_CODE_BYTES = 3;
constexpr int NAL_TYPE_BITS = 0x1F;
constexpr int NAL_IDR_SLICE = 5;
}  // namespace

CAccessUnitCollector::CAccessUnitCollector()
    : m_pHeld(std::make_unique_for_overwrite<unsigned char[]>(CAPACITY)) {}

CAccessUnitCollector::Result CAccessUnitCollector::Add(const unsigned char* nal, size_t length) {
  m_Unit = {};
  m_iType = 0;
  if (length <= START_CODE_BYTES) return Result::KEPT;
  m_iType = nal[START_CODE_BYTES] & NAL_TYPE_BITS;
  if (m_iType >= 1 && m_iType < NAL_IDR_SLICE) {
    m_iHeld = 0;
    m_Unit = {nal, length};
    return Result::SLICE;
  }
  const bool fits = Append(nal, length);
  if (m_iType != NAL_IDR_SLICE) return Result::KEPT;
  if (fits) m_Unit = {m_pHeld.get(), m_iHeld};
  m_iHeld = 0;
  return fits ? Result::KEY : Result::KEY_LOST;
}

// Empties the accumulator when the unit does not fit.
bool CAccessUnitCollector::Append(const unsigned char* nal, size_t length) {
  if (m_iHeld + length > CAPACITY) {
    m_iHeld = 0;
    return false;
  }
  std::memcpy(m_pHeld.get() + m_iHeld, nal, length);
  m_iHeld += length;
  return true;
}
