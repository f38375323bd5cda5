// SPDX-License-Identifier: MIT
// From bytes to a typed message.
//
// The header block is scanned once for every field a message_t holds, the
// body is walked once for its text and its attachments, and each field is
// then read from what those two passes found: address fields as lists of
// mailboxes (every mailbox in the full reading, the one mailbox the desktop
// host reads otherwise), dates with their zones, identifiers without their
// brackets. The full reading repairs what is not well-formed UTF-8 with
// U+FFFD; the desktop reading leaves such a value out, as its host does.
#include "importer/message.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <unordered_set>

#include "email/body.h"
#include "email/headers.h"
#include "error/handler.h"
#include "importer/addresses.h"
#include "importer/import.h"
#include "text/line_ends.h"
#include "text/utf8.h"

namespace tidewell {
namespace {

using namespace std::string_view_literals;

email::header_set_t const& wanted_fields() {
  static email::header_set_t const wanted{"from",
                                          "sender",
                                          "reply-to",
                                          "to",
                                          "cc",
                                          "bcc",
                                          "subject",
                                          "date",
                                          "received",
                                          "message-id",
                                          "in-reply-to",
                                          "references",
                                          "content-type",
                                          "content-transfer-encoding",
                                          "content-disposition",
                                          "content-id"};
  return wanted;
}

// Without the thread identifiers: a caller that does not want them does not
// pay for decoding a long References field.
email::header_set_t const& wanted_fields_without_ids() {
  static email::header_set_t const wanted = [] {
    email::header_set_t set = wanted_fields();
    set.erase("message-id");
    set.erase("in-reply-to");
    set.erase("references");
    return set;
  }();
  return wanted;
}

class builder_t {
public:
  builder_t(options_t const& options, std::string raw_charset)
      : options_(options), raw_charset_(std::move(raw_charset)) {}

  // A value in this reading's terms: repaired in the full reading, left out
  // when it is not well-formed in the desktop one.
  std::optional<std::string> value(std::string value) const {
    if (importer::is_well_formed_utf8(value))
      return value;
    if (options_.reading == reading_t::desktop)
      return std::nullopt;
    return text::repair(value);
  }

  std::vector<mailbox_t> mailboxes(std::string const* field) const {
    std::vector<mailbox_t> result;
    if (!field)
      return result;
    std::vector<std::string> names, addresses;
    if (options_.reading == reading_t::desktop) {
      // The whole field is one mailbox: at most one name and one address.
      importer::parse_addresses(*field, names, addresses);
      mailbox_t mailbox;
      if (!names.empty())
        mailbox.name = value(std::move(names.front())).value_or(std::string());
      if (!addresses.empty())
        mailbox.address = value(std::move(addresses.front())).value_or(std::string());
      if (!mailbox.name.empty() || !mailbox.address.empty())
        result.push_back(std::move(mailbox));
      return result;
    }
    importer::parse_mailboxes(*field, names, addresses, raw_charset_);
    result.reserve(names.size());
    // A mailbox written twice in one field, or in two fields of the same
    // name, is listed once. A set only for long lists: most hold a handful.
    std::unordered_set<std::string> seen;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      mailbox_t mailbox{*value(std::move(names[i])), *value(std::move(addresses[i]))};
      bool repeated = false;
      if (addresses.size() <= 16) {
        repeated = std::find(result.begin(), result.end(), mailbox) != result.end();
      } else {
        std::string key = mailbox.name;
        key.append(1, '\0').append(mailbox.address);
        repeated = !seen.insert(std::move(key)).second;
      }
      if (!repeated)
        result.push_back(std::move(mailbox));
    }
    return result;
  }

private:
  options_t const& options_;
  std::string raw_charset_; // the header block's raw 8-bit text's, in the full reading
};

std::string const* find(email::header_map_t const& map, std::string_view key) {
  auto const it = map.find(key);
  return it == map.end() ? nullptr : &it->second;
}

std::optional<date_t> typed(std::optional<date::zoned_t> const& zoned) {
  if (!zoned)
    return std::nullopt;
  return date_t{zoned->instant, zoned->offset};
}

bool is_id_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',';
}

