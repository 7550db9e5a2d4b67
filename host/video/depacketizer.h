// H.264 taken out of RTP packets.
#pragma once

#include <memory>

// H.264 from RTP (RFC 6184): single NAL units, STAP-A and FU-A, one NAL unit a call.
class CH264Depacketizer {
 public:
  explicit CH264Depacketizer(int payloadType);  // -1: any payload type
  ~CH264Depacketizer();

  // Takes an RTP packet and writes one NAL unit behind the start code 00 00 01 to `out`; returns its length
  // with the start code, 0 when none is complete. A packet that holds several units gives the first; each
  // further one comes from a call with a null packet. A lost packet costs the damaged unit only, one that does
  // not fit in `capacity` is dropped.
  int ProcessRTP(const unsigned char* packet, int length, unsigned char* out, int capacity);

  unsigned TooLarge() const;  // units dropped because they did not fit, since construction

 private:
  struct State;
  std::unique_ptr<State> m_pState;
};
