// Intercom audio played on a camera's speaker.
#pragma once

#include <atomic>

class CAudioCamera;
class CIntercomClient;

// The kind without a transport: it plays nothing. The camera keeps it and outlives it.
class CONVIF_AudioOut {
 public:
  CONVIF_AudioOut(CAudioCamera* camera, CIntercomClient* client);  // `client` talks; both stay the caller's
  virtual ~CONVIF_AudioOut();                                      // at any moment; ends what it does first
  CONVIF_AudioOut(const CONVIF_AudioOut&) = delete;
  CONVIF_AudioOut& operator=(const CONVIF_AudioOut&) = delete;

  virtual void Start();
  virtual void Stop();  // returns at once
  virtual bool IsRunning();

  // What the level meter shows in step with the sound: one sample is `level` (0 to 32768) over `samples` at
  // 8000 Hz. Pop takes that many samples and returns the loudest level among them.
  virtual void PushVolumeSample(int level, int samples);
  virtual int PopVolumeSample(int samples);

  void EnableAudioTX(int on) { m_iAudioEnabled = on; }  // 0: the camera gets silence. Any thread

 protected:
  CAudioCamera* Camera() const { return m_pCamera; }
  bool AudioEnabled() const { return m_iAudioEnabled != 0; }
  CIntercomClient* Client() const { return m_pClient; }
  CIntercomClient* TakeClient() { return m_pClient.exchange(nullptr); }  // for the one who detaches from it

 private:
  CAudioCamera* const m_pCamera;
  std::atomic<CIntercomClient*> m_pClient;
  std::atomic<int> m_iAudioEnabled{1};
};
