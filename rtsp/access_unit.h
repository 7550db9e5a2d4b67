// Groups H.264 NAL units into the pieces that a recorder takes: a key picture together with its parameter sets,
// any other slice alone.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

class CAccessUnitCollector {
 public:
  static constexpr size_t CAPACITY = 256000;  // bytes of a key picture with its parameter sets

  enum class Result {
    KEPT,      // parameter sets and the like wait for the key picture
    SLICE,     // Unit() is the NAL unit itself (types 1 to 4)
    KEY,       // Unit() is an IDR slice (type 5) with all that waited for it
    KEY_LOST,  // an IDR slice that did not fit; counts as a picture, but there is nothing to deliver
  };

  CAccessUnitCollector();

  // Takes one NAL unit with its start code 00 00 01.
  Result Add(const unsigned char* nal, size_t length);

  int NALType() const { return m_iType; }  // ITU-T H.264 table 7-1, of the unit added last
  std::span<const unsigned char> Unit() const { return m_Unit; }  // valid until the next Add

 private:
  bool Append(const unsigned char* nal, size_t length);

  std::unique_ptr<unsigned char[]> m_pHeld;
  size_t m_iHeld = 0;
  int m_iType = 0;
  std::span<const unsigned char> m_Unit;
};
