// The controller's own party of the intercom: rings, answers, plays what it hears into a file, and talks.
#pragma once

#include "controller/panel/call_book.h"
#include "controller/panel/panel_ears.h"
#include "controller/panel/panel_mouth.h"

#include <memory>
#include <string>
#include <vector>

enum class EAnswer { Ask, Accept, Decline };  // Ask: it rings until Accept() or Decline()

struct CPanelSettings {
  EAnswer Answer = EAnswer::Ask;
  std::string SoundFolder;  // of what is heard, one WAV file a talk; empty: it is not kept
  bool Relayed = false;     // sound goes by way of a relay, as to a panel that is not reached directly
  CSpeech Speech;           // what it says, from the beginning of each talk
};

// Everything under the main-thread lock.
class CPanel : public CIntercomClient {
 public:
  CPanel(CPanelSettings settings, CCallBook* book);
  ~CPanel() override;  // ends its talk and leaves the intercom
  void Enter();        // the intercom

  // False when there is nothing to accept, to decline, or to end.
  bool Accept();
  bool Decline();
  bool HangUp();
  void Say(const CSpeech& speech);  // from now on, and from the beginning of later talks

  std::string PeerName() const;                                        // whom it rings for or talks with
  const std::vector<std::string>& Sounds() const { return m_Sounds; }  // files of what was heard, oldest first
  const std::string& Problem() const { return m_Problem; }  // with the last file; empty when all is well

  CGXString IcomName() override { return "Panel"; }
  bool UsesRelay() override { return m_Settings.Relayed; }
  bool TakesDefaultCalls() override { return true; }
  int AnswerMode() override;
  int HandleBeginSession(CIntercomClient* caller, CALL_TYPE callerType, CALL_TYPE type,
                         INCOMING_CALL_CTX ctx) override;
  int HandleCancelSession() override { return 1; }  // its state and its sound have been seen to by then
  bool HasAudioRX() override { return true; }
  int BeginReceiveAudioFrom(CIntercomClient* client) override;
  int StopReceiveAudio() override;
  int SetIcomAudioRXState(CIntercomClient* client, int on) override;
  int HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                    STREAM_CTX ctx) override;
  int HandleAudioStreamTargetDetach(CAudioStreamTarget* target) override;

 private:
  std::string NewSoundFile(CIntercomClient* client) const;

  CPanelSettings m_Settings;
  CCallBook* const m_pBook;
  std::unique_ptr<CPanelEars> m_pEars;
  CPanelMouth m_Mouth;
  std::vector<std::string> m_Sounds;
  std::string m_Problem;
};
