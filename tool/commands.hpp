// The sub-commands of orlan-epm: what each takes on the command line, and whom it asks to do the work.
#pragma once

#include "tool/failure.hpp"

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace epm::tool {

/// What the command line says. Each sub-command uses some of it.
struct Call {
    std::string type, file, other_file, output, peer, filter, allowed, junit, folder;
    std::vector<std::string> roots;
    std::optional<int> agreed;
    std::optional<std::uint32_t> index;
    bool is_hex = false, is_lenient = false, is_xml = false, is_json = false, is_names = false, is_tree = false,
         is_stream = false, is_capture = false, is_all = false, has_state_flags = false, is_check = false;
};

struct Command {
    const char *name, *help;
    void (*declare)(CLI::App& app, Call& call);
    /// Returns the exit status; throws Told. The type, if one is given, is known.
    int (*run)(const Call& call);
    /// The exit status after a failure, for commands whose own statuses tell something else.
    int (*failed)(ExitStatus status) = nullptr;
};

const std::vector<Command>& commands();

/// A failure, reported as one line.
struct Told {
    ExitStatus status;
    std::string line;
};

/// Prints a line on standard error. File names come from the caller, but the files may be anybody's.
void say(std::string_view line);

/// Runs `body`; adds the name of what it read to any failure.
void on(const std::string& name, const std::function<void()>& body);

} // namespace epm::tool
