// SPDX-License-Identifier: MIT
// The iconv engine: a byte range in a named charset through the platform's
// iconv, strict or tolerant (see iconv_convert.cc). It decides nothing about
// which charset a text is in; that is convert_to_utf8's work (convert.h),
// which calls down into this, as the Japanese converter does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "charset/sink.h"
#include "error/handler.h"

namespace charset {

namespace detail {

char const* convert(char const* first, char const* last, sink_t out, std::string const& from_charset,
                    std::string const& to_charset, std::uint64_t* error_count, quern::error::handler_t* problems);

template <typename InputIt> char const* address(InputIt it) {
  return std::to_address(it);
}

} // namespace detail

// iconv from from_charset to to_charset, appended to out. A null error_count
// is strict mode: conversion stops at the first undecodable sequence. A
// counter is tolerant mode: each undecodable byte is written as the text
// <U+XX> (bytes below 0x80 as themselves) and counted. Returns where the
// conversion stopped: last when all was converted.
template <typename InputIt, typename OutputIt>
InputIt convert(InputIt first, InputIt last, OutputIt out, std::string const& from_charset,
                std::string const& to_charset, std::uint64_t* error_count, quern::error::handler_t* problems) {
  char const* const begin = detail::address(first);
  char const* const stop =
      detail::convert(begin, begin + (last - first), sink_t(out), from_charset, to_charset, error_count, problems);
  return first + (stop - begin);
}

} // namespace charset
