// Audio, subtitles, data and tags of the input carried into a video output.
#include "io/side_streams.h"

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cmath>
#include <cstdio>
#include <cstring>

namespace cli::av {

namespace {

struct SwrFreer {
  void operator()(SwrContext* s) const { swr_free(&s); }
};
struct FifoFreer {
  void operator()(AVAudioFifo* f) const { av_audio_fifo_free(f); }
};
struct ContextFreer {
  void operator()(AVFormatContext* c) const { avformat_free_context(c); }
};

const char* kindName(AVMediaType t) {
  switch (t) {
    case AVMEDIA_TYPE_AUDIO: return "audio";
    case AVMEDIA_TYPE_SUBTITLE: return "subtitle";
    case AVMEDIA_TYPE_DATA: return "data";
    case AVMEDIA_TYPE_ATTACHMENT: return "attachment";
    case AVMEDIA_TYPE_VIDEO: return "video";
    default: return "other";
  }
}

// Whether the muxer takes a stream of these parameters unchanged: its codec
// list first, then its own checks at set-up (MOV refuses Opus there), tried
// on a throwaway context that writes nothing.
bool muxerTakes(const AVOutputFormat* format, const AVStream* in) {
  const AVCodecParameters* par = in->codecpar;
  if (par->codec_type != AVMEDIA_TYPE_DATA && par->codec_type != AVMEDIA_TYPE_ATTACHMENT &&
      avformat_query_codec(format, par->codec_id, FF_COMPLIANCE_NORMAL) != 1)
    return false;
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, format, nullptr, nullptr) < 0 || !raw) return false;
  std::unique_ptr<AVFormatContext, ContextFreer> trial(raw);
  AVStream* st = avformat_new_stream(raw, nullptr);
  if (!st || avcodec_parameters_copy(st->codecpar, par) < 0) return false;
  st->codecpar->codec_tag = 0;
  st->time_base = AVRational{1, 90000};
  av_dict_copy(&st->metadata, in->metadata, 0);  // Matroska attachments need their file name and type
  // Set-up only, into memory; the header is never written.
  if (!(format->flags & AVFMT_NOFILE) && avio_open_dyn_buf(&raw->pb) < 0) return false;
  const int err = avformat_init_output(raw, nullptr);
  if (raw->pb) {
    uint8_t* bytes = nullptr;
    avio_close_dyn_buf(raw->pb, &bytes);
    av_free(bytes);
    raw->pb = nullptr;
  }
  return err >= 0;
}

// Tags that describe the input file's own encode, not its content.
bool staleTag(const char* key) {
  static const char* const stale[] = {"encoder", "DURATION", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "BPS",
                                      "_STATISTICS_WRITING_APP", "_STATISTICS_WRITING_DATE_UTC", "_STATISTICS_TAGS",
                                      "major_brand", "minor_version", "compatible_brands"};
  for (const char* s : stale)
    if (std::strncmp(key, s, std::strlen(s)) == 0) return true;
  return false;
}

void copyDict(AVDictionary** to, const AVDictionary* from) {
  const AVDictionaryEntry* e = nullptr;
  while ((e = av_dict_get(from, "", e, AV_DICT_IGNORE_SUFFIX)))
    if (!staleTag(e->key)) av_dict_set(to, e->key, e->value, 0);
}

}  // namespace

