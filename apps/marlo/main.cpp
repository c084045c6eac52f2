// SPDX-License-Identifier: BSD-3-Clause
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <functional>
#include <iostream>
#include <new>
#include <nlohmann/json.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <stdexcept>

#include "libfeatures/base/registration.h"
#include "libfeatures/version.h"
#include "marlo/choices.h"
#include "marlo/demo.h"
#include "marlo/export.h"
#include "marlo/extract.h"
#include "marlo/gpu.h"
#include "marlo/info.h"
#include "marlo/interruption.h"
#include "marlo/match.h"
#include "marlo/photograph_files.h"
#include "marlo/pictures.h"
#include "marlo/progress.h"
#include "marlo/project.h"
#include "marlo/show.h"
#include "marlo/summary.h"

namespace marlo::app {
namespace {

enum ExitCode {
    kAllDone = 0,
    kNothingUsable = 1,
    kUsage = 2,
    kSomeFailed = 3,
    kNotOnThisMachine = 4,  // too little memory or disk space, or no GPU although one is wanted
    kSignal = 128,          // and its number: 130 for Ctrl-C, 143 for SIGTERM
};

constexpr std::size_t kRunPictures = 8;

// What the command line says.
struct Arguments {
    bool json = false;
    std::vector<std::string> photographs;
    std::string folder;
    std::string memory;
    std::string masks;
    std::string gpu = "auto";
    ExtractOptions extract;
    MatchOptions match;
    VerifyOptions verify;
    std::string exportFormat;
    std::string exportFolder;
    std::vector<std::string> names;
    std::string picture;
};

// How a command ends, as an exit code.
int exitCode(const Outcome& outcome) {
    if (interruption() != 0) return kSignal + interruption();
    if (outcome.failed == 0) return kAllDone;
    return outcome.done + outcome.skipped == 0 ? kNothingUsable : kSomeFailed;
}

// Before anything is written.
void checkExtractArguments(Arguments& arguments) {
    if (!arguments.memory.empty()) arguments.extract.memory = parseMemory(arguments.memory);
    if (!arguments.masks.empty()) {
        if (!std::filesystem::is_directory(arguments.masks)) {
            throw UsageError("--mask-dir " + arguments.masks + " is not a folder");
        }
        arguments.extract.masks = arguments.masks;
    }
}

void reportOutcome(const std::string& what, const Outcome& outcome, Progress& progress) {
    progress.report(what + ": " + std::to_string(outcome.done) + " done, " +
                        std::to_string(outcome.skipped) + " were done already, " +
                        std::to_string(outcome.failed) + " failed" +
                        (outcome.interrupted ? ", interrupted" : ""),
                    {{"event", "outcome"},
                     {"task", what},
                     {"done", outcome.done},
                     {"skipped", outcome.skipped},
                     {"failed", outcome.failed},
                     {"interrupted", outcome.interrupted}});
}

int runExtract(Arguments& arguments, Progress& progress) {
    checkExtractArguments(arguments);
    chooseGpu(arguments.gpu, progress);
    const PhotographFiles files = findPhotographs(arguments.photographs, arguments.extract.masks);
    Project project(arguments.folder, Project::Access::write);
    const Outcome outcome = extract(files, arguments.extract, project, progress);
    reportOutcome("extract", outcome, progress);
    writeSummary(project);
    return exitCode(outcome);
}

// A command on what a project has already.
template <typename Options>
int runOn(const std::string& what, Outcome (*command)(const Options&, Project&, Progress&),
          const Options& options, const Arguments& arguments, Progress& progress) {
    Project project(arguments.folder, Project::Access::update);
    const Outcome outcome = command(options, project, progress);
    reportOutcome(what, outcome, progress);
    writeSummary(project);
    return exitCode(outcome);
}

int runMatch(Arguments& arguments, Progress& progress) {
    chooseGpu(arguments.gpu, progress);
    arguments.match.gpuIsWanted = arguments.gpu == "on";
    return runOn("match", match, arguments.match, arguments, progress);
}

int runVerify(Arguments& arguments, Progress& progress) {
    return runOn("verify", verify, arguments.verify, arguments, progress);
}

int runAll(Arguments& arguments, Progress& progress) {
    checkExtractArguments(arguments);
    check(arguments.match, arguments.extract.features);
    chooseGpu(arguments.gpu, progress);
    const PhotographFiles files = findPhotographs(arguments.photographs, arguments.extract.masks);
    Project project(arguments.folder, Project::Access::write);
    const Outcome extracted = extract(files, arguments.extract, project, progress);
    reportOutcome("extract", extracted, progress);
    Outcome whole = extracted;
    const std::size_t described = photographsWithFeatures(project).size();
    if (described == 1) progress.warning("one photograph has no pairs");
    if (interruption() == 0 && described > 1) {
        const Outcome matched = match(arguments.match, project, progress);
        reportOutcome("match", matched, progress);
        whole.done += matched.done;
        whole.failed += matched.failed;
    }
    if (interruption() == 0) {
        const Outcome verified = verify(arguments.verify, project, progress);
        reportOutcome("verify", verified, progress);
        whole.done += verified.done;
        whole.failed += verified.failed;
    }
    writeSummary(project);
    const std::filesystem::path folder =
        std::filesystem::absolute(arguments.folder).lexically_normal();
    if (interruption() != 0 || described == 0) return exitCode(whole);
    // Nothing new has no new pictures.
    if (whole.done > 0 || !std::filesystem::exists(folder / "pictures")) {
        showProject(project, folder / "pictures", kRunPictures, progress);
    }
    if (interruption() != 0) return exitCode(whole);
    progress.report("Database: " + (folder / "database.db").string() +
                        "\nPictures: " + (folder / "pictures").string() +
                        "\nSummary:  " + (folder / "summary.md").string(),
                    {{"event", "done"}, {"folder", folder.string()}});
    return exitCode(whole);
}

int runDemo(Arguments& arguments, Progress& progress) {
    chooseGpu(arguments.gpu, progress);
    demo(arguments.folder, progress);
    return interruption() != 0 ? kSignal + interruption() : kAllDone;
}

int runExport(Arguments& arguments, Progress& progress) {
    const Project project(arguments.folder, Project::Access::read);
    const std::filesystem::path folder =
        arguments.exportFolder.empty()
            ? std::filesystem::path(arguments.folder) / arguments.exportFormat
            : std::filesystem::path(arguments.exportFolder);
    exportProject(project, parseExportFormat(arguments.exportFormat), folder);
    progress.report("Written to " + folder.string(),
                    {{"event", "done"}, {"folder", folder.string()}});
    return kAllDone;
}

int runShow(const Arguments& arguments, const std::string& kind, Progress& progress) {
    const Project project(arguments.folder, Project::Access::read);
    std::string file = kind;
    for (const std::string& name : arguments.names) file += ' ' + name;
    const std::filesystem::path picture =
        arguments.picture.empty()
            ? std::filesystem::path(arguments.folder) / "pictures" / (pictureName(file) + ".png")
            : std::filesystem::path(arguments.picture);
    std::string text = "Written to " + picture.string();
    nlohmann::json done{{"event", "done"}, {"picture", picture.string()}};
    if (kind == "matches") {
        showMatches(project, arguments.names[0], arguments.names[1], picture);
    } else if (kind == "keypoints") {
        showKeypoints(project, arguments.names[0], picture);
    } else if (kind == "panorama") {
        showPanorama(project, arguments.names[0], picture);
    } else {
        const ShownCoverage shown = showCoverage(project, arguments.names[0], picture);
        text = coverageCaption(shown.keypoints, shown.measured) + "\n" + text;
        done["keypoints"] = shown.keypoints;
        done["occupied_cells"] = shown.measured.occupiedCells;
        done["nearest_neighbour_ratio"] = shown.measured.nearestNeighbourRatio;
    }
    progress.report(text, done);
    return kAllDone;
}

int runInfo(const Arguments& arguments) {
    const nlohmann::json all = info();
    std::cout << (arguments.json ? all.dump() + '\n' : infoText(all));
    return kAllDone;
}

// "nan" passes every comparison of a range.
CLI::Validator number() {
    return {[](std::string& text) {
                double value = 0.0;
                const bool is = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
                return is ? std::string() : "'" + text + "' is not a number";
            },
            ""};
}

CLI::Validator noneOrAtLeastOne() {
    return {[](std::string& text) {
                double value = 0.0;
                const bool is = CLI::detail::lexical_cast(text, value) && std::isfinite(value) &&
                                (value == 0.0 || value >= 1.0);
                return is ? std::string() : "'" + text + "' is neither 0 nor a number from 1";
            },
            "0 or >= 1"};
}

// The command line: which options each command has, and what runs it.
class CommandLine {
public:
    CommandLine()
        : app_("Local image features for photogrammetry: photographs in, matches out.", "marlo") {
        app_.set_version_flag("--version", std::string("marlo, libfeatures ") + libraryVersion());
        app_.require_subcommand(1);
        app_.footer(
            "Begin with `marlo demo`, or `marlo run PHOTOS -o PROJECT`. `marlo COMMAND --help` "
            "says\n"
            "more. Exit codes: 0 all done, 1 nothing usable, 2 usage, 3 some photographs failed,\n"
            "4 out of memory or disk space, or no GPU for --gpu on, 130 and 143 interrupted (a\n"
            "rerun goes on).");
        addDemo();
        addRun();
        addExtract();
        addMatch();
        addVerify();
        addShow();
        addExport();
        addInfo();
    }

