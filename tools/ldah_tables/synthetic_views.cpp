// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/synthetic_views.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/core/eigen.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

namespace marlo::tools {
namespace {

constexpr double kPi = std::numbers::pi;

// The same numbers with every standard library, unlike the distributions of <random>.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    double between(double low, double high) {
        return low + (high - low) * static_cast<double>(engine_() >> 11) * 0x1p-53;
    }

private:
    std::mt19937_64 engine_;
};

Eigen::Matrix3d turn(double angle) {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Identity();
    matrix.topLeftCorner<2, 2>() << std::cos(angle), -std::sin(angle), std::sin(angle),
        std::cos(angle);
    return matrix;
}

Eigen::Matrix3d scaling(double x, double y) {
    return Eigen::Vector3d(x, y, 1.0).asDiagonal();
}

Eigen::Matrix3d shift(double x, double y) {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Identity();
    matrix(0, 2) = x;
    matrix(1, 2) = y;
    return matrix;
}

// About the middle of the image.
Eigen::Matrix3d randomHomography(Random& random, int rows, int cols, double& smallestScale) {
    const double zoom = random.between(0.6, 1.4);
    const double tilt = random.between(0.0, 0.45);
    const double tiltDirection = random.between(0.0, kPi);
    const double turned = random.between(-40.0, 40.0) * kPi / 180.0;
    const double size = std::max(rows, cols);
    Eigen::Matrix3d perspective = Eigen::Matrix3d::Identity();
    perspective(2, 0) = random.between(-0.15, 0.15) / size;
    perspective(2, 1) = random.between(-0.15, 0.15) / size;
    smallestScale = zoom * (1.0 - tilt);
    const double x = 0.5 * (cols - 1);
    const double y = 0.5 * (rows - 1);
    return shift(x, y) * perspective * turn(turned) * scaling(zoom, zoom) * turn(-tiltDirection) *
           scaling(1.0, 1.0 - tilt) * turn(tiltDirection) * shift(-x, -y);
}

// Takes out what the smaller view cannot show.
cv::Mat withoutFineDetail(const cv::Mat& image, double scale) {
    if (scale >= 1.0) return image;
    cv::Mat blurred;
    cv::GaussianBlur(image, blurred, {}, 0.5 * std::sqrt(1.0 / (scale * scale) - 1.0));
    return blurred;
}

void lightUnevenly(cv::Mat& image, Random& random) {
    const double gamma = std::exp(random.between(-0.5, 0.5));
    const double towardsRight = random.between(-0.3, 0.3);
    const double towardsBottom = random.between(-0.3, 0.3);
    const double brightness = random.between(0.7, 1.1);
    cv::pow(cv::max(image, 0.0), gamma, image);
    for (int row = 0; row < image.rows; ++row) {
        auto* const values = image.ptr<float>(row);
        const double v = static_cast<double>(row) / image.rows - 0.5;
        for (int col = 0; col < image.cols; ++col) {
            const double u = static_cast<double>(col) / image.cols - 0.5;
            values[col] *=
                static_cast<float>(brightness * (1.0 + towardsRight * u + towardsBottom * v));
        }
    }
}

void addNoise(cv::Mat& image, Random& random) {
    const double deviation = random.between(0.0, 0.02);
    cv::RNG noise(static_cast<std::uint64_t>(random.between(1.0, 1e15)));
    cv::Mat values(image.size(), CV_32F);
    noise.fill(values, cv::RNG::NORMAL, 0.0, deviation);
    image += values;
}

cv::Mat compressed(const cv::Mat& image, Random& random) {
    cv::Mat bytes;
    image.convertTo(bytes, CV_8U, 255.0);
    std::vector<unsigned char> file;
    const int quality = static_cast<int>(random.between(50.0, 96.0));
    cv::imencode(".jpg", bytes, file, {cv::IMWRITE_JPEG_QUALITY, quality});
    cv::Mat values;
    cv::imdecode(file, cv::IMREAD_GRAYSCALE).convertTo(values, CV_32F, 1.0 / 255.0);
    return values;
}

}  // namespace

SyntheticView syntheticView(const FloatImage& photograph, std::uint64_t seed) {
    Random random(seed);
    cv::Mat image;
    cv::eigen2cv(photograph, image);
    SyntheticView view;
    double smallestScale = 1.0;
    view.homography = randomHomography(random, image.rows, image.cols, smallestScale);
    cv::Mat homography;
    cv::eigen2cv(view.homography, homography);
    cv::Mat warped;
    cv::warpPerspective(withoutFineDetail(image, smallestScale), warped, homography, image.size(),
                        cv::INTER_CUBIC, cv::BORDER_REFLECT);
    const double blur = random.between(0.0, 1.5);
    if (blur > 0.3) cv::GaussianBlur(warped, warped, {}, blur);
    lightUnevenly(warped, random);
    addNoise(warped, random);
    warped = compressed(warped, random);
    view.image = Eigen::Map<const FloatImage>(warped.ptr<float>(), warped.rows, warped.cols);
    return view;
}

}  // namespace marlo::tools
