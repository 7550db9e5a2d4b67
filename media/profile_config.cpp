#include "media/profile.h"

#include <cstdlib>
#include <limits>

namespace {

// How far two picture sizes are apart, in pixels of width and height; sizes come from the network.
long long Distance(const GXT_RESOLUTION& a, const GXT_RESOLUTION& b) {
  return std::llabs(static_cast<long long>(a.Width) - b.Width) +
         std::llabs(static_cast<long long>(a.Height) - b.Height);
}

}  // namespace

CProfile* CProfileConfig::AddProfile(const CONVIFMsg* profile) {
  return m_Profiles.Append(std::make_unique<CProfile>(profile));
}

CProfile* CProfileConfig::ProfileByToken(const CGXString& token) const {
  CProfile* profile = Profiles();
  while (profile != nullptr && !(profile->Token() == token)) profile = profile->Next();
  return profile;
}

CProfile* CProfileConfig::GetProfileWithEncoding(const char* encoding, const GXT_RESOLUTION* wanted) const {
  CProfile* best = nullptr;
  long long bestDistance = std::numeric_limits<long long>::max();
  for (CProfile* profile = Profiles(); profile != nullptr; profile = profile->Next()) {
    if (profile->VideoEncoderType().CompareNoCase(encoding) != 0) continue;
    if (wanted == nullptr) return profile;
    const long long distance = Distance(*wanted, profile->CurrentSettings()->Resolution());
    if (distance >= bestDistance) continue;
    best = profile;
    bestDistance = distance;
  }
  return best;
}

void CProfileConfig::WriteTo(CGXMSG* msg) const {
  msg->PutInt(m_Profiles.Count());
  for (const CProfile* profile = Profiles(); profile != nullptr; profile = profile->Next())
    profile->WriteTo(msg);
}
