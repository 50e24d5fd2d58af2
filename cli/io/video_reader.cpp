// Videos read through FFmpeg's libraries: random-access decoding (seeking
// back to a key frame when a frame is not just ahead), every frame checked
// by its own timestamp.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

extern "C" {
#include <libavutil/display.h>
}

#include "io/av_common.h"
#include "io/orientation.h"
#include "io/webp_anim.h"
#include "io/yuv_convert.h"

namespace cli {

namespace {

using namespace av;

// The clockwise turn a stream's display matrix asks for, as an orientation
// code (ffmpeg's autorotate: quarter turns; a mirrored matrix is not applied).
int streamOrientation(const AVStream* st) {
  const uint8_t* matrix = av_stream_get_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
  if (!matrix) return 1;
  const double turn = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  if (std::isnan(turn)) return 1;
  return orientationForTurn(static_cast<int>(std::lround(turn / 90.0)) * 90);
}

// A video packet as the index pass saw it: where a decode may start, and
// which presentation times the stream holds.
struct PacketInfo {
  int64_t pts = AV_NOPTS_VALUE, dts = AV_NOPTS_VALUE, pos = -1;
  bool key = false;
};

// Frames are named by their presentation timestamps, listed from a pass over
// every packet at open: frame k is the k-th time, whatever the container's
// start time, rate or reordering. A seek starts at a key frame at or before
// the frame asked for and is checked by the packet it lands on; where it
// lands elsewhere the file is decoded from its start. A frame is only ever
// served by its own timestamp.
class VideoSource : public FrameSource {
 public:
  explicit VideoSource(const std::string& path) : path_(path) {
    openDemuxer();
    AVStream* st = fmt_->streams[stream_];
    AVRational r = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
    if (r.num <= 0 || r.den <= 0) r = AVRational{30, 1};
    av_reduce(&r.num, &r.den, r.num, r.den, 1 << 30);
    rate_ = Rate{r.num, r.den};
    timeBase_ = st->time_base;
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(st->codecpar->format));
    deep_ = desc && desc->comp[0].depth > 8;
    tags_.colorRange = st->codecpar->color_range;
    tags_.colorPrimaries = st->codecpar->color_primaries;
    tags_.colorTrc = st->codecpar->color_trc;
    tags_.colorSpace = st->codecpar->color_space;
    tags_.chromaLocation = st->codecpar->chroma_location;
    AVRational sar = av_guess_sample_aspect_ratio(fmt_.get(), st, nullptr);
    if (sar.num > 0) {
      tags_.sarNum = sar.num;
      tags_.sarDen = sar.den;
    }
    width_ = st->codecpar->width;
    height_ = st->codecpar->height;
    checkSize(path, width_, height_);
    orientation_ = streamOrientation(st);
    if (swapsSides(orientation_)) std::swap(tags_.sarNum, tags_.sarDen);
    layout_.channels = desc && ((desc->flags & AV_PIX_FMT_FLAG_PAL) || desc->nb_components >= 3) ? 3 : 1;
    if (desc && (desc->flags & AV_PIX_FMT_FLAG_ALPHA)) layout_.channels += 1;
    frame_.reset(av_frame_alloc());
    last_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    // Read before the index pass: a container that cannot seek back is
    // opened again there, and `st` goes with the old one.
    const long announced = st->nb_frames;
    indexPackets();
    trimToDecodable();
    if (times_.empty()) throw MediaError(path + ": video stream has no frames that decode");
    if (announced > static_cast<long>(times_.size()) || truncated_)
      std::fprintf(stderr, "tesselux: warning: %s: the file ends early (truncated?); %d frames decode%s\n",
                   path.c_str(), frameCount(),
                   announced > 0 ? (" of the " + std::to_string(announced) + " its header announces").c_str() : "");
  }

