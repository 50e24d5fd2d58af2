// Layers at a reduced resolution: After Effects at half, third or quarter
// resolution (or any downsample) lends every layer's frames at that size.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "impl.h"

namespace thost {

namespace {

// The reduced size of `full` pixels at num/den: rounded up, so a pixel that is
// only partly covered still has one of its own.
int scaledLength(int full, const PF_RationalScale& f) {
  if (full <= 0) return full;
  const int64_t n = static_cast<int64_t>(full) * f.num;
  return static_cast<int>(std::max<int64_t>(1, (n + f.den - 1) / f.den));
}

// The source pixels output pixel `i` covers: [first, last), at least one.
std::pair<int, int> boxOf(int i, int full, const PF_RationalScale& f) {
  const int first = static_cast<int>(std::min<int64_t>(full - 1, static_cast<int64_t>(i) * f.den / f.num));
  const int last = static_cast<int>(std::min<int64_t>(full, (static_cast<int64_t>(i) + 1) * f.den / f.num));
  return {first, std::max(first + 1, last)};
}

template <typename T>
void averageRow(const Image& src, Image& dst, int y, const PF_RationalScale& fx,
                const PF_RationalScale& fy) {
  using Sum = std::conditional_t<std::is_floating_point<T>::value, double, uint64_t>;
  const auto [y0, y1] = boxOf(y, src.height, fy);
  T* out = reinterpret_cast<T*>(dst.row(y));
  for (int x = 0; x < dst.width; ++x) {
    const auto [x0, x1] = boxOf(x, src.width, fx);
    Sum sum[4] = {};
    for (int sy = y0; sy < y1; ++sy) {
      const T* in = reinterpret_cast<const T*>(src.row(sy));
      for (int sx = x0; sx < x1; ++sx)
        for (int c = 0; c < 4; ++c) sum[c] += static_cast<Sum>(in[sx * 4 + c]);
    }
    const Sum n = static_cast<Sum>((y1 - y0) * (x1 - x0));
    for (int c = 0; c < 4; ++c) {
      if constexpr (std::is_floating_point<T>::value)
        out[x * 4 + c] = static_cast<T>(sum[c] / n);
      else
        out[x * 4 + c] = static_cast<T>((sum[c] + n / 2) / n);  // to the nearest
    }
  }
}

}  // namespace

ScaledClip::ScaledClip(std::shared_ptr<const Clip> source, PF_RationalScale x, PF_RationalScale y)
    : source_(std::move(source)), x_(x), y_(y) {}

std::shared_ptr<const Image> ScaledClip::frame(int k, Depth depth) const {
  const std::shared_ptr<const Image> full = source_->frame(k, depth);
  if (!full) return full;
  auto img = std::make_shared<Image>(
      Image::unfilled(scaledLength(full->width, x_), scaledLength(full->height, y_), depth));
  // The origin, in layer pixels, moves with the scale (rounded down).
  img->originX = static_cast<A_long>((static_cast<int64_t>(full->originX) * x_.num -
                                      (full->originX < 0 ? x_.den - 1 : 0)) / x_.den);
  img->originY = static_cast<A_long>((static_cast<int64_t>(full->originY) * y_.num -
                                      (full->originY < 0 ? y_.den - 1 : 0)) / y_.den);
  for (int row = 0; row < img->height; ++row) {
    switch (depth) {
      case Depth::Bits8: averageRow<uint8_t>(*full, *img, row, x_, y_); break;
      case Depth::Bits16: averageRow<uint16_t>(*full, *img, row, x_, y_); break;
      case Depth::Float32: averageRow<float>(*full, *img, row, x_, y_); break;
    }
  }
  return img;
}

bool ScaledClip::reduces(const PF_RationalScale& f) {
  return f.num > 0 && f.den > 0 && static_cast<int64_t>(f.num) < static_cast<int64_t>(f.den);
}

}  // namespace thost
