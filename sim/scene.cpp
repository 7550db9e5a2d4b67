#include "sim/scene.h"

#include "sim/view.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int kHorizon = 700, kRoadTop = 910, kRoadHeight = 90, kPoles = 24, kCars = 5;
constexpr double kCarSpeed = 180;  // scene pixels a second
constexpr CColor kWhite{235, 128, 128}, kBlack{16, 128, 128}, kAsphalt{70, 128, 128}, kGrass{105, 110, 115};
constexpr double kVisitorSeconds = 4;  // from side to side
constexpr CColor kSkin{180, 110, 150}, kCoat{130, 90, 190};
constexpr CColor kHill{85, 118, 112}, kCar{90, 100, 210}, kPole{200, 110, 150};

CColor HouseColor(int number) {
  constexpr CColor kColors[] = {
      {150, 105, 165}, {170, 120, 140}, {120, 150, 120}, {185, 100, 140}, {135, 140, 150}};
  return kColors[number % 5];
}

// Distance of the hill line above the horizon; closes on itself.
int HillHeight(int x) {
  const double angle = 2 * std::numbers::pi * x / kSceneWidth;
  return static_cast<int>(70 + 45 * std::sin(3 * angle) + 25 * std::sin(7 * angle + 1) +
                          12 * std::sin(17 * angle));
}

void DrawSky(CPicture& scene) {
  for (int y = 0; y < kHorizon; y += 2) {
    const int shade = 130 + y * 70 / kHorizon;
    FillRect(scene, 0, y, kSceneWidth, 2,
             {static_cast<uint8_t>(shade), static_cast<uint8_t>(160 - y / 40), 115});
  }
}

void DrawGround(CPicture& scene) {
  FillRect(scene, 0, kHorizon, kSceneWidth, kSceneHeight - kHorizon, kGrass);
  for (int y = kHorizon; y < kSceneHeight; y += 64)
    for (int x = (y / 64 % 2) * 64; x < kSceneWidth; x += 128) FillRect(scene, x, y, 64, 64, {118, 112, 114});
  FillRect(scene, 0, kRoadTop, kSceneWidth, kRoadHeight, kAsphalt);
  for (int x = 0; x < kSceneWidth; x += 64) FillRect(scene, x, kRoadTop + kRoadHeight / 2 - 3, 36, 6, kWhite);
}

void DrawHills(CPicture& scene) {
  for (int x = 0; x < kSceneWidth; x += 2)
    FillRect(scene, x, kHorizon - HillHeight(x), 2, HillHeight(x), kHill);
}

void DrawHouse(CPicture& scene, int number) {
  const int x = number * kSceneWidth / 16 + 90, width = 110 + number * 37 % 70,
            height = 120 + number * 53 % 110;
  const int top = kRoadTop - 40 - height;
  FillRect(scene, x, top, width, height, HouseColor(number));
  FillRect(scene, x - 8, top - 18, width + 16, 18, {60, 120, 150});
  for (int wy = top + 16; wy + 30 < top + height; wy += 44)
    for (int wx = x + 14; wx + 22 < x + width; wx += 38) FillRect(scene, wx, wy, 20, 26, {45, 140, 120});
}

void DrawPole(CPicture& scene, int number) {
  const int x = number * kSceneWidth / kPoles;
  const std::string degrees = std::to_string(1000 + number * 360 / kPoles).substr(1);
  FillRect(scene, x, kRoadTop - 290, 6, 290, kPole);
  FillRect(scene, x + 6, kRoadTop - 290, 84, 44, kBlack);
  DrawLabel(scene, x + 12, kRoadTop - 282, 4, degrees, kWhite);
}

CPicture MakeScene() {
  CPicture scene;
  scene.Resize(kSceneWidth, kSceneHeight);
  DrawSky(scene);
  DrawHills(scene);
  DrawGround(scene);
  for (int number = 0; number < 16; ++number) DrawHouse(scene, number);
  for (int number = 0; number < kPoles; ++number) DrawPole(scene, number);
  return scene;
}

// The part of the scene that a picture shows, in scene pixels.
struct CWindow {
  double left, top, width, height;
};

CWindow WindowOf(const CFrameCode& code, const CPicture& picture) {
  const double width = kViewWidth / Magnification(code.zoom), height = width * picture.height / picture.width;
  const double middleX = kSceneWidth * (code.pan + 1) / 2,
               middleY = kSceneHeight / 2.0 - code.tilt * kTiltRange / 2;
  return {middleX - width / 2, middleY - height / 2, width, height};
}

