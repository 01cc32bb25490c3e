// The accessors that the text forms lean on: the writer reads element flags through one, the reader hands what it has
// fetched to the others. They are defined with the other accessors.
#pragma once

#include "frame/instance.hpp"

namespace epm::access {

/// Sets a text.
template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, const char* source, std::uint32_t length, std::uint32_t* st);

/// Sets an element of an array of values.
template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, void* source, std::uint32_t* st);

/// Sets an element of an array of records.
template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, Instance* source, std::uint32_t move,
         std::uint32_t* st);

/// Appends an element to a list.
template <const Record& R, std::size_t I>
void list_set_last(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st);

/// Reads the flag of one element.
template <const Record& R, std::size_t I>
std::uint8_t element_flag_get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st);

} // namespace epm::access
