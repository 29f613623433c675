#include "OstrelFSMData.h"

#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::readFile;

TEST(OstrelFSMData, CreatesDefaultPlanFileWhenMissing) {
    OstrelFSMData store;
    EXPECT_EQ(readFile(kPlanFile),
              "{\"not_set\":true,\"current_state\":0,\"run_start\":false,\"run_finished\":false,"
              "\"testcases\":[{\"name\":\"kelbrun help\",\"select\":false,\"command\":\"--help\","
              "\"testcase_value\":0,\"isRound\":false,\"testcase_current_time\":0,"
              "\"testcase_target_time\":0,\"testcase_current_round\":0,"
              "\"testcase_target_round\":0}]}");
}
