#include "apps/kqclip/Manual.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "apps/kqclip/Outcome.h"

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

// A flag is an option that expects no items.
bool TakesValue(const CLI::Option* option) { return !IsPositional(option) && option->get_items_expected_max() > 0; }

// The words that an option takes: "auto|json|none" is such a list; none for a free value.
std::vector<std::string> WordsOf(const CLI::Option* option) {
    std::vector<std::string> words;
    std::string list = TakesValue(option) ? option->get_type_name() : "";
    if (list.find('|') == std::string::npos) return words;
    for (size_t from = 0; from <= list.size();) {
        size_t end = std::min(list.find('|', from), list.size());
        words.push_back(list.substr(from, end - from));
        from = end + 1;
    }
    return words;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// Options that every subcommand has: told once.
bool IsCommon(const CLI::Option* option) {
    static const char* const kCommon[] = {"--help", "--json", "--progress", "--modules"};
    return std::find(std::begin(kCommon), std::end(kCommon), LongName(option)) != std::end(kCommon);
}

// Text of a manual page: backslashes and a dash for the typesetter, no line that begins with a control character.
std::string Roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return !out.empty() && (out[0] == '.' || out[0] == '\'') ? "\\&" + out : out;
}

std::string Default(const CLI::Option* option) {
    return option->get_default_str().empty() ? "" : " (default: " + option->get_default_str() + ")";
}

void PrintManualOption(const CLI::Option* option) {
    std::string name = IsPositional(option) ? "\\fI" + Roff(option->get_name()) : "\\fB" + Roff(LongName(option));
    std::string value = TakesValue(option) ? " \\fI" + Roff(option->get_type_name()) : "";
    std::string text = Roff(option->get_description()) + Roff(Default(option)) + ".";
    std::printf(".TP\n%s%s\\fR\n%s\n", name.c_str(), value.c_str(), text.c_str());
}

void PrintSynopsis(const CLI::App& app) {
    std::printf(".SH SYNOPSIS\n.nf\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf("\\fBkqclip %s\\fR", command->get_name().c_str());
        for (const CLI::Option* option : OptionsOf(*command))
            if (IsPositional(option)) std::printf(" \\fI%s\\fR", option->get_name().c_str());
        std::printf(" [\\fIoptions\\fR]\n");
    }
    std::printf(".fi\n");
}

constexpr const char* kDescription =
    "A clip is a file, a folder that holds one clip, or a pattern for numbered files: shot[####].png, shot.####.png, "
    "shot.%04d.png or shot.@@@@.png.\n"
    "A numbered file that is named alone stands for the whole sequence around it; \\fB\\-\\-single\\fR takes it "
    "alone.\n"
    ".PP\n"
    "No file is replaced without \\fB\\-\\-overwrite\\fR, and a folder, a link, a device or a pipe never is.\n"
    "An output is written beside its place and moved there once it is complete: what was there stays whole until "
    "then.\n"
    "Control\\-C stops, and leaves no unfinished output.\n";

constexpr const char* kEnds =
    ".SH ENVIRONMENT\n"
    ".TP\n.B KQCLIP_MODULES\nFolders of format modules, separated as in PATH, in place of those beside the program and "
    "of "
    "the installed ones.\n"
    ".TP\n.B KQLIB_FONT_DIR\nA folder whose TrueType files are listed beside the installed fonts.\n"
    ".SH EXAMPLES\n"
    ".TP\n.B kqclip info 'shot.####.png'\nWhat is in a sequence, and which numbers are missing.\n"
    ".TP\n.B kqclip convert 'shot.####.png' shot.flm \\-\\-rate 24\nA film of all frames.\n"
    ".TP\n.B kqclip convert shot.flm 'out/shot.####.tif' \\-\\-frames 10\\-20\nEleven frames, a file each.\n"
    ".TP\n.B kqclip compare shot.flm 'out/shot.####.tif' \\-\\-frames 10\\-20\nHow near they are.\n";

void PrintManual(const CLI::App& app) {
    std::printf(
        ".TH KQCLIP 1 \"\" \"kqclip %s\" \"User Commands\"\n.SH NAME\n"
        "kqclip \\- look at clips, convert and compare them\n",
        KQCLIP_VERSION);
    PrintSynopsis(app);
    std::printf(".SH DESCRIPTION\n%s\n%s", Roff(app.get_description()).c_str(), kDescription);
    std::printf(".SH COMMANDS\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf(".SS %s\n%s.\n", command->get_name().c_str(), Roff(command->get_description()).c_str());
        for (const CLI::Option* option : OptionsOf(*command))
            if (!IsCommon(option)) PrintManualOption(option);
    }
    std::printf(".SH OPTIONS OF EVERY COMMAND\n");
    for (const CLI::Option* option : OptionsOf(*CommandsOf(app).front()))
        if (IsCommon(option)) PrintManualOption(option);
    std::printf(".SH EXIT STATUS\n");
    for (const ExitMeaning& meaning : kExitMeanings)
        std::printf(".TP\n.B %d\n%s.\n", meaning.code, Roff(meaning.text).c_str());
    std::printf("%s", kEnds);
}

// The line splits "--missing=ho" into three words. The command is the first word that is no option. Words are offered
// after an option that has words, folders after one that takes a folder, options after a dash; an empty answer leaves
// file names to the shell, which knows how to quote them, except where no file is wanted.
constexpr const char* kBashStart =
    "# Completion of kqclip for bash.\n_kqclip() {\n"
    "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command= i\n    COMPREPLY=()\n"
    "    [ \"$before\" = = ] && before=${COMP_WORDS[COMP_CWORD-2]}\n    [ \"$word\" = = ] && word=\n"
    "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
    "        case ${COMP_WORDS[i]} in\n        -*) ;;\n        *) command=${COMP_WORDS[i]}; break ;;\n        esac\n"
    "    done\n";

