#include <gtest/gtest.h>

#include "CBoundaryChecks.h"

namespace {

TEST(CBoundaryTest, TargetsSwitchesAndStatesAnswerCCallers) {
  VelkCheckState state{nullptr, 0};
  velk_c_check_boundary(&state);
  EXPECT_EQ(state.failure, nullptr) << "CBoundaryChecks.c:" << state.line << ": " << state.failure;
}

}  // namespace
