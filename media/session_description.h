// Reads the answer to an RTSP DESCRIBE (RFC 2326 10.2) with its session description (RFC 4566).
#pragma once

#include "host/video/rtsp_profile.h"
#include "media/owned_list.h"

#include <string_view>
#include <vector>

// Given the bytes of an answer, keeps what is needed to set up its streams. No thread, no socket; its owner
// guards it.
class CSessionDescription {
 public:
  // Digests a whole answer, headers included; it ends at `length` bytes or the first NUL. `streamUri` is what
  // was described: control URLs are made with it. Never fails; format tags of missing media keep their value.
  void Parse(const char* answer, int length, const CGXString& streamUri);

  // Forgets the description lines and the startup data.
  void RemoveAll();
  void Forget();                                    // and the control URLs: they are another stream's
  void TakeFrom(const CSessionDescription& other);  // all of it but the lines, which only Parse needs

  CGXString ContentBase() const { return m_ContentBase; }          // header of the answer; may be empty
  CGXString ControlURLVideo() const { return m_ControlURLVideo; }  // track for SETUP
  CGXString ControlURLAudio() const { return m_ControlURLAudio; }
  int VideoFormatTag() const { return m_iVideoFormatTag; }  // RTP payload type numbers
  int AudioFormatTag() const { return m_iAudioFormatTag; }

  // H.264 parameter sets in Annex B form with three-byte start codes (ITU-T H.264 Annex B); empty when none
  // came.
  const std::vector<unsigned char>& StartupData() const { return m_StartupData; }

  // The first media line that mentions `media`; false when none does.
  bool GetMediaDescription(const CGXString& media, CMediaDescription* description) const;

  // One line "x=text" as a record, the caller's; null when it is not one or its text is empty.
  static CSDPVar* CreateSDPVar(const char* line, int length);

  // Takes the parameter sets out of an "fmtp" line (RFC 6184 8.1); lines over 1024 bytes are ignored.
  void ExtractStartupData(const char* line, int length);
  void ExtractStartupParam(std::string_view name, std::string_view value);

  static int MediaType(const CGXString& media);  // MEDIA_VIDEO, MEDIA_AUDIO, otherwise MEDIA_SESSION

  static constexpr int MEDIA_SESSION = 0, MEDIA_VIDEO = 1, MEDIA_AUDIO = 2;

 private:
  void ParseHeaders(std::string_view answer);
  void ParseBody(std::string_view body);
  void SelectControls(const CGXString& streamUri);

  COwnedList<CSDPVar> m_Lines;
  CGXString m_ContentBase, m_ControlURLVideo, m_ControlURLAudio;
  int m_iVideoFormatTag = 0, m_iAudioFormatTag = 0;
  std::vector<unsigned char> m_StartupData;
};
