// Records about RTSP streams that pass between a camera and the host.
#pragma once

#include "host/base/gxstring.h"
#include "host/intercom/rtp_path.h"

#include <string>
#include <vector>

enum RTP_TRANSPORT : int { RTP_TRANSPORT_UDP = 0, RTP_TRANSPORT_TCP = 1 };  // TCP: interleaved, RFC 2326 10.12

// The list of user stream settings that a stream index counts in.
enum RTSP_PROFILE_TYPE : int { RTSP_PROFILE_H264 = 1, RTSP_PROFILE_JPEG = 2 };

// Payload types of CRTSPProfile::PayloadType.
inline constexpr int RTSP_PAYLOAD_JPEG = 1;
inline constexpr int RTSP_PAYLOAD_H264 = 2;
inline constexpr int RTSP_PAYLOAD_G711 = 5;

struct GXT_RESOLUTION {
  int Width = 0;   // pixels
  int Height = 0;  // pixels
  bool operator==(const GXT_RESOLUTION&) const = default;
};

struct GXT_RANGE {
  int Min = 0, Max = 0;
  bool operator==(const GXT_RANGE&) const = default;
};

struct GXT_PTZ_RANGE {
  float Min = 0, Max = 0;
};

// One line of a session description (RFC 4566): `Type`=`Text`.
class CSDPVar {
 public:
  CSDPVar(char type, CGXString text) : m_cType(type), m_Text(text) {}
  char Type() const { return m_cType; }
  const CGXString& Text() const { return m_Text; }
  CSDPVar* Next() const { return m_pNext; }
  void Next(CSDPVar* next) { m_pNext = next; }

 private:
  char m_cType;
  CGXString m_Text;
  CSDPVar* m_pNext = nullptr;
};

// The fields of a media line (RFC 4566 5.14).
struct CMediaDescription {
  CGXString Port, Proto, Format;
};

// All that is needed to open one RTSP stream.
class CRTSPProfile {
 public:
  CRTSPProfile();
  virtual ~CRTSPProfile();

  CGXString URL() const { return m_URL; }  // the presentation, for DESCRIBE
  void URL(CGXString url) { m_URL = url; }
  CGXString ContentBase() const { return m_ContentBase; }  // as the server sent it, may be empty
  void ContentBase(CGXString base) { m_ContentBase = base; }
  CGXString ControlURL() const { return m_ControlURL; }  // the track, for SETUP
  void ControlURL(CGXString url) { m_ControlURL = url; }
  CGXString UserName() const { return m_UserName; }
  void UserName(CGXString user) { m_UserName = user; }
  CGXString Password() const { return m_Password; }
  void Password(CGXString password) { m_Password = password; }

  int PayloadType() const { return m_iPayloadType; }  // RTSP_PAYLOAD_...
  void PayloadType(int type) { m_iPayloadType = type; }
  int FormatTag() const { return m_iFormatTag; }  // RTP payload type number
  void FormatTag(int tag) { m_iFormatTag = tag; }
  RTP_TRANSPORT Transport() const { return m_Transport; }
  void Transport(RTP_TRANSPORT transport) { m_Transport = transport; }

  GXT_RESOLUTION Resolution() const { return m_Resolution; }
  void Resolution(int width, int height) { m_Resolution = {width, height}; }
  int GOVLength() const { return m_iGOVLength; }
  void GOVLength(int frames) { m_iGOVLength = frames; }
  int FrameRate() const { return m_iFrameRate; }  // frames per second
  void FrameRate(int rate) { m_iFrameRate = rate; }
  int Bitrate() const { return m_iBitrate; }  // kbit/s; of an audio stream: its sample rate in Hz
  void Bitrate(int rate) { m_iBitrate = rate; }

  // H.264 parameter sets in Annex B form; copied. Null or 0 bytes: none.
  void SetStartupData(const unsigned char* data, int bytes);
  const unsigned char* StartupData() const { return m_StartupData.data(); }
  int NStartupData() const { return static_cast<int>(m_StartupData.size()); }

 private:
  CGXString m_URL, m_ContentBase, m_ControlURL, m_UserName, m_Password;
  int m_iPayloadType = 0, m_iFormatTag = 0;
  RTP_TRANSPORT m_Transport = RTP_TRANSPORT_TCP;
  GXT_RESOLUTION m_Resolution;
  int m_iGOVLength = 0, m_iFrameRate = 0, m_iBitrate = 0;
  std::vector<unsigned char> m_StartupData;
};
