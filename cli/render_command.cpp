// `tesselux render INPUT -o OUTPUT [options]`.
#include "commands.h"

#include <tbb/global_control.h>
#include <sys/stat.h>
#include <tbb/parallel_pipeline.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <cmath>
#include <exception>
#include <map>
#include <mutex>
#include <numeric>
#include <optional>
#include <thread>

#include "controls.h"
#include "frame_cache.h"
#include "interrupt.h"
#include "io/media.h"
#include "options.h"
#include "params/control_table.h"
#include "output_check.h"
#include "progress.h"
#include "thost/render.h"

namespace cli {

namespace {

std::optional<std::string> prescan(const std::vector<std::string>& args, const std::string& name) {
  std::optional<std::string> v;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == name && i + 1 < args.size()) v = args[i + 1];
    if (args[i].rfind(name + "=", 0) == 0) v = args[i].substr(name.size() + 1);
  }
  return v;
}

bool parseInt(const std::string& s, long& out) {
  if (s.empty()) return false;
  char* end = nullptr;
  out = std::strtol(s.c_str(), &end, 10);
  return *end == '\0';
}

std::pair<long, long> parseRatio(const std::string& s, const std::string& option) {
  const size_t slash = s.find('/');
  long n = 0, d = 1;
  if (!parseInt(s.substr(0, slash), n) || (slash != std::string::npos && !parseInt(s.substr(slash + 1), d)) ||
      n <= 0 || d <= 0)
    throw UsageError{option + " " + s + ": needs N or N/D with positive whole numbers"};
  return {n, d};
}

// A whole number from 1 to `most` typed for `option`.
long positiveCount(const std::string& text, const std::string& option, long most) {
  long v = 0;
  if (!parseInt(text, v)) throw UsageError{option + " " + text + ": needs a whole number"};
  if (v < 1) throw UsageError{option + " must be at least 1"};
  if (v > most) throw UsageError{option + " must be at most " + std::to_string(most)};
  return v;
}

// A frame rate typed as N, N/D or a decimal. Decimals a hair under a whole
// rate are the NTSC rates ffmpeg users mean (29.97 is 30000/1001); other
// decimals are taken exactly (12.5 is 25/2).
std::pair<long, long> parseRate(const std::string& text) {
  if (text.find('.') == std::string::npos) return parseRatio(text, "--fps");
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !(v > 0) || v > 1e6) throw UsageError{"--fps " + text + ": needs N, N/D or a decimal above 0"};
  const double ntsc = std::round(v * 1.001);
  if (std::fabs(ntsc / 1.001 - v) < 0.0051 && std::fabs(ntsc - v) > 1e-9)
    return {static_cast<long>(ntsc) * 1000, 1001};
  long den = 1;
  double num = v;
  while (std::fabs(num - std::round(num)) > 1e-9 && den < 1000000) {
    num *= 10;
    den *= 10;
  }
  long n = std::lround(num);
  const long g = std::gcd(n, den);
  return {n / g, den / g};
}

// Edit distance, for suggesting the option a user meant.
size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diag = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t up = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diag = up;
    }
  }
  return row[b.size()];
}

// The first argument that names no option, with the nearest option name if
// one is close: CLI11 lists the extras in reverse and suggests nothing.
std::string unknownOptionMessage(const CLI::App& app, const std::vector<std::string>& args) {
  std::vector<std::string> names;
  for (const CLI::Option* o : app.get_options()) {
    for (const std::string& l : o->get_lnames()) names.push_back("--" + l);
    for (const std::string& sn : o->get_snames()) names.push_back("-" + sn);
  }
  for (const std::string& a : args) {
    if (a.size() < 2 || a[0] != '-') continue;
    const std::string name = a.substr(0, a.find('='));
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    std::string best;
    size_t bestDistance = std::max<size_t>(2, name.size() / 4) + 1;
    for (const std::string& n : names) {
      const size_t d = editDistance(name, n);
      if (d < bestDistance) {
        bestDistance = d;
        best = n;
      }
    }
    return "unknown option " + name + (best.empty() ? "" : "; did you mean " + best + "?");
  }
  return "";
}

