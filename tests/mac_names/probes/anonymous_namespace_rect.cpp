// The same rectangle hidden in an anonymous namespace: every use is ambiguous.
namespace {
struct Rect {
  long long left, top, right, bottom;
};
}  // namespace

long long width(long long l, long long r) {
  const Rect rect{l, 0, r, 0};
  return rect.right - rect.left;
}