// The identifiers of a Message-ID, In-Reply-To or References value: what
// stands between '<' and '>' (white space a fold left inside removed), or,
// in a value without any '<', its words.
std::vector<std::string> message_ids(std::string_view value) {
  std::vector<std::string> ids;
  if (value.find('<') != std::string_view::npos) {
    std::size_t at = 0;
    while (at < value.size()) {
      auto const open = value.find('<', at);
      if (open == std::string_view::npos)
        break;
      auto const close = value.find('>', open + 1);
      if (close == std::string_view::npos)
        break;
      std::string id;
      for (char const c : value.substr(open + 1, close - open - 1))
        if (!is_id_blank(c))
          id.push_back(c);
      if (!id.empty())
        ids.push_back(std::move(id));
      at = close + 1;
    }
    return ids;
  }
  std::size_t at = 0;
  while (at < value.size()) {
    while (at < value.size() && is_id_blank(value[at]))
      ++at;
    std::size_t end = at;
    while (end < value.size() && !is_id_blank(value[end]))
      ++end;
    if (end > at)
      ids.emplace_back(value.substr(at, end - at));
    at = end;
  }
  return ids;
}

std::vector<problem_t> problems_of(quern::error::handler_t const& handler) {
  std::vector<problem_t> problems;
  problems.reserve(handler.entries().size());
  for (auto const& entry : handler.entries()) {
    problem_t problem{entry.code, entry.offset, {}, {}};
    if (auto it = entry.record.find("description"); it != entry.record.end())
      problem.text = it->second;
    if (auto it = entry.record.find("context"); it != entry.record.end())
      problem.context = it->second;
    problems.push_back(std::move(problem));
  }
  return problems;
}

message_t parse_lf(char const* first, char const* last, options_t const& options) {
  message_t message;
  if (first == last)
    return message;
  bool const full = options.reading == reading_t::full;
  email::reading_t const reading = full ? email::reading_t::full : email::reading_t::desktop;
  quern::error::handler_t handler;
  quern::error::handler_t* const problems = options.problems ? &handler : nullptr;

  email::header_dates_t dates;
  char const* cursor = first;
  email::header_map_t map = email::quick_parse_headers(
      cursor, last, options.thread_ids ? wanted_fields() : wanted_fields_without_ids(), reading, problems, &dates);
  email::body_t body;
  {
    quern::error::offset_scope_t const at_body(problems, static_cast<std::size_t>(cursor - first));
    body = email::read_body(cursor, last, map, true, reading, full && options.attachments, problems);
  }

  std::string const* const raw_charset = find(map, email::raw_charset_key);
  builder_t const builder(options, raw_charset ? *raw_charset : std::string());
  if (auto const subject = map.find("subject"sv); subject != map.end())
    message.subject = builder.value(std::move(subject->second));
  message.from = builder.mailboxes(find(map, "from"));
  message.sender = builder.mailboxes(find(map, "sender"));
  message.reply_to = builder.mailboxes(find(map, "reply-to"));
  message.to = builder.mailboxes(find(map, "to"));
  message.cc = builder.mailboxes(find(map, "cc"));
  message.bcc = builder.mailboxes(find(map, "bcc"));
  message.date = typed(dates.date);
  message.received = typed(dates.received);
  if (options.thread_ids) {
    auto ids_of = [&](std::string_view key) {
      std::vector<std::string> ids;
      if (std::string const* field = find(map, key))
        for (std::string& id : message_ids(*field))
          if (auto valid = builder.value(std::move(id)))
            ids.push_back(std::move(*valid));
      return ids;
    };
    if (auto ids = ids_of("message-id"); !ids.empty())
      message.message_id = std::move(ids.front());
    if (auto ids = ids_of("in-reply-to"); !ids.empty())
      message.in_reply_to = std::move(ids.front());
    message.references = ids_of("references");
  }
  if (body.text)
    message.text = builder.value(std::move(*body.text));
  message.attachments.reserve(body.attachments.size());
  for (email::attachment_t& part : body.attachments)
    message.attachments.push_back({*builder.value(std::move(part.file_name)), std::move(part.media_type), part.size,
                                   *builder.value(std::move(part.content_id)), std::move(part.disposition)});
  if (problems)
    message.problems = problems_of(handler);
  return message;
}

// Problems were placed in the bytes with CR LF read as LF; each CR taken out
// before a place moves it one byte on in the bytes as given.
void place_in_original(std::vector<problem_t>& problems, char const* first, char const* last) {
  std::vector<std::size_t> removed; // where each taken-out CR's LF is, in the LF bytes
  std::size_t taken = 0;
  for (char const* p = first; p + 1 < last; ++p)
    if (p[0] == '\r' && p[1] == '\n') {
      removed.push_back(static_cast<std::size_t>(p - first) - taken);
      ++taken;
    }
  for (problem_t& problem : problems)
    problem.offset +=
        static_cast<std::size_t>(std::lower_bound(removed.begin(), removed.end(), problem.offset) - removed.begin());
}

