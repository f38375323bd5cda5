// SPDX-License-Identifier: MIT
#include "hosts/kde/message.h"

#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <QDateTime>
#include <QString>

#include "text/utf8.h"

namespace kde_host {
namespace {

using KFileMetaData::ExtractionResult;
using mailboxes_t = std::vector<tidewell::mailbox_t>;

QString qstring(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

// "Name <address>", or whichever of the two the mailbox has; empty for a
// mailbox with neither.
std::string contact(tidewell::mailbox_t const& mailbox) {
  if (mailbox.name.empty() || mailbox.address.empty())
    return mailbox.name + mailbox.address;
  return mailbox.name + " <" + mailbox.address + ">";
}

// The contacts of the fields in their order, each once however many of the
// fields name it.
std::vector<std::string> contacts(std::initializer_list<mailboxes_t const*> fields) {
  std::vector<std::string> result;
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (mailboxes_t const* field : fields)
    for (tidewell::mailbox_t const& mailbox : *field)
      if (std::string text = contact(mailbox); !text.empty() && seen.emplace(mailbox.name, mailbox.address).second)
        result.push_back(std::move(text));
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

void fill(tidewell::message_t const& message, ExtractionResult& result) {
  result.addType(KFileMetaData::Type::Document);
  ExtractionResult::Flags const flags = result.inputFlags();

  if (flags & ExtractionResult::ExtractMetaData) {
    if (message.subject) {
      result.add(KFileMetaData::Property::Title, qstring(*message.subject));
      result.add(KFileMetaData::Property::Subject, qstring(*message.subject));
    }
    for (std::string const& author : contacts({&message.from}))
      result.add(KFileMetaData::Property::Author, qstring(author));
    if (message.date)
      result.add(KFileMetaData::Property::CreationDate,
                 QDateTime::fromSecsSinceEpoch(message.date->instant.time_since_epoch().count(), Qt::UTC));
  }

  if (flags & ExtractionResult::ExtractPlainText) {
    // Strictly below the limit.
    std::size_t budget = max_text_bytes - 1;
    append_within(result, joined(contacts({&message.to, &message.cc, &message.bcc})), budget);
    std::vector<std::string> names;
    names.reserve(message.attachments.size());
    for (tidewell::attachment_t const& attachment : message.attachments)
      names.push_back(attachment.file_name);
    append_within(result, joined(names), budget);
    if (message.text)
      append_within(result, *message.text, budget);
  }
}

std::string_view cut_text(std::string_view text, std::size_t max_bytes) {
  std::string_view const cut = text::cut(text, max_bytes);
  if (cut.size() == text.size())
    return cut;
  // A half word would be indexed as a word: end before the last space when
  // it is near.
  constexpr std::size_t word_reach = 64;
  std::size_t const space = text.find_last_of(" \t\n", cut.size());
  if (space != std::string_view::npos && cut.size() - space <= word_reach)
    return text.substr(0, space);
  return cut;
}

} // namespace kde_host