// One audio stream decoded, resampled to what the encoder takes and encoded.
class AudioEncoder {
 public:
  AudioEncoder(const AVStream* ist, const AVCodec* codec, AVFormatContext* oc, AVStream* ost,
               const std::string& outPath)
      : oc_(oc), ost_(ost), inBase_(ist->time_base), outPath_(outPath) {
    const AVCodec* decoder = avcodec_find_decoder(ist->codecpar->codec_id);
    if (!decoder) fail("no decoder for it");
    dec_.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(dec_.get(), ist->codecpar);
    dec_->pkt_timebase = ist->time_base;
    if (avcodec_open2(dec_.get(), decoder, nullptr) < 0) fail("cannot open its decoder");
    enc_.reset(avcodec_alloc_context3(codec));
    AVCodecContext* c = enc_.get();
    c->sample_rate = pickRate(codec, dec_->sample_rate);
    pickLayout(codec, dec_->ch_layout, &c->ch_layout);
    c->sample_fmt = pickFormat(codec, dec_->sample_fmt);
    c->time_base = AVRational{1, c->sample_rate};
    if (oc->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int err = avcodec_open2(c, codec, nullptr);
    if (err < 0) fail(std::string("cannot open the ") + codec->name + " encoder: " + avError(err));
    avcodec_parameters_from_context(ost->codecpar, c);
    ost->time_base = c->time_base;
    fifo_.reset(av_audio_fifo_alloc(c->sample_fmt, c->ch_layout.nb_channels, 4096));
    frame_.reset(av_frame_alloc());
    if (!fifo_ || !frame_) fail("out of memory");
  }

  // Decodes `pkt` (null drains everything) and writes what comes out;
  // `shift` input seconds are output time 0.
  void feed(const AVPacket* pkt, double shift) {
    if (avcodec_send_packet(dec_.get(), pkt) < 0 && pkt) return;  // a damaged packet is skipped, as ffmpeg does
    while (avcodec_receive_frame(dec_.get(), frame_.get()) == 0) {
      resample(frame_.get(), shift);
      av_frame_unref(frame_.get());
    }
    if (!pkt) {
      if (swr_) resample(nullptr, shift);
      drainFifo(true);
      encode(nullptr);
    }
  }

 private:
  [[noreturn]] void fail(const std::string& why) const {
    throw MediaError(outPath_ + ": cannot re-encode audio: " + why);
  }

  static int pickRate(const AVCodec* codec, int rate) {
    if (rate <= 0) rate = 48000;
    if (!codec->supported_samplerates) return rate;
    int best = 0;
    for (const int* r = codec->supported_samplerates; *r; ++r) {
      if (*r == rate) return rate;
      if (*r > rate && (best == 0 || *r < best)) best = *r;
    }
    return best ? best : codec->supported_samplerates[0];
  }

  static void pickLayout(const AVCodec* codec, const AVChannelLayout& in, AVChannelLayout* out) {
    AVChannelLayout want{};
    if (in.order == AV_CHANNEL_ORDER_UNSPEC || in.nb_channels <= 0)
      av_channel_layout_default(&want, in.nb_channels > 0 ? in.nb_channels : 2);
    else
      av_channel_layout_copy(&want, &in);
    const AVChannelLayout* pick = &want;
    if (codec->ch_layouts) {
      const AVChannelLayout* sameCount = nullptr;
      pick = nullptr;
      for (const AVChannelLayout* l = codec->ch_layouts; l->nb_channels; ++l) {
        if (!av_channel_layout_compare(l, &want)) pick = l;
        if (!sameCount && l->nb_channels == want.nb_channels) sameCount = l;
      }
      if (!pick) pick = sameCount ? sameCount : codec->ch_layouts;
    }
    av_channel_layout_copy(out, pick);
    av_channel_layout_uninit(&want);
  }

  static AVSampleFormat pickFormat(const AVCodec* codec, AVSampleFormat in) {
    if (!codec->sample_fmts) return in;
    for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
      if (*f == in) return in;
    return codec->sample_fmts[0];
  }

  // Converts a decoded frame (null: the resampler's rest) into the FIFO and
  // encodes every whole encoder frame it then holds.
  void resample(const AVFrame* f, double shift) {
    AVCodecContext* c = enc_.get();
    if (f && !swr_) {
      SwrContext* raw = nullptr;
      AVChannelLayout inLayout{};
      if (f->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&inLayout, f->ch_layout.nb_channels);
      else
        av_channel_layout_copy(&inLayout, &f->ch_layout);
      swr_alloc_set_opts2(&raw, &c->ch_layout, c->sample_fmt, c->sample_rate, &inLayout,
                          static_cast<AVSampleFormat>(f->format), f->sample_rate, 0, nullptr);
      av_channel_layout_uninit(&inLayout);
      swr_.reset(raw);
      if (!raw || swr_init(raw) < 0) fail("cannot convert its samples");
      const int64_t ts = f->pts != AV_NOPTS_VALUE ? f->pts : f->best_effort_timestamp;
      const double t = ts == AV_NOPTS_VALUE ? 0.0 : ts * av_q2d(inBase_) - shift;
      nextPts_ = std::llround(t * c->sample_rate);
    }
    if (!swr_) return;
    const int room = swr_get_out_samples(swr_.get(), f ? f->nb_samples : 0);
    if (room <= 0) return;
    uint8_t** planes = nullptr;
    if (av_samples_alloc_array_and_samples(&planes, nullptr, c->ch_layout.nb_channels, room, c->sample_fmt, 0) < 0)
      fail("out of memory");
    const int got = swr_convert(swr_.get(), planes, room, f ? const_cast<const uint8_t**>(f->extended_data) : nullptr,
                                f ? f->nb_samples : 0);
    if (got > 0) av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(planes), got);
    av_freep(&planes[0]);
    av_freep(&planes);
    drainFifo(false);
  }

