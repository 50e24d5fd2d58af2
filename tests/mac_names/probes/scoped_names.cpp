// Names that macOS also declares are fine inside a named namespace when used
// qualified, and as local names inside functions.
namespace geometry {
struct Rect {
  long long left, top, right, bottom;
};
}  // namespace geometry

long long width(const geometry::Rect& r) {
  const long long Size = r.right - r.left;
  return Size;
}

int styleOf(Style s) { return s == bold ? 1 : 0; }
