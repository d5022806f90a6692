#include "apps/kqclip/Manual.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace kqclip {

namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option*) { return true; });
}

bool IsPositional(const CLI::Option* option) { return option->get_lnames().empty() && option->get_snames().empty(); }

std::string LongName(const CLI::Option* option) {
    return option->get_lnames().empty() ? "" : "--" + option->get_lnames()[0];
}

// Text of a manual page: backslashes and a dash for the typesetter, no line that begins with a control character.
std::string Roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\e";
        else if (c == '-') out += "\\-";
        else out += c;
    }
    return !out.empty() && (out[0] == '.' || out[0] == '\'') ? "\\&" + out : out;
}

// "--name VALUE", or "--name" for a flag.
std::string Usage(const CLI::Option* option) {
    std::string text = IsPositional(option) ? option->get_name() : LongName(option);
    if (!IsPositional(option) && option->get_expected_max() > 0 && option->get_items_expected_max() > 0 &&
        option->get_type_size() > 0)
        text += " " + (option->get_type_name().empty() ? std::string("VALUE") : option->get_type_name());
    return text;
}

void PrintManualOption(const CLI::Option* option) {
    std::printf(".TP\n.B %s\n%s\n", Roff(Usage(option)).c_str(), Roff(option->get_description()).c_str());
}

void PrintManual(const CLI::App& app) {
    std::printf(".TH KQCLIP 1\n.SH NAME\nkqclip \\- look at clips, convert and compare them\n");
    std::printf(".SH SYNOPSIS\n.B kqclip\n.I COMMAND\n[options]\n.SH DESCRIPTION\n%s\n", Roff(app.get_description()).c_str());
    std::printf("A clip is a file, a folder that holds one clip, or a pattern for numbered files: shot[####].png, "
                "shot.####.png, shot.%%04d.png or shot.@@@@.png.\n");
    std::printf(".SH COMMANDS\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf(".SS %s\n%s.\n", command->get_name().c_str(), Roff(command->get_description()).c_str());
        for (const CLI::Option* option : OptionsOf(*command)) PrintManualOption(option);
    }
    std::printf(".SH EXIT STATUS\n%s\n", Roff(app.get_footer()).c_str());
    std::printf(".SH ENVIRONMENT\n.TP\n.B KQCLIP_MODULES\nA folder that is looked into for format modules.\n"
                ".TP\n.B KQLIB_FONT_DIR\nA folder whose TrueType files are listed beside the installed fonts.\n");
}

void PrintBash(const CLI::App& app) {
    std::printf("# Completion of kqclip for bash.\n_kqclip() {\n    local word=${COMP_WORDS[COMP_CWORD]}\n    COMPREPLY=()\n"
                "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n        COMPREPLY=($(compgen -W \"");
    for (const CLI::App* command : CommandsOf(app)) std::printf("%s ", command->get_name().c_str());
    std::printf("--help --version\" -- \"$word\"))\n        return\n    fi\n    case $word in\n    -*) ;;\n"
                "    *) COMPREPLY=($(compgen -f -- \"$word\")); return ;;\n    esac\n    case ${COMP_WORDS[1]} in\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf("    %s) COMPREPLY=($(compgen -W \"", command->get_name().c_str());
        for (const CLI::Option* option : OptionsOf(*command))
            if (!LongName(option).empty()) std::printf("%s ", LongName(option).c_str());
        std::printf("\" -- \"$word\")) ;;\n");
    }
    std::printf("    esac\n}\ncomplete -o filenames -F _kqclip kqclip\n");
}

// Text inside single quotes of zsh and fish.
std::string Quoted(const std::string& text, const char* quote) {
    std::string out;
    for (char c : text) c == '\'' ? out += quote : out += c;
    return out;
}

void PrintZsh(const CLI::App& app) {
    std::printf("#compdef kqclip\n# Completion of kqclip for zsh.\nlocal -a commands\ncommands=(\n");
    for (const CLI::App* command : CommandsOf(app))
        std::printf("    '%s:%s'\n", command->get_name().c_str(), Quoted(command->get_description(), "'\\''").c_str());
    std::printf(")\nif (( CURRENT == 2 )); then\n    _describe command commands\n    return\nfi\ncase $words[2] in\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf("%s) _arguments '*:file:_files'", command->get_name().c_str());
        for (const CLI::Option* option : OptionsOf(*command)) {
            if (LongName(option).empty()) continue;
            std::string text;
            for (char c : Quoted(option->get_description(), "'\\''")) text += c == '[' || c == ']' || c == ':' ? ' ' : c;
            std::printf(" '%s[%s]'", LongName(option).c_str(), text.c_str());
        }
        std::printf(" ;;\n");
    }
    std::printf("esac\n");
}

void PrintFish(const CLI::App& app) {
    std::printf("# Completion of kqclip for fish.\n");
    for (const CLI::App* command : CommandsOf(app)) {
        const char* name = command->get_name().c_str();
        std::printf("complete -c kqclip -n __fish_use_subcommand -f -a %s -d '%s'\n", name,
                    Quoted(command->get_description(), "\\'").c_str());
        for (const CLI::Option* option : OptionsOf(*command))
            if (!LongName(option).empty())
                std::printf("complete -c kqclip -n '__fish_seen_subcommand_from %s' -l %s -d '%s'\n", name,
                            LongName(option).c_str() + 2, Quoted(option->get_description(), "\\'").c_str());
    }
}

}   // namespace

bool Generate(const CLI::App& app, const std::string& what) {
    if (what == "man") PrintManual(app);
    else if (what == "bash") PrintBash(app);
    else if (what == "zsh") PrintZsh(app);
    else if (what == "fish") PrintFish(app);
    else return false;
    return true;
}

}   // namespace kqclip
