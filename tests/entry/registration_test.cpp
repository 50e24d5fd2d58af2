// Registration, the exported symbols and the resource description.
#include <cstdio>
#include <fstream>
#include <cctype>
#include <set>
#include <sstream>

#include "exported_symbols.h"
#include "plugin_fixture.h"

using thost::App;

TEST_F(PluginTest, RegistrationPassesTheEightValuesInOrder) {
  thost::Host& h = makeHost();
  EXPECT_EQ(h.registerPlugin(), A_Err_NONE);
  const thost::Registration& r = h.registration();
  EXPECT_EQ(r.callCount, 1);
  EXPECT_EQ(r.name, "Tesselux");
  EXPECT_EQ(r.matchName, "tesselux");
  EXPECT_EQ(r.category, "Vornik");
  EXPECT_EQ(r.entryPoint, "EffectMain");
  EXPECT_EQ(r.kind, 0x65464B54);  // 'eFKT'
  EXPECT_EQ(r.apiVersion, 13);
  EXPECT_EQ(r.apiSubversion, 28);
  EXPECT_EQ(r.reservedInfo, 8);
}

TEST_F(PluginTest, RegistrationReturnsTheCallbacksResultUnchanged) {
  thost::Host& h = makeHost();
  h.failCall("PluginDataCB", 7);
  EXPECT_EQ(h.registerPlugin(), 7);
}

TEST(ExportedSymbols, OnlyTheTwoEntryPointsAreExported) {
  EXPECT_EQ(test_support::exportedSymbols(thost::Host::defaultPluginPath()),
            (std::set<std::string>{"EffectMain", "PluginDataEntryFunction"}));
}

namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// The value list of one PiPL property ("Key { values }"), without comments and
// white space.
std::string piplProperty(const std::string& text, const std::string& key) {
  size_t at = 0;
  while ((at = text.find(key, at)) != std::string::npos) {
    const size_t after = at + key.size();
    const auto isWordChar = [](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
    };
    const bool wholeWord =
        (at == 0 || !isWordChar(text[at - 1])) && after < text.size() && !isWordChar(text[after]);
    const size_t open = text.find_first_not_of(" \t\r\n", after);
    if (wholeWord && open != std::string::npos && text[open] == '{') {
      const size_t close = text.find('}', open);
      std::string body = text.substr(open + 1, close - open - 1);
      std::string value;
      for (size_t i = 0; i < body.size(); ++i) {
        if (body.compare(i, 2, "/*") == 0) {
          i = body.find("*/", i + 2) + 1;
        } else if (!std::isspace(static_cast<unsigned char>(body[i]))) {
          value += body[i];
        }
      }
      return value;
    }
    at = after;
  }
  return "<missing " + key + ">";
}

}  // namespace

TEST_F(PluginTest, ResourceDescriptionMatchesRegistrationAndGlobalSetup) {
  const std::string pipl = readFile(TESSELUX_PIPL_SOURCE);
  ASSERT_FALSE(pipl.empty());

  thost::Host& h = makeHost();
  ASSERT_EQ(h.registerPlugin(), A_Err_NONE);
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  const thost::Registration& r = h.registration();
  const PF_OutData& out = h.outData();

  EXPECT_EQ(piplProperty(pipl, "Kind"), "AEEffect");
  EXPECT_EQ(piplProperty(pipl, "Name"), "\"" + r.name + "\"");
  EXPECT_EQ(piplProperty(pipl, "Category"), "\"" + r.category + "\"");
  EXPECT_EQ(piplProperty(pipl, "AE_Effect_Match_Name"), "\"" + r.matchName + "\"");
  EXPECT_EQ(piplProperty(pipl, "CodeMacIntel64"), "\"" + r.entryPoint + "\"");
  EXPECT_EQ(piplProperty(pipl, "CodeMacARM64"), "\"" + r.entryPoint + "\"");
  // The resource takes the API version from the version header's two names,
  // which must be the pair the effect registers with.
  EXPECT_EQ(piplProperty(pipl, "AE_Effect_Spec_Version"), "PF_PLUG_IN_VERSION,PF_PLUG_IN_SUBVERS");
  EXPECT_EQ(std::to_string(PF_PLUG_IN_VERSION) + "," + std::to_string(PF_PLUG_IN_SUBVERS),
            std::to_string(r.apiVersion) + "," + std::to_string(r.apiSubversion));
  EXPECT_EQ(piplProperty(pipl, "AE_Reserved_Info"), std::to_string(r.reservedInfo));
  EXPECT_EQ(std::stoul(piplProperty(pipl, "AE_Effect_Version"), nullptr, 0), out.my_version);
  EXPECT_EQ(static_cast<A_long>(std::stoul(piplProperty(pipl, "AE_Effect_Global_OutFlags"),
                                           nullptr, 0)),
            out.out_flags);
  EXPECT_EQ(static_cast<A_long>(std::stoul(piplProperty(pipl, "AE_Effect_Global_OutFlags_2"),
                                           nullptr, 0)),
            out.out_flags2);
}
