// A file-scope rectangle of the plug-in's own, named like the macOS one.
struct Rect {
  long long left, top, right, bottom;
};

long long width(const Rect& r) { return r.right - r.left; }
