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

// Calls each with the contact of every mailbox of the fields in their order,
// each once however many of the fields name it, until each returns false.
template <typename each_t> void for_each_contact(std::initializer_list<mailboxes_t const*> fields, each_t each) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (mailboxes_t const* field : fields)
    for (tidewell::mailbox_t const& mailbox : *field)
      if (std::string text = contact(mailbox); !text.empty() && seen.emplace(mailbox.name, mailbox.address).second)
        if (!each(std::move(text)))
          return;
}

// Appends item to list, ", " between items, and says whether list still
// holds no more than max_bytes: past that the rest could not be handed over,
// so a list of millions is neither joined nor looked at whole.
bool append_item(std::string& list, std::string_view item, std::size_t max_bytes) {
  list.append(list.empty() ? "" : ", ").append(item);
  return list.size() <= max_bytes;
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
      QString const subject = qstring(text::cut(*message.subject, max_subject_bytes));
      result.add(KFileMetaData::Property::Title, subject);
      result.add(KFileMetaData::Property::Subject, subject);
    }
    std::size_t authors = 0;
    for_each_contact({&message.from}, [&](std::string author) {
      result.add(KFileMetaData::Property::Author, qstring(author));
      return ++authors < max_authors;
    });
    if (message.date)
      result.add(KFileMetaData::Property::CreationDate,
                 QDateTime::fromSecsSinceEpoch(message.date->instant.time_since_epoch().count(), Qt::UTC));
  }

  if (flags & ExtractionResult::ExtractPlainText) {
    // Strictly below the limit.
    std::size_t budget = max_text_bytes - 1;
    // The senders past the Author bound, then the recipients.
    std::string people;
    std::size_t authors = 0;
    for_each_contact({&message.from}, [&](std::string author) {
      return ++authors <= max_authors || append_item(people, author, budget);
    });
    if (people.size() <= budget)
      for_each_contact({&message.to, &message.cc, &message.bcc},
                       [&](std::string recipient) { return append_item(people, recipient, budget); });
    append_within(result, people, budget);
    std::string names;
    for (tidewell::attachment_t const& attachment : message.attachments)
      if (!append_item(names, attachment.file_name, budget))
        break;
    append_within(result, names, budget);
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
