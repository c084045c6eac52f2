// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Marks what libfeatures makes visible; everything else in the library is hidden.
#define FEATURES_EXPORT __attribute__((visibility("default")))
/// Takes a private member function of a visible class back out.
#define FEATURES_HIDDEN __attribute__((visibility("hidden")))
