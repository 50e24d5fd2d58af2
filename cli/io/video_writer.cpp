// Videos written through FFmpeg's libraries: the container's default
// encoder (or the one asked for), the input's colour tags, and its audio.
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
#include "io/av_common.h"
#include "io/side_streams.h"
#include "io/webp_anim.h"
#include "io/yuv_convert.h"

namespace cli {

namespace {

using namespace av;


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

// The muxer --format names (y4m for yuv4mpegpipe, as its files are called),
// else the one for the path's extension.
AVFormatContext* openMuxer(const SinkSettings& s) {
  const std::string format = s.format == "y4m" ? "yuv4mpegpipe" : s.format;
  if (s.path == "-" && format.empty())
    throw MediaError("-o -: standard output needs --format (nut, matroska, y4m or another muxer ffmpeg -muxers lists)");
  AVFormatContext* raw = nullptr;
  const int err = avformat_alloc_output_context2(&raw, nullptr, format.empty() ? nullptr : format.c_str(),
                                                 s.path.c_str());
  if (err < 0 || !raw)
    throw MediaError(format.empty() ? s.path + ": no video muxer for this file type"
                                    : "--format " + s.format + ": no such muxer (ffmpeg -muxers lists them)");
  return raw;
}

// The extension files of this muxer have, for the choice of codec.
std::string muxerExtension(const AVOutputFormat* f) {
  const std::string name = f->name;
  if (name == "matroska") return ".mkv";
  if (name == "yuv4mpegpipe") return ".y4m";
  if (!f->extensions) return "";
  const std::string list = f->extensions;
  return "." + list.substr(0, list.find(','));
}

class VideoSink : public FrameSink {
  struct PreparedFrame : Prepared {
    FramePtr frame;
  };

 public:
  explicit VideoSink(const SinkSettings& s)
      : s_(s), toStdout_(s.path == "-"), tmp_(toStdout_ ? "pipe:1" : temporaryName(s.path)) {
    const std::filesystem::path dir = std::filesystem::path(s.path).parent_path();
    std::error_code ec;
    if (!dir.empty() && !std::filesystem::is_directory(dir, ec))
      throw MediaError(s.path + ": folder " + dir.string() + " does not exist");
    oc_ = openMuxer(s);
    const std::string ext = s.format.empty() ? lowerExt(s.path) : muxerExtension(oc_->oformat);
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

    // libavformat cannot open an animated WebP, which has nothing but frames.
    if (!s.audioFrom.empty() && !isAnimatedWebp(s.audioFrom)) {
      side_ = std::make_unique<SideStreams>(s.audioFrom, s.path, oc_,
                                            StreamRange{s.audioStart, s.audioEnd, s.wholeClip});
      side_->copyTags(st_);
    }
  }

  ~VideoSink() override {
    if (oc_) {
      if (opened_ && !committed_) av_write_trailer(oc_);
      if (oc_->pb) avio_closep(&oc_->pb);
      avformat_free_context(oc_);
    }
    if (!committed_ && !toStdout_) std::remove(tmp_.c_str());
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
    f->pts = nextPts(f);
    encode(f);
  }

  void commit() override {
    if (!opened_) throw MediaError(s_.path + ": no frames to write");
    encode(nullptr);
    if (side_) side_->finish();
    int err = av_write_trailer(oc_);
    committed_ = true;  // the trailer is written either way; nothing more to finish
    if (oc_->pb) avio_closep(&oc_->pb);
    if (err < 0) {
      if (!toStdout_) std::remove(tmp_.c_str());
      throw MediaError(s_.path + ": cannot finish the file: " + avError(err));
    }
    if (toStdout_) return;
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
    frame->pts = nextPts(frame);
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

  // Interlaced input stays interlaced, in its field order: the container's
  // tag, and the encoders that code fields (H.264, MPEG-2) told so.
  void setFieldOrder(AVCodecContext* c) {
    fields_ = side_ ? side_->fieldOrder() : AV_FIELD_UNKNOWN;
    if (fields_ == AV_FIELD_UNKNOWN) return;
    // x264 codes fields only at heights divisible by 4; elsewhere frames.
    if (std::strcmp(codec_->name, "libx264") == 0 && c->height % 4 != 0) fields_ = AV_FIELD_PROGRESSIVE;
    c->field_order = fields_;
    if (fields_ != AV_FIELD_PROGRESSIVE) c->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
  }

  // The frame's pts, and its colour tags and fields: some encoders (ProRes)
  // write the frame's own tags into the stream, not the context's.
  int64_t nextPts(AVFrame* f) {
    const AVCodecContext* c = enc_.get();
    f->color_range = c->color_range;
    f->color_primaries = c->color_primaries;
    f->color_trc = c->color_trc;
    f->colorspace = c->colorspace;
    f->chroma_location = c->chroma_sample_location;
    if (fields_ != AV_FIELD_UNKNOWN && fields_ != AV_FIELD_PROGRESSIVE) {
      f->interlaced_frame = 1;
      f->top_field_first = fields_ == AV_FIELD_TT || fields_ == AV_FIELD_TB;
    }
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
    setFieldOrder(c);
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
    // x264 codes top field first unless told otherwise.
    if (std::strcmp(codec_->name, "libx264") == 0 && (fields_ == AV_FIELD_BB || fields_ == AV_FIELD_BT))
      av_dict_set(&opts, "x264-params", "bff=1", 0);
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
      if (side_) side_->pump(t + 0.5);
      err = av_interleaved_write_frame(oc_, pkt.get());
      if (err < 0) throw MediaError(s_.path + ": cannot write: " + avError(err));
    }
  }

  SinkSettings s_;
  bool toStdout_;
  std::string tmp_;  // written, then renamed to the output; "pipe:1" for standard output
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
  AVFieldOrder fields_ = AV_FIELD_UNKNOWN;
  bool opened_ = false, committed_ = false;
  std::unique_ptr<SideStreams> side_;  // the input's other streams and tags
};

}  // namespace

bool videoMuxerFor(const std::string& path) {
  const AVOutputFormat* f = av_guess_format(nullptr, path.c_str(), nullptr);
  if (!f) return false;
  const std::string name = f->name;
  return name != "image2" && name != "image2pipe" && name != "apng";
}

std::unique_ptr<FrameSink> openVideoSink(const SinkSettings& settings) {
  av_log_set_level(AV_LOG_QUIET);  // failures come back as one line of ours
  return std::make_unique<VideoSink>(settings);
}

}  // namespace cli
