#include "host/video/rtsp_profile.h"

CRTSPProfile::CRTSPProfile() = default;
CRTSPProfile::~CRTSPProfile() = default;

void CRTSPProfile::SetStartupData(const unsigned char* data, int bytes) {
  if (data == nullptr || bytes < 0) bytes = 0;
  m_StartupData.assign(data, data + bytes);
}
