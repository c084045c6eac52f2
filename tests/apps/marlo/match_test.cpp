// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/match.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"
#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/histogram/random_descriptors.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"
#include "libfeatures/matchers/desc_matcher_left_right.h"
#include "stand_in/marlocuda_stand_in.h"
#include "support/log.h"
#include "utilities/matching_cases.h"

namespace marlo::app {
namespace {

using test::matchList;
using test::pairsOf;
using test::refusal;
using test::rowsOfBits;
using test::ScratchFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Ids = std::pair<std::int64_t, std::int64_t>;

constexpr const char* kSift = R"({"features": "sift"})";
constexpr const char* kLdah = R"({"features": "ldah", "tables": "t"})";

std::vector<Ids> pairsIn(const Project& project) {
    std::vector<Ids> pairs;
    for (const Pair& pair : project.pairs()) pairs.emplace_back(pair.first, pair.second);
    return pairs;
}

// Rows of bits that are far from one another and near (a bit off) the same row of other seeds; the
// first ones are far from all.
DescMat codes(int rows, int shift, std::uint32_t seed) {
    test::Random common(5);
    test::Random own(seed);
    DescMat all = test::randomBits(rows, 16, own);
    const DescMat known = test::randomBits(rows, 16, common);
    for (int i = shift; i < rows; ++i) {
        DescMat row = all.row(i);
        known.row(i - shift).copyTo(row);
        row.data[own.below(16)] ^= 1U;
    }
    return all;
}

// The rows that histograms of LDAH rows are made with.
DescMat someWords(int first, int count) {
    DescMat words;
    fillRandomLdah(words, first + count);
    DescMat some(count, 16, DescMat::Byte);
    std::memcpy(some.data, words.row(first).data, static_cast<std::size_t>(count) * some.step);
    return some;
}

DescMat repeated(const DescMat& rows, int times) {
    DescMat all(rows.rows * times, rows.cols, rows.type());
    for (int i = 0; i < all.rows; ++i) {
        DescMat row = all.row(i);
        rows.row(i % rows.rows).copyTo(row);
    }
    return all;
}

MatchList listOf(const std::vector<DMatch>& matches) {
    std::vector<std::array<std::uint32_t, 2>> rows;
    for (const DMatch& match : matches) rows.push_back({match.queryIndex, match.trainIndex});
    return matchList(rows);
}

std::vector<float> scoresOf(const std::vector<DMatch>& matches) {
    std::vector<float> scores;
    for (const DMatch& match : matches) scores.push_back(match.distance);
    return scores;
}

class MatchTest : public testing::Test {
protected:
    MatchTest() {
        // Once for all tests, as the program does it.
        static const bool registered = [] {
            registerMainDescriptorMatchers();
            return true;
        }();
        static_cast<void>(registered);
        project.putSetting("features", "ldah");
    }

    void add(const std::string& name, DescMat&& rows, const std::string& stamp = kLdah) {
        Photograph photograph = project.addPhotographs({name}).front();
        photograph.stamp = stamp;
        Features features;
        features.keypoints.resize(static_cast<std::size_t>(rows.rows));
        features.rows = std::move(rows);
        project.putFeatures(photograph, Camera{64, 48, 70.0, false, ""}, features, DescMat());
    }

    void addNames(const std::vector<std::string>& names) {
        for (const std::string& name : names) add(name, rowsOfBits(16, {0, 64, 128}));
    }

    Outcome run() {
        Progress progress(said, Progress::Form::lines);
        return match(options, project, progress);
    }

    void list(const std::string& content) {
        std::ofstream(folder / "pairs.txt", std::ios::binary) << content;
        options.pairs = "list:" + listFile();
    }
    [[nodiscard]] std::string listFile() const { return (folder / "pairs.txt").string(); }

