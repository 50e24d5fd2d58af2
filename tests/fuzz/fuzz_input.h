// Reads a fuzzer's bytes as a stream of small decisions. Past the end every
// read gives zero, so any input, however short, is a complete description.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return pos_ >= size_; }

  uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
  uint32_t u32() { return static_cast<uint32_t>(u16()) | (static_cast<uint32_t>(u16()) << 16); }
  int32_t i32() { return static_cast<int32_t>(u32()); }
  bool flag() { return (u8() & 1) != 0; }

  // lo..hi inclusive, from as few bytes as the range needs.
  int32_t range(int32_t lo, int32_t hi) {
    const uint32_t span = static_cast<uint32_t>(hi) - static_cast<uint32_t>(lo);
    const uint32_t raw = span < 256 ? u8() : span < 65536 ? u16() : u32();
    return static_cast<int32_t>(static_cast<uint32_t>(lo) + (span == 0xFFFFFFFFu ? raw : raw % (span + 1)));
  }

  // A 32-bit value that is usually near the interesting spots of [lo, hi]
  // and sometimes anything at all, as a damaged record could carry.
  int32_t nearRange(int32_t lo, int32_t hi) {
    switch (u8() % 8) {
      case 0:
        return i32();
      case 1:
        return lo - range(0, 2);
      case 2:
        return hi + range(0, 2);
      case 3:
        return lo;
      case 4:
        return hi;
      default:
        return range(lo, hi);
    }
  }

  // A double inside [lo, hi] mostly, or a value no control would produce.
  double nearRangeDouble(double lo, double hi) {
    switch (u8() % 12) {
      case 0:
        return std::numeric_limits<double>::quiet_NaN();
      case 1:
        return std::numeric_limits<double>::infinity();
      case 2:
        return -std::numeric_limits<double>::infinity();
      case 3:
        return rawDouble();
      case 4:
        return lo - u16() / 16.0;
      case 5:
        return hi + u16() / 16.0;
      case 6:
        return lo;
      case 7:
        return hi;
      default:
        return lo + (hi - lo) * (u16() / 65535.0);
    }
  }

  double rawDouble() {
    const uint64_t bits = static_cast<uint64_t>(u32()) | (static_cast<uint64_t>(u32()) << 32);
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
  }

  float rawFloat() {
    const uint32_t bits = u32();
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// A finding: the message goes to stderr and the process aborts, which both
// libFuzzer and the replay test report.
[[noreturn]] void fail(const char* what);

}  // namespace fuzz