    int run(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            // Help and version are no errors.
            return app_.exit(error) == 0 ? kAllDone : kUsage;
        }
        Progress progress(arguments_.json ? std::cout : std::cerr,
                          Progress::formFor(arguments_.json, STDERR_FILENO));
        const auto fail = [&](const std::string& text, int code) {
            progress.report("marlo: " + text, {{"event", "error"}, {"text", text}, {"code", code}});
            return code;
        };
        try {
            return command_(progress);
        } catch (const OutOfSpace& error) {
            return fail(error.what(), kNotOnThisMachine);
        } catch (const std::bad_alloc&) {
            return fail(
                "There is not enough memory. Give fewer --threads, or a smaller --max-size.",
                kNotOnThisMachine);
        } catch (const NoUsableGpu& error) {
            return fail(error.what(), kNotOnThisMachine);
        } catch (const Interrupted& error) {
            return fail(error.what(), kSignal + interruption());
        } catch (const SomeLeftOut& error) {
            return fail(error.what(), kSomeFailed);
        } catch (const UsageError& error) {
            return fail(error.what(), kUsage);
        } catch (const std::exception& error) {
            return fail(error.what(), kNothingUsable);
        }
    }

private:
    using Command = int (*)(Arguments&, Progress&);

    CLI::App* add(const std::string& name, const std::string& what, const std::string& example,
                  Command command) {
        CLI::App* const added = app_.add_subcommand(name, what);
        added->footer("Example: " + example);
        added->add_flag("--json", arguments_.json, "one JSON object a line on standard output");
        added->callback([this, command] {
            command_ = [this, command](Progress& progress) {
                return command(arguments_, progress);
            };
        });
        return added;
    }

