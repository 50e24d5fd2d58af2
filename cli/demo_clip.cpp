#include "demo_clip.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace cli {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Glyph {
  char c;
  uint8_t rows[7];
};

const Glyph kFont[] = {
    {'T', {31, 4, 4, 4, 4, 4, 4}},       {'E', {31, 16, 16, 30, 16, 16, 31}},
    {'S', {15, 16, 16, 14, 1, 1, 30}},    {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'U', {17, 17, 17, 17, 17, 17, 14}},  {'X', {17, 17, 10, 4, 10, 17, 17}},
    {'F', {31, 16, 16, 30, 16, 16, 16}},  {'R', {30, 17, 17, 30, 20, 18, 17}},
    {'A', {14, 17, 17, 31, 17, 17, 17}},  {'M', {17, 27, 21, 21, 17, 17, 17}},
    {'0', {14, 17, 19, 21, 25, 17, 14}},  {'1', {4, 12, 4, 4, 4, 4, 14}},
    {'2', {14, 17, 1, 2, 4, 8, 31}},      {'3', {30, 1, 1, 14, 1, 1, 30}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},      {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},    {'7', {31, 1, 2, 4, 8, 8, 8}},
    {'8', {14, 17, 17, 14, 17, 17, 14}},  {'9', {14, 17, 17, 15, 1, 2, 12}},
};

const Glyph* glyph(char c) {
  for (const Glyph& g : kFont)
    if (g.c == c) return &g;
  return nullptr;
}

void put(Picture& p, int x, int y, const uint8_t rgba[4]) {
  if (x < 0 || y < 0 || x >= p.width || y >= p.height) return;
  std::memcpy(p.row(y) + x * 4, rgba, 4);
}

uint8_t byte(double v) { return static_cast<uint8_t>(std::clamp(v, 0.0, 1.0) * 255.0 + 0.5); }

}  // namespace

void drawText(Picture& p, const char* text, int x, int y, int scale, const uint8_t rgba[4]) {
  for (int i = 0; text[i]; ++i) {
    const Glyph* g = glyph(text[i]);
    const int gx = x + i * 6 * scale;
    if (!g) continue;
    for (int r = 0; r < 7; ++r)
      for (int c = 0; c < 5; ++c)
        if (g->rows[r] & (16 >> c))
          for (int dy = 0; dy < scale; ++dy)
            for (int dx = 0; dx < scale; ++dx) put(p, gx + c * scale + dx, y + r * scale + dy, rgba);
  }
}

