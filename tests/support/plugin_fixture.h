// A test fixture that loads the built plug-in into a fresh headless host and,
// unless a test says it is about one, fails on any host contract break.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "thost/host.h"

class PluginTest : public ::testing::Test {
 protected:
  void TearDown() override { endSession(); }

  // Ends the host's session (what it owns is disposed, anything the effect
  // left behind is a leak) and checks that no contract was broken.
  void endSession() {
    if (!host_) return;
    host_->finish();
    if (!expectBreaks_) {
      EXPECT_TRUE(host_->contractBreaks().empty()) << joined(host_->contractBreaks());
    }
  }

  thost::Host& makeHost(thost::App app = thost::App::AfterEffects, A_short major = 13,
                        A_short minor = 28) {
    // The old host goes first so that the module is unloaded and its
    // process-wide state (id map, click memory) starts afresh.
    endSession();
    host_.reset();
    host_ = std::make_unique<thost::Host>(thost::Host::defaultPluginPath(), app,
                                          thost::ApiVersion{major, minor});
    return *host_;
  }

  // Registration, global setup and parameter setup, as a host does on apply.
  thost::Host& setUpEffect(thost::App app = thost::App::AfterEffects, A_short major = 13,
                           A_short minor = 28) {
    thost::Host& h = makeHost(app, major, minor);
    EXPECT_EQ(h.registerPlugin(), A_Err_NONE);
    EXPECT_EQ(h.globalSetup(), PF_Err_NONE);
    EXPECT_EQ(h.paramsSetup(), PF_Err_NONE);
    return h;
  }

  static std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const auto& l : lines) s += l + "\n";
    return s;
  }

  std::unique_ptr<thost::Host> host_;
  bool expectBreaks_ = false;
};
