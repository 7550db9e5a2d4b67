#include "controller/panel/speech.h"

#include "host/base/gxthread.h"
#include "util/owned_socket.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr unsigned STACK_BYTES = 2 << 20;  // decoders keep much on it
constexpr double TONE_LEVEL = 12000;       // of 32767
constexpr size_t MOST_SAMPLES = static_cast<size_t>(SPEECH_HZ) * LONGEST_SOUND_S;

std::string Reason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// What reads one file. Each step gives 0, or libav's code.
class CSoundReader {
 public:
  ~CSoundReader() {
    swr_free(&m_pResampler);
    av_frame_free(&m_pFrame);
    av_packet_free(&m_pPacket);
    avcodec_free_context(&m_pDecoder);
    avformat_close_input(&m_pFile);
  }
  CSoundReader() : m_pPacket(av_packet_alloc()), m_pFrame(av_frame_alloc()) {}
  CSoundReader(const CSoundReader&) = delete;
  CSoundReader& operator=(const CSoundReader&) = delete;

  int Open(const std::string& path) {
    int code = avformat_open_input(&m_pFile, path.c_str(), nullptr, nullptr);
    if (code >= 0) code = avformat_find_stream_info(m_pFile, nullptr);
    const AVCodec* codec = nullptr;
    if (code >= 0) code = m_iStream = av_find_best_stream(m_pFile, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (code < 0) return code;
    m_pDecoder = avcodec_alloc_context3(codec);
    if (m_pDecoder == nullptr || m_pPacket == nullptr || m_pFrame == nullptr) return AVERROR(ENOMEM);
    code = avcodec_parameters_to_context(m_pDecoder, m_pFile->streams[m_iStream]->codecpar);
    return code < 0 ? code : avcodec_open2(m_pDecoder, codec, nullptr);
  }

  int Read(CSound* sound) {
    while (sound->size() < MOST_SAMPLES && av_read_frame(m_pFile, m_pPacket) >= 0) {
      const int code = m_pPacket->stream_index == m_iStream ? Decode(m_pPacket, sound) : 0;
      av_packet_unref(m_pPacket);
      if (code < 0) return code;
    }
    if (const int code = Decode(nullptr, sound); code < 0) return code;
    sound->resize(std::min(sound->size(), MOST_SAMPLES));
    return sound->empty() ? AVERROR_INVALIDDATA : 0;
  }

 private:
  // A damaged packet is passed over, as players do. Null: what the decoder still holds.
  int Decode(const AVPacket* packet, CSound* sound) {
    if (avcodec_send_packet(m_pDecoder, packet) < 0) return 0;
    while (avcodec_receive_frame(m_pDecoder, m_pFrame) >= 0)
      if (const int code = Resample(m_pFrame, sound); code < 0) return code;
    return packet == nullptr && m_pResampler != nullptr ? Resample(nullptr, sound) : 0;
  }

  int Resample(AVFrame* frame, CSound* sound) {
    if (m_pResampler == nullptr) {
      AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
      int code =
          swr_alloc_set_opts2(&m_pResampler, &mono, AV_SAMPLE_FMT_S16, SPEECH_HZ, &frame->ch_layout,
                              static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
      if (code >= 0) code = swr_init(m_pResampler);
      if (code < 0) return code;
    }
    const int count = frame != nullptr ? frame->nb_samples : 0;
    const int most = swr_get_out_samples(m_pResampler, count);
    if (most <= 0) return most;
    const size_t before = sound->size();
    sound->resize(before + static_cast<size_t>(most));
    uint8_t* out = reinterpret_cast<uint8_t*>(sound->data() + before);
    const uint8_t** in = frame != nullptr ? const_cast<const uint8_t**>(frame->extended_data) : nullptr;
    const int got = swr_convert(m_pResampler, &out, most, in, count);
    sound->resize(before + static_cast<size_t>(std::max(got, 0)));
    return got;
  }

  AVFormatContext* m_pFile = nullptr;
  AVCodecContext* m_pDecoder = nullptr;
  SwrContext* m_pResampler = nullptr;
  AVPacket* m_pPacket;
  AVFrame* m_pFrame;
  int m_iStream = -1;
};

}  // namespace

// Opening a pipe would wait for its other end.
static bool IsOrdinaryFile(const std::string& path, std::string* error) {
  const COwnedSocket file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  struct stat about {};
  if (fstat(file.Get(), &about) != 0) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  if (!S_ISREG(about.st_mode)) *error = path + ": not an ordinary file";
  return S_ISREG(about.st_mode);
}

bool LoadSound(const std::string& path, CSound* sound, std::string* error) {
  sound->clear();
  if (!IsOrdinaryFile(path, error)) return false;
  CSoundReader reader;
  int code = reader.Open(path);
  if (code >= 0) code = reader.Read(sound);
  if (code < 0) *error = path + ": " + Reason(code);
  return code >= 0;
}

// Its own owner: its thread deletes it.
struct CSoundLoader::CJob {
  static unsigned Entry(void* self) {
    const std::unique_ptr<CJob> job(static_cast<CJob*>(self));
    LoadSound(job->Path, job->State->Sound.get(), &job->State->Error);
    job->State->Done = true;
    return 0;
  }
  const std::shared_ptr<CState> State;
  const std::string Path;
  CGXThread Thread;
};

CSoundLoader::CSoundLoader(const std::string& path) {
  auto job = std::unique_ptr<CJob>(new CJob{m_pState, path, {}});
  if (job->Thread.Start(CJob::Entry, job.get(), STACK_BYTES, "Sound File") != 0) {
    static_cast<void>(job.release());
    return;
  }
  m_pState->Error = path + ": cannot be read now, the system gives no thread";
  m_pState->Done = true;
}

void CSpeech::Next(std::span<short> samples) {
  if (m_pSound != nullptr) {
    const size_t count = std::min(samples.size(), m_pSound->size() - m_nAt);
    std::copy_n(m_pSound->begin() + static_cast<std::ptrdiff_t>(m_nAt), count, samples.begin());
    m_nAt += count;
    samples = samples.subspan(count);
  }
  for (short& sample : samples) {
    sample = static_cast<short>(std::lrint(TONE_LEVEL * std::sin(2 * M_PI * m_fPhase)));
    m_fPhase += m_fToneHz / SPEECH_HZ;
    m_fPhase -= std::floor(m_fPhase);
  }
}
