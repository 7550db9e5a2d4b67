#include "sim/scene.h"

#include "sim/view.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int HORIZON = 700, ROAD_TOP = 910, ROAD_HEIGHT = 90, POLES = 24, CARS = 5;
constexpr double CAR_SPEED = 180;  // scene pixels a second
constexpr CColor WHITE{235, 128, 128}, BLACK{16, 128, 128}, ASPHALT{70, 128, 128}, GRASS{105, 110, 115};
constexpr double VISITOR_SECONDS = 4;  // from side to side
constexpr CColor SKIN{180, 110, 150}, COAT{130, 90, 190};
constexpr CColor HILL{85, 118, 112}, CAR{90, 100, 210}, POLE{200, 110, 150};

CColor HouseColor(int number) {
  constexpr CColor COLORS[] = {
      {150, 105, 165}, {170, 120, 140}, {120, 150, 120}, {185, 100, 140}, {135, 140, 150}};
  return COLORS[number % 5];
}

// Distance of the hill line above the horizon; closes on itself.
int HillHeight(int x) {
  const double angle = 2 * std::numbers::pi * x / SCENE_WIDTH;
  return static_cast<int>(70 + 45 * std::sin(3 * angle) + 25 * std::sin(7 * angle + 1) +
                          12 * std::sin(17 * angle));
}

void DrawSky(CPicture& scene) {
  for (int y = 0; y < HORIZON; y += 2) {
    const int shade = 130 + y * 70 / HORIZON;
    FillRect(scene, 0, y, SCENE_WIDTH, 2,
             {static_cast<uint8_t>(shade), static_cast<uint8_t>(160 - y / 40), 115});
  }
}

void DrawGround(CPicture& scene) {
  FillRect(scene, 0, HORIZON, SCENE_WIDTH, SCENE_HEIGHT - HORIZON, GRASS);
  for (int y = HORIZON; y < SCENE_HEIGHT; y += 64)
    for (int x = (y / 64 % 2) * 64; x < SCENE_WIDTH; x += 128) FillRect(scene, x, y, 64, 64, {118, 112, 114});
  FillRect(scene, 0, ROAD_TOP, SCENE_WIDTH, ROAD_HEIGHT, ASPHALT);
  for (int x = 0; x < SCENE_WIDTH; x += 64) FillRect(scene, x, ROAD_TOP + ROAD_HEIGHT / 2 - 3, 36, 6, WHITE);
}

void DrawHills(CPicture& scene) {
  for (int x = 0; x < SCENE_WIDTH; x += 2) FillRect(scene, x, HORIZON - HillHeight(x), 2, HillHeight(x), HILL);
}

void DrawHouse(CPicture& scene, int number) {
  const int x = number * SCENE_WIDTH / 16 + 90, width = 110 + number * 37 % 70,
            height = 120 + number * 53 % 110;
  const int top = ROAD_TOP - 40 - height;
  FillRect(scene, x, top, width, height, HouseColor(number));
  FillRect(scene, x - 8, top - 18, width + 16, 18, {60, 120, 150});
  for (int wy = top + 16; wy + 30 < top + height; wy += 44)
    for (int wx = x + 14; wx + 22 < x + width; wx += 38) FillRect(scene, wx, wy, 20, 26, {45, 140, 120});
}

void DrawPole(CPicture& scene, int number) {
  const int x = number * SCENE_WIDTH / POLES;
  const std::string degrees = std::to_string(1000 + number * 360 / POLES).substr(1);
  FillRect(scene, x, ROAD_TOP - 290, 6, 290, POLE);
  FillRect(scene, x + 6, ROAD_TOP - 290, 84, 44, BLACK);
  DrawLabel(scene, x + 12, ROAD_TOP - 282, 4, degrees, WHITE);
}

CPicture MakeScene() {
  CPicture scene;
  scene.Resize(SCENE_WIDTH, SCENE_HEIGHT);
  DrawSky(scene);
  DrawHills(scene);
  DrawGround(scene);
  for (int number = 0; number < 16; ++number) DrawHouse(scene, number);
  for (int number = 0; number < POLES; ++number) DrawPole(scene, number);
  return scene;
}

// The part of the scene that a picture shows, in scene pixels.
struct CWindow {
  double Left, Top, Width, Height;
};

CWindow WindowOf(const CFrameCode& code, const CPicture& picture) {
  const double width = VIEW_WIDTH / Magnification(code.Zoom), height = width * picture.Height / picture.Width;
  const double middleX = SCENE_WIDTH * (code.Pan + 1) / 2,
               middleY = SCENE_HEIGHT / 2.0 - code.Tilt * TILT_RANGE / 2;
  return {middleX - width / 2, middleY - height / 2, width, height};
}

