// How a PTZ position becomes a view of the scene; shared by the renderer and by moves relative to the field of
// view. The scene is a panorama that closes on itself: pan -1..1 is once around.
#pragma once

inline constexpr int SCENE_WIDTH = 4096, SCENE_HEIGHT = 1536;  // pixels
inline constexpr double VIEW_WIDTH = 1024;                     // scene pixels across the picture at zoom 0
inline constexpr double LONGEST_ZOOM = 5;                      // magnification at zoom 1
inline constexpr double TILT_RANGE = 960;                      // scene pixels from tilt -1 to tilt 1

inline double Magnification(double zoom) {
  return 1 + zoom * (LONGEST_ZOOM - 1);
}
// Pan and tilt from the middle of the picture to its edge.
inline double HalfViewPan(double zoom) {
  return VIEW_WIDTH / Magnification(zoom) / SCENE_WIDTH;
}
inline double HalfViewTilt(double zoom) {
  return VIEW_WIDTH * 9 / 16 / Magnification(zoom) / TILT_RANGE;
}