  // Whole encoder frames out of the FIFO; with `all`, the short last one too.
  void drainFifo(bool all) {
    AVCodecContext* c = enc_.get();
    const bool anySize = (c->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || c->frame_size <= 0;
    const int size = anySize ? 1024 : c->frame_size;
    while (av_audio_fifo_size(fifo_.get()) >= size || (all && av_audio_fifo_size(fifo_.get()) > 0)) {
      const int n = std::min(size, av_audio_fifo_size(fifo_.get()));
      FramePtr out(av_frame_alloc());
      out->nb_samples = n;
      out->format = c->sample_fmt;
      out->sample_rate = c->sample_rate;
      av_channel_layout_copy(&out->ch_layout, &c->ch_layout);
      if (av_frame_get_buffer(out.get(), 0) < 0) fail("out of memory");
      av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(out->data), n);
      out->pts = nextPts_;
      nextPts_ += n;
      encode(out.get());
    }
  }

  void encode(const AVFrame* f) {
    int err = avcodec_send_frame(enc_.get(), f);
    if (err < 0 && err != AVERROR_EOF) fail(avError(err));
    PacketPtr pkt(av_packet_alloc());
    while ((err = avcodec_receive_packet(enc_.get(), pkt.get())) == 0) {
      av_packet_rescale_ts(pkt.get(), enc_->time_base, ost_->time_base);
      pkt->stream_index = ost_->index;
      err = av_interleaved_write_frame(oc_, pkt.get());
      if (err < 0) throw MediaError(outPath_ + ": cannot write audio: " + avError(err));
    }
  }

  AVFormatContext* oc_;
  AVStream* ost_;
  AVRational inBase_;
  std::string outPath_;
  CodecPtr dec_, enc_;
  std::unique_ptr<SwrContext, SwrFreer> swr_;
  std::unique_ptr<AVAudioFifo, FifoFreer> fifo_;
  FramePtr frame_;
  int64_t nextPts_ = 0;
};

// One text subtitle stream decoded and encoded again in the container's own
// text format (SubRip into MP4 becomes mov_text), as ffmpeg does.
class SubtitleEncoder {
 public:
  SubtitleEncoder(const AVStream* ist, const AVCodec* codec, AVFormatContext* oc, AVStream* ost,
                  const std::string& outPath)
      : oc_(oc), ost_(ost), outPath_(outPath) {
    const AVCodec* decoder = avcodec_find_decoder(ist->codecpar->codec_id);
    if (!decoder) fail("no decoder for it");
    dec_.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(dec_.get(), ist->codecpar);
    dec_->pkt_timebase = ist->time_base;
    if (avcodec_open2(dec_.get(), decoder, nullptr) < 0) fail("cannot open its decoder");
    enc_.reset(avcodec_alloc_context3(codec));
    enc_->time_base = AV_TIME_BASE_Q;
    if (dec_->subtitle_header) {
      // The encoder takes the styles the decoder describes (ASS), and frees them.
      enc_->subtitle_header = static_cast<uint8_t*>(av_mallocz(static_cast<size_t>(dec_->subtitle_header_size) + 1));
      if (!enc_->subtitle_header) fail("out of memory");
      std::memcpy(enc_->subtitle_header, dec_->subtitle_header, static_cast<size_t>(dec_->subtitle_header_size));
      enc_->subtitle_header_size = dec_->subtitle_header_size;
    }
    if (avcodec_open2(enc_.get(), codec, nullptr) < 0) fail(std::string("cannot open the ") + codec->name + " encoder");
    avcodec_parameters_from_context(ost->codecpar, enc_.get());
    ost->time_base = AVRational{1, 1000};
  }

