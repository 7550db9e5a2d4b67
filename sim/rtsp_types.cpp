#include "sim/rtsp_types.h"

#include "sim/rtsp_server.h"

#include <gst/video/video.h>

namespace {

constexpr char PROFILE_KEY[] = "camera-profile", OWNER_KEY[] = "camera-owner";
constexpr char LATEST_KEY[] = "camera-latest-media";

struct CameraClient {
  GstRTSPClient Parent;
};
struct CameraClientClass {
  GstRTSPClientClass Parent;
};
struct CameraServer {
  GstRTSPServer Parent;
};
struct CameraServerClass {
  GstRTSPServerClass Parent;
};
struct CameraFactory {
  GstRTSPMediaFactory Parent;
};
struct CameraFactoryClass {
  GstRTSPMediaFactoryClass Parent;
};

struct CameraMounts {
  GstRTSPMountPoints Parent;
};
struct CameraMountsClass {
  GstRTSPMountPointsClass Parent;
};

CRTSPFront* OwnerOf(gpointer object) {
  return static_cast<CRTSPFront*>(g_object_get_data(G_OBJECT(object), OWNER_KEY));
}

// The library leaves out the query, by which some cameras tell their streams apart.
std::string PathOf(const GstRTSPUrl* url) {
  std::string path = url->abspath == nullptr ? "/" : url->abspath;
  if (url->query != nullptr) path += std::string("?") + url->query;
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

gchar* MakeMountPath(GstRTSPMountPoints*, const GstRTSPUrl* url) {
  return g_strdup(PathOf(url).c_str());
}

// The library answers 460 to aggregate requests on a track's URL: the track is cut off for all but SETUP and
// DESCRIBE.
gchar* MakePath(GstRTSPClient*, const GstRTSPUrl* url) {
  std::string path = PathOf(url);
  const GstRTSPContext* context = gst_rtsp_context_get_current();
  const bool perTrack =
      context == nullptr || context->method == GST_RTSP_SETUP || context->method == GST_RTSP_DESCRIBE;
  const size_t track = path.rfind("/stream=");
  if (!perTrack && track != std::string::npos) path.resize(track);
  return g_strdup(path.c_str());
}

GstRTSPStatusCode AnnounceRtcpInterval(GstRTSPClient* client, GstRTSPContext* context) {
  const int ms = OwnerOf(client)->RTCPIntervalMs();
  if (ms > 0)
    gst_rtsp_message_add_header_by_name(context->response, "RTCP-Interval", std::to_string(ms).c_str());
  return GST_RTSP_STS_OK;
}

// Who begins to watch a running stream gets a key frame soon.
void AskForKeyFrame(GstRTSPClient*, GstRTSPContext* context, gpointer) {
  if (context->sessmedia == nullptr) return;
  GstRTSPMedia* media = gst_rtsp_session_media_get_media(context->sessmedia);
  GstElement* bin = gst_rtsp_media_get_element(media);
  if (GstElement* encoder = gst_bin_get_by_name(GST_BIN(bin), "encoder")) {
    gst_element_send_event(encoder, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, FALSE, 0));
    gst_object_unref(encoder);
  }
  gst_object_unref(bin);
}

void ClientClassInit(gpointer klass, gpointer) {
  auto* client = static_cast<GstRTSPClientClass*>(klass);
  client->make_path_from_uri = MakePath;
  client->adjust_play_response = AnnounceRtcpInterval;
}

GstRTSPClient* CreateClient(GstRTSPServer* server) {
  static const GType g_type =
      g_type_register_static_simple(GST_TYPE_RTSP_CLIENT, "CameraRtspClient", sizeof(CameraClientClass),
                                    ClientClassInit, sizeof(CameraClient), nullptr, GTypeFlags(0));
  auto* client = GST_RTSP_CLIENT(g_object_new(g_type, nullptr));
  g_object_set_data(G_OBJECT(client), OWNER_KEY, OwnerOf(server));
  GstRTSPSessionPool* sessions = gst_rtsp_server_get_session_pool(server);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  GstRTSPAuth* auth = gst_rtsp_server_get_auth(server);
  GstRTSPThreadPool* threads = gst_rtsp_server_get_thread_pool(server);
  gst_rtsp_client_set_session_pool(client, sessions);
  gst_rtsp_client_set_mount_points(client, mounts);
  gst_rtsp_client_set_auth(client, auth);
  gst_rtsp_client_set_thread_pool(client, threads);
  for (gpointer object : {gpointer(sessions), gpointer(mounts), gpointer(auth), gpointer(threads)})
    g_object_unref(object);
  g_signal_connect(client, "play-request", G_CALLBACK(AskForKeyFrame), nullptr);
  return client;
}

void MountsClassInit(gpointer klass, gpointer) {
  static_cast<GstRTSPMountPointsClass*>(klass)->make_path = MakeMountPath;
}

GstRTSPMountPoints* NewMounts() {
  static const GType g_type =
      g_type_register_static_simple(GST_TYPE_RTSP_MOUNT_POINTS, "CameraRtspMounts", sizeof(CameraMountsClass),
                                    MountsClassInit, sizeof(CameraMounts), nullptr, GTypeFlags(0));
  return GST_RTSP_MOUNT_POINTS(g_object_new(g_type, nullptr));
}

void ServerClassInit(gpointer klass, gpointer) {
  static_cast<GstRTSPServerClass*>(klass)->create_client = CreateClient;
}

std::string FactoryProfile(gpointer factory) {
  return static_cast<const char*>(g_object_get_data(G_OBJECT(factory), PROFILE_KEY));
}

GstElement* CreateElement(GstRTSPMediaFactory* factory, const GstRTSPUrl*) {
  return OwnerOf(factory)->MakePipeline(FactoryProfile(factory));
}

// The media that a factory made last, and the number of its key.
struct CLatestMedia {
  CLatestMedia() { g_weak_ref_init(&Media, nullptr); }
  ~CLatestMedia() { g_weak_ref_clear(&Media); }
  GWeakRef Media;
  gint Generation = 0;
};

CLatestMedia* LatestOf(gpointer factory) {
  return static_cast<CLatestMedia*>(g_object_get_data(G_OBJECT(factory), LATEST_KEY));
}

void Configure(GstRTSPMediaFactory* factory, GstRTSPMedia* media) {
  const gpointer parent = g_type_class_peek(GST_TYPE_RTSP_MEDIA_FACTORY);
  static_cast<GstRTSPMediaFactoryClass*>(parent)->configure(factory, media);
  const std::string profile = FactoryProfile(factory);
  g_object_set_data_full(G_OBJECT(media), PROFILE_KEY, g_strdup(profile.c_str()), g_free);
  g_weak_ref_set(&LatestOf(factory)->Media, media);
  OwnerOf(factory)->MediaMade(profile, media);
}

bool CanBeJoined(GstRTSPMedia* media) {
  const GstRTSPMediaStatus status = gst_rtsp_media_get_status(media);
  return status == GST_RTSP_MEDIA_STATUS_PREPARED || status == GST_RTSP_MEDIA_STATUS_SUSPENDED;
}

// One media a profile, whatever URL of it (with a track or without) is asked for first. A media that is
// shutting down or has failed would answer 503 until it is gone: who comes meanwhile, often the client that has
// just described it, gets a new one.
gchar* GenKey(GstRTSPMediaFactory* factory, const GstRTSPUrl*) {
  CLatestMedia* latest = LatestOf(factory);
  if (gpointer media = g_weak_ref_get(&latest->Media)) {
    if (!CanBeJoined(GST_RTSP_MEDIA(media))) g_atomic_int_inc(&latest->Generation);
    g_object_unref(media);
  }
  return g_strdup_printf("%s %d", FactoryProfile(factory).c_str(), g_atomic_int_get(&latest->Generation));
}

void FactoryClassInit(gpointer klass, gpointer) {
  auto* factory = static_cast<GstRTSPMediaFactoryClass*>(klass);
  factory->create_element = CreateElement;
  factory->configure = Configure;
  factory->gen_key = GenKey;
}

}  // namespace

