#include "rtsp/jpeg_assembler.h"

#include "rtsp/jpeg.h"
#include "util/rtp.h"

#include <cstring>
#include <utility>

namespace {

constexpr int JPEG_PAYLOAD_TYPE = 26;
constexpr int MAIN_HEADER_BYTES = 8;
constexpr int RESTART_HEADER_BYTES = 4;
constexpr int QUANT_HEADER_BYTES = 4;
constexpr int FIRST_TYPE_WITH_RESTART = 64;
constexpr int FIRST_Q_WITH_TABLES = 128;

}  // namespace

struct CJPEGAssembler::Fragment {
  size_t Offset;
  int Type, Q, Width, Height;  // 4:2:2 or 4:2:0, quality, size in 8 pixels
  unsigned short RestartInterval;
  const unsigned char* Payload;  // after the first fragment's tables have been read: scan data only
  int Length;

  bool Parse(const unsigned char* p, int length);
};

bool CJPEGAssembler::Fragment::Parse(const unsigned char* p, int length) {
  if (length < MAIN_HEADER_BYTES) return false;
  Offset = ReadBE24(p + 1);
  Type = p[4];
  Q = p[5];
  Width = p[6] == 0 ? 255 : p[6];  // wider than the field can say: as wide as it can
  Height = p[7];
  RestartInterval = 0;
  int header = MAIN_HEADER_BYTES;
  if (Type >= FIRST_TYPE_WITH_RESTART) {
    if (length < MAIN_HEADER_BYTES + RESTART_HEADER_BYTES) return false;
    RestartInterval = ReadBE16(p + MAIN_HEADER_BYTES);
    header += RESTART_HEADER_BYTES;
    Type -= FIRST_TYPE_WITH_RESTART;
  }
  Payload = p + header;
  Length = length - header;
  return Type == 0 || Type == 1;
}

// The system zeroes large blocks when they are first touched, so a stream of small pictures stays small and a
// gap in a damaged picture shows nothing but earlier pictures of this stream.
CJPEGAssembler::CJPEGAssembler()
    : m_pAssembly(static_cast<unsigned char*>(std::calloc(CAPACITY, 1))),
      m_pFinished(static_cast<unsigned char*>(std::calloc(CAPACITY, 1))) {}

CJPEGAssembler::Result CJPEGAssembler::Add(const unsigned char* packet, int length) {
  m_Picture = {};
  const int header = RTPHeaderLength(packet, length);
  if (header == 0 || length <= header) return Result::TOO_SHORT;
  Fragment fragment;
  if (RTPPayloadType(packet) != JPEG_PAYLOAD_TYPE || !fragment.Parse(packet + header, length - header))
    return Result::DROPPED;

  if (fragment.Offset == 0 && m_iLength > 0) {
    std::swap(m_pAssembly, m_pFinished);
    m_Picture = {m_pFinished.get(), m_iLength};
  }
  const bool added = (fragment.Offset != 0 || Begin(&fragment)) && Copy(fragment);
  if (!m_Picture.empty()) return Result::PICTURE;
  return added ? Result::ADDED : Result::DROPPED;
}

// Writes the headers of the picture that this fragment begins.
bool CJPEGAssembler::Begin(Fragment* fragment) {
  m_iHeader = m_iLength = 0;
  if (m_pAssembly == nullptr || m_pFinished == nullptr) return false;  // no memory, no pictures
  unsigned char computed[2][JPEG_TABLE_BYTES];
  const unsigned char *luma = computed[0], *chroma = computed[1];
  if (fragment->Q < FIRST_Q_WITH_TABLES) {
    MakeTables(fragment->Q, computed[0], computed[1]);
  } else {
    if (fragment->Length < QUANT_HEADER_BYTES) return false;
    const int bytes = ReadBE16(fragment->Payload + 2), skip = QUANT_HEADER_BYTES + bytes;
    if (bytes < JPEG_TABLE_BYTES || fragment->Length < skip) return false;
    // The first table serves both: cameras that send tables quantise chrominance with it, whatever follows it.
    luma = chroma = fragment->Payload + QUANT_HEADER_BYTES;
    fragment->Payload += skip;
    fragment->Length -= skip;
  }
  m_iHeader = static_cast<size_t>(MakeJPEGHeaders(m_pAssembly.get(), fragment->Type, fragment->Width,
                                                  fragment->Height, luma, chroma, fragment->RestartInterval));
  m_iLength = m_iHeader;
  return true;
}

// A fragment of a picture that has not begun is of no use. A picture beyond the buffer is given up whole.
bool CJPEGAssembler::Copy(const Fragment& fragment) {
  if (m_iHeader == 0) return false;
  const size_t length = static_cast<size_t>(fragment.Length), at = m_iHeader + fragment.Offset;
  if (at + length > CAPACITY || m_iLength + length > CAPACITY) {
    m_iHeader = m_iLength = 0;
    return false;
  }
  std::memcpy(m_pAssembly.get() + at, fragment.Payload, length);
  m_iLength += length;
  return true;
}
