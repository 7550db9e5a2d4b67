#include "controller/recording/recorder.h"

#include "controller/core/atomic_file.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace {

constexpr std::chrono::seconds SETS_WAIT{10};  // for parameter sets that are not in the stream
constexpr int64_t RETRY_US = 10 * 1000000;     // after a file could not be written
constexpr size_t ENTRY_OVERHEAD = 256;         // so that empty pieces are bounded too

int64_t Now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

CBytes BytesOf(const CFrameData& frame) {
  return {frame.Data(), static_cast<size_t>(frame.Length())};
}

}  // namespace

CRecorder::CRecorder(std::string folder, std::string name, size_t queueBytes)
    : m_Folder(std::move(folder)), m_Name(SafeFileName(name)), m_nQueueMax(queueBytes) {
  m_Thread = std::thread([this] { Run(); });
}

CRecorder::~CRecorder() {
  Stop();
}

void CRecorder::DeliverFrame(std::unique_ptr<CFrameData> frame) {
  const bool h264 = frame->Kind() == FRAME_KIND_H264;
  if (!h264 && frame->Kind() != FRAME_KIND_JPEG) return;
  const ESlice slice = h264 ? SliceOf(BytesOf(*frame)) : ESlice::First;
  Entry entry{nullptr, Now(), false};
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (m_bStop) return;
  if (h264 && slice == ESlice::First) ++m_Status.Delivered;
  if (!Accept(*frame, slice, &entry.Break)) return;
  entry.Frame = std::move(frame);
  Push(std::move(entry));
}

// Under m_Lock. Whether the piece is queued; `resumes`: pieces before it are missing.
bool CRecorder::Accept(const CFrameData& frame, ESlice slice, bool* resumes) {
  const bool begins = frame.Kind() == FRAME_KIND_JPEG || (frame.Options() == NAL_IDR && slice == ESlice::First);
  const bool fits = m_nQueued + static_cast<size_t>(frame.Length()) + ENTRY_OVERHEAD <= m_nQueueMax;
  if (!fits || (m_bSkipping && !begins)) {
    m_bSkipping = true;
    ++m_Status.Dropped;
    return false;
  }
  *resumes = m_bSkipping;
  m_bSkipping = false;
  return true;
}

// Under m_Lock.
void CRecorder::Push(Entry entry) {
  m_nQueued += ENTRY_OVERHEAD + (entry.Frame ? static_cast<size_t>(entry.Frame->Length()) : 0);
  m_Queue.push_back(std::move(entry));
  m_Wake.notify_all();
}

void CRecorder::BeginStream() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_StreamSets.reset();
  if (!m_bStop) Push({nullptr, 0, true});
}

void CRecorder::StreamInfo(CBytes sets, CPictureFormat assumed) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_StreamSets = ParameterSetsOf(sets);
  m_Assumed = assumed;
  m_Wake.notify_all();
}

void CRecorder::Stop() {
  {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_bStop = true;
    m_Wake.notify_all();
  }
  if (m_Thread.joinable()) m_Thread.join();
}

CRecorderStatus CRecorder::Status() const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_Status;
}

void CRecorder::Run() {
  for (;;) {
    std::unique_lock<std::mutex> lock(m_Lock);
    m_Wake.wait(lock, [this] { return m_bStop || !m_Queue.empty(); });
    if (m_Queue.empty()) break;
    Entry entry = std::move(m_Queue.front());
    m_Queue.pop_front();
    m_nQueued -= ENTRY_OVERHEAD + (entry.Frame ? static_cast<size_t>(entry.Frame->Length()) : 0);
    lock.unlock();
    Consume(entry);
  }
  if (const auto last = m_Joiner.Finish()) Write(*last);
  End();
}

void CRecorder::Consume(Entry& entry) {
  if (entry.Break) {
    // A new stream proves nothing about the picture that was under way.
    if (const auto last = m_Joiner.Finish(); last && !entry.Frame) Write(*last);
    m_bNeedKey = true;
  }
  if (!entry.Frame) return;
  const CBytes bytes = BytesOf(*entry.Frame);
  if (entry.Frame->Kind() == FRAME_KIND_JPEG) {
    WriteJPEG(bytes, entry.Arrival);
  } else if (const auto done = m_Joiner.Add(bytes, entry.Frame->Options() == NAL_IDR, entry.Arrival)) {
    Write(*done);
  }
}

