// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/desc_mat.h"

namespace marlo::app {

/// The project's database cannot be used: it is not one, is of another version, is being worked on
/// by another process, or is damaged. The text says which, and what to do.
class ProjectError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Memory, disk space or a file's size limit has run out.
class OutOfSpace : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the user has asked for cannot be done, whatever the photographs are.
class UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// What is known of the camera of a photograph. Photographs of the same device with the same lens,
/// focal length and size share one in the project; one of an unknown device has its own.
struct Camera {
    int width = 0;  ///< of the photograph, in pixels
    int height = 0;
    double focalLength = 0.0;       ///< in pixels; 0 for a full panorama, which has none
    bool focalLengthKnown = false;  ///< from the photograph's metadata; otherwise a guess
    std::string device;             ///< maker, model, lens, focal length; empty if unknown

    [[nodiscard]] bool isPanorama() const { return focalLength == 0.0; }
    bool operator==(const Camera&) const = default;
};

/// Keypoints of one photograph, in pixels of the photograph as it lies in its file, pixel centres
/// at integers, and their rows: 128 floats (SIFT) or 16 bytes (LDAH).
struct Features {
    std::vector<Keypoint> keypoints;
    DescMat rows;
};

enum class PhotographStatus { waiting, done, failed };

/// A photograph of the project.
struct Photograph {
    std::int64_t id = 0;  ///< the image_id in all tables; by name, in the order of first addition
    std::string name;     ///< below the photographs' folder, '/' between folders, UTF-8
    PhotographStatus status = PhotographStatus::waiting;
    std::string reason;  ///< why it failed
    std::string stamp;   ///< of the content and parameters that the features were made from
    int width = 0;
    int height = 0;
    int keypoints = 0;
    double seconds = 0.0;
};

/// Two columns of keypoint indices: of the photograph with the smaller id, and of the other.
using MatchList = Eigen::Matrix<std::uint32_t, Eigen::Dynamic, 2, Eigen::RowMajor>;

/// Two photographs that have been matched, first.id < second.id.
struct Pair {
    std::int64_t first = 0;
    std::int64_t second = 0;
    int matches = 0;
    std::optional<int> inliers;  ///< nothing until the pair has been verified
    std::string matchStamp;      ///< of the features and parameters that the matches were made from
    std::string verifyStamp;     ///< of the matches and parameters that the geometry was made from
};

struct PairMatches {
    MatchList matches;
    std::vector<float> scores;  ///< of each match, larger is better
};

/// So many keypoints can a photograph have: an entry of the database holds 1,000,000,000 bytes.
constexpr std::size_t kMostKeypoints = 1'900'000;

/// Geometry of a pair. `config` is the reconstruction program's: 1 degenerate, 2 calibrated (full
/// panoramas), 3 uncalibrated, 6 planar or panoramic.
struct VerifiedPair {
    int config = 1;
    MatchList inliers;
    /// Maps pixels (centres at integers) of the first photograph: x2^T F x1 = 0, x2 = H x1. Zero if
    /// there is none.
    Eigen::Matrix3d fundamental = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d homography = Eigen::Matrix3d::Zero();
    /// Maps rays of two full panoramas: r2^T E r1 = 0. Zero if there is none.
    Eigen::Matrix3d essential = Eigen::Matrix3d::Zero();
};

/// A folder with a database, `database.db`, that is a COLMAP database (version 3.8) with tables of
/// this program beside COLMAP's own. Every put function is one transaction: what it has written
/// stays if the process is killed right after. One process at a time has a project open for
/// writing; several may read. An object is used from one thread at a time.
class Project {
public:
    enum class Access { read, update, write };

    /// Opens the project in `folder`; Access::write creates it where it is missing, the others need
    /// one. Unless it is for reading only, holds the project's lock until destruction.
    /// @throws ProjectError, OutOfSpace.
    Project(const std::filesystem::path& folder, Access access);
    ~Project();
    Project(Project&&) noexcept;
    Project& operator=(Project&&) noexcept;

    [[nodiscard]] const std::filesystem::path& folder() const;

    /// Settings by key, e.g. "photographs" (the folder they lie in), "features" ("sift", "ldah"),
    /// "ldah_tables". Nothing if never set.
    [[nodiscard]] std::optional<std::string> setting(const std::string& key) const;
    void putSetting(const std::string& key, const std::string& value);

    /// Makes sure that each name is a photograph of the project; new ones get ids in the given
    /// order. Returns them in that order.
    std::vector<Photograph> addPhotographs(const std::vector<std::string>& names);
    /// All, by id.
    [[nodiscard]] std::vector<Photograph> photographs() const;
    [[nodiscard]] std::optional<Photograph> photograph(const std::string& name) const;

    /// Replaces the features of a photograph, and forgets its matches. `descriptorBytes`: rows for
    /// the reconstruction program, 128 bytes each, or empty.
    void putFeatures(const Photograph& photograph, const Camera& camera, const Features& features,
                     const DescMat& descriptorBytes);
    void putFailure(const Photograph& photograph, const std::string& reason);
    /// Forgets a photograph with all that the project has of it.
    void remove(const Photograph& photograph);
    /// @throws ProjectError if there are none.
    [[nodiscard]] Features features(std::int64_t id) const;
    /// The keypoints alone. @throws as features().
    [[nodiscard]] std::vector<Keypoint> keypoints(std::int64_t id) const;
    [[nodiscard]] Camera camera(std::int64_t id) const;

    /// All pairs that have been matched, by first and second id.
    [[nodiscard]] std::vector<Pair> pairs() const;
    void putMatches(std::int64_t first, std::int64_t second, const PairMatches& matches,
                    const std::string& stamp);
    /// @throws ProjectError if another program has changed them.
    [[nodiscard]] PairMatches matches(std::int64_t first, std::int64_t second) const;
    void putGeometry(std::int64_t first, std::int64_t second, const VerifiedPair& geometry,
                     const std::string& stamp);
    /// Nothing if the pair has not been verified.
    [[nodiscard]] std::optional<VerifiedPair> geometry(std::int64_t first,
                                                       std::int64_t second) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Whether a folder is a project of this program.
[[nodiscard]] bool isProject(const std::filesystem::path& folder);

/// The photographs that have features, by id.
[[nodiscard]] std::vector<Photograph> photographsWithFeatures(const Project& project);

/// What a photograph's features are, "sift" or "ldah"; empty if it has none.
[[nodiscard]] std::string featuresOf(const Photograph& photograph);

/// COLMAP's (0, 0) is the corner of the first pixel, ours its centre.
constexpr double kColmapPixelCorner = 0.5;

}  // namespace marlo::app