    // What match() says of a list of pairs.
    std::string refusalOfList(const std::string& content) {
        list(content);
        return refusal<std::runtime_error>([&] { run(); });
    }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
    MatchOptions options;
    std::ostringstream said;
};

// Which pairs.

TEST_F(MatchTest, AllPairsAreMatched) {
    addNames({"a.jpg", "b.jpg", "c.jpg", "d.jpg"});
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 6U);
    EXPECT_EQ(outcome.skipped, 0U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_FALSE(outcome.interrupted);
    EXPECT_THAT(pairsIn(project),
                ElementsAre(Ids{1, 2}, Ids{1, 3}, Ids{1, 4}, Ids{2, 3}, Ids{2, 4}, Ids{3, 4}));
}

TEST_F(MatchTest, SequencePairsEachWithThoseThatFollow) {
    addNames({"a.jpg", "b.jpg", "c.jpg", "d.jpg", "e.jpg"});
    options.pairs = "sequence:2";
    EXPECT_EQ(run().done, 7U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 2}, Ids{1, 3}, Ids{2, 3}, Ids{2, 4}, Ids{3, 4},
                                              Ids{3, 5}, Ids{4, 5}));
}

TEST_F(MatchTest, SequenceFollowsTheNamesAndNotTheIds) {
    addNames({"b.jpg", "d.jpg", "a.jpg", "c.jpg"});
    options.pairs = "sequence:1";
    run();
    // a b, b c, c d
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 3}, Ids{1, 4}, Ids{2, 4}));
}

TEST_F(MatchTest, SequenceMayBeLongerThanThereArePhotographs) {
    addNames({"a.jpg", "b.jpg", "c.jpg"});
    options.pairs = "sequence:2147483647";
    EXPECT_EQ(run().done, 3U);
}

TEST_F(MatchTest, SequencesAreOfWholeNumbersAboveZero) {
    for (const char* const length : {"", "0", "-1", "x", "2x", "1.5", " 2", "99999999999"}) {
        options.pairs = std::string("sequence:") + length;
        EXPECT_EQ(
            refusal<std::invalid_argument>([&] { check(options, "ldah"); }),
            std::string("--pairs sequence:K needs a whole number above 0, not '") + length + "'");
    }
}

TEST_F(MatchTest, SimilarPhotographsAreOfWholeNumbersAboveZero) {
    for (const char* const number : {"", "0", "-1", "x", "2x", "1.5", " 2", "99999999999"}) {
        options.pairs = std::string("similar:") + number;
        EXPECT_EQ(
            refusal<std::invalid_argument>([&] { check(options, "ldah"); }),
            std::string("--pairs similar:K needs a whole number above 0, not '") + number + "'");
    }
}

TEST_F(MatchTest, SimilarPairsEachWithThoseMostLikeIt) {
    // Of 100 words a and b share 90, b and c 80, a and c 70, d and e all; no one else any.
    add("a.jpg", someWords(0, 100));
    add("d.jpg", someWords(500, 100));
    add("b.jpg", someWords(10, 100));
    add("c.jpg", someWords(30, 100));
    add("e.jpg", someWords(500, 100));
    options.pairs = "similar:1";
    EXPECT_EQ(run().done, 3U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 3}, Ids{2, 5}, Ids{3, 4}));
    options.pairs = "similar:2";
    run();
    // d and e are as far from a, b and c: the first by name counts.
    EXPECT_THAT(pairsIn(project),
                ElementsAre(Ids{1, 2}, Ids{1, 3}, Ids{1, 4}, Ids{1, 5}, Ids{2, 5}, Ids{3, 4}));
}

TEST_F(MatchTest, OfEquallySimilarPhotographsTheFirstByNameCounts) {
    add("d.jpg", someWords(0, 10));
    add("c.jpg", someWords(0, 10));
    add("b.jpg", someWords(0, 10));
    options.pairs = "similar:1";
    run();
    // b with c, c with b, d with b
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 3}, Ids{2, 3}));
}

TEST_F(MatchTest, SimilarPhotographsMayBeMoreThanThereAre) {
    addNames({"a.jpg", "b.jpg", "c.jpg"});
    options.pairs = "similar:2147483647";
    EXPECT_EQ(run().done, 3U);
}

TEST_F(MatchTest, PhotographsWithFewKeypointsAreComparedByTheSharesOfTheirWords) {
    add("a.jpg", someWords(0, 400));
    add("b.jpg", repeated(someWords(0, 400), 3));
    add("c.jpg", someWords(200, 400));  // shares half with a, and has as many
    add("d.jpg", repeated(someWords(200, 400), 3));
    options.pairs = "similar:1";
    run();
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 2}, Ids{3, 4}));
}

