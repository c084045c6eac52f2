// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/export.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <stdexcept>
#include <string>

#include "marlo/export_formats.h"

namespace marlo::app {
namespace {

struct Exporter {
    std::string_view word;
    ExportFormat format;
    void (*run)(const Project&, const std::filesystem::path&);
};

constexpr std::array kExporters = {
    Exporter{"colmap", ExportFormat::colmap, exportColmap},
    Exporter{"openmvg", ExportFormat::openmvg, exportOpenMvg},
    Exporter{"opencv-yaml", ExportFormat::opencvYaml, exportOpenCv},
    Exporter{"npz", ExportFormat::npz, exportNpz},
};

bool leadsOut(const std::filesystem::path& file) {
    return file.empty() || file.is_absolute() ||
           std::find(file.begin(), file.end(), "..") != file.end();
}

}  // namespace

std::vector<std::string> exportFormatWords() {
    std::vector<std::string> words;
    for (const Exporter& exporter : kExporters) words.emplace_back(exporter.word);
    return words;
}

ExportFormat parseExportFormat(std::string_view word) {
    std::string choices;
    for (const Exporter& exporter : kExporters) {
        if (exporter.word == word) return exporter.format;
        choices.append(choices.empty() ? "" : ", ").append(exporter.word);
    }
    throw UsageError("There is no export format \"" + std::string(word) + "\". Choose one of " +
                     choices + ".");
}

void exportProject(const Project& project, ExportFormat format,
                   const std::filesystem::path& folder) {
    for (const Exporter& exporter : kExporters) {
        if (exporter.format == format) exporter.run(project, folder);
    }
}

void refuseLdah(const Project& project, const char* text) {
    const std::vector<Photograph> photographs = photographsWithFeatures(project);
    const bool anyLdah =
        std::any_of(photographs.begin(), photographs.end(),
                    [](const Photograph& photograph) { return featuresOf(photograph) == "ldah"; });
    if (anyLdah || project.setting("features") == "ldah") throw UsageError(text);
}

std::vector<std::filesystem::path> targets(const std::filesystem::path& folder,
                                           const std::vector<Photograph>& photographs,
                                           std::string (*fileName)(const std::string& name)) {
    std::vector<std::filesystem::path> all;
    std::map<std::string, std::string> taken;  // file name: photograph
    for (const Photograph& photograph : photographs) {
        const std::string file = fileName(photograph.name);
        if (leadsOut(file)) {
            throw UsageError("The photograph \"" + photograph.name + "\" has no place in " +
                             folder.string() + ".");
        }
        const auto [place, isNew] = taken.emplace(file, photograph.name);
        if (!isNew) {
            throw UsageError("The photographs \"" + place->second + "\" and \"" + photograph.name +
                             "\" would both be written to " + (folder / file).string() +
                             ". Rename one of them, or choose another format.");
        }
        all.push_back(folder / file);
    }
    return all;
}

void appendNumber(std::string& text, float value) {
    std::array<char, 32> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    text.append(digits.data(), result.ptr);
}

void appendMatches(std::string& text, const MatchList& matches) {
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        appendNumber(text, matches(i, 0));
        text += ' ';
        appendNumber(text, matches(i, 1));
        text += '\n';
    }
}

}  // namespace marlo::app
