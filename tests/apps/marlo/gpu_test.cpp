// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/gpu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "apps/marlo/material.h"
#include "marlo/choices.h"
#include "marlo/project.h"
#include "stand_in/marlocuda_stand_in.h"

namespace marlo::app {
namespace {

using test::GpusAvailableCall;
using test::refusal;
using test::SetProcessingEnabledCall;
using testing::IsEmpty;

class GpuTest : public testing::Test {
protected:
    GpuTest() { gpu.reset(); }
    ~GpuTest() override { gpu.reset(); }

    void haveGpu() {
        gpu.featureAvailable = gpu.gpusAvailable = true;
        gpu.devices = {"0: two-core test GPU"};
        gpu.activeDevice = "two-core test GPU";
    }
    void haveGpuThatCannotBeUsed() {
        gpu.featureAvailable = true;
        gpu.devices = {"0: old test GPU, compute capability 1.0 is too low"};
        gpu.activeDevice = "no GPU that can be used";
    }

    // What the user is told.
    std::string choose(const std::string& choice) {
        said.str("");
        chooseGpu(choice, progress);
        return said.str();
    }

    test::StandIn& gpu = test::StandIn::instance();
    std::ostringstream said;
    Progress progress{said, Progress::Form::lines};
};

TEST_F(GpuTest, EveryChoiceThatTheCommandLineTakesIsKnown) {
    haveGpu();
    for (const std::string& choice : kGpuChoices) EXPECT_NO_THROW(choose(choice)) << choice;
}

TEST_F(GpuTest, OtherWordsAreRefused) {
    for (const char* const word : {"", "On", "yes", "auto "}) {
        EXPECT_EQ(refusal<UsageError>([&] { choose(word); }),
                  std::string("--gpu is auto, off or on, not '") + word + "'");
    }
    EXPECT_THAT(gpu.allCalls, IsEmpty());
}

TEST_F(GpuTest, OffLetsTheProcessUseNoGpuAndAsksForNone) {
    haveGpu();
    EXPECT_EQ(choose("off"), "");
    ASSERT_EQ(gpu.allCalls.size(), 1U);
    EXPECT_FALSE(gpu.calls<SetProcessingEnabledCall>().at(0).enabled);
}

TEST_F(GpuTest, AutoAndOnLeaveTheUseOfTheGpuAsItIs) {
    haveGpu();
    choose("auto");
    choose("on");
    EXPECT_THAT(gpu.calls<SetProcessingEnabledCall>(), IsEmpty());
}

TEST_F(GpuTest, OnRefusesALibraryWithoutGpuSupportWithTheReason) {
    gpu.gpusAvailable = true;  // means nothing without the feature
    gpu.activeDevice = "no GPU: built without";
    EXPECT_EQ(refusal<NoUsableGpu>([&] { choose("on"); }), "--gpu on: no GPU: built without");
    EXPECT_THAT(gpu.calls<GpusAvailableCall>(), IsEmpty());
}

TEST_F(GpuTest, OnRefusesAGpuThatCannotBeUsedWithTheReason) {
    haveGpuThatCannotBeUsed();
    EXPECT_EQ(refusal<NoUsableGpu>([&] { choose("on"); }), "--gpu on: no GPU that can be used");
}

TEST_F(GpuTest, AutoAndOnSayNothingYetWhereAGpuCanBeUsed) {
    haveGpu();
    EXPECT_EQ(choose("auto"), "");
    EXPECT_EQ(choose("on"), "");
}

TEST_F(GpuTest, AutoSaysNothingWhereThereIsNoGpu) {
    EXPECT_EQ(choose("auto"), "");
    gpu.featureAvailable = true;
    EXPECT_EQ(choose("auto"), "");
}

TEST_F(GpuTest, AutoSaysWhyAGpuThatIsThereIsNotUsed) {
    haveGpuThatCannotBeUsed();
    EXPECT_EQ(choose("auto"), "No GPU is used: no GPU that can be used\n");
}

TEST_F(GpuTest, GpuInUseIsSaidOnce) {
    haveGpu();
    sayGpuInUse(progress);
    sayGpuInUse(progress);
    EXPECT_EQ(said.str(), "GPU: two-core test GPU\n");
}

TEST_F(GpuTest, GpuThatCannotBeUsedIsNotSaidToBeInUse) {
    haveGpuThatCannotBeUsed();
    sayGpuInUse(progress);
    EXPECT_EQ(said.str(), "");
}

}  // namespace
}  // namespace marlo::app