  int frameCount() const override { return static_cast<int>(times_.size()); }
  SampleType sampleType() const override { return deep_ ? SampleType::U16 : SampleType::U8; }
  std::optional<Rate> rate() const override { return rate_; }
  std::optional<VideoTags> tags() const override { return tags_; }
  std::optional<PixelLayout> layout() const override { return layout_; }
  // Upright: the display matrix is applied to every frame.
  std::pair<int, int> frameSize(int) const override { return uprightSize(orientation_, width_, height_); }
  std::vector<double> frameTimes() const override {
    std::vector<double> t;
    t.reserve(times_.size());
    for (int64_t pts : times_) t.push_back(static_cast<double>(pts - times_.front()) * av_q2d(timeBase_));
    return t;
  }

  Picture read(int k) override {
    return readAs<Picture>(k, [this](const AVFrame* f) { return toPicture(f); }, nullptr);
  }

  thost::Image readHost(int k, thost::Depth depth) override {
    return readAs<thost::Image>(k, [this, depth](const AVFrame* f) { return toHostImage(f, depth); },
                                &onSideFrame);
  }

 private:
  static constexpr int kForwardWindow = 48;

  void openDemuxer() {
    fmt_ = openInput(path_);
    stream_ = av_find_best_stream(fmt_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream_ < 0) throw MediaError(path_ + ": has no video stream");
    AVStream* st = fmt_->streams[stream_];
    const AVCodec* codec = avcodec_find_decoder(st->codecpar->codec_id);
    if (!codec) throw MediaError(path_ + ": no decoder for its video codec");
    dec_.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(dec_.get(), st->codecpar);
    dec_->thread_count = 0;
    int err = avcodec_open2(dec_.get(), codec, nullptr);
    if (err < 0) throw MediaError(path_ + ": cannot open its decoder: " + avError(err));
    eof_ = false;
    next_ = 0;
    skipUntil_.reset();
  }

  // Every packet of the stream, in file order; the presentation times of
  // those the decoder keeps (edit lists mark the others discarded).
  void indexPackets() {
    PacketPtr pkt(av_packet_alloc());
    bool untimed = false;
    int err = 0;
    while ((err = av_read_frame(fmt_.get(), pkt.get())) >= 0) {
      if (pkt->stream_index == stream_) {
        PacketInfo p{pkt->pts, pkt->dts, pkt->pos, (pkt->flags & AV_PKT_FLAG_KEY) != 0};
        if (p.pts == AV_NOPTS_VALUE) {
          untimed = true;
          p.pts = p.dts != AV_NOPTS_VALUE ? p.dts : packets_.empty() ? 0 : packets_.back().pts + 1;
        }
        packets_.push_back(p);
        if (!(pkt->flags & AV_PKT_FLAG_DISCARD)) times_.push_back(p.pts);
        if (pkt->flags & AV_PKT_FLAG_CORRUPT) truncated_ = true;
      }
      av_packet_unref(pkt.get());
    }
    if (err != AVERROR_EOF) truncated_ = true;
    std::sort(times_.begin(), times_.end());
    times_.erase(std::unique(times_.begin(), times_.end()), times_.end());
    if (packets_.empty()) throw MediaError(path_ + ": video stream has no frames");
    restart();
    if (!untimed) return;
    // Packets without presentation times (program streams give them to some
    // only): the times are the ones a decode from the start gives.
    times_.clear();
    while (decodeNext()) times_.push_back(framePts(last_.get()));
    std::sort(times_.begin(), times_.end());
    times_.erase(std::unique(times_.begin(), times_.end()), times_.end());
    restart();
  }

