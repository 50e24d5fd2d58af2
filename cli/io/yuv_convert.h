// 8-bit 4:2:0 video to and from 8-bit RGB pixels through libyuv, whose vector
// converters take a fraction of the time of swscale's on these formats. Only
// BT.601 is taken, where libyuv's colours are swscale's within rounding;
// everything else (other matrices, chroma layouts and depths, a change of
// size) stays with swscale, and the callers fall back to it when these
// return false.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/frame.h>
}

namespace cli {

// A 4:2:0 frame (yuv420p or yuvj420p) of its own size into `argb` (A, R, G,
// B bytes per pixel), when `colorSpace` (an AVColorSpace) is BT.601 or one
// swscale takes as BT.601 (unspecified, unknown), in the range of
// `colorRange` (an AVColorRange).
bool yuv420ToArgb(const AVFrame* frame, int colorSpace, int colorRange, uint8_t* argb, size_t rowBytes);

// Pixels in A, R, G, B order (`argbOrder`) or R, G, B, A into the planes of a
// yuv420p frame already allocated at the pixels' size, as BT.601 in limited
// range: libyuv has no other matrix this way.
bool rgbToYuv420(const uint8_t* pixels, size_t rowBytes, bool argbOrder, int colorSpace, int colorRange,
                 AVFrame* frame);

}  // namespace cli
