#include "sim/pump.h"

#include "sim/scene.h"

#include <chrono>
#include <ctime>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kCounterMask = 0xffffff;  // as much as the strip in the picture holds

double SceneSeconds() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

std::string Label(const CCameraModel& model) {
  const std::time_t now = std::chrono::system_clock::to_time_t(model.Clock());
  std::tm tm{};
  gmtime_r(&now, &tm);
  char text[32];
  std::strftime(text, sizeof text, "  %Y-%m-%d %H:%M:%S", &tm);
  return model.identity.name + text + (model.motion ? "  MOTION" : "") + (model.alarm ? "  ALARM" : "");
}

GstBuffer* ToBuffer(const void* data, size_t size) {
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
  gst_buffer_fill(buffer, 0, data, size);
  return buffer;
}

void Take(CCameraModel& model, const std::string& token, bool advance, CPicture* picture, uint32_t* counter) {
  CShot shot;
  {
    const std::lock_guard guard(model.lock);
    CStreamCount& count = model.streams[token];
    const CPtzVector at = model.head.Position(Clock::now());
    shot.code = {count.next, at.pan, at.tilt, at.zoom};
    if (advance) count.next = (count.next + 1) & kCounterMask;
    shot.label = Label(model);
    shot.visitor = model.motion || model.alarm;
  }
  shot.seconds = SceneSeconds();
  RenderScene(shot, picture);
  *counter = shot.code.counter;
}

}  // namespace

CPicture TakePicture(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder) {
  CPicture picture;
  uint32_t counter = 0;
  picture.Resize(encoder.width, encoder.height);
  Take(model, profileToken, false, &picture, &counter);
  return picture;
}

CPump::CPump(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder,
             GstAppSrc* source)
    : m_model(model), m_token(profileToken), m_encoder(encoder), m_source(GST_APP_SRC(gst_object_ref(source))) {
  {
    const std::lock_guard guard(m_model.lock);
    m_model.streams[m_token].first.reset();
    m_model.streams[m_token].last.reset();
  }
  GstAppSrcCallbacks callbacks{};
  callbacks.need_data = [](GstAppSrc*, guint, gpointer pump) { static_cast<CPump*>(pump)->m_wanted = true; };
  gst_app_src_set_callbacks(m_source, &callbacks, this, nullptr);
  m_picture.Resize(m_encoder.width, m_encoder.height);
  m_thread = std::thread([this] { Run(); });
}

CPump::~CPump() {
  Stop();
  gst_object_unref(m_source);
}

void CPump::Stop() {
  {
    const std::lock_guard guard(m_lock);
    m_stop = true;
  }
  m_stopped.notify_all();
  if (!m_thread.joinable()) return;
  m_thread.join();
  GstAppSrcCallbacks none{};
  gst_app_src_set_callbacks(m_source, &none, nullptr, nullptr);
}

void CPump::Run() {
  const auto period =
      std::chrono::nanoseconds(std::chrono::seconds(1)) * m_encoder.interval / m_encoder.frameRate;
  auto next = Clock::now();
  for (;;) {
    {
      std::unique_lock guard(m_lock);
      if (m_stopped.wait_until(guard, next, [this] { return m_stop; })) return;
    }
    // The source holds one picture; while it is not taken (nobody plays yet), none is made.
    if (m_wanted.exchange(false)) PushPicture();
    next = std::max(next + period, Clock::now() - period);
  }
}

void CPump::PushPicture() {
  uint32_t counter = 0;
  Take(m_model, m_token, true, &m_picture, &counter);
  GstBuffer* buffer = nullptr;
  if (m_encoder.encoding == "JPEG") {
    const std::string jpeg = EncodeJpeg(m_picture, m_encoder.quality);
    buffer = ToBuffer(jpeg.data(), jpeg.size());
  } else {
    buffer = ToBuffer(m_picture.bytes.data(), m_picture.bytes.size());
  }
  if (gst_app_src_push_buffer(m_source, buffer) != GST_FLOW_OK) return;  // it asks again when it is ready
  const std::lock_guard guard(m_model.lock);
  CStreamCount& count = m_model.streams[m_token];
  if (!count.first) count.first = counter;
  count.last = counter;
}
