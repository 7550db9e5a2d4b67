// The threads of a camera's streams, and what is known of them.
#include "camera/camera_streams.h"

#include "camera/ONVIFCam.h"
#include "host/video/rtsp_profile.h"

#include <algorithm>

namespace {

constexpr unsigned STREAM_RESTART_MS = 1000;  // least time between two starts of a stream that failed
constexpr unsigned DVR_STATS_PERIOD_MS = 2000;

bool SameStream(const CUserSettingsRef& a, const CUserSettingsRef& b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->ProfileToken() == b->ProfileToken() && a->EncoderToken() == b->EncoderToken() &&
         a->Transport() == b->Transport() &&
         (a->ReadOnlyProfile() || a->Settings()->IsSameConfig(b->Settings()));
}

}  // namespace

// ---- What is wanted ----

void CCameraStreams::Mask(unsigned mask) {
  const unsigned changed = m_dwMask.exchange(mask) ^ mask;
  for (int i = 0; i < JPEG_STREAMS; ++i) {
    if ((changed & (1U << i)) == 0) continue;
    ++m_Streams[i].Epoch;
    Stands(i, GXT_REPORT::STATE::Starting);
  }
}

void CCameraStreams::DVRActive(bool active) {
  const CGXLock lock(m_DVRLock);
  if (m_bDVRActive.exchange(active) == active) return;
  ++m_Streams[JPEG_STREAMS].Epoch;
  Stands(JPEG_STREAMS, GXT_REPORT::STATE::Starting);
}

// The wish is asked under the lock, so that a recording which begins meanwhile is not ended by an old answer.
bool CCameraStreams::EndUnwantedDVR() {
  const CGXLock lock(m_DVRLock);
  if ((m_pCamera->DVRFlags() & DVR_FLAG_WANTED) != 0) return false;
  if (m_bDVRActive.exchange(false)) ++m_Streams[JPEG_STREAMS].Epoch;
  return true;
}

void CCameraStreams::CurrentSettings(CUserSettingsRef (*settings)[STREAMS]) const {
  for (int i = 0; i < JPEG_STREAMS; ++i) (*settings)[i] = m_pCamera->Model().UserSettings(RTSP_PROFILE_JPEG, i);
  (*settings)[JPEG_STREAMS] = m_pCamera->Model().DVRSettings(m_pCamera->DVRResolutionIndex());
}

void CCameraStreams::SettingsReplaced(const CUserSettingsRef (&before)[STREAMS]) {
  CUserSettingsRef now[STREAMS];
  CurrentSettings(&now);
  for (int i = 0; i < STREAMS; ++i)
    if (!SameStream(before[i], now[i])) ++m_Streams[i].Epoch;
}

bool CCameraStreams::IsOn(int stream) const {
  return stream < JPEG_STREAMS ? (m_dwMask & (1U << stream)) != 0 : m_bDVRActive.load();
}

bool CCameraStreams::IsWanted(const CStart& start) const {
  if (m_pCamera->StopFlag() || CGXThread::CurrentCancelled() || !IsOn(start.Stream)) return false;
  if (m_Streams[start.Stream].Epoch != start.Epoch || start.Profile->Reloads() != start.Reloads) return false;
  return start.Stream < JPEG_STREAMS || m_pCamera->DVRGeneration() == start.DVRGeneration;
}

// ---- Threads ----

void CCameraStreams::Start() {
  static constexpr struct {
    const char* Suffix;
    CGXThread::Entry Entry;
  } THREADS[STREAMS] = {
      {":Proc0", Entry<0>}, {":Proc1", Entry<1>}, {":Proc2", Entry<2>}, {":ProcH264", Entry<JPEG_STREAMS>}};
  for (int i = 0; i < STREAMS; ++i) {
    CStream& stream = m_Streams[i];
    if (!IsOn(i) || stream.Thread.IsRunning()) continue;
    if (stream.Failed && stream.Started.GXTickCount() < STREAM_RESTART_MS) continue;
    stream.Failed = false;
    stream.Started.Restart();
    if (stream.Thread.Start(THREADS[i].Entry, this, 0, m_pCamera->Name() + THREADS[i].Suffix) == 0) {
      stream.Failed = true;
      Failed(i, "the controller has no thread left for it", STREAM_RESTART_MS);
    }
  }
}

unsigned CCameraStreams::RunStream(void* streams, int stream) {
  auto* const self = static_cast<CCameraStreams*>(streams);
  if (stream < JPEG_STREAMS ? self->RunJPEG(stream) : self->RunH264()) return 0;
  self->m_Streams[stream].Failed = true;
  self->m_pCamera->SetErrorState();
  return 0;
}

void CCameraStreams::Cancel() {
  for (CStream& stream : m_Streams) stream.Thread.Cancel();
}

void CCameraStreams::Join() {
  for (CStream& stream : m_Streams) stream.Thread.Join();
}

void CCameraStreams::Reset() {
  for (CStream& stream : m_Streams) stream.Thread.Reset();
}

// ---- How they stand ----

void CCameraStreams::Stands(int stream, GXT_REPORT::STATE state, const CGXString& reason, int retryMs) {
  const CGXLock lock(m_ReportLock);
  CStanding& standing = m_Standing[stream];
  standing.Report.State = state;
  standing.Report.Reason = reason;
  standing.Report.RetryMs = retryMs;
  standing.Since.Restart();
}

int CCameraStreams::Failed(int stream, const CGXString& reason, int retryMs, const char* trace) {
  if (trace != nullptr) m_pCamera->Trace(trace);
  Stands(stream, GXT_REPORT::STATE::Failed, reason, retryMs);
  return 0;
}

std::vector<GXT_STREAM_REPORT> CCameraStreams::Reports() const {
  std::vector<GXT_STREAM_REPORT> reports;
  for (int i = 0; i < STREAMS; ++i) {
    if (!IsOn(i)) continue;
    const CGXLock lock(m_ReportLock);
    reports.push_back(m_Standing[i].Report);
    GXT_STREAM_REPORT& report = reports.back();
    report.Stream = i;
    if (report.RetryMs > 0)
      report.RetryMs = std::max(0, report.RetryMs - static_cast<int>(m_Standing[i].Since.GXTickCount()));
  }
  return reports;
}

void CCameraStreams::CountTooLarge(unsigned units) {
  bool first = false;
  {
    const CGXLock lock(m_ReportLock);
    unsigned& count = m_Standing[JPEG_STREAMS].Report.TooLarge;
    first = count == 0 && units > 0;
    count += units;
  }
  if (first)
    m_pCamera->Trace(
        "WARNING: H264/DVR pictures are larger than can be recorded and are left out; a lower bit rate, a "
        "smaller picture or a shorter key-frame interval helps");
}

int CCameraStreams::DVRRate() {
  const CGXLock lock(m_DVRLock);
  const unsigned elapsed = m_DVRStatsTimer.GXTickCount();
  if (elapsed > DVR_STATS_PERIOD_MS) {
    m_iDVRRate = static_cast<int>(100000LL * m_nDVRFrames.exchange(0) / elapsed);
    m_DVRStatsTimer.Restart();
  }
  return m_iDVRRate;
}
