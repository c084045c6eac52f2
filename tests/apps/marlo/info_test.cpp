// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "stand_in/marlocuda_stand_in.h"

namespace marlo::app {
namespace {

using testing::HasSubstr;

class InfoTest : public testing::Test {
protected:
    InfoTest() { gpu.reset(); }
    ~InfoTest() override { gpu.reset(); }

    test::StandIn& gpu = test::StandIn::instance();
};

TEST_F(InfoTest, NamesTheGpuInUseAndListsAllThatThereAre) {
    gpu.activeDevice = "the second";
    gpu.devices = {"0: the first, too old", "1: the second"};
    const nlohmann::json all = info();
    EXPECT_EQ(all["gpu"], "the second");
    EXPECT_EQ(all["gpus"], nlohmann::json({"0: the first, too old", "1: the second"}));
    EXPECT_THAT(infoText(all), HasSubstr("\nGPU          the second\n    0: the first, too old\n"
                                         "    1: the second\nkernels\n"));
}

TEST_F(InfoTest, ListOfGpusIsEmptyWhereThereAreNone) {
    gpu.activeDevice = "no GPU";
    const nlohmann::json all = info();
    EXPECT_EQ(all["gpus"], nlohmann::json::array());
    EXPECT_THAT(infoText(all), HasSubstr("\nGPU          no GPU\nkernels\n"));
}

}  // namespace
}  // namespace marlo::app
