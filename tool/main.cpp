// The command line of orlan-epm: sub-commands, files, and how failures are reported. Each sub-command's work is in the
// file of its subject.
#include "tool/annotate.hpp"
#include "tool/failure.hpp"
#include "tool/hex_dump.hpp"
#include "tool/manifest.hpp"
#include "tool/message.hpp"
#include "tool/nearest.hpp"
#include "tool/traces.hpp"
#include "tool/types.hpp"
#include "tool/walk.hpp"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace {

using namespace epm::tool;

constexpr char footer[] =
    R"(FILE and LIBRARY may be - for standard input. A message as text is hexadecimal digits, with white space or colons
between bytes, 0x in front and remarks behind #, or what xxd, hexdump -C or tcpdump -X print.

Exit status: 0 when all was good; 1 when what was read is damaged or refused; 2 when the call was wrong; 3 when a file
cannot be read or the answer not written.
)";

struct Call {
    std::string type, file, output;
    int agreed = 0;
    std::uint32_t index = 0;
    bool is_hex = false, is_lenient = false, is_xml = false, is_json = false, is_names = false;
};

/// A failure, reported as one line.
struct Told {
    ExitStatus status;
    std::string line;
};

Bytes read_message(const Call& call) {
    const Bytes bytes = read_file(call.file, most_message);
    return call.is_hex ? from_hex(as_text(bytes)) : bytes;
}

/// Prints a line on standard error. File names come from the caller, but the files may be anybody's.
void say(std::string_view line) {
    std::string shown;
    for (const char c : line) shown += c == '"' || c == '\\' ? std::string(1, c) : escaped(std::string_view(&c, 1));
    std::cerr << "orlan-epm: " << shown << '\n';
}

std::string shown_name(const std::string& file) {
    return file == "-" ? "standard input" : file;
}

/// Runs `body`; adds the name of what it read to any failure.
template <class Body>
void on(const std::string& name, Body body) {
    const std::string shown = shown_name(name);
    try {
        body();
    } catch (const Damage& damage) {
        throw Told{is_damaged, shown + ": offset " + std::to_string(damage.offset) + ": " + damage.reason};
    } catch (const Failure& failure) {
        throw Told{failure.status, shown + ": " + failure.reason};
    }
}

