// Shared set-up of the host's own tests: a Host around the fake effect module.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "thost/host.h"

namespace thost_test {

inline const char* fakeEffectPath() { return THOST_FAKE_EFFECT; }

class FakeHost : public ::testing::Test {
 protected:
  thost::Host host{fakeEffectPath()};

  // Runs one misbehaviour (or check) of the fake effect by name.
  PF_Err scenario(const char* name) {
    return host.send(PF_Cmd_COMPLETELY_GENERAL, const_cast<char*>(name));
  }

  // Registration, global setup and parameter setup, as a host does first.
  void startUp() {
    ASSERT_EQ(host.registerPlugin(), A_Err_NONE);
    ASSERT_EQ(host.globalSetup(), PF_Err_NONE);
    ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
    host.clearCalls();
  }

  std::vector<std::string> breaks() const { return host.contractBreaks(); }
};

}  // namespace thost_test
