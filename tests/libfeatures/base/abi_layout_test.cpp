// SPDX-License-Identifier: BSD-3-Clause
// Hosts and plug-ins are compiled against these layouts: where a virtual function sits in its class
// and where a field sits in its record. A failure here means that what was built before no longer
// fits, not that the test wants adjusting.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "libfeatures/base/d_match.h"
#include "libfeatures/base/features_controller.h"
#include "libfeatures/base/keypoint.h"
#include "libfeatures/histogram/feature_histogram.h"
#include "libfeatures/transforms/default_transform.h"
#include "support/cameras/calib_camera.h"
#include "support/cameras/camera_fisheye.h"
#include "support/cameras/camera_perspective.h"
#include "utilities/hand_written_cameras.h"
#include "utilities/hand_written_plug_ins.h"

namespace marlo {
namespace {

using test::DiagonalMatcher;
using test::Journal;
using test::PlainCamera;
using test::PlainDetector;
using test::PlainExternals;
using test::PlainSelector;
using test::ScaledExtractor;

// The virtual table slot that a pointer to a virtual member function names (Itanium C++ ABI, 2.3;
// ARM keeps the "virtual" mark in the second word). Slots 0 and 1 are the complete and the deleting
// destructor, so the first function after a destructor is in slot 2.
template <typename MemberFunction>
std::ptrdiff_t slotOf(MemberFunction function) {
    std::array<std::ptrdiff_t, 2> words{};
    static_assert(sizeof(function) == sizeof(words));
    std::memcpy(words.data(), &function, sizeof(words));
    constexpr auto kSlotSize = static_cast<std::ptrdiff_t>(sizeof(void*));
#if defined(__aarch64__)
    EXPECT_EQ(words[1] & 1, 1) << "not a virtual function";
    return words[0] / kSlotSize;
#else
    EXPECT_EQ(words[0] & 1, 1) << "not a virtual function";
    return (words[0] - 1) / kSlotSize;
#endif
}

// How many slots a class has: the slot of the first function that a derived class adds.
template <typename Class>
struct WithOneMore : Class {
    using Class::Class;
    virtual void oneMore();
};
template <typename Class>
void WithOneMore<Class>::oneMore() {}

template <typename Class>
std::ptrdiff_t slotCount() {
    return slotOf(&WithOneMore<Class>::oneMore);
}

// Calls a destructor through its slot.
void callDestructor(void* object, std::size_t slot) {
    void** vtable = nullptr;
    std::memcpy(&vtable, object, sizeof(vtable));
    void (*destructor)(void*) = nullptr;
    std::memcpy(&destructor, vtable + slot, sizeof(destructor));
    destructor(object);
}

// Whether slot 0 destroys and slot 1 destroys and frees (which the address sanitizer watches).
template <typename Implementation, typename Interface, typename... Arguments>
void expectDestructorsInTheFirstTwoSlots(Arguments&&... arguments) {
    static int destroyed = 0;
    struct Counting : Implementation {
        using Implementation::Implementation;
        ~Counting() override { ++destroyed; }
    };
    destroyed = 0;
    Interface* const freed = new Counting(arguments...);
    callDestructor(freed, 1);
    EXPECT_EQ(destroyed, 1);

    alignas(Counting) std::array<unsigned char, sizeof(Counting)> storage{};
    Interface* const inPlace = new (storage.data()) Counting(arguments...);
    callDestructor(inPlace, 0);
    EXPECT_EQ(destroyed, 2);
}

template <typename Record, typename Field>
std::ptrdiff_t offsetIn(const Record& record, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&record);
}

TEST(SlotOrderTest, IKeypointDetector) {
    using I = IKeypointDetector;
    expectDestructorsInTheFirstTwoSlots<PlainDetector, I>();
    EXPECT_EQ(slotOf(&I::clone), 2);
    EXPECT_EQ(slotOf(&I::hasOrientations), 3);
    EXPECT_EQ(slotOf(&I::supportsIntImages), 4);
    EXPECT_EQ(slotOf(&I::supportsFloatImages), 5);
    EXPECT_EQ(slotOf<void (I::*)(const ByteImage&, std::vector<Keypoint>&)>(&I::detect), 6);
    EXPECT_EQ(slotOf<void (I::*)(const FloatImage&, std::vector<Keypoint>&)>(&I::detect), 7);
    EXPECT_EQ(slotCount<I>(), 8);
}

TEST(SlotOrderTest, IDescriptorExtractor) {
    using I = IDescriptorExtractor;
    Journal journal;
    expectDestructorsInTheFirstTwoSlots<ScaledExtractor, I>("", journal);
    EXPECT_EQ(slotOf(&I::cloneExtractor), 2);
    EXPECT_EQ(slotOf<void (I::*)(const ByteImage&, std::vector<Keypoint>&, DescMat&)>(&I::compute),
              3);
    EXPECT_EQ(slotOf<void (I::*)(const FloatImage&, std::vector<Keypoint>&, DescMat&)>(&I::compute),
              4);
    EXPECT_EQ(slotCount<I>(), 5);
}

TEST(SlotOrderTest, IKeypointSelector) {
    using I = IKeypointSelector;
    Journal journal;
    expectDestructorsInTheFirstTwoSlots<PlainSelector, I>("", journal);
    EXPECT_EQ(slotOf(&I::clone), 2);
    EXPECT_EQ(slotOf(&I::setNumberOfKeypoints), 3);
    EXPECT_EQ(slotOf(&I::select), 4);
    EXPECT_EQ(slotOf(&I::selectIndices), 5);
    EXPECT_EQ(slotCount<I>(), 6);
}

TEST(SlotOrderTest, ITransform) {
    using I = ITransform;
    expectDestructorsInTheFirstTwoSlots<DefaultTransform, I>();
    EXPECT_EQ(slotOf<const ByteImage& (I::*)(const ByteImage&)>(&I::transformImage), 2);
    EXPECT_EQ(slotOf<const FloatImage& (I::*)(const FloatImage&)>(&I::transformImage), 3);
    EXPECT_EQ(slotOf(&I::transformKeypointsBack), 4);
    EXPECT_EQ(slotCount<I>(), 5);
}

TEST(SlotOrderTest, IDescriptorMatcher) {
    using I = IDescriptorMatcher;
    expectDestructorsInTheFirstTwoSlots<DiagonalMatcher, I>();
    EXPECT_EQ(slotOf(&I::clone), 2);
    EXPECT_EQ(slotOf(&I::match), 3);
    EXPECT_EQ(slotOf(&I::kernelName), 4);
    EXPECT_EQ(slotCount<I>(), 5);
}

TEST(SlotOrderTest, SiftLdahBaseParams) {
    struct Parameters : SiftLdahBaseParams {};
    expectDestructorsInTheFirstTwoSlots<Parameters, SiftLdahBaseParams>();
    EXPECT_EQ(slotOf(&SiftLdahBaseParams::setParams), 2);
    EXPECT_EQ(slotCount<SiftLdahBaseParams>(), 3);
}

TEST(SlotOrderTest, DescMatcherDistFracBase) {
    using B = DescMatcherDistFracBase;
    struct Parameters : B {};
    expectDestructorsInTheFirstTwoSlots<Parameters, B>();
    EXPECT_EQ(slotOf<void (B::*)(unsigned int, float)>(&B::setParams), 2);
    EXPECT_EQ(slotOf<void (B::*)(float, float)>(&B::setParams), 3);
    EXPECT_EQ(slotCount<B>(), 4);
}

TEST(SlotOrderTest, AbstractCamera) {
    using C = AbstractCamera;
    expectDestructorsInTheFirstTwoSlots<PlainCamera, C>();
    EXPECT_EQ(slotOf(&C::clone), 2);
    EXPECT_EQ(slotOf(&C::modelName), 3);
    EXPECT_EQ(slotOf(&C::pixelsPerRadian), 4);
    EXPECT_EQ(slotOf(&C::project), 5);
    EXPECT_EQ(slotOf(&C::unproject), 6);
    EXPECT_EQ(slotOf(&C::projectionJacobian), 7);
    EXPECT_EQ(slotOf(&C::parameterJacobian), 8);
    EXPECT_EQ(slotOf(&C::parameterName), 9);
    EXPECT_EQ(slotOf(&C::setParameters), 10);
    EXPECT_EQ(slotOf(&C::maxAngle), 11);
    EXPECT_EQ(slotOf(&C::calibrationMatrix), 12);
    EXPECT_EQ(slotOf(&C::pixelDifference), 13);
    EXPECT_EQ(slotOf(&C::equal), 14);
    EXPECT_EQ(slotOf(&C::getErrorMeasureScalingFactor), 15);
    EXPECT_EQ(slotOf(&C::readBin), 16);
    EXPECT_EQ(slotOf(&C::writeBin), 17);
    EXPECT_EQ(slotOf(&C::print), 18);
    EXPECT_EQ(slotOf(&C::unprojectionJacobian), 19);
    EXPECT_EQ(slotCount<PlainCamera>(), 20);
}

TEST(SlotOrderTest, CameraExternals) {
    using C = CameraExternals;
    using On2 = void (C::*)(Eigen::Vector2d&, double) const;
    using On3 = void (C::*)(Eigen::Vector3d&, double) const;
    expectDestructorsInTheFirstTwoSlots<PlainExternals, C>();
    EXPECT_EQ(slotOf(&C::clone), 2);
    EXPECT_EQ(slotOf(&C::toCamera), 3);
    EXPECT_EQ(slotOf(&C::toWorld), 4);
    EXPECT_EQ(slotOf(&C::rotationRow), 5);
    EXPECT_EQ(slotOf(&C::translationRow), 6);
    EXPECT_EQ(slotOf(&C::readoutDisplacement), 7);
    EXPECT_EQ(slotOf(&C::hasRollingShutter), 8);
    EXPECT_EQ(slotOf<void (C::*)(const double*, OptimExtType, bool)>(&C::setParameters), 9);
    EXPECT_EQ(slotOf<void (C::*)(const RigidTransform3D&)>(&C::applyTransform), 10);
    EXPECT_EQ(slotOf(&C::computeLambda), 11);
    EXPECT_EQ(slotOf<On2>(&C::applyRollingShutterCorrection), 12);
    EXPECT_EQ(slotOf<On3>(&C::applyRollingShutterCorrection), 13);
    EXPECT_EQ(slotOf<On2>(&C::applyInverseRollingShutterCorrection), 14);
    EXPECT_EQ(slotOf<On3>(&C::applyInverseRollingShutterCorrection), 15);
    EXPECT_EQ(slotOf(&C::numberOfParameters), 16);
    EXPECT_EQ(slotOf(&C::getParameters), 17);
    EXPECT_EQ(slotOf(&C::pointJacobian), 18);
    EXPECT_EQ(slotOf(&C::print), 19);
    EXPECT_EQ(slotOf(&C::equal), 20);
    EXPECT_EQ(slotOf(&C::centreRow), 21);
    EXPECT_EQ(slotCount<PlainExternals>(), 22);
}

TEST(SlotOrderTest, SelectorParameterBlocksHaveNoVirtualFunctions) {
    EXPECT_FALSE(std::is_polymorphic_v<KeypointSelectorAnmsBase>);
    EXPECT_FALSE(std::is_polymorphic_v<KeypointSelectorSdcBase>);
}

TEST(RecordLayoutTest, Keypoint) {
    EXPECT_EQ(offsetof(Keypoint, x), 0U);
    EXPECT_EQ(offsetof(Keypoint, y), 4U);
    EXPECT_EQ(offsetof(Keypoint, scale), 8U);
    EXPECT_EQ(offsetof(Keypoint, angle), 12U);
    EXPECT_EQ(offsetof(Keypoint, response), 16U);
    EXPECT_EQ(offsetof(Keypoint, octave), 20U);
    EXPECT_EQ(offsetof(Keypoint, layer), 21U);
    EXPECT_EQ(sizeof(Keypoint), 24U);
}

TEST(RecordLayoutTest, DMatch) {
    EXPECT_EQ(offsetof(DMatch, queryIndex), 0U);
    EXPECT_EQ(offsetof(DMatch, trainIndex), 4U);
    EXPECT_EQ(offsetof(DMatch, distance), 8U);
    EXPECT_EQ(sizeof(DMatch), 12U);
}

TEST(RecordLayoutTest, DescMat) {
    const DescMat matrix;
    EXPECT_EQ(offsetIn(matrix, matrix.rows), 0);
    EXPECT_EQ(offsetIn(matrix, matrix.cols), 4);
    EXPECT_EQ(offsetIn(matrix, matrix.data), 8);
    EXPECT_EQ(offsetIn(matrix, matrix.step), 16);
    EXPECT_EQ(sizeof(DescMat), 32U);
}

TEST(RecordLayoutTest, SiftLdahBaseParams) {
    const struct : SiftLdahBaseParams {
    } params;
    EXPECT_EQ(offsetIn(params, params.imageScale), 8);
    EXPECT_EQ(offsetIn(params, params.useSift), 12);
    EXPECT_EQ(sizeof(SiftLdahBaseParams), 16U);
}

TEST(RecordLayoutTest, DescMatcherDistFracBase) {
    const struct : DescMatcherDistFracBase {
    } params;
    EXPECT_EQ(offsetIn(params, params.maxHammingDistance), 8);
    EXPECT_EQ(offsetIn(params, params.maxDistance), 12);
    EXPECT_EQ(offsetIn(params, params.distanceFraction), 16);
    EXPECT_EQ(sizeof(DescMatcherDistFracBase), 24U + sizeof(QString));
}

TEST(RecordLayoutTest, FeaturesControllerIsOnePointer) {
    EXPECT_EQ(sizeof(FeaturesController), sizeof(void*));
}

TEST(RecordLayoutTest, FeatureHistogram) {
    const FeatureHistogram histogram(DescriptorType::LDAH);
    EXPECT_FALSE(std::is_polymorphic_v<FeatureHistogram>);
    EXPECT_EQ(offsetIn(histogram, histogram.bins), 0);
    EXPECT_EQ(offsetIn(histogram, histogram.descriptorType), 24);
    EXPECT_EQ(sizeof(histogram.descriptorType), 1U);
    EXPECT_EQ(sizeof(FeatureHistogram), 32U);
}

TEST(RecordLayoutTest, BrownConradyParameters) {
    EXPECT_EQ(offsetof(BrownConradyParameters, fx), 0U);
    EXPECT_EQ(offsetof(BrownConradyParameters, fy), 8U);
    EXPECT_EQ(offsetof(BrownConradyParameters, cx), 16U);
    EXPECT_EQ(offsetof(BrownConradyParameters, cy), 24U);
    EXPECT_EQ(offsetof(BrownConradyParameters, k1), 32U);
    EXPECT_EQ(offsetof(BrownConradyParameters, k2), 40U);
    EXPECT_EQ(offsetof(BrownConradyParameters, p1), 48U);
    EXPECT_EQ(offsetof(BrownConradyParameters, p2), 56U);
    EXPECT_EQ(offsetof(BrownConradyParameters, k3), 64U);
    EXPECT_EQ(sizeof(BrownConradyParameters), 72U);
}

TEST(RecordLayoutTest, FisheyeParameters) {
    EXPECT_EQ(offsetof(FisheyeParameters, fx), 0U);
    EXPECT_EQ(offsetof(FisheyeParameters, fy), 8U);
    EXPECT_EQ(offsetof(FisheyeParameters, cx), 16U);
    EXPECT_EQ(offsetof(FisheyeParameters, cy), 24U);
    EXPECT_EQ(offsetof(FisheyeParameters, k1), 32U);
    EXPECT_EQ(offsetof(FisheyeParameters, k2), 40U);
    EXPECT_EQ(offsetof(FisheyeParameters, k3), 48U);
    EXPECT_EQ(offsetof(FisheyeParameters, k4), 56U);
    EXPECT_EQ(sizeof(FisheyeParameters), 64U);
}

TEST(RecordLayoutTest, RigidTransform3D) {
    const RigidTransform3D transform;
    EXPECT_EQ(offsetIn(transform, transform.rotation), 0);
    EXPECT_EQ(offsetIn(transform, transform.translation), 72);
    EXPECT_EQ(sizeof(RigidTransform3D), 96U);
    EXPECT_EQ(alignof(RigidTransform3D), 8U);  // whatever a host is compiled for
}

TEST(RecordLayoutTest, OptimExtType) {
    EXPECT_EQ(sizeof(OptimExtType), 1U);
    EXPECT_EQ(static_cast<int>(OptimExtType::None), 0);
    EXPECT_EQ(static_cast<int>(OptimExtType::Rotation), 1);
    EXPECT_EQ(static_cast<int>(OptimExtType::Translation), 2);
    EXPECT_EQ(static_cast<int>(OptimExtType::RotationAndTranslation), 3);
}

TEST(RecordLayoutTest, CalibCameraIsTwoPointers) {
    EXPECT_EQ(sizeof(CalibCamera), 2 * sizeof(void*));
}

}  // namespace
}  // namespace marlo
