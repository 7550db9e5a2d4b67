#include "sim/pump.h"

#include "sim/scene.h"

#include <chrono>
#include <ctime>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t COUNTER_MASK = 0xffffff;  // as much as the strip in the picture holds

double SceneSeconds() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

std::string Label(const CCameraModel& model) {
  const std::time_t now = std::chrono::system_clock::to_time_t(model.Clock());
  std::tm tm{};
  gmtime_r(&now, &tm);
  char text[32];
  std::strftime(text, sizeof text, "  %Y-%m-%d %H:%M:%S", &tm);
  return model.Identity.Name + text + (model.Motion ? "  MOTION" : "") + (model.Alarm ? "  ALARM" : "");
}

GstBuffer* ToBuffer(const void* data, size_t size) {
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
  gst_buffer_fill(buffer, 0, data, size);
  return buffer;
}

void Take(CCameraModel& model, const std::string& token, bool advance, CPicture* picture, uint32_t* counter) {
  CShot shot;
  {
    const std::lock_guard guard(model.Lock);
    CStreamCount& count = model.Streams[token];
    const CPTZVector at = model.Head.Position(Clock::now());
    shot.Code = {count.Next, at.Pan, at.Tilt, at.Zoom};
    if (advance) count.Next = (count.Next + 1) & COUNTER_MASK;
    shot.Label = Label(model);
    shot.Visitor = model.Motion || model.Alarm;
  }
  shot.Seconds = SceneSeconds();
  RenderScene(shot, picture);
  *counter = shot.Code.Counter;
}

}  // namespace

CPicture TakePicture(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder) {
  CPicture picture;
  uint32_t counter = 0;
  picture.Resize(encoder.Width, encoder.Height);
  Take(model, profileToken, false, &picture, &counter);
  return picture;
}

CPump::CPump(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder,
             GstAppSrc* source)
    : m_Model(model),
      m_Token(profileToken),
      m_Encoder(encoder),
      m_PSource(GST_APP_SRC(gst_object_ref(source))) {
  {
    const std::lock_guard guard(m_Model.Lock);
    m_Model.Streams[m_Token].First.reset();
    m_Model.Streams[m_Token].Last.reset();
  }
  GstAppSrcCallbacks callbacks{};
  callbacks.need_data = [](GstAppSrc*, guint, gpointer pump) { static_cast<CPump*>(pump)->m_Wanted = true; };
  gst_app_src_set_callbacks(m_PSource, &callbacks, this, nullptr);
  m_Picture.Resize(m_Encoder.Width, m_Encoder.Height);
  m_Thread = std::thread([this] { Run(); });
}

CPump::~CPump() {
  Stop();
  gst_object_unref(m_PSource);
}

void CPump::Stop() {
  {
    const std::lock_guard guard(m_Lock);
    m_BStop = true;
  }
  m_Stopped.notify_all();
  if (!m_Thread.joinable()) return;
  m_Thread.join();
  GstAppSrcCallbacks none{};
  gst_app_src_set_callbacks(m_PSource, &none, nullptr, nullptr);
}

void CPump::Run() {
  const auto period =
      std::chrono::nanoseconds(std::chrono::seconds(1)) * m_Encoder.Interval / m_Encoder.FrameRate;
  auto next = Clock::now();
  for (;;) {
    {
      std::unique_lock guard(m_Lock);
      if (m_Stopped.wait_until(guard, next, [this] { return m_BStop; })) return;
    }
    // The source holds one picture; while it is not taken (nobody plays yet), none is made.
    if (m_Wanted.exchange(false)) PushPicture();
    next = std::max(next + period, Clock::now() - period);
  }
}

void CPump::PushPicture() {
  uint32_t counter = 0;
  Take(m_Model, m_Token, true, &m_Picture, &counter);
  GstBuffer* buffer = nullptr;
  if (m_Encoder.Encoding == "JPEG") {
    const std::string jpeg = EncodeJPEG(m_Picture, m_Encoder.Quality);
    buffer = ToBuffer(jpeg.data(), jpeg.size());
  } else {
    buffer = ToBuffer(m_Picture.Bytes.data(), m_Picture.Bytes.size());
  }
  if (gst_app_src_push_buffer(m_PSource, buffer) != GST_FLOW_OK) return;  // it asks again when it is ready
  const std::lock_guard guard(m_Model.Lock);
  CStreamCount& count = m_Model.Streams[m_Token];
  if (!count.First) count.First = counter;
  count.Last = counter;
}
