// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/detail/polynomial_roots.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "utilities/camera_checks.h"

namespace marlo::detail {
namespace {

using testing::DoubleEq;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;

using Coefficients = std::vector<double>;

// The polynomial with these roots.
Coefficients withRoots(const std::vector<double>& roots) {
    Coefficients product = {1.0};
    for (const double root : roots) {
        Coefficients next(product.size() + 1, 0.0);
        for (std::size_t i = 0; i < product.size(); ++i) {
            next[i] -= root * product[i];
            next[i + 1] += product[i];
        }
        product = next;
    }
    return product;
}

TEST(PolynomialAtTest, AddsUpThePowers) {
    EXPECT_EQ(polynomialAt({1.0, -2.0, 3.0}, 2.0), 9.0);
    EXPECT_EQ(polynomialAt({}, 2.0), 0.0);
}

TEST(PositiveRootsTest, ConstantsHaveNone) {
    EXPECT_THAT(positiveRoots({}), IsEmpty());
    EXPECT_THAT(positiveRoots({0.0, 0.0}), IsEmpty());
    EXPECT_THAT(positiveRoots({3.0}), IsEmpty());
    EXPECT_THAT(positiveRoots({3.0, 0.0, 0.0}), IsEmpty());
}

TEST(PositiveRootsTest, FindsThePositiveRootsOnlyAndInOrder) {
    EXPECT_THAT(positiveRoots({-6.0, 2.0}), ElementsAre(DoubleEq(3.0)));
    EXPECT_THAT(positiveRoots({6.0, 2.0}), IsEmpty());
    EXPECT_THAT(positiveRoots(withRoots({4.0, -1.0, 0.25})),
                ElementsAre(DoubleEq(0.25), DoubleEq(4.0)));
    EXPECT_THAT(positiveRoots({1.0, 0.0, 1.0}), IsEmpty());
}

TEST(PositiveRootsTest, ZeroIsNoRoot) {
    EXPECT_THAT(positiveRoots({0.0, 0.0, -6.0, 2.0}), ElementsAre(DoubleEq(3.0)));
    EXPECT_THAT(positiveRoots({0.0, 1.0}), IsEmpty());
}

TEST(PositiveRootsTest, CoefficientsOfZeroAtTheEndDoNotCount) {
    EXPECT_THAT(positiveRoots({-6.0, 2.0, 0.0, 0.0}), ElementsAre(DoubleEq(3.0)));
}

TEST(PositiveRootsTest, DoubleRootsThatAreExactlyZeroAreFoundOnce) {
    EXPECT_THAT(positiveRoots({4.0, -4.0, 1.0}), ElementsAre(2.0));
    EXPECT_THAT(positiveRoots(withRoots({1.0, 1.0, 3.0})), ElementsAre(1.0, DoubleEq(3.0)));
}

TEST(PositiveRootsTest, RootsMayBeVeryLargeAndVerySmall) {
    EXPECT_THAT(positiveRoots({-1.0, 1e-200}), ElementsAre(DoubleEq(1e200)));
    EXPECT_THAT(positiveRoots({-1e-200, 1.0}), ElementsAre(DoubleEq(1e-200)));
    EXPECT_THAT(positiveRoots({1.0, -1e-300, 0.0, 1e-320}), IsEmpty());
}

TEST(PositiveRootsTest, ARootLiesOnTheSideOfZeroOfTheChange) {
    const Coefficients c = {1.0, -0.9, 0.1, -0.07};
    const std::vector<double> roots = positiveRoots(c);
    ASSERT_EQ(roots.size(), 1U);
    EXPECT_GE(polynomialAt(c, roots[0]), 0.0);
    EXPECT_LE(polynomialAt(c, std::nextafter(roots[0], 10.0)), 0.0);
}

TEST(PositiveRootsTest, FindsRandomRootsOfEveryDegree) {
    std::mt19937 generator(1);
    for (int i = 0; i < 1000; ++i) {
        std::vector<double> roots(1 + generator() % 6);
        for (double& root : roots) root = test::randomBetween(generator, -2.0, 2.0);
        std::sort(roots.begin(), roots.end());
        // Close roots of a rounded polynomial may not exist.
        const auto close = [](double a, double b) { return b - a < 0.05; };
        if (std::adjacent_find(roots.begin(), roots.end(), close) != roots.end()) continue;
        std::vector<testing::Matcher<double>> wanted;
        for (const double root : roots) {
            if (root > 1e-3) wanted.push_back(DoubleNear(root, 1e-8));
        }
        std::vector<double> found = positiveRoots(withRoots(roots));
        found.erase(std::remove_if(found.begin(), found.end(), [](double r) { return r <= 1e-3; }),
                    found.end());
        EXPECT_THAT(found, testing::ElementsAreArray(wanted)) << i;
    }
}

}  // namespace
}  // namespace marlo::detail