TEST_F(MatchTest, SimilarPhotographsHaveRowsOfOneKind) {
    DescMat floats;
    fillRandomSift(floats, 20);
    DescMat sameFloats;
    fillRandomSift(sameFloats, 20);
    add("a.jpg", someWords(0, 20), kLdah);
    add("b.jpg", std::move(floats), kSift);
    add("c.jpg", someWords(0, 20), R"({"features": "ldah", "tables": "u"})");
    add("d.jpg", someWords(0, 20), kLdah);
    add("e.jpg", std::move(sameFloats), kSift);
    options.pairs = "similar:4";
    const Outcome outcome = run();
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 4}, Ids{2, 5}));
}

TEST_F(MatchTest, PhotographsWithoutKeypointsAreLikeNone) {
    add("a.jpg", someWords(0, 20));
    add("b.jpg", DescMat(0, 16, DescMat::Byte));
    add("c.jpg", someWords(500, 20));
    options.pairs = "similar:2";
    run();
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 3}));
}

TEST_F(MatchTest, OtherKindsOfPairsAreRefusedWithTheChoices) {
    for (const char* const kind : {"", "ALL", "all ", "sequence", "similar", "list", "pairs.txt"}) {
        options.pairs = kind;
        EXPECT_EQ(
            refusal<std::invalid_argument>([&] { check(options, "ldah"); }),
            std::string("--pairs is all, sequence:K, similar:K or list:FILE, not '") + kind + "'");
    }
}

TEST_F(MatchTest, ListNamesTheTwoPhotographsOfEachPair) {
    addNames({"a.jpg", "b.jpg", "c/d e.jpg", "f \"g\".jpg"});
    list(
        "a.jpg b.jpg\n"
        "\n"
        "   \t\n"
        "# a comment of \"any kind\n"
        "\"c/d e.jpg\"\ta.jpg\r\n"
        "  \"b.jpg\"   \"f \\\"g\\\".jpg\"  ");
    EXPECT_EQ(run().done, 3U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 2}, Ids{1, 3}, Ids{2, 4}));
}

TEST_F(MatchTest, PairsThatAreListedTwiceAreMatchedOnce) {
    addNames({"a.jpg", "b.jpg"});
    list("a.jpg b.jpg\nb.jpg a.jpg\na.jpg b.jpg\n");
    EXPECT_EQ(run().done, 1U);
}

TEST_F(MatchTest, PhotographsAreNotMatchedWithThemselves) {
    addNames({"a.jpg", "b.jpg"});
    list("a.jpg a.jpg\n");
    EXPECT_EQ(run().done, 0U);
}

TEST_F(MatchTest, EmptyListIsNoPairs) {
    addNames({"a.jpg", "b.jpg"});
    list("");
    EXPECT_EQ(run().done, 0U);
    EXPECT_THAT(pairsIn(project), IsEmpty());
}

TEST_F(MatchTest, UnknownNameInAListIsReportedWithItsLine) {
    addNames({"a.jpg", "b.jpg"});
    EXPECT_EQ(refusalOfList("a.jpg b.jpg\n\n# more\na.jpg \"x y.jpg\"\n"),
              listFile() + ", line 4: the project has no photograph with features named 'x y.jpg'");
    EXPECT_THAT(pairsIn(project), IsEmpty());
}

TEST_F(MatchTest, PhotographsWithoutFeaturesAreUnknownToAList) {
    addNames({"a.jpg", "b.jpg"});
    project.addPhotographs({"c.jpg"});
    EXPECT_EQ(refusalOfList("a.jpg c.jpg\n"),
              listFile() + ", line 1: the project has no photograph with features named 'c.jpg'");
}

TEST_F(MatchTest, LinesOfOneOrThreeNamesAreReported) {
    addNames({"a.jpg", "b.jpg"});
    EXPECT_EQ(refusalOfList("a.jpg b.jpg\nb.jpg\n"),
              listFile() + ", line 2: two names of photographs are needed");
    EXPECT_EQ(refusalOfList("a.jpg b.jpg a.jpg"),
              listFile() + ", line 1: two names of photographs are needed");
}