// Checkboxes as the help shows them: `--X on|off` and `--X=on|off` become
// `--X` and `--no-X` before parsing.
std::vector<std::string> spellCheckboxes(const std::vector<std::string>& args,
                                         const std::vector<ControlOption>& controls) {
  std::vector<std::string> out;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string a = args[i];
    for (const ControlOption& o : controls) {
      if (o.kind != ControlOption::Kind::Checkbox) continue;
      const std::string flag = "--" + o.option;
      std::string value;
      if (a == flag && i + 1 < args.size() && (args[i + 1] == "on" || args[i + 1] == "off")) value = args[++i];
      if (a == flag + "=on" || a == flag + "=off") value = a.substr(flag.size() + 1);
      if (!value.empty()) a = value == "on" ? flag : "--no-" + o.option;
    }
    out.push_back(a);
  }
  return out;
}

struct Settings {
  std::string input, output, mask;
  std::string depth = "auto";
  std::string fps, frames, downsample, codec, format;
  int crf = 18;
  int threads = 0;
  std::string threadsText, cacheText;  // as typed, checked by positiveCount
  bool align = false, quiet = false, check = false;
  std::optional<bool> overwrite;  // -y true, -n false, neither: ask on a terminal
  size_t cacheMb = 256;
  std::map<int, std::string> controlText;  // as typed, by control id
  std::map<int, bool> checkboxes;
};

thost::Depth parseDepth(const std::string& s, SampleType fileType) {
  if (s == "auto") return autoDepth(fileType);
  if (s == "8") return thost::Depth::Bits8;
  if (s == "16") return thost::Depth::Bits16;
  if (s == "32") return thost::Depth::Float32;
  throw UsageError{"--depth " + s + ": needs 8, 16, 32 or auto"};
}

void checkWritableFolder(const std::string& output) {
  if (mediaKind(output) == MediaKind::Null || output == "-") return;
  const std::string probe = mediaKind(output) == MediaKind::Sequence ? sequenceName(output, 0) : output;
  std::filesystem::path dir = std::filesystem::path(probe).parent_path();
  if (dir.empty()) dir = ".";
  std::error_code ec;
  if (!std::filesystem::is_directory(dir, ec))
    throw MediaError(output + ": folder " + dir.string() + " does not exist");
  if (access(dir.c_str(), W_OK) != 0) throw MediaError(output + ": folder " + dir.string() + " is not writable");
  if (std::filesystem::is_directory(probe, ec)) throw MediaError(output + ": is a directory");
}

// The files an output of frames first..last writes, or an input reads.
std::vector<std::string> filesOf(const std::string& path, int first, int last) {
  if (mediaKind(path) == MediaKind::Null) return {};
  if (mediaKind(path) != MediaKind::Sequence) return {path};
  std::vector<std::string> names;
  for (int k = first; k <= last; ++k) names.push_back(sequenceName(path, k));
  return names;
}

