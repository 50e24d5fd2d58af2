// `tesselux render INPUT -o OUTPUT [options]`.
#include "commands.h"

#include <tbb/global_control.h>
#include <tbb/parallel_pipeline.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include "commands.h"
#include "controls.h"
#include "frame_cache.h"
#include "io/media.h"
#include "options.h"
#include "progress.h"
#include "thost/render.h"

namespace cli {

namespace {

// Set by SIGINT/SIGTERM; a signal handler can reach nothing but a flag like this.
std::atomic<bool> interruptFlag{false};
extern "C" void onInterrupt(int) { interruptFlag.store(true); }

struct Interrupted {};

// Restores the previous handlers when the render ends.
class InterruptGuard {
 public:
  InterruptGuard() {
    interruptFlag.store(false);
    struct sigaction sa = {};
    sa.sa_handler = onInterrupt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &oldInt_);
    sigaction(SIGTERM, &sa, &oldTerm_);
  }
  ~InterruptGuard() {
    sigaction(SIGINT, &oldInt_, nullptr);
    sigaction(SIGTERM, &oldTerm_, nullptr);
  }

 private:
  struct sigaction oldInt_ = {}, oldTerm_ = {};
};

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

struct Settings {
  std::string input, output, mask;
  std::string depth = "auto";
  std::string fps, frames, downsample, codec;
  int crf = 18;
  int threads = 0;
  bool align = false, quiet = false, check = false;
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
  if (mediaKind(output) == MediaKind::Null) return;
  const std::string probe = mediaKind(output) == MediaKind::Sequence ? sequenceName(output, 0) : output;
  std::filesystem::path dir = std::filesystem::path(probe).parent_path();
  if (dir.empty()) dir = ".";
  std::error_code ec;
  if (!std::filesystem::is_directory(dir, ec))
    throw MediaError(output + ": folder " + dir.string() + " does not exist");
  if (access(dir.c_str(), W_OK) != 0) throw MediaError(output + ": folder " + dir.string() + " is not writable");
  if (std::filesystem::is_directory(probe, ec)) throw MediaError(output + ": is a directory");
}

int render(thost::RenderHost& host, const std::vector<ControlOption>& controls, const Settings& s) {
  auto source = openSource(s.input);
  const int total = source->frameCount();
  const MediaKind outKind = mediaKind(s.output);
  Rate rate{30, 1};
  if (source->rate()) {
    if (!s.fps.empty()) throw UsageError{"--fps: a video input keeps its own frame rate"};
    rate = *source->rate();
  } else if (!s.fps.empty()) {
    auto [n, d] = parseRatio(s.fps, "--fps");
    rate = Rate{static_cast<int>(n), static_cast<int>(d)};
  }
  const thost::Depth depth = parseDepth(s.depth, source->sampleType());

  int first = 0, last = total - 1;
  if (!s.frames.empty()) {
    const size_t dash = s.frames.find('-', 1);
    long a = 0, b = 0;
    if (!parseInt(s.frames.substr(0, dash), a) || !parseInt(dash == std::string::npos ? s.frames.substr(0, dash) : s.frames.substr(dash + 1), b))
      throw UsageError{"--frames " + s.frames + ": needs A-B (0-based, inclusive)"};
    if (a < 0 || b < a || b >= total)
      throw UsageError{"--frames " + s.frames + ": the input has frames 0-" + std::to_string(total - 1)};
    first = static_cast<int>(a);
    last = static_cast<int>(b);
  }
  const int count = last - first + 1;
  if (outKind == MediaKind::Still && count > 1)
    throw UsageError{s.output + ": a still takes one frame; the input has " + std::to_string(total) +
                     " (pick one with --frames K-K, or write a sequence or a video)"};
  if (outKind == MediaKind::Video) {
    const auto size0 = source->frameSize(first);
    for (int k = first; k <= last; ++k)
      if (source->frameSize(k) != size0)
        throw UsageError{s.output + ": input frames differ in size (frame " + std::to_string(k) +
                         "); a video needs one size, write an image sequence instead"};
  }
  checkWritableFolder(s.output);

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
  const std::optional<VideoTags> tags = source->tags();
  const std::pair<int, int> size0 = source->frameSize(first);
  const int threads = s.threads > 0 ? s.threads : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const size_t tokens = static_cast<size_t>(threads) * 2;
  size_t cacheBytes = s.cacheMb * 1024 * 1024;
  // Without the time shift ("Frames" 0) each render reads its own frame
  // only: keep just the frames in flight rather than filling the cache with
  // frames nobody asks for again.
  double timeFrames = 0;
  for (const ControlOption& o : controls)
    if (o.id == 9) timeFrames = base.controls.count(9) ? base.controls.at(9) : o.param->def.u.fd.dephault / 65536.0;
  const size_t frameBytes = static_cast<size_t>(size0.first) * static_cast<size_t>(size0.second) *
                            static_cast<size_t>(thost::bytesPerPixel(depth));
  if (timeFrames == 0) cacheBytes = std::min(cacheBytes, (tokens + 2) * frameBytes);
  // Decoded frames leaving the cache and rendered frames leaving the writer
  // give their memory back for the next ones, instead of to the system. A
  // block is made only when none is free, so for frames of one size the pool
  // never holds more than the most frames alive at once (the cache's and the
  // ones in flight): room for all of them, so that none is freed only to be
  // made again.
  const auto pool = std::make_shared<thost::PixelPool>(cacheBytes + (tokens + 2) * frameBytes);
  base.outputPool = pool;
  source->pixelPool = pool;
  auto layer = std::make_shared<SourceClip>(std::move(source), cacheBytes);
  base.layer = layer;
  if (!s.mask.empty()) {
    std::unique_ptr<FrameSource> maskSource = openSource(s.mask);
    maskSource->pixelPool = pool;
    base.mask = std::make_shared<SourceClip>(std::move(maskSource), cacheBytes / 4);
  }

  if (s.align) {
    auto valueOf = [&](int id) {
      auto it = base.controls.find(id);
      if (it != base.controls.end()) return it->second;
      for (const ControlOption& o : controls)
        if (o.id == id) return o.param->def.u.fd.dephault / 65536.0;
      return 32.0;
    };
    const auto [bw, bh] = host.align(valueOf(2), valueOf(3), size0.first, size0.second);
    base.controls[2] = bw;
    base.controls[3] = bh;
  }

  SinkSettings ss;
  ss.path = s.output;
  ss.rate = rate;
  ss.depth = depth;
  ss.frameCount = count;
  ss.firstNumber = first;
  ss.codec = s.codec;
  ss.crf = s.crf;
  ss.tags = tags;
  if (outKind == MediaKind::Video && sourceKind(s.input) == MediaKind::Video) {
    ss.audioFrom = s.input;
    ss.audioStart = first * static_cast<double>(rate.den) / rate.num;
    ss.audioEnd = (last + 1) * static_cast<double>(rate.den) / rate.num;
    ss.wholeClip = first == 0 && last == total - 1;
    const std::vector<double> times = layer->source().frameTimes();
    if (static_cast<int>(times.size()) == total) {
      ss.frameTimes.assign(times.begin() + first, times.begin() + last + 1);
      for (double& t : ss.frameTimes) t -= times[static_cast<size_t>(first)];
      ss.audioStart = times[static_cast<size_t>(first)];
      ss.audioEnd = last + 1 < total ? times[static_cast<size_t>(last + 1)] : 1e300;
    }
  }
  std::unique_ptr<FrameSink> sink = openSink(ss);
  const bool discard = outKind == MediaKind::Null;
  const bool hostPixels = sink->takesHost(depth);
  const SampleType outType = sink->sampleType();

  tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
  if (interruptFlag.load()) throw Interrupted{};
  Progress progress(count, !s.quiet && stderrIsTerminal());
  std::vector<std::string> breaks;
  int next = first;

  struct Rendered {
    int k = 0;
    std::shared_ptr<FrameSink::Prepared> prepared;  // made ready for the sink on the render's thread
    std::shared_ptr<thost::Image> image;            // for a sink that takes host pixels, unprepared
    std::shared_ptr<Picture> picture;               // converted on the render's thread, for the others
  };
  // Frames enter in order (the decode of frame k overlaps renders of earlier
  // ones), render on any thread, and leave in order for the writer.
  tbb::parallel_pipeline(
      tokens,
      tbb::make_filter<void, int>(tbb::filter_mode::serial_in_order,
                                  [&](tbb::flow_control& fc) -> int {
                                    if (next > last || interruptFlag.load()) {
                                      fc.stop();
                                      return 0;
                                    }
                                    const int k = next++;
                                    layer->frame(k, depth);
                                    return k;
                                  }) &
          tbb::make_filter<int, Rendered>(tbb::filter_mode::parallel,
                                          [&](int k) {
                                            thost::RenderRequest req = base;
                                            req.frame = k;
                                            thost::RenderResult r = host.render(req);
                                            if (r.err != PF_Err_NONE)
                                              throw std::runtime_error("the effect failed on frame " + std::to_string(k) +
                                                                       " with error " + std::to_string(r.err));
                                            if (!r.breaks.empty())
                                              throw std::runtime_error("frame " + std::to_string(k) +
                                                                       ": host contract broken: " + r.breaks.front());
                                            // null: discards, so the frame is not converted either.
                                            if (discard) return Rendered{k, nullptr, nullptr, nullptr};
                                            if (hostPixels) {
                                              if (auto prepared = sink->prepareHost(r.output))
                                                return Rendered{k, std::move(prepared), nullptr, nullptr};
                                              return Rendered{k, nullptr,
                                                              std::make_shared<thost::Image>(std::move(r.output)),
                                                              nullptr};
                                            }
                                            return Rendered{k, nullptr, nullptr,
                                                            std::make_shared<Picture>(fromHost(r.output, outType))};
                                          }) &
          tbb::make_filter<Rendered, void>(tbb::filter_mode::serial_in_order, [&](const Rendered& r) {
            if (interruptFlag.load()) return;
            if (r.prepared) sink->writePrepared(*r.prepared);
            else if (r.image) sink->writeHost(*r.image);
            else if (r.picture) sink->write(*r.picture);
            progress.tick();
          }));
  if (interruptFlag.load()) throw Interrupted{};
  sink->commit();
  return 0;
}

}  // namespace

