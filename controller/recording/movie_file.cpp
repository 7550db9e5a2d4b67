#include "controller/recording/movie_file.h"

#include "controller/core/atomic_file.h"
#include "controller/recording/picture_clock.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace {

constexpr AVRational CLOCK = {1, RECORDING_HZ};
constexpr int64_t FALLBACK_DURATION = RECORDING_HZ / 25;  // of the last picture when it is the only one
constexpr int FRAGMENT_US = 1000000;                      // what a kill may cost at most, in microseconds
constexpr int CLUSTER_MS = 1000;
constexpr char UNFINISHED[] = ".part";  // behind the name of a file that has nothing in it yet

std::string Reason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

struct CContextCloser {
  void operator()(AVFormatContext* context) const {
    avio_closep(&context->pb);
    avformat_free_context(context);
  }
};

bool Describe(AVStream* stream, EMovieKind kind, int width, int height, CBytes sets) {
  AVCodecParameters* codec = stream->codecpar;
  codec->codec_type = AVMEDIA_TYPE_VIDEO;
  codec->codec_id = kind == EMovieKind::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MJPEG;
  codec->width = width;
  codec->height = height;
  stream->time_base = CLOCK;
  if (sets.empty()) return true;
  codec->extradata = static_cast<uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (codec->extradata == nullptr) return false;
  std::ranges::copy(sets, codec->extradata);
  codec->extradata_size = static_cast<int>(sets.size());
  return true;
}

int WriteHeader(AVFormatContext* context, EMovieKind kind) {
  AVDictionary* options = nullptr;
  if (kind == EMovieKind::H264) {
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    av_dict_set_int(&options, "frag_duration", FRAGMENT_US, 0);
  } else {
    av_dict_set_int(&options, "cluster_time_limit", CLUSTER_MS, 0);
  }
  const int result = avformat_write_header(context, &options);
  av_dict_free(&options);
  return result;
}

bool CreateNew(const std::string& path, std::string* error) {
  const int fd = CreateFile(path, error);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

}  // namespace

struct CMovieFile::State {
  std::string Path;
  int64_t HeaderBytes = 0;
  bool Visible = false;
  std::unique_ptr<AVFormatContext, CContextCloser> Context;
  AVStream* Stream = nullptr;
  // The newest picture waits for its successor, which tells how long it is shown.
  std::unique_ptr<AVPacket, void (*)(AVPacket*)> Held{nullptr,
                                                      [](AVPacket* packet) { av_packet_free(&packet); }};
  int64_t LastDuration = FALLBACK_DURATION;

  int WriteHeld(int64_t duration) {
    if (!Held) return 0;
    Held->duration = LastDuration = duration;
    av_packet_rescale_ts(Held.get(), CLOCK, Stream->time_base);
    const int result = av_write_frame(Context.get(), Held.get());
    Held.reset();
    if (result < 0 || Context->pb->error < 0) return result < 0 ? result : Context->pb->error;
    return avio_tell(Context->pb) > HeaderBytes ? Show() : 0;
  }

  std::string Here() const { return Visible ? Path : Path + UNFINISHED; }

  int Show() {
    if (Visible) return 0;
    if (rename((Path + UNFINISHED).c_str(), Path.c_str()) != 0) return AVERROR(errno);
    Visible = true;
    return 0;
  }

  int Hold(CBytes picture, bool key, int64_t time) {
    Held.reset(av_packet_alloc());
    if (!Held) return AVERROR(ENOMEM);
    const int result = av_new_packet(Held.get(), static_cast<int>(picture.size()));
    if (result < 0) {
      Held.reset();
      return result;
    }
    std::ranges::copy(picture, Held->data);
    Held->pts = Held->dts = time;
    Held->flags = key ? AV_PKT_FLAG_KEY : 0;
    Held->stream_index = Stream->index;
    return 0;
  }
};

CMovieFile::CMovieFile() = default;

CMovieFile::~CMovieFile() {
  std::string ignored;
  bool kept = false;
  Close(&ignored, &kept);
}

const char* CMovieFile::Ending(EMovieKind kind) {
  return kind == EMovieKind::H264 ? ".mp4" : ".mkv";
}

bool CMovieFile::Open(const std::string& path, EMovieKind kind, int width, int height, CBytes sets,
                      std::string* error) {
  const std::string unfinished = path + UNFINISHED;
  if (!CreateNew(unfinished, error)) return false;
  auto state = std::make_unique<State>();
  state->Path = path;
  AVFormatContext* context = nullptr;
  int result = avformat_alloc_output_context2(&context, nullptr, kind == EMovieKind::H264 ? "mp4" : "matroska",
                                              path.c_str());
  if (result >= 0) {
    state->Context.reset(context);
    context->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    state->Stream = avformat_new_stream(context, nullptr);
    const bool described = state->Stream != nullptr && Describe(state->Stream, kind, width, height, sets);
    result = described ? avio_open(&context->pb, unfinished.c_str(), AVIO_FLAG_WRITE) : AVERROR(ENOMEM);
  }
  if (result >= 0) result = WriteHeader(context, kind);
  if (result < 0) {
    *error = path + ": " + Reason(result);
    state.reset();
    unlink(unfinished.c_str());
    return false;
  }
  state->HeaderBytes = avio_tell(context->pb);
  m_pState = std::move(state);
  return true;
}

bool CMovieFile::Write(CBytes picture, bool key, int64_t time, std::string* error) {
  State& s = *m_pState;
  int result = s.Held ? s.WriteHeld(time - s.Held->pts) : 0;
  if (result >= 0) result = s.Hold(picture, key, time);
  if (result >= 0) return true;
  *error = s.Path + ": " + Reason(result);
  return false;
}

bool CMovieFile::IsVisible() const {
  return m_pState && m_pState->Visible;
}

bool CMovieFile::IsThere(std::string* error) const {
  if (access(m_pState->Here().c_str(), F_OK) == 0) return true;
  *error = m_pState->Here() + " is not there any more";
  return false;
}

void CMovieFile::RemoveRemains(const std::string& folder, const std::string& name) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    const std::string file = entry.path().filename().string();
    if (file.starts_with(name + "-") && file.ends_with(UNFINISHED)) unlink(entry.path().c_str());
  }
}

bool CMovieFile::Close(std::string* error, bool* kept) {
  *kept = false;
  if (!m_pState) return true;
  const std::unique_ptr<State> state = std::move(m_pState);
  const bool filled = state->Held != nullptr || state->Visible;
  int result = state->WriteHeld(state->LastDuration);
  const int trailer = av_write_trailer(state->Context.get());
  if (result >= 0) result = trailer < 0 ? trailer : state->Context->pb->error;
  if (filled && result >= 0) result = state->Show();
  *kept = state->Visible;
  if (!*kept) unlink(state->Here().c_str());
  if (result >= 0) return true;
  *error = state->Path + ": " + Reason(result);
  return false;
}
