// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "libmarlocuda/marlocuda_export.h"

/// The GPU processing library: the entry points that libfeatures hands its GPU work to.
///
/// Every variant of the library (built with CUDA or without) has exactly these symbols, so a host
/// never needs to know which one is installed. Every `mlc...` function that returns an `int`
/// returns a status: 0 for success; 1 if no GPU can be used; 2 if the GPU has not the resources;
/// anything else for other failures. getActiveDeviceString() then says why. After a failure no
/// output has been written, unless the GPU failed while it copied results; they are of no use then.
///
/// Work is done on the GPU that is the calling thread's (the first one unless the host has chosen),
/// which must be of compute capability 7.5 or newer with 512 MiB of memory. Each thread has its own
/// stream and memory, which it keeps until it ends; the memory grows to what the largest call
/// needed, and a call that would need more than is free fails with status 2 before it allocates.
/// All functions may be called from several threads.
///
/// Images are row-major, `rows` x `cols` floats without padding between rows; all pointers are
/// host memory, owned by the caller, and are not kept after the call.

namespace marlo {

struct Keypoint;

namespace cuda {

/// Whether there is a driver and any GPU, asked once in a process. False in the variant that was
/// built without CUDA.
MARLOCUDA_EXPORT bool isFeatureAvailable();

/// Whether the calling thread's GPU can be used for processing at this moment.
MARLOCUDA_EXPORT bool gpusAvailableForProcessing();

/// Replaces `description` by a short text for people: the calling thread's GPU, with the reason if
/// the thread's last call failed, or "no GPU: " and why none can be used.
MARLOCUDA_EXPORT void getActiveDeviceString(std::string& description);

/// Replaces `descriptions` by one line for people on each GPU that was found: what it is, and
/// whether it can be used or why not. One line where the driver cannot list them (too old, say).
MARLOCUDA_EXPORT void getDeviceStrings(std::vector<std::string>& descriptions);

/// Lets this process use a GPU (as it may at first) or not, from now on and for all threads. While
/// it may not, gpusAvailableForProcessing() is false and the processing calls fail.
MARLOCUDA_EXPORT void setProcessingEnabled(bool enabled);

}  // namespace cuda
}  // namespace marlo

extern "C" {

/// The largest number of keypoints that mlcDetectLdah() can write for an image of this size: the
/// number of records its caller must provide. One for every 32 pixels and 1024 more, where
/// photographs have one for a few hundred; for an image with more mlcDetectLdah() fails with status
/// 2 rather than leave any out. A count, not a status; 0 for images of more than 2^30 pixels, which
/// mlcDetectLdah() refuses, and in the variant that was built without CUDA.
MARLOCUDA_EXPORT std::uint64_t mlcMaximumKeypointsLDAH(std::uint64_t rows, std::uint64_t cols);

/// Detects scale-space extrema with their orientations, sorted by octave, level, row and column of
/// the pixel at which the search found them, and angle. Needs some 40 bytes a pixel of the GPU.
/// `keypoints` has room for mlcMaximumKeypointsLDAH(rows, cols) records of 24 bytes (x, y, scale,
/// angle, response as floats at offsets 0 to 16, octave and layer as bytes at 20 and 21), in
/// pixels of the given image. `*count` is set to 0 by the caller and receives the number written.
/// Status 1 or 2: not enough GPU resources; any other non-zero status: processing error.
MARLOCUDA_EXPORT int mlcDetectLdah(const float* data, std::uint64_t rows, std::uint64_t cols,
                                   marlo::Keypoint* keypoints, std::uint64_t* count);

/// Gradient magnitude and direction (radians, [-pi, pi]) of every pixel. Both outputs are
/// `rows` x `cols`.
MARLOCUDA_EXPORT int mlcGradient(const float* src, std::uint64_t rows, std::uint64_t cols,
                                 float* magnitude, float* orientation);

/// Blurs an image in place with an isotropic Gaussian of standard deviation `sigma` pixels.
MARLOCUDA_EXPORT int mlcGaussianFilter(float* data, std::uint64_t rows, std::uint64_t cols,
                                       double sigma);

/// Gradient images of the scale space, for the descriptor. Needs some 52 bytes a pixel of the GPU.
/// `magnitudes` and `orientations` each hold 12 pointers, octave-major over 3 octaves of 4 levels.
/// Level 0 entries are null; the image of octave o, level 1 to 3 is (rows >> o) x (cols >> o).
/// `lastOctave` is 2, `initialSigma` 1.6 and `levelsPerOctave` 4.
/// Status 2: not enough GPU resources; any other non-zero status: processing error.
MARLOCUDA_EXPORT int mlcGradientPyramid(const float* image, std::uint64_t rows, std::uint64_t cols,
                                        float** magnitudes, float** orientations, int lastOctave,
                                        double initialSigma, int levelsPerOctave);

/// For every query row the nearest train row by Hamming distance, that distance, and the
/// second-smallest distance. Ties go to the lowest train row; a second row at the same distance
/// is the second-nearest; where there is but one train row the second distance is 0xffffffff. Rows
/// are `rowBytes` bytes long (8, 16, 32, 64 or 128) and stored without padding; each output has
/// `queryRows` entries that the caller has set to 0.
MARLOCUDA_EXPORT int mlcHammingDistance(const void* queryData, int queryRows, const void* trainData,
                                        int trainRows, unsigned int* bestIndex,
                                        unsigned int* bestDistance, unsigned int* secondDistance,
                                        std::size_t rowBytes);

}  // extern "C"
