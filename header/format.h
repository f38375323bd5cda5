// SPDX-License-Identifier: MIT
// Display names and addresses between their textual forms.
//
// A person is kept as a (name, address) pair and written in one of three
// forms: rfc822 ("Name" quoted as RFC 822 needs, backslash escapes, read back
// with the full address parser), display (the name as it is; meant only for
// showing, so it is never read back) and angle_split (quoted with doubled
// quotes only when the name holds '<', '>' or '@', read back purely by the
// position of the last '<' and '>', so any name survives a round trip).
#pragma once

#include <string>
#include <utility>

namespace header {

enum class name_format_t : int { rfc822 = 0, display = 1, angle_split = 2 };

// "name <address>", or the address alone when the name is empty; both are
// trimmed of " \r\n\t" first.
std::string format_name_and_address(std::string const& name, std::string const& address, name_format_t format);

// (name, address) read from text written in format.
//
// Precondition: format is not name_format_t::display. The display form is
// one-way by design; asking to read it is a programming error that prints a
// fixed line to standard error and aborts. Nothing in the import path or the
// command-line tool reads that form.
std::pair<std::string, std::string> split_name_and_address(std::string const& text, name_format_t format);

// split_name_and_address with from, then format_name_and_address with to.
// Same precondition on from.
std::string reformat_name_and_address(std::string const& text, name_format_t from, name_format_t to);

} // namespace header