  // Keeps only the times a decode from the start shows: the first frame out
  // (streams cut mid-GOP start later) and, from the last key frame on, those
  // a damaged or cut tail still gives.
  void trimToDecodable() {
    int64_t first = AV_NOPTS_VALUE;
    while (first == AV_NOPTS_VALUE && decodeNext()) first = framePts(last_.get());
    if (first == AV_NOPTS_VALUE) {
      times_.clear();
      return;
    }
    times_.erase(times_.begin(), std::lower_bound(times_.begin(), times_.end(), first));
    const PacketInfo* key = keyFor(times_.back());
    std::vector<int64_t> seen;
    if (key && positionAt(*key)) {
      while (decodeNext()) seen.push_back(framePts(last_.get()));
      const int64_t from = std::max(key->pts, first);
      std::sort(seen.begin(), seen.end());
      const size_t before = times_.size();
      times_.erase(std::remove_if(times_.begin(), times_.end(),
                                  [&](int64_t t) {
                                    return t >= from && !std::binary_search(seen.begin(), seen.end(), t);
                                  }),
                   times_.end());
      if (times_.size() != before) truncated_ = true;
    }
    restart();
  }

  // The key packet with the latest time not after t: frames shown from it on
  // need nothing decoded before it.
  const PacketInfo* keyFor(int64_t t) const {
    const PacketInfo* best = nullptr;
    for (const PacketInfo& p : packets_)
      if (p.key && p.pts <= t && (!best || p.pts > best->pts)) best = &p;
    return best;
  }

  // The demuxer and decoder back at the file's start, exactly.
  void restart() {
    if (!(fmt_->iformat->flags & AVFMT_NOFILE) && fmt_->pb && (fmt_->pb->seekable & AVIO_SEEKABLE_NORMAL) &&
        !packets_.empty() && positionAt(packets_.front()))
      return;
    openDemuxer();  // no seek back to the first packet: open the file again
  }

  // Seeks so that the next packet of the stream read is `key`; false where
  // the container's seek cannot get there exactly.
  bool positionAt(const PacketInfo& key) {
    avcodec_flush_buffers(dec_.get());
    eof_ = false;
    next_ = -1;
    if (key.dts != AV_NOPTS_VALUE &&
        av_seek_frame(fmt_.get(), stream_, key.dts, AVSEEK_FLAG_BACKWARD) >= 0 && landsOn(key))
      return true;
    if (key.pos >= 0 && !(fmt_->iformat->flags & AVFMT_NO_BYTE_SEEK) &&
        av_seek_frame(fmt_.get(), stream_, key.pos, AVSEEK_FLAG_BYTE) >= 0 && landsOn(key))
      return true;
    return false;
  }

  // Reads up to the key packet (kept for decodeNext to send first); false
  // when the stream passes it first.
  bool landsOn(const PacketInfo& key) {
    avcodec_flush_buffers(dec_.get());
    for (int n = 0; n < 4096; ++n) {
      if (av_read_frame(fmt_.get(), packet_.get()) < 0) return false;
      if (packet_->stream_index != stream_) {
        av_packet_unref(packet_.get());
        continue;
      }
      const bool same = (key.pos >= 0 && packet_->pos == key.pos) ||
                        (key.pos < 0 && packet_->dts == key.dts && packet_->pts == key.pts);
      const bool past = packet_->dts != AV_NOPTS_VALUE && key.dts != AV_NOPTS_VALUE && packet_->dts > key.dts;
      if (same) {
        skipUntil_ = PacketPtr(av_packet_clone(packet_.get()));
        av_packet_unref(packet_.get());
        next_ = 0;
        return true;
      }
      av_packet_unref(packet_.get());
      if (past) return false;
    }
    return false;
  }

  int indexOf(int64_t pts) const {
    auto it = std::lower_bound(times_.begin(), times_.end(), pts);
    return it != times_.end() && *it == pts ? static_cast<int>(it - times_.begin()) : -1;
  }

  static int64_t framePts(const AVFrame* f) {
    return f->pts != AV_NOPTS_VALUE ? f->pts : f->best_effort_timestamp;
  }

