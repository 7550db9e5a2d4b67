#include "sim/rtsp_server.h"

#include "sim/rtsp_types.h"

#include <chrono>
#include <future>

namespace {

constexpr char ROLE[] = "viewer";
constexpr guint CLEAN_SECONDS = 2;  // how often timed-out sessions are looked for
constexpr guint16 FIRST_UDP_PORT = 20000, LAST_UDP_PORT = 20999;
constexpr std::chrono::milliseconds CLOSE_TIME{1500};  // for connections to end

// Clients set up the tracks they want; without this the pictures or the sound that nobody wants would end in
// nothing, which fails the whole stream for all who watch it.
constexpr char UNWATCHED[] = "! tee allow-not-linked=true ";

// A picture waits at the end of the pipeline until its time has come, which beside a slower sound track is
// longer than the pictures of a fast stream are apart; the source must not wait with it.
constexpr char RELIEF[] = "! queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ";

// The pipeline of a stream in GStreamer's launch notation. The source holds one picture at most.
std::string Launch(const CVideoEncoder& encoder, bool audio, bool parameterSetsInBand) {
  std::string text =
      "( appsrc name=video is-live=true format=time do-timestamp=true max-buffers=1 max-bytes=0 ";
  const std::string size =
      ",width=" + std::to_string(encoder.Width) + ",height=" + std::to_string(encoder.Height);
  const std::string rate =
      ",framerate=" + std::to_string(encoder.FrameRate) + "/" + std::to_string(encoder.Interval) + "\" ";
  if (encoder.Encoding == "JPEG") {
    text += "caps=\"image/jpeg" + size + rate + RELIEF + UNWATCHED + "! rtpjpegpay name=pay0 pt=26 ";
  } else {
    std::string profile = encoder.H264Profile == "Baseline" ? "constrained-baseline" : encoder.H264Profile;
    for (char& c : profile) c = static_cast<char>(g_ascii_tolower(c));
    // The fastest preset leaves out the tools that make a Main or High stream one.
    const std::string tools = profile == "high"   ? "cabac=1:8x8dct=1"
                              : profile == "main" ? "cabac=1"
                                                  : "cabac=0";
    text += "caps=\"video/x-raw,format=I420" + size + rate +
            "! x264enc name=encoder tune=zerolatency aud=false speed-preset=ultrafast threads=1 bitrate=" +
            std::to_string(encoder.Bitrate) + " key-int-max=" + std::to_string(encoder.GovLength) +
            " option-string=\"" + tools +
            ":scenecut=0\" ! video/x-h264,stream-format=avc,alignment=au,profile=" + profile + " " + RELIEF +
            UNWATCHED + "! rtph264pay name=pay0 pt=96 config-interval=" + (parameterSetsInBand ? "-1 " : "0 ");
  }
  if (audio)
    text +=
        "audiotestsrc name=sound is-live=true wave=silence samplesperbuffer=160 ! "
        "audio/x-raw,format=S16LE,rate=8000,channels=1 ! mulawenc " +
        std::string(UNWATCHED) + "! rtppcmupay name=pay1 pt=0 ";
  return text + ")";
}

GstRTSPAuth* MakeAuth(const std::string& user, const std::string& password) {
  GstRTSPAuth* auth = gst_rtsp_auth_new();
  gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
  gst_rtsp_auth_set_realm(auth, "camera");
  GstRTSPToken* token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, ROLE, nullptr);
  gst_rtsp_auth_add_digest(auth, user.c_str(), password.c_str(), token);
  gst_rtsp_token_unref(token);
  return auth;
}

// The tone generator claims that it can seek, and the library then seeks, and fails, at each PLAY.
GstPadProbeReturn RefuseSeeking(GstPad*, GstPadProbeInfo* info, gpointer) {
  GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
  if (GST_QUERY_TYPE(query) != GST_QUERY_SEEKING) return GST_PAD_PROBE_OK;
  GstFormat format = GST_FORMAT_TIME;
  gst_query_parse_seeking(query, &format, nullptr, nullptr, nullptr);
  gst_query_set_seeking(query, format, FALSE, 0, -1);
  return GST_PAD_PROBE_HANDLED;
}

// Puts what the microphone hears into the generator's empty buffers, which come at the right pace.
GstPadProbeReturn Hear(GstPad*, GstPadProbeInfo* info, gpointer owner) {
  GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
  GST_PAD_PROBE_INFO_DATA(info) = buffer;
  GST_BUFFER_FLAG_UNSET(buffer, GST_BUFFER_FLAG_GAP);
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_WRITE)) return GST_PAD_PROBE_OK;
  auto* model = static_cast<CCameraModel*>(owner);
  std::unique_lock guard(model->Lock);
  const CMicrophone microphone = model->Microphone;
  guard.unlock();
  microphone.Fill(reinterpret_cast<int16_t*>(map.data), map.size / 2, GST_BUFFER_OFFSET(buffer));
  gst_buffer_unmap(buffer, &map);
  return GST_PAD_PROBE_OK;
}