/// On a terminal, unless the user wants none.
bool shows_colours() {
    const char* no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

Bytes message_of_xml(const Call& call, std::string_view document, const Agreed& agreed) {
    const Encoded encoded = encode(type_named(call.type), std::string(document), agreed, call.is_lenient);
    for (const Loss& loss : encoded.losses) say(shown_name(call.file) + ": " + loss.line());
    const auto lost = std::ranges::count(encoded.losses, Loss::Kind::lost, &Loss::kind);
    if (lost != 0 && !call.is_lenient)
        throw Failure{is_damaged, "nothing is written, because this would be lost; --lenient leaves it out"};
    return encoded.message;
}

void encode_file(const Call& call, const Agreed& agreed) {
    const Bytes file = read_file(call.file, most_message);
    const std::string_view document = as_text(file);
    const Bytes message =
        call.is_json ? encode_json(type_named(call.type), document) : message_of_xml(call, document, agreed);
    const std::string content = call.is_hex ? to_hex(message) + '\n' : std::string(as_text(message));
    if (call.output.empty())
        std::cout << content;
    else
        on(call.output, [&] { write_file(call.output, content); });
}

Bytes read_and_say_passed_over(const Call& call) {
    Bytes message = read_message(call);
    for (const Part& part : passed_over(type_named(call.type), message))
        say(shown_name(call.file) + ": offset " + std::to_string(part.offset) + ": " + std::to_string(part.length) +
            (part.length == 1 ? " byte" : " bytes") + " passed over: " + part.path + ": " + part.value);
    return message;
}

int run(int argc, char** argv) {
    CLI::App app("Looks into messages and libraries of the client-policy control plane.");
    Call call;
    app.name("orlan-epm");
    app.set_version_flag("--version", "orlan-epm " EPM_VERSION, "Show the version.");
    app.set_help_flag("--help,-h", "Show this.");
    app.footer(footer);
    app.require_subcommand(1);

    const auto type = [&](CLI::App* command) { return command->add_option("TYPE", call.type, "Name of a type."); };
    const auto file = [&](CLI::App* command, const char* name, const char* text) {
        command->add_option(name, call.file, text)->required();
    };
    const auto json = [&](CLI::App* command, const char* text = "Answer in JSON.") {
        return command->add_flag("--json", call.is_json, text);
    };
    const auto agreed = [&](CLI::App* command, const char* text) {
        return command->add_option("--agreed", call.agreed, text)->type_name("N")->check(CLI::Range(-128, 127));
    };

    CLI::App* types = app.add_subcommand("types", "List all types, or describe one: fields, kinds, variants, offsets.");
    type(types);
    json(types);
    types->add_flag("--names", call.is_names, "List the names alone.");

    CLI::App* decode_command =
        app.add_subcommand("decode", "Show a message as the library prints it, as XML or as JSON.");
    type(decode_command)->required();
    file(decode_command, "FILE", "The message.");
    decode_command->add_flag("--hex", call.is_hex, "FILE is hexadecimal digits or a dump.");
    CLI::Option* decode_xml = decode_command->add_flag("--xml", call.is_xml, "Show it as XML.");
    CLI::Option* decode_agreed =
        agreed(decode_command, "Variant that the Domain has agreed. It bounds what is written, not what is read.");
    json(decode_command, "Show it as JSON.")->excludes(decode_xml, decode_agreed);

    CLI::App* encode_command = app.add_subcommand("encode", "Make a message of XML or JSON.");
    type(encode_command)->required();
    file(encode_command, "FILE", "The document.");
    encode_command->add_flag("--hex", call.is_hex, "Write hexadecimal digits.");
    CLI::Option* lenient =
        encode_command->add_flag("--lenient", call.is_lenient, "Leave out what is not read, and list it.");
    encode_command->add_option("--output,-o", call.output, "Write to a file.")->type_name("FILE");
    CLI::Option* encode_agreed =
        agreed(encode_command, "Variant that the Domain has agreed, instead of what the document notes.");
    json(encode_command, "FILE is JSON.")->excludes(lenient, encode_agreed);

    CLI::App* annotate_command = app.add_subcommand("annotate", "Show each range of bytes of a message and its field.");
    type(annotate_command)->required();
    file(annotate_command, "FILE", "The message.");
    annotate_command->add_flag("--hex", call.is_hex, "FILE is hexadecimal digits or a dump.");
    json(annotate_command);

    CLI::App* manifest = app.add_subcommand("manifest", "Show the types that a library file declares, and its build.");
    file(manifest, "LIBRARY", "The library file.");
    json(manifest);

    CLI::App* traces = app.add_subcommand("traces", "Show the trace messages that a library file holds.");
    file(traces, "LIBRARY", "The library file.");
    const CLI::Option* index = traces->add_option("INDEX", call.index, "Show this one message.");
    json(traces);

    std::vector<std::string> commands;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        commands.push_back(command->get_name());
    const std::string first = argc > 1 ? argv[1] : "-";
    if (!first.starts_with('-') && !std::ranges::count(commands, first)) {
        const std::string near = suggestion(first, commands);
        throw Told{is_bad_call, first + ": no sub-command" + near + (near.empty() ? ";" : "") + " see --help"};
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        throw Told{is_bad_call, std::string(error.what()) + "; see --help"};
    }

    const auto chosen = [&](const CLI::Option* option) {
        return option->count() != 0 ? Agreed(static_cast<std::int8_t>(call.agreed)) : Agreed();
    };
    if (types->parsed() && call.type.empty())
        show_types(call.is_names ? TypesForm::names : call.is_json ? TypesForm::json : TypesForm::table, std::cout);
    else if (!call.type.empty())
        on(call.type, [&] { type_named(call.type); });
    if (types->parsed() && !call.type.empty()) show_type(type_named(call.type), call.is_json, std::cout);
    on(call.file, [&] {
        if (decode_command->parsed())
            std::cout << decode(type_named(call.type), read_and_say_passed_over(call),
                                call.is_json  ? TextForm::json
                                : call.is_xml ? TextForm::xml
                                              : TextForm::print,
                                chosen(decode_agreed));
        if (encode_command->parsed()) encode_file(call, chosen(encode_agreed));
        if (annotate_command->parsed())
            annotate(type_named(call.type), read_and_say_passed_over(call),
                     call.is_json      ? AnnotationForm::json
                     : shows_colours() ? AnnotationForm::coloured_lines
                                       : AnnotationForm::lines,
                     std::cout);
        if (manifest->parsed()) show_manifest(read_file(call.file, most_library), call.is_json, std::cout);
        if (traces->parsed())
            show_traces(read_file(call.file, most_library),
                        index->count() != 0 ? std::optional(call.index) : std::nullopt, call.is_json, std::cout);
    });
    return is_good;
}

} // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    int status = is_good;
    std::string line;
    try {
        status = run(argc, argv);
    } catch (const Told& told) {
        status = told.status;
        line = told.line;
    } catch (const std::exception& error) { // out of memory, for one
        status = has_no_file;
        line = error.what();
    }
    std::cout.flush();
    if (!line.empty()) say(line);
    if (std::cout) return status;
    say("standard output cannot be written");
    return has_no_file;
}
