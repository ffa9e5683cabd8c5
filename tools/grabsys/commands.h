// The grabsys commands; each returns the process exit code.
#pragma once

#include <string>
#include <vector>

#include "cli_common.h"

namespace grabsys {

int RunArmList(const std::vector<std::string>& dirs, const Output& output);
int RunArmExtract(const std::vector<std::string>& dirs, const std::string& outDir, int mode, unsigned jobs,
                  const Output& output);

struct PackageCreateOptions {
    std::string from;     // folder of 8-bit BMP files
    std::string output;   // package file to write
    bool general = false;
    std::string project;  // optional project file (general form)
    unsigned camera = 0;
    unsigned group = 0;
    unsigned jump = 0;
};
int RunPackageCreate(const PackageCreateOptions& options, const Output& output);
int RunPackageExport(const std::vector<std::string>& files, const std::string& root, const Output& output);

int RunInfo(const std::vector<std::string>& files, bool json, const Output& output);

}  // namespace grabsys
