// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "marlo/project.h"

namespace marlo::app {

/// Programs and libraries that a project's features and matches can be written for.
enum class ExportFormat { colmap, openmvg, opencvYaml, npz };

/// All has been written but what the text names.
class SomeLeftOut : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What users call the formats, e.g. "opencv-yaml".
[[nodiscard]] std::vector<std::string> exportFormatWords();

/// The format that a user calls so.
/// @throws std::invalid_argument, with a text that lists the choices, for any other word.
[[nodiscard]] ExportFormat parseExportFormat(std::string_view word);

/// Writes the project's features and matches into `folder`, which is made where it is missing.
/// Files that are there already are replaced, each when the new one is complete; other files stay.
///
/// Photographs without features (waiting, failed) have no files of their own. Where nothing else is
/// said below, matches are rows of two indices that count keypoints from 0, of the photograph that
/// is named first and of the other; verified ones are those that agree with the pair's geometry.
/// NAME is the photograph's name with its ending; a '/' in it makes folders.
///
/// colmap, SIFT only:
/// - `features/NAME.txt`, for `colmap feature_importer`: "N 128", then a line "x y scale
///   orientation" and 128 bytes of siftBytesForColmap() for each keypoint. The centre of the first
///   pixel is (0.5, 0.5), orientations run clockwise as displayed.
/// - `matches.txt` and, verified ones, `inliers.txt`, for `colmap matches_importer` with
///   `--match_type raw` and `inliers`. Pairs without matches are left out.
///
/// openmvg, SIFT only:
/// - BASENAME`.feat` (x, y, scale, orientation; the centre of the first pixel is (0, 0),
///   orientations run clockwise as displayed) and BASENAME`.desc` (siftBytesForOpenMvg()), empty
///   for photographs without features; `image_describer.json`. BASENAME has no folder and no
///   ending.
/// - `matches.putative.txt` and, verified ones, `matches.f.txt`, by the photographs' positions in
///   the list of all names in ascending order, which `views.txt` is: "position name".
///
/// opencv-yaml, for `cv::FileStorage`:
/// - NAME`.yml.gz`, with "__" for every '/': `keypoints`, a list of cv::KeyPoint (size is twice our
///   scale, angle in degrees clockwise, octave and layer packed as cv::SIFT does it), and
///   `descriptors`, CV_32F, 512 for 1, or CV_8U. SIFT rows of NaN become zeros.
/// - `matches.yml.gz`: `pairs`, a list with `first` and `second` (names), `matches` and `inliers`
///   (lists of cv::DMatch; distance is 1 - score, smaller is better) and `verified` (0: the pair
///   has not been verified, and there are no inliers for that reason).
///
/// npz, for `numpy.load`, everything as the library has it:
/// - NAME`.npz`: `keypoints` (N x 4 float32: x, y, scale, angle; the centre of the first pixel is
///   (0, 0), angles are radians counter-clockwise as displayed), `responses` (N float32), `octaves`
///   and `layers` (N uint8), `descriptors` (N x 128 float32 or N x 16 uint8).
/// - `matches.npz`: for each pair of photographs I and J `I_J` (M x 2 uint32), `I_J_scores`
///   (M float32) and, if it has been verified, `I_J_inliers` (K x 2 uint32). `views.txt` says which
///   photographs the numbers are: "I name". Not written if no pair has been matched.
///
/// @throws std::invalid_argument, before anything is written, if the format cannot hold the
///         project: LDAH features for colmap and openmvg; two photographs whose files would have
///         the same name; a name that leads out of `folder`.
/// @throws SomeLeftOut, after everything else has been written, if names with white space kept
/// pairs
///         out of COLMAP's lists; Interrupted, with complete files only in the folder.
/// @throws OutOfSpace, std::runtime_error if a file cannot be written; ProjectError.
void exportProject(const Project& project, ExportFormat format,
                   const std::filesystem::path& folder);

}  // namespace marlo::app
