// Most sub-commands show a message. With --stream or --capture they show each one of a file in turn, and go on after
// one that is damaged.
#include "tool/commands.hpp"

#include "tool/annotate.hpp"
#include "tool/compat/compat.hpp"
#include "tool/diff.hpp"
#include "tool/guess.hpp"
#include "tool/hex_dump.hpp"
#include "tool/json_message.hpp"
#include "tool/manifest.hpp"
#include "tool/message.hpp"
#include "tool/messages.hpp"
#include "tool/skew.hpp"
#include "tool/store.hpp"
#include "tool/traces.hpp"
#include "tool/types.hpp"
#include "tool/walk.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>

namespace epm::tool {

namespace {

// ---- options ----

CLI::Option* declare_type(CLI::App& app, Call& call) {
    return app.add_option("TYPE", call.type, "Name of a type.");
}

CLI::Option* declare_file(CLI::App& app, Call& call, const char* text, const char* name = "FILE") {
    return app.add_option(name, call.file, text)->required();
}

CLI::Option* declare_json(CLI::App& app, Call& call, const char* text = "Answer in JSON.") {
    return app.add_flag("--json", call.is_json, text);
}

CLI::Option* declare_agreed(CLI::App& app, Call& call, const char* text) {
    return app.add_option("--agreed", call.agreed, text)->type_name("N")->check(CLI::Range(-128, 127));
}

Agreed agreed_in(const Call& call) {
    return call.agreed ? Agreed(static_cast<std::int8_t>(*call.agreed)) : Agreed();
}

/// A file that may hold many messages.
void declare_messages(CLI::App& app, Call& call) {
    declare_file(app, call, "The message.");
    CLI::Option* hex = app.add_flag("--hex", call.is_hex, "FILE is hexadecimal digits or a dump.");
    CLI::Option* stream = app.add_flag("--stream", call.is_stream, "FILE is a stream of messages, each in a frame.");
    CLI::Option* capture = app.add_flag("--capture", call.is_capture,
                                        "FILE is a capture (pcap or pcapng) of UDP, or of streams over TCP.");
    stream->excludes(hex, capture);
    capture->excludes(hex);
    app.add_option("--filter", call.filter, "Look only at these packets, as `tcp port 5000`.")->needs(capture);
}

// ---- messages ----

std::string shown_name(const std::string& file) {
    return file == "-" ? "standard input" : file;
}

Bytes read_message(const Call& call, const std::string& file) {
    const Bytes bytes = read_file(file, most_message);
    return call.is_hex ? from_hex(as_text(bytes)) : bytes;
}

void say_passed_over(const Call& call, const std::string& name, ByteView message) {
    if (call.type.empty()) return;
    for (const Part& part : passed_over(type_named(call.type), message))
        say(name + ": offset " + std::to_string(part.offset) + ": " + std::to_string(part.length) +
            (part.length == 1 ? " byte" : " bytes") + " passed over: " + part.path + ": " + part.value);
}

/// Shows a message and returns the exit status.
using Show = std::function<int(ByteView message, std::ostream& out)>;

int show_one(const Call& call, const Show& show) {
    int status = is_good;
    on(call.file, [&] {
        const Bytes message = read_message(call, call.file);
        say_passed_over(call, shown_name(call.file), message);
        status = show(message, std::cout);
    });
    return status;
}

/// A heading for each message, or an object around its JSON.
void write_answer(const Call& call, const std::string& name, ByteView message, const std::string& text) {
    if (!call.is_json)
        std::cout << "==== " << name << ", " << message.size() << " bytes\n" << text;
    else
        std::cout << "{\"message\": \"" << name << "\", \"length\": " << message.size()
                  << ", \"answer\": " << (text.empty() ? "null\n" : text) << "}\n";
}

int show_all(const Call& call, const Show& show) {
    int status = is_good;
    const std::string file = shown_name(call.file);
    const auto tell = [&](const std::string& name, ByteView message) {
        std::ostringstream text;
        try {
            on(file + ": " + name, [&] {
                say_passed_over(call, file + ": " + name, message);
                status |= show(message, text);
            });
        } catch (const Told& told) {
            say(told.line);
            status |= told.status;
        }
        write_answer(call, name, message, text.str());
        if (!std::cout) throw Failure{has_no_file, "standard output cannot be written"};
    };
    const auto damaged = [&](const std::string& reason) {
        say(file + ": " + reason);
        status |= is_damaged;
    };
    on(call.file, [&] { each_message({call.file, call.filter, call.is_capture}, tell, damaged); });
    return status;
}

int show_messages(const Call& call, const Show& show) {
    return (call.is_stream || call.is_capture ? show_all : show_one)(call, show);
}

/// On a terminal, unless the user wants none.
bool shows_colours() {
    const char* no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

// ---- sub-commands ----

void declare_types(CLI::App& app, Call& call) {
    declare_type(app, call);
    declare_json(app, call);
    app.add_flag("--names", call.is_names, "List the names alone.");
    app.add_flag("--tree", call.is_tree, "Show which records hold which others.");
}

int run_types(const Call& call) {
    if (call.type.empty())
        show_types(call.is_names  ? TypesForm::names
                   : call.is_tree ? TypesForm::tree
                   : call.is_json ? TypesForm::json
                                  : TypesForm::table,
                   std::cout);
    else
        show_type(type_named(call.type), call.is_json, std::cout);
    return is_good;
}

void declare_decode(CLI::App& app, Call& call) {
    declare_type(app, call)->required();
    declare_messages(app, call);
    CLI::Option* xml = app.add_flag("--xml", call.is_xml, "Show it as XML.");
    CLI::Option* agreed =
        declare_agreed(app, call, "Variant that the Domain has agreed. It bounds what is written, not what is read.");
    declare_json(app, call, "Show it as JSON.")->excludes(xml, agreed);
}

int run_decode(const Call& call) {
    const Type& type = type_named(call.type);
    const TextForm form = call.is_json ? TextForm::json : call.is_xml ? TextForm::xml : TextForm::print;
    return show_messages(call, [&](ByteView message, std::ostream& out) {
        out << decode(type, message, form, agreed_in(call));
        return is_good;
    });
}

void declare_encode(CLI::App& app, Call& call) {
    declare_type(app, call)->required();
    declare_file(app, call, "The document.");
    app.add_flag("--hex", call.is_hex, "Write hexadecimal digits.");
    CLI::Option* lenient = app.add_flag("--lenient", call.is_lenient, "Leave out what is not read, and list it.");
    app.add_option("--output,-o", call.output, "Write to a file.")->type_name("FILE");
    CLI::Option* agreed =
        declare_agreed(app, call, "Variant that the Domain has agreed, instead of what the document notes.");
    declare_json(app, call, "FILE is JSON.")->excludes(lenient, agreed);
}

Bytes message_of_xml(const Call& call, std::string_view document) {
    const Encoded encoded = encode(type_named(call.type), std::string(document), agreed_in(call), call.is_lenient);
    for (const Loss& loss : encoded.losses) say(shown_name(call.file) + ": " + loss.line());
    const auto lost = std::ranges::count(encoded.losses, Loss::Kind::lost, &Loss::kind);
    if (lost != 0 && !call.is_lenient)
        throw Failure{is_damaged, "nothing is written, because this would be lost; --lenient leaves it out"};
    return encoded.message;
}

int run_encode(const Call& call) {
    std::string content;
    on(call.file, [&] {
        const Bytes file = read_file(call.file, most_message);
        const std::string_view document = as_text(file);
        const Bytes message =
            call.is_json ? encode_json(type_named(call.type), document) : message_of_xml(call, document);
        content = call.is_hex ? to_hex(message) + '\n' : std::string(as_text(message));
    });
    if (call.output.empty())
        std::cout << content;
    else
        on(call.output, [&] { write_file(call.output, content); });
    return is_good;
}

void declare_annotate(CLI::App& app, Call& call) {
    declare_type(app, call)->required();
    declare_messages(app, call);
    declare_json(app, call);
}

int run_annotate(const Call& call) {
    const Type& type = type_named(call.type);
    const AnnotationForm form = call.is_json      ? AnnotationForm::json
                                : shows_colours() ? AnnotationForm::coloured_lines
                                                  : AnnotationForm::lines;
    return show_messages(call, [&](ByteView message, std::ostream& out) {
        annotate(type, message, form, out);
        return is_good;
    });
}

void declare_diff(CLI::App& app, Call& call) {
    declare_type(app, call)->required();
    declare_file(app, call, "A message.", "A");
    app.add_option("B", call.other_file, "The other message.")->required();
    app.add_flag("--hex", call.is_hex, "Both are hexadecimal digits or dumps.");
    app.add_flag("--state", call.has_state_flags, "Compare these too.");
    declare_json(app, call);
}

int run_diff(const Call& call) {
    const Type& type = type_named(call.type);
    const auto read = [&](const std::string& file) {
        std::string json;
        on(file, [&] { json = to_json(type, read_message(call, file)); });
        return json;
    };
    const std::string a = read(call.file), b = read(call.other_file);
    return show_diff(type, a, b, {call.is_json, call.has_state_flags}, std::cout);
}

void declare_skew(CLI::App& app, Call& call) {
    declare_type(app, call)->required();
    declare_messages(app, call);
    app.get_option("FILE")->required(false);
    CLI::Option* peer = app.add_option("--peer", call.peer, "The peer's variant of all types, or its description.");
    peer->type_name("N|FILE");
    app.add_flag("--all", call.is_all, "Show what each variant misses of each other one.")->excludes(peer, "FILE");
    declare_json(app, call);
}

/// Tells a failure from what a peer misses.
constexpr int skew_failure = 64;

Peer peer_of(const std::string& text) {
    if (const std::optional<std::int8_t> variant = variant_from(text)) return peer_of_variant(*variant);
    Peer peer;
    on(text, [&] {
        for (const compat::Type& type : compat::read(read_file(text, most_library), text).types)
            peer[type.name] = static_cast<std::int8_t>(type.top_variant);
    });
    return peer;
}

int run_skew(const Call& call) {
    const Type& type = type_named(call.type);
    if (call.is_all) return show_all_skews(type, call.is_json, std::cout), is_good;
    if (call.file.empty() || call.peer.empty()) throw Told{is_bad_call, "FILE and --peer, or --all; see --help"};
    const Peer peer = peer_of(call.peer);
    int bits = nothing_lost;
    const int failures = show_messages(call, [&](ByteView message, std::ostream& out) {
        bits |= show_skew(type, message, peer, call.is_json, out);
        return is_good;
    });
    return failures != is_good ? bits | skew_failure | failures : bits;
}

void declare_guess(CLI::App& app, Call& call) {
    declare_messages(app, call);
    declare_json(app, call);
}

int run_guess(const Call& call) {
    return show_messages(call, [&](ByteView message, std::ostream& out) {
        return show_guesses(message, call.is_json, out) ? is_good : is_damaged;
    });
}

void declare_compat(CLI::App& app, Call& call) {
    declare_file(app, call, "Library file, or its description in JSON.", "OLD");
    app.add_option("NEW", call.other_file, "What is to take its place.")->required();
    declare_json(app, call);
    app.add_option("--junit", call.junit, "Write a test report, too.")->type_name("FILE");
    app.add_option("--allow", call.allowed, "Findings to accept.")->type_name("FILE");
}

int run_compat(const Call& call) {
    compat::Description old, now;
    if (call.file == "-" && call.other_file == "-") throw Told{is_bad_call, "only one file may be standard input"};
    on(call.file, [&] { old = compat::read(read_file(call.file, most_library), call.file); });
    on(call.other_file, [&] { now = compat::read(read_file(call.other_file, most_library), call.other_file); });
    compat::Findings findings = compat::compare(old, now);
    std::vector<compat::Unused> unused;
    if (!call.allowed.empty())
        on(call.allowed, [&] { unused = accept(findings, as_text(read_file(call.allowed, most_message))); });
    for (const compat::Unused& u : unused)
        say(shown_name(call.allowed) + ": line " + std::to_string(u.line) + ": nothing to accept: " + u.text);
    const compat::Comparison comparison{shown_name(call.file), shown_name(call.other_file), old, now, findings, unused};
    if (!call.junit.empty()) on(call.junit, [&] { write_file(call.junit, junit(comparison)); });
    (call.is_json ? compat::write_json : compat::write_text)(comparison, std::cout);
    return exit_status(findings);
}

void declare_manifest(CLI::App& app, Call& call) {
    declare_file(app, call, "The library file.", "LIBRARY");
    declare_json(app, call);
}

int run_manifest(const Call& call) {
    on(call.file, [&] { show_manifest(read_file(call.file, most_library), call.is_json, std::cout); });
    return is_good;
}

void declare_traces(CLI::App& app, Call& call) {
    declare_file(app, call, "The library file.", "LIBRARY");
    app.add_option("INDEX", call.index, "Show this one message.");
    declare_json(app, call);
}

int run_traces(const Call& call) {
    on(call.file, [&] { show_traces(read_file(call.file, most_library), call.index, call.is_json, std::cout); });
    return is_good;
}

void declare_store(CLI::App& app, Call& call) {
    declare_file(app, call, "The pool, which no process may have open. Without an option, its roots are listed.");
    app.add_option("--show", call.roots, "Show the roots of a name, or of a type and name.")
        ->expected(1, 2)
        ->type_name("[TYPE] NAME");
    app.add_flag("--check", call.is_check, "Check the file, and look for blocks that are lost.");
    app.add_option("--export", call.folder, "Write each root as a message to a file in a folder.")->type_name("FOLDER");
}

int run_store(const Call& call) {
    std::vector<std::string> arguments = {call.is_check ? "check" : "list", call.file};
    if (!call.folder.empty()) arguments = {"export", call.file, call.folder};
    if (!call.roots.empty()) arguments = {"show", call.file};
    arguments.insert(arguments.end(), call.roots.begin(), call.roots.end());
    on("store", [&] { run_store_program(arguments); });
    return is_good;
}

} // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> all = {
        {"types", "List all types, or describe one: fields, kinds, variants, offsets.", declare_types, run_types},
        {"decode", "Show a message as the library prints it, as XML or as JSON.", declare_decode, run_decode},
        {"encode", "Make a message of XML or JSON.", declare_encode, run_encode},
        {"annotate", "Show each range of bytes of a message and its field.", declare_annotate, run_annotate},
        {"diff", "Show how two messages differ.", declare_diff, run_diff, [](ExitStatus) { return 2; }},
        {"skew", "Show what a peer of other variants misses of a message.", declare_skew, run_skew,
         [](ExitStatus status) { return skew_failure + status; }},
        {"guess", "Show which types a message can be of.", declare_guess, run_guess},
        {"compat", "Say whether a library may take the place of another one.", declare_compat, run_compat},
        {"manifest", "Show the types that a library file declares, and its build.", declare_manifest, run_manifest},
        {"traces", "Show the trace messages that a library file holds.", declare_traces, run_traces},
        {"store", "Show what is in a pool of durable Instances, from a copy.", declare_store, run_store},
    };
    return all;
}

void say(std::string_view line) {
    std::string shown;
    for (const char c : line) shown += c == '"' || c == '\\' ? std::string(1, c) : escaped(std::string_view(&c, 1));
    std::cerr << "orlan-epm: " << shown << '\n';
}

void on(const std::string& name, const std::function<void()>& body) {
    const std::string shown = shown_name(name);
    try {
        body();
    } catch (const Damage& damage) {
        throw Told{is_damaged, shown + ": offset " + std::to_string(damage.offset) + ": " + damage.reason};
    } catch (const Failure& failure) {
        throw Told{failure.status, shown + ": " + failure.reason};
    }
}

} // namespace epm::tool