TEST_F(MatchTest, QuotationMarksThatAreNotClosedAreReported) {
    addNames({"a.jpg", "b.jpg"});
    const std::string expected = listFile() + ", line 1: two names of photographs are needed";
    EXPECT_EQ(refusalOfList("a.jpg \"b.jpg\n"), expected);
    EXPECT_EQ(refusalOfList("\"a.jpg b.jpg\n"), expected);
}

TEST_F(MatchTest, NamesInQuotationMarksMayBeginLikeAComment) {
    addNames({"#a.jpg", "b.jpg"});
    list("\"#a.jpg\" b.jpg\n");
    EXPECT_EQ(run().done, 1U);
}

TEST_F(MatchTest, ListThatCannotBeReadIsReported) {
    addNames({"a.jpg", "b.jpg"});
    options.pairs = "list:" + listFile();
    EXPECT_EQ(refusal<std::runtime_error>([&] { run(); }),
              "the list of pairs " + listFile() + " cannot be read");
}

TEST_F(MatchTest, FolderIsNoList) {
    addNames({"a.jpg", "b.jpg"});
    options.pairs = "list:" + folder.path().string();
    EXPECT_EQ(refusal<std::runtime_error>([&] { run(); }),
              "the list of pairs " + folder.path().string() + " cannot be read");
}

TEST_F(MatchTest, FewerThanTwoPhotographsAreNoPair) {
    const std::string rest =
        " photographs with features; two are needed for a pair. Add some with `marlo extract`.";
    const std::string start = "The project " + (folder / "project").string() + " has ";
    EXPECT_EQ(refusal<std::runtime_error>([&] { run(); }), start + "0" + rest);
    addNames({"a.jpg"});
    project.addPhotographs({"waiting.jpg", "failed.jpg"});
    project.putFailure(*project.photograph("failed.jpg"), "is empty (0 bytes)");
    EXPECT_EQ(refusal<std::runtime_error>([&] { run(); }), start + "1" + rest);
}

TEST_F(MatchTest, PhotographsWithoutFeaturesAreLeftOut) {
    project.addPhotographs({"waiting.jpg", "failed.jpg"});
    project.putFailure(*project.photograph("failed.jpg"), "is empty (0 bytes)");
    addNames({"a.jpg", "b.jpg"});
    EXPECT_EQ(run().done, 1U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{3, 4}));
}

// What is done already.

TEST_F(MatchTest, PairsThatAreDoneAreSkipped) {
    addNames({"a.jpg", "b.jpg"});
    run();
    addNames({"c.jpg"});
    const Outcome outcome = run();
    EXPECT_EQ(outcome.skipped, 1U);
    EXPECT_EQ(outcome.done, 2U);
}

TEST_F(MatchTest, ForceDoesThemAgain) {
    addNames({"a.jpg", "b.jpg"});
    run();
    project.putGeometry(1, 2, VerifiedPair{}, "v");
    options.force = true;
    const Outcome outcome = run();
    EXPECT_EQ(outcome.skipped, 0U);
    EXPECT_EQ(outcome.done, 1U);
    EXPECT_FALSE(project.geometry(1, 2));
}

TEST_F(MatchTest, OtherParametersDoThemAgain) {
    addNames({"a.jpg", "b.jpg"});
    run();
    options.matcher = "DistFrac";
    EXPECT_EQ(run().done, 1U);
    options.ratio = 0.7F;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(run().done, 0U);
    options.ratio = 0.6F;
    EXPECT_EQ(run().done, 1U);
}

TEST_F(MatchTest, NumberOfThreadsIsNoOtherParameter) {
    addNames({"a.jpg", "b.jpg"});
    run();
    options.threads = 3;
    options.pairs = "sequence:1";
    EXPECT_EQ(run().skipped, 1U);
}

TEST_F(MatchTest, PairsOfAPhotographWithNewFeaturesAreDoneAgain) {
    addNames({"a.jpg", "b.jpg", "c.jpg"});
    run();
    addNames({"b.jpg"});
    const Outcome outcome = run();
    EXPECT_EQ(outcome.skipped, 1U);
    EXPECT_EQ(outcome.done, 2U);
}

