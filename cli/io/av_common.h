// What the video reader and writer share: owning pointers for FFmpeg's
// objects, error text, opening an input, and the YUV matrix both sides of a
// conversion use.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

#include "io/media.h"

namespace cli::av {

// Chroma interpolated bilinearly on swscale's SIMD paths (exact rounding would
// take the slow C ones); deterministic from run to run, as the tests need.
constexpr int kSwsFlags = SWS_BILINEAR;

std::string avError(int err);

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

// The file opened and its streams probed; MediaError naming it otherwise.
FormatPtr openInput(const std::string& path);

bool isRgbFormat(AVPixelFormat f);

// Sets the YUV matrix and range both sides of a conversion use.
void setColorDetails(SwsContext* sws, AVPixelFormat src, AVPixelFormat dst, int space, int range);

}  // namespace cli::av
