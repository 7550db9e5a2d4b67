#include "controller/site/stream_keeper.h"

#include <algorithm>
#include <set>

namespace {

EStreamState StateOf(const CProfileRequest* request) {
  if (request == nullptr) return EStreamState::Ready;
  return request->Refused() ? EStreamState::Refused : EStreamState::Asking;
}

}  // namespace

void CStreamKeeper::Restart(const CCameraConfig& config) {
  m_Kept.clear();
  std::set<std::string> encoders, profiles;
  for (const RTSP_PROFILE_TYPE list : {RTSP_PROFILE_JPEG, RTSP_PROFILE_H264}) {
    int index = -1;
    for (const CUserStream& stream : config.UserStreams(list).Streams) {
      ++index;
      if (stream.EncoderToken == DEFAULT_ENCODER) continue;
      if (!encoders.insert(stream.EncoderToken).second || !profiles.insert(stream.ProfileToken).second)
        continue;
      m_Kept.push_back({list, index, std::make_unique<CProfileRequest>(m_pCamera, list, index)});
    }
  }
}

void CStreamKeeper::LookAgain() {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_NextLook) return;
  m_NextLook = now + CProfileRequest::ASK_AGAIN;
  for (Kept& kept : m_Kept)
    if (!kept.Request && m_pCamera->GetRTSPResolution(kept.List, kept.Index) != kept.Index)
      kept.Request = std::make_unique<CProfileRequest>(m_pCamera, kept.List, kept.Index);
}

bool CStreamKeeper::Pass() {
  LookAgain();
  bool any = false;
  for (Kept& kept : m_Kept) {
    if (!kept.Request || !kept.Request->Poll()) continue;
    kept.Request.reset();
    any = true;
  }
  return any;
}

EStreamState CStreamKeeper::State(RTSP_PROFILE_TYPE list, int index) const {
  const auto kept =
      std::ranges::find_if(m_Kept, [&](const Kept& one) { return one.List == list && one.Index == index; });
  return kept == m_Kept.end() ? EStreamState::Ready : StateOf(kept->Request.get());
}

bool CStreamKeeper::Settling() const {
  return std::ranges::any_of(
      m_Kept, [](const Kept& kept) { return StateOf(kept.Request.get()) == EStreamState::Asking; });
}