// Takes the parameter sets (NAL types 7 and 8) out of an access unit of length-prefixed NAL units.
std::string WithoutParameterSets(const uint8_t* data, size_t size) {
  std::string kept;
  for (size_t at = 0; at + 4 < size;) {
    const size_t length = static_cast<size_t>(data[at]) << 24 | static_cast<size_t>(data[at + 1]) << 16 |
                          static_cast<size_t>(data[at + 2]) << 8 | data[at + 3];
    const size_t next = std::min(at + 4 + length, size);
    const int type = data[at + 4] & 31;
    if (type != 7 && type != 8) kept.append(reinterpret_cast<const char*>(data + at), next - at);
    at = next;
  }
  return kept;
}

// The encoder repeats the parameter sets before each key frame; whether they are sent is the payloader's to
// say.
GstPadProbeReturn StripParameterSets(GstPad*, GstPadProbeInfo* info, gpointer) {
  GstBuffer* whole = GST_PAD_PROBE_INFO_BUFFER(info);
  GstMapInfo map;
  if (!gst_buffer_map(whole, &map, GST_MAP_READ)) return GST_PAD_PROBE_OK;
  const std::string kept = WithoutParameterSets(map.data, map.size);
  gst_buffer_unmap(whole, &map);
  GstBuffer* stripped = gst_buffer_new_allocate(nullptr, kept.size(), nullptr);
  gst_buffer_fill(stripped, 0, kept.data(), kept.size());
  gst_buffer_copy_into(stripped, whole, GstBufferCopyFlags(GST_BUFFER_COPY_FLAGS | GST_BUFFER_COPY_TIMESTAMPS),
                       0, static_cast<gsize>(-1));
  gst_buffer_unref(whole);
  GST_PAD_PROBE_INFO_DATA(info) = stripped;
  return GST_PAD_PROBE_OK;
}

void AddProbe(GstElement* bin, const char* element, GstPadProbeType type, GstPadProbeCallback callback,
              gpointer data = nullptr) {
  GstElement* found = gst_bin_get_by_name(GST_BIN(bin), element);
  if (found == nullptr) return;
  GstPad* pad = gst_element_get_static_pad(found, "src");
  gst_pad_add_probe(pad, type, callback, data, nullptr);
  gst_object_unref(pad);
  gst_object_unref(found);
}

using SessionVisitor = std::function<void(GstRTSPSession*, GstRTSPSessionMedia*)>;

void ForEachMedia(GstRTSPSession* session, const SessionVisitor& visit) {
  const std::pair<GstRTSPSession*, const SessionVisitor*> context{session, &visit};
  gst_rtsp_session_filter(
      session,
      [](GstRTSPSession* s, GstRTSPSessionMedia* media, gpointer data) {
        (*static_cast<const std::pair<GstRTSPSession*, const SessionVisitor*>*>(data)->second)(s, media);
        return GST_RTSP_FILTER_KEEP;
      },
      const_cast<std::pair<GstRTSPSession*, const SessionVisitor*>*>(&context));
}

bool HasProfile(GstRTSPSession* session, const std::string& profileToken) {
  bool has = false;
  ForEachMedia(session, [&](GstRTSPSession*, GstRTSPSessionMedia* media) {
    has = has || ProfileOf(gst_rtsp_session_media_get_media(media)) == profileToken;
  });
  return has;
}

GstRTSPFilterResult RemoveSessionOf(GstRTSPSessionPool*, GstRTSPSession* session, gpointer token) {
  return HasProfile(session, *static_cast<const std::string*>(token)) ? GST_RTSP_FILTER_REMOVE
                                                                      : GST_RTSP_FILTER_KEEP;
}

GstRTSPFilterResult RemoveClientOf(GstRTSPServer*, GstRTSPClient* client, gpointer token) {
  std::pair<const std::string*, bool> search{static_cast<const std::string*>(token), false};
  gst_rtsp_client_session_filter(
      client,
      [](GstRTSPClient*, GstRTSPSession* session, gpointer data) {
        auto* s = static_cast<std::pair<const std::string*, bool>*>(data);
        s->second = s->second || HasProfile(session, *s->first);
        return GST_RTSP_FILTER_KEEP;
      },
      &search);
  return search.second ? GST_RTSP_FILTER_REMOVE : GST_RTSP_FILTER_KEEP;
}