    void addProject(CLI::App* command) {
        command->add_option("PROJECT", arguments_.folder, "the project's folder")->required();
    }

    void addPhotographs(CLI::App* command) {
        command
            ->add_option("PHOTOS", arguments_.photographs,
                         "photographs, or folders of them with their subfolders")
            ->required();
        command->add_option("-o,--output", arguments_.folder, "the project's folder")->required();
    }

    void addThreads(CLI::App* command, int& threads) {
        command->add_option("--threads", threads, "how many to use (all)")
            ->check(CLI::Range(1, 4096));
    }

    void addForce(CLI::App* command, bool& force) {
        command->add_flag("--force", force, "do again what is done already");
    }

    void addGpu(CLI::App* command) {
        command
            ->add_option(
                "--gpu", arguments_.gpu,
                "auto: use a GPU if one is usable; off: never; on: fail without one. Results "
                "are the same to rounding")
            ->check(CLI::IsMember(kGpuChoices))
            ->capture_default_str();
    }

    void addExtractOptions(CLI::App* command) {
        ExtractOptions& options = arguments_.extract;
        command
            ->add_option("--features", options.features,
                         "sift: 128 floats a keypoint; ldah: 16 bytes, matched seven times faster")
            ->check(CLI::IsMember(kFeatures))
            ->capture_default_str();
        command
            ->add_option("--keypoints", options.keypoints,
                         "of each photograph, at most; the selector Default decides by itself")
            ->check(CLI::Range(1, static_cast<int>(kMostKeypoints)))
            ->capture_default_str();
        command
            ->add_option(
                "--selector", options.selector,
                "which keypoints to keep: TOP, the strongest; ANMS or SDC, strong ones that "
                "cover the photograph; Default, the strongest of each cell of a grid")
            ->check(CLI::IsMember(kSelectors))
            ->capture_default_str();
        command->add_option("--mask-dir", arguments_.masks,
                            "folder of masks, <name of the photograph>.png: no keypoints where a "
                            "mask is 0");
        command
            ->add_option("--max-size", options.longestSide,
                         "make larger photographs smaller for detection, to this longest side; "
                         "positions stay those of the original")
            ->check(CLI::Range(16, 1 << 20));
        command
            ->add_option("--enlarge-below", options.enlargeBelow,
                         "make photographs with a longest side below this twice as large for "
                         "detection: several times as many keypoints where there are few pixels")
            ->check(CLI::Range(16, 1 << 20));
        command
            ->add_option("--edge-ratio", options.edgeRatio,
                         "leave out keypoints whose larger curvature is more than this times the "
                         "smaller, as along edges; 0 keeps them")
            ->check(noneOrAtLeastOne())
            ->capture_default_str();
        command->add_flag("--apply-orientation", options.applyOrientation,
                          "turn photographs as EXIF says; else pixels are as the sensor gave them");
        CLI::Option* const panorama = command->add_flag(
            "--panorama", options.panorama,
            "photographs are full panoramas, equirectangular and twice as wide as high: keypoints "
            "are found across the seam and at the poles, too");
        command
            ->add_flag("--allow-non-spherical", options.allowNonSpherical,
                       "with --panorama: take photographs of another shape as ordinary ones "
                       "instead of refusing them")
            ->needs(panorama);
        command->add_flag("--prune", options.prune,
                          "remove photographs from the project whose files are gone");
        command->add_option("--memory", arguments_.memory,
                            "for photographs in work, such as 8G (half of what there is)");
    }

