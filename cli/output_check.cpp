#include "output_check.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <filesystem>
#include <system_error>

#include "io/media.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

constexpr char kFormats[] =
    "video .mp4 .mov .mkv .webm .avi ..., still .png .tif .exr .jpg ..., sequence frames/%04d.png";

void checkNotADirectoryOrDevice(const std::string& output, const std::string& file) {
  std::string dir = file;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  std::error_code ec;
  const fs::file_status st = fs::status(file, ec);
  if (fs::is_directory(st))
    throw MediaError(file + ": is a directory; give a file in it (" + dir + "/clip.mp4, " + dir + "/%04d.png)");
  if (!output.empty() && output.back() == '/')
    throw MediaError(output + ": names a directory (it ends with /); give a file in it (" + dir + "/clip.mp4, " +
                     dir + "/%04d.png)");
  if (fs::exists(st) && !fs::is_regular_file(st))
    throw MediaError(file + ": is not a regular file (a device, pipe or socket); the output is written "
                            "under a temporary name and renamed, so it must be a file (null: renders "
                            "and discards)");
}

}  // namespace

void checkOutputName(const std::string& output, const std::string& format) {
  const MediaKind kind = mediaKind(output);
  if (kind == MediaKind::Null) return;
  // Standard output: the muxer writes there, named by --format.
  if (output == "-" && !format.empty()) return;
  if (output == "-")
    throw MediaError("-: standard output needs --format (nut, matroska, y4m or another muxer), as it has no "
                     "extension to choose the format by");
  const std::string file = kind == MediaKind::Sequence ? sequenceName(output, 0) : output;
  checkNotADirectoryOrDevice(output, file);
  const std::string ext = fs::path(file).extension().string();
  if (ext.empty() || ext == ".")
    throw MediaError(output + ": has no extension to choose the output format by (" + kFormats + ")");
  if (kind == MediaKind::Video) return;
  // Stills and sequences: an extension FFmpeg's image writer knows names an
  // image format (OpenImageIO writes those); anything else is no format.
  const AVOutputFormat* byName = av_guess_format(nullptr, file.c_str(), nullptr);
  if (!byName || std::string(byName->name) != "image2")
    throw MediaError(output + ": unknown output format " + ext + " (" + kFormats + ")");
}

}  // namespace cli
