// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/features_controller.h"
#include "libfeatures/transforms/default_transform.h"
#include "stand_in/marlocuda_stand_in.h"
#include "utilities/captured_log.h"
#include "utilities/hand_written_plug_ins.h"

namespace marlo::test {

/// Registers hand-written plug-ins under the library's keys; a test says what each does.
class ControllerFixture : public testing::Test {
protected:
    ControllerFixture() {
        gpu.reset();
        registerDetectors();
        registerExtractors();
        registerSelectors();
        extensibleFactoryInstance<ITransform>().registerType(
            "Default", [] { return std::make_unique<DefaultTransform>(); });
        extensibleFactoryInstance<ITransform>().registerType(
            "Widening", [this] { return std::make_unique<WideningTransform>(journal); });
    }

    // What the plug-ins do; looked up when they run, so a test may change it at any time.
    DetectAction cpuDetect = [](std::vector<Keypoint>& out) {
        out = {Keypoint(1, 2, 3, 0, 0.5F, 0, 1), Keypoint(4, 5, 6, 0, 0.75F, 0, 1)};
    };
    DetectAction gpuDetect = cpuDetect;
    ComputeAction cpuCompute = [](std::vector<Keypoint>& in, DescMat& out) {
        allocateDescriptors(out, static_cast<int>(in.size()), false);
    };
    ComputeAction gpuCompute = cpuCompute;
    SelectAction selectKeypoints = [](const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
        out = in;
    };

    StandIn& gpu = StandIn::instance();
    CapturedLog log;
    Journal journal;
    const FloatImage image = FloatImage::Constant(20, 30, 0.5F);
    std::vector<Keypoint> keypoints;
    DescMat descriptors;

    void useGpu() { gpu.featureAvailable = gpu.gpusAvailable = true; }

    /// Log lines written after the one that every constructor writes.
    [[nodiscard]] std::vector<std::string> linesAfterCreation() const {
        std::vector<std::string> lines = log.lines();
        if (!lines.empty()) {
            lines.erase(lines.begin());
        }
        return lines;
    }

    /// The text of the runtime_error that the action throws.
    template <typename Action>
    static std::string refusal(Action action) {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing thrown";
    }

    static FeaturesController controller(const char* detector, const char* extractor,
                                         const char* selector = "TOP",
                                         const char* transform = "Default") {
        return {QLatin1String(detector), QLatin1String(extractor), QLatin1String(selector),
                QLatin1String(transform)};
    }

private:
    void registerDetectors() {
        auto& factory = extensibleFactoryInstance<IKeypointDetector>();
        for (const std::string key : {"LDAH", "SIFT"}) {
            factory.registerType(key, [this, key] {
                return std::make_unique<DetectorAndExtractor>(
                    key, journal, [this](auto& out) { cpuDetect(out); },
                    [this](auto& in, auto& out) { cpuCompute(in, out); });
            });
        }
        for (const std::string key : {"LDAHCuda", "SIFTCuda", "LDAHOther"}) {
            factory.registerType(key, [this, key] {
                return std::make_unique<ScaledDetector>(key, journal,
                                                        [this](auto& out) { gpuDetect(out); });
            });
        }
        factory.registerType("Foreign", [this] {
            return std::make_unique<PlainDetector>([this](auto& out) { cpuDetect(out); });
        });
        factory.registerType("SIFTPlain", [] { return std::make_unique<PlainDetector>(); });
        factory.registerType("Nothing", [] { return nullptr; });
    }

    void registerExtractors() {
        auto& factory = extensibleFactoryInstance<IDescriptorExtractor>();
        for (const std::string key : {"LDAH", "SIFT", "Brief"}) {
            factory.registerType(key, [this, key] {
                return std::make_unique<ScaledExtractor>(
                    "extractor " + key, journal,
                    [this](auto& in, auto& out) { cpuCompute(in, out); });
            });
        }
        for (const std::string key : {"LDAHCuda", "SIFTCuda", "SIFTOther"}) {
            factory.registerType(key, [this, key] {
                return std::make_unique<ScaledExtractor>(
                    "extractor " + key, journal,
                    [this](auto& in, auto& out) { gpuCompute(in, out); });
            });
        }
    }

    void registerSelectors() {
        auto& factory = extensibleFactoryInstance<IKeypointSelector>();
        const auto action = [this](const auto& in, auto& out) { selectKeypoints(in, out); };
        factory.registerType("TOP", [this, action] {
            return std::make_unique<PlainSelector>("TOP", journal, action);
        });
        factory.registerType("SDC", [this, action] {
            return std::make_unique<SdcLikeSelector>("SDC", journal, action);
        });
        factory.registerType("ANMSBound", [this, action] {
            return std::make_unique<AnmsLikeSelector>("ANMSBound", journal, action);
        });
        factory.registerType("SDCWrong", [this, action] {
            return std::make_unique<PlainSelector>("SDCWrong", journal, action);
        });
    }
};

}  // namespace marlo::test
