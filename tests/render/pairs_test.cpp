// The pairs of a chunk of attempts by every version this processor has
// (eight at a time in vector lanes on AVX2), against the one-at-a-time
// portable form (which the reference comparison checks against an
// independent model of the shuffle).
#include <gtest/gtest.h>

#include <stdint.h>

#include <random>
#include <vector>

#include "dsp_versions.h"
#include "render/pairs.h"

namespace {

using tesselux_kernel::makeShuffleSetup;
using tesselux_kernel::ShuffleSetup;

struct Grid {
  A_long columns, rows;
  bool partialW, partialH;
};

void expectSamePairs(const ShuffleSetup& s, const std::vector<uint32_t>& draws, const char* what) {
  const long long count = static_cast<long long>(draws.size() / 3);
  std::vector<uint32_t> plain(2 * count + 2, 0xDEADBEEFu);
  tesselux_kernel::pairsFromDrawsPortable(s, draws.data(), reinterpret_cast<uint32_t(*)[2]>(plain.data()), count);
  for (const tesselux_kernel::KernelDsp& dsp : rt::everyDsp()) {
    std::vector<uint32_t> lanes(2 * count + 2, 0xDEADBEEFu);
    dsp.pairsFromDraws(s, draws.data(), reinterpret_cast<uint32_t(*)[2]>(lanes.data()), count);
    for (long long i = 0; i < 2 * count + 2; ++i)
      ASSERT_EQ(lanes[i], plain[i]) << what << " (" << dsp.name << "): attempt " << i / 2
                                    << (i % 2 ? " block b" : " block a")
                                    << (i >= 2 * count ? " (past the end: must be untouched)" : "");
    // Both blocks lie in the grid.
    const uint32_t blocks = s.columns * static_cast<uint32_t>(s.lastRow + 1);
    for (long long i = 0; i < 2 * count; ++i) ASSERT_LT(lanes[i], blocks) << what << " (" << dsp.name << ")";
  }
}

TEST(PairsLanes, SameAsOneAtATimeOnRandomGrids) {
  std::mt19937 rng(2026);
  for (int round = 0; round < 3000; ++round) {
    Grid g;
    // Mostly small grids, where the clamps and the partial edges matter,
    // some as large as the packing allows.
    const uint32_t reach = round % 10 == 0 ? 65536 : round % 3 == 0 ? 600 : 9;
    g.columns = static_cast<A_long>(rng() % reach) + 1;
    g.rows = static_cast<A_long>(rng() % reach) + 1;
    if (static_cast<long long>(g.columns) * g.rows > 0x7FFFFFFFLL) g.rows = 0x7FFFFFFF / g.columns;
    g.partialW = rng() % 2 != 0;
    g.partialH = rng() % 2 != 0;
    const A_long spread = round % 4 == 0 ? 0 : round % 4 == 1 ? 1024 : static_cast<A_long>(rng() % 1025);
    const A_long direction = static_cast<A_long>(round % 3);
    const ShuffleSetup s = makeShuffleSetup(g.columns, g.rows, g.partialW, g.partialH, spread, direction);
    // A count that is not a multiple of eight leaves a tail to the plain form.
    std::vector<uint32_t> draws(3 * (rng() % 100 + 1));
    for (auto& d : draws) d = rng();
    if (round % 5 == 0)
      for (size_t i = 0; i < draws.size(); ++i) draws[i] = i % 2 ? 0xFFFFFFFFu : 0u;
    expectSamePairs(s, draws, "random grid");
  }
}

TEST(PairsLanes, EdgesOfTheGrid) {
  // Draws that land every block of a small grid on every offset of the span:
  // blocks in the first and last column and row, partial or not.
  for (A_long columns : {1, 2, 3, 8}) {
    for (A_long rows : {1, 2, 5}) {
      for (int partial = 0; partial < 4; ++partial) {
        for (A_long spread : {0, 300, 1024}) {
          for (A_long direction : {0, 1, 2}) {
            const ShuffleSetup s =
                makeShuffleSetup(columns, rows, (partial & 1) != 0, (partial & 2) != 0, spread, direction);
            std::vector<uint32_t> draws;
            const uint32_t blocks = static_cast<uint32_t>(columns * rows);
            for (uint32_t a = 0; a < blocks; ++a)
              for (uint32_t k = 0; k < 8; ++k) {
                draws.push_back(a);
                draws.push_back(k);
                draws.push_back(7 - k);
              }
            expectSamePairs(s, draws, "edge grid");
          }
        }
      }
    }
  }
}

}  // namespace
