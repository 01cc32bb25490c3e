// Runs the tool orlan-epm on arbitrary files. The first byte chooses the input: a message, a document of XML or JSON, a
// dump, or a library file or its description. The second byte chooses the type. The tool's report must have no gap and,
// as JSON, be well-formed. What the tool's own walk accepts, the library must accept. A message made from a document
// without a loss must read back. A library may take its own place. The seeds are the images of the tests' golden
// corpus, two dumps, a small library file and a small description.
#include "fuzz/target.hpp"
#include "tool/annotate.hpp"
#include "tool/compat/compat.hpp"
#include "tool/failure.hpp"
#include "tool/hex_dump.hpp"
#include "tool/manifest.hpp"
#include "tool/message.hpp"
#include "tool/traces.hpp"
#include "tool/walk.hpp"

#include <nlohmann/json.hpp>

#include <sstream>

namespace {

using namespace epm::tool;
using epm::fuzz::demand;
namespace test = epm::test;

enum Subject : std::uint8_t { a_message, a_document, a_library, a_dump, a_json, subjects };

/// Runs something that may refuse. Returns false when it does.
template <class Body>
bool accepts(Body body) {
    try {
        return body(), true;
    } catch (const Damage&) {
        return false;
    } catch (const Failure&) {
        return false;
    }
}

/// A message made from a document without a loss reads back as a document that gives the same message.
void look_into_document(const Type& type, const std::string& xml, bool is_decoded) {
    Encoded made, again;
    if (!accepts([&] { made = encode(type, xml, {}, true); })) return;
    const bool has_nul = xml.find("\\00") != xml.npos; // a NUL ends a text
    demand(!is_decoded || has_nul || made.losses.empty(), "nothing of a decoded document is lost");
    if (!made.losses.empty()) return;
    again = encode(type, decode(type, made.message, TextForm::xml, {}), {});
    demand(again.losses.empty() && again.message == made.message, "a document is carried whole");
}

/// A message made from JSON gives JSON that makes the same message.
void look_into_json(const Type& type, const std::string& json, bool is_decoded) {
    Bytes made;
    const bool is_read = accepts([&] { made = encode_json(type, json); });
    demand(is_read || !is_decoded, "JSON of a message is read");
    if (is_read)
        demand(encode_json(type, decode(type, made, TextForm::json, {})) == made, "a message is carried whole by JSON");
}

void look_into_message(const Type& type, ByteView message) {
    std::size_t told_to = 0;
    bool is_usual = true; // or else no writer writes it: state flags may be missing, which the XML shows otherwise
    const bool is_sound = accepts([&] {
        walk(type, message, [&](const Part& part) {
            demand(part.offset == told_to, "parts are without a gap");
            told_to += part.length;
            is_usual = is_usual && part.kind != Part::Kind::remark;
        });
    });
    demand(is_sound ? told_to == message.size() : told_to <= message.size(), "all bytes are told of");
    std::ostringstream text, json;
    accepts([&] { annotate(type, message, AnnotationForm::coloured_lines, text); });
    accepts([&] { annotate(type, message, AnnotationForm::json, json); });
    demand(nlohmann::json::accept(json.str()), "JSON is sound");
    demand(is_sound == accepts([&] { decode(type, message, TextForm::print, {}); }), "tool and library agree");
    std::string xml, own_json;
    if (accepts([&] { own_json = decode(type, message, TextForm::json, {}); })) look_into_json(type, own_json, true);
    if (accepts([&] { xml = decode(type, message, TextForm::xml, {}); })) look_into_document(type, xml, is_usual);
}

void look_into_library(std::string_view content) {
    const ByteView file(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    for (const bool is_json : {false, true}) {
        std::ostringstream manifest, traces;
        accepts([&] { show_manifest(file, is_json, manifest); });
        accepts([&] { show_traces(file, {}, is_json, traces); });
        for (const std::ostringstream* out : {&manifest, &traces})
            demand(!is_json || nlohmann::json::accept(out->str()), "JSON is sound");
    }
    accepts([&] {
        const compat::Description description = compat::read(file, "-");
        demand(compat::compare(description, description).empty(), "a library may take its own place");
    });
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    const auto seed = [&](Subject subject, std::size_t type, std::string_view bytes) {
        const char start[] = {static_cast<char>(subject), static_cast<char>(type)};
        write(std::string(start, 2) += bytes);
    };
    for (std::size_t t = 0; t < all_types().size(); ++t)
        for (const test::Image& image : test::images_of(all_types()[t].name)) {
            seed(a_message, t, as_text(image.bytes));
            seed(a_document, t, decode(all_types()[t], image.bytes, TextForm::xml, {}));
            seed(a_json, t, decode(all_types()[t], image.bytes, TextForm::json, {}));
        }
    std::ostringstream library;
    library << std::ifstream(EPM_SMALL_LIBRARY, std::ios::binary).rdbuf();
    seed(a_library, 0, library.str());
    seed(a_library, 0,
         R"({"format": 1, "library": "orlan_epm", "version": "1", "soname": "a", "version_node": "B", "types": [)"
         R"({"name": "r", "title": "R", "kind": "record", "identity": "0123456789abcdef0123456789abcdef",)"
         R"("compatibility": "0123456789abcdef0123456789abcdef", "top_variant": 0, "size": 24, "variants":)"
         R"([{"variant": 0, "used_length": 16, "size": 24, "state_flags": 1}], "fields": [{"name": "f", "kind":)"
         R"("value", "type": "u", "since": 0, "offset": 12, "size": 4, "state_flag": 0}]}], "imported_types":)"
         R"([{"name": "u", "shape": "primitive", "size": 4, "alignment": 4, "framing": "number", "wire_length": 4}],)"
         R"("functions": [{"name": "r_f_get", "signature": "int"}], "data": ["d"], "trace_digest":)"
         R"("0123456789abcdef0123456789abcdef", "traces": [{"index": 0, "identifier": 7, "key": "k", "text": "t"}]})");
    seed(a_dump, 0, "00000000: 0100  ..\n00000002: 41    A\n*\n00000004: 00    .\n");
    seed(a_dump, 0, "00000000  01 00 |..|\n*\n00000004  41 |A|\n00000005\n");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const Type& type = all_types()[data[1] % all_types().size()];
    const ByteView bytes(data + 2, size - 2);
    switch (data[0] % subjects) {
    case a_message: look_into_message(type, bytes); break;
    case a_document: look_into_document(type, std::string(as_text(bytes)), false); break;
    case a_json: look_into_json(type, std::string(as_text(bytes)), false); break;
    case a_dump:
        accepts([&] { from_hex(as_text(bytes)); });
        demand(from_hex(to_hex(bytes)) == Bytes(bytes.begin(), bytes.end()), "digits are their bytes");
        break;
    case a_library: look_into_library(as_text(bytes)); break;
    }
    return 0;
}
