#include "media/onvif_settings.h"

#include "media/xml_values.h"

namespace {

const char* const H264_PROFILE_NAMES[] = {"Baseline", "Main", "Extended", "High"};

// Records written before this version have no audio encoding.
constexpr int VERSION_AUDIO_ENCODING = 813;

}  // namespace

CONVIFSettings::CFields CONVIFSettings::Get() const {
  CGXLock lock(m_Lock);
  return m_Fields;
}

std::array<int*, 8> CONVIFSettings::CFields::Numbers() {
  return {&Quality, &GovLength,        &EncoderInterval,   &FrameRate,
          &Bitrate, &Resolution.Width, &Resolution.Height, &H264Profile};
}

CONVIFSettings& CONVIFSettings::operator=(const CONVIFSettings& other) {
  if (this == &other) return *this;
  const CFields fields = other.Get();  // never holds both locks
  CGXLock lock(m_Lock);
  m_Fields = fields;
  return *this;
}

void CONVIFSettings::LoadFrom(const CONVIFMsg* video, const CONVIFMsg* audio) {
  CFields fields;
  fields.VideoEncoderType = TextOf(video, "Encoding");
  fields.Quality = IntOf(video, "Quality");
  fields.GovLength = IntOf(video, "GovLength");
  fields.EncoderInterval = IntOf(video, "EncodingInterval");
  fields.FrameRate = IntOf(video, "FrameRateLimit");
  fields.Bitrate = IntOf(video, "BitrateLimit");
  if (const CONVIFMsg* resolution = video->FindSubMSG("Resolution"))
    fields.Resolution = {IntOf(resolution, "Width"), IntOf(resolution, "Height")};
  fields.H264Profile = H264ProfileType(TextOf(video, "H264Profile"));

  CGXLock lock(m_Lock);
  fields.AudioEncoderType = audio != nullptr ? TextOf(audio, "Encoding") : m_Fields.AudioEncoderType;
  m_Fields = fields;
}

bool CONVIFSettings::IsSameConfig(const CONVIFSettings* other) const {
  const CFields mine = Get(), theirs = other->Get();
  if (!(mine.VideoEncoderType == theirs.VideoEncoderType)) return false;
  if (mine.Resolution.Width != theirs.Resolution.Width) return false;
  if (mine.Resolution.Height != theirs.Resolution.Height) return false;
  if (mine.Quality != theirs.Quality || mine.EncoderInterval != theirs.EncoderInterval) return false;
  // The frame rate is left out: cameras round it to what their sensor does, and comparing it would set up the
  // encoder again at every stream start.
  if (mine.Bitrate != theirs.Bitrate) return false;
  if (mine.VideoEncoderType == "JPEG") return true;
  // Other encodings cannot be streamed, so they never match and such an entry is never taken for active.
  if (!(mine.VideoEncoderType == "H264")) return false;
  if (mine.GovLength != theirs.GovLength) return false;
  return theirs.H264Profile == H264_PROFILE_NONE || mine.H264Profile == theirs.H264Profile;
}

int CONVIFSettings::H264ProfileType(const CGXString& name) {
  for (int profile = 0; profile < H264_PROFILE_NONE; ++profile)
    if (name == H264_PROFILE_NAMES[profile]) return profile;
  return H264_PROFILE_NONE;
}

const char* CONVIFSettings::H264ProfileName(int profile) {
  return profile >= 0 && profile < H264_PROFILE_NONE ? H264_PROFILE_NAMES[profile] : "";
}

void CONVIFSettings::WriteTo(CGXMSG* msg) const {
  CFields fields = Get();
  msg->PutString(fields.VideoEncoderType);
  for (const int* number : fields.Numbers()) msg->PutInt(*number);
}

void CONVIFSettings::ReadFrom(CGXMSG* msg) {
  CGXLock lock(m_Lock);
  m_Fields.VideoEncoderType = msg->GetString();
  for (int* number : m_Fields.Numbers()) *number = msg->GetInt();
}

bool CONVIFSettings::Write(CGXFile* file, int) const {
  CFields fields = Get();
  if (!file->WriteString(fields.VideoEncoderType) || !file->WriteString(fields.AudioEncoderType)) return false;
  for (const int* number : fields.Numbers())
    if (!file->WriteInt(*number)) return false;
  return true;
}

bool CONVIFSettings::Read(CGXFile* file, int version) {
  CGXLock lock(m_Lock);
  if (!file->ReadString(&m_Fields.VideoEncoderType)) return false;
  if (version >= VERSION_AUDIO_ENCODING && !file->ReadString(&m_Fields.AudioEncoderType)) return false;
  for (int* number : m_Fields.Numbers())
    if (!file->ReadInt(number)) return false;
  return true;
}
