// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/features_controller.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/base/sift_ldah_base_params.h"
#include "libmarlocuda/marlocuda.h"
#include "support/log.h"

namespace marlo {
namespace {

constexpr float kSdcCellScale = 0.25F;
constexpr float kSdcTolerance = 0.1F;
constexpr float kAnmsRobustness = 0.8F;

bool isLdahOrSift(const QString& name) {
    return name == QLatin1String("LDAH") || name == QLatin1String("SIFT");
}

bool startsWithLdahOrSift(const QString& name) {
    return name.startsWith(QLatin1String("LDAH")) || name.startsWith(QLatin1String("SIFT"));
}

// The key under which the registry would make such an object; none if it lacks these parameters.
template <typename PlugIn>
QString keyOf(const PlugIn* plugIn) {
    const auto* const params = dynamic_cast<const SiftLdahBaseParams*>(plugIn);
    if (params == nullptr) {
        return {};
    }
    return QLatin1String(params->useSift ? "SIFT" : "LDAH");
}

QString fallbackGpuStringCheck(const QString& name) {
    if (name == QLatin1String("LDAHCuda")) {
        return QLatin1String("LDAH");
    }
    if (name == QLatin1String("SIFTCuda")) {
        return QLatin1String("SIFT");
    }
    throw std::runtime_error("Cannot fallback to CPU: " + name.toStdString());
}

template <typename Interface>
std::unique_ptr<Interface> createPlugIn(const QString& name) {
    const std::string key = name.toStdString();
    std::unique_ptr<Interface> plugIn = extensibleFactoryInstance<Interface>().create(key);
    if (!plugIn) {
        throw std::runtime_error("FeaturesController - The creator of " + key + " gave no object");
    }
    return plugIn;
}

// The side of the unscaled image. A scale that gives none (0, NaN) gives 0, which selectors
// that need a size refuse.
int unscaled(Eigen::Index pixels, double imageScale) {
    const double size = static_cast<double>(pixels) / imageScale;
    constexpr double kLimit = std::numeric_limits<int>::max();
    return size >= -kLimit && size <= kLimit ? static_cast<int>(size) : 0;
}

log::LogStreamer logLine(log::Level level, log::FileAndLine position = {}) {
    return log::LogStreamer(log::defaultLogSource(), level, {}, std::move(position));
}

}  // namespace

class FeaturesController::Pimpl {
public:
    Pimpl(QString detector, QString extractor, QString selector, QString transform)
        : detectorName_(std::move(detector)),
          selectorName_(std::move(selector)),
          extractorName_(std::move(extractor)),
          transformName_(std::move(transform)),
          useGpu_(cuda::isFeatureAvailable()) {
        checkGPUErrorAndUpdateFlags();
        createImplementations();
    }

    Pimpl(std::unique_ptr<IKeypointDetector> detector,
          std::unique_ptr<IDescriptorExtractor> extractor,
          std::unique_ptr<IKeypointSelector> selector, std::unique_ptr<ITransform> transform)
        : detector_(std::move(detector)),
          selector_(std::move(selector)),
          ownedExtractor_(std::move(extractor)),
          transform_(std::move(transform)),
          useGpu_(cuda::isFeatureAvailable()) {
        checkGPUErrorAndUpdateFlags();
        if (!detector_ || !transform_) {
            throw std::runtime_error(
                "FeaturesController - The detector and the transform must not be null");
        }
        if (!ownedExtractor_) {
            sharedExtractor_ = dynamic_cast<IDescriptorExtractor*>(detector_.get());
        }
        detectorName_ = keyOf(detector_.get());
        extractorName_ = sharedExtractor_ != nullptr ? detectorName_ : keyOf(ownedExtractor_.get());
        logLine(log::Level::Information, {"features_controller", 216})
            << "FeaturesController - Created with detector/selector/extractor/transform objects";
    }

    void setFeatureSetParams(double imageScale, int height, int width, int count) {
        imageScale_ = imageScale;
        selectorHeight_ = height;
        selectorWidth_ = width;
        numberOfKeypoints_ = count;
    }

    template <typename Image>
    void detect(const Image& image, std::vector<Keypoint>& keypoints) {
        imageRows_ = static_cast<int>(image.rows());
        imageCols_ = static_cast<int>(image.cols());
        try {
            setDetectorParams();
            detector_->detect(image, keypoints);
            return;
        } catch (const cuda::CudaNoResourcesException& exception) {
            logLine(log::Level::Information) << "CudaException catch : " << exception.what();
        } catch (const cuda::CudaException& exception) {
            logLine(log::Level::Warning)
                << "CudaException catch : " << exception.what() << ". Falling back to CPU code";
        } catch (const std::exception& exception) {
            logLine(log::Level::Error)
                << "Exception found trying to detect keypoints: " << exception.what();
            keypoints.clear();
            return;
        }
        fallbackGpu2CpuDetector();
        detect(image, keypoints);
    }

    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
        select(in, out, selectorWidth_, selectorHeight_);
    }

