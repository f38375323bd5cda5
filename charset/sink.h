// SPDX-License-Identifier: MIT
// A type-erased byte sink over an output iterator.
//
// The conversion code lives in .cc files and works on char const* ranges,
// while the public templates accept any back-inserting output. sink_t bridges
// the two with one indirect call per chunk instead of one per byte; when the
// output is a back_insert_iterator the chunk is appended with a single insert.
#pragma once

#include <algorithm>
#include <iterator>
#include <type_traits>

namespace charset {

namespace detail {

template <typename T> struct is_back_inserter : std::false_type {};
template <typename C> struct is_back_inserter<std::back_insert_iterator<C>> : std::true_type { using container_t = C; };

// back_insert_iterator keeps its container in a protected member; a derived
// type may name it.
template <typename C> struct container_access_t : std::back_insert_iterator<C> {
  static C& of(std::back_insert_iterator<C>& it) { return *(it.*(&container_access_t::container)); }
};

} // namespace detail

class sink_t {
public:
  template <typename OutputIt> explicit sink_t(OutputIt& out) : target_(&out), append_(&append_through<OutputIt>) {}

  void operator()(char const* first, char const* last) const {
    if (first != last)
      append_(target_, first, last);
  }

private:
  template <typename OutputIt> static void append_through(void* target, char const* first, char const* last) {
    auto& out = *static_cast<OutputIt*>(target);
    if constexpr (detail::is_back_inserter<OutputIt>::value) {
      auto& container = detail::container_access_t<typename detail::is_back_inserter<OutputIt>::container_t>::of(out);
      container.insert(container.end(), first, last);
    } else {
      out = std::copy(first, last, out);
    }
  }

  void* target_;
  void (*append_)(void*, char const*, char const*);
};

} // namespace charset
