// The XML reader: fills an Instance from a parsed document, field by field, each by its path. It is tolerant: an absent
// field keeps its value. It does not read state flags. The runtime parses the document and the values.
#pragma once

#include "access/array_of_records.hpp"
#include "access/list.hpp"
#include "access/text_field.hpp"
#include "frame/contents.hpp"
#include "frame/imports.hpp"
#include "lifecycle/destroy.hpp"
#include "text/labels.hpp"
#include "text/output.hpp"

#include <cstdio>

namespace epm::text {

inline constexpr std::size_t path_length = 256;
inline constexpr std::size_t scratch_length = 128;

/// The path of the element being read, followed by the path of whatever lies under it, all built in one buffer. A path
/// that is too long is cut. It then usually finds nothing, but a document made for it can let it find the same place
/// for each element.
class Paths {
public:
    explicit Paths(const char* path) {
        while (path != nullptr && last_.end < longest && path[last_.end] != 0) {
            characters_[last_.end] = path[last_.end];
            ++last_.end;
        }
    }
    [[gnu::noinline]] const char* spell(CountedText name) {
        put(last_.start, name);
        characters_[last_.end] = 0;
        return characters_;
    }
    /// Elements count from 1.
    [[gnu::noinline]] const char* spell(CountedText name, std::uint32_t element) {
        put(last_.start, name);
        put(last_.end, Subscript(element).text());
        characters_[last_.end] = 0;
        return characters_;
    }
    /// As above, after the path of the element before: mostly only one digit changes.
    const char* spell_next(CountedText name, std::uint32_t element) {
        if (element == 1 || last_.is_cut || !count_up(characters_ + last_.end)) return spell(name, element);
        return characters_;
    }
    bool is_cut() const { return last_.is_cut; } ///< whether the last path was too long

    struct Level {
        std::uint32_t start = 0; ///< behind the element's path
        std::uint32_t end = 0;   ///< of the last path
        bool is_cut = false;
    };
    /// Paths spelled from now on lie under the last one, until the caller goes back to it.
    [[gnu::noinline]] Level enter() {
        const Level outer = last_;
        put(last_.end, {"/", 1});
        last_.start = last_.end;
        return outer;
    }
    [[gnu::noinline]] void leave(const Level& outer) {
        last_ = outer;
        characters_[last_.end] = 0;
    }

private:
    static constexpr std::uint32_t longest = path_length - 1;

    void put(std::uint32_t offset, CountedText text) {
        const std::uint32_t length = std::min(text.length, longest - offset);
        std::memcpy(characters_ + offset, text.characters, length);
        last_.end = offset + length;
        last_.is_cut = length < text.length;
    }

    char characters_[path_length];
    Level last_;
};

/// What a reader is given and passes on to its fields.
struct XmlReader {
    Domain* D;
    std::uint32_t S;
    Paths& paths;
    zur_xml_document* document;
    std::uint32_t* st;
    char* message;
    std::uint32_t message_size;

    /// The check after a field: an absent one is fine. Returns false when the reader must stop.
    bool goes_on() const {
        if (*st == ZUR_ABSENT) *st = 0;
        return *st == 0;
    }
};

/// The number of the first enumerator that is an element under the path. Returns `count` when there is none, or when
/// the look-up failed and the error is left. The path must be the last one spelled.
[[gnu::noinline]] inline std::uint32_t find_enumerator(const XmlReader& in, const char* path, const CountedText* names,
                                                       std::uint32_t count) {
    const Paths::Level outer = in.paths.enter();
    char scratch[scratch_length];
    std::uint32_t found = 0;
    for (; found < count; ++found) {
        *in.st = xml_get_element_value(in.document, in.paths.spell(names[found]), scratch, sizeof scratch, nullptr);
        if (*in.st == 0) break;
        zur_store_err(in.D, *in.st);
        if (*in.st == 0) break;
        if (*in.st != ZUR_ABSENT) {
            found = count;
            break;
        }
        *in.st = 0;
    }
    in.paths.leave(outer);
    if (*in.st != 0 && in.message != nullptr) std::snprintf(in.message, in.message_size, "Failed xpath: %s", path);
    return found;
}

/// Stores the number without announcing it, whatever the Instance's variant.
template <const Enum& E>
void read(const XmlReader& in, const char* path, Instance* x) {
    if (*in.st != 0) return;
    zur_clear_last_error(in.D);
    const std::uint32_t found = find_enumerator(in, path, enumerator_names<E>.data(), E.count);
    if (found < E.count) *at<std::uint32_t>(x, catalogue::header_length) = found;
}

template <const Record& R>
void read(const XmlReader& in, const char* path, Instance* x);

/// Reads a value of the type of field I, or of its elements' type, under the last path spelled.
template <const Record& R, std::size_t I>
void read_as(const XmlReader& in, const char* path, void* value) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        read<*f.enumeration>(in, path, header(value));
    else if constexpr (f.is_of_record())
        read<*f.record>(in, path, header(value));
    else
        Codec<*f.foreign>::from_xml(in.D, in.S, path, in.document, value, in.st, in.message, in.message_size);
}