  void feed(AVPacket* pkt, double shift) {
    AVSubtitle sub{};
    int got = 0;
    if (avcodec_decode_subtitle2(dec_.get(), &sub, &got, pkt) < 0 || !got) return;
    if (sub.pts == AV_NOPTS_VALUE) sub.pts = 0;
    sub.pts += av_rescale_q(sub.start_display_time, AVRational{1, 1000}, AV_TIME_BASE_Q);
    sub.pts -= std::llround(shift * AV_TIME_BASE);
    sub.end_display_time -= sub.start_display_time;
    sub.start_display_time = 0;
    std::vector<uint8_t> buf(1 << 16);
    const int size = avcodec_encode_subtitle(enc_.get(), buf.data(), static_cast<int>(buf.size()), &sub);
    PacketPtr out(av_packet_alloc());
    if (size > 0 && av_new_packet(out.get(), size) == 0) {
      std::memcpy(out->data, buf.data(), static_cast<size_t>(size));
      out->pts = out->dts = av_rescale_q(sub.pts, AV_TIME_BASE_Q, ost_->time_base);
      out->duration = av_rescale_q(sub.end_display_time, AVRational{1, 1000}, ost_->time_base);
      out->stream_index = ost_->index;
      const int err = av_interleaved_write_frame(oc_, out.get());
      avsubtitle_free(&sub);
      if (err < 0) throw MediaError(outPath_ + ": cannot write subtitles: " + avError(err));
      return;
    }
    avsubtitle_free(&sub);
  }

 private:
  [[noreturn]] void fail(const std::string& why) const {
    throw MediaError(outPath_ + ": cannot convert subtitles: " + why);
  }

  AVFormatContext* oc_;
  AVStream* ost_;
  std::string outPath_;
  CodecPtr dec_, enc_;
};

// The container's text subtitle encoder, for a text subtitle it cannot copy
// (MP4 and MOV name none, but hold mov_text).
const AVCodec* textSubtitleEncoder(const AVOutputFormat* format, const AVCodecParameters* par) {
  AVCodecID id = format->subtitle_codec;
  if (id == AV_CODEC_ID_NONE && avformat_query_codec(format, AV_CODEC_ID_MOV_TEXT, FF_COMPLIANCE_NORMAL) == 1)
    id = AV_CODEC_ID_MOV_TEXT;
  const AVCodecDescriptor* in = avcodec_descriptor_get(par->codec_id);
  const AVCodecDescriptor* out = avcodec_descriptor_get(id);
  if (!in || !out || !(in->props & AV_CODEC_PROP_TEXT_SUB) || !(out->props & AV_CODEC_PROP_TEXT_SUB)) return nullptr;
  return avcodec_find_encoder(id);
}