bool sameFile(const std::string& a, const std::string& b) {
  struct stat sa = {}, sb = {};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// As ffmpeg asks: "y" or "Y" first on the answer line overwrites.
bool askOverwrite(const std::string& name) {
  std::fprintf(stderr, "File '%s' already exists. Overwrite? [y/N] ", name.c_str());
  std::fflush(stderr);
  char line[64] = {};
  if (!std::fgets(line, sizeof line, stdin)) return false;
  return line[0] == 'y' || line[0] == 'Y';
}

// Whether `file` is one the input `source` reads. A numbered sequence's
// files are found by the numbers in the file's own name (a link to one of
// them under an unrelated name is not recognised).
bool readsFile(const std::string& source, const std::string& file) {
  if (mediaKind(source) != MediaKind::Sequence) return sameFile(source, file);
  const std::string name = std::filesystem::path(file).filename().string();
  for (size_t i = 0; i < name.size();) {
    if (name[i] < '0' || name[i] > '9') {
      ++i;
      continue;
    }
    size_t j = i;
    while (j < name.size() && name[j] >= '0' && name[j] <= '9') ++j;
    if (j - i <= 18 && sameFile(sequenceName(source, std::stol(name.substr(i, j - i))), file)) return true;
    i = j;
  }
  return false;
}

// Refuses an output that is one of the inputs (whatever -y says), and one
// that exists unless -y allows it or the user says so on a terminal.
void checkOutputFree(const Settings& s, int first, int last) {
  std::vector<std::string> existing;
  for (const std::string& out : filesOf(s.output, first, last)) {
    std::error_code ec;
    if (std::filesystem::exists(out, ec)) existing.push_back(out);
  }
  for (const std::string& out : existing)
    for (const std::string& in : {s.input, s.mask})
      if (!in.empty() && readsFile(in, out))
        throw MediaError(out + ": is an input (" + in + "); write the output elsewhere");
  if (existing.empty() || s.overwrite == true) return;
  const std::string& out = existing.front();
  if (s.overwrite == false) throw MediaError(out + ": already exists; not overwriting (-n)");
  if (isatty(0) && isatty(2) && askOverwrite(out)) return;
  throw MediaError(out + ": already exists; -y (--overwrite) replaces it");
}

// A control's value for this render: as given, else the control's default.
double controlValue(const std::vector<ControlOption>& controls, const thost::ControlValues& given, int id) {
  auto it = given.find(id);
  if (it != given.end()) return it->second;
  for (const ControlOption& o : controls) {
    if (o.id != id) continue;
    const PF_ParamDef& d = o.param->def;
    switch (o.kind) {
      case ControlOption::Kind::Fixed: return d.u.fd.dephault / 65536.0;
      case ControlOption::Kind::Float: return d.u.fs_d.dephault;
      case ControlOption::Kind::Popup: return d.u.pd.dephault;
      case ControlOption::Kind::Checkbox: return d.u.bd.dephault;
    }
  }
  return 0;
}

// One line for each option given that the other settings make pointless.
std::vector<std::string> ineffectiveOptions(const std::vector<ControlOption>& controls, const Settings& s,
                                            const thost::ControlValues& given) {
  std::vector<std::string> lines;
  auto optionOf = [&](int id) {
    for (const ControlOption& o : controls)
      if (o.id == id) return "--" + o.option;
    return std::string();
  };
  auto isGiven = [&](int id) { return s.controlText.count(id) > 0 || s.checkboxes.count(id) > 0; };
  auto named = [&](int id) { return "\"" + std::string(findControl(id)->name) + "\" (" + optionOf(id) + ")"; };
  auto warn = [&lines](const std::string& option, const std::string& why) {
    lines.push_back("tesselux render: warning: " + option + " has no effect while " + why + "\n");
  };
  if (!s.mask.empty() && controlValue(controls, given, ID_MASK_INTENSITY) == 0)
    warn("--" + std::string(findControl(ID_MASK_SOURCE)->keyword), named(ID_MASK_INTENSITY) + " is 0");
  // "Frames" rounds to the nearest count.
  if (controlValue(controls, given, ID_TIME_FRAMES) < 0.5) {
    for (int id = ID_TIME_PROBABILITY; id <= ID_EXCLUSIVE_MODE; ++id)
      if (isGiven(id)) warn(optionOf(id), named(ID_TIME_FRAMES) + " is 0");
    return lines;
  }
  const bool frames = controlValue(controls, given, ID_STEPPING_UNIT) == 2;
  const int unused = frames ? ID_TIME_STEP_SECONDS : ID_TIME_STEP_FRAMES;
  if (isGiven(unused))
    warn(optionOf(unused), named(ID_STEPPING_UNIT) + " is " + (frames ? "frame" : "second"));
  return lines;
}

// The output frames --frames picks (all by default), checked against the input.
std::pair<int, int> frameRange(const Settings& s, int total) {
  if (s.frames.empty()) return {0, total - 1};
  const size_t dash = s.frames.find('-', 1);
  long a = 0, b = 0;
  if (!parseInt(s.frames.substr(0, dash), a) ||
      !parseInt(dash == std::string::npos ? s.frames.substr(0, dash) : s.frames.substr(dash + 1), b))
    throw UsageError{"--frames " + s.frames + ": needs A-B (0-based, inclusive)"};
  if (b < a) throw UsageError{"--frames " + s.frames + ": A must not exceed B"};
  if (a < 0 || b >= total)
    throw UsageError{"--frames " + s.frames + ": the input has frames 0-" + std::to_string(total - 1)};
  return {static_cast<int>(a), static_cast<int>(b)};
}

// Whether the frames fit the output's kind: one for a still, one size for a video.
void checkFramesFitOutput(const Settings& s, FrameSource& source, int first, int last) {
  const MediaKind outKind = mediaKind(s.output);
  if (outKind == MediaKind::Still && last > first)
    throw UsageError{s.output + ": a still takes one frame; the input has " + std::to_string(source.frameCount()) +
                     " (pick one with --frames K-K, or write a sequence or a video)"};
  if (outKind != MediaKind::Video) return;
  const auto size0 = source.frameSize(first);
  for (int k = first; k <= last; ++k)
    if (source.frameSize(k) != size0)
      throw UsageError{s.output + ": input frames differ in size (frame " + std::to_string(k) +
                       "); a video needs one size, write an image sequence instead"};
}

// What every frame's render request shares: depth, time base, downsample, controls.
thost::RenderRequest baseRequest(const std::vector<ControlOption>& controls, const Settings& s,
                                 thost::Depth depth, const Rate& rate) {
  thost::RenderRequest base;
  base.depth = depth;
  base.time = thost::TimeBase::fromRate(rate.num, rate.den);
  if (!s.downsample.empty()) {
    auto [n, d] = parseRatio(s.downsample, "--downsample");
    if (n > d) throw UsageError{"--downsample " + s.downsample + ": needs N/D at most 1"};
    base.downsampleX = base.downsampleY = PF_RationalScale{static_cast<A_long>(n), static_cast<A_u_long>(d)};
  }
  for (const ControlOption& o : controls) {
    auto it = s.controlText.find(o.id);
    if (it != s.controlText.end()) base.controls[o.id] = parseControlValue(o, it->second);
    auto cb = s.checkboxes.find(o.id);
    if (cb != s.checkboxes.end()) base.controls[o.id] = cb->second ? 1.0 : 0.0;
  }
  return base;
}

// The sink's settings; a video from a video keeps the input's audio over the
// frames written, and a variable-rate input's frame times.
SinkSettings sinkSettings(const Settings& s, const FrameSource& source, const Rate& rate, thost::Depth depth,
                          int first, int last) {
  const int total = source.frameCount();
  SinkSettings ss;
  ss.path = s.output;
  ss.rate = rate;
  ss.depth = depth;
  ss.frameCount = last - first + 1;
  ss.firstNumber = first;
  ss.codec = s.codec;
  ss.format = s.format;
  ss.crf = s.crf;
  ss.quiet = s.quiet;
  ss.tags = source.tags();
  ss.layout = source.layout();
  if (mediaKind(s.output) != MediaKind::Video || sourceKind(s.input) != MediaKind::Video) return ss;
  ss.audioFrom = s.input;
  ss.audioStart = first * static_cast<double>(rate.den) / rate.num;
  ss.audioEnd = (last + 1) * static_cast<double>(rate.den) / rate.num;
  ss.wholeClip = first == 0 && last == total - 1;
  const std::vector<double> times = source.frameTimes();
  if (static_cast<int>(times.size()) == total) {
    ss.frameTimes.assign(times.begin() + first, times.begin() + last + 1);
    for (double& t : ss.frameTimes) t -= times[static_cast<size_t>(first)];
    ss.audioStart = times[static_cast<size_t>(first)];
    ss.audioEnd = last + 1 < total ? times[static_cast<size_t>(last + 1)] : 1e300;
  }
  return ss;
}

// "Align" pressed for the input's size: the block sizes it sets replace the given ones.
void pressAlign(thost::RenderHost& host, const std::vector<ControlOption>& controls, thost::RenderRequest& base,
                std::pair<int, int> size) {
  auto valueOf = [&](int id) {
    auto it = base.controls.find(id);
    if (it != base.controls.end()) return it->second;
    for (const ControlOption& o : controls)
      if (o.id == id) return o.param->def.u.fd.dephault / 65536.0;
    return controlDefault(id);
  };
  const auto [bw, bh] = host.align(valueOf(ID_BLOCK_WIDTH), valueOf(ID_BLOCK_HEIGHT), size.first, size.second);
  base.controls[ID_BLOCK_WIDTH] = bw;
  base.controls[ID_BLOCK_HEIGHT] = bh;
}

struct Rendered {
  int k = 0;
  std::shared_ptr<FrameSink::Prepared> prepared;  // made ready for the sink on the render's thread
  std::shared_ptr<thost::Image> image;            // for a sink that takes host pixels, unprepared
  std::shared_ptr<Picture> picture;               // converted on the render's thread, for the others
};

// Frame k rendered, and made ready for the sink on this thread.
Rendered renderOne(const thost::RenderHost& host, const thost::RenderRequest& base, FrameSink& sink, int k,
                   bool discard, bool hostPixels, SampleType outType) {
  thost::RenderRequest req = base;
  req.frame = k;
  thost::RenderResult r = host.render(req);
  if (r.err != PF_Err_NONE)
    throw std::runtime_error("the effect failed on frame " + std::to_string(k) + " with error " + std::to_string(r.err));
  if (!r.breaks.empty())
    throw std::runtime_error("frame " + std::to_string(k) + ": host contract broken: " + r.breaks.front());
  // null: discards, so the frame is not converted either.
  if (discard) return Rendered{k, nullptr, nullptr, nullptr};
  if (hostPixels) {
    if (auto prepared = sink.prepareHost(r.output)) return Rendered{k, std::move(prepared), nullptr, nullptr};
    return Rendered{k, nullptr, std::make_shared<thost::Image>(std::move(r.output)), nullptr};
  }
  return Rendered{k, nullptr, nullptr, std::make_shared<Picture>(fromHost(r.output, outType))};
}

// Frames enter in order (the decode of frame k overlaps renders of earlier
// ones), render on any thread, and leave in order for the writer. An error in
// any stage is kept and thrown once the pipeline has drained: frames still in
// flight then pass through and are freed, where an exception thrown out of a
// stage would leave them to oneTBB, which does not free them.
void runPipeline(const thost::RenderHost& host, const thost::RenderRequest& base, SourceClip& layer,
                 FrameSink& sink, const Settings& s, int first, int last, size_t tokens) {
  const thost::Depth depth = base.depth;
  const bool discard = mediaKind(s.output) == MediaKind::Null;
  const bool hostPixels = sink.takesHost(depth);
  const SampleType outType = sink.sampleType();
  Progress progress(last - first + 1, !s.quiet && stderrIsTerminal());
  std::mutex failureMutex;
  std::exception_ptr failure;
  std::atomic<bool> failed{false};
  auto fail = [&] {
    std::lock_guard<std::mutex> lock(failureMutex);
    if (!failure) failure = std::current_exception();
    failed.store(true);
  };
  int next = first;
  tbb::parallel_pipeline(
      tokens,
      tbb::make_filter<void, int>(tbb::filter_mode::serial_in_order,
                                  [&](tbb::flow_control& fc) -> int {
                                    if (next > last || interruptSignal() != 0 || failed.load()) {
                                      fc.stop();
                                      return 0;
                                    }
                                    const int k = next++;
                                    try {
                                      layer.frame(k, depth);
                                    } catch (...) {
                                      fail();
                                    }
                                    return k;
                                  }) &
          tbb::make_filter<int, Rendered>(tbb::filter_mode::parallel,
                                          [&](int k) {
                                            if (failed.load()) return Rendered{k, nullptr, nullptr, nullptr};
                                            try {
                                              return renderOne(host, base, sink, k, discard, hostPixels, outType);
                                            } catch (...) {
                                              fail();
                                              return Rendered{k, nullptr, nullptr, nullptr};
                                            }
                                          }) &
          tbb::make_filter<Rendered, void>(tbb::filter_mode::serial_in_order, [&](const Rendered& r) {
            if (interruptSignal() != 0 || failed.load()) return;
            try {
              if (r.prepared) sink.writePrepared(*r.prepared);
              else if (r.image) sink.writeHost(*r.image);
              else if (r.picture) sink.write(*r.picture);
              progress.tick();
            } catch (...) {
              fail();
            }
          }));
  if (failure) std::rethrow_exception(failure);
}

int render(thost::RenderHost& host, const std::vector<ControlOption>& controls, const Settings& s) {
  auto source = openSource(s.input);
  checkOutputName(s.output, s.format);
  Rate rate{30, 1};
  if (source->rate()) {
    if (!s.fps.empty()) throw UsageError{"--fps: a video input keeps its own frame rate"};
    rate = *source->rate();
  } else if (!s.fps.empty()) {
    auto [n, d] = parseRate(s.fps);
    rate = Rate{static_cast<int>(n), static_cast<int>(d)};
  }
  const thost::Depth depth = parseDepth(s.depth, source->sampleType());
  const auto [first, last] = frameRange(s, source->frameCount());
  checkFramesFitOutput(s, *source, first, last);
  checkWritableFolder(s.output);
  checkOutputFree(s, first, last);

  thost::RenderRequest base = baseRequest(controls, s, depth, rate);
  const std::pair<int, int> size0 = source->frameSize(first);
  const int threads = s.threads > 0 ? s.threads : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const size_t tokens = static_cast<size_t>(threads) * 2;
  size_t cacheBytes = s.cacheMb * 1024 * 1024;
  // Without the time shift ("Frames" 0) each render reads its own frame
  // only: keep just the frames in flight rather than filling the cache with
  // frames nobody asks for again.
  const size_t frameBytes = static_cast<size_t>(size0.first) * static_cast<size_t>(size0.second) *
                            static_cast<size_t>(thost::bytesPerPixel(depth));
  if (controlValue(controls, base.controls, ID_TIME_FRAMES) == 0)
    cacheBytes = std::min(cacheBytes, (tokens + 2) * frameBytes);
  // Decoded frames leaving the cache and rendered frames leaving the writer
  // give their memory back for the next ones, instead of to the system. A
  // block is made only when none is free, so for frames of one size the pool
  // never holds more than the most frames alive at once (the cache's and the
  // ones in flight): room for all of them, so that none is freed only to be
  // made again.
  const auto pool = std::make_shared<thost::PixelPool>(cacheBytes + (tokens + 2) * frameBytes);
  base.outputPool = pool;
  source->pixelPool = pool;
  const SinkSettings ss = sinkSettings(s, *source, rate, depth, first, last);
  auto layer = std::make_shared<SourceClip>(std::move(source), cacheBytes);
  base.layer = layer;
  if (!s.mask.empty()) {
    std::unique_ptr<FrameSource> maskSource;
    try {
      maskSource = openSource(s.mask);
    } catch (const MediaError& e) {
      throw MediaError(std::string("--mask: ") + e.what());
    }
    maskSource->pixelPool = pool;
    base.mask = std::make_shared<SourceClip>(std::move(maskSource), cacheBytes / 4);
  }

  // Printed once the render has succeeded, so that a failure stays one line.
  const std::vector<std::string> warnings = ineffectiveOptions(controls, s, base.controls);
  if (s.align) pressAlign(host, controls, base, size0);
  std::unique_ptr<FrameSink> sink = openSink(ss);
  tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
  throwIfInterrupted();
  runPipeline(host, base, *layer, *sink, s, first, last, tokens);
  throwIfInterrupted();
  sink->commit();
  for (const std::string& w : warnings) std::fputs(w.c_str(), stderr);
  return 0;
}

// The host the options ask for, set up before parsing: the control options
// come from its reading.
thost::RenderHost::Options hostOptions(const std::vector<std::string>& args) {
  thost::RenderHost::Options hopt;
  if (auto p = prescan(args, "--plugin")) hopt.pluginPath = *p;
  HostOptions ho;
  std::vector<std::string> hostArgs;
  if (auto h = prescan(args, "--host")) hostArgs = {"--host", *h};
  if (auto a = prescan(args, "--api")) hostArgs.insert(hostArgs.end(), {"--api", *a});
  ho = parseHostOptions(hostArgs);
  hopt.app = ho.app;
  hopt.version = ho.version;
  hopt.recordCalls = false;
  hopt.guardWorlds = false;
  bool check = false;
  for (const std::string& a : args) check = check || a == "--check";
  hopt.guardWorlds = check;
  return hopt;
}

// Settings that the parser leaves to the command line's order, and checks
// made before anything is read or written.
void finishSettings(Settings& s, const std::vector<std::string>& args, const std::vector<std::string>& spelled,
                    const std::vector<ControlOption>& controls) {
  // The last of --X and --no-X wins (CLI11 runs flags in the order they were declared).
  for (const std::string& a : spelled) {
    if (a == "--") break;
    for (const ControlOption& o : controls) {
      if (o.kind != ControlOption::Kind::Checkbox) continue;
      if (a == "--" + o.option) s.checkboxes[o.id] = true;
      if (a == "--no-" + o.option) s.checkboxes[o.id] = false;
    }
  }
  if (!s.threadsText.empty()) s.threads = static_cast<int>(positiveCount(s.threadsText, "--threads", 1 << 16));
  if (!s.cacheText.empty()) s.cacheMb = static_cast<size_t>(positiveCount(s.cacheText, "--cache-mb", 1 << 24));
  const unsigned cores = std::thread::hardware_concurrency();
  if (cores > 0 && s.threads > static_cast<int>(cores))
    std::fprintf(stderr, "tesselux render: warning: --threads %d is more than the %u cores of this machine\n",
                 s.threads, cores);
  // The last of -y and -n wins (CLI11 runs flags in the order they were declared).
  for (const std::string& a : args) {
    if (a == "--") break;
    if (a == "-y" || a == "--overwrite") s.overwrite = true;
    if (a == "-n" || a == "--no-overwrite") s.overwrite = false;
  }
  // Option values are checked before anything is read or written.
  for (const ControlOption& o : controls) {
    auto it = s.controlText.find(o.id);
    if (it != s.controlText.end()) parseControlValue(o, it->second);
  }
}

}  // namespace