// Reads fd to its end, or to max_bytes and one more (to tell that there is
// more), into bytes; false with errno's error when a read fails.
// A buffer of uninitialised bytes: a message is read straight into it, so
// nothing is cleared first that the read overwrites anyway.
struct read_buffer_t {
  std::unique_ptr<char[]> data;
  std::size_t size = 0;

  void grow(std::size_t wanted, std::size_t keep) {
    if (wanted <= size)
      return;
    std::unique_ptr<char[]> bigger(new char[wanted]);
    if (keep > 0) // the first buffer has nothing to keep, and memcpy may not be given null
      std::memcpy(bigger.get(), data.get(), keep);
    data = std::move(bigger);
    size = wanted;
  }
};

// Reads at most max_bytes + 1 bytes of fd into buffer (so a cut can be
// told); their number, or nothing with error set.
std::optional<std::size_t> read_all(int fd, std::uint64_t max_bytes, read_buffer_t& buffer, std::error_code& error) {
  std::size_t const limit =
      static_cast<std::size_t>(std::min<std::uint64_t>(max_bytes, std::numeric_limits<std::size_t>::max() - 1)) + 1;
  struct stat status {};
  std::size_t expected = 0;
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0)
    expected = static_cast<std::size_t>(status.st_size);
  // The size is a hint only: the file may grow or shrink while it is read.
  buffer.grow(std::min(limit, std::max<std::size_t>(expected + 1, 64 * 1024)), 0);
  std::size_t length = 0;
  while (length < limit) {
    if (length == buffer.size)
      buffer.grow(std::min(limit, buffer.size * 2), length);
    ssize_t const got = ::read(fd, buffer.data.get() + length, std::min(buffer.size, limit) - length);
    if (got > 0) {
      length += static_cast<std::size_t>(got);
      continue;
    }
    if (got == 0 || errno == EAGAIN || errno == EWOULDBLOCK)
      break;
    if (errno == EINTR)
      continue;
    error = std::error_code(errno, std::generic_category());
    return std::nullopt;
  }
  return length;
}

} // namespace

message_t parse(std::string_view bytes, options_t const& options) {
  bool const cut = bytes.size() > options.max_bytes;
  if (cut)
    bytes = bytes.substr(0, static_cast<std::size_t>(options.max_bytes));
  char const* const first = bytes.data();
  char const* const last = first + bytes.size();
  message_t message;
  if (options.line_ends == line_ends_t::crlf_as_lf && text::has_crlf(first, last)) {
    std::string lf;
    lf.reserve(bytes.size());
    text::crlf_to_lf(first, last, std::back_inserter(lf));
    message = parse_lf(lf.data(), lf.data() + lf.size(), options);
    if (!message.problems.empty())
      place_in_original(message.problems, first, last);
  } else if (options.reading == reading_t::full && options.line_ends == line_ends_t::crlf_as_lf &&
             text::has_cr_line_ends(first, last)) {
    // Old Mac mail: lines end in CR alone. Read as LF, in place, so every
    // problem's place is already its place in the bytes as given.
    std::string lf;
    lf.reserve(bytes.size());
    text::cr_to_lf(first, last, std::back_inserter(lf));
    message = parse_lf(lf.data(), lf.data() + lf.size(), options);
  } else {
    message = parse_lf(first, last, options);
  }
  message.cut = cut;
  return message;
}

message_t parse_fd(int fd, options_t const& options, std::error_code& error) {
  error.clear();
  // One buffer per thread, reused: most messages are small, so after the
  // first few no read allocates; one that grew for a large message is let
  // go rather than kept for the rest of the thread's life.
  thread_local read_buffer_t buffer;
  std::optional<std::size_t> const length = read_all(fd, options.max_bytes, buffer, error);
  message_t message = length ? parse(std::string_view(buffer.data.get(), *length), options) : message_t();
  if (buffer.size > (4u << 20))
    buffer = read_buffer_t();
  return message;
}

message_t parse_file(char const* path, options_t const& options, std::error_code& error) {
  error.clear();
  // Not blocking: a FIFO with no writer would otherwise hold the caller
  // until one comes.
  int const fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    error = std::error_code(errno, std::generic_category());
    return {};
  }
  message_t message = parse_fd(fd, options, error);
  ::close(fd);
  return message;
}

} // namespace tidewell
