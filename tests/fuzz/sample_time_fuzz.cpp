// The sample-time mapping with arbitrary 32-bit host times, steps and scales,
// any offset (NaN and infinities included), unit, edge mode and frame skip.
// It must return, and whenever the layer has a duration the three edge modes
// land where they map: Mirror inside [0, total_time), Wrap at most one frame
// before the start, Repeat Last inside or on its last frame (total_time -
// time_step). Other mode values hand the time on unmapped, as the controls
// never produce them.
#include <cstdint>

#include "fuzz_input.h"
#include "fuzz_targets.h"
#include "time/layer_checkout.h"

namespace fuzz {

int sampleTimeOne(const uint8_t* data, size_t size) {
  Input in(data, size);
  PF_InData in_data{};
  in_data.current_time = in.i32();
  in_data.time_step = in.flag() ? in.range(-2, 3000) : in.i32();
  in_data.total_time = in.flag() ? in.range(-2, 300000) : in.i32();
  in_data.time_scale = in.flag() ? static_cast<A_u_long>(in.range(0, 240000)) : in.u32();
  const int unitIsFrames = in.flag() ? 1 : 0;
  double time;
  switch (in.u8() % 4) {
    case 0:
      time = in.rawDouble();
      break;
    case 1: {
      const double times = in.range(1, 16);
      time = times * in.nearRangeDouble(-256.0, 256.0) *
             (unitIsFrames ? static_cast<double>(in_data.time_step) : 1.0);
      break;
    }
    case 2: {
      const double t = in.nearRangeDouble(-5.0, 5.0);
      time = t * in.range(1, 16);
      break;
    }
    default:
      time = static_cast<double>(in.i32());
      break;
  }
  const int edgeMode = in.flag() ? in.range(0, 2) : in.i32();
  const double frameSkip = in.flag() ? -1.0 : in.nearRangeDouble(0.0, 30.0);

  const A_long r = sampleTime(&in_data, time, unitIsFrames, edgeMode, frameSkip);
  const bool mapped = edgeMode == EDGE_REPEAT_LAST || edgeMode == EDGE_WRAP || edgeMode == EDGE_MIRROR;
  if (!mapped || in_data.total_time <= 0) return 0;
  const int64_t d = in_data.total_time, s = in_data.time_step;
  if (r >= d) fail("a mapped sample time lies past the layer's end");
  if (r >= 0) return 0;
  if (s <= 0 || edgeMode == EDGE_MIRROR) fail("a mapped sample time lies before the layer");
  if (edgeMode == EDGE_WRAP && r <= -s) fail("Wrap lands more than a frame before the layer");
  if (edgeMode == EDGE_REPEAT_LAST && r != d - s) fail("Repeat Last lands before the layer");
  return 0;
}

}  // namespace fuzz