    void addMatchOptions(CLI::App* command) {
        command
            ->add_option("--pairs", arguments_.match.pairs,
                         "all; sequence:K, each photograph with the K that follow by name; "
                         "similar:K, each with the K that look most like it; or list:FILE, a line "
                         "with two names for each pair")
            ->capture_default_str();
        command->add_option("--matcher", arguments_.match.matcher, "how rows are paired")
            ->check(CLI::IsMember(kMatchers))
            ->capture_default_str();
        command
            ->add_option("--distance", arguments_.match.distance,
                         "of SIFT rows: hellinger, of the roots of their elements, or euclidean")
            ->check(CLI::IsMember(kDistances))
            ->capture_default_str();
        command
            ->add_option_function<float>(
                "--ratio", [this](const float& ratio) { arguments_.match.ratio = ratio; },
                "of nearest to second nearest distance, at most (sift: 0.85, ldah: 0.9)")
            ->check(CLI::Range(0.01, 1.0) & number());
    }

    void addVerifyOptions(CLI::App* command) {
        command
            ->add_option("--max-error", arguments_.verify.error,
                         "pixels that a match may lie off the geometry")
            ->check(CLI::Range(0.01, 1000.0) & number())
            ->capture_default_str();
        command
            ->add_option("--min-inliers", arguments_.verify.leastInliers,
                         "matches that have to agree, or the pair has none")
            ->check(CLI::Range(8, 1000000))
            ->capture_default_str();
        command
            ->add_option("--min-inlier-ratio", arguments_.verify.leastShare,
                         "of inliers to matches, or the pair has none")
            ->check(CLI::Range(0.0, 1.0) & number())
            ->capture_default_str();
    }

    void addDemo() {
        CLI::App* const demo = add("demo", "Show what the program does, without any photographs.",
                                   "marlo demo -o demo", runDemo);
        arguments_.folder = "marlo-demo";
        demo->add_option("-o,--output", arguments_.folder, "where everything is written")
            ->capture_default_str();
        addGpu(demo);
    }

