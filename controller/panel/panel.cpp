#include "controller/panel/panel.h"

#include "controller/core/atomic_file.h"
#include "host/system/system.h"

#include <utility>

CPanel::CPanel(CPanelSettings settings, CCallBook* book)
    : m_Settings(std::move(settings)), m_pBook(book), m_Mouth(this) {}

CPanel::~CPanel() {
  CIntercomServer::Instance()->RemoveClient(this);
  m_pEars.reset();
}

void CPanel::Enter() {
  CIntercomServer::Instance()->RegisterClient(this);
}

// ---- What its user does ----

bool CPanel::Accept() {
  if (IcomState() != ICOM_CLIENT_RINGING) return false;
  CIntercomServer::Instance()->AcceptCall(this);
  return true;
}

bool CPanel::Decline() {
  if (IcomState() != ICOM_CLIENT_RINGING) return false;
  m_pBook->Declined(IcomPeer());
  CIntercomServer::Instance()->DeclineCall(this);
  return true;
}

bool CPanel::HangUp() {
  if (IcomState() != ICOM_CLIENT_TALKING) return false;
  CIntercomServer::Instance()->EndCall(this);
  return true;
}

void CPanel::Say(const CSpeech& speech) {
  m_Settings.Speech = speech;
  m_Mouth.Say(speech);
}

std::string CPanel::PeerName() const {
  CIntercomClient* const peer = IcomPeer();
  return peer != nullptr ? peer->IcomName().Str() : "";
}

// ---- A call that it gets ----

int CPanel::AnswerMode() {
  return m_Settings.Answer == EAnswer::Accept ? ICOM_ANSWER_BY_ITSELF : ICOM_ANSWER_BY_USER;
}

int CPanel::HandleBeginSession(CIntercomClient*, CALL_TYPE, CALL_TYPE, INCOMING_CALL_CTX) {
  if (m_Settings.Answer == EAnswer::Decline) Decline();
  return 1;
}

// ---- Its ears ----

std::string CPanel::NewSoundFile(CIntercomClient* client) const {
  if (m_Settings.SoundFolder.empty()) return "";
  return NewFilePath(m_Settings.SoundFolder + "/" + SafeFileName(client->IcomName().Str()), ".wav");
}

int CPanel::BeginReceiveAudioFrom(CIntercomClient* client) {
  StopReceiveAudio();
  const std::string file = NewSoundFile(client);
  m_pEars = std::make_unique<CPanelEars>(this, client, m_Settings.Relayed, file, m_pBook->Talks(client));
  m_Problem = m_pEars->Problem();
  if (!m_pEars->Works()) {
    m_pEars.reset();
    m_Problem = "the sound of " + client->IcomName().Str() + " is not to be had";
    return 0;
  }
  if (!file.empty() && m_Problem.empty()) m_Sounds.push_back(file);
  return 1;
}

int CPanel::StopReceiveAudio() {
  if (m_pEars == nullptr) return 0;
  m_pEars.reset();
  return 1;
}

int CPanel::SetIcomAudioRXState(CIntercomClient*, int on) {
  if (m_pEars == nullptr) return 0;
  m_pEars->Mute(on == 0);
  return 1;
}

// ---- Its mouth ----

int CPanel::HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                          STREAM_CTX ctx) {
  m_Mouth.Say(m_Settings.Speech);
  return m_Mouth.Attach(target, path, ctx, m_pBook->Talks(IcomPeer())) ? 1 : 0;
}

int CPanel::HandleAudioStreamTargetDetach(CAudioStreamTarget* target) {
  return m_Mouth.Detach(target) ? 1 : 0;
}
