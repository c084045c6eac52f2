// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/summary.h"

#include <algorithm>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "libfeatures/version.h"
#include "marlo/output_file.h"

namespace marlo::app {
namespace {

using nlohmann::json;

// Text in a cell of a table.
std::string cell(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '|' || c == '\\') escaped += '\\';
        escaped += c == '\n' ? ' ' : c;
    }
    return escaped;
}

}  // namespace

json summary(const Project& project) {
    json all = {{"library", libraryVersion()},
                {"photographs_folder", project.setting("photographs").value_or("")},
                {"features", project.setting("features").value_or("")},
                {"photographs", json::array()},
                {"pairs", json::array()}};
    if (all["features"] == "ldah") {
        all["ldah_tables"] = project.setting("ldah_tables").value_or("");
    }
    std::map<std::int64_t, std::string> names;
    for (const Photograph& photograph : project.photographs()) {
        names[photograph.id] = photograph.name;
        json entry = {{"name", photograph.name}, {"seconds", photograph.seconds}};
        if (photograph.status == PhotographStatus::done) {
            entry["keypoints"] = photograph.keypoints;
            entry["width"] = photograph.width;
            entry["height"] = photograph.height;
        }
        if (photograph.status == PhotographStatus::failed) entry["failed"] = photograph.reason;
        if (photograph.status == PhotographStatus::waiting) entry["waiting"] = true;
        all["photographs"].push_back(entry);
    }
    std::vector<Pair> pairs = project.pairs();
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        return a.inliers.value_or(0) > b.inliers.value_or(0);
    });
    for (const Pair& pair : pairs) {
        json entry = {{"first", names[pair.first]},
                      {"second", names[pair.second]},
                      {"matches", pair.matches}};
        if (pair.inliers) entry["verified"] = *pair.inliers;
        all["pairs"].push_back(entry);
    }
    return all;
}

std::string summaryText(const json& summary) {
    std::ostringstream text;
    text << "# " << summary["photographs"].size() << " photographs, " << summary["pairs"].size()
         << " pairs\n\n"
         << "Photographs in " << summary["photographs_folder"].get<std::string>() << ", "
         << summary["features"].get<std::string>() << " features, libfeatures "
         << summary["library"].get<std::string>() << ".\n\n"
         << "| photograph | keypoints | seconds |\n|---|---|---|\n"
         << std::fixed << std::setprecision(2);
    for (const json& photograph : summary["photographs"]) {
        text << "| " << cell(photograph["name"].get<std::string>()) << " | ";
        if (photograph.contains("failed")) {
            text << "failed: " << cell(photograph["failed"].get<std::string>());
        } else if (photograph.contains("waiting")) {
            text << "not extracted yet";
        } else {
            text << photograph["keypoints"].get<int>();
        }
        text << " | " << photograph["seconds"].get<double>() << " |\n";
    }
    text << "\n| pair | matches | verified |\n|---|---|---|\n";
    for (const json& pair : summary["pairs"]) {
        text << "| " << cell(pair["first"].get<std::string>()) << ", "
             << cell(pair["second"].get<std::string>()) << " | " << pair["matches"].get<int>()
             << " | ";
        if (pair.contains("verified")) text << pair["verified"].get<int>();
        text << " |\n";
    }
    return text.str();
}

void writeSummary(const Project& project) {
    const json all = summary(project);
    writeFile(project.folder() / "summary.json",
              all.dump(2, ' ', false, json::error_handler_t::replace) + '\n');
    writeFile(project.folder() / "summary.md", summaryText(all));
}

}  // namespace marlo::app
