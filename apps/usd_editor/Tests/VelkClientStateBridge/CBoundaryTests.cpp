#include <gtest/gtest.h>

#include "CBoundaryChecks.h"

namespace {

void expectAllHold(void (*checks)(VelkCheckState*)) {
  VelkCheckState state{nullptr, 0};
  checks(&state);
  EXPECT_EQ(state.failure, nullptr) << "CBoundaryChecks.c:" << state.line << ": " << state.failure;
}

TEST(CBoundaryTest, TargetsParseAndAnswerForNullRecords) { expectAllHold(velk_c_check_targets); }

TEST(CBoundaryTest, SwitchesRefuseStaleIdsAndNullHandles) { expectAllHold(velk_c_check_switch); }

TEST(CBoundaryTest, PickerWordsAndConnectionStates) {
  expectAllHold(velk_c_check_copy_and_states);
}

}  // namespace
