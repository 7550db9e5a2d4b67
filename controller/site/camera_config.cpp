#include "controller/site/camera_config.h"

namespace {

constexpr int MOST_ENTRIES = 4096;  // of any list; a larger count is a damaged record

// Reads items one by one; once one is missing everything fails.
class CItemReader {
 public:
  explicit CItemReader(const CGXItems& items) : m_Items(items) { m_Items.Rewind(); }

  bool Good() const { return m_bGood; }

  void Int(int* value) {
    const int32_t* item = m_bGood ? m_Items.NextInt() : nullptr;
    m_bGood = item != nullptr;
    if (m_bGood) *value = *item;
  }
  void Text(std::string* value) {
    const std::string* item = m_bGood ? m_Items.NextString() : nullptr;
    m_bGood = item != nullptr;
    if (m_bGood) *value = *item;
  }
  void Range(GXT_RANGE* range) {
    Int(&range->Min);
    Int(&range->Max);
  }
  void Size(GXT_RESOLUTION* size) {
    Int(&size->Width);
    Int(&size->Height);
  }

  // A count and that many entries.
  template <class Entry, class Read>
  void List(std::vector<Entry>* entries, Read read) {
    int count = 0;
    Int(&count);
    m_bGood = m_bGood && count >= 0 && count <= MOST_ENTRIES;
    for (int i = 0; m_bGood && i < count; ++i) {
      entries->emplace_back();
      read(&entries->back());
    }
  }

 private:
  CGXItems m_Items;
  bool m_bGood = true;
};

void ReadSettings(CItemReader& in, CStreamSettings* s) {
  in.Text(&s->Encoding);
  for (int* field : {&s->Quality, &s->GovLength, &s->Interval, &s->FrameRate, &s->Bitrate}) in.Int(field);
  in.Size(&s->Size);
  in.Int(&s->H264Profile);
}

void ReadOptions(CItemReader& in, CConfigOptions* options) {
  in.List(&options->Sizes, [&in](GXT_RESOLUTION* size) { in.Size(size); });
  for (GXT_RANGE* range : {&options->Interval, &options->GovLength, &options->FrameRate, &options->Bitrate})
    in.Range(range);
  in.List(&options->H264Profiles, [&in](int* profile) { in.Int(profile); });
}

void ReadUserStreams(CItemReader& in, CUserStreams* list) {
  in.Text(&list->DefaultProfile);
  in.List(&list->Streams, [&in](CUserStream* stream) {
    in.Text(&stream->Name);
    in.Text(&stream->ProfileToken);
    in.Text(&stream->EncoderToken);
    in.Int(&stream->Transport);
    ReadSettings(in, &stream->Settings);
  });
}

void WriteSettings(const CStreamSettings& s, CGXMSG* msg) {
  msg->PutString(s.Encoding);
  for (const int field :
       {s.Quality, s.GovLength, s.Interval, s.FrameRate, s.Bitrate, s.Size.Width, s.Size.Height, s.H264Profile})
    msg->PutInt(field);
}

void WriteList(const CUserStreams& list, CGXMSG* msg) {
  msg->PutString(list.DefaultProfile);
  msg->PutInt(static_cast<int>(list.Streams.size()));
  for (const CUserStream& stream : list.Streams) {
    msg->PutString(stream.Name);
    msg->PutString(stream.ProfileToken);
    msg->PutString(stream.EncoderToken);
    msg->PutInt(stream.Transport);
    WriteSettings(stream.Settings, msg);
  }
}

}  // namespace

const char* H264ProfileName(int code) {
  static constexpr const char* names[] = {"Baseline", "Main", "Extended", "High"};
  return code >= 0 && code < 4 ? names[code] : "";
}

bool ReadCameraConfig(const CGXMSG& msg, CCameraConfig* config) {
  CItemReader in(msg.Items());
  CCameraConfig result;
  in.List(&result.Profiles, [&in](CConfigProfile* profile) {
    in.Text(&profile->Name);
    in.Text(&profile->Token);
    ReadSettings(in, &profile->Settings);
  });
  in.List(&result.Encoders, [&in](CConfigEncoder* encoder) {
    in.Text(&encoder->Name);
    in.Text(&encoder->Token);
    in.Range(&encoder->Quality);
    ReadOptions(in, &encoder->JPEG);
    ReadOptions(in, &encoder->H264);
    ReadSettings(in, &encoder->Settings);
  });
  ReadUserStreams(in, &result.H264);
  ReadUserStreams(in, &result.JPEG);
  if (in.Good()) *config = std::move(result);
  return in.Good();
}

void WriteUserStreams(const CCameraConfig& config, CGXMSG* msg) {
  WriteList(config.H264, msg);
  WriteList(config.JPEG, msg);
}
