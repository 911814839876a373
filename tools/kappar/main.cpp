// kappar: inspect entity schemas, show, upgrade and check saved entity files.

#include <cstring>
#include <string>
#include <vector>

#include "cli.h"

namespace kcli {
namespace {

constexpr std::string_view kToolHelp =
    R"(usage: kappar [--units inch|metric] COMMAND [ARGS...]
       kappar --version | --help

Inspects the entity kinds of the kappar library and the saved entity files they read.

Commands:
  kinds     List the entity kinds the library knows.
  schema    Show the declared parameters of an entity kind.
  show      Show the values of a saved entity, brought to the current version.
  upgrade   Write saved entities at the current version.
  eval      Evaluate an expression on a saved entity.
  check     Report problems in saved entities.
  help      Show the help of a command.

Options:
  --units inch|metric  Unit system of defaults and lengths (metric unless given).
  -h, --help           Show this help.
  --version            Show the version.

Exit status: 0 success, 1 problems found, 2 usage error, 3 unreadable input,
4 output not written.
Run 'kappar COMMAND --help' for the options of a command.
)";

constexpr std::string_view kKindsHelp =
    R"(usage: kappar kinds [--format text|json]

Lists every entity kind the library knows, sorted by name: its kind name (the name saved files
use), its class, its current version and the number of parameters a new entity of the kind holds
(maps and array elements included).

Options:
  --format text|json   Output format (text unless given).
  -h, --help           Show this help.
)";

constexpr std::string_view kSchemaHelp =
    R"(usage: kappar schema KIND [--inch] [--format text|json|markdown] [--units inch|metric]

Shows the declared parameter tree of an entity kind in declaration order: for each parameter its
path, kind, units, default, range, enumeration states, label, description, group and activity
expression. Defaults are those of the chosen unit system.

Options:
  --inch                          Show inch defaults (the same as --units inch).
  --format text|json|markdown     Output format (text unless given).
  --units inch|metric             Unit system of defaults and lengths.
  -h, --help                      Show this help.
)";

constexpr std::string_view kShowHelp =
    R"(usage: kappar show FILE [--active-only] [--format text|json] [--units inch|metric]

Reads FILE, loads it into a new entity of its kind, brings it to the kind's current version and
prints every value parameter in declaration order with its value and activity. A value written as
an expression is shown evaluated, followed by its expression. Pairs of the file that the schema
does not hold are listed after the values.

Options:
  --active-only        Leave out inactive parameters.
  --format text|json   Output format (text unless given).
  --units inch|metric  Unit system of the defaults of parameters the file does not set.
  -h, --help           Show this help.
)";

constexpr std::string_view kUpgradeHelp =
    R"(usage: kappar upgrade FILE... [-o OUT | --in-place] [--units inch|metric]

Loads each FILE, brings it to the current version of its kind and writes it again: every value
parameter in declaration order, then the pairs the schema does not hold, kept as they were read
(each is also listed on standard error). A file saved at the current version is written with the
same values, so upgrading twice changes nothing.

Without -o or --in-place the one FILE is written to standard output. With several files, a
progress line is shown on a terminal and a summary is printed on standard error at the end.

Options:
  -o, --output OUT     Write to OUT: a file, or a folder for several files (made when missing)
                       or when OUT is an existing folder.
  --in-place           Replace each FILE (a file whose text would not change is left alone).
  --units inch|metric  Unit system of the defaults of parameters the file does not set.
  -h, --help           Show this help.
)";

constexpr std::string_view kEvalHelp =
    R"(usage: kappar eval FILE EXPR [--units inch|metric]

Loads FILE (brought to the current version) and evaluates the expression EXPR on its root, as an
activity expression of a top-level parameter would be: names are parameter paths ("Type",
"Block.Diameter", "RootPar.Tolerance"), with comparisons, AND, OR, !, arithmetic and functions
such as min, max, select and active. Prints the value; a name of a map prints the values below it.

Options:
  --units inch|metric  Unit system of the defaults of parameters the file does not set.
  -h, --help           Show this help.

Exit status 1 when the expression fails; its error goes to standard error.
)";

constexpr std::string_view kCheckHelp =
    R"(usage: kappar check FILE... [--units inch|metric]

Loads each FILE (brought to the current version) and reports, one line each as
"file:line:column: message": values out of their range, enumeration texts that are not states,
expressions that fail, values a parameter refused and keys the schema does not hold. Prints
"FILE: ok" for a file without problems, and a summary when several files are checked.

Options:
  --units inch|metric  Unit system of the defaults of parameters the file does not set.
  -h, --help           Show this help.

Exit status 1 when a problem is found, 3 when a file cannot be read or loaded.
)";

constexpr OptionDecl kHelpOption{"--help", 'h', false};
constexpr OptionDecl kUnitsOption{"--units", 0, true};

constexpr OptionDecl kKindsOptions[] = {kHelpOption, kUnitsOption, {"--format", 0, true}};
constexpr OptionDecl kSchemaOptions[] = {
    kHelpOption, kUnitsOption, {"--format", 0, true}, {"--inch", 0, false}};