int ClientCount(GstRTSPServer* server) {
  GList* clients = gst_rtsp_server_client_filter(server, nullptr, nullptr);
  const int count = static_cast<int>(g_list_length(clients));
  g_list_free_full(clients, g_object_unref);
  return count;
}

}  // namespace

CRTSPLoop::CRTSPLoop() : m_Loop(g_main_loop_new(nullptr, FALSE)) {
  m_Thread = std::thread([this] { g_main_loop_run(m_Loop); });
  Run([] {});
}

CRTSPLoop::~CRTSPLoop() {
  Run([this] { g_main_loop_quit(m_Loop); });
  m_Thread.join();
  g_main_loop_unref(m_Loop);
}

void CRTSPLoop::Run(const std::function<void()>& work) {
  struct CJob {
    const std::function<void()>& Work;
    std::promise<void> Done;
  } job{work, {}};
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        auto* todo = static_cast<CJob*>(data);
        todo->Work();
        todo->Done.set_value();
        return G_SOURCE_REMOVE;
      },
      &job, nullptr);
  g_source_attach(source, nullptr);
  g_source_unref(source);
  job.Done.get_future().wait();
}

bool CRTSPFront::Start(std::string* error) {
  bool started = false;
  m_Loop.Run([&] { started = StartInLoop(error); });
  return started;
}

void CRTSPFront::Stop() {
  if (m_PServer == nullptr) return;
  m_Loop.Run([this] { StopInLoop(); });
}

bool CRTSPFront::StartInLoop(std::string* error) {
  m_PServer = NewCameraServer(this);
  gst_rtsp_server_set_address(m_PServer, m_Model.Address.c_str());
  gst_rtsp_server_set_service(m_PServer, std::to_string(m_Model.RTSPPort).c_str());
  GstRTSPAuth* auth = MakeAuth(m_Model.User, m_Model.Password);
  gst_rtsp_server_set_auth(m_PServer, auth);
  g_object_unref(auth);
  for (const CSimProfile& profile : m_Model.Profiles) Mount(profile);
  GError* reason = nullptr;
  m_PSource = gst_rtsp_server_create_source(m_PServer, nullptr, &reason);
  if (m_PSource == nullptr) {
    *error = "cannot listen on " + m_Model.Address + ":" + std::to_string(m_Model.RTSPPort) +
             " (RTSP): " + (reason == nullptr ? "unknown" : reason->message);
    g_clear_error(&reason);
    g_object_unref(m_PServer);
    m_PServer = nullptr;
    return false;
  }
  g_source_attach(m_PSource, nullptr);
  m_NCleaner = g_timeout_add_seconds(
      CLEAN_SECONDS,
      [](gpointer server) -> gboolean {
        GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(GST_RTSP_SERVER(server));
        gst_rtsp_session_pool_cleanup(pool);
        g_object_unref(pool);
        return G_SOURCE_CONTINUE;
      },
      m_PServer);
  const std::lock_guard guard(m_Lock);
  m_BOpen = true;
  return true;
}