  // Frame k converted by `convert`; frames decoded on the way go to `side`.
  template <typename Out, typename Convert>
  Out readAs(int k, Convert convert, const std::function<void(int, Out&&)>* side) {
    const int64_t target = times_[static_cast<size_t>(k)];
    // Decoding forward is cheaper than a seek for frames a little ahead.
    const bool ahead = next_ >= 0 && k >= next_ && k < next_ + kForwardWindow;
    if (!ahead) {
      const PacketInfo* key = keyFor(target);
      if (!key || !positionAt(*key)) restart();
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
      while (decodeNext()) {
        const int64_t pts = framePts(last_.get());
        const int index = indexOf(pts);
        if (index < 0) continue;
        next_ = index + 1;
        if (pts == target) return convert(last_.get());
        if (pts > target) break;
        if (side && *side) (*side)(index, convert(last_.get()));
      }
      restart();  // the frame did not come from there: decode from the start
    }
    throw MediaError(path_ + ": frame " + std::to_string(k) + " does not decode");
  }

  // Decodes the next frame in presentation order into last_; false at the end.
  bool decodeNext() {
    for (;;) {
      int err = avcodec_receive_frame(dec_.get(), frame_.get());
      if (err == 0) {
        if (frame_->width <= 0 || frame_->height <= 0) {
          av_frame_unref(frame_.get());
          throw MediaError(path_ + ": a decoded frame has no pixels");
        }
        av_frame_unref(last_.get());
        av_frame_move_ref(last_.get(), frame_.get());
        return true;
      }
      if (err == AVERROR_EOF) return false;
      // A damaged frame is left out and decoding goes on, as ffmpeg does.
      if (err == AVERROR_INVALIDDATA) continue;
      if (err != AVERROR(EAGAIN)) throw MediaError(path_ + ": decoding failed: " + avError(err));
      if (eof_) return false;
      if (skipUntil_) {
        av_packet_move_ref(packet_.get(), skipUntil_.get());
        skipUntil_.reset();
      } else if (av_read_frame(fmt_.get(), packet_.get()) < 0) {
        eof_ = true;
        avcodec_send_packet(dec_.get(), nullptr);
        continue;
      }
      if (packet_->stream_index == stream_) {
        err = avcodec_send_packet(dec_.get(), packet_.get());
        if (err < 0 && err != AVERROR(EAGAIN) && err != AVERROR_INVALIDDATA) {
          av_packet_unref(packet_.get());
          throw MediaError(path_ + ": decoding failed: " + avError(err));
        }
      }
      av_packet_unref(packet_.get());
    }
  }

  // 8-bit video converts to ARGB, also on its way to an RGBA picture:
  // swscale's vector converter to RGBA leaves the last pixels of rows whose
  // width is not a multiple of 16 unwritten, its converter to ARGB writes
  // every pixel (and saves the reordering pass into host pixels).
  Picture toPicture(const AVFrame* f) {
    if (!deep_) return fromHost(toArgb(f), SampleType::U8);
    Picture p(width_, height_, SampleType::U16);
    convert(f, AV_PIX_FMT_RGBA64LE, p.data.data(), p.rowBytes());
    if (orientation_ == 1) return p;
    const auto [w, h] = uprightSize(orientation_, width_, height_);
    Picture upright(w, h, SampleType::U16);
    orientPixels(orientation_, p.data.data(), p.rowBytes(), width_, height_, 8, upright.data.data(),
                 upright.rowBytes());
    return upright;
  }

  thost::Image toArgb(const AVFrame* f) {
    thost::Image image = thost::Image::unfilled(width_, height_, thost::Depth::Bits8, pixelPool);
    convert(f, AV_PIX_FMT_ARGB, image.pixels.data(), static_cast<size_t>(image.rowbytes));
    if (orientation_ == 1) return image;
    const auto [w, h] = uprightSize(orientation_, width_, height_);
    thost::Image upright = thost::Image::unfilled(w, h, thost::Depth::Bits8, pixelPool);
    orientPixels(orientation_, image.pixels.data(), static_cast<size_t>(image.rowbytes), width_, height_, 4,
                 upright.pixels.data(), static_cast<size_t>(upright.rowbytes));
    return upright;
  }

