// A small JSON writer for `tesselux info --json`: objects, arrays, strings,
// numbers and booleans, written in order.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace cli {

class Json {
 public:
  Json& open() { return begin('{'); }
  Json& close() { return end('}'); }
  Json& openArray() { return begin('['); }
  Json& closeArray() { return end(']'); }
  Json& key(const std::string& k) {
    comma();
    quote(k);
    out_ += ": ";
    afterKey_ = true;
    return *this;
  }
  Json& str(const std::string& v) {
    comma();
    quote(v);
    return *this;
  }
  Json& num(double v) {
    comma();
    char buf[64];
    if (!std::isfinite(v)) v = 0;
    if (v == std::floor(v) && std::fabs(v) < 1e15)
      std::snprintf(buf, sizeof buf, "%.0f", v);
    else
      std::snprintf(buf, sizeof buf, "%.9g", v);
    out_ += buf;
    return *this;
  }
  Json& boolean(bool v) {
    comma();
    out_ += v ? "true" : "false";
    return *this;
  }
  const std::string& text() const { return out_; }

 private:
  Json& begin(char c) {
    comma();
    out_ += c;
    first_.push_back(true);
    return *this;
  }
  Json& end(char c) {
    first_.pop_back();
    out_ += c;
    return *this;
  }
  void comma() {
    if (afterKey_) {
      afterKey_ = false;
      return;
    }
    if (!first_.empty()) {
      if (!first_.back()) out_ += ", ";
      first_.back() = false;
    }
  }
  void quote(const std::string& s) {
    out_ += '"';
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') {
        out_ += '\\';
        out_ += static_cast<char>(c);
      } else if (c < 0x20) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "\\u%04x", c);
        out_ += buf;
      } else {
        out_ += static_cast<char>(c);
      }
    }
    out_ += '"';
  }
  std::string out_;
  std::vector<bool> first_;
  bool afterKey_ = false;
};

}  // namespace cli