constexpr OptionDecl kShowOptions[] = {
    kHelpOption, kUnitsOption, {"--format", 0, true}, {"--active-only", 0, false}};
constexpr OptionDecl kUpgradeOptions[] = {
    kHelpOption, kUnitsOption, {"--output", 'o', true}, {"--in-place", 0, false}};
constexpr OptionDecl kPlainOptions[] = {kHelpOption, kUnitsOption};

int run_help(const ParsedArgs& args);

constexpr std::string_view kHelpHelp = R"(usage: kappar help [COMMAND]

Shows the help of COMMAND, or of the tool.
)";

constexpr Command kCommands[] = {
    {"kinds", "List the entity kinds the library knows.", kKindsHelp, kKindsOptions, &run_kinds},
    {"schema", "Show the declared parameters of an entity kind.", kSchemaHelp, kSchemaOptions,
     &run_schema},
    {"show", "Show the values of a saved entity.", kShowHelp, kShowOptions, &run_show},
    {"upgrade", "Write saved entities at the current version.", kUpgradeHelp, kUpgradeOptions,
     &run_upgrade},
    {"eval", "Evaluate an expression on a saved entity.", kEvalHelp, kPlainOptions, &run_eval},
    {"check", "Report problems in saved entities.", kCheckHelp, kPlainOptions, &run_check},
    {"help", "Show the help of a command.", kHelpHelp, kPlainOptions, &run_help},
};

int g_units = 0;

const Command* find_command(std::string_view name) {
    for (const auto& c : kCommands) {
        if (c.name == name) return &c;
    }
    return nullptr;
}

int run_help(const ParsedArgs& args) {
    if (args.positional.empty()) {
        out(kToolHelp);
        return kExitOk;
    }
    if (args.positional.size() > 1) return usage_error("help", "too many arguments");
    const Command* c = find_command(args.positional[0]);
    if (c == nullptr) return usage_error("help", "unknown command '" + args.positional[0] + "'");
    out(c->help);
    return kExitOk;
}

// Reads "inch" or "metric".
bool parse_units(std::string_view text, int& units) {
    if (text == "metric") {
        units = 0;
        return true;
    }
    if (text == "inch") {
        units = 1;
        return true;
    }
    return false;
}

int tool_usage_error(std::string_view message) {
    err("kappar: " + printable(message) + "\n");
    err("usage: kappar [--units inch|metric] COMMAND [ARGS...]\n");
    err("Run 'kappar --help' for the commands.\n");
    return kExitUsage;
}

int run(const std::vector<std::string>& argv) {
    std::size_t i = 0;
    // Options of the tool itself, before the command.
    for (; i < argv.size() && argv[i].starts_with("-"); ++i) {
        const std::string& a = argv[i];
        if (a == "--version") {
            out("kappar " KAPPAR_VERSION_TEXT "\n");
            return kExitOk;
        }
        if (a == "--help" || a == "-h") {
            out(kToolHelp);
            return kExitOk;
        }
        std::string value;
        if (a == "--units") {
            if (i + 1 >= argv.size()) return tool_usage_error("option '--units' needs a value");
            value = argv[++i];
        } else if (a.starts_with("--units=")) {
            value = a.substr(8);
        } else {
            return tool_usage_error("unknown option '" + a + "'");
        }
        if (!parse_units(value, g_units)) {
            return tool_usage_error("option '--units' takes inch or metric, not '" + value + "'");
        }
    }
    if (i >= argv.size()) return tool_usage_error("no command given");
    const Command* command = find_command(argv[i]);
    if (command == nullptr) return tool_usage_error("unknown command '" + argv[i] + "'");

    ParsedArgs args;
    std::string error;
    const std::span<const std::string> rest(argv.data() + i + 1, argv.size() - i - 1);
    if (!parse_args(rest, command->options, args, error)) return usage_error(command->name, error);
    if (args.has("--help")) {
        out(command->help);
        return kExitOk;
    }
    if (auto units = args.value("--units")) {
        if (!parse_units(*units, g_units)) {
            return usage_error(command->name,
                               "option '--units' takes inch or metric, not '" + *units + "'");
        }
    }
    if (args.has("--inch")) g_units = 1;
    kapUnitsScope scope(g_units);
    return command->run(args);
}

}  // namespace

std::span<const Command> commands() {
    return kCommands;
}

int selected_units() {
    return g_units;
}

int usage_error(std::string_view command, std::string_view message) {
    err("kappar " + std::string(command) + ": " + printable(message) + "\n");
    if (const Command* c = find_command(command)) {
        const std::string_view help = c->help;
        err(help.substr(0, help.find('\n') + 1));
    }
    err("Run 'kappar " + std::string(command) + " --help' for more.\n");
    return kExitUsage;
}

}  // namespace kcli

int main(int argc, char** argv) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }
    return kcli::finish_output(kcli::run(args));
}
