// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/abstract_camera.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "utilities/hand_written_cameras.h"

namespace marlo {
namespace {

using test::PlainCamera;

std::string printed(const AbstractCamera& camera) {
    std::ostringstream out;
    camera.print(out);
    return out.str();
}

TEST(AbstractCameraTest, ReadingAndWritingDoNothing) {
    const std::vector<unsigned char> bytes(100, 7);
    BinReader reader(bytes);
    PlainCamera camera({1.5, 2.5});
    camera.readBin(reader);
    EXPECT_EQ(reader.position(), 0U);
    EXPECT_TRUE(camera.equal(PlainCamera({1.5, 2.5})));
    BinWriter writer;
    camera.writeBin(writer);
    EXPECT_TRUE(writer.buffer().empty());
}

TEST(AbstractCameraTest, TheErrorScalesWithThePixelsPerRadian) {
    const PlainCamera camera;
    EXPECT_EQ(camera.getErrorMeasureScalingFactor(0.25), 3.5);
    EXPECT_EQ(camera.getErrorMeasureScalingFactor(-2.0), -19.0);
}

TEST(AbstractCameraTest, DestructionReleasesBothTexts) {
    QString name = QStringLiteral("left camera");
    QString serialNumber = QStringLiteral("0815");
    name.detach();  // literals are shared with the program
    serialNumber.detach();
    std::unique_ptr<AbstractCamera> camera =
        std::make_unique<PlainCamera>(std::vector<double>(1000, 1.0));
    camera->setName(name);
    camera->setSerialNumber(serialNumber);
    EXPECT_FALSE(name.isDetached());
    EXPECT_FALSE(serialNumber.isDetached());
    camera.reset();  // the address sanitizer sees to the buffer
    EXPECT_TRUE(name.isDetached());
    EXPECT_TRUE(serialNumber.isDetached());
}

TEST(AbstractCameraTest, KeepsWhatItIsGiven) {
    PlainCamera camera({1.5, 2.5});
    EXPECT_EQ(camera.width(), 200);
    EXPECT_EQ(camera.height(), 100);
    EXPECT_EQ(camera.parameters(), (std::vector<double>{1.5, 2.5}));
    EXPECT_TRUE(camera.name().isEmpty());
    EXPECT_TRUE(camera.serialNumber().isEmpty());
    camera.setName(QStringLiteral("a"));
    camera.setSerialNumber(QStringLiteral("b"));
    const auto copy = camera.clone();
    EXPECT_EQ(copy->name(), QStringLiteral("a"));
    EXPECT_EQ(copy->serialNumber(), QStringLiteral("b"));
    EXPECT_TRUE(copy->equal(camera));
}

TEST(AbstractCameraTest, PrintsWhatItIs) {
    PlainCamera camera;
    EXPECT_EQ(printed(camera), "plain 200 x 100");
    camera.setName(QString::fromUtf8("t\xC3\xA9l\xC3\xA9"));
    EXPECT_EQ(printed(camera), "plain 200 x 100, name \"t\xC3\xA9l\xC3\xA9\"");
    camera = PlainCamera({1.5, -2.0});
    camera.setSerialNumber(QStringLiteral("0815"));
    EXPECT_EQ(printed(camera), "plain 200 x 100, p0 = 1.5, p1 = -2, serial number \"0815\"");
}

TEST(AbstractCameraTest, RefusesAnImageWithoutPixels) {
    for (const auto& [width, height] : {std::pair(0, 10), std::pair(10, 0), std::pair(-1, 10)}) {
        try {
            const PlainCamera camera({}, width, height);
            ADD_FAILURE() << width << " x " << height;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "Invalid camera: image width and height must be positive");
        }
    }
}

}  // namespace
}  // namespace marlo