int runRender(const std::vector<std::string>& args) {
  // From the start: Ctrl-C while the host is being set up ends as cleanly.
  InterruptGuard guard;
  try {
    // The host is set up first: the control options come from its reading.
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
    thost::RenderHost host(hopt);
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
    app.add_option("--threads", s.threads, "frames rendered at once (default: all cores)")
        ->check(CLI::PositiveNumber);
    app.add_option("--downsample", s.downsample, "N/D render scale (default 1/1)");
    app.add_option("--codec", s.codec, "video encoder (default by container: .mp4 libx264, .mov prores_ks, .mkv ffv1)");
    app.add_option("--crf", s.crf, "H.264/H.265 quality (default 18)")->check(CLI::Range(0, 51));
    app.add_option("--cache-mb", s.cacheMb, "decoded-frame cache size in MiB (default 256)")
        ->check(CLI::PositiveNumber);
    app.add_flag("-q,--quiet", s.quiet, "no progress line");
    app.add_flag("--check", s.check, "guard bytes around every world, checked after each render");
    app.add_flag("--align", s.align, "press \"Align\" for the input's size before rendering");
    app.add_option("--mask", s.mask, "\"Mask Source\": a still, sequence or video")->group("Controls");
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
    std::vector<const char*> argv{"tesselux render"};
    for (const std::string& a : args) argv.push_back(a.c_str());
    try {
      app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::CallForHelp&) {
      std::printf("%s", app.help().c_str());
      return 0;
    } catch (const CLI::ParseError& e) {
      throw UsageError{e.what()};
    }
    // Option values are checked before anything is read or written.
    for (const ControlOption& o : controls) {
      auto it = s.controlText.find(o.id);
      if (it != s.controlText.end()) parseControlValue(o, it->second);
    }
    return render(host, controls, s);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "tesselux render: %s\n", e.message.c_str());
    return 2;
  } catch (const Interrupted&) {
    std::fprintf(stderr, "tesselux render: interrupted; nothing written\n");
    return 130;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tesselux render: %s\n", e.what());
    return 1;
  }
}

}  // namespace cli
