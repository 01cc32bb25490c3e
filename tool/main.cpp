// The command line of orlan-epm: takes the call apart, runs the sub-command, reports failures.
#include "tool/commands.hpp"
#include "tool/nearest.hpp"
#include "tool/types.hpp"

#include <algorithm>
#include <iostream>

namespace {

using namespace epm::tool;

constexpr char footer[] =
    R"(FILE and LIBRARY may be - for standard input. A message as text is hexadecimal digits, with white space or colons
between bytes, 0x in front and remarks behind #, or what xxd, hexdump -C or tcpdump -X print.

Exit status: 0 when all was good; 1 when what was read is damaged or refused; 2 when the call was wrong; 3 when a file
cannot be read or the answer not written. diff: 0 when nothing differs, 1 when something does, 2 after a failure. skew:
0 when the peer misses nothing, otherwise the sum of 1 when it misses fields and 2 when it cannot be sent the message at
all; 64 is added to the status of a failure. compat: the sum of 16, 32, 64 and 128 for what breaks programs, peers,
documents and traces.
)";

/// Returns the sub-command; null when the call asked for help or the version, which has been printed.
const Command* parse(CLI::App& app, Call& call, int argc, char** argv) {
    app.name("orlan-epm");
    app.set_version_flag("--version", "orlan-epm " EPM_VERSION, "Show the version.");
    app.set_help_flag("--help,-h", "Show this.");
    app.footer(footer);
    app.require_subcommand(1);
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        command.declare(*app.add_subcommand(command.name, command.help), call);
        names.emplace_back(command.name);
    }
    const std::string first = argc > 1 ? argv[1] : "-";
    if (!first.starts_with('-') && !std::ranges::count(names, first)) {
        const std::string near = suggestion(first, names);
        throw Told{is_bad_call, first + ": no sub-command" + near + (near.empty() ? ";" : "") + " see --help"};
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) throw Told{is_bad_call, std::string(error.what()) + "; see --help"};
        app.exit(error);
        return nullptr;
    }
    return &*std::ranges::find_if(commands(), [&](const Command& c) { return app.got_subcommand(c.name); });
}

} // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    CLI::App app("Looks into messages and libraries of the client-policy control plane.");
    Call call;
    const Command* command = nullptr;
    int status = is_good;
    const auto fail = [&](ExitStatus failure, const std::string& line) {
        std::cout.flush();
        say(line);
        status = command != nullptr && command->failed != nullptr ? command->failed(failure) : failure;
    };
    try {
        command = parse(app, call, argc, argv);
        if (!call.type.empty()) on(call.type, [&] { type_named(call.type); });
        if (command != nullptr) status = command->run(call);
    } catch (const Told& told) {
        fail(told.status, told.line);
    } catch (const std::exception& error) { // out of memory, for one
        fail(has_no_file, error.what());
    }
    std::cout.flush();
    if (!std::cout) fail(has_no_file, "standard output cannot be written");
    return status;
}
