#include "camera/audio_squelch.h"

#include "host/intercom/g711.h"
#include "util/rtp.h"

#include <algorithm>

bool CAudioSquelch::Update(std::optional<int> level) {
  if (!level) {
    Release();
  } else if (!m_bOn) {
    m_bOn = *level > LEVEL_ON;
    m_bFalling = false;
  } else if (*level > LEVEL_OFF) {
    m_bFalling = false;
  } else {
    if (!m_bFalling) m_Quiet.Restart();
    m_bFalling = true;
    if (m_Quiet.GXTickCount() > HOLD_MS) Release();
  }
  return m_bOn;
}

void CAudioSquelch::Release() {
  m_bOn = m_bFalling = false;
}

void CAudioSquelch::Silence(unsigned char* packet, int length) {
  if (length > RTP_HEADER_BYTES) std::fill(packet + RTP_HEADER_BYTES, packet + length, G711::ULAW_SILENCE);
}
