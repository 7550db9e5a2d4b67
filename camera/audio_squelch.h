// Keeps a door station's microphone from sending its own speaker back to the talker.
#pragma once

#include "util/gxtimer.h"

#include <optional>

// Asked for every packet of the microphone; guarded by its owner.
class CAudioSquelch {
 public:
  static constexpr int LEVEL_ON = 200;   // above it the microphone is silenced
  static constexpr int LEVEL_OFF = 500;  // while it is silenced, louder ones keep it so
  static constexpr unsigned HOLD_MS = 250;

  // `level`: the loudest 16-bit sample that the speaker played meanwhile; none: no speaker plays. True: the
  // packet is to be silenced.
  bool Update(std::optional<int> level);
  void Release();  // the microphone is heard again, until the next loud level

  static void Silence(unsigned char* packet, int length);  // the payload of an RTP packet of G.711 mu-law

 private:
  bool m_bOn = false;
  bool m_bFalling = false;  // quiet enough since m_Quiet began
  CGXTimer m_Quiet;
};