    void addRun() {
        CLI::App* const run =
            add("run", "Extract, match and verify photographs, and draw pictures of it.",
                "marlo run photographs -o project", runAll);
        addPhotographs(run);
        addExtractOptions(run);
        addMatchOptions(run);
        addVerifyOptions(run);
        addGpu(run);
        run->add_option_function<int>(
               "--threads",
               [this](const int& threads) {
                   arguments_.extract.threads = threads;
                   arguments_.match.threads = threads;
                   arguments_.verify.threads = threads;
               },
               "how many to use (all)")
            ->check(CLI::Range(1, 4096));
        run->add_flag_callback(
            "--force",
            [this] {
                arguments_.extract.force = true;
                arguments_.match.force = true;
                arguments_.verify.force = true;
            },
            "do again what is done already");
    }

    void addExtract() {
        CLI::App* const extract = add(
            "extract", "Find and describe the keypoints of photographs.",
            "marlo extract photographs -o project --features ldah --keypoints 10000", runExtract);
        addPhotographs(extract);
        addExtractOptions(extract);
        addGpu(extract);
        addThreads(extract, arguments_.extract.threads);
        addForce(extract, arguments_.extract.force);
    }

    void addMatch() {
        CLI::App* const match = add("match", "Match the photographs of a project.",
                                    "marlo match project --pairs sequence:5", runMatch);
        addProject(match);
        addMatchOptions(match);
        addGpu(match);
        addThreads(match, arguments_.match.threads);
        addForce(match, arguments_.match.force);
    }

    void addVerify() {
        CLI::App* const verify =
            add("verify", "Find the geometry of matched photographs and the matches that agree.",
                "marlo verify project", runVerify);
        addProject(verify);
        addVerifyOptions(verify);
        addThreads(verify, arguments_.verify.threads);
        addForce(verify, arguments_.verify.force);
    }

    void addShow() {
        CLI::App* const show =
            app_.add_subcommand("show", "Draw keypoints, matches, coverage or a panorama.");
        show->require_subcommand(1);
        show->footer(
            "Example: marlo show matches project DSC_0001.jpg DSC_0002.jpg -o matches.png");
        const std::pair<std::string, std::string> kinds[] = {
            {"keypoints", "of one photograph"},
            {"matches", "of two photographs, side by side"},
            {"coverage", "of one photograph"},
            {"panorama", "what detection sees of a full panorama, and the keypoints"}};
        for (const auto& [kind, what] : kinds) {
            CLI::App* const command = show->add_subcommand(kind, what);
            addProject(command);
            command
                ->add_option("NAME", arguments_.names,
                             "of the photographs, as the project has them (summary.md)")
                ->required()
                ->expected(kind == "matches" ? 2 : 1);
            command->add_option("-o,--output", arguments_.picture,
                                "the picture, .png or .jpg (in the project's folder pictures)");
            command->add_flag("--json", arguments_.json, "one JSON object on standard output");
            command->callback([this, name = kind] {
                command_ = [this, name](Progress& progress) {
                    return runShow(arguments_, name, progress);
                };
            });
        }
    }

    void addExport() {
        CLI::App* const command = add("export", "Write features and matches for other programs.",
                                      "marlo export project --to npz -o arrays", runExport);
        addProject(command);
        command->add_option("--to", arguments_.exportFormat, "the form")
            ->required()
            ->check(CLI::IsMember(exportFormatWords()));
        command->add_option("-o,--output", arguments_.exportFolder,
                            "folder to write to (one in the project's, named as the form)");
    }

    void addInfo() {
        add("info", "Say what this program and this machine can do.", "marlo info",
            [](Arguments& arguments, Progress&) { return runInfo(arguments); });
    }

    CLI::App app_;
    Arguments arguments_;
    std::function<int(Progress&)> command_;
};

}  // namespace
}  // namespace marlo::app

int main(int argc, char** argv) {
    marlo::registerMainFeatureDetectors();
    marlo::registerMainDescriptorExtractors();
    marlo::registerMainDescriptorMatchers();
    marlo::registerMainKeypointSelectors();
    marlo::registerMainTransforms();
    // What it says of a damaged file is in the file's reason.
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    marlo::app::watchForInterruption();
    marlo::app::CommandLine commandLine;
    return commandLine.run(argc, argv);
}
