// Videos through FFmpeg's libraries: random-access decoding (seeking back to a
// key frame when a frame is not just ahead) and encoding with audio copied.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "av_log_capture.h"
#include "io/media.h"
#include "io/yuv_convert.h"

namespace cli {

namespace {

// Chroma interpolated bilinearly on swscale's SIMD paths (exact rounding would
// take the slow C ones); deterministic from run to run, as the tests need.
constexpr int kSwsFlags = SWS_BILINEAR;

std::string avError(int err) {
  char buf[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(err, buf, sizeof buf);
  return buf;
}

struct FormatCloser {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsFreer {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using FormatPtr = std::unique_ptr<AVFormatContext, FormatCloser>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using SwsPtr = std::unique_ptr<SwsContext, SwsFreer>;
struct BufferPoolFreer {
  // Buffers still out keep the pool's memory until they come back.
  void operator()(AVBufferPool* p) const { av_buffer_pool_uninit(&p); }
};
using BufferPoolPtr = std::unique_ptr<AVBufferPool, BufferPoolFreer>;

FormatPtr openInput(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw MediaError(path + ": is a directory, not a video");
  if (!std::filesystem::exists(path, ec)) throw MediaError(path + ": no such file");
  AVFormatContext* raw = nullptr;
  int err = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
  if (err < 0) throw MediaError(path + ": cannot open as a video: " + avError(err));
  FormatPtr fmt(raw);
  err = avformat_find_stream_info(fmt.get(), nullptr);
  if (err < 0) throw MediaError(path + ": cannot read stream information: " + avError(err));
  return fmt;
}

int swsColorspace(int avSpace) {
  switch (avSpace) {
    case AVCOL_SPC_BT709: return SWS_CS_ITU709;
    case AVCOL_SPC_FCC: return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M: return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M: return SWS_CS_ITU601;
    default: return SWS_CS_DEFAULT;
  }
}

bool isRgbFormat(AVPixelFormat f) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
  return d && (d->flags & AV_PIX_FMT_FLAG_RGB);
}

// Sets the YUV matrix and range both sides of a conversion use.
void setColorDetails(SwsContext* sws, AVPixelFormat src, AVPixelFormat dst, int space, int range) {
  const int* coeffs = sws_getCoefficients(swsColorspace(space));
  const int full = range == AVCOL_RANGE_JPEG ? 1 : 0;
  const int srcRange = isRgbFormat(src) ? 1 : full;
  const int dstRange = isRgbFormat(dst) ? 1 : full;
  sws_setColorspaceDetails(sws, coeffs, srcRange, coeffs, dstRange, 0, 1 << 16, 1 << 16);
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
    frame_.reset(av_frame_alloc());
    last_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    // Read before the index pass, which may open the file again and free `st`.
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
  std::pair<int, int> frameSize(int) const override { return {width_, height_}; }
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
    return p;
  }

  thost::Image toArgb(const AVFrame* f) {
    thost::Image image = thost::Image::unfilled(width_, height_, thost::Depth::Bits8, pixelPool);
    convert(f, AV_PIX_FMT_ARGB, image.pixels.data(), static_cast<size_t>(image.rowbytes));
    return image;
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
  int width_ = 0, height_ = 0;
  int next_ = -1;  // index the decoder produces next; -1 while unknown
  bool eof_ = false;
  FramePtr last_;  // the frame decoded last
  std::vector<PacketInfo> packets_;  // the stream's packets in file order
  std::vector<int64_t> times_;       // frame k's presentation time, ascending
  PacketPtr skipUntil_;              // the packet a seek landed on, sent first
  bool truncated_ = false;
};

// The encoders a container gets by default, and their pixel formats.
struct CodecChoice {
  std::string name;
  AVPixelFormat pixfmt;
};

std::string lowerExt(const std::string& path) {
  std::string e = std::filesystem::path(path).extension().string();
  for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return e;
}

bool supports(const AVCodec* codec, AVPixelFormat f) {
  if (!codec->pix_fmts) return true;
  for (const AVPixelFormat* p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; ++p)
    if (*p == f) return true;
  return false;
}

// The video encoder a container gets without --codec: ffmpeg's choice
// (H.264 where it is the muxer's, VP9 for WebM, raw frames for y4m, a GIF),
// except ProRes 4444 for .mov and FFV1 for .mkv, which keep alpha and depth.
std::string defaultCodec(const std::string& ext, const AVOutputFormat* muxer) {
  if (ext == ".mov") return "prores_ks";
  if (ext == ".mkv") return "ffv1";
  if (ext == ".webm") return "libvpx-vp9";
  if (ext == ".y4m") return "wrapped_avframe";
  const AVCodecID id = muxer ? muxer->video_codec : AV_CODEC_ID_NONE;
  if (id == AV_CODEC_ID_NONE || id == AV_CODEC_ID_H264) return "libx264";
  const AVCodec* codec = avcodec_find_encoder(id);
  return codec ? codec->name : "libx264";
}

// 4:2:0 and 4:2:2 keep one chroma sample per 2 pixels: refuse sizes they
// cannot hold with the cause and the ways out, before the encoder's own
// "Generic error".
void checkChromaFit(const std::string& path, const std::string& codec, AVPixelFormat f, int width, int height) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
  if (!d) return;
  const bool oddW = d->log2_chroma_w > 0 && width % 2 != 0, oddH = d->log2_chroma_h > 0 && height % 2 != 0;
  if (!oddW && !oddH) return;
  throw MediaError(path + ": the frames are " + std::to_string(width) + " x " + std::to_string(height) + ", but " +
                   codec + " writes " + av_get_pix_fmt_name(f) + ", which needs an even " +
                   (oddW && oddH ? "width and height" : oddW ? "width" : "height") +
                   "; crop or scale the input to an even size, or write .mkv (FFV1) or .mov (ProRes 4444), "
                   "which keep any size");
}

class VideoSink : public FrameSink {
  struct PreparedFrame : Prepared {
    FramePtr frame;
  };

 public:
  explicit VideoSink(const SinkSettings& s) : s_(s), tmp_(temporaryName(s.path)) {
    const std::filesystem::path dir = std::filesystem::path(s.path).parent_path();
    std::error_code ec;
    if (!dir.empty() && !std::filesystem::is_directory(dir, ec))
      throw MediaError(s.path + ": folder " + dir.string() + " does not exist");
    AVFormatContext* raw = nullptr;
    int err = avformat_alloc_output_context2(&raw, nullptr, nullptr, s.path.c_str());
    if (err < 0 || !raw) throw MediaError(s.path + ": no video muxer for this file type");
    oc_ = raw;

    const std::string ext = lowerExt(s.path);
    const bool deep = s.depth != thost::Depth::Bits8;
    std::string codecName = s.codec;
    if (codecName.empty()) codecName = defaultCodec(ext, oc_->oformat);
    const AVCodec* codec = avcodec_find_encoder_by_name(codecName.c_str());
    if (!codec) throw MediaError("--codec: no encoder named '" + codecName + "'");
    if (codec->type != AVMEDIA_TYPE_VIDEO) throw MediaError("--codec: '" + codecName + "' is not a video encoder");

    // What the encoder is fed: straight RGBA, 16-bit where the codec keeps more than 8 bits.
    AVPixelFormat pixfmt = AV_PIX_FMT_NONE;
    if (codecName == "libx264" || codecName == "libx265" || codecName == "libvpx-vp9" || codecName == "libvpx") {
      pixfmt = AV_PIX_FMT_YUV420P;
      deepInput_ = false;
    } else if ((codec->id == AV_CODEC_ID_RAWVIDEO || codec->id == AV_CODEC_ID_WRAPPED_AVFRAME) && !codec->pix_fmts) {
      pixfmt = AV_PIX_FMT_YUV420P;  // what y4m players take, as ffmpeg writes it
      deepInput_ = false;
    } else if (codec->id == AV_CODEC_ID_PRORES) {
      pixfmt = AV_PIX_FMT_YUVA444P10LE;
      deepInput_ = true;
    } else if (codec->id == AV_CODEC_ID_FFV1) {
      pixfmt = deep && supports(codec, AV_PIX_FMT_GBRAP16LE) ? AV_PIX_FMT_GBRAP16LE : AV_PIX_FMT_BGRA;
      deepInput_ = pixfmt == AV_PIX_FMT_GBRAP16LE;
    } else {
      deepInput_ = deep;
      pixfmt = avcodec_find_best_pix_fmt_of_list(codec->pix_fmts, deep ? AV_PIX_FMT_RGBA64LE : AV_PIX_FMT_RGBA, 1,
                                                 nullptr);
      if (pixfmt == AV_PIX_FMT_NONE) pixfmt = AV_PIX_FMT_YUV420P;
    }
    if (!supports(codec, pixfmt)) throw MediaError("--codec: '" + codecName + "' cannot take the frames' pixel format");
    pixfmt_ = pixfmt;

    enc_.reset(avcodec_alloc_context3(codec));
    codec_ = codec;
    st_ = avformat_new_stream(oc_, nullptr);
    if (!st_) throw MediaError(s.path + ": cannot add a video stream");

    if (!s.audioFrom.empty()) openAudio();
  }

  ~VideoSink() override {
    if (oc_) {
      if (opened_ && !committed_) av_write_trailer(oc_);
      if (oc_->pb) avio_closep(&oc_->pb);
      avformat_free_context(oc_);
    }
    if (!committed_) std::remove(tmp_.c_str());
  }

  SampleType sampleType() const override { return deepInput_ ? SampleType::U16 : SampleType::U8; }

  void write(const Picture& p) override {
    if (!opened_) open(p.width, p.height);
    encodeFrom(p.width, p.height, p.data.data(), p.rowBytes());
  }

  // 8-bit host pixels are converted straight from ARGB, without a reordered copy first.
  bool takesHost(thost::Depth depth) const override { return depth == thost::Depth::Bits8 && !deepInput_; }
  void writeHost(const thost::Image& image) override {
    if (const auto prepared = prepareHost(image)) return writePrepared(*prepared);
    FrameSink::writeHost(image);
  }

  // 8-bit host pixels converted for the encoder here, on the caller's thread
  // (in the command, the render's, many frames at once): by libyuv for 4:2:0 BT.601 limited range, else by
  // swscale with a context of this thread's own while it converts.
  std::shared_ptr<Prepared> prepareHost(const thost::Image& image) const override {
    if (!takesHost(image.depth) || image.width <= 0 || image.height <= 0) return nullptr;
    auto p = std::make_shared<PreparedFrame>();
    p->frame.reset(av_frame_alloc());
    if (!p->frame) throw MediaError(s_.path + ": out of memory for a frame");
    AVFrame* f = p->frame.get();
    f->format = pixfmt_;
    f->width = image.width;
    f->height = image.height;
    // Planes from a pool: frames come and go at the frame rate, and fresh
    // memory for each would fault its pages in every time.
    AVBufferRef* planes = nullptr;
    {
      std::lock_guard<std::mutex> lock(preparedMutex_);
      if (!planes_) {
        const int bytes = av_image_get_buffer_size(pixfmt_, image.width, image.height, kPlaneAlign);
        if (bytes > 0) {
          planes_.reset(av_buffer_pool_init(static_cast<size_t>(bytes) + kPlanePadding, nullptr));
          planesW_ = image.width;
          planesH_ = image.height;
        }
      }
      if (planes_ && planesW_ == image.width && planesH_ == image.height) planes = av_buffer_pool_get(planes_.get());
    }
    if (planes) {
      f->buf[0] = planes;
      if (av_image_fill_arrays(f->data, f->linesize, planes->data, pixfmt_, image.width, image.height,
                               kPlaneAlign) < 0)
        throw MediaError(s_.path + ": cannot lay out a frame");
    } else if (av_frame_get_buffer(f, 0) < 0) {
      throw MediaError(s_.path + ": out of memory for a frame");
    }
    const VideoTags t = s_.tags.value_or(VideoTags{});
    if (pixfmt_ == AV_PIX_FMT_YUV420P &&
        rgbToYuv420(image.pixels.data(), static_cast<size_t>(image.rowbytes), true, t.colorSpace, t.colorRange, f))
      return p;
    SwsPtr sws = takeConverter(image.width, image.height);
    const uint8_t* srcData[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    const int srcStride[4] = {static_cast<int>(image.rowbytes), 0, 0, 0};
    sws_scale(sws.get(), srcData, srcStride, 0, image.height, f->data, f->linesize);
    giveConverter(std::move(sws), image.width, image.height);
    return p;
  }

  void writePrepared(const Prepared& prepared) override {
    AVFrame* f = static_cast<const PreparedFrame&>(prepared).frame.get();
    if (!opened_) open(f->width, f->height);
    if (f->width != width_ || f->height != height_)
      throw MediaError(s_.path + ": frames differ in size; a video needs one size (write an image sequence)");
    f->pts = nextPts();
    encode(f);
  }

  void commit() override {
    if (!opened_) throw MediaError(s_.path + ": no frames to write");
    encode(nullptr);
    pumpAudio(1e300);
    int err = av_write_trailer(oc_);
    committed_ = true;  // the trailer is written either way; nothing more to finish
    if (oc_->pb) avio_closep(&oc_->pb);
    if (err < 0) {
      std::remove(tmp_.c_str());
      throw MediaError(s_.path + ": cannot finish the file: " + avError(err));
    }
    if (std::rename(tmp_.c_str(), s_.path.c_str()) != 0) {
      std::remove(tmp_.c_str());
      throw MediaError(s_.path + ": cannot rename into place: " + std::strerror(errno));
    }
  }

 private:
  // A converter from 8-bit host pixels of this size, for one thread's use.
  SwsPtr takeConverter(int width, int height) const {
    {
      std::lock_guard<std::mutex> lock(preparedMutex_);
      if (!freeConverters_.empty() && planesW_ == width && planesH_ == height) {
        SwsPtr sws = std::move(freeConverters_.back());
        freeConverters_.pop_back();
        return sws;
      }
    }
    return converterFrom(AV_PIX_FMT_ARGB, width, height);
  }
  void giveConverter(SwsPtr sws, int width, int height) const {
    std::lock_guard<std::mutex> lock(preparedMutex_);
    if (planesW_ == width && planesH_ == height) freeConverters_.push_back(std::move(sws));
  }

  // From src pixels at the opened size (or the size given) to the encoder's,
  // in the input's colour tags.
  SwsPtr converterFrom(AVPixelFormat src, int width = 0, int height = 0) const {
    if (width <= 0 || height <= 0) width = width_, height = height_;
    SwsPtr sws(sws_getContext(width, height, src, width, height, pixfmt_, kSwsFlags, nullptr, nullptr,
                              nullptr));
    if (!sws) throw MediaError(s_.path + ": cannot convert frames for the encoder");
    const VideoTags t = s_.tags.value_or(VideoTags{});
    setColorDetails(sws.get(), src, pixfmt_, t.colorSpace,
                    isRgbFormat(pixfmt_) ? AVCOL_RANGE_JPEG : t.colorRange);
    return sws;
  }

  // File pictures (R, G, B, A, 8 or 16 bits) into the encoder.
  void encodeFrom(int width, int height, const uint8_t* pixels, size_t rowBytes) {
    if (width != width_ || height != height_)
      throw MediaError(s_.path + ": frames differ in size; a video needs one size (write an image sequence)");
    // One frame, reused: the encoder copies or references what it keeps, and
    // make_writable gives a fresh buffer only while it still holds this one.
    // A new frame each time would cost its page faults every frame.
    if (!frame_) {
      frame_.reset(av_frame_alloc());
      if (!frame_) throw MediaError(s_.path + ": out of memory for a frame");
      frame_->format = pixfmt_;
      frame_->width = width_;
      frame_->height = height_;
      if (av_frame_get_buffer(frame_.get(), 0) < 0) throw MediaError(s_.path + ": out of memory for a frame");
    } else if (av_frame_make_writable(frame_.get()) < 0) {
      throw MediaError(s_.path + ": out of memory for a frame");
    }
    AVFrame* const frame = frame_.get();
    const VideoTags t = s_.tags.value_or(VideoTags{});
    if (deepInput_ || !rgbToYuv420(pixels, rowBytes, false, t.colorSpace, t.colorRange, frame)) {
      const uint8_t* srcData[4] = {pixels, nullptr, nullptr, nullptr};
      const int srcStride[4] = {static_cast<int>(rowBytes), 0, 0, 0};
      sws_scale(sws_.get(), srcData, srcStride, 0, height_, frame->data, frame->linesize);
    }
    frame->pts = nextPts();
    encode(frame);
  }

  // Frame times are kept where the input's are not on its average rate's
  // grid (variable frame rate) and the encoder and container hold any time;
  // elsewhere frames follow one another at the rate.
  bool keepsTimes() const {
    const auto& t = s_.frameTimes;
    if (t.size() < 2 || (oc_->oformat->flags & AVFMT_NOTIMESTAMPS)) return false;
    const std::string name = codec_->name;
    if (name != "libx264" && name != "libx265" && name != "libvpx-vp9" && name != "libvpx" && name != "ffv1" &&
        name != "prores_ks")
      return false;
    const double step = static_cast<double>(s_.rate.den) / s_.rate.num;
    for (size_t i = 0; i < t.size(); ++i)
      if (std::fabs(t[i] - static_cast<double>(i) * step) > step / 4) return true;
    return false;
  }

  int64_t nextPts() {
    const int64_t i = pts_++;
    if (!timed_ || i >= static_cast<int64_t>(s_.frameTimes.size())) return i;
    return std::llround(s_.frameTimes[static_cast<size_t>(i)] * kTimedScale);
  }

  void open(int width, int height) {
    checkChromaFit(s_.path, codec_->name, pixfmt_, width, height);
    width_ = width;
    height_ = height;
    AVCodecContext* c = enc_.get();
    c->width = width;
    c->height = height;
    c->pix_fmt = pixfmt_;
    timed_ = keepsTimes();
    c->time_base = timed_ ? AVRational{1, kTimedScale} : AVRational{s_.rate.den, s_.rate.num};
    c->framerate = AVRational{s_.rate.num, s_.rate.den};
    c->thread_count = 0;
    const VideoTags t = s_.tags.value_or(VideoTags{});
    const bool rgb = isRgbFormat(pixfmt_);
    if (s_.tags) {
      c->color_range = rgb ? AVCOL_RANGE_JPEG : static_cast<AVColorRange>(t.colorRange);
      c->color_primaries = static_cast<AVColorPrimaries>(t.colorPrimaries);
      c->color_trc = static_cast<AVColorTransferCharacteristic>(t.colorTrc);
      c->colorspace = rgb ? AVCOL_SPC_RGB : static_cast<AVColorSpace>(t.colorSpace);
      c->chroma_sample_location = static_cast<AVChromaLocation>(t.chromaLocation);
      if (t.sarNum > 0) c->sample_aspect_ratio = AVRational{t.sarNum, t.sarDen};
    }
    if (oc_->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* opts = nullptr;
    if (av_opt_find(c->priv_data, "crf", nullptr, 0, 0))
      av_dict_set(&opts, "crf", std::to_string(s_.crf).c_str(), 0);
    if (codec_->id == AV_CODEC_ID_PRORES) av_dict_set(&opts, "profile", "4444", 0);
    if (s_.quiet) quietEncoder(codec_->name, &opts);
    AvLogCapture said;  // an encoder that refuses its settings logs why
    int err = avcodec_open2(c, codec_, &opts);
    av_dict_free(&opts);
    if (err < 0)
      throw MediaError(withLibraryReason(s_.path + ": the " + codec_->name + " encoder refuses its settings", said,
                                         avError(err)));
    avcodec_parameters_from_context(st_->codecpar, c);
    st_->time_base = c->time_base;
    st_->avg_frame_rate = c->framerate;
    st_->sample_aspect_ratio = c->sample_aspect_ratio;

    sws_ = converterFrom(deepInput_ ? AV_PIX_FMT_RGBA64LE : AV_PIX_FMT_RGBA);

    if (!(oc_->oformat->flags & AVFMT_NOFILE)) {
      err = avio_open(&oc_->pb, tmp_.c_str(), AVIO_FLAG_WRITE);
      if (err < 0) throw MediaError(s_.path + ": cannot create the file: " + avError(err));
    }
    err = avformat_write_header(oc_, nullptr);
    if (err < 0) throw MediaError(withLibraryReason(s_.path + ": cannot write the header", said, avError(err)));
    opened_ = true;
  }

  void encode(AVFrame* frame) {
    int err = avcodec_send_frame(enc_.get(), frame);
    if (err < 0) throw MediaError(s_.path + ": encoding failed: " + avError(err));
    PacketPtr pkt(av_packet_alloc());
    for (;;) {
      err = avcodec_receive_packet(enc_.get(), pkt.get());
      if (err == AVERROR(EAGAIN) || err == AVERROR_EOF) return;
      if (err < 0) throw MediaError(s_.path + ": encoding failed: " + avError(err));
      av_packet_rescale_ts(pkt.get(), enc_->time_base, st_->time_base);
      pkt->stream_index = st_->index;
      const double t = pkt->dts != AV_NOPTS_VALUE ? pkt->dts * av_q2d(st_->time_base) : 0.0;
      pumpAudio(t + 0.5);
      err = av_interleaved_write_frame(oc_, pkt.get());
      if (err < 0) throw MediaError(s_.path + ": cannot write: " + avError(err));
    }
  }

  // Audio: packets of every audio stream of the input, copied unchanged.
  void openAudio() {
    FormatPtr in = openInput(s_.audioFrom);
    for (unsigned i = 0; i < in->nb_streams; ++i) {
      AVStream* ist = in->streams[i];
      if (ist->codecpar->codec_type != AVMEDIA_TYPE_AUDIO) continue;
      if (avformat_query_codec(oc_->oformat, ist->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 1) {
        // Not re-encoded yet: say so rather than lose it unnoticed.
        std::fprintf(stderr, "tesselux: warning: %s: audio stream %u (%s) cannot go into this container and is "
                     "left out; write .mkv to keep it\n", s_.path.c_str(), i,
                     avcodec_get_name(ist->codecpar->codec_id));
        continue;
      }
      AVStream* ost = avformat_new_stream(oc_, nullptr);
      if (!ost) continue;
      avcodec_parameters_copy(ost->codecpar, ist->codecpar);
      ost->codecpar->codec_tag = 0;
      ost->time_base = ist->time_base;
      audioMap_.resize(in->nb_streams, -1);
      audioMap_[i] = ost->index;
    }
    if (!audioMap_.empty()) audioIn_ = std::move(in);
  }

  void pumpAudio(double until) {
    if (!audioIn_ || audioDone_) return;
    PacketPtr pkt(av_packet_alloc());
    for (;;) {
      if (pending_) {
        AVStream* ist = audioIn_->streams[pending_->stream_index];
        const int64_t ts = pending_->dts != AV_NOPTS_VALUE ? pending_->dts : pending_->pts;
        const double t = ts == AV_NOPTS_VALUE ? 0.0 : ts * av_q2d(ist->time_base) - s_.audioStart;
        if (t > until) return;
        const double pts = (pending_->pts != AV_NOPTS_VALUE ? pending_->pts : ts) * av_q2d(ist->time_base);
        const bool inRange = s_.wholeClip || (pts >= s_.audioStart && pts < s_.audioEnd);
        if (inRange) {
          AVStream* ost = oc_->streams[audioMap_[static_cast<size_t>(pending_->stream_index)]];
          const int64_t shift = s_.wholeClip ? 0 : av_rescale_q(std::llround(s_.audioStart * 1000000.0),
                                                                AVRational{1, 1000000}, ist->time_base);
          if (pending_->pts != AV_NOPTS_VALUE) pending_->pts -= shift;
          if (pending_->dts != AV_NOPTS_VALUE) pending_->dts -= shift;
          av_packet_rescale_ts(pending_.get(), ist->time_base, ost->time_base);
          pending_->stream_index = ost->index;
          pending_->pos = -1;
          int err = av_interleaved_write_frame(oc_, pending_.get());
          if (err < 0) throw MediaError(s_.path + ": cannot write audio: " + avError(err));
        }
        pending_.reset();
      }
      PacketPtr next(av_packet_alloc());
      for (;;) {
        if (av_read_frame(audioIn_.get(), next.get()) < 0) {
          audioDone_ = true;
          return;
        }
        const int i = next->stream_index;
        if (i >= 0 && static_cast<size_t>(i) < audioMap_.size() && audioMap_[static_cast<size_t>(i)] >= 0) break;
        av_packet_unref(next.get());
      }
      pending_ = std::move(next);
    }
  }

  SinkSettings s_;
  std::string tmp_;
  AVFormatContext* oc_ = nullptr;
  const AVCodec* codec_ = nullptr;
  CodecPtr enc_;
  AVStream* st_ = nullptr;
  SwsPtr sws_;
  FramePtr frame_;  // the frame handed to the encoder
  // Prepared frames: planes of the first prepared frame's size, and swscale
  // contexts from 8-bit host pixels at that size, each used by one thread at
  // a time. kPlanePadding: room for vector writes past the last row.
  static constexpr int kPlaneAlign = 64;
  static constexpr size_t kPlanePadding = 256;
  mutable std::mutex preparedMutex_;
  mutable BufferPoolPtr planes_;
  mutable int planesW_ = 0, planesH_ = 0;
  mutable std::vector<SwsPtr> freeConverters_;
  AVPixelFormat pixfmt_ = AV_PIX_FMT_NONE;
  bool deepInput_ = false;
  int width_ = 0, height_ = 0;
  int64_t pts_ = 0;
  static constexpr int kTimedScale = 90000;  // ticks a second of kept frame times
  bool timed_ = false;
  bool opened_ = false, committed_ = false;
  FormatPtr audioIn_;
  std::vector<int> audioMap_;
  PacketPtr pending_;
  bool audioDone_ = false;
};

}  // namespace

bool videoMuxerFor(const std::string& path) {
  const AVOutputFormat* f = av_guess_format(nullptr, path.c_str(), nullptr);
  if (!f) return false;
  const std::string name = f->name;
  return name != "image2" && name != "image2pipe" && name != "apng";
}

std::optional<bool> stillByContent(const std::string& path) {
  // OpenImageIO may hand a still it cannot read to its FFmpeg reader next,
  // whose log would add lines to our one error line.
  av_log_set_level(AV_LOG_QUIET);
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
  const AvLogCapture quiet;  // the probers' complaints about what they rejected are no error of ours
  const AVInputFormat* f = av_probe_input_format3(&pd, 1, &score);
  if (!f) return true;  // not media libavformat knows: OpenImageIO may
  const std::string name = f->name;
  const bool image = name.size() > 5 && name.compare(name.size() - 5, 5, "_pipe") == 0;
  return image || name == "image2";
}

std::unique_ptr<FrameSource> openVideoSource(const std::string& path) {
  av_log_set_level(AV_LOG_QUIET);  // failures come back as one line of ours
  return std::make_unique<VideoSource>(path);
}

std::unique_ptr<FrameSink> openVideoSink(const SinkSettings& settings) {
  av_log_set_level(AV_LOG_QUIET);  // failures come back as one line of ours
  return std::make_unique<VideoSink>(settings);
}

}  // namespace cli
