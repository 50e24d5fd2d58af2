// The fuzz targets as plain functions: libFuzzer's entry point calls one of
// them, and the replay test runs the committed corpora through all of them in
// the ordinary and sanitizer builds.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

// The renderer at all three depths on worlds, controls, masks and time frames
// built from the bytes.
int renderOne(const uint8_t* data, size_t size);
// The sample-time mapping with arbitrary host times and steps.
int sampleTimeOne(const uint8_t* data, size_t size);
// EffectMain through the headless host: a sequence of commands with control
// values, host identities and injected host failures taken from the bytes.
int effectMainOne(const uint8_t* data, size_t size);
// The command's image and video readers on arbitrary file bytes.
int readerOne(const uint8_t* data, size_t size);

}  // namespace fuzz
