// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/info.h"

#include <nlohmann/json.hpp>
#include <opencv2/core/version.hpp>
#include <sstream>
#include <vector>

#include "libfeatures/base/kernels_in_use.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/version.h"
#include "libmarlocuda/marlocuda.h"
#include "marlo/choices.h"
#include "marlo/export.h"
#include "marlo/extract.h"
#include "support/system.h"

namespace marlo::app {

using nlohmann::json;

json info() {
    std::string gpu;
    cuda::getActiveDeviceString(gpu);
    std::vector<std::string> gpus;
    cuda::getDeviceStrings(gpus);
    json kernels = json::object();
    for (const KernelInUse& entry : kernelsInUse()) kernels[entry.step] = entry.kernel;
    return {{"library", libraryVersion()},
            {"opencv", CV_VERSION},
            {"ldah_tables", ldahTablesIdentifier()},
            {"processors", system::noLogicalCPUs()},
            {"memory", availableMemory()},
            {"gpu", gpu},
            {"gpus", gpus},
            {"kernels", kernels},
            {"features", kFeatures},
            {"selectors", kSelectors},
            {"matchers", kMatchers},
            {"export_formats", exportFormatWords()},
            {"limits",
             {{"image_rows_and_columns", 1 << 20},
              {"image_pixels", 1 << 30},
              {"memory_per_pixel_bytes", 64},
              {"descriptor_bytes_per_photograph", 1'000'000'000}}}};
}

std::string infoText(const json& info) {
    const auto list = [](const json& names) {
        std::string text;
        for (const json& name : names) text += (text.empty() ? "" : ", ") + name.get<std::string>();
        return text;
    };
    std::ostringstream text;
    text << "libfeatures " << info["library"].get<std::string>() << ", OpenCV "
         << info["opencv"].get<std::string>() << "\n"
         << "LDAH tables  " << info["ldah_tables"].get<std::string>()
         << " (codes of other tables cannot be compared)\n"
         << "processors   " << info["processors"].get<int>() << "\n"
         << "memory       " << (info["memory"].get<std::uint64_t>() >> 20)
         << " MiB, half of it for photographs unless --memory says otherwise\n"
         << "GPU          " << info["gpu"].get<std::string>() << "\n";
    for (const json& device : info["gpus"]) text << "    " << device.get<std::string>() << "\n";
    text << "kernels\n";
    for (const auto& [step, kernel] : info["kernels"].items()) {
        text << "    " << step << ": " << kernel.get<std::string>() << "\n";
    }
    text << "features     " << list(info["features"]) << "\n"
         << "selectors    " << list(info["selectors"]) << "\n"
         << "matchers     " << list(info["matchers"]) << "\n"
         << "export to    " << list(info["export_formats"]) << "\n"
         << "limits       images of up to 2^20 rows and columns and 2^30 pixels, 64 bytes of "
            "memory a\n"
         << "             pixel, 1,000,000,000 bytes of descriptors a photograph (1.9 million SIFT "
            "rows)\n";
    return text.str();
}

}  // namespace marlo::app