void CRTSPFront::Mount(const CSimProfile& profile) {
  GstRTSPMediaFactory* factory = NewCameraFactory(this, profile.Token);
  gst_rtsp_media_factory_set_latency(factory, 0);
  gst_rtsp_media_factory_set_protocols(factory,
                                       GstRTSPLowerTrans(GST_RTSP_LOWER_TRANS_UDP | GST_RTSP_LOWER_TRANS_TCP));
  gst_rtsp_media_factory_add_role(factory, ROLE, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                  GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
  // UDP leaves from the camera's own address.
  GstRTSPAddressPool* pool = gst_rtsp_address_pool_new();
  gst_rtsp_address_pool_add_range(pool, m_Model.Address.c_str(), m_Model.Address.c_str(), FIRST_UDP_PORT,
                                  LAST_UDP_PORT, 0);
  gst_rtsp_media_factory_set_address_pool(factory, pool);
  g_object_unref(pool);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(m_PServer);
  gst_rtsp_mount_points_add_factory(mounts, profile.RTSPPath.c_str(), factory);  // takes the factory
  g_object_unref(mounts);
}

void CRTSPFront::StopInLoop() {
  std::list<std::weak_ptr<CPump>> pumps;
  {
    const std::lock_guard guard(m_Lock);
    m_BOpen = false;
    pumps.swap(m_Pumps);
  }
  g_source_destroy(m_PSource);
  g_source_unref(m_PSource);
  m_PSource = nullptr;
  g_source_remove(m_NCleaner);
  gst_rtsp_server_client_filter(
      m_PServer, [](GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; }, nullptr);
  GstRTSPSessionPool* sessions = gst_rtsp_server_get_session_pool(m_PServer);
  gst_rtsp_session_pool_filter(
      sessions, [](GstRTSPSessionPool*, GstRTSPSession*, gpointer) { return GST_RTSP_FILTER_REMOVE; }, nullptr);
  g_object_unref(sessions);
  for (const auto& weak : pumps)
    if (const auto pump = weak.lock()) pump->Stop();
  const auto until = std::chrono::steady_clock::now() + CLOSE_TIME;
  while (ClientCount(m_PServer) > 0 && std::chrono::steady_clock::now() < until) {
    g_main_context_iteration(nullptr, FALSE);
    g_usleep(2000);
  }
  g_object_unref(m_PServer);
  m_PServer = nullptr;
}

void CRTSPFront::Restart(const std::string& profileToken) {
  m_Loop.Run([&] {
    if (m_PServer == nullptr) return;
    {
      const std::lock_guard guard(m_Model.Lock);
      if (const CSimProfile* profile = m_Model.ProfileByToken(profileToken)) Mount(*profile);
    }
    gpointer token = const_cast<std::string*>(&profileToken);
    gst_rtsp_server_client_filter(m_PServer, RemoveClientOf, token);
    GstRTSPSessionPool* sessions = gst_rtsp_server_get_session_pool(m_PServer);
    gst_rtsp_session_pool_filter(sessions, RemoveSessionOf, token);
    g_object_unref(sessions);
  });
}

void CRTSPFront::CountSessions() {
  std::map<std::string, int> playing;
  m_Loop.Run([&] {
    if (m_PServer == nullptr) return;
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(m_PServer);
    GList* sessions = gst_rtsp_session_pool_filter(pool, nullptr, nullptr);
    for (GList* at = sessions; at != nullptr; at = at->next)
      ForEachMedia(GST_RTSP_SESSION(at->data), [&](GstRTSPSession*, GstRTSPSessionMedia* media) {
        if (gst_rtsp_session_media_get_rtsp_state(media) == GST_RTSP_STATE_PLAYING)
          ++playing[ProfileOf(gst_rtsp_session_media_get_media(media))];
      });
    g_list_free_full(sessions, g_object_unref);
    g_object_unref(pool);
  });
  const std::lock_guard guard(m_Model.Lock);
  for (const CSimProfile& profile : m_Model.Profiles)
    m_Model.Streams[profile.Token].Sessions = playing[profile.Token];
}

CVideoEncoder CRTSPFront::EncoderOf(const std::string& profileToken) const {
  const CSimProfile* profile = m_Model.ProfileByToken(profileToken);
  return *m_Model.EncoderByToken(profile->VideoEncoder);
}

GstElement* CRTSPFront::MakePipeline(const std::string& profileToken) {
  std::string launch;
  {
    const std::lock_guard guard(m_Model.Lock);
    launch = Launch(EncoderOf(profileToken), m_Model.ProfileByToken(profileToken)->Audio,
                    m_Model.Quirks.ParameterSetsInBand);
  }
  GError* error = nullptr;
  GstElement* bin = gst_parse_launch_full(launch.c_str(), nullptr, GST_PARSE_FLAG_PLACE_IN_BIN, &error);
  if (error != nullptr) g_printerr("camsim: %s\n", error->message);
  g_clear_error(&error);
  if (bin == nullptr) return nullptr;
  AddProbe(bin, "sound", GST_PAD_PROBE_TYPE_QUERY_UPSTREAM, RefuseSeeking);
  AddProbe(bin, "sound", GST_PAD_PROBE_TYPE_BUFFER, Hear, &m_Model);
  AddProbe(bin, "encoder", GST_PAD_PROBE_TYPE_BUFFER, StripParameterSets);
  return bin;
}

void CRTSPFront::MediaMade(const std::string& profileToken, GstRTSPMedia* media) {
  GstElement* bin = gst_rtsp_media_get_element(media);
  GstElement* source = gst_bin_get_by_name(GST_BIN(bin), "video");
  gst_object_unref(bin);
  CVideoEncoder encoder;
  {
    const std::lock_guard guard(m_Model.Lock);
    encoder = EncoderOf(profileToken);
  }
  {
    const std::lock_guard guard(m_Lock);
    if (m_BOpen) {
      auto pump = std::make_shared<CPump>(m_Model, profileToken, encoder, GST_APP_SRC(source));
      std::erase_if(m_Pumps, [](const std::weak_ptr<CPump>& weak) { return weak.expired(); });
      m_Pumps.push_back(pump);
      g_object_set_data_full(G_OBJECT(media), "camera-pump", new std::shared_ptr<CPump>(pump),
                             [](gpointer held) { delete static_cast<std::shared_ptr<CPump>*>(held); });
    }
  }
  gst_object_unref(source);
}

int CRTSPFront::RTCPIntervalMs() const {
  const std::lock_guard guard(m_Model.Lock);
  return m_Model.Quirks.RTCPIntervalMs;
}