// What cannot be matched.

TEST_F(MatchTest, RowsOfDifferentKindsFailAndAreReported) {
    add("a.jpg", rowsOfBits(16, {0, 64}), kLdah);
    add("b.jpg", test::rowsOfFloats(128, {0, 1}), kSift);
    add("c.jpg", rowsOfBits(16, {0, 64}), kLdah);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.failed, 2U);
    EXPECT_EQ(outcome.done, 1U);
    EXPECT_THAT(pairsIn(project), ElementsAre(Ids{1, 3}));
    EXPECT_THAT(said.str(), HasSubstr("failed: a.jpg and b.jpg: one has SIFT and the other LDAH "
                                      "rows; extract both anew (--force)\n"));
}

TEST_F(MatchTest, CodesOfDifferentTablesFailAndAreReported) {
    add("a.jpg", rowsOfBits(16, {0, 64}), R"({"features": "ldah", "tables": "t"})");
    add("b.jpg", rowsOfBits(16, {0, 64}), R"({"features": "ldah", "tables": "u"})");
    EXPECT_EQ(run().failed, 1U);
    EXPECT_THAT(pairsIn(project), IsEmpty());
    EXPECT_THAT(said.str(), HasSubstr("failed: a.jpg and b.jpg: their LDAH codes are of different "
                                      "tables; extract both anew (--force)\n"));
}

TEST_F(MatchTest, FailuresAreEventsForPrograms) {
    add("a.jpg", rowsOfBits(16, {0, 64}), kLdah);
    add("b.jpg", test::rowsOfFloats(128, {0, 1}), kSift);
    Progress progress(said, Progress::Form::json);
    match(options, project, progress);
    EXPECT_EQ(nlohmann::json::parse(said.str().substr(0, said.str().find('\n'))),
              nlohmann::json({{"event", "failed"},
                              {"name", "a.jpg and b.jpg"},
                              {"reason",
                               "one has SIFT and the other LDAH rows; extract both anew "
                               "(--force)"}}));
}

TEST_F(MatchTest, LeftRightIsNotForSift) {
    options.matcher = "LeftRight";
    EXPECT_EQ(refusal<std::invalid_argument>([&] { check(options, "sift"); }),
              "--matcher LeftRight is for LDAH codes; SIFT features need DistFracMutual or "
              "DistFrac");
    EXPECT_NO_THROW(check(options, "ldah"));
    project.putSetting("features", "sift");
    add("a.jpg", test::rowsOfFloats(128, {0, 1}), kSift);
    add("b.jpg", test::rowsOfFloats(128, {0, 1}), kSift);
    EXPECT_THROW(run(), std::invalid_argument);
    EXPECT_THAT(pairsIn(project), IsEmpty());
}

TEST_F(MatchTest, LeftRightHasNoRatio) {
    options.matcher = "LeftRight";
    options.ratio = 0.8F;
    EXPECT_EQ(refusal<std::invalid_argument>([&] { check(options, "ldah"); }),
              "--matcher LeftRight has no ratio test: leave --ratio out");
    options.matcher = "DistFrac";
    EXPECT_NO_THROW(check(options, "ldah"));
    EXPECT_NO_THROW(check(options, "sift"));
}

// Matches.

class MatchResultsTest : public MatchTest {
protected:
    // The first photograph's row i + 2 is the second's row i, nearly.
    void addCodes() {
        add("b.jpg", codes(22, 2, 17));
        add("a.jpg", codes(20, 0, 18));
    }

    void expectMatches(const std::vector<DMatch>& expected, std::size_t atLeast) {
        ASSERT_GE(expected.size(), atLeast);
        EXPECT_EQ(run().done, 1U);
        const PairMatches found = project.matches(1, 2);
        EXPECT_EQ(found.matches, listOf(expected));
        EXPECT_EQ(found.scores, scoresOf(expected));
    }

    // With the limits that the program gives it for a ratio of 0.7, and so the program's options.
    template <typename Matcher>
    Matcher withRatio() {
        options.ratio = 0.7F;
        Matcher matcher;
        matcher.setParams(50U, 0.7F);
        matcher.setParams(1'000'000.0F, 0.7F);
        return matcher;
    }