using SetText = void (*)(Domain* D, std::uint32_t S, Instance* x, const char* source, std::uint32_t length,
                         std::uint32_t* st);

/// Asks for a text's length, fetches the text and passes it to its setter. An error from the first question stays in
/// the status word. For an absent text the check after the next field clears it, and that field is not read; a text in
/// that place overwrites it. After the last field it stays.
[[gnu::noinline]] inline bool read_text(const XmlReader& in, const char* path, Instance* x, SetText set) {
    std::uint32_t length = 0;
    *in.st = xml_get_element_value(in.document, path, nullptr, 0, &length);
    if (*in.st == 0) return true;
    zur_store_err(in.D, *in.st);
    if (*in.st != ZUR_BUFFER_TOO_SMALL) return true;
    *in.st = 0;
    // The room is counted in 32 bits, so the longest length would leave none for the NUL.
    const bool is_countable = length != UINT32_MAX;
    auto* characters = static_cast<char*>(is_countable ? allocate(in.D, in.S, std::size_t{length} + 1) : nullptr);
    if (characters == nullptr) {
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return false;
    }
    var_string_from_xml(in.D, in.S, path, in.document, characters, length + 1, in.st, in.message, in.message_size);
    if (*in.st == 0) set(in.D, in.S, x, characters, length, in.st);
    const bool goes_on = in.goes_on();
    release(in.D, in.S, characters);
    return goes_on;
}

template <const Record& R, std::size_t I>
bool read_run(const XmlReader& in, Instance* x) {
    for (std::uint32_t i = 0; i < R.fields[I].capacity; ++i) {
        void* element = at(field<R, I>(x), i * element_length<R, I>);
        read_as<R, I>(in, in.paths.spell_next(name_of<R, I>, i + 1), element);
        if (*in.st != 0) return in.goes_on();
    }
    return true;
}

/// Reads elements one at a time through a holder, until one is absent. If there is no holder, leaves the error for the
/// check after the next field.
template <const Record& R, std::size_t I>
bool read_values(const XmlReader& in, Instance* x) {
    static_assert(std::string_view(R.fields[I].foreign->name) == "u_int32", "there are holders of this type only");
    void* holder = u_int32_create(in.D, in.S);
    for (std::uint32_t i = 1; holder != nullptr; ++i) {
        read_as<R, I>(in, in.paths.spell_next(name_of<R, I>, i), holder);
        if (*in.st != 0 || in.paths.is_cut()) {
            const bool goes_on = in.goes_on();
            u_int32_destroy(in.D, in.S, holder);
            return goes_on;
        }
        access::set<R, I>(in.D, in.S, x, i - 1, holder, in.st);
        u_int32_destroy(in.D, in.S, holder);
        holder = u_int32_create(in.D, in.S);
    }
    fail(in.D, in.st, ZUR_NO_MEMORY);
    return true;
}

/// Appends an element to a list. If it cannot be linked, it has no owner, so it is destroyed.
template <const Record& R, std::size_t I>
void append(const XmlReader& in, Instance* x, Instance* element) {
    constexpr const Record& element_type = *R.fields[I].record;
    access::list_set_last<R, I>(in.D, in.S, x, element, in.st);
    if (*in.st != 0 && at<Links>(element, catalogue::layout<element_type>.links)->list_head == nullptr)
        lifecycle::destroy_internal<element_type>(in.D, in.S, element, 1);
}

