// One recording on disk: encoded pictures go in as they are, nothing is encoded again.
#pragma once

#include "controller/recording/picture_info.h"

#include <cstdint>
#include <memory>
#include <string>

enum class EMovieKind {
  H264,  // fragmented MP4: what is written can be played even when the program is killed
  JPEG,  // Matroska, for the same reason
};

class CMovieFile {
 public:
  CMovieFile();
  ~CMovieFile();                               // Close()
  static const char* Ending(EMovieKind kind);  // of the file name, with its dot

  // A recording has another ending until something is in it that can be played, so that whoever looks for
  // recordings, or a kill in its first moments, leaves no empty ones. Removes those that a kill left behind of
  // recordings whose names begin so.
  static void RemoveRemains(const std::string& folder, const std::string& name);

  // Creates `path`, which must not exist. `sets`: H.264 parameter sets, Annex B. False with a reason.
  bool Open(const std::string& path, EMovieKind kind, int width, int height, CBytes sets, std::string* error);
  bool IsOpen() const { return m_pState != nullptr; }
  bool IsVisible() const;                  // under its own name: something in it can be played
  bool IsThere(std::string* error) const;  // still where it was created; false with a reason

  // Adds a picture that is to be shown at that time of the recording's clock, a millisecond or more after the
  // one before. False with a reason, as on a full disk: close it then.
  bool Write(CBytes picture, bool key, int64_t arrival, std::string* error);

  // Ends the file properly; `kept`: it is there under its own name, since something is in it. False when the
  // last of it could not be written.
  bool Close(std::string* error, bool* kept);

 private:
  struct State;
  std::unique_ptr<State> m_pState;
};