    DescMat firstRows() { return std::move(project.features(1).rows); }
    DescMat secondRows() { return std::move(project.features(2).rows); }
};

TEST_F(MatchResultsTest, FirstColumnIsOfTheSmallerIdAlsoIfItsNameIsTheLater) {
    addCodes();
    run();
    const PairMatches found = project.matches(1, 2);
    ASSERT_EQ(found.matches.rows(), 20);
    for (Eigen::Index i = 0; i < 20; ++i) {
        EXPECT_EQ(found.matches(i, 0), found.matches(i, 1) + 2);
    }
    EXPECT_EQ(found.scores.size(), 20U);
}

TEST_F(MatchResultsTest, AreThoseOfTheMutualMatcher) {
    addCodes();
    expectMatches(withRatio<DescMatcherDistFracMutual>().match(firstRows(), secondRows()), 20);
}

TEST_F(MatchResultsTest, AreThoseOfTheOneSidedMatcher) {
    addCodes();
    options.matcher = "DistFrac";
    expectMatches(withRatio<DescMatcherDistFrac>().match(firstRows(), secondRows()), 20);
}

TEST_F(MatchResultsTest, AreThoseOfTheLeftRightMatcher) {
    addCodes();
    options.matcher = "LeftRight";
    expectMatches(DescMatcherLeftRight().match(firstRows(), secondRows()), 20);
}

TEST_F(MatchResultsTest, RatioOfCodesReachesTheMatcher) {
    // 10 bits to the nearest, 16 to the second nearest: 0.625.
    add("a.jpg", rowsOfBits(16, {30}));
    add("b.jpg", rowsOfBits(16, {20, 46}));
    options.matcher = "DistFrac";
    options.ratio = 0.62F;
    run();
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 0);
    options.ratio = 0.63F;
    run();
    EXPECT_THAT(pairsOf(project.matches(1, 2).matches), ElementsAre(std::array{0U, 0U}));
}

TEST_F(MatchResultsTest, RatioLeavesTheLimitOfCodesWhereItIs) {
    add("a.jpg", rowsOfBits(16, {0}));
    add("b.jpg", rowsOfBits(16, {50, 128}));
    add("c.jpg", rowsOfBits(16, {51, 128}));
    options.matcher = "DistFrac";
    options.ratio = 0.8F;
    run();
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 1);
    EXPECT_EQ(project.matches(1, 3).matches.rows(), 0);
}

TEST_F(MatchResultsTest, RatioOfFloatsReachesTheMatcher) {
    options.distance = "euclidean";
    add("a.jpg", test::rowsOfFloats(128, {0.5F}), kSift);
    add("b.jpg", test::rowsOfFloats(128, {0.25F, 1.0F}), kSift);  // one is twice as far
    options.matcher = "DistFrac";
    options.ratio = 0.49F;
    run();
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 0);
    options.ratio = 0.51F;
    run();
    EXPECT_THAT(pairsOf(project.matches(1, 2).matches), ElementsAre(std::array{0U, 0U}));
}

TEST_F(MatchResultsTest, OfFloatsAreThoseOfTheMatcherToo) {
    options.distance = "euclidean";
    test::Random random(3);
    test::QueryAndTrain rows = test::partlyNearRows(60, 70, 128, random);
    add("a.jpg", std::move(rows.query), kSift);
    add("b.jpg", std::move(rows.train), kSift);
    expectMatches(withRatio<DescMatcherDistFracMutual>().match(firstRows(), secondRows()), 5);
}

TEST_F(MatchResultsTest, CodesHaveARatioOf9TenthsUnlessOneIsGiven) {
    options.matcher = "DistFrac";
    add("a.jpg", rowsOfBits(16, {30}));
    add("b.jpg", rowsOfBits(16, {13, 50}));  // 17 bits of 20
    add("c.jpg", rowsOfBits(16, {11, 50}));  // 19 bits of 20
    run();
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 1);
    EXPECT_EQ(project.matches(1, 3).matches.rows(), 0);
}

