// The Windows PiPL bytes generated from the effect's description: their
// layout, and their values against what the loaded effect registers and
// what its global setup writes.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

#include "plugin_fixture.h"
#include "tesselux_pipl_bytes.h"

namespace {

struct Property {
  std::string vendor, key;
  uint32_t id = 0, length = 0;
  std::vector<unsigned char> payload;
};

uint32_t le32(const unsigned char* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// A four-character code stored as a little-endian integer reads backwards.
std::string code(const unsigned char* p) { return {char(p[3]), char(p[2]), char(p[1]), char(p[0])}; }

std::vector<Property> decode(const unsigned char* data, size_t size, uint32_t& count) {
  std::vector<Property> props;
  EXPECT_GE(size, 10u);
  EXPECT_EQ(data[0] | data[1] << 8, 1);
  EXPECT_EQ(le32(data + 2), 0u);
  count = le32(data + 6);
  size_t at = 10;
  while (at + 16 <= size) {
    Property p;
    p.vendor = code(data + at);
    p.key = code(data + at + 4);
    p.id = le32(data + at + 8);
    p.length = le32(data + at + 12);
    at += 16;
    const size_t stored = (p.length + 3) / 4 * 4;
    EXPECT_LE(at + stored, size) << p.key;
    if (at + stored > size) break;
    p.payload.assign(data + at, data + at + stored);
    at += stored;
    props.push_back(p);
  }
  EXPECT_EQ(at, size) << "trailing bytes";
  return props;
}

std::string pascalText(const Property& p) {
  if (p.payload.empty()) return "<empty>";
  const size_t n = p.payload[0];
  // The property's length counts the padding; the length byte does not.
  EXPECT_EQ((1 + n + 3) / 4 * 4, p.length) << p.key;
  EXPECT_LE(1 + n, p.payload.size()) << p.key;
  return std::string(p.payload.begin() + 1, p.payload.begin() + 1 + std::min(n, p.payload.size() - 1));
}

}  // namespace

TEST(PiPLBytes, LayoutIsTheVendorWindowsLayout) {
  uint32_t count = 0;
  const auto props = decode(kTesseluxPiPL, sizeof kTesseluxPiPL, count);
  const std::vector<std::string> order = {"kind", "name", "catg", "8664", "ePVR", "eSVR",
                                          "eVER", "eINF", "eGLO", "eGL2", "eMNA", "aeFL"};
  ASSERT_EQ(props.size(), order.size());
  EXPECT_EQ(count, order.size());
  for (size_t i = 0; i < props.size(); ++i) {
    EXPECT_EQ(props[i].key, order[i]);
    EXPECT_EQ(props[i].vendor, "8BIM");
    EXPECT_EQ(props[i].id, 0u);
  }
  // Four-character codes land backwards in the file.
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(kTesseluxPiPL) + 10, 4), "MIB8");
  EXPECT_EQ(code(props[0].payload.data()), "eFKT");
  EXPECT_EQ(props[1].length, 12u);  // 8, "Tesselux", 3 zeros
  EXPECT_EQ(props[1].payload[0], 8);
  EXPECT_EQ(props[2].length, 8u);   // "Vornik"
  EXPECT_EQ(props[3].length, 12u);  // "EffectMain" and its zero
  EXPECT_EQ(props[7].length, 2u);
  EXPECT_EQ(props[7].payload.size(), 4u);
  EXPECT_EQ(le32(props[4].payload.data()), 0x00020000u);
  EXPECT_EQ(le32(props[5].payload.data()), (13u << 16) | 28u);
  EXPECT_EQ(le32(props[7].payload.data()), 0u);
}

TEST_F(PluginTest, PiPLBytesMatchRegistrationAndGlobalSetup) {
  uint32_t count = 0;
  const auto props = decode(kTesseluxPiPL, sizeof kTesseluxPiPL, count);
  ASSERT_EQ(props.size(), 12u);
  thost::Host& h = makeHost();
  ASSERT_EQ(h.registerPlugin(), A_Err_NONE);
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  const thost::Registration& r = h.registration();
  const PF_OutData& out = h.outData();
  EXPECT_EQ(pascalText(props[1]), r.name);
  EXPECT_EQ(pascalText(props[2]), r.category);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(props[3].payload.data())), r.entryPoint);
  EXPECT_EQ(le32(props[5].payload.data()),
            (uint32_t(r.apiVersion) << 16) | uint32_t(r.apiSubversion));
  EXPECT_EQ(le32(props[6].payload.data()), out.my_version);
  EXPECT_EQ(static_cast<A_long>(le32(props[8].payload.data())), out.out_flags);
  EXPECT_EQ(static_cast<A_long>(le32(props[9].payload.data())), out.out_flags2);
  EXPECT_EQ(pascalText(props[10]), r.matchName);
  EXPECT_EQ(le32(props[11].payload.data()), static_cast<uint32_t>(r.reservedInfo));
}

#ifdef _WIN32
// The resource windres put into Tesselux.aex, read back as After Effects reads
// it: type "PiPL" (compared without case), id 16000, the same bytes.
TEST(PiPLBytes, TheModuleCarriesTheGeneratedResource) {
  HMODULE module = LoadLibraryExA(thost::Host::defaultPluginPath().c_str(), nullptr,
                                  LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(module, nullptr);
  HRSRC found = FindResourceA(module, MAKEINTRESOURCEA(16000), "PiPL");
  ASSERT_NE(found, nullptr);
  const DWORD size = SizeofResource(module, found);
  const auto* bytes = static_cast<const unsigned char*>(LockResource(LoadResource(module, found)));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + size),
            std::vector<unsigned char>(kTesseluxPiPL, kTesseluxPiPL + sizeof kTesseluxPiPL));
  FreeLibrary(module);
}
#endif
