#include "pixels.h"

#include <cstring>

namespace cli {

namespace {

template <typename T>
const T* rowAs(const uint8_t* p) {
  return reinterpret_cast<const T*>(p);
}
template <typename T>
T* rowAs(uint8_t* p) {
  return reinterpret_cast<T*>(p);
}

// Walks every pixel: file RGBA sample type S in, host ARGB type D out (or the
// reverse), with one sample conversion.
template <typename S, typename D, typename F>
void fileToHost(const Picture& in, thost::Image& out, F conv) {
  for (int y = 0; y < in.height; ++y) {
    const S* s = rowAs<S>(in.row(y));
    D* d = rowAs<D>(out.row(y));
    for (int x = 0; x < in.width; ++x, s += 4, d += 4) {
      d[0] = conv(s[3]);
      d[1] = conv(s[0]);
      d[2] = conv(s[1]);
      d[3] = conv(s[2]);
    }
  }
}

template <typename S, typename D, typename F>
void hostToFile(const thost::Image& in, Picture& out, F conv) {
  for (int y = 0; y < in.height; ++y) {
    const S* s = rowAs<S>(in.row(y));
    D* d = rowAs<D>(out.row(y));
    for (int x = 0; x < in.width; ++x, s += 4, d += 4) {
      d[0] = conv(s[1]);
      d[1] = conv(s[2]);
      d[2] = conv(s[3]);
      d[3] = conv(s[0]);
    }
  }
}

template <typename S, typename D, typename F>
void fileToFile(const Picture& in, Picture& out, F conv) {
  const size_t n = static_cast<size_t>(in.width) * static_cast<size_t>(in.height) * 4;
  const S* s = reinterpret_cast<const S*>(in.data.data());
  D* d = reinterpret_cast<D*>(out.data.data());
  for (size_t i = 0; i < n; ++i) d[i] = conv(s[i]);
}

}  // namespace

const char* sampleName(SampleType t) {
  return t == SampleType::U8 ? "8-bit" : t == SampleType::U16 ? "16-bit" : "float";
}

thost::Depth autoDepth(SampleType fileType) {
  return fileType == SampleType::U8    ? thost::Depth::Bits8
         : fileType == SampleType::U16 ? thost::Depth::Bits16
                                       : thost::Depth::Float32;
}

thost::Image toHost(const Picture& in, thost::Depth depth, std::shared_ptr<thost::PixelPool> pool) {
  thost::Image out = thost::Image::unfilled(in.width, in.height, depth, std::move(pool));
  using u8 = uint8_t;
  using u16 = uint16_t;
  switch (depth) {
    case thost::Depth::Bits8:
      if (in.type == SampleType::U8) fileToHost<u8, u8>(in, out, [](u8 v) { return v; });
      if (in.type == SampleType::U16) fileToHost<u16, u8>(in, out, [](u16 v) { return px::u16ToU8(v); });
      if (in.type == SampleType::F32) fileToHost<float, u8>(in, out, [](float v) { return px::floatToU8(v); });
      break;
    case thost::Depth::Bits16:
      if (in.type == SampleType::U8) fileToHost<u8, u16>(in, out, [](u8 v) { return px::u8ToHost16(v); });
      if (in.type == SampleType::U16) fileToHost<u16, u16>(in, out, [](u16 v) { return px::u16ToHost16(v); });
      if (in.type == SampleType::F32) fileToHost<float, u16>(in, out, [](float v) { return px::floatToHost16(v); });
      break;
    case thost::Depth::Float32:
      if (in.type == SampleType::U8) fileToHost<u8, float>(in, out, [](u8 v) { return px::u8ToFloat(v); });
      if (in.type == SampleType::U16) fileToHost<u16, float>(in, out, [](u16 v) { return px::u16ToFloat(v); });
      if (in.type == SampleType::F32) fileToHost<float, float>(in, out, [](float v) { return v; });
      break;
  }
  return out;
}

Picture fromHost(const thost::Image& in, SampleType type) {
  Picture out(in.width, in.height, type);
  using u8 = uint8_t;
  using u16 = uint16_t;
  switch (in.depth) {
    case thost::Depth::Bits8:
      if (type == SampleType::U8) hostToFile<u8, u8>(in, out, [](u8 v) { return v; });
      if (type == SampleType::U16) hostToFile<u8, u16>(in, out, [](u8 v) { return px::u8ToU16(v); });
      if (type == SampleType::F32) hostToFile<u8, float>(in, out, [](u8 v) { return px::u8ToFloat(v); });
      break;
    case thost::Depth::Bits16:
      if (type == SampleType::U8) hostToFile<u16, u8>(in, out, [](u16 v) { return px::host16ToU8(v); });
      if (type == SampleType::U16) hostToFile<u16, u16>(in, out, [](u16 v) { return px::host16ToU16(v); });
      if (type == SampleType::F32) hostToFile<u16, float>(in, out, [](u16 v) { return px::host16ToFloat(v); });
      break;
    case thost::Depth::Float32:
      if (type == SampleType::U8) hostToFile<float, u8>(in, out, [](float v) { return px::floatToU8(v); });
      if (type == SampleType::U16) hostToFile<float, u16>(in, out, [](float v) { return px::floatToU16(v); });
      if (type == SampleType::F32) hostToFile<float, float>(in, out, [](float v) { return v; });
      break;
  }
  return out;
}

Picture convert(const Picture& in, SampleType type) {
  if (in.type == type) return in;
  Picture out(in.width, in.height, type);
  using u8 = uint8_t;
  using u16 = uint16_t;
  if (in.type == SampleType::U8 && type == SampleType::U16) fileToFile<u8, u16>(in, out, [](u8 v) { return px::u8ToU16(v); });
  if (in.type == SampleType::U8 && type == SampleType::F32) fileToFile<u8, float>(in, out, [](u8 v) { return px::u8ToFloat(v); });
  if (in.type == SampleType::U16 && type == SampleType::U8) fileToFile<u16, u8>(in, out, [](u16 v) { return px::u16ToU8(v); });
  if (in.type == SampleType::U16 && type == SampleType::F32) fileToFile<u16, float>(in, out, [](u16 v) { return px::u16ToFloat(v); });
  if (in.type == SampleType::F32 && type == SampleType::U8) fileToFile<float, u8>(in, out, [](float v) { return px::floatToU8(v); });
  if (in.type == SampleType::F32 && type == SampleType::U16) fileToFile<float, u16>(in, out, [](float v) { return px::floatToU16(v); });
  return out;
}

}  // namespace cli