void SamplePlane(const uint8_t* from, uint8_t* to, int width, int height, int divider, const CWindow& window) {
  const int sceneWidth = SCENE_WIDTH / divider, sceneHeight = SCENE_HEIGHT / divider;
  std::vector<int> columns(static_cast<size_t>(width));
  for (int x = 0; x < width; ++x) {
    const int column = static_cast<int>(std::floor((window.Left + (x + 0.5) * window.Width / width) / divider));
    columns[static_cast<size_t>(x)] = (column % sceneWidth + sceneWidth) % sceneWidth;
  }
  for (int y = 0; y < height; ++y) {
    const int row = static_cast<int>((window.Top + (y + 0.5) * window.Height / height) / divider);
    const uint8_t* line = from + std::clamp(row, 0, sceneHeight - 1) * sceneWidth;
    for (int x = 0; x < width; ++x) to[y * width + x] = line[columns[static_cast<size_t>(x)]];
  }
}

// One car, as seen; the panorama closes on itself, so it may show a turn further left or right.
void DrawCar(double at, const CWindow& window, CPicture* picture) {
  const double scale = picture->Width / window.Width;
  const auto size = [&](double length) { return static_cast<int>(length * scale); };
  const auto py = [&](double y) { return static_cast<int>((ROAD_TOP + y - window.Top) * scale); };
  for (const double turn : {-1.0, 0.0, 1.0}) {
    const auto px = [&](double x) {
      return static_cast<int>((at + turn * SCENE_WIDTH + x - window.Left) * scale);
    };
    FillRect(*picture, px(18), py(-2), size(54), size(22), {190, 135, 120});
    FillRect(*picture, px(0), py(18), size(96), size(24), CAR);
    for (const double wheel : {14.0, 66.0}) FillRect(*picture, px(wheel), py(36), size(16), size(14), BLACK);
  }
}

void DrawCars(const CShot& shot, const CWindow& window, CPicture* picture) {
  constexpr double GAP = double{SCENE_WIDTH} / CARS;
  const double first = std::fmod(shot.Seconds * CAR_SPEED, SCENE_WIDTH);
  for (int car = 0; car < CARS; ++car) DrawCar(std::fmod(first + car * GAP, SCENE_WIDTH), window, picture);
}

// Walks to and fro close to the camera, so he is in every view.
void DrawVisitor(double seconds, CPicture* picture) {
  const int unit = picture->Height / 24, walk = picture->Width - 8 * unit;
  const double phase = std::fmod(seconds / VISITOR_SECONDS, 2);
  const int x = 2 * unit + static_cast<int>((phase < 1 ? phase : 2 - phase) * walk), y = picture->Height / 3;
  const int stride = static_cast<int>(std::fmod(seconds * 2, 2)) * unit;
  FillRect(*picture, x + unit, y, 2 * unit, 2 * unit, SKIN);
  FillRect(*picture, x, y + 2 * unit, 4 * unit, 6 * unit, COAT);
  FillRect(*picture, x + stride / 2, y + 8 * unit, unit, 5 * unit, BLACK);
  FillRect(*picture, x + 3 * unit - stride / 2, y + 8 * unit, unit, 5 * unit, BLACK);
}

void DrawCaption(const CShot& shot, CPicture* picture) {
  const int scale = std::max(1, picture->Width / 320), height = 11 * scale;
  FillRect(*picture, 0, picture->Height - height, LabelWidth(shot.Label, scale) + 4 * scale, height, BLACK);
  DrawLabel(*picture, 2 * scale, picture->Height - height + 2 * scale, scale, shot.Label, WHITE);
}

}  // namespace

void RenderScene(const CShot& shot, CPicture* picture) {
  static const CPicture g_scene = MakeScene();
  const CWindow window = WindowOf(shot.Code, *picture);
  const int area = SCENE_WIDTH * SCENE_HEIGHT, width = picture->Width, height = picture->Height;
  SamplePlane(g_scene.Y(), picture->Y(), width, height, 1, window);
  SamplePlane(g_scene.Y() + area, picture->U(), width / 2, height / 2, 2, window);
  SamplePlane(g_scene.Y() + area * 5 / 4, picture->V(), width / 2, height / 2, 2, window);
  DrawCars(shot, window, picture);
  if (shot.Visitor) DrawVisitor(shot.Seconds, picture);
  DrawCaption(shot, picture);
  FillRect(*picture, 0, 0, width, frame_code::StripHeight(width), BLACK);
  DrawFrameCode(picture->Y(), width, width, shot.Code);
}
