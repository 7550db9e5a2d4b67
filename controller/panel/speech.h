// What a panel says: silence, a tone or a sound file, at 16 kHz mono.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

inline constexpr int SPEECH_HZ = 16000;
inline constexpr int LONGEST_SOUND_S = 600;  // of a file; what follows is left out

using CSound = std::vector<short>;

// Any sound file that libavformat reads, at SPEECH_HZ. False with a reason. May take as long as the disk does.
bool LoadSound(const std::string& path, CSound* sound, std::string* error);

// Reads one aside, from construction on. Nobody ever waits for it: who goes away leaves it to itself.
class CSoundLoader {
 public:
  explicit CSoundLoader(const std::string& path);

  bool Done() const { return m_pState->Done; }
  // Once it is done.
  std::shared_ptr<const CSound> Sound() const { return m_pState->Sound; }
  const std::string& Error() const { return m_pState->Error; }  // empty when it was read

 private:
  struct CState {
    std::atomic<bool> Done{false};
    std::shared_ptr<CSound> Sound = std::make_shared<CSound>();
    std::string Error;
  };
  struct CJob;
  const std::shared_ptr<CState> m_pState = std::make_shared<CState>();
};

class CSpeech {
 public:
  CSpeech() = default;                                                                   // silence
  explicit CSpeech(double toneHz) : m_fToneHz(toneHz) {}                                 // without end
  explicit CSpeech(std::shared_ptr<const CSound> sound) : m_pSound(std::move(sound)) {}  // once

  void Next(std::span<short> samples);

 private:
  double m_fToneHz = 0, m_fPhase = 0;  // in turns
  std::shared_ptr<const CSound> m_pSound;
  size_t m_nAt = 0;
};
