// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/library_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "apps/marlo/material.h"

namespace marlo::app {
namespace {

using log::Level;
using test::refusal;

class LibraryLogTest : public testing::Test {
protected:
    static void write(Level level, const std::string& text) {
        log::LogStreamer(log::defaultLogSource(), level) << text;
    }

    std::string warnings() {
        said.str("");
        libraryLog->sayWarnings(progress);
        return said.str();
    }

    std::ostringstream said;
    Progress progress{said, Progress::Form::lines};
    std::optional<LibraryLog> libraryLog{std::in_place, LibraryLog::Errors::thrown};
};

TEST_F(LibraryLogTest, ErrorsAreThrownOnceAndTogether) {
    write(Level::Error, "no detector");
    write(Level::Error, "no selector");
    EXPECT_EQ(refusal<std::runtime_error>([] { LibraryLog::throwErrors(); }),
              "no detector; no selector");
    EXPECT_NO_THROW(LibraryLog::throwErrors());
    EXPECT_EQ(warnings(), "");
}

TEST_F(LibraryLogTest, WantOfMemoryIsThrownAsSuch) {
    write(Level::Error, "Exception found trying to detect keypoints: std::bad_alloc");
    EXPECT_THROW(LibraryLog::throwErrors(), std::bad_alloc);
}

TEST_F(LibraryLogTest, ErrorsOfOtherThreadsAndClearedOnesAreNotThrown) {
    std::thread([] { write(Level::Error, "elsewhere"); }).join();
    EXPECT_NO_THROW(LibraryLog::throwErrors());
    write(Level::Error, "before");
    LibraryLog::clearErrors();
    EXPECT_NO_THROW(LibraryLog::throwErrors());
}

TEST_F(LibraryLogTest, InformationAndDetailsAreDropped) {
    write(Level::Information, "FeaturesController - Created");
    write(Level::Detail, "kept 3");
    EXPECT_EQ(warnings(), "");
}

TEST_F(LibraryLogTest, WarningsOfAnyThreadAreSaidOnce) {
    std::thread([] { write(Level::Warning, "an angle is out of range"); }).join();
    write(Level::Warning, "an angle is out of range");
    EXPECT_EQ(warnings(), "warning: an angle is out of range\n");
    write(Level::Warning, "an angle is out of range");
    EXPECT_EQ(warnings(), "");
}

TEST_F(LibraryLogTest, ErrorsAreWarningsWhereNobodyThrowsThem) {
    libraryLog.emplace(LibraryLog::Errors::said);
    write(Level::Error, "no rows");
    EXPECT_EQ(warnings(), "warning: no rows\n");
    EXPECT_NO_THROW(LibraryLog::throwErrors());
}

TEST_F(LibraryLogTest, FailuresOfTheGpuAreOneWarningForEachCause) {
    write(Level::Warning, "CudaException catch : Cuda processing error.. Falling back to CPU code");
    write(Level::Warning, "CudaException catch : Cuda processing error.");
    write(Level::Information, "CudaException catch : Not enough resources for the detector.");
    const std::string start = "warning: the GPU failed, and the CPU does its work: ";
    EXPECT_EQ(warnings(), start + "Cuda processing error. (stand-in GPU)\n" + start +
                              "Not enough resources for the detector. (stand-in GPU)\n");
    EXPECT_NO_THROW(LibraryLog::throwErrors());
}

TEST_F(LibraryLogTest, WhatOneCommandHasSaidItDoesNotSayAgain) {
    write(Level::Warning, "CudaException catch : Cuda processing error.");
    EXPECT_NE(warnings(), "");
    libraryLog.emplace(LibraryLog::Errors::thrown);  // as for its next task
    write(Level::Warning, "CudaException catch : Cuda processing error.");
    EXPECT_EQ(warnings(), "");
}

TEST_F(LibraryLogTest, LogGoesBackToStandardErrorAfterwards) {
    libraryLog.reset();
    testing::internal::CaptureStderr();
    write(Level::Warning, "nobody listens");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "libfeatures warning: nobody listens\n");
}

}  // namespace
}  // namespace marlo::app
