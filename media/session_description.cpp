#include "media/session_description.h"

#include "media/xml_values.h"
#include "onvif/base64.h"

#include <cstring>
#include <memory>

namespace {

constexpr size_t MAX_FMTP_LINE = 1024;  // bytes; longer lines are no parameters
constexpr size_t MAX_FMTP_TEXT =
    1023;  // bytes of one line, and of one parameter set in Base64, that are looked at
constexpr int MAX_PARAMETER_SET = 1024;  // bytes, decoded

constexpr std::string_view CONTROL = "control:";  // RFC 2326 C.1.1

std::string_view SkipAny(std::string_view text, const char* characters) {
  return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

// Takes the text before `separator`, or all of it, off the front of `rest`.
std::string_view TakeItem(std::string_view* rest, char separator) {
  const size_t length = std::min(rest->find(separator), rest->size());
  const std::string_view item = rest->substr(0, length);
  rest->remove_prefix(std::min(length + 1, rest->size()));
  return item;
}

CGXString JoinURL(const CGXString& base, const CGXString& control) {
  const bool slash = base.GetLength() > 0 && base.Str().back() == '/';
  CGXString url;
  url.Format(slash ? "%s%s" : "%s/%s", base.Str().c_str(), control.Str().c_str());
  return url;
}

bool IsAbsolute(const CGXString& url) {
  return url.Left(7).CompareNoCase("rtsp://") == 0;
}

// The control attribute whose medium is nearest to the wanted one; among equals the first.
class CBestControl {
 public:
  explicit CBestControl(int media) : m_iMedia(media) {}
  void Offer(int media, const CGXString& control) {
    const int distance = std::abs(media - m_iMedia);
    if (distance >= m_iDistance) return;
    m_iDistance = distance;
    m_Control = control;
  }
  bool Found() const { return m_iDistance < NOTHING; }
  const CGXString& Control() const { return m_Control; }

 private:
  static constexpr int NOTHING = 255;
  int m_iMedia, m_iDistance = NOTHING;
  CGXString m_Control;
};

}  // namespace

void CSessionDescription::Parse(const char* answer, int length, const CGXString& streamUri) {
  const std::string_view text(answer, length > 0 ? strnlen(answer, static_cast<size_t>(length)) : 0);
  RemoveAll();
  ParseHeaders(text);
  const size_t end = text.find("\r\n\r\n");
  if (end != text.npos) ParseBody(text.substr(end + 4));

  CMediaDescription media;
  if (GetMediaDescription("video", &media)) m_iVideoFormatTag = ToInt(media.Format);
  if (GetMediaDescription("audio", &media)) m_iAudioFormatTag = ToInt(media.Format);
  SelectControls(streamUri);
}

void CSessionDescription::RemoveAll() {
  m_Lines.RemoveAll();
  m_StartupData.clear();
}

void CSessionDescription::Forget() {
  RemoveAll();
  m_ContentBase = m_ControlURLVideo = m_ControlURLAudio = CGXString();
}

void CSessionDescription::TakeFrom(const CSessionDescription& other) {
  m_ContentBase = other.m_ContentBase;
  m_ControlURLVideo = other.m_ControlURLVideo;
  m_ControlURLAudio = other.m_ControlURLAudio;
  m_iVideoFormatTag = other.m_iVideoFormatTag;
  m_iAudioFormatTag = other.m_iAudioFormatTag;
  m_StartupData = other.m_StartupData;
}

void CSessionDescription::ParseHeaders(std::string_view answer) {
  constexpr std::string_view NAME = "Content-Base:";
  m_ContentBase.Empty();
  const size_t at = answer.find(NAME);
  if (at == answer.npos) return;
  const std::string_view value = SkipAny(answer.substr(at + NAME.size()), " ");
  m_ContentBase = CGXString(value.substr(0, value.find_first_of("\r\n")));
}

void CSessionDescription::ParseBody(std::string_view body) {
  const size_t lastFmtp = body.rfind("fmtp:");
  const char* const end = lastFmtp != body.npos ? body.data() + lastFmtp : nullptr;
  while (!body.empty()) {
    const std::string_view line = body.substr(0, body.find_first_of("\r\n"));
    const int length = static_cast<int>(line.size());
    if (CSDPVar* record = CreateSDPVar(line.data(), length)) m_Lines.Append(std::unique_ptr<CSDPVar>(record));
    // Every line up to the last with "fmtp:": some firmware writes the parameters on a line before that one,
    // and lines without parameters are harmless.
    if (end != nullptr && line.data() <= end) ExtractStartupData(line.data(), length);
    body = SkipAny(body.substr(line.size()), "\r\n ");
  }
}

CSDPVar* CSessionDescription::CreateSDPVar(const char* line, int length) {
  const std::string_view text = SkipAny(std::string_view(line, static_cast<size_t>(length)), " \r\n");
  if (text.size() < 3 || text[1] != '=') return nullptr;
  return new CSDPVar(text[0], CGXString(text.substr(2)));
}

bool CSessionDescription::GetMediaDescription(const CGXString& media, CMediaDescription* description) const {
  for (const CSDPVar* line = m_Lines.Head(); line != nullptr; line = line->Next()) {
    if (line->Type() != 'm') continue;
    const int at = line->Text().Find(media);
    if (at < 0) continue;
    std::string_view rest = line->Text().Str();
    rest = SkipAny(rest.substr(static_cast<size_t>(at) + media.Str().size()), " ");
    description->Port = CGXString(TakeItem(&rest, ' '));
    description->Proto = CGXString(TakeItem(&rest, ' '));
    description->Format = CGXString(rest);
    return true;
  }
  return false;
}

int CSessionDescription::MediaType(const CGXString& media) {
  if (media.Find("video") >= 0) return MEDIA_VIDEO;
  return media.Find("audio") >= 0 ? MEDIA_AUDIO : MEDIA_SESSION;
}

void CSessionDescription::SelectControls(const CGXString& streamUri) {
  CBestControl video(MEDIA_VIDEO), audio(MEDIA_AUDIO);
  int media = MEDIA_SESSION;
  for (const CSDPVar* line = m_Lines.Head(); line != nullptr; line = line->Next()) {
    if (line->Type() == 'm') media = MediaType(line->Text());
    if (line->Type() != 'a' || line->Text().Find(CONTROL.data()) < 0) continue;
    const CGXString control = line->Text().Mid(static_cast<int>(CONTROL.size()));
    video.Offer(media, control);
    audio.Offer(media, control);
  }

  // Relative controls are joined to the stream URI, not to Content-Base, in which small cameras write an
  // address that only they can reach.
  const auto resolve = [&](const CBestControl& best, bool absolute) {
    if (!best.Found()) return streamUri;
    return absolute ? best.Control() : JoinURL(streamUri, best.Control());
  };
  // Whether the audio control is absolute is read off the video control: installed cameras that mix the two
  // forms are set up with the joined address.
  const bool absolute = IsAbsolute(video.Control());
  m_ControlURLVideo = resolve(video, absolute);
  m_ControlURLAudio = resolve(audio, absolute);
}

void CSessionDescription::ExtractStartupData(const char* line, int length) {
  std::string_view text(line, static_cast<size_t>(length));
  if (text.size() > MAX_FMTP_LINE) return;
  text = text.substr(0, MAX_FMTP_TEXT);
  TakeItem(&text, ' ');  // attribute name and payload type
  while (!text.empty()) {
    std::string_view value = TakeItem(&text, ';');
    if (value.find('=') == value.npos) continue;
    const std::string_view name = TakeItem(&value, '=');
    ExtractStartupParam(name, value);
  }
}

void CSessionDescription::ExtractStartupParam(std::string_view name, std::string_view value) {
  if (SkipAny(name, " ") != "sprop-parameter-sets") return;
  m_StartupData.clear();
  while (!value.empty()) {
    const std::string item(TakeItem(&value, ',').substr(0, MAX_FMTP_TEXT));
    unsigned char decoded[MAX_PARAMETER_SET];
    const int bytes = av_base64_decode(decoded, item.c_str(), sizeof decoded);
    if (bytes < 1) continue;
    m_StartupData.insert(m_StartupData.end(), {0, 0, 1});
    m_StartupData.insert(m_StartupData.end(), decoded, decoded + bytes);
  }
}
