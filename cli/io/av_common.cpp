// What the video reader and writer share (see av_common.h).
#include "io/av_common.h"

#include <filesystem>

namespace cli::av {

std::string avError(int err) {
  char buf[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(err, buf, sizeof buf);
  return buf;
}

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

namespace {

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

}  // namespace

bool isRgbFormat(AVPixelFormat f) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
  return d && (d->flags & AV_PIX_FMT_FLAG_RGB);
}

void setColorDetails(SwsContext* sws, AVPixelFormat src, AVPixelFormat dst, int space, int range) {
  const int* coeffs = sws_getCoefficients(swsColorspace(space));
  const int full = range == AVCOL_RANGE_JPEG ? 1 : 0;
  const int srcRange = isRgbFormat(src) ? 1 : full;
  const int dstRange = isRgbFormat(dst) ? 1 : full;
  sws_setColorspaceDetails(sws, coeffs, srcRange, coeffs, dstRange, 0, 1 << 16, 1 << 16);
}

}  // namespace cli::av
