// The ways out of the process.
#include "app/process_end.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

using testing::Eq;

TEST(ProcessEndDeathTest, StatusesAreOneTwoAndThree) {
    EXPECT_EXIT(end_process(kExitRefused), testing::ExitedWithCode(1), Eq(""));
    EXPECT_EXIT(end_process(kExitTimeout), testing::ExitedWithCode(2), Eq(""));
    EXPECT_EXIT(end_process(kExitSocketLost), testing::ExitedWithCode(3), Eq(""));
}

TEST(ProcessEndDeathTest, NothingIsRunAtExit) {
    const auto end_with_exit_function = [] {
        atexit([] { fprintf(stderr, "run at exit\n"); });
        end_process(kExitTimeout);
    };
    EXPECT_EXIT(end_with_exit_function(), testing::ExitedWithCode(2), Eq(""));
}

TEST(ProcessEndDeathTest, FailedAssertionPrintsItsGivenPlaceAndAborts) {
    EXPECT_EXIT(assertion_failed("0", "src/some/file.cpp", 168, "some_function"),
                testing::KilledBySignal(SIGABRT),
                Eq("process_end_test: src/some/file.cpp:168: some_function: Assertion `0' "
                   "failed.\n"));
}

}  // namespace