    template <typename Image>
    void compute(const Image& image, std::vector<Keypoint>& keypoints, DescMat& descriptors) {
        try {
            if (sharedExtractor_ != nullptr) {
                // Its parameters were set with the detector's.
                sharedExtractor_->compute(image, keypoints, descriptors);
            } else {
                setDescriptorExtractorParams();
                ownedExtractor_->compute(image, keypoints, descriptors);
            }
            return;
        } catch (const cuda::CudaNoResourcesException& exception) {
            logLine(log::Level::Information) << "CudaException catch : " << exception.what();
        } catch (const cuda::CudaException& exception) {
            logLine(log::Level::Warning) << "CudaException catch : " << exception.what();
        } catch (const std::exception& exception) {
            logLine(log::Level::Error)
                << "Exception found trying to compute descriptors: " << exception.what();
            descriptors.release();
            return;
        }
        fallbackGpu2CpuDescriptorExtractor();
        compute(image, keypoints, descriptors);
    }

    template <typename Image>
    void process(const Image& image, std::vector<Keypoint>& keypoints, DescMat& descriptors) {
        const Image& work = transform_->transformImage(image);
        std::vector<Keypoint> detected;
        detect(work, detected);
        std::vector<Keypoint> selected;
        select(detected, selected, unscaled(work.cols(), imageScale_),
               unscaled(work.rows(), imageScale_));
        detected = selected;
        transform_->transformKeypointsBack(detected, selected, keypoints, selectorWidth_,
                                           selectorHeight_);
        compute(work, selected, descriptors);
        if (selected.size() != keypoints.size()) {
            throw std::runtime_error(
                "[features_controller:462] keypoint size missmatch. Reason: The Spherical "
                "transform is not compatible with the descriptor extractor");
        }
    }

    [[nodiscard]] int sizeOfDescriptors() const {
        if (detectorName_.startsWith(QLatin1String("LDAH"))) {
            return 16;
        }
        if (detectorName_.startsWith(QLatin1String("SIFT"))) {
            return 128;
        }
        throw std::runtime_error("Unsupported type for the controller");
    }

    [[nodiscard]] const IKeypointDetector& detector() const { return *detector_; }

private:
    void checkGPUErrorAndUpdateFlags() {
        if (cuda::isFeatureAvailable()) {
            useGpu_ = cuda::gpusAvailableForProcessing();
        }
    }

    void createImplementations() {
        checkGPUErrorAndUpdateFlags();
        if (useGpu_) {
            for (QString* const name : {&detectorName_, &extractorName_}) {
                if (isLdahOrSift(*name)) {
                    *name += QLatin1String("Cuda");
                }
            }
        }
        detector_ = createPlugIn<IKeypointDetector>(detectorName_);
        if (!selectorName_.isEmpty()) {
            selector_ = createPlugIn<IKeypointSelector>(selectorName_);
        }
        instantiateExtractor(extractorName_);
        transform_ = createPlugIn<ITransform>(transformName_);
        logLine(log::Level::Information)
            << "FeaturesController - Created with detector/selector/extractor/transform: "
            << detectorName_ << " / " << selectorName_ << " / " << extractorName_ << " / "
            << transformName_;
    }

    // The CPU class both detects and extracts. It must describe from the very scale space that its
    // detection built; a second object would not have it.
    void instantiateExtractor(const QString& name) {
        auto* const shared = detectorName_ == name && isLdahOrSift(name)
                                 ? dynamic_cast<IDescriptorExtractor*>(detector_.get())
                                 : nullptr;
        ownedExtractor_ = shared == nullptr ? createPlugIn<IDescriptorExtractor>(name) : nullptr;
        sharedExtractor_ = shared;
        extractorName_ = name;
    }

    void setDetectorParams() {
        if (!startsWithLdahOrSift(detectorName_)) {
            throw std::runtime_error("Detector " + detectorName_.toStdString() +
                                     " not supported in mapper.");
        }
        setFeaDetSiftLdahParams(detector_.get(), static_cast<float>(imageScale_));
    }

    void setDescriptorExtractorParams() {
        if (!startsWithLdahOrSift(extractorName_)) {
            throw std::runtime_error("Descriptor extractor " + extractorName_.toStdString() +
                                     " not supported in mapper.");
        }
        setDescSiftLdahParams(ownedExtractor_.get(), static_cast<float>(imageScale_));
    }

