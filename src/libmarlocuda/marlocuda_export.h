// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Marks what the GPU library makes visible; everything else in it is hidden.
#define MARLOCUDA_EXPORT __attribute__((visibility("default")))
