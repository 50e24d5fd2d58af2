// The still-image codec module: OpenImageIO reads and writes every still.
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "io/image_codec.h"
#include "io/orientation.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

std::string extensionOf(const std::string& path) {
  std::string s = fs::path(path).extension().string();
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string firstLine(const std::string& s) {
  return s.empty() ? std::string("unknown error") : s.substr(0, s.find('\n'));
}

SampleType typeOf(const OIIO::TypeDesc& t) {
  if (t.basetype == OIIO::TypeDesc::UINT8 || t.basetype == OIIO::TypeDesc::INT8) return SampleType::U8;
  if (t.basetype == OIIO::TypeDesc::UINT16 || t.basetype == OIIO::TypeDesc::INT16) return SampleType::U16;
  return SampleType::F32;
}

OIIO::TypeDesc descOf(SampleType t) {
  return t == SampleType::U8 ? OIIO::TypeDesc::UINT8
         : t == SampleType::U16 ? OIIO::TypeDesc::UINT16
                                : OIIO::TypeDesc::FLOAT;
}

// Files keep straight (unassociated) alpha: the effect moves pixels and never
// blends them, so nothing is premultiplied on the way in or divided on the way out.
OIIO::ImageSpec readConfig() {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  return config;
}

// libpng and libjpeg print their own complaints on stderr before the reader
// reports them; the command reports each failure as one line of its own, so
// fd 2 points at /dev/null while a file is decoded. Reads are serialised by the
// frame cache, and the command prints its errors only after the readers stop.
// TESSELUX_DECODER_MESSAGES=1 keeps them, and with them anything a crash in a
// decoder would print (the reader fuzzer sets it).
class QuietStderr {
 public:
  QuietStderr() {
    const char* keep = std::getenv("TESSELUX_DECODER_MESSAGES");
    if (keep && *keep && std::string(keep) != "0") return;
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
      dup2(devnull, STDERR_FILENO);
      close(devnull);
    }
  }
  ~QuietStderr() {
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  QuietStderr(const QuietStderr&) = delete;
  QuietStderr& operator=(const QuietStderr&) = delete;

 private:
  int saved_ = -1;
};

std::unique_ptr<OIIO::ImageInput> openInput(const std::string& path) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) throw MediaError(path + ": is a directory, not an image");
  if (!fs::exists(path, ec)) throw MediaError(path + ": no such file");
  const OIIO::ImageSpec config = readConfig();
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    std::string why = OIIO::geterror();
    if (why.empty()) why = "not a readable image";
    throw MediaError(path + ": " + firstLine(why));
  }
  return in;
}

// Writes bytes a writer encoded into memory, every error checked: some
// writers (PNG) let a failed write of their own pass, leaving a cut-off file
// on a full disk.
void writeChecked(const std::string& tmp, const std::string& final, const std::vector<unsigned char>& bytes) {
  errno = 0;
  bool ok = false;
  int why = 0;
  if (std::FILE* f = std::fopen(tmp.c_str(), "wb")) {
    ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size() && std::fflush(f) == 0;
    why = errno;
    if (std::fclose(f) != 0) {
      ok = false;
      if (!why) why = errno;
    }
  } else {
    why = errno;
  }
  if (!ok) {
    std::remove(tmp.c_str());
    throw MediaError(final + ": cannot write: " + std::strerror(why ? why : EIO));
  }
}

// Which of the channels is alpha, -1 for none.
int alphaChannel(const OIIO::ImageSpec& spec) {
  return spec.alpha_channel >= 0 ? spec.alpha_channel : (spec.nchannels == 2 ? 1 : spec.nchannels >= 4 ? 3 : -1);
}

PixelLayout layoutOf(const OIIO::ImageSpec& spec) {
  PixelLayout l;
  l.channels = (spec.nchannels >= 3 ? 3 : 1) + (alphaChannel(spec) >= 0 ? 1 : 0);
  l.half = spec.format == OIIO::TypeDesc::HALF;
  return l;
}

// 1 to 8 as EXIF counts; anything else is upright.
int orientationOf(const OIIO::ImageSpec& spec) {
  const int o = spec.get_int_attribute("Orientation", 1);
  return o >= 1 && o <= 8 ? o : 1;
}

// The channels of a straight RGBA picture the layout keeps, packed: grey
// from R (the effect moves pixels, so R, G and B stay equal), alpha from A.
std::vector<uint8_t> packChannels(const Picture& picture, int channels) {
  const size_t bytes = static_cast<size_t>(sampleBytes(picture.type));
  const int pick[4][4] = {{0}, {0, 3}, {0, 1, 2}, {0, 1, 2, 3}};
  const size_t n = static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height);
  std::vector<uint8_t> out(n * static_cast<size_t>(channels) * bytes);
  const uint8_t* src = picture.data.data();
  uint8_t* dst = out.data();
  for (size_t i = 0; i < n; ++i, src += 4 * bytes)
    for (int c = 0; c < channels; ++c, dst += bytes)
      std::memcpy(dst, src + static_cast<size_t>(pick[channels - 1][c]) * bytes, bytes);
  return out;
}

