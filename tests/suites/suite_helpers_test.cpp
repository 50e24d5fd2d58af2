// The suite helpers and rectangle helpers on their own: the error paths that
// need a host without a basic suite, or a null suite set, are reachable only here.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "host/suites.h"

namespace {

struct FakeSP {
  std::vector<std::string> log;
  std::set<std::string> missing;  // "name,version"
  int dummyTable[64] = {};
};
FakeSP* sp = nullptr;

std::string key(const char* name, int32_t version) {
  return std::string(name) + "," + std::to_string(version);
}

SPErr fakeAcquire(const char* name, int32_t version, const void** suite) {
  sp->log.push_back("acquire " + key(name, version));
  if (sp->missing.count(key(name, version))) return kSPSuiteNotFoundError;
  *suite = sp->dummyTable;
  return kSPNoError;
}
SPErr fakeRelease(const char* name, int32_t version) {
  sp->log.push_back("release " + key(name, version));
  return kSPNoError;
}
int fakeSprintf(A_char* buffer, const A_char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int n = std::vsnprintf(buffer, 256, format, ap);
  va_end(ap);
  return n;
}

class SuiteHelpers : public ::testing::Test {
 protected:
  void SetUp() override {
    sp = &fake;
    basic.AcquireSuite = fakeAcquire;
    basic.ReleaseSuite = fakeRelease;
    utils.ansi.sprintf = fakeSprintf;
    std::memset(&in, 0, sizeof in);
    std::memset(&out, 0, sizeof out);
    in.utils = &utils;
    in.pica_basicP = &basic;
  }
  void TearDown() override { sp = nullptr; }
  FakeSP fake;
  SPBasicSuite basic{};
  PF_UtilCallbacks utils{};
  PF_InData in;
  PF_OutData out;
};

TEST_F(SuiteHelpers, AcquireSuiteHandsOutTheTable) {
  void* suite = nullptr;
  EXPECT_EQ(AEFX_AcquireSuite(&in, &out, "PF World Suite", 2, nullptr, &suite), PF_Err_NONE);
  EXPECT_EQ(suite, fake.dummyTable);
  EXPECT_EQ(fake.log, std::vector<std::string>{"acquire PF World Suite,2"});
  EXPECT_EQ(out.out_flags, 0);
}

TEST_F(SuiteHelpers, AMissingSuiteIs516WithTheDefaultOrTheGivenMessage) {
  fake.missing.insert("PF World Suite,2");
  void* suite = nullptr;
  EXPECT_EQ(AEFX_AcquireSuite(&in, &out, "PF World Suite", 2, nullptr, &suite),
            PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "Not able to acquire AEFX Suite.");
  EXPECT_TRUE(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);

  std::memset(&out, 0, sizeof out);
  EXPECT_EQ(AEFX_AcquireSuite(&in, &out, "PF World Suite", 2, "no world", &suite),
            PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "no world");
}

TEST_F(SuiteHelpers, WithoutABasicSuiteAcquireAndReleaseAre516) {
  in.pica_basicP = nullptr;
  void* suite = nullptr;
  EXPECT_EQ(AEFX_AcquireSuite(&in, &out, "PF World Suite", 2, nullptr, &suite),
            PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "Not able to acquire AEFX Suite.");
  std::memset(&out, 0, sizeof out);
  EXPECT_EQ(AEFX_ReleaseSuite(&in, &out, "PF World Suite", 2, nullptr), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "Not able to release AEFX Suite.");
  EXPECT_TRUE(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  std::memset(&out, 0, sizeof out);
  EXPECT_EQ(AEFX_ReleaseDrawbotSuites(&in, &out), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "Not able to release AEFX Suite.");
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(SuiteHelpers, ReleaseSuiteReleasesByNameAndVersion) {
  EXPECT_EQ(AEFX_ReleaseSuite(&in, &out, "PF World Suite", 2, nullptr), PF_Err_NONE);
  EXPECT_EQ(fake.log, std::vector<std::string>{"release PF World Suite,2"});
}

TEST_F(SuiteHelpers, DrawbotSuitesComeInOrderAndStopAtTheFirstMissing) {
  DRAWBOT_Suites suites{};
  EXPECT_EQ(AEFX_AcquireDrawbotSuites(&in, &out, &suites), PF_Err_NONE);
  EXPECT_EQ(fake.log, (std::vector<std::string>{
                          "acquire DRAWBOT Draw Suite,1", "acquire DRAWBOT Supplier Suite,1",
                          "acquire DRAWBOT Surface Suite,2", "acquire DRAWBOT Path Suite,1"}));
  EXPECT_NE(suites.path_suiteP, nullptr);
  fake.log.clear();
  EXPECT_EQ(AEFX_ReleaseDrawbotSuites(&in, &out), PF_Err_NONE);
  EXPECT_EQ(fake.log, (std::vector<std::string>{
                          "release DRAWBOT Draw Suite,1", "release DRAWBOT Supplier Suite,1",
                          "release DRAWBOT Surface Suite,2", "release DRAWBOT Path Suite,1"}));

  fake.log.clear();
  fake.missing.insert("DRAWBOT Surface Suite,2");
  DRAWBOT_Suites partial{};
  EXPECT_EQ(AEFX_AcquireDrawbotSuites(&in, &out, &partial), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(fake.log, (std::vector<std::string>{"acquire DRAWBOT Draw Suite,1",
                                                "acquire DRAWBOT Supplier Suite,1",
                                                "acquire DRAWBOT Surface Suite,2"}));
  EXPECT_EQ(partial.path_suiteP, nullptr);
  EXPECT_STREQ(out.return_msg, "Not able to acquire AEFX Suite.");
}

TEST_F(SuiteHelpers, ANullDrawbotSuiteSetIs516WithItsOwnMessage) {
  EXPECT_EQ(AEFX_AcquireDrawbotSuites(&in, &out, nullptr), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_STREQ(out.return_msg, "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
  EXPECT_TRUE(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(SuiteHelpers, SuiteHandlerAcquiresOnFirstUseOnceAndReleasesOnDestruction) {
  {
    AEGP_SuiteHandler suites(&basic);
    EXPECT_TRUE(fake.log.empty());
    const PF_HandleSuite1* a = suites.HandleSuite1();
    const PF_HandleSuite1* b = suites.HandleSuite1();
    EXPECT_EQ(a, b);
    suites.ParamUtilsSuite3();
    EXPECT_EQ(fake.log, (std::vector<std::string>{"acquire PF Handle Suite,2",
                                                  "acquire PF Param Utils Suite,3"}));
    fake.log.clear();
  }
  EXPECT_EQ(fake.log, (std::vector<std::string>{"release PF Handle Suite,2",
                                                "release PF Param Utils Suite,3"}));
}

TEST_F(SuiteHelpers, SuiteHandlerThrows516WithoutAMessage) {
  fake.missing.insert("PF Param Utils Suite,3");
  {
    AEGP_SuiteHandler suites(&basic);
    try {
      suites.ParamUtilsSuite3();
      FAIL();
    } catch (A_long err) {
      EXPECT_EQ(err, PF_Err_BAD_CALLBACK_PARAM);
    }
    suites.HandleSuite1();
  }
  EXPECT_EQ(fake.log.back(), "release PF Handle Suite,2");
  EXPECT_EQ(std::count(fake.log.begin(), fake.log.end(), "release PF Param Utils Suite,3"), 0);
  EXPECT_THROW(AEGP_SuiteHandler{nullptr}, A_long);
}

TEST_F(SuiteHelpers, ScopedAcquisitionReleasesOnEveryExit) {
  try {
    AEFX_SuiteScoper<PF_WorldSuite2> world(&in, "PF World Suite", 2, &out);
    EXPECT_EQ(static_cast<const void*>(world.get()), fake.dummyTable);
    throw 42;
  } catch (int) {
  }
  EXPECT_EQ(fake.log, (std::vector<std::string>{"acquire PF World Suite,2",
                                                "release PF World Suite,2"}));
}

TEST_F(SuiteHelpers, ScopedAcquisitionOfAMissingSuiteThrows13WithAMessage) {
  fake.missing.insert("PF World Suite,2");
  try {
    AEFX_SuiteScoper<PF_WorldSuite2> world(&in, "PF World Suite", 2, &out);
    FAIL();
  } catch (A_long err) {
    EXPECT_EQ(err, A_Err_MISSING_SUITE);
  }
  EXPECT_STREQ(out.return_msg, "Not able to acquire AEFX Suite.");
  EXPECT_TRUE(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(fake.log, std::vector<std::string>{"acquire PF World Suite,2"});
}

TEST(Rects, EmptyWhenLeftReachesRightOrTopReachesBottom) {
  PF_LRect r{0, 0, 10, 10};
  EXPECT_FALSE(IsEmptyRect(&r));
  r = {10, 0, 10, 10};
  EXPECT_TRUE(IsEmptyRect(&r));
  r = {0, 5, 10, 4};
  EXPECT_TRUE(IsEmptyRect(&r));
  r = {-5, -5, -4, -4};
  EXPECT_FALSE(IsEmptyRect(&r));
}

TEST(Rects, UnionGrowsTheDestinationOrTakesTheSourceWhole) {
  PF_LRect dst{0, 0, 0, 0};
  const PF_LRect a{10, 20, 30, 40};
  UnionLRect(&a, &dst);
  EXPECT_EQ(std::memcmp(&dst, &a, sizeof dst), 0);

  const PF_LRect b{-5, 25, 15, 50};
  UnionLRect(&b, &dst);
  const PF_LRect both{-5, 20, 30, 50};
  EXPECT_EQ(std::memcmp(&dst, &both, sizeof dst), 0);

  const PF_LRect empty{100, 100, 50, 200};
  UnionLRect(&empty, &dst);
  EXPECT_EQ(std::memcmp(&dst, &both, sizeof dst), 0);

  // An empty destination is replaced even by an empty source.
  PF_LRect emptyDst{5, 5, 5, 5};
  UnionLRect(&empty, &emptyDst);
  EXPECT_EQ(std::memcmp(&emptyDst, &empty, sizeof emptyDst), 0);
}

}  // namespace