/// Reads the records of an array or list, each into an Instance of its own, until one is absent. An array takes over
/// the Instance's content, a list takes the Instance itself.
template <const Record& R, std::size_t I>
void read_records(const XmlReader& in, Instance* x) {
    constexpr const Field& f = R.fields[I];
    constexpr const Record& element_type = *f.record;
    Instance* element = lifecycle::create<element_type>(in.D, in.S);
    for (std::uint32_t i = 1; element != nullptr; ++i) {
        read_as<R, I>(in, in.paths.spell_next(name_of<R, I>, i), element);
        if (*in.st != 0 || in.paths.is_cut()) {
            in.goes_on();
            lifecycle::destroy_internal<element_type>(in.D, in.S, element, 1);
            return;
        }
        if constexpr (f.kind == Kind::list) {
            append<R, I>(in, x, element);
        } else {
            access::set<R, I>(in.D, in.S, x, i - 1, element, 1, in.st);
            lifecycle::destroy_internal<element_type>(in.D, in.S, element, 1);
        }
        element = lifecycle::create<element_type>(in.D, in.S);
    }
    fail(in.D, in.st, ZUR_NO_MEMORY);
}

/// Reads the arm that the tag selects into a new Instance, which stays in its slot even if reading fails. Does not
/// release what was in the slot: the record is expected to be fresh.
template <const Record& R, std::size_t I>
bool read_arm(const XmlReader& in, Instance* x) {
    if (!is_selected<R, I>(x)) return true;
    auto** slot = field<R, I, Instance*>(x);
    announce(in.D, in.S, slot, pointer_length, x);
    *slot = lifecycle::create<*R.fields[I].record>(in.D, in.S);
    if (*slot == nullptr) {
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return false;
    }
    read_as<R, I>(in, in.paths.spell(counted(arm_label<R, I, "", "-">)), *slot);
    return in.goes_on();
}

/// Whether reading the field allocates memory that only destruction releases; destruction skips later variants.
template <const Record& R, std::size_t I>
inline constexpr bool owns_what_is_read =
    R.fields[I].kind == Kind::arm || R.fields[I].kind == Kind::object || R.fields[I].kind == Kind::embedded;

/// Reads one field. Returns false when the reader must stop. Lengths are not read; the setters write them.
template <const Record& R, std::size_t I>
bool read_field(const XmlReader& in, Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (owns_what_is_read<R, I>)
        if (x->variant < f.since) return true;
    if constexpr (f.kind == Kind::length) {
        return true;
    } else if constexpr (f.kind == Kind::text) {
        return read_text(in, in.paths.spell(name_of<R, I>), x, &access::set<R, I>);
    } else if constexpr (f.kind == Kind::characters) {
        null_string_from_xml(in.D, in.S, in.paths.spell(name_of<R, I>), in.document, field<R, I, char>(x), f.capacity,
                             in.st, in.message, in.message_size);
        return in.goes_on();
    } else if constexpr (f.kind == Kind::run) {
        return read_run<R, I>(in, x);
    } else if constexpr (f.kind == Kind::array && !f.is_of_record()) {
        return read_values<R, I>(in, x);
    } else if constexpr (f.kind == Kind::array || f.kind == Kind::list) {
        static_assert(I + 1 == R.count, "the reader ends with the last of these elements");
        read_records<R, I>(in, x);
        return false;
    } else if constexpr (f.kind == Kind::arm) {
        return read_arm<R, I>(in, x);
    } else {
        read_as<R, I>(in, in.paths.spell(name_of<R, I>), field<R, I>(x));
        return in.goes_on();
    }
}

template <const Record& R, std::size_t... I>
bool read_fields(const XmlReader& in, Instance* x, std::index_sequence<I...>) {
    return (read_field<R, I>(in, x) && ...);
}

/// Reads numbers whatever the Instance's variant.
template <const Record& R>
[[gnu::noinline]] void read(const XmlReader& in, const char* path, Instance* x) {
    if (*in.st != 0) return;
    zur_clear_last_error(in.D);
    std::uint32_t count = 0;
    if (xml_get_element_nodecount(in.document, path, &count) != 0 || count == 0) {
        fail(in.D, in.st, ZUR_ABSENT);
        return;
    }
    const Paths::Level outer = in.paths.enter();
    read_fields<R>(in, x, std::make_index_sequence<R.count>{});
    in.paths.leave(outer);
}

template <const auto& T>
void from_xml(Domain* D, std::uint32_t S, const char* path, zur_xml_document* document, Instance* x, std::uint32_t* st,
              char* message, std::uint32_t message_size) {
    if (*st != 0) return;
    Paths paths(path);
    read<T>({D, S, paths, document, st, message, message_size}, path, x);
}

} // namespace epm::text
