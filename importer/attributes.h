// SPDX-License-Identifier: MIT
// The host-neutral result of one import.
//
// An attribute set maps attribute names ("kMDItemSubject", ...) to a string,
// an instant or a list of strings. Hosts turn it into what they speak: a
// Foundation dictionary, JSON, RDF. Keys are kept sorted so every host sees
// the same, reproducible order.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <boost/container/flat_map.hpp>

namespace importer {

using instant_t = std::chrono::sys_seconds;
using attribute_value_t = std::variant<std::string, instant_t, std::vector<std::string>>;

class attribute_set_t {
public:
  using map_t = boost::container::flat_map<std::string, attribute_value_t, std::less<>>;

  // Keyed assignment: a later value under the same name replaces the earlier.
  void set(std::string_view name, attribute_value_t value) {
    map_.insert_or_assign(std::string(name), std::move(value));
  }
  void erase(std::string_view name) {
    if (auto it = map_.find(name); it != map_.end())
      map_.erase(it);
  }
  attribute_value_t const* find(std::string_view name) const {
    auto it = map_.find(name);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool empty() const { return map_.empty(); }
  std::size_t size() const { return map_.size(); }
  map_t::const_iterator begin() const { return map_.begin(); }
  map_t::const_iterator end() const { return map_.end(); }

private:
  map_t map_;
};

// The attribute names the importer writes.
namespace attribute {
inline constexpr std::string_view subject = "kMDItemSubject";
inline constexpr std::string_view display_name = "kMDItemDisplayName";
inline constexpr std::string_view text_content = "kMDItemTextContent";
inline constexpr std::string_view content_creation_date = "kMDItemContentCreationDate";
inline constexpr std::string_view date_received = "com_apple_mail_dateReceived";
inline constexpr std::string_view authors = "kMDItemAuthors";
inline constexpr std::string_view author_email_addresses = "kMDItemAuthorEmailAddresses";
inline constexpr std::string_view recipients = "kMDItemRecipients";
inline constexpr std::string_view recipient_email_addresses = "kMDItemRecipientEmailAddresses";
} // namespace attribute

} // namespace importer