    void fallbackGpu2CpuDetector() {
        useGpu_ = false;
        const QString cpuName = fallbackGpuStringCheck(detectorName_);
        detector_ = createPlugIn<IKeypointDetector>(cpuName);
        detectorName_ = cpuName;
        setDetectorParams();
    }

    void fallbackGpu2CpuDescriptorExtractor() {
        useGpu_ = false;
        instantiateExtractor(fallbackGpuStringCheck(extractorName_));
        if (sharedExtractor_ == nullptr) {  // a shared one has the detector's parameters
            setDescriptorExtractorParams();
        }
    }

    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out, int width,
                int height) {
        if (!selector_) {
            return;
        }
        try {
            configureSelector(width, height);
            // Sign-extended: a negative number asks for all keypoints.
            selector_->setNumberOfKeypoints(
                static_cast<std::uint64_t>(std::int64_t{numberOfKeypoints_}));
            selector_->select(in, out);
        } catch (const std::exception& exception) {
            logLine(log::Level::Error)
                << "Exception found trying to select keypoints: " << exception.what();
            out.clear();
        }
    }

    void configureSelector(int width, int height) {
        if (selectorName_.startsWith(QLatin1String("SDC"))) {
            setSdcParams(selector_.get(), width, height, kSdcCellScale, kSdcTolerance);
        } else if (selectorName_.startsWith(QLatin1String("ANMS"))) {
            setAnmsRobustness(selector_.get(), kAnmsRobustness);
        } else if (selectorName_.startsWith(QLatin1String("Default"))) {
            setSelectorDefaultParams(selector_.get(), height, width);
        }
    }

    std::unique_ptr<IKeypointDetector> detector_;
    std::unique_ptr<IKeypointSelector> selector_;           // may be null
    std::unique_ptr<IDescriptorExtractor> ownedExtractor_;  // null when the detector extracts
    std::unique_ptr<ITransform> transform_;
    IDescriptorExtractor* sharedExtractor_ = nullptr;  // the detector, when it extracts
    QString detectorName_;
    QString selectorName_;
    QString extractorName_;
    QString transformName_;
    double imageScale_ = 0.0;  // not set
    int selectorHeight_ = 0;
    int selectorWidth_ = 0;
    int imageRows_ = 0;  // of the last image given to detect(), for whoever debugs a failure
    int imageCols_ = 0;
    int numberOfKeypoints_ = 0;
    bool useGpu_;
};

FeaturesController::FeaturesController(const QString& detector, const QString& extractor,
                                       const QString& selector, const QString& transform)
    : pimpl_(std::make_unique<Pimpl>(detector, extractor, selector, transform)) {}

FeaturesController::FeaturesController(std::unique_ptr<IKeypointDetector> detector,
                                       std::unique_ptr<IDescriptorExtractor> extractor,
                                       std::unique_ptr<IKeypointSelector> selector,
                                       std::unique_ptr<ITransform> transform)
    : pimpl_(std::make_unique<Pimpl>(std::move(detector), std::move(extractor), std::move(selector),
                                     std::move(transform))) {}

FeaturesController::FeaturesController(FeaturesController&&) noexcept = default;

FeaturesController& FeaturesController::operator=(FeaturesController&&) noexcept = default;

FeaturesController::~FeaturesController() = default;

void FeaturesController::setFeatureSetParams(double imageScale, int height, int width, int count) {
    pimpl_->setFeatureSetParams(imageScale, height, width, count);
}

void FeaturesController::detect(const ByteImage& image, std::vector<Keypoint>& keypoints) {
    pimpl_->detect(image, keypoints);
}

void FeaturesController::detect(const FloatImage& image, std::vector<Keypoint>& keypoints) {
    pimpl_->detect(image, keypoints);
}

void FeaturesController::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    pimpl_->select(in, out);
}

void FeaturesController::compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    pimpl_->compute(image, keypoints, descriptors);
}

void FeaturesController::compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    pimpl_->compute(image, keypoints, descriptors);
}

void FeaturesController::process(const ByteImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    pimpl_->process(image, keypoints, descriptors);
}

void FeaturesController::process(const FloatImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    pimpl_->process(image, keypoints, descriptors);
}

int FeaturesController::sizeOfDescriptors() const {
    return pimpl_->sizeOfDescriptors();
}

bool FeaturesController::supportsIntImageInput() const {
    return pimpl_->detector().supportsIntImages();
}

bool FeaturesController::detectorHasOrientations() const {
    return pimpl_->detector().hasOrientations();
}

}  // namespace marlo
