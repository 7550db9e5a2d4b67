#include "audio/speech_transcoder.h"

#include "host/intercom/g711.h"
#include "util/rtp.h"

#include <opus/opus.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

std::span<const unsigned char> CSpeechTranscoder::Payload(std::span<const unsigned char> packet) {
  // Intercom clients send the bare header: longer ones are none of theirs and are not looked for.
  return packet.subspan(std::min<size_t>(RTP_HEADER_BYTES, packet.size()));
}

void CSpeechTranscoder::CloseDecoder::operator()(OpusDecoder* decoder) const {
  opus_decoder_destroy(decoder);
}

CSpeechTranscoder::CSpeechTranscoder() = default;
CSpeechTranscoder::~CSpeechTranscoder() = default;

void CSpeechTranscoder::Open() {
  int error = OPUS_OK;
  m_pPCM = std::make_unique<short[]>(MAX_SAMPLES);
  m_pULaw = std::make_unique<unsigned char[]>(MAX_SAMPLES);
  m_pDecoder.reset(opus_decoder_create(SAMPLE_RATE_HZ, 1, &error));
  m_nSamples = m_iLevel = 0;
}

int CSpeechTranscoder::Decode(std::span<const unsigned char> opus) {
  m_nSamples = m_iLevel = 0;
  if (!IsOpen() || opus.empty()) return 0;
  const int samples = opus_decode(m_pDecoder.get(), opus.data(), static_cast<opus_int32>(opus.size()),
                                  m_pPCM.get(), MAX_SAMPLES, 0);
  m_nSamples = std::clamp(samples, 0, MAX_SAMPLES);
  for (const short sample : std::span(m_pPCM.get(), static_cast<size_t>(m_nSamples)))
    m_iLevel = std::max(m_iLevel, std::abs(int{sample}));
  return samples;
}

std::span<unsigned char> CSpeechTranscoder::Encode() {
  G711::ULawEncode(m_pULaw.get(), m_pPCM.get(), static_cast<unsigned>(m_nSamples) * 2);
  return {m_pULaw.get(), static_cast<size_t>(m_nSamples)};
}

std::span<unsigned char> CSpeechTranscoder::Silence() {
  std::memset(m_pULaw.get(), G711::ULAW_SILENCE, static_cast<size_t>(m_nSamples));
  return {m_pULaw.get(), static_cast<size_t>(m_nSamples)};
}