  // A stream may change size mid-way (or a damaged one claim another size):
  // every frame is scaled to the size the stream announced, as ffmpeg does.
  void convert(const AVFrame* f, AVPixelFormat dst, uint8_t* pixels, size_t rowBytes) {
    if (dst == AV_PIX_FMT_ARGB && f->width == width_ && f->height == height_ &&
        yuv420ToArgb(f, frameSpace(f), frameRange(f), pixels, rowBytes))
      return;
    const AVPixelFormat src = static_cast<AVPixelFormat>(f->format);
    SwsContext* s = sws_getCachedContext(sws_.release(), f->width, f->height, src, width_, height_, dst,
                                         kSwsFlags, nullptr, nullptr, nullptr);
    sws_.reset(s);
    if (!s) throw MediaError(path_ + ": cannot convert its pixel format");
    setColorDetails(s, src, dst, frameSpace(f), frameRange(f));
    uint8_t* dstData[4] = {pixels, nullptr, nullptr, nullptr};
    int dstStride[4] = {static_cast<int>(rowBytes), 0, 0, 0};
    sws_scale(s, f->data, f->linesize, 0, f->height, dstData, dstStride);
  }

  thost::Image toHostImage(const AVFrame* f, thost::Depth depth) {
    if (!deep_ && depth == thost::Depth::Bits8) return toArgb(f);
    return toHost(toPicture(f), depth, pixelPool);
  }

  int frameSpace(const AVFrame* f) const {
    return f->colorspace != AVCOL_SPC_UNSPECIFIED ? f->colorspace : tags_.colorSpace;
  }
  int frameRange(const AVFrame* f) const {
    return f->color_range != AVCOL_RANGE_UNSPECIFIED ? f->color_range : tags_.colorRange;
  }

  std::string path_;
  FormatPtr fmt_;
  CodecPtr dec_;
  FramePtr frame_;
  PacketPtr packet_;
  SwsPtr sws_;
  int stream_ = -1;
  Rate rate_;
  AVRational timeBase_{1, 1};
  bool deep_ = false;
  VideoTags tags_;
  int width_ = 0, height_ = 0;  // as stored, before the display matrix turns it
  int orientation_ = 1;
  PixelLayout layout_;
  int next_ = -1;  // index the decoder produces next; -1 while unknown
  bool eof_ = false;
  FramePtr last_;  // the frame decoded last
  std::vector<PacketInfo> packets_;  // the stream's packets in file order
  std::vector<int64_t> times_;       // frame k's presentation time, ascending
  PacketPtr skipUntil_;              // the packet a seek landed on, sent first
  bool truncated_ = false;
};

}  // namespace

std::optional<bool> stillByContent(const std::string& path) {
  av_log_set_level(AV_LOG_QUIET);  // the probe complains of damaged images; the reader says it in one line
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  std::vector<uint8_t> head(65536 + AVPROBE_PADDING_SIZE, 0);
  const size_t got = std::fread(head.data(), 1, 65536, file);
  std::fclose(file);
  if (got == 0) return std::nullopt;
  AVProbeData pd{};
  pd.filename = "";  // by content alone
  pd.buf = head.data();
  pd.buf_size = static_cast<int>(got);
  int score = 0;
  const AVInputFormat* f = av_probe_input_format3(&pd, 1, &score);
  if (!f) return true;  // not media libavformat knows: OpenImageIO may
  const std::string name = f->name;
  if (name == "webp_pipe" && isAnimatedWebp(path)) return false;  // a clip
  const bool image = name.size() > 5 && name.compare(name.size() - 5, 5, "_pipe") == 0;
  return image || name == "image2";
}

std::unique_ptr<FrameSource> openVideoSource(const std::string& path) {
  if (isAnimatedWebp(path)) return openAnimatedWebp(path);
  av_log_set_level(AV_LOG_QUIET);  // failures come back as one line of ours
  return std::make_unique<VideoSource>(path);
}

}  // namespace cli
