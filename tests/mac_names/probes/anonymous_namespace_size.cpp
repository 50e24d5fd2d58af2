// A helper type named like the macOS memory size type.
namespace {
struct Size {
  int w, h;
};
}  // namespace

int area(int w, int h) {
  const Size s{w, h};
  return s.w * s.h;
}