// The parameter sets that a key frame is decoded with: its own, or those that the camera gave elsewhere.
std::vector<unsigned char> CRecorder::SetsFor(const CH264Picture& key) {
  std::vector<unsigned char> own = ParameterSetsOf(key.Data);
  if (!own.empty()) return own;
  std::unique_lock<std::mutex> lock(m_Lock);
  if (!m_StreamSets || m_StreamSets->empty()) {
    m_StreamSets.reset();
    m_Status.WantsSets = true;
    m_Wake.wait_for(lock, SETS_WAIT, [this] { return m_bStop || m_StreamSets.has_value(); });
    m_Status.WantsSets = false;
  }
  return m_StreamSets.value_or(std::vector<unsigned char>());
}

void CRecorder::Write(const CH264Picture& picture) {
  if (picture.Key) {
    const std::vector<unsigned char> sets = SetsFor(picture);
    if (sets.empty()) {
      m_bNeedKey = true;
      Complain("the camera sends no parameter sets");
      return;
    }
    const bool continues = m_File.IsOpen() && m_Kind == EMovieKind::H264 && sets == m_FileSets;
    if (!continues) {
      const CPictureFormat format = Complete(H264Format(sets, picture.Data));
      if (!Begin(EMovieKind::H264, sets, format, picture.Arrival)) return;
    }
    m_bNeedKey = false;
  }
  if (!m_bNeedKey) Put(picture.Data, picture.Key, picture.Arrival);
}

// What the picture does not tell, as the camera says it.
CPictureFormat CRecorder::Complete(CPictureFormat format) const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (format.Width == 0 || format.Height == 0) {
    format.Width = m_Assumed.Width;
    format.Height = m_Assumed.Height;
  }
  if (format.Interval == 0) format.Interval = m_Assumed.Interval;
  return format;
}

void CRecorder::WriteJPEG(CBytes picture, int64_t arrival) {
  CPictureFormat format;
  if (!JPEGSize(picture, &format.Width, &format.Height)) return;
  const bool continues = m_File.IsOpen() && m_Kind == EMovieKind::JPEG && format.Width == m_Format.Width &&
                         format.Height == m_Format.Height;
  if (continues || Begin(EMovieKind::JPEG, {}, Complete(format), arrival)) Put(picture, true, arrival);
}

void CRecorder::Put(CBytes picture, bool key, int64_t arrival) {
  if (!m_File.IsOpen()) return;
  std::string why;
  if (!m_File.Write(picture, key, m_Clock.Stamp(arrival), &why)) {
    End();
    Fail(why, arrival);
    return;
  }
  const std::lock_guard<std::mutex> lock(m_Lock);
  ++m_Status.Written;
  if (m_Status.Paths.empty() || m_Status.Paths.back() != m_Path) m_Status.Paths.push_back(m_Path);
}

bool CRecorder::Begin(EMovieKind kind, CBytes sets, CPictureFormat format, int64_t arrival) {
  End();
  m_bNeedKey = true;
  if (arrival < m_nRetryAt) return false;
  m_Path = NewFilePath(m_Folder + "/" + m_Name, CMovieFile::Ending(kind));
  std::string why;
  if (!m_File.Open(m_Path, kind, format.Width, format.Height, sets, &why)) {
    Fail(why, arrival);
    return false;
  }
  m_Kind = kind;
  m_FileSets.assign(sets.begin(), sets.end());
  m_Format = format;
  m_Clock = CPictureClock(format.Interval);
  Complain("");
  return true;
}

void CRecorder::End() {
  if (!m_File.IsOpen()) return;
  std::string why;
  if (!m_File.Close(&why)) Fail(why, Now());
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (m_Status.Paths.empty() || m_Status.Paths.back() != m_Path)
    unlink(m_Path.c_str());  // nothing came into it
}

void CRecorder::Fail(const std::string& why, int64_t arrival) {
  m_bNeedKey = true;
  m_nRetryAt = arrival + RETRY_US;
  Complain(why);
}

void CRecorder::Complain(const std::string& why) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Status.Error = why;
}
