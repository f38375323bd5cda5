// SPDX-License-Identifier: MIT
#include "hosts/kde/message.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

#include <QDateTime>
#include <QString>

namespace kde_host {
namespace {

using KFileMetaData::ExtractionResult;
namespace attribute = importer::attribute;

std::string const* string_of(importer::attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  return value ? std::get_if<std::string>(value) : nullptr;
}

std::vector<std::string> const& list_of(importer::attribute_set_t const& attributes, std::string_view name) {
  static std::vector<std::string> const none;
  auto const* value = attributes.find(name);
  auto const* list = value ? std::get_if<std::vector<std::string>>(value) : nullptr;
  return list ? *list : none;
}

QString qstring(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

// "Name <address>" for each mailbox of a names list and its parallel
// addresses list, or whichever of the two a mailbox has. Lists that are not
// parallel (the desktop reading gives a field's name and address in separate
// lists) cannot be paired, so each entry then stands alone.
std::vector<std::string> contacts(importer::attribute_set_t const& attributes, std::string_view names_attribute,
                                  std::string_view addresses_attribute) {
  auto const& names = list_of(attributes, names_attribute);
  auto const& addresses = list_of(attributes, addresses_attribute);
  std::vector<std::string> result;
  if (names.size() == addresses.size()) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (names[i].empty() || addresses[i].empty())
        result.push_back(names[i] + addresses[i]);
      else
        result.push_back(names[i] + " <" + addresses[i] + ">");
    }
  } else {
    result = names;
    result.insert(result.end(), addresses.begin(), addresses.end());
  }
  std::erase_if(result, [](std::string const& contact) { return contact.empty(); });
  return result;
}

std::string joined(std::vector<std::string> const& items) {
  std::string text;
  for (std::string const& item : items)
    text.append(text.empty() ? "" : ", ").append(item);
  return text;
}

// Appends text within what is left of budget and takes its size from it.
void append_within(ExtractionResult& result, std::string_view text, std::size_t& budget) {
  std::string_view const part = cut_text(text, budget);
  if (part.empty())
    return;
  result.append(qstring(part));
  budget -= part.size();
}

} // namespace

std::optional<std::string> read_file_prefix(char const* path, std::size_t max_bytes) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error))
    return std::nullopt;
  std::uintmax_t const size = std::filesystem::file_size(path, error);
  std::ifstream file(path, std::ios::binary);
  if (error || !file)
    return std::nullopt;
  // The size is only a hint: the file may grow or shrink while it is read.
  std::string bytes(static_cast<std::size_t>(std::min<std::uintmax_t>(size, max_bytes)), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (file.bad())
    return std::nullopt;
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

void fill(importer::attribute_set_t const& attributes, ExtractionResult& result) {
  result.addType(KFileMetaData::Type::Document);
  ExtractionResult::Flags const flags = result.inputFlags();

  if (flags & ExtractionResult::ExtractMetaData) {
    if (std::string const* subject = string_of(attributes, attribute::subject)) {
      result.add(KFileMetaData::Property::Title, qstring(*subject));
      result.add(KFileMetaData::Property::Subject, qstring(*subject));
    }
    for (std::string const& author : contacts(attributes, attribute::authors, attribute::author_email_addresses))
      result.add(KFileMetaData::Property::Author, qstring(author));
    if (auto const* value = attributes.find(attribute::content_creation_date))
      if (auto const* sent = std::get_if<importer::instant_t>(value))
        result.add(KFileMetaData::Property::CreationDate,
                   QDateTime::fromSecsSinceEpoch(sent->time_since_epoch().count(), Qt::UTC));
  }

  if (flags & ExtractionResult::ExtractPlainText) {
    // Strictly below the limit.
    std::size_t budget = max_text_bytes - 1;
    append_within(result, joined(contacts(attributes, attribute::recipients, attribute::recipient_email_addresses)),
                  budget);
    append_within(result, joined(list_of(attributes, importer::full_attribute::attachment_names)), budget);
    if (std::string const* text = string_of(attributes, attribute::text_content))
      append_within(result, *text, budget);
  }
}

std::string_view cut_text(std::string_view text, std::size_t max_bytes) {
  if (text.size() <= max_bytes)
    return text;
  std::size_t end = max_bytes;
  // Step back over continuation bytes to the start of the character that
  // would be cut; that character is left out whole.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  constexpr std::size_t word_reach = 64;
  std::size_t const space = text.find_last_of(" \t\n", end);
  if (space != std::string_view::npos && end - space <= word_reach)
    end = space;
  return text.substr(0, end);
}

} // namespace kde_host
