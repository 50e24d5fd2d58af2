// A slow reference renderer written straight from the rules of the effect:
// one block at a time, one pixel at a time, its own generator and its own
// handling of the time layers. It shares no code with the renderer, so
// agreement byte for byte means both follow the same rules.
#pragma once

#include <stdint.h>
#include <string.h>

#include <array>
#include <type_traits>
#include <vector>

#include "aesdk/aesdk.h"
#include "params/param_values.h"

namespace ref {

// The multiply-with-carry step, written with floor division instead of shifts.
struct Gen {
  long long w, z;
  explicit Gen(int seed) : w(seed), z(987654321LL) {}
  static long long floorDiv65536(long long v) {
    long long q = v / 65536;
    if (v % 65536 != 0 && v < 0) q -= 1;
    return q;
  }
  static long long mod2_32(long long v) {
    long long m = v % 4294967296LL;
    return m < 0 ? m + 4294967296LL : m;
  }
  uint32_t next() {
    const long long zq = floorDiv65536(z), zr = z - zq * 65536;
    z = mod2_32(zq + zr * 36969);
    const long long wq = floorDiv65536(w), wr = w - wq * 65536;
    w = mod2_32(wq + wr * 18000);
    return static_cast<uint32_t>(mod2_32(w + mod2_32(z * 65536)));
  }
};

template <typename T>
T px(const PF_LayerDef& w, long long x, long long y, int c) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(w.data) + y * static_cast<long long>(w.rowbytes) +
                           (x * 4 + c) * static_cast<long long>(sizeof(T));
  T v;
  memcpy(&v, p, sizeof v);
  return v;
}

template <typename T>
void setPx(PF_LayerDef& w, long long x, long long y, int c, T v) {
  unsigned char* p = reinterpret_cast<unsigned char*>(w.data) + y * static_cast<long long>(w.rowbytes) +
                     (x * 4 + c) * static_cast<long long>(sizeof(T));
  memcpy(p, &v, sizeof v);
}

// One block's mask value from its sums, per depth.
inline uint16_t clampMask(long long v) { return v >= 32768 ? 32768 : static_cast<uint16_t>(v); }

template <typename T>
uint16_t maskValue(const std::vector<std::array<T, 4>>& samples, bool rgba, int channelPos) {
  // samples[k] = {A, R, G, B} of the k-th block pixel in row-major order.
  const long long n = static_cast<long long>(samples.size());
  if constexpr (std::is_same<T, float>::value) {
    float sR = 0, sG = 0, sB = 0, s = 0;
    for (const auto& p : samples) {
      sR += p[1];
      sG += p[2];
      sB += p[3];
      s += p[channelPos];
    }
    float value = rgba ? (sR + sG + sB) * 10922.667f / static_cast<float>(n) : s * 10922.667f;
    if (value != value || value < 0) return 0;  // negative and NaN sums count as black
    if (value >= 32768.0f) return 32768;
    return static_cast<uint16_t>(static_cast<int>(value));
  } else {
    unsigned long long sR = 0, sG = 0, sB = 0, s = 0;
    for (const auto& p : samples) {
      sR += p[1];
      sG += p[2];
      sB += p[3];
      s += p[channelPos];
    }
    if (std::is_same<T, uint8_t>::value) {
      if (rgba) return clampMask(static_cast<long long>((sR / n + sG / n + sB / n) * 32768 / 765));
      return clampMask(static_cast<long long>((s / n) * 32768 / 255));
    }
    if (rgba) return clampMask(static_cast<long long>((sR / n + sG / n + sB / n) / 3));
    return clampMask(static_cast<long long>(s / n));
  }
}

struct Decisions {
  std::vector<uint32_t> idx;
  std::vector<uint8_t> frame, flag;
  std::vector<uint16_t> maskval;
  long long attempts = 0;
  int nframes = 0;
};

