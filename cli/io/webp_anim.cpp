// Animated WebP read frame by frame (see webp_anim.h).
#include "io/webp_anim.h"

#include <webp/demux.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <vector>

namespace cli {

namespace {

struct DecoderFreer {
  void operator()(WebPAnimDecoder* d) const { WebPAnimDecoderDelete(d); }
};

// Frames decode in order only: a frame behind the last one read starts over.
class AnimatedWebpSource : public FrameSource {
 public:
  explicit AnimatedWebpSource(const std::string& path) : path_(path) {
    std::ifstream in(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    // The canvas size from the VP8X header, checked before the decoder allocates the canvas.
    if (bytes_.size() < 30) throw MediaError(path + ": not a readable animated WebP");
    auto u24 = [&](size_t at) { return 1L + bytes_[at] + (bytes_[at + 1] << 8) + (bytes_[at + 2] << 16); };
    checkSize(path, u24(24), u24(27));
    WebPAnimDecoderOptions options;
    WebPAnimDecoderOptionsInit(&options);
    options.color_mode = MODE_RGBA;  // straight alpha, as files keep it
    options.use_threads = 0;
    const WebPData data{bytes_.data(), bytes_.size()};
    decoder_.reset(WebPAnimDecoderNew(&data, &options));
    WebPAnimInfo info{};
    if (!decoder_ || !WebPAnimDecoderGetInfo(decoder_.get(), &info) || info.frame_count == 0)
      throw MediaError(path + ": not a readable animated WebP");
    width_ = static_cast<int>(info.canvas_width);
    height_ = static_cast<int>(info.canvas_height);
    checkSize(path, width_, height_);
    // Each frame's end time, from decoding through once: the frames are few
    // and small, and the demuxer's durations do not say where ones of zero end.
    int end = 0;
    while (WebPAnimDecoderHasMoreFrames(decoder_.get())) {
      uint8_t* pixels = nullptr;
      if (!WebPAnimDecoderGetNext(decoder_.get(), &pixels, &end))
        throw MediaError(path + ": frame " + std::to_string(ends_.size()) + " does not decode");
      ends_.push_back(end);
    }
    WebPAnimDecoderReset(decoder_.get());
    const uint32_t flags = WebPDemuxGetI(WebPAnimDecoderGetDemuxer(decoder_.get()), WEBP_FF_FORMAT_FLAGS);
    layout_.channels = (flags & ALPHA_FLAG) ? 4 : 3;
    // The average rate, in milliseconds as the file counts them.
    const int total = ends_.back() > 0 ? ends_.back() : static_cast<int>(ends_.size()) * 100;
    const int num = 1000 * static_cast<int>(ends_.size());
    const int g = std::gcd(num, total);
    rate_ = Rate{num / g, total / g};
  }

  int frameCount() const override { return static_cast<int>(ends_.size()); }
  SampleType sampleType() const override { return SampleType::U8; }
  std::optional<Rate> rate() const override { return rate_; }
  std::optional<PixelLayout> layout() const override { return layout_; }
  std::vector<double> frameTimes() const override {
    std::vector<double> t{0.0};
    for (size_t i = 0; i + 1 < ends_.size(); ++i) t.push_back(ends_[i] / 1000.0);
    return t;
  }
  std::pair<int, int> frameSize(int) const override { return {width_, height_}; }

  Picture read(int k) override {
    if (k < next_) {
      WebPAnimDecoderReset(decoder_.get());
      next_ = 0;
    }
    uint8_t* pixels = nullptr;
    int end = 0;
    for (; next_ <= k; ++next_)
      if (!WebPAnimDecoderGetNext(decoder_.get(), &pixels, &end))
        throw MediaError(path_ + ": frame " + std::to_string(next_) + " does not decode");
    Picture p(width_, height_, SampleType::U8);
    std::memcpy(p.data.data(), pixels, p.rowBytes() * static_cast<size_t>(height_));
    return p;
  }

 private:
  std::string path_;
  std::vector<uint8_t> bytes_;  // the decoder reads from them
  std::unique_ptr<WebPAnimDecoder, DecoderFreer> decoder_;
  int width_ = 0, height_ = 0;
  std::vector<int> ends_;  // frame k ends at ends_[k] ms
  Rate rate_;
  PixelLayout layout_;
  int next_ = 0;  // the frame GetNext gives next
};

}  // namespace

bool isAnimatedWebp(const std::string& path) {
  unsigned char head[21] = {};
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  const size_t got = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  return got == sizeof head && !std::memcmp(head, "RIFF", 4) && !std::memcmp(head + 8, "WEBPVP8X", 8) &&
         (head[20] & 0x02);
}

std::unique_ptr<FrameSource> openAnimatedWebp(const std::string& path) {
  return std::make_unique<AnimatedWebpSource>(path);
}

}  // namespace cli