class OiioCodec final : public ImageCodec {
 public:
  ImageHeader readHeader(const std::string& path) const override {
    QuietStderr quiet;
    const auto in = openInput(path);
    const OIIO::ImageSpec& spec = in->spec();
    checkSize(path, spec.width, spec.height);
    const auto [w, h] = uprightSize(orientationOf(spec), spec.width, spec.height);
    return {w, h, typeOf(spec.format), layoutOf(spec)};
  }

  Picture readPicture(const std::string& path) const override {
    QuietStderr quiet;
    const auto in = openInput(path);
    const OIIO::ImageSpec& spec = in->spec();
    const int nch = spec.nchannels;
    if (spec.width <= 0 || spec.height <= 0 || nch <= 0) throw MediaError(path + ": image has no pixels");
    checkSize(path, spec.width, spec.height);
    const SampleType type = typeOf(spec.format);
    const int bytes = sampleBytes(type);
    std::vector<uint8_t> raw(static_cast<size_t>(spec.width) * spec.height * nch * bytes);
    if (!in->read_image(0, 0, 0, nch, descOf(type), raw.data())) {
      std::string why = in->geterror();
      if (why.empty()) why = "cannot read its pixels";
      throw MediaError(path + ": " + firstLine(why));
    }
    Picture out(spec.width, spec.height, type);
    const int alpha = alphaChannel(spec);
    const size_t n = static_cast<size_t>(spec.width) * spec.height;
    auto expand = [&](auto* dst, const auto* src, auto full) {
      for (size_t i = 0; i < n; ++i, src += nch, dst += 4) {
        if (nch >= 3) {
          dst[0] = src[0];
          dst[1] = src[1];
          dst[2] = src[2];
        } else {
          dst[0] = dst[1] = dst[2] = src[0];
        }
        dst[3] = alpha >= 0 ? src[alpha] : full;
      }
    };
    if (type == SampleType::U8)
      expand(out.data.data(), raw.data(), static_cast<uint8_t>(255));
    else if (type == SampleType::U16)
      expand(reinterpret_cast<uint16_t*>(out.data.data()), reinterpret_cast<const uint16_t*>(raw.data()),
             static_cast<uint16_t>(65535));
    else
      expand(reinterpret_cast<float*>(out.data.data()), reinterpret_cast<const float*>(raw.data()), 1.0f);
    const int orientation = orientationOf(spec);
    if (orientation == 1) return out;
    const auto [w, h] = uprightSize(orientation, spec.width, spec.height);
    Picture upright(w, h, type);
    orientPixels(orientation, out.data.data(), out.rowBytes(), spec.width, spec.height,
                 4 * static_cast<size_t>(bytes), upright.data.data(), upright.rowBytes());
    return upright;
  }

  void write(const std::string& tmp, const std::string& final, const Picture& picture,
             const PixelLayout* keep) const override {
    auto out = OIIO::ImageOutput::create(tmp);
    if (!out) throw MediaError(final + ": no image writer for this file type");
    const bool keepsAlpha = out->supports("alpha");
    int nch = keepsAlpha ? 4 : 3;
    if (keep) nch = keepsAlpha || keep->channels % 2 == 1 ? keep->channels : keep->channels - 1;
    OIIO::TypeDesc fileType = descOf(picture.type);
    const std::string ext = extensionOf(final);
    if (ext == ".exr" && (picture.type != SampleType::F32 || (keep && keep->half))) fileType = OIIO::TypeDesc::HALF;
    OIIO::ImageSpec spec(picture.width, picture.height, nch, fileType);
    if (nch <= 2) {
      spec.channelnames = nch == 1 ? std::vector<std::string>{"Y"} : std::vector<std::string>{"Y", "A"};
      spec.alpha_channel = nch == 2 ? 1 : -1;
    }
    spec.attribute("oiio:UnassociatedAlpha", 1);
    // No time stamp in the file: the same frame rendered twice (a farm piece
    // and a whole render) must give the same bytes.
    spec.attribute("DateTime", "");
    if (ext == ".jpg" || ext == ".jpeg") spec.attribute("Compression", "jpeg:95");
    // Writers that can encode into memory do, and the file is then written
    // with every error checked (writeChecked).
    std::vector<unsigned char> encoded;
    OIIO::Filesystem::IOVecOutput memory(encoded);
    const bool inMemory = out->supports("ioproxy") && out->set_ioproxy(&memory);
    if (!out->open(tmp, spec)) {
      std::remove(tmp.c_str());
      throw MediaError(final + ": cannot write: " + firstLine(out->geterror()));
    }
    const std::vector<uint8_t> packed = nch == 4 ? std::vector<uint8_t>() : packChannels(picture, nch);
    const OIIO::stride_t xstride = (nch == 4 ? 4 : nch) * sampleBytes(picture.type);
    const bool ok =
        out->write_image(descOf(picture.type), nch == 4 ? picture.data.data() : packed.data(), xstride) && out->close();
    if (!ok) {
      std::remove(tmp.c_str());
      throw MediaError(final + ": cannot write: " + firstLine(out->geterror()));
    }
    if (inMemory) writeChecked(tmp, final, encoded);
  }
};

}  // namespace

}  // namespace cli

extern "C" const cli::ImageCodec* tesselux_image_codec() {
  static const cli::OiioCodec codec;
  return &codec;
}