SideStreams::SideStreams(const std::string& from, const std::string& outPath, AVFormatContext* oc,
                         StreamRange range)
    : outPath_(outPath), oc_(oc), range_(range), in_(openInput(from)) {
  video_ = av_find_best_stream(in_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  // The output's video starts at 0 where the input's first frame is: other
  // streams move with it (transport streams start at 1.4 s, say).
  if (video_ >= 0) {
    const AVStream* v = in_->streams[video_];
    if (v->start_time != AV_NOPTS_VALUE) shift_ = v->start_time * av_q2d(v->time_base);
  }
  if (!range_.whole) shift_ += range_.start;
  routes_.resize(in_->nb_streams);
  for (unsigned i = 0; i < in_->nb_streams; ++i)
    if (static_cast<int>(i) != video_) addStream(i);
}

SideStreams::~SideStreams() = default;

void SideStreams::addStream(unsigned index) {
  AVStream* ist = in_->streams[index];
  const AVCodecParameters* par = ist->codecpar;
  const AVMediaType type = par->codec_type;
  // A QuickTime timecode track travels as the video stream's "timecode"
  // tag, from which the MOV and MP4 muxers write a track of their own.
  if (type == AVMEDIA_TYPE_DATA && par->codec_tag == MKTAG('t', 'm', 'c', 'd')) return;
  const bool copy = type != AVMEDIA_TYPE_VIDEO && muxerTakes(oc_->oformat, ist);
  const AVCodec* encoder = nullptr;
  if (!copy && type == AVMEDIA_TYPE_AUDIO && oc_->oformat->audio_codec != AV_CODEC_ID_NONE)
    encoder = avcodec_find_encoder(oc_->oformat->audio_codec);
  if (!copy && type == AVMEDIA_TYPE_SUBTITLE) encoder = textSubtitleEncoder(oc_->oformat, par);
  if (!copy && !encoder) {
    std::fprintf(stderr, "tesselux: warning: %s: %s stream %u (%s) cannot go into this container and is left out%s\n",
                 outPath_.c_str(), kindName(type), index, avcodec_get_name(par->codec_id),
                 type == AVMEDIA_TYPE_VIDEO                   ? " (only the first video is rendered)"
                 : std::strcmp(oc_->oformat->name, "matroska") ? "; write .mkv to keep it"
                                                               : "");
    return;
  }
  AVStream* ost = avformat_new_stream(oc_, nullptr);
  if (!ost) throw MediaError(outPath_ + ": cannot add a stream");
  copyDict(&ost->metadata, ist->metadata);
  ost->disposition = ist->disposition;
  Route& route = routes_[index];
  route.out = ost->index;
  if (copy) {
    avcodec_parameters_copy(ost->codecpar, par);
    ost->codecpar->codec_tag = 0;
    ost->time_base = ist->time_base;
    return;
  }
  if (type == AVMEDIA_TYPE_SUBTITLE)
    route.subtitles = std::make_unique<SubtitleEncoder>(ist, encoder, oc_, ost, outPath_);
  else
    route.encoder = std::make_unique<AudioEncoder>(ist, encoder, oc_, ost, outPath_);
}

void SideStreams::copyTags(AVStream* video) const {
  copyDict(&oc_->metadata, in_->metadata);
  if (video_ < 0) return;
  const AVStream* v = in_->streams[video_];
  copyDict(&video->metadata, v->metadata);
  video->disposition = v->disposition & ~AV_DISPOSITION_ATTACHED_PIC;
}

AVFieldOrder SideStreams::fieldOrder() const {
  return video_ >= 0 ? in_->streams[video_]->codecpar->field_order : AV_FIELD_UNKNOWN;
}

bool SideStreams::inRange(const AVPacket* pkt) const {
  if (range_.whole) return true;
  const AVStream* ist = in_->streams[pkt->stream_index];
  const int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
  if (ts == AV_NOPTS_VALUE) return true;
  const double t = ts * av_q2d(ist->time_base) - (shift_ - range_.start);
  return t >= range_.start && t < range_.end;
}

// Writes the pending packet (copied or re-encoded); false once its time is past `until`.
bool SideStreams::writeOne(AVPacket* pkt) {
  AVStream* ist = in_->streams[pkt->stream_index];
  Route& route = routes_[static_cast<size_t>(pkt->stream_index)];
  if (!inRange(pkt)) return true;
  if (route.encoder) {
    route.encoder->feed(pkt, shift_);
    return true;
  }
  if (route.subtitles) {
    route.subtitles->feed(pkt, shift_);
    return true;
  }
  AVStream* ost = oc_->streams[route.out];
  const int64_t shift = av_rescale_q(std::llround(shift_ * 1000000.0), AVRational{1, 1000000}, ist->time_base);
  if (pkt->pts != AV_NOPTS_VALUE) pkt->pts -= shift;
  if (pkt->dts != AV_NOPTS_VALUE) pkt->dts -= shift;
  av_packet_rescale_ts(pkt, ist->time_base, ost->time_base);
  pkt->stream_index = ost->index;
  pkt->pos = -1;
  const int err = av_interleaved_write_frame(oc_, pkt);
  if (err < 0) throw MediaError(outPath_ + ": cannot write " + kindName(ist->codecpar->codec_type) + ": " +
                                avError(err));
  return true;
}

void SideStreams::pump(double until) {
  if (done_) return;
  for (;;) {
    if (pending_) {
      AVStream* ist = in_->streams[pending_->stream_index];
      const int64_t ts = pending_->dts != AV_NOPTS_VALUE ? pending_->dts : pending_->pts;
      const double t = ts == AV_NOPTS_VALUE ? 0.0 : ts * av_q2d(ist->time_base) - shift_;
      if (t > until) return;
      writeOne(pending_.get());
      pending_.reset();
    }
    PacketPtr next(av_packet_alloc());
    for (;;) {
      if (av_read_frame(in_.get(), next.get()) < 0) {
        done_ = true;
        return;
      }
      const int i = next->stream_index;
      if (i >= 0 && static_cast<size_t>(i) < routes_.size() && routes_[static_cast<size_t>(i)].out >= 0) break;
      av_packet_unref(next.get());
    }
    pending_ = std::move(next);
  }
}

void SideStreams::finish() {
  pump(1e300);
  for (Route& r : routes_)
    if (r.encoder) r.encoder->feed(nullptr, shift_);
}

}  // namespace cli::av