void SamplePlane(const uint8_t* from, uint8_t* to, int width, int height, int divider, const CWindow& window) {
  const int sceneWidth = kSceneWidth / divider, sceneHeight = kSceneHeight / divider;
  std::vector<int> columns(static_cast<size_t>(width));
  for (int x = 0; x < width; ++x) {
    const int column = static_cast<int>(std::floor((window.left + (x + 0.5) * window.width / width) / divider));
    columns[static_cast<size_t>(x)] = (column % sceneWidth + sceneWidth) % sceneWidth;
  }
  for (int y = 0; y < height; ++y) {
    const int row = static_cast<int>((window.top + (y + 0.5) * window.height / height) / divider);
    const uint8_t* line = from + std::clamp(row, 0, sceneHeight - 1) * sceneWidth;
    for (int x = 0; x < width; ++x) to[y * width + x] = line[columns[static_cast<size_t>(x)]];
  }
}

// One car, as seen; the panorama closes on itself, so it may show a turn further left or right.
void DrawCar(double at, const CWindow& window, CPicture* picture) {
  const double scale = picture->width / window.width;
  const auto size = [&](double length) { return static_cast<int>(length * scale); };
  const auto py = [&](double y) { return static_cast<int>((kRoadTop + y - window.top) * scale); };
  for (const double turn : {-1.0, 0.0, 1.0}) {
    const auto px = [&](double x) {
      return static_cast<int>((at + turn * kSceneWidth + x - window.left) * scale);
    };
    FillRect(*picture, px(18), py(-2), size(54), size(22), {190, 135, 120});
    FillRect(*picture, px(0), py(18), size(96), size(24), kCar);
    for (const double wheel : {14.0, 66.0}) FillRect(*picture, px(wheel), py(36), size(16), size(14), kBlack);
  }
}

void DrawCars(const CShot& shot, const CWindow& window, CPicture* picture) {
  constexpr double kGap = double{kSceneWidth} / kCars;
  const double first = std::fmod(shot.seconds * kCarSpeed, kSceneWidth);
  for (int car = 0; car < kCars; ++car) DrawCar(std::fmod(first + car * kGap, kSceneWidth), window, picture);
}

// Walks to and fro close to the camera, so he is in every view.
void DrawVisitor(double seconds, CPicture* picture) {
  const int unit = picture->height / 24, walk = picture->width - 8 * unit;
  const double phase = std::fmod(seconds / kVisitorSeconds, 2);
  const int x = 2 * unit + static_cast<int>((phase < 1 ? phase : 2 - phase) * walk), y = picture->height / 3;
  const int stride = static_cast<int>(std::fmod(seconds * 2, 2)) * unit;
  FillRect(*picture, x + unit, y, 2 * unit, 2 * unit, kSkin);
  FillRect(*picture, x, y + 2 * unit, 4 * unit, 6 * unit, kCoat);
  FillRect(*picture, x + stride / 2, y + 8 * unit, unit, 5 * unit, kBlack);
  FillRect(*picture, x + 3 * unit - stride / 2, y + 8 * unit, unit, 5 * unit, kBlack);
}

void DrawCaption(const CShot& shot, CPicture* picture) {
  const int scale = std::max(1, picture->width / 320), height = 11 * scale;
  FillRect(*picture, 0, picture->height - height, LabelWidth(shot.label, scale) + 4 * scale, height, kBlack);
  DrawLabel(*picture, 2 * scale, picture->height - height + 2 * scale, scale, shot.label, kWhite);
}

}  // namespace

void RenderScene(const CShot& shot, CPicture* picture) {
  static const CPicture g_scene = MakeScene();
  const CWindow window = WindowOf(shot.code, *picture);
  const int area = kSceneWidth * kSceneHeight, width = picture->width, height = picture->height;
  SamplePlane(g_scene.Y(), picture->Y(), width, height, 1, window);
  SamplePlane(g_scene.Y() + area, picture->U(), width / 2, height / 2, 2, window);
  SamplePlane(g_scene.Y() + area * 5 / 4, picture->V(), width / 2, height / 2, 2, window);
  DrawCars(shot, window, picture);
  if (shot.visitor) DrawVisitor(shot.seconds, picture);
  DrawCaption(shot, picture);
  FillRect(*picture, 0, 0, width, frame_code::StripHeight(width), kBlack);
  DrawFrameCode(picture->Y(), width, width, shot.code);
}
