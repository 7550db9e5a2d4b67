// GStreamer's RTSP classes with what cameras do differently.
#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <string>

class CRTSPFront;

// A server whose connections accept PLAY, GET_PARAMETER and TEARDOWN on a track's control URL as well as on the
// stream's, as cameras do, and announce an RTCP-Interval when the camera is told to.
GstRTSPServer* NewCameraServer(CRTSPFront* owner);

// A factory of one profile's stream, shared by all who watch it. `owner` makes its pipelines.
GstRTSPMediaFactory* NewCameraFactory(CRTSPFront* owner, const std::string& profileToken);

// The profile token that a media of such a factory belongs to.
std::string ProfileOf(GstRTSPMedia* media);
