// Decoding a Windows-layout PiPL, and the checks a host makes of the effect's
// description against what the effect registers and writes at global setup.
#include "thost/pipl.h"

#include <algorithm>

#include "impl.h"

namespace thost {

namespace {

uint32_t le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// Stored as a little-endian integer, a four-character code reads backwards.
std::string code(const uint8_t* p) {
  return {char(p[3]), char(p[2]), char(p[1]), char(p[0])};
}

std::string pascal(const PiPLProperty& p) {
  if (p.payload.empty()) return {};
  const std::size_t n = std::min<std::size_t>(p.payload[0], p.payload.size() - 1);
  return std::string(p.payload.begin() + 1, p.payload.begin() + 1 + static_cast<long>(n));
}

std::string cString(const PiPLProperty& p) {
  const auto end = std::find(p.payload.begin(), p.payload.end(), uint8_t{0});
  return std::string(p.payload.begin(), end);
}

void describe(const PiPLProperty& p, PiPLDescription& d) {
  const uint32_t word = p.payload.size() >= 4 ? le32(p.payload.data()) : 0;
  if (p.key == "kind" && p.payload.size() >= 4) d.kind = code(p.payload.data());
  else if (p.key == "name") d.name = pascal(p);
  else if (p.key == "catg") d.category = pascal(p);
  else if (p.key == "eMNA") d.matchName = pascal(p);
  else if (p.key == "8664") d.entryPoint = cString(p);
  else if (p.key == "ePVR") d.pluginVersionMajor = uint16_t(word >> 16), d.pluginVersionMinor = uint16_t(word);
  else if (p.key == "eSVR") d.specVersion = uint16_t(word >> 16), d.specSubversion = uint16_t(word);
  else if (p.key == "eVER") d.effectVersion = word;
  else if (p.key == "eINF") d.infoFlags = uint16_t(word);
  else if (p.key == "eGLO") d.outFlags = word;
  else if (p.key == "eGL2") d.outFlags2 = word;
  else if (p.key == "aeFL") d.reservedInfo = word;
}

}  // namespace

bool parsePiPL(const uint8_t* data, std::size_t size, PiPLDescription& out, std::string& error) {
  out = PiPLDescription{};
  if (size < 10) return error = "shorter than its header", false;
  if ((data[0] | data[1] << 8) != 1) return error = "first word is not 1", false;
  if (le32(data + 2) != 0) return error = "version is not 0", false;
  const uint32_t count = le32(data + 6);
  std::size_t at = 10;
  for (uint32_t i = 0; i < count; ++i) {
    if (size - at < 16) return error = "property " + std::to_string(i) + " runs past the end", false;
    PiPLProperty p;
    p.vendor = code(data + at);
    p.key = code(data + at + 4);
    p.id = le32(data + at + 8);
    p.length = le32(data + at + 12);
    at += 16;
    const std::size_t stored = (std::size_t{p.length} + 3) / 4 * 4;
    if (size - at < stored) return error = "payload of " + p.key + " runs past the end", false;
    p.payload.assign(data + at, data + at + stored);
    at += stored;
    describe(p, out);
    out.properties.push_back(std::move(p));
  }
  if (at != size) return error = std::to_string(size - at) + " bytes after the last property", false;
  return true;
}

// After Effects warns when the PiPL and the effect disagree; here that is a
// contract break. Off Windows there is no resource to read: the description
// the host was built with is checked when the effect is the one it describes.
bool Host::Impl::piplApplies(PiPLDescription& d) {
  const std::vector<uint8_t>& bytes = module->pipl();
  if (bytes.empty()) return false;
  std::string error;
  if (!parsePiPL(bytes.data(), bytes.size(), d, error)) {
    addBreak("PiPL resource is malformed: " + error);
    return false;
  }
  return module->piplFromModule() || d.matchName == registration.matchName;
}

void Host::Impl::checkPiPLRegistration() {
  PiPLDescription d;
  if (registration.callCount == 0 || !piplApplies(d)) return;
  auto expect = [this](const std::string& what, const std::string& pipl, const std::string& reg) {
    if (pipl != reg)
      addBreak("PiPL " + what + " \"" + pipl + "\" differs from the registered \"" + reg + "\"");
  };
  expect("kind", d.kind, "eFKT");
  expect("name", d.name, registration.name);
  expect("match name", d.matchName, registration.matchName);
  expect("category", d.category, registration.category);
  expect("entry point", d.entryPoint, registration.entryPoint);
  expect("spec version", std::to_string(d.specVersion) + "." + std::to_string(d.specSubversion),
         std::to_string(registration.apiVersion) + "." + std::to_string(registration.apiSubversion));
}

void Host::Impl::checkPiPLFlags() {
  PiPLDescription d;
  if (!piplApplies(d)) return;
  auto expect = [this](const char* what, uint32_t pipl, A_long written) {
    if (pipl != static_cast<uint32_t>(written))
      addBreak(std::string("PiPL ") + what + " 0x" + hex(pipl) + " differs from the 0x" +
               hex(static_cast<uint32_t>(written)) + " global setup wrote");
  };
  expect("eGLO (out_flags)", d.outFlags, out.out_flags);
  expect("eGL2 (out_flags2)", d.outFlags2, out.out_flags2);
}

std::string Host::Impl::hex(uint32_t v) {
  static const char digits[] = "0123456789abcdef";
  std::string s(8, '0');
  for (int i = 7; i >= 0; --i, v >>= 4) s[static_cast<std::size_t>(i)] = digits[v & 15];
  return s;
}

}  // namespace thost