TEST_F(MatchResultsTest, FloatsHaveARatioOf85HundredthsUnlessOneIsGiven) {
    options.matcher = "DistFrac";
    options.distance = "euclidean";
    add("a.jpg", test::rowsOfFloats(128, {0.5F}), kSift);
    add("b.jpg", test::rowsOfFloats(128, {0.34F, 0.7F}), kSift);  // 0.16 of 0.2
    add("c.jpg", test::rowsOfFloats(128, {0.32F, 0.7F}), kSift);  // 0.18 of 0.2
    run();
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 1);
    EXPECT_EQ(project.matches(1, 3).matches.rows(), 0);
}

TEST_F(MatchResultsTest, FloatsAreComparedByTheRootsOfTheirShares) {
    options.matcher = "DistFrac";
    // By roots of shares (0.6, 0.8) is nearer to (0.55, 0.84) than to (0.8, 0.6), and so a row is
    // to a much longer one in about the same direction. As the rows are, the other one is nearer.
    const auto rowsOf = [](const std::vector<std::array<float, 2>>& pairs) {
        DescMat rows(static_cast<int>(pairs.size()), 128, DescMat::Float);
        std::memset(rows.data, 0, pairs.size() * rows.step);
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            std::memcpy(rows.data + i * rows.step, pairs[i].data(), sizeof(pairs[i]));
        }
        return rows;
    };
    add("a.jpg", rowsOf({{0.36F, 0.64F}}), kSift);
    add("b.jpg", rowsOf({{3.0F, 7.0F}, {0.64F, 0.36F}}), kSift);
    run();
    EXPECT_THAT(pairsOf(project.matches(1, 2).matches), ElementsAre(std::array{0U, 0U}));
    options.distance = "euclidean";
    run();
    EXPECT_THAT(pairsOf(project.matches(1, 2).matches), ElementsAre(std::array{0U, 1U}));
}

TEST_F(MatchResultsTest, DoNotDependOnTheNumberOfThreads) {
    addCodes();
    options.threads = 1;
    run();
    const PairMatches one = project.matches(1, 2);
    options.threads = 3;
    options.force = true;
    run();
    EXPECT_EQ(project.matches(1, 2).matches, one.matches);
    EXPECT_EQ(project.matches(1, 2).scores, one.scores);
}

TEST_F(MatchResultsTest, PhotographWithoutKeypointsHasNoMatches) {
    addNames({"a.jpg"});
    add("b.jpg", DescMat(0, 16, DescMat::Byte));
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 0);
    EXPECT_THAT(project.matches(1, 2).scores, IsEmpty());
    EXPECT_EQ(run().skipped, 1U);
}

// On a GPU.

class GpuMatchTest : public MatchResultsTest {
protected:
    // The matcher of the GPU, but for the GPU.
    class Matcher : public DescMatcherDistFrac {
    public:
        explicit Matcher(GpuMatchTest& test) : test_(test) {}

        [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                                const DescMat& train) const override {
            ++test_.calls;
            if (!test_.failure.empty()) {
                log::LogStreamer(log::defaultLogSource(), log::Level::Warning) << test_.failure;
            }
            return DescMatcherDistFrac::match(query, train);
        }

    private:
        GpuMatchTest& test_;
    };

    GpuMatchTest() {
        gpu.reset();
        extensibleFactoryInstance<IDescriptorMatcher>().registerType(
            "DistFracCuda", [this] { return std::make_unique<Matcher>(*this); });
        options.matcher = "DistFrac";
        addCodes();
    }
    ~GpuMatchTest() override { gpu.reset(); }

    void haveGpu() {
        gpu.featureAvailable = gpu.gpusAvailable = true;
        gpu.activeDevice = "two-core test GPU";
    }

    test::StandIn& gpu = test::StandIn::instance();
    int calls = 0;  // of the GPU's matcher
    std::string failure;
};

TEST_F(GpuMatchTest, CodesAreMatchedOnAUsableGpuWithTheSameParametersAndMatches) {
    haveGpu();
    expectMatches(withRatio<DescMatcherDistFrac>().match(firstRows(), secondRows()), 20);
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(said.str(), StartsWith("GPU: two-core test GPU\n"));
}