void PrintBash(const CLI::App& app) {
    std::printf("%s    if [ -z \"$command\" ]; then\n        COMPREPLY=($(compgen -W \"", kBashStart);
    for (const CLI::App* command : CommandsOf(app)) std::printf("%s ", command->get_name().c_str());
    std::printf("--help --version\" -- \"$word\"))\n        return\n    fi\n    case $command:$before in\n");
    for (const CLI::App* command : CommandsOf(app))
        for (const CLI::Option* option : OptionsOf(*command)) {
            if (!TakesValue(option)) continue;
            std::string words = Joined(WordsOf(option));
            std::string answer = words.empty() ? "compopt +o default +o bashdefault 2>/dev/null"
                                               : "COMPREPLY=($(compgen -W \"" + words + "\" -- \"$word\"))";
            if (option->get_type_name() == "DIR") answer = "compopt +o default -o dirnames 2>/dev/null";
            std::printf("    %s:%s) %s; return ;;\n", command->get_name().c_str(), LongName(option).c_str(),
                        answer.c_str());
        }
    std::printf("    esac\n    [[ $word = -* ]] || return\n    case $command in\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf("    %s) COMPREPLY=($(compgen -W \"", command->get_name().c_str());
        for (const CLI::Option* option : OptionsOf(*command))
            if (!LongName(option).empty()) std::printf("%s ", LongName(option).c_str());
        std::printf("\" -- \"$word\")) ;;\n");
    }
    std::printf("    esac\n}\ncomplete -o bashdefault -o default -F _kqclip kqclip\n");
}

// What a list of completions has room for: the description up to its first colon or semicolon.
std::string Brief(const std::string& description) {
    return description.substr(0, std::min(description.find(": "), description.find(';')));
}

// Text inside single quotes of zsh and fish.
std::string Quoted(const std::string& text, const char* quote) {
    std::string out;
    for (char c : text) c == '\'' ? out += quote : out += c;
    return out;
}

// What zsh does behind an option: ":words:(...)", ":folder:_files -/", ":value: " or nothing for a flag.
std::string ZshValue(const CLI::Option* option) {
    if (!TakesValue(option)) return "";
    if (option->get_type_name() == "DIR") return ":folder:_files -/";
    std::vector<std::string> words = WordsOf(option);
    return words.empty() ? ":" + option->get_type_name() + ": " : ":word:(" + Joined(words) + ")";
}

void PrintZsh(const CLI::App& app) {
    std::printf("#compdef kqclip\n# Completion of kqclip for zsh.\nlocal -a commands\ncommands=(\n");
    for (const CLI::App* command : CommandsOf(app))
        std::printf("    '%s:%s'\n", command->get_name().c_str(), Quoted(command->get_description(), "'\\''").c_str());
    std::printf(
        ")\nif (( CURRENT == 2 )); then\n    _describe command commands\n    return\nfi\n"
        "local command=$words[2]\nshift words\n(( CURRENT-- ))\ncase $command in\n");
    for (const CLI::App* command : CommandsOf(app)) {
        std::printf("%s) _arguments '*:file:_files'", command->get_name().c_str());
        for (const CLI::Option* option : OptionsOf(*command)) {
            if (LongName(option).empty()) continue;
            std::string text;
            for (char c : Quoted(Brief(option->get_description()), "'\\''"))
                text += c == '[' || c == ']' || c == ':' ? ' ' : c;
            std::printf(" '%s[%s]%s'", LongName(option).c_str(), text.c_str(), ZshValue(option).c_str());
        }
        std::printf(" ;;\n");
    }
    std::printf("esac\n");
}

void PrintFish(const CLI::App& app) {
    std::printf(
        "# Completion of kqclip for fish.\n"
        "complete -c kqclip -n __fish_use_subcommand -l help -d 'Tell how to use it'\n"
        "complete -c kqclip -n __fish_use_subcommand -l version -d 'Tell the version'\n");
    for (const CLI::App* command : CommandsOf(app)) {
        const char* name = command->get_name().c_str();
        std::printf("complete -c kqclip -n __fish_use_subcommand -f -a %s -d '%s'\n", name,
                    Quoted(command->get_description(), "\\'").c_str());
        for (const CLI::Option* option : OptionsOf(*command)) {
            if (LongName(option).empty()) continue;
            std::string words = Joined(WordsOf(option));
            if (option->get_type_name() == "DIR") words = "(__fish_complete_directories)";
            std::string value = !TakesValue(option) ? "" : words.empty() ? " -x" : " -x -a '" + words + "'";
            std::printf("complete -c kqclip -n '__fish_seen_subcommand_from %s' -l %s%s -d '%s'\n", name,
                        LongName(option).c_str() + 2, value.c_str(),
                        Quoted(Brief(option->get_description()), "\\'").c_str());
        }
    }
}

}   // namespace

bool Generate(const CLI::App& app, const std::string& what) {
    if (what == "man")
        PrintManual(app);
    else if (what == "bash")
        PrintBash(app);
    else if (what == "zsh")
        PrintZsh(app);
    else if (what == "fish")
        PrintFish(app);
    else
        return false;
    return true;
}

}   // namespace kqclip
