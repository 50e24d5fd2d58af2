// The effect description of a Windows-layout PiPL resource, decoded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace thost {

struct PiPLProperty {
  std::string vendor, key;  // four-character codes, as read ("8BIM", "eGLO")
  uint32_t id = 0, length = 0;
  std::vector<uint8_t> payload;  // padded to a multiple of 4
};

struct PiPLDescription {
  std::vector<PiPLProperty> properties;  // in file order
  std::string kind, name, category, matchName, entryPoint;  // entryPoint: the "8664" code
  uint16_t pluginVersionMajor = 0, pluginVersionMinor = 0;
  uint16_t specVersion = 0, specSubversion = 0;
  uint32_t effectVersion = 0, outFlags = 0, outFlags2 = 0, reservedInfo = 0;
  uint16_t infoFlags = 0;
};

// Decodes `size` bytes (little-endian, four-character codes stored as
// little-endian integers). Returns false and says why in `error` when the
// bytes are not a well-formed PiPL.
bool parsePiPL(const uint8_t* data, std::size_t size, PiPLDescription& out, std::string& error);

}  // namespace thost
