// Still images are encoded and decoded by OpenImageIO in a module of their
// own, loaded the first time a clip has a still in it: linked into the command,
// OpenImageIO and the 250-odd libraries it pulls in cost every start about
// 0.3 s, videos and `info` included.
#pragma once

#include <memory>
#include <string>

#include "io/media.h"

namespace cli {

struct ImageHeader {
  int width = 0, height = 0;
  SampleType type = SampleType::U8;
  PixelLayout layout;
};

// Failures are thrown as MediaError naming the file.
class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  virtual ImageHeader readHeader(const std::string& path) const = 0;
  // Straight RGBA in the file's sample type (half as float), upright (its
  // EXIF orientation applied; the header gives the upright size).
  virtual Picture readPicture(const std::string& path) const = 0;
  // Writes `picture` into the file `tmp`, the format chosen by `final`'s
  // extension; `final` names the file in messages. A failed write removes `tmp`.
  // With `keep`, its channels and half floats where the format holds them;
  // otherwise RGBA where the format holds alpha.
  virtual void write(const std::string& tmp, const std::string& final, const Picture& picture,
                     const PixelLayout* keep) const = 0;
};

// The module's codec, loaded on first use from TESSELUX_IMAGE_MODULE, else
// lib/tesselux_images.so beside the command's bin/, else where the build put
// it. The module stays loaded until the process ends (OpenImageIO keeps
// threads and exit handlers); the pointer only keeps the load counted.
std::shared_ptr<const ImageCodec> loadImageCodec();

}  // namespace cli

// The module's one exported symbol.
extern "C" const cli::ImageCodec* tesselux_image_codec();
