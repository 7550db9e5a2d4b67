#include "controller/recording/recorder.h"

#include "controller/core/atomic_file.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr std::chrono::seconds SETS_WAIT{10};  // for parameter sets that are not in the stream
constexpr int64_t SECOND_US = 1000000;
constexpr int64_t RETRY_US = 5 * SECOND_US;         // after a file could not be written
constexpr int64_t THREAD_RETRY_US = 5 * SECOND_US;  // after no thread was to be had
constexpr int64_t LOOK_US = 2 * SECOND_US;          // whether the file is still where it was made
constexpr int64_t STALLED_US = 5 * SECOND_US;       // in one piece: the disk takes nothing
constexpr int64_t TOLD_US = 60 * SECOND_US;         // how long a loss stays a problem
constexpr size_t ENTRY_OVERHEAD = 256;              // so that empty pieces are bounded too

int64_t Now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

CBytes BytesOf(const CFrameData& frame) {
  return {frame.Data(), static_cast<size_t>(frame.Length())};
}

size_t CostOf(const CFrameData* frame) {
  return ENTRY_OVERHEAD + (frame != nullptr ? static_cast<size_t>(frame->Length()) : 0);
}

}  // namespace

CRecorder::CRecorder(std::string folder, std::string name, CByteBudget* budget, int64_t segmentUs)
    : m_Folder(std::move(folder)), m_Name(SafeFileName(name)), m_pBudget(budget), m_nSegmentUs(segmentUs) {
  CMovieFile::RemoveRemains(m_Folder, m_Name);
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
  if (h264) m_Status.Motion = frame->Motion();
  if (h264 && slice == ESlice::First) {
    ++m_Status.Delivered;
    m_Rate.Count();
  }
  if (!Accept(*frame, slice, &entry.Break)) return;
  entry.Frame = std::move(frame);
  Push(std::move(entry));
}

// Under m_Lock. Whether the piece is queued; `resumes`: pieces before it are missing.
bool CRecorder::Accept(const CFrameData& frame, ESlice slice, bool* resumes) {
  const bool begins = frame.Kind() == FRAME_KIND_JPEG || (frame.Options() == NAL_IDR && slice == ESlice::First);
  if (!HasThread() || (m_bSkipping && !begins) || !m_pBudget->Take(CostOf(&frame))) {
    m_bSkipping = true;
    m_nDroppedAt = Now();
    if (slice == ESlice::First) ++m_Status.Dropped;
    return false;
  }
  *resumes = m_bSkipping;
  m_bSkipping = false;
  return true;
}

// Under m_Lock. Whether the writing thread is there; it is started for the first piece.
bool CRecorder::HasThread() {
  if (m_Thread.IsRunning()) return true;
  if (Now() < m_nThreadRetryAt) return false;
  const bool started = m_Thread.Start(Entrance, this, 0, "Recorder") != 0;
  m_ThreadError = started ? "" : "the system has no thread for the recording; tried again every 5 s";
  m_nThreadRetryAt = started ? 0 : Now() + THREAD_RETRY_US;
  return started;
}

unsigned CRecorder::Entrance(void* self) {
  static_cast<CRecorder*>(self)->Run();
  return 0;
}

// Under m_Lock.
void CRecorder::Push(Entry entry) {
  m_Queue.push_back(std::move(entry));
  m_Wake.notify_all();
}

void CRecorder::BeginStream() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_StreamSets.reset();
  if (m_bStop) return;
  if (HasThread() && m_pBudget->Take(CostOf(nullptr))) return Push({nullptr, 0, true});
  m_bSkipping = true;
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
  m_Thread.Join();
}

CRecorderStatus CRecorder::Status() const {
  const int64_t now = Now();
  const std::lock_guard<std::mutex> lock(m_Lock);
  CRecorderStatus status = m_Status;
  status.PicturesPerSecond = m_Rate.PerSecond();
  if (!m_ThreadError.empty()) {
    status.Error = m_ThreadError;
  } else if (m_nBusySince != 0 && !status.WantsSets && now - m_nBusySince > STALLED_US) {
    status.Error = "the disk has taken nothing for " + std::to_string((now - m_nBusySince) / SECOND_US) +
                   " s; pictures wait in memory, " + std::to_string(m_Status.Dropped) + " were dropped";
  } else if (status.Error.empty() && m_nDroppedAt != 0 && now - m_nDroppedAt < TOLD_US) {
    status.Error =
        "the disk does not keep up: " + std::to_string(m_Status.Dropped) + " pictures are in no recording";
  }
  return status;
}

void CRecorder::Run() {
  for (;;) {
    std::unique_lock<std::mutex> lock(m_Lock);
    m_nBusySince = 0;
    m_Wake.wait(lock, [this] { return m_bStop || !m_Queue.empty(); });
    if (m_Queue.empty()) break;
    Entry entry = std::move(m_Queue.front());
    m_Queue.pop_front();
    m_nBusySince = Now();
    lock.unlock();
    Consume(entry);
    m_pBudget->Give(CostOf(entry.Frame.get()));  // not before the disk has taken it
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
    const bool continues = m_File.IsOpen() && m_Kind == EMovieKind::H264 && sets == m_FileSets &&
                           picture.Arrival - m_nBegan < m_nSegmentUs;
    if (!continues) {
      const CPictureFormat format = Complete(H264Format(sets, picture.Data));
      if (!Begin(EMovieKind::H264, sets, format, picture.Arrival)) return CountLost();
    }
    m_bNeedKey = false;
  }
  if (!m_bNeedKey) return Put(picture.Data, picture.Key, picture.Arrival);
  if (m_nRetryAt != 0) CountLost();
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
                         format.Height == m_Format.Height && arrival - m_nBegan < m_nSegmentUs;
  if (continues || Begin(EMovieKind::JPEG, {}, Complete(format), arrival)) return Put(picture, true, arrival);
  CountLost();
}

void CRecorder::Put(CBytes picture, bool key, int64_t arrival) {
  if (!m_File.IsOpen()) return;
  std::string why;
  bool good = m_File.Write(picture, key, m_Clock.Stamp(arrival), &why);
  // A file whose folder is removed takes everything that is written, and nobody will find it.
  if (good && arrival >= m_nLookAt) {
    m_nLookAt = arrival + LOOK_US;
    good = m_File.IsThere(&why);
  }
  if (!good) {
    End();
    Fail(why, arrival);
    return CountLost();
  }
  const std::lock_guard<std::mutex> lock(m_Lock);
  ++m_Status.Written;
  if (m_File.IsVisible()) NotePath();
}

// Under m_Lock.
void CRecorder::NotePath() {
  std::vector<std::string>& paths = m_Status.Paths;
  if (!paths.empty() && paths.back() == m_Path) return;
  if (paths.size() >= MOST_PATHS) paths.erase(paths.begin());
  paths.push_back(m_Path);
}

// A picture that no file takes.
void CRecorder::CountLost() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  ++m_Status.Dropped;
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
  m_nBegan = arrival;
  m_nLookAt = arrival + LOOK_US;
  m_nRetryAt = 0;
  Complain("");
  return true;
}

void CRecorder::End() {
  if (!m_File.IsOpen()) return;
  std::string why;
  bool kept = false;
  if (!m_File.Close(&why, &kept)) Fail(why, Now());
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (kept) NotePath();
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
