// Records what a camera delivers: H.264 into MP4, JPEG into Matroska, from the first key frame on. A file ends
// after about ten minutes and the next begins with the key frame that follows, so that none grows without end
// and no picture is lost between two.
#pragma once

#include "controller/recording/byte_budget.h"
#include "controller/recording/movie_file.h"
#include "controller/recording/picture_clock.h"
#include "controller/recording/picture_joiner.h"
#include "host/base/gxthread.h"
#include "host/video/frame.h"
#include "host/video/rate_window.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct CRecorderStatus {
  std::vector<std::string> Paths;  // recordings with pictures in them, oldest first, the last MOST_PATHS
  std::string Error;               // what is wrong at present; empty when all is well
  int64_t Delivered = 0;           // H.264 pictures that the camera handed over
  int64_t Written = 0;             // pictures in the recordings, JPEG or H.264
  int64_t Dropped = 0;             // pictures that are in no file: the disk did not keep up, or took none
  int Motion = -1;                 // level that the last H.264 piece carried; -1: unknown
  double PicturesPerSecond = 0;    // H.264 pictures that the camera hands over
  bool WantsSets = false;          // a key frame waits for StreamInfo()
};

class CRecorder : public CDVRTarget {
 public:
  static constexpr size_t MOST_PATHS = 200;
  static constexpr int64_t SEGMENT_US = 600 * int64_t{1000000};

  // Files are `folder`/`name`-date-time.mp4 or .mkv, with the time in UTC so that they sort. What waits for the
  // disk is bounded by `budget`, which several recorders share; it outlives them.
  CRecorder(std::string folder, std::string name, CByteBudget* budget = CByteBudget::Common(),
            int64_t segmentUs = SEGMENT_US);
  ~CRecorder() override;  // Stop()

  void BeginStream() override;
  void DeliverFrame(std::unique_ptr<CFrameData> frame) override;

  // What the camera says of the stream outside of it: parameter sets (Annex B, may be empty), and what to
  // assume where they do not tell. Answers WantsSets.
  void StreamInfo(CBytes sets, CPictureFormat assumed);

  // Writes what has arrived, ends the file and the thread. Later frames are ignored.
  void Stop();

  CRecorderStatus Status() const;

 private:
  struct Entry {
    std::unique_ptr<CFrameData> Frame;  // null: only a break
    int64_t Arrival = 0;
    bool Break = false;  // does not continue the entry before it
  };

  void Push(Entry entry);
  bool Accept(const CFrameData& frame, ESlice slice, bool* resumes);
  bool HasThread();
  static unsigned Entrance(void* self);
  void Run();
  void Consume(Entry& entry);
  void Write(const CH264Picture& picture);
  CPictureFormat Complete(CPictureFormat format) const;
  void WriteJPEG(CBytes picture, int64_t arrival);
  void Put(CBytes picture, bool key, int64_t arrival);
  std::vector<unsigned char> SetsFor(const CH264Picture& key);
  bool Begin(EMovieKind kind, CBytes sets, CPictureFormat format, int64_t arrival);
  void End();
  void Fail(const std::string& why, int64_t arrival);  // the disk: no file for a while
  void NotePath();
  void CountLost();
  void Complain(const std::string& why);

  const std::string m_Folder, m_Name;
  CByteBudget* const m_pBudget;
  const int64_t m_nSegmentUs;

  mutable std::mutex m_Lock;
  std::condition_variable m_Wake;
  std::deque<Entry> m_Queue;                               // m_Lock
  bool m_bStop = false;                                    // m_Lock
  bool m_bSkipping = false;                                // after an overflow, until a key frame; m_Lock
  int64_t m_nDroppedAt = 0;                                // the last time; 0: never; m_Lock
  int64_t m_nBusySince = 0;                                // the writer, with one piece; 0: it waits; m_Lock
  int64_t m_nThreadRetryAt = 0;                            // after none was to be had; m_Lock
  std::string m_ThreadError;                               // m_Lock
  CRecorderStatus m_Status;                                // m_Lock
  std::optional<std::vector<unsigned char>> m_StreamSets;  // m_Lock
  CPictureFormat m_Assumed;                                // m_Lock

  // The writing thread's own.
  CMovieFile m_File;
  CPictureJoiner m_Joiner;
  std::string m_Path;
  EMovieKind m_Kind = EMovieKind::H264;
  std::vector<unsigned char> m_FileSets;
  CPictureFormat m_Format;
  CPictureClock m_Clock;
  bool m_bNeedKey = true;
  int64_t m_nRetryAt = 0;
  int64_t m_nBegan = 0, m_nLookAt = 0;  // the file, and when to look whether it is still there

  CRateWindow m_Rate;
  CGXThread m_Thread;
};
