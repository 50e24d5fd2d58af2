// `tesselux demo [-o DIR]`: the built-in clip through a striking preset.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "commands.h"
#include "demo_clip.h"
#include "interrupt.h"
#include "io/media.h"
#include "options.h"

namespace cli {

namespace {

constexpr int kWidth = 1280, kHeight = 720, kFrames = 120, kFps = 30;

// Block shuffle with the time shift pulling blocks from up to eight other
// frames, and the mask clip vetoing pairs outside its moving disc and band.
const char* const kPreset[] = {
    "--block-width",   "40",   "--block-height",      "40",        "--strength",       "0.45",
    "--spread",        "0.35", "--direction",         "all",       "--seed",           "2024",
    "--time-frames",   "8",    "--time-probability",  "60",        "--stepping-unit",  "frame",
    "--time-step-frames", "6", "--edge-mode",         "wrap",      "--mask-intensity", "70",
    "--mask-type",     "randomized-threshold",
};

void writeClip(const std::string& path, Picture (*make)(int, int, int, int), bool quiet) {
  SinkSettings s;
  s.quiet = quiet;
  s.path = path;
  s.rate = Rate{kFps, 1};
  s.frameCount = kFrames;
  s.crf = 16;
  VideoTags tags;
  tags.colorRange = 1;  // limited range
  tags.colorPrimaries = tags.colorTrc = tags.colorSpace = 1;  // BT.709
  s.tags = tags;
  auto sink = openSink(s);
  // A signal stops the clip between frames; the sink, uncommitted, removes its file.
  for (int k = 0; k < kFrames; ++k) {
    throwIfInterrupted();
    sink->write(make(k, kWidth, kHeight, kFrames));
  }
  throwIfInterrupted();
  sink->commit();
}

Picture frameOf(FrameSource& source, int k) {
  Picture p = source.read(k);
  return p.type == SampleType::U8 ? p : convert(p, SampleType::U8);
}

// Input frames above output frames, each a quarter of full size.
void writeContactSheet(const std::string& input, const std::string& output, const std::string& path) {
  auto in = openSource(input);
  auto out = openSource(output);
  const int picks[] = {12, 42, 72, 102};
  const int cell = 4, gap = 4;
  const int w = kWidth / cell, h = kHeight / cell;
  Picture sheet(4 * w + 5 * gap, 2 * h + 3 * gap, SampleType::U8);
  for (size_t i = 0; i < sheet.data.size(); i += 4) {
    sheet.data[i] = sheet.data[i + 1] = sheet.data[i + 2] = 24;
    sheet.data[i + 3] = 255;
  }
  for (int row = 0; row < 2; ++row)
    for (int c = 0; c < 4; ++c) {
      const Picture small = shrink(frameOf(row == 0 ? *in : *out, picks[c]), cell);
      const int x0 = gap + c * (w + gap), y0 = gap + row * (h + gap);
      for (int y = 0; y < small.height; ++y)
        std::memcpy(sheet.row(y0 + y) + x0 * 4, small.row(y), small.rowBytes());
    }
  writeImage(path, sheet);
}

}  // namespace

int runDemo(const std::vector<std::string>& args) {
  std::string dir = "tesselux-demo", plugin, host = "ae";
  bool quiet = false;
  int threads = 0;
  CLI::App app{"Generates a 1280x720, 4-second clip (moving gradients, shapes, lettering) and a mask\n"
               "clip, renders them through the effect with a preset that uses the time shift and\n"
               "the mask, and writes input.mp4, mask.mp4, output.mp4 and contact_sheet.png into DIR.",
               "tesselux demo"};
  app.add_option("-o,--output", dir, "folder to write into (made if missing)")->default_str("tesselux-demo");
  app.add_option("--plugin", plugin, "the effect module to load");
  app.add_option("--host", host, "ae or premiere")->default_str("ae");
  app.add_option("--threads", threads, "frames rendered at once (default: all cores)")->check(CLI::PositiveNumber);
  app.add_flag("-q,--quiet", quiet, "print nothing but errors");
  std::vector<const char*> argv{"tesselux demo"};
  for (const std::string& a : args) argv.push_back(a.c_str());
  try {
    app.parse(static_cast<int>(argv.size()), argv.data());
  } catch (const CLI::CallForHelp&) {
    std::printf("%s", app.help().c_str());
    return 0;
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "tesselux demo: %s\n", e.what());
    return 2;
  }
  namespace fs = std::filesystem;
  // Ctrl-C (or SIGTERM, SIGHUP) while the clips are made or rendered removes
  // the file being written; the render inside keeps this guard's signal.
  InterruptGuard guard;
  try {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (!fs::is_directory(dir)) throw MediaError(dir + ": cannot make the folder");
    const std::string input = (fs::path(dir) / "input.mp4").string();
    const std::string mask = (fs::path(dir) / "mask.mp4").string();
    const std::string output = (fs::path(dir) / "output.mp4").string();
    const std::string sheet = (fs::path(dir) / "contact_sheet.png").string();
    if (!quiet) std::fprintf(stderr, "tesselux demo: generating the input clip and the mask\n");
    writeClip(input, demoFrame, quiet);
    writeClip(mask, demoMaskFrame, quiet);
    // The folder is the demo's own: a second run replaces what the first wrote.
    std::vector<std::string> render{input, "-o", output, "-y", "--mask", mask, "--host", host};
    for (const char* a : kPreset) render.push_back(a);
    if (!plugin.empty()) render.insert(render.end(), {"--plugin", plugin});
    if (threads > 0) render.insert(render.end(), {"--threads", std::to_string(threads)});
    if (quiet) render.push_back("--quiet");
    if (!quiet) std::fprintf(stderr, "tesselux demo: rendering %d frames at %dx%d\n", kFrames, kWidth, kHeight);
    const int status = runRender(render);
    if (status != 0) return status;
    writeContactSheet(input, output, sheet);
    if (quiet) return 0;
    std::printf("Demo written to %s:\n  %s\n  %s\n  %s\n  %s  (input frames above output frames)\n",
                fs::absolute(dir).string().c_str(), input.c_str(), mask.c_str(), output.c_str(), sheet.c_str());
    return 0;
  } catch (const Interrupted&) {
    std::fprintf(stderr, "tesselux demo: interrupted; the file being written was removed\n");
    return 128 + interruptSignal();  // as the shell reports the signal: 130, 143, 129
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tesselux demo: %s\n", e.what());
    return 1;
  }
}

}  // namespace cli
