// Records what a camera delivers: H.264 into MP4, JPEG into Matroska, from the first key frame on.
#pragma once

#include "controller/recording/movie_file.h"
#include "controller/recording/picture_clock.h"
#include "controller/recording/picture_joiner.h"
#include "host/video/frame.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct CRecorderStatus {
  std::vector<std::string> Paths;  // recordings with pictures in them, oldest first
  std::string Error;               // why nothing is recorded at present; empty when all is well
  int64_t Delivered = 0;           // H.264 pictures that the camera handed over
  int64_t Written = 0;             // pictures in the recordings, JPEG or H.264
  int64_t Dropped = 0;             // pieces that were dropped because the disk did not keep up
  bool WantsSets = false;          // a key frame waits for StreamInfo()
};

class CRecorder : public CDVRTarget {
 public:
  // Files are `folder`/`name`-date-time.mp4 or .mkv. `queueBytes` bounds what waits for the disk.
  CRecorder(std::string folder, std::string name, size_t queueBytes = 32u << 20);
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
  void Complain(const std::string& why);

  const std::string m_Folder, m_Name;
  const size_t m_nQueueMax;

  mutable std::mutex m_Lock;
  std::condition_variable m_Wake;
  std::deque<Entry> m_Queue;                               // m_Lock
  size_t m_nQueued = 0;                                    // bytes in it; m_Lock
  bool m_bStop = false;                                    // m_Lock
  bool m_bSkipping = false;                                // after an overflow, until a key frame; m_Lock
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
  std::thread m_Thread;
};