// Renders `output` from `input` and `v` as the rules say. `output` keeps
// whatever it held wherever the rules write nothing.
template <typename T>
Decisions render(const PF_LayerDef& input, PF_LayerDef& output, const ParamValues& v, float downsample) {
  Decisions d;
  const long long W = output.width, H = output.height;

  // Kernel inputs.
  int bw = static_cast<int>(static_cast<float>(v.blockWidth) * downsample);
  int bh = static_cast<int>(static_cast<float>(v.blockHeight) * downsample);
  if (bw == 0) bw = 1;
  if (bh == 0) bh = 1;
  const int S = static_cast<int>(v.shuffleStrength * 1024.0);
  const int P = static_cast<int>(v.shuffleSpread * 1024.0);
  const int Q = static_cast<int>(v.timeProbability * 10.0);
  const uint16_t I = static_cast<uint16_t>(static_cast<int>(v.maskIntensity * 327.68));
  const int channel = v.channels;
  const bool composite = v.compositeOnOriginal != 0;
  const bool exclusive = v.exclusiveMode != 0;

  // Time sources: the input itself for every slot when the step is 0,
  // otherwise the supplied layers in order, read at the source's own layer
  // coordinates and black outside their rectangles; none at all when a
  // supplied layer has no pixels.
  std::vector<const PF_LayerDef*> sources;
  const double step = v.steppingUnit == 1 ? v.timeStepFrames : v.timeStepSeconds;
  if (step == 0.0) {
    for (int i = 0; i < v.timeFrames; ++i) sources.push_back(&input);
  } else {
    bool broken = false;
    for (int i = 0; i < v.timeFrames; ++i) {
      if (!v.timeLayers[i]) continue;
      if (!v.timeLayers[i]->data) broken = true;
      sources.push_back(v.timeLayers[i]);
    }
    if (broken) sources.clear();
  }
  const int nframes = static_cast<int>(sources.size());
  d.nframes = nframes;
  auto timePixel = [&](int k, long long x, long long y, int c) -> T {
    const PF_LayerDef& l = *sources[k - 1];
    if (&l == &input) return px<T>(input, x, y, c);
    const long long lx = x + input.origin_x - l.origin_x, ly = y + input.origin_y - l.origin_y;
    if (lx < 0 || ly < 0 || lx >= l.width || ly >= l.height) return T(0);
    return px<T>(l, lx, ly, c);
  };

  // Grid.
  const long long nbx = W / bw + (W % bw ? 1 : 0);
  const long long nby = H / bh + (H % bh ? 1 : 0);
  const long long n = nbx * nby;
  const bool partialCol = W % bw != 0, partialRow = H % bh != 0;
  auto blockW = [&](long long col) { return (partialCol && col == nbx - 1) ? W % bw : bw; };
  auto blockH = [&](long long row) { return (partialRow && row == nby - 1) ? H % bh : bh; };

  d.idx.resize(n);
  d.frame.assign(n, 0);
  d.maskval.assign(n, 0);
  d.flag.assign(n, composite ? 1 : 0);
  for (long long i = 0; i < n; ++i) d.idx[i] = static_cast<uint32_t>(((i / nbx) << 16) | (i % nbx));

  // Mask values.
  if (I != 0) {
    const PF_LayerDef* m = v.maskLayer;
    const bool haveMask = m && m->data && m->width > 0 && m->height > 0;
    bool oneToOne = true;
    long long sx = 65536, sy = 65536;
    if (haveMask) {
      oneToOne = output.origin_x >= 0 && output.origin_y >= 0 && W <= m->width && H <= m->height &&
                 output.origin_x + W <= m->width && output.origin_y + H <= m->height;
      if (!oneToOne) {
        sx = static_cast<long long>(m->width) * 65536 / W;
        sy = static_cast<long long>(m->height) * 65536 / H;
      }
    }
    const bool rgba = channel == 0;
    const int pos = channel % 4;
    for (long long i = 0; i < n; ++i) {
      const long long col = i % nbx, row = i / nbx;
      std::vector<std::array<T, 4>> samples;
      for (long long y = row * bh; y < row * bh + blockH(row); ++y)
        for (long long x = col * bw; x < col * bw + blockW(col); ++x) {
          std::array<T, 4> p;
          for (int c = 0; c < 4; ++c) {
            if (!haveMask) p[c] = px<T>(input, x, y, c);
            else if (oneToOne) p[c] = px<T>(*m, x, y, c);
            else p[c] = px<T>(*m, x * sx / 65536, y * sy / 65536, c);
          }
          samples.push_back(p);
        }
      d.maskval[i] = maskValue<T>(samples, rgba, pos);
    }
  }

  // Shuffle.
  if (static_cast<long long>(S) * n >= 256) {
    Gen shuffle(v.shuffleSeed), time(v.timeSeed), mask(v.maskSeed);
    const long long spanX = ((nbx * P) >> 9) + 2, spanY = ((nby * P) >> 9) + 2;
    d.attempts = (static_cast<long long>(S) * n) >> 8;
    for (long long t = 0; t < d.attempts; ++t) {
      const long long a = shuffle.next() % static_cast<uint32_t>(n);
      const long long ax = a % nbx, ay = a / nbx;
      uint32_t r = shuffle.next();
      long long tx = ax;
      if ((v.shuffleDirection == 0 || v.shuffleDirection == 1) && !(partialCol && ax == nbx - 1)) {
        tx = ax + r % spanX - spanX / 2;
        if (tx >= nbx - 1) tx = partialCol ? nbx - 2 : nbx - 1;
        if (tx < 0) tx = 0;
      }
      r = shuffle.next();
      long long ty = ay;
      if ((v.shuffleDirection == 0 || v.shuffleDirection == 2) && !(partialRow && ay == nby - 1)) {
        ty = ay + r % spanY - spanY / 2;
        if (ty >= nby - 1) ty = partialRow ? nby - 2 : nby - 1;
        if (ty < 0) ty = 0;
      }
      const long long b = ty * nbx + tx;

      bool affected = false;
      if (v.maskType == 0) {
        affected = d.maskval[a] >= I && d.maskval[b] >= I;
      } else if (v.maskType == 1) {
        const uint32_t r1 = mask.next(), r2 = mask.next();
        affected = r1 % (I + 1u) <= d.maskval[a] && r2 % (I + 1u) <= d.maskval[b];
      } else if (v.maskType == 2) {
        const uint32_t r1 = mask.next(), r2 = mask.next();
        affected = I == 0 || (r1 % (d.maskval[a] + 1u) >= I && r2 % (d.maskval[b] + 1u) >= I);
      }

      if (affected) {
        d.flag[a] = 1;
        d.flag[b] = 1;
        if (a != b && !(exclusive && nframes != 0)) std::swap(d.idx[a], d.idx[b]);
      }

      if (affected && Q != 0 && nframes != 0) {
        time.next();
        if ((time.w & 1023) < Q) d.frame[a] = static_cast<uint8_t>(time.next() % (nframes + 1u));
        else time.next();
        time.next();
        if ((time.w & 1023) < Q) d.frame[b] = static_cast<uint8_t>(time.next() % (nframes + 1u));
        else time.next();
      } else {
        for (int k = 0; k < 4; ++k) time.next();
      }
    }
  }

  // Clear or prefill.
  const int chosen = channel % 4;
  if (!composite) {
    for (long long y = 0; y < H; ++y)
      for (long long x = 0; x < W; ++x)
        for (int c = 0; c < 4; ++c) setPx<T>(output, x, y, c, T(0));
  } else if (channel != 0) {
    for (long long y = 0; y < H; ++y)
      for (long long x = 0; x < W; ++x)
        for (int c = 0; c < 4; ++c)
          if (c != chosen) setPx<T>(output, x, y, c, px<T>(input, x, y, c));
  }

  // Block pass.
  for (long long i = 0; i < n; ++i) {
    if (!d.flag[i]) continue;
    const long long col = i % nbx, row = i / nbx;
    const long long dcol = d.idx[i] & 0xFFFF, drow = d.idx[i] >> 16;
    for (long long y = 0; y < blockH(row); ++y)
      for (long long x = 0; x < blockW(col); ++x)
        for (int c = 0; c < 4; ++c) {
          if (channel != 0 && c != chosen) continue;
          const long long sx = col * bw + x, sy = row * bh + y;
          const T value = d.frame[i] == 0 ? px<T>(input, sx, sy, c) : timePixel(d.frame[i], sx, sy, c);
          setPx<T>(output, dcol * bw + x, drow * bh + y, c, value);
        }
  }
  return d;
}

}  // namespace ref