TEST_F(GpuMatchTest, WithoutAUsableGpuTheyAreMatchedOnTheCpu) {
    gpu.featureAvailable = true;
    EXPECT_EQ(run().done, 1U);
    gpu.featureAvailable = false;
    gpu.gpusAvailable = true;
    options.force = true;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(calls, 0);
    EXPECT_THAT(said.str(), Not(HasSubstr("GPU")));
}

TEST_F(GpuMatchTest, OtherMatchersStayOnTheCpu) {
    haveGpu();
    for (const char* const matcher : {"DistFracMutual", "LeftRight"}) {
        options.matcher = matcher;
        EXPECT_EQ(run().done, 1U);
    }
    EXPECT_EQ(calls, 0);
    EXPECT_THAT(said.str(), Not(HasSubstr("GPU")));
}

TEST_F(GpuMatchTest, FloatsStayOnTheCpu) {
    haveGpu();
    add("c.jpg", test::rowsOfFloats(128, {0.5F}), kSift);
    add("d.jpg", test::rowsOfFloats(128, {0.25F, 1.0F}), kSift);
    list("c.jpg d.jpg\n");
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(calls, 0);
}

TEST_F(GpuMatchTest, WhatWasMatchedOnAGpuIsNotMatchedAgainWithoutOneNorTheOtherWay) {
    haveGpu();
    run();
    const std::string stamp = project.pairs().front().matchStamp;
    gpu.gpusAvailable = false;
    EXPECT_EQ(run().skipped, 1U);
    options.force = true;
    run();
    EXPECT_EQ(project.pairs().front().matchStamp, stamp);
    gpu.gpusAvailable = true;
    options.force = false;
    EXPECT_EQ(run().skipped, 1U);
    EXPECT_EQ(calls, 1);
}

TEST_F(GpuMatchTest, GpuThatIsWantedButMatchesNothingIsMentioned) {
    haveGpu();
    options.gpuIsWanted = true;
    run();
    EXPECT_THAT(said.str(), Not(HasSubstr("warning")));
    options.matcher = "DistFracMutual";
    run();
    EXPECT_THAT(said.str(), HasSubstr("warning: --gpu on: the GPU matches LDAH codes with "
                                      "--matcher DistFrac only; all is matched on the CPU\n"));
}

TEST_F(GpuMatchTest, FailureOfTheGpuIsOneWarningForAllPairs) {
    haveGpu();
    failure = "CudaException catch : Cuda processing error.";
    add("c.jpg", codes(20, 0, 19));
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 3U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_EQ(calls, 3);
    const std::string warning =
        "warning: the GPU failed, and the CPU does its work: Cuda processing error. (two-core test "
        "GPU)\n";
    const std::size_t at = said.str().find(warning);
    ASSERT_NE(at, std::string::npos) << said.str();
    EXPECT_EQ(said.str().find("warning", at + 1), std::string::npos) << said.str();
}

TEST_F(GpuMatchTest, SearchThatTheGpuFailsAtIsOneWarningForAllPairs) {
    registerMainDescriptorMatchers();  // the library's own matcher of the GPU
    haveGpu();
    gpu.hammingDistance.status = 3;
    for (const char* const name : {"d.jpg", "e.jpg", "f.jpg"}) add(name, codes(1030, 0, 20));
    const Outcome outcome = run();
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_EQ(gpu.calls<test::HammingDistanceCall>().size(), 3U);
    const std::string warning =
        "warning: the GPU failed, and the CPU does its work: (two-core test GPU)\n";
    const std::size_t at = said.str().find(warning);
    ASSERT_NE(at, std::string::npos) << said.str();
    EXPECT_EQ(said.str().find("warning", at + 1), std::string::npos) << said.str();
}

TEST_F(GpuMatchTest, FewRowsAreMatchedOnTheCpuWithoutAWarning) {
    registerMainDescriptorMatchers();
    haveGpu();
    gpu.hammingDistance.status = 3;
    EXPECT_EQ(run().done, 1U);
    EXPECT_TRUE(gpu.calls<test::HammingDistanceCall>().empty());
    EXPECT_THAT(said.str(), Not(HasSubstr("warning")));
}

}  // namespace
}  // namespace marlo::app
