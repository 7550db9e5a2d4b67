#pragma once
// How a PTZ position becomes a view of the scene; shared by the renderer and by moves relative to the field of
// view. The scene is a panorama that closes on itself: pan -1..1 is once around.

inline constexpr int kSceneWidth = 4096, kSceneHeight = 1536;  // pixels
inline constexpr double kViewWidth = 1024;                     // scene pixels across the picture at zoom 0
inline constexpr double kLongestZoom = 5;                      // magnification at zoom 1
inline constexpr double kTiltRange = 960;                      // scene pixels from tilt -1 to tilt 1

inline double Magnification(double zoom) {
  return 1 + zoom * (kLongestZoom - 1);
}
// Pan and tilt from the middle of the picture to its edge.
inline double HalfViewPan(double zoom) {
  return kViewWidth / Magnification(zoom) / kSceneWidth;
}
inline double HalfViewTilt(double zoom) {
  return kViewWidth * 9 / 16 / Magnification(zoom) / kTiltRange;
}