Picture demoFrame(int k, int width, int height, int frames) {
  Picture p(width, height, SampleType::U8);
  const double t = static_cast<double>(k) / std::max(1, frames);
  // Background: two crossing gradients drifting in opposite directions.
  std::vector<double> cx(static_cast<size_t>(width)), cy(static_cast<size_t>(height));
  for (int x = 0; x < width; ++x) cx[static_cast<size_t>(x)] = std::sin(2 * kPi * (x / 640.0 + t));
  for (int y = 0; y < height; ++y) cy[static_cast<size_t>(y)] = std::cos(2 * kPi * (y / 480.0 - 2 * t));
  for (int y = 0; y < height; ++y) {
    uint8_t* row = p.row(y);
    const double v = cy[static_cast<size_t>(y)];
    for (int x = 0; x < width; ++x, row += 4) {
      const double u = cx[static_cast<size_t>(x)];
      row[0] = byte(0.45 + 0.35 * u);
      row[1] = byte(0.30 + 0.25 * v + 0.15 * u * v);
      row[2] = byte(0.55 - 0.30 * u * v + 0.15 * v);
      row[3] = 255;
    }
  }
  // A checker band sweeping down.
  const int bandY = static_cast<int>((0.1 + 0.8 * t) * height);
  for (int y = std::max(0, bandY - 40); y < std::min(height, bandY + 40); ++y)
    for (int x = 0; x < width; ++x)
      if (((x / 40) + (y / 40)) % 2 == 0) {
        uint8_t* px = p.row(y) + x * 4;
        px[0] = 250, px[1] = 250, px[2] = 240;
      }
  // Discs orbiting the centre.
  const uint8_t colours[4][4] = {{255, 70, 60, 255}, {60, 220, 90, 255}, {70, 110, 255, 255}, {255, 210, 40, 255}};
  for (int i = 0; i < 4; ++i) {
    const double a = 2 * kPi * (t + i / 4.0);
    const double ox = width / 2.0 + std::cos(a) * width * 0.32;
    const double oy = height / 2.0 + std::sin(a) * height * 0.30;
    const double r = height * (0.10 + 0.03 * i);
    for (int y = std::max(0, static_cast<int>(oy - r)); y < std::min(height, static_cast<int>(oy + r) + 1); ++y)
      for (int x = std::max(0, static_cast<int>(ox - r)); x < std::min(width, static_cast<int>(ox + r) + 1); ++x)
        if ((x - ox) * (x - ox) + (y - oy) * (y - oy) <= r * r) put(p, x, y, colours[i]);
  }
  // A bar turning about the centre.
  const double angle = 2 * kPi * t * 0.5;
  const double ca = std::cos(angle), sa = std::sin(angle);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double dx = x - width / 2.0, dy = y - height / 2.0;
      const double along = dx * ca + dy * sa, across = -dx * sa + dy * ca;
      if (std::abs(along) < height * 0.45 && std::abs(across) < 12) {
        uint8_t* px = p.row(y) + x * 4;
        px[0] = 20, px[1] = 20, px[2] = 30;
      }
    }
  // Lettering: the name gliding across, the frame number in a corner.
  const uint8_t white[4] = {255, 255, 255, 255};
  const uint8_t shadow[4] = {0, 0, 0, 255};
  const int scale = std::max(1, height / 60);
  const int textWidth = 8 * 6 * scale;
  const int tx = static_cast<int>(-textWidth + (width + textWidth) * t);
  drawText(p, "TESSELUX", tx + scale, height / 2 - 3 * scale + scale, scale, shadow);
  drawText(p, "TESSELUX", tx, height / 2 - 3 * scale, scale, white);
  char number[32];
  std::snprintf(number, sizeof number, "FRAME %04d", k);
  drawText(p, number, scale * 2, height - 10 * (scale / 2 + 1), scale / 2 + 1, white);
  return p;
}

Picture demoMaskFrame(int k, int width, int height, int frames) {
  Picture p(width, height, SampleType::U8);
  const double t = static_cast<double>(k) / std::max(1, frames);
  const double ox = width * (0.25 + 0.5 * t), oy = height * (0.5 + 0.25 * std::sin(2 * kPi * t));
  const double r = height * 0.35;
  for (int y = 0; y < height; ++y) {
    uint8_t* row = p.row(y);
    for (int x = 0; x < width; ++x, row += 4) {
      const double d = std::sqrt((x - ox) * (x - ox) + (y - oy) * (y - oy)) / r;
      double v = std::clamp(1.3 - d, 0.0, 1.0);
      if (std::abs(x - width * (1.0 - t)) < width * 0.04) v = 1.0;
      row[0] = row[1] = row[2] = byte(v);
      row[3] = 255;
    }
  }
  return p;
}

Picture shrink(const Picture& in, int f) {
  const Picture src = in.type == SampleType::U8 ? in : convert(in, SampleType::U8);
  Picture out(src.width / f, src.height / f, SampleType::U8);
  for (int y = 0; y < out.height; ++y)
    for (int x = 0; x < out.width; ++x)
      for (int c = 0; c < 4; ++c) {
        int sum = 0;
        for (int dy = 0; dy < f; ++dy)
          for (int dx = 0; dx < f; ++dx) sum += src.row(y * f + dy)[(x * f + dx) * 4 + c];
        out.row(y)[x * 4 + c] = static_cast<uint8_t>((sum + f * f / 2) / (f * f));
      }
  return out;
}

}  // namespace cli