GstRTSPServer* NewCameraServer(CRTSPFront* owner) {
  static const GType g_type =
      g_type_register_static_simple(GST_TYPE_RTSP_SERVER, "CameraRtspServer", sizeof(CameraServerClass),
                                    ServerClassInit, sizeof(CameraServer), nullptr, GTypeFlags(0));
  auto* server = GST_RTSP_SERVER(g_object_new(g_type, nullptr));
  g_object_set_data(G_OBJECT(server), OWNER_KEY, owner);
  GstRTSPMountPoints* mounts = NewMounts();
  gst_rtsp_server_set_mount_points(server, mounts);
  g_object_unref(mounts);
  return server;
}

GstRTSPMediaFactory* NewCameraFactory(CRTSPFront* owner, const std::string& profileToken) {
  static const GType g_type = g_type_register_static_simple(GST_TYPE_RTSP_MEDIA_FACTORY, "CameraRtspFactory",
                                                            sizeof(CameraFactoryClass), FactoryClassInit,
                                                            sizeof(CameraFactory), nullptr, GTypeFlags(0));
  auto* factory = GST_RTSP_MEDIA_FACTORY(g_object_new(g_type, nullptr));
  g_object_set_data(G_OBJECT(factory), OWNER_KEY, owner);
  g_object_set_data_full(G_OBJECT(factory), PROFILE_KEY, g_strdup(profileToken.c_str()), g_free);
  g_object_set_data_full(G_OBJECT(factory), LATEST_KEY, new CLatestMedia,
                         [](gpointer latest) { delete static_cast<CLatestMedia*>(latest); });
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  return factory;
}

std::string ProfileOf(GstRTSPMedia* media) {
  const gpointer profile = g_object_get_data(G_OBJECT(media), PROFILE_KEY);
  return profile == nullptr ? "" : static_cast<const char*>(profile);
}
