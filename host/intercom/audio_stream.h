// Who takes sound from an intercom client.
#pragma once

#include <atomic>

class CIntercomClient;
struct GXT_RTP_PATH_DESCRIPTOR;

inline constexpr unsigned short AUDIO_TARGET_PORT_OFFSET = 100;   // from the base of AllocRTSPPort
inline constexpr unsigned short AUDIO_SOURCE_PORT_OFFSET = 9500;  // from the listener's port to the source's

// A listener. Its owner attaches it with CIntercomClient::AttachAudioStreamTarget, binds a UDP socket to
// AudioSourcePort() (or asks for the sound along the relayed path), and detaches it before it goes away. It
// forgets the client when the intercom server tells that this one is removed.
class CAudioStreamTarget {
 public:
  CAudioStreamTarget();
  virtual ~CAudioStreamTarget();
  CAudioStreamTarget(const CAudioStreamTarget&) = delete;
  CAudioStreamTarget& operator=(const CAudioStreamTarget&) = delete;

  // The listener's leg of a relayed path, to be copied: hellos go there, sound comes from there. From within
  // the attaching or later, under the main-thread lock.
  virtual void ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR* path) = 0;
  virtual CIntercomClient* IntercomClient() = 0;  // whom it listens to; null once detached

  // The port on which it takes the sound, host order; 0 while unknown, and with a relayed path. Any thread.
  unsigned short AudioSourcePort() const { return m_wPort; }
  void AudioSourcePort(unsigned short port) { m_wPort = port; }

 private:
  std::atomic<unsigned short> m_wPort{0};
};
