#include "commands/Manual.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "text/Error.h"

namespace card {

namespace {

// Text as roff takes it: nothing in it is a request or an escape.
std::string Roff(const std::string& text) {
    std::string safe;
    bool line_begin = true;
    for (const char c : text) {
        if (line_begin && (c == '.' || c == '\'')) safe += "\\&";
        if (c == '\\') safe += "\\e";
        if (c == '-') safe += "\\-";
        if (c != '\\' && c != '-') safe += c;
        line_begin = c == '\n';
    }
    return safe;
}

bool IsHelp(const CLI::Option& option) {
    return option.get_name() == "--help";
}

void PrintOptions(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        if (IsHelp(*option)) continue;
        const bool value = !option->get_positional() && option->get_items_expected_max() > 0;
        const std::string name = option->get_positional() ? option->get_name(true) : option->get_name(false, true);
        std::printf(".TP\n\\fB%s\\fR%s\n%s\n", Roff(name).c_str(),
                    value ? (" \\fI" + Roff(option->get_type_name()) + "\\fR").c_str() : "",
                    Roff(option->get_description()).c_str());
    }
}

const auto kShown = [](const CLI::App* command) { return !command->get_group().empty(); };

}  // namespace

int PrintManual(const CLI::App& app) {
    std::printf(".TH RECORDCARD 1\n.SH NAME\nrecordcard \\- makes, looks into, saves and repairs recording cards\n");
    std::printf(".SH SYNOPSIS\n\\fBrecordcard\\fR \\fICOMMAND\\fR [options]\n.SH DESCRIPTION\n%s\n.SH COMMANDS\n",
                Roff(app.get_description()).c_str());
    for (const CLI::App* command : app.get_subcommands(kShown)) {
        std::printf(".SS %s\n%s\n", command->get_name().c_str(), Roff(command->get_description()).c_str());
        PrintOptions(*command);
        if (!command->get_footer().empty()) std::printf(".PP\n%s\n", Roff(command->get_footer()).c_str());
    }
    std::printf(".SH EXIT STATUS\n%s\n", Roff(app.get_footer()).c_str());
    return kDone;
}

int PrintCompletion(const CLI::App& app) {
    std::string commands;
    for (const CLI::App* command : app.get_subcommands(kShown)) commands += command->get_name() + " ";
    std::printf("_recordcard() {\n    local word=${COMP_WORDS[COMP_CWORD]} words=\n    case ${COMP_WORDS[1]} in\n");
    for (const CLI::App* command : app.get_subcommands(kShown)) {
        std::string options;
        for (const CLI::Option* option : command->get_options()) {
            if (!option->get_positional()) options += "--" + option->get_lnames().at(0) + " ";
        }
        std::printf("        %s) words='%s' ;;\n", command->get_name().c_str(), options.c_str());
    }
    std::printf(
        "    esac\n    [ $COMP_CWORD -gt 1 ] || words='%s--help --version'\n"
        "    if [ $COMP_CWORD -eq 1 ] || [ \"${word#-}\" != \"$word\" ]; then\n"
        "        COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n    else\n"
        "        COMPREPLY=($(compgen -f -- \"$word\"))\n    fi\n}\n"
        "complete -o filenames -F _recordcard recordcard\n",
        commands.c_str());
    return kDone;
}

}  // namespace card
