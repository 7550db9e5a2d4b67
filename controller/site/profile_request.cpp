#include "controller/site/profile_request.h"

namespace {

constexpr int READY = 2;  // bit of a notice's code
constexpr int ANY = 255;

}  // namespace

bool NoticeMatches(int waitedFor, int code) {
  for (int shift = 0; shift < 32; shift += 8) {
    const int a = (waitedFor >> shift) & 0xFF, b = (code >> shift) & 0xFF;
    if (a != b && a != ANY && b != ANY) return false;
  }
  return true;
}

CProfileRequest::CProfileRequest(CVideoSystem* camera, RTSP_PROFILE_TYPE type, int index)
    : m_pCamera(camera), m_Type(type), m_iIndex(index) {
  m_pCamera->AddONVIF_Client(this);
}

CProfileRequest::~CProfileRequest() {
  m_pCamera->RemoveONVIF_Client(this);
}

std::unique_ptr<CRTSPProfile> CProfileRequest::Poll() {
  const auto now = std::chrono::steady_clock::now();
  if (m_Step == EStep::Noticed) {
    m_Step = EStep::AskedAgain;
  } else if (now >= m_NextRound) {
    m_Step = EStep::Asked;
    m_NextRound = now + ASK_AGAIN;
  } else {
    return nullptr;
  }
  CResolutionDescriptor descriptor;
  m_pCamera->LoadResolutionDescriptor(m_iIndex, &descriptor, m_Type);
  m_iCode = descriptor.DriverDataInt() | READY;
  return std::unique_ptr<CRTSPProfile>(m_pCamera->LoadRTSPProfile(&descriptor));
}

void CProfileRequest::OnNotify(int id, int code) {
  if (m_Step != EStep::Asked || id != m_pCamera->ID() || !NoticeMatches(m_iCode, code)) return;
  const bool inLine = m_pCamera->GetRTSPResolution(m_Type, m_iIndex) == m_iIndex;
  m_Step = inLine ? EStep::Noticed : EStep::Refused;
}
