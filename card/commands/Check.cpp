// recordcard check: does everything on the card agree with everything else?
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "commands/Commands.h"
#include "commands/Json.h"
#include "commands/Progress.h"
#include "repair/Repairer.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct CheckArguments {
    std::string path;
    bool json = false;
};

const char* LevelText(Finding::Level level) {
    return level == Finding::Level::Error ? "error" : "remark";
}

void PrintReport(const std::string& path, const Findings& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"level", LevelText(finding.level)},
                        {"kind", finding.kind},
                        {"place", finding.place},
                        {"offset", finding.offset},
                        {"what", finding.what},
                        {"consequence", finding.consequence},
                        {"mendable", finding.mend != Finding::Mend::Nothing}});
    }
    const size_t errors = Errors(findings);
    PrintJson({{"card", path},
               {"clean", errors == 0},
               {"errors", errors},
               {"remarks", findings.size() - errors},
               {"findings", std::move(list)}});
}

void PrintText(const std::string& path, const Findings& findings) {
    bool mendable = false;
    for (const Finding& finding : findings) {
        std::printf("%s: %s at %llu: %s\n        %s\n", LevelText(finding.level), finding.place.c_str(),
                    static_cast<unsigned long long>(finding.offset), finding.what.c_str(), finding.consequence.c_str());
        mendable = mendable || (finding.level == Finding::Level::Error && finding.mend != Finding::Mend::Nothing);
    }
    const size_t errors = Errors(findings);
    if (errors == 0) {
        std::printf("%s is in order", path.c_str());
        if (!findings.empty()) std::printf(" (%zu remarks)", findings.size());
        std::printf(".\n");
        return;
    }
    std::printf("%s: %s, %s.%s\n", path.c_str(), Counted(errors, "error").c_str(),
                Counted(findings.size() - errors, "remark").c_str(),
                mendable ? " \"recordcard repair\" can mend some or all of it." : "");
}

int Check(const CheckArguments& arguments) {
    const Volume volume = Volume::Open(arguments.path);
    const Findings findings = [&volume] {
        Progress progress("Checking");
        return CheckAll(volume, [&progress](uint64_t done, uint64_t total) { progress.Show(done, total); });
    }();
    arguments.json ? PrintReport(arguments.path, findings) : PrintText(arguments.path, findings);
    return Errors(findings) == 0 ? kDone : kFindings;
}

}  // namespace

Run PrepareCheck(CLI::App& command) {
    const auto arguments = std::make_shared<CheckArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_flag("--json", arguments->json, "For scripts: one JSON object");
    command.footer("Exit status: 0 in order (there may be remarks), 1 with errors, 3 unreadable.");
    return [arguments] { return Check(*arguments); };
}

}  // namespace card
