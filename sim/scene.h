// What the simulated cameras look at: a panorama with a road with cars, houses and numbered poles every 15
// degrees.
#pragma once

#include "sim/frame_code.h"
#include "sim/picture.h"

#include <string>

struct CShot {
  CFrameCode Code;       // counter and PTZ position: where the camera looks
  std::string Label;     // name and time, written below
  double Seconds = 0;    // scene time: moves the cars and the visitor
  bool Visitor = false;  // somebody walks about in front of the lens
};

// Renders one picture; its size is already set. Any thread.
void RenderScene(const CShot& shot, CPicture* picture);