// One option per control: --X and --no-X for a checkbox, --X VALUE for the others.
void addControlOptions(CLI::App& app, Settings& s, const std::vector<ControlOption>& controls) {
  for (const ControlOption& o : controls) {
    const int id = o.id;
    if (o.kind == ControlOption::Kind::Checkbox) {
      app.add_flag_callback("--" + o.option, [&s, id] { s.checkboxes[id] = true; }, o.help())->group("Controls");
      app.add_flag_callback("--no-" + o.option, [&s, id] { s.checkboxes[id] = false; },
                            "\"" + o.controlName() + "\" off")->group("Controls");
    } else {
      app.add_option_function<std::string>(
             "--" + o.option, [&s, id](const std::string& v) { s.controlText[id] = v; }, o.help())
          ->group("Controls");
    }
  }
}

int runRender(const std::vector<std::string>& args) {
  // From the start: Ctrl-C while the host is being set up ends as cleanly.
  InterruptGuard guard;
  try {
    // The host is set up first: the control options come from its reading.
    thost::RenderHost host(hostOptions(args));
    const std::vector<ControlOption> controls = controlOptions(host.controls());

    Settings s;
    CLI::App app{"Renders INPUT through the Tesselux effect into OUTPUT.\n"
                 "INPUT and OUTPUT: a still (.png .tif .exr .jpg), a numbered sequence\n"
                 "(frames/%04d.png) or a video (.mp4 .mov .mkv ...); OUTPUT null: discards.",
                 "tesselux render"};
    app.get_formatter()->column_width(34);
    app.add_option("INPUT", s.input, "still, image sequence or video")->required();
    app.add_option("-o,--output", s.output, "still, image sequence, video or null:")->required();
    std::string dummy;
    app.add_option("--plugin", dummy, "the effect module to load");
    app.add_option("--host", dummy, "ae (SmartFX) or premiere (legacy render)")->default_str("ae");
    app.add_option("--api", dummy, "host API version MAJOR.MINOR")->default_str("13.28");
    app.add_option("--depth", s.depth, "8, 16, 32 or auto (the input's sample type)")->default_str("auto");
    app.add_option("--fps", s.fps, "N or N/D for stills and sequences (default 30)");
    app.add_option("--frames", s.frames, "A-B: output frames A..B only (0-based, inclusive)");
    app.add_option("--threads", s.threadsText, "frames rendered at once (default: all cores)");
    app.add_option("--downsample", s.downsample, "N/D resolution: layers and output at that size (default 1/1)");
    app.add_option("--codec", s.codec, "video encoder (default by container: .mp4 libx264, .mov prores_ks, .mkv ffv1)");
    app.add_option("--format", s.format, "video muxer (nut, matroska, y4m...); needed for -o - (standard output)");
    app.add_option("--crf", s.crf, "H.264/H.265 quality (default 18)")->check(CLI::Range(0, 51));
    app.add_option("--cache-mb", s.cacheText, "decoded-frame cache size in MiB (default 256)");
    app.add_flag("-q,--quiet", s.quiet, "no progress line, no encoder banner");
    bool overwriteFlag = false;  // read below, in command-line order
    app.add_flag("-y,--overwrite", overwriteFlag, "replace an existing output");
    app.add_flag("-n,--no-overwrite", overwriteFlag,
                 "never replace an existing output (the default off a terminal; on one, ask)");
    app.add_flag("--check", s.check, "guard bytes around every world, checked after each render");
    app.add_flag("--align", s.align, "press \"Align\" for the input's size before rendering");
    app.add_option("--mask", s.mask, "\"Mask Source\": a still, sequence or video")->group("Controls");
    addControlOptions(app, s, controls);
    const std::vector<std::string> spelled = spellCheckboxes(args, controls);
    std::vector<const char*> argv{"tesselux render"};
    for (const std::string& a : spelled) argv.push_back(a.c_str());
    try {
      app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::CallForHelp&) {
      std::printf("%s", app.help().c_str());
      return 0;
    } catch (const CLI::ExtrasError& e) {
      const std::string unknown = unknownOptionMessage(app, spelled);
      throw UsageError{unknown.empty() ? std::string(e.what()) : unknown};
    } catch (const CLI::ParseError& e) {
      throw UsageError{e.what()};
    }
    finishSettings(s, args, spelled, controls);
    std::optional<StdinSpool> spool;  // INPUT "-": standard input, kept in a file while the render runs
    if (s.input == "-") {
      spool.emplace();
      s.input = spool->path();
    }
    return render(host, controls, s);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "tesselux render: %s\n", e.message.c_str());
    return 2;
  } catch (const Interrupted&) {
    std::fprintf(stderr, "tesselux render: interrupted; nothing written\n");
    return 128 + interruptSignal();  // as the shell reports the signal: 130, 143, 129
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tesselux render: %s\n", e.what());
    return 1;
  }
}

}  // namespace cli
