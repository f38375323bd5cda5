// SPDX-License-Identifier: MIT
// The Node.js addon tidewell.node: the library's typed message for
// JavaScript, through Node-API (node-addon-api's C++ wrapper), so one build
// works with every Node release that has Node-API 8.
//
// Parsing never runs on the JavaScript thread unless the caller asks for it
// (parseSync): parse is libuv thread-pool work, the batches of parseMany and
// messages go to threads of their own (stream_t), and only the conversion of a finished message into a
// plain JavaScript object happens on the JavaScript thread. That object is
// the command-line tool's full-reading JSON record, key for key with the keys
// in camelCase, built from the same helpers (tidewell::record) the tool
// prints with, so the two cannot drift apart.
//
// A batch is several messages in one piece of work: a hand-off to another
// thread and back costs about as much as parsing a small message, so a
// stream of small messages is handed over a few dozen at a time. The parsed
// batch stays in C++ until JavaScript takes it (take), so the threads go on
// with the next batches while JavaScript converts this one.
//
// Nothing here lets a C++ exception reach Node: the parser does not throw for
// bad mail, and every entry point turns what else could throw (a failed
// allocation, a Node-API call that failed) into a JavaScript exception.
#include <napi.h>
#include <uv.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <boost/locale/utf.hpp>

#include "tidewell/importer/import.h"
#include "tidewell/importer/mbox.h"
#include "tidewell/importer/message.h"
#include "tidewell/importer/record.h"
#include "tidewell/importer/walk.h"

namespace node_binding {
namespace {

// How a message is read: the library's options, and whether the record
// lists the problems.
struct settings_t {
  tidewell::options_t options;
  bool with_problems = false;
};

// UTF-16 text in a buffer that is never zeroed first: it is written whole.
struct utf16_t {
  std::unique_ptr<char16_t[]> units;
  std::size_t size = 0;
};

// One message as it goes back to JavaScript: where it came from and what was
// read.
struct record_t {
  tidewell::record::source_t source;
  bool has_path = false;
  tidewell::message_t message;
  // The text as JavaScript holds it, when it is not ASCII: made on the pool
  // thread, so the JavaScript thread only copies it (V8's own UTF-8 decoding
  // of a long text was the largest part of the conversion).
  std::optional<utf16_t> text16;
  // The path as UTF-8 and, for a path that is not, its %HH form.
  std::string path_text, path_bytes;
  std::string date_text, received_text;
};

bool is_ascii(std::string_view bytes) {
  std::size_t i = 0;
  std::uint64_t high = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data() + i, 8);
    high |= word;
  }
  for (; i < bytes.size(); ++i)
    high |= static_cast<unsigned char>(bytes[i]);
  return (high & 0x8080808080808080ULL) == 0;
}

// UTF-16 of UTF-8, every byte that is not part of a well-formed sequence as
// one U+FFFD, as tidewell::record::repaired_utf8 does.
utf16_t utf16_of(std::string_view bytes) {
  using traits = boost::locale::utf::utf_traits<char>;
  // Never longer than the bytes: a unit per byte at most.
  utf16_t out{std::unique_ptr<char16_t[]>(new char16_t[bytes.size()]), 0};
  char16_t* o = out.units.get();
  char const* p = bytes.data();
  char const* const end = p + bytes.size();
  while (p != end) {
    if (static_cast<unsigned char>(*p) < 0x80) {
      *o++ = static_cast<char16_t>(*p++);
      continue;
    }
    char const* const start = p;
    boost::locale::utf::code_point c = traits::decode(p, end);
    if (c == boost::locale::utf::illegal || c == boost::locale::utf::incomplete) {
      *o++ = u'\uFFFD';
      p = start + 1;
    } else if (c >= 0x10000) {
      c -= 0x10000;
      *o++ = static_cast<char16_t>(0xD800 + (c >> 10));
      *o++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      *o++ = static_cast<char16_t>(c);
    }
  }
  out.size = static_cast<std::size_t>(o - out.units.get());
  return out;
}

// Everything of the conversion that needs no JavaScript, on the pool
// thread: every text made well-formed UTF-8 (one U+FFFD for each byte that
// is not, as in the JSON record), the long text as UTF-16 and the dates as
// their RFC 3339 text.
void repair(std::string& text) {
  if (!is_ascii(text) && !importer::is_well_formed_utf8(text))
    text = tidewell::record::repaired_utf8(text);
}
void repair(std::optional<std::string>& text) {
  if (text)
    repair(*text);
}

void prepare(record_t& r) {
  tidewell::message_t& m = r.message;
  if (r.has_path) {
    if (is_ascii(r.source.path) || importer::is_well_formed_utf8(r.source.path)) {
      r.path_text = r.source.path;
    } else {
      r.path_text = tidewell::record::repaired_utf8(r.source.path);
      r.path_bytes = tidewell::record::path_bytes(r.source.path);
    }
  }
  repair(r.source.error);
  repair(m.subject);
  for (auto* list : {&m.from, &m.sender, &m.reply_to, &m.to, &m.cc, &m.bcc})
    for (tidewell::mailbox_t& mailbox : *list) {
      repair(mailbox.name);
      repair(mailbox.address);
    }
  repair(m.message_id);
  repair(m.in_reply_to);
  for (std::string& id : m.references)
    repair(id);
  for (tidewell::attachment_t& a : m.attachments) {
    repair(a.file_name);
    repair(a.media_type);
    repair(a.content_id);
    repair(a.disposition);
  }
  for (tidewell::problem_t& p : m.problems) {
    repair(p.text);
    repair(p.context);
  }
  if (m.text && !is_ascii(*m.text))
    r.text16 = utf16_of(*m.text);
  else
    repair(m.text);
  if (m.date)
    r.date_text = tidewell::record::rfc3339(*m.date);
  if (m.received)
    r.received_text = tidewell::record::rfc3339(*m.received);
}

// One source of a batch: bytes of its own, or a path to read in the pool.
struct item_t {
  std::string path;
  bool has_path = false;
  bool from_file = false;
  std::string bytes;
  std::size_t number = 0;
  std::string error; // known already (a folder that cannot be listed): nothing to read
};

record_t run(item_t& item, settings_t const& s) {
  record_t r;
  if (item.from_file && item.error.empty()) {
    r.message = tidewell::record::read_path(item.path, s.options, r.source);
  } else {
    r.source.path = std::move(item.path);
    if (!item.error.empty()) {
      r.source.imported = false;
      r.source.error = std::move(item.error);
    } else {
      r.message = tidewell::parse(item.bytes, s.options);
    }
  }
  std::string().swap(item.bytes);
  r.has_path = item.has_path;
  r.source.message = item.number;
  prepare(r);
  return r;
}

// ---------------------------------------------------------------------------
// From C++ values to JavaScript values.
//
// The objects are made by small JavaScript functions (index.js hands them
// over once, setFactories): an object literal in JavaScript is made in one
// step with its final shape, where the same object built from here would
// take a Node-API call for every property. One call makes a record, one a
// whole list of mailboxes, one a date. What needs no JavaScript (repairing
// text that is not UTF-8, the UTF-16 of a long text, the dates' RFC 3339
// text) is done on the pool thread before (prepare).

// The factories, per Node environment (a worker thread has its own).
struct factories_t {
  napi_ref record = nullptr, mailboxes = nullptr, date = nullptr, attachment = nullptr, problem = nullptr;
};

void drop_factories(napi_env env, void* data, void*) {
  auto* const f = static_cast<factories_t*>(data);
  for (napi_ref ref : {f->record, f->mailboxes, f->date, f->attachment, f->problem})
    if (ref)
      napi_delete_reference(env, ref);
  delete f;
}

class builder_t {
public:
  explicit builder_t(napi_env env) : env_(env) {
    void* data = nullptr;
    check(napi_get_instance_data(env, &data));
    auto const* const f = static_cast<factories_t const*>(data);
    if (!f || !f->record)
      throw Napi::Error::New(env, "tidewell: the addon is used through index.js, which sets its factories");
    check(napi_get_reference_value(env, f->record, &record_));
    check(napi_get_reference_value(env, f->mailboxes, &mailboxes_));
    check(napi_get_reference_value(env, f->date, &date_));
    check(napi_get_reference_value(env, f->attachment, &attachment_));
    check(napi_get_reference_value(env, f->problem, &problem_));
    check(napi_get_undefined(env, &undefined_));
    check(napi_get_null(env, &null_));
    check(napi_get_boolean(env, true, &yes_));
    check(napi_get_boolean(env, false, &no_));
    check(napi_create_string_latin1(env, "", 0, &empty_));
  }

  // The record's values in index.js's makeRecord order; undefined for a key
  // the record leaves out.
  napi_value record(record_t const& r) {
    tidewell::message_t const& m = r.message;
    napi_value references = array(m.references.size());
    for (std::size_t i = 0; i < m.references.size(); ++i)
      check(napi_set_element(env_, references, uint32_t(i), string(m.references[i])));
    napi_value attachments = array(m.attachments.size());
    for (std::size_t i = 0; i < m.attachments.size(); ++i) {
      tidewell::attachment_t const& a = m.attachments[i];
      napi_value args[] = {string(a.file_name), string(a.media_type), number(double(a.size)), string(a.content_id),
                           string(a.disposition)};
      check(napi_set_element(env_, attachments, uint32_t(i), call(attachment_, args)));
    }
    napi_value problems = undefined_;
    if (with_problems) {
      problems = array(m.problems.size());
      for (std::size_t i = 0; i < m.problems.size(); ++i) {
        tidewell::problem_t const& p = m.problems[i];
        napi_value args[] = {string(quern::error::name_of(p.code)), number(double(p.offset)), string(p.text),
                             string(p.context)};
        check(napi_set_element(env_, problems, uint32_t(i), call(problem_, args)));
      }
    }
    napi_value text;
    if (r.text16)
      check(napi_create_string_utf16(env_, r.text16->units.get(), r.text16->size, &text));
    else
      text = optional(m.text);
    napi_value args[] = {
        r.has_path ? string(r.path_text) : null_,
        r.path_bytes.empty() ? undefined_ : string(r.path_bytes),
        r.source.message != 0 ? number(double(r.source.message)) : undefined_,
        r.source.imported ? yes_ : no_,
        r.source.error.empty() ? undefined_ : string(r.source.error),
        optional(m.subject),
        mailboxes(m.from),
        mailboxes(m.sender),
        mailboxes(m.reply_to),
        mailboxes(m.to),
        mailboxes(m.cc),
        mailboxes(m.bcc),
        date(m.date, r.date_text),
        date(m.received, r.received_text),
        optional(m.message_id),
        optional(m.in_reply_to),
        references,
        text,
        attachments,
        problems,
        m.cut ? yes_ : undefined_,
    };
    return call(record_, args);
  }

  bool with_problems = false;

private:
  void check(napi_status status) { NAPI_THROW_IF_FAILED_VOID(env_, status); }

  template <std::size_t n> napi_value call(napi_value function, napi_value (&args)[n]) {
    napi_value out;
    check(napi_call_function(env_, undefined_, function, n, args, &out));
    return out;
  }
  napi_value array(std::size_t length) {
    napi_value out;
    check(napi_create_array_with_length(env_, length, &out));
    return out;
  }
  napi_value number(double value) {
    napi_value out;
    check(napi_create_double(env_, value, &out));
    return out;
  }

  // Text already repaired on the pool thread: ASCII goes in as Latin-1,
  // which V8 copies without decoding.
  napi_value string(std::string_view bytes) {
    if (bytes.empty())
      return empty_;
    napi_value out;
    if (is_ascii(bytes))
      check(napi_create_string_latin1(env_, bytes.data(), bytes.size(), &out));
    else
      check(napi_create_string_utf8(env_, bytes.data(), bytes.size(), &out));
    return out;
  }
  napi_value optional(std::optional<std::string> const& text) { return text ? string(*text) : null_; }

  napi_value mailboxes(std::vector<tidewell::mailbox_t> const& list) {
    if (list.empty())
      return array(0);
    // Most lists hold a mailbox or two: the arguments stay on the stack.
    napi_value small[8];
    std::vector<napi_value> large;
    napi_value* args = small;
    if (list.size() * 2 > std::size(small)) {
      large.resize(list.size() * 2);
      args = large.data();
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
      args[2 * i] = string(list[i].name);
      args[2 * i + 1] = string(list[i].address);
    }
    napi_value out;
    check(napi_call_function(env_, undefined_, mailboxes_, list.size() * 2, args, &out));
    return out;
  }

  // {value: Date, offset: minutes east of UTC, text: the record's RFC 3339}.
  napi_value date(std::optional<tidewell::date_t> const& d, std::string const& text) {
    if (!d)
      return null_;
    napi_value args[] = {number(double(d->instant.time_since_epoch().count()) * 1000.0),
                         number(double(d->offset.count())), string(text)};
    return call(date_, args);
  }

  napi_env env_;
  napi_value record_, mailboxes_, date_, attachment_, problem_;
  napi_value undefined_, null_, yes_, no_, empty_;
};

// setFactories({record, mailboxes, date, attachment, problem})
Napi::Value set_factories(Napi::CallbackInfo const& info);

// ---------------------------------------------------------------------------
// Errors.

// The error Node's own fs functions give for a path that cannot be read:
// "ENOENT: no such file or directory, open 'x'" with code, errno (negative,
// as libuv's), syscall and path. A path that is not a regular file is EISDIR
// for a folder and EINVAL for anything else (a FIFO, a device).
Napi::Error system_error(Napi::Env env, record_t const& r) {
  int number = r.source.error_number;
  if (number == 0) {
    struct stat info;
    number = ::stat(r.source.path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
  }
  std::string const code = uv_err_name(-number);
  std::string const path = tidewell::record::repaired_utf8(r.source.path);
  std::string const reason = r.source.error_number ? uv_strerror(-number) : r.source.error;
  Napi::Error error = Napi::Error::New(env, code + ": " + reason + ", open '" + path + "'");
  error.Set("errno", Napi::Number::New(env, -number));
  error.Set("code", Napi::String::New(env, code));
  error.Set("syscall", Napi::String::New(env, "open"));
  error.Set("path", Napi::String::New(env, path));
  return error;
}

// Runs body, turning any C++ exception that is not already a JavaScript one
// into one, so that none can end the process.
template <typename Body> Napi::Value guarded(Napi::Env env, Body&& body) {
  try {
    return body();
  } catch (Napi::Error const&) {
    throw;
  } catch (std::bad_alloc const&) {
    throw Napi::Error::New(env, "tidewell: out of memory");
  } catch (std::exception const& e) {
    throw Napi::Error::New(env, std::string("tidewell: ") + e.what());
  } catch (...) {
    throw Napi::Error::New(env, "tidewell: unknown failure");
  }
}

// ---------------------------------------------------------------------------
// Arguments. index.js checks them and says what was wrong in the caller's
// terms; these checks only keep a direct call of the addon from doing harm.

settings_t settings_of(Napi::CallbackInfo const& info, std::size_t at) {
  settings_t s;
  if (info.Length() > at && info[at].IsObject()) {
    Napi::Object const o = info[at].As<Napi::Object>();
    if (o.Get("desktop").ToBoolean())
      s.options = tidewell::options_t::desktop();
    s.with_problems = s.options.problems = o.Get("problems").ToBoolean();
    Napi::Value const max = o.Get("maxBytes");
    if (max.IsNumber()) {
      double const n = max.As<Napi::Number>().DoubleValue();
      if (n >= 0 && n < 18446744073709551616.0)
        s.options.max_bytes = static_cast<std::uint64_t>(n);
    }
  }
  return s;
}

// The bytes of a Uint8Array (Buffer included) or an ArrayBuffer, in place.
std::optional<std::string_view> bytes_of(Napi::Value value) {
  if (value.IsTypedArray()) {
    Napi::TypedArray const array = value.As<Napi::TypedArray>();
    if (array.TypedArrayType() != napi_uint8_array && array.TypedArrayType() != napi_uint8_clamped_array)
      return std::nullopt;
    Napi::Uint8Array const bytes = value.As<Napi::Uint8Array>();
    return std::string_view(reinterpret_cast<char const*>(bytes.Data()), bytes.ByteLength());
  }
  if (value.IsArrayBuffer()) {
    Napi::ArrayBuffer buffer = value.As<Napi::ArrayBuffer>();
    return std::string_view(static_cast<char const*>(buffer.Data()), buffer.ByteLength());
  }
  return std::nullopt;
}

// A source as a batch item: bytes are copied (the pool thread must not read
// memory that JavaScript can free or detach meanwhile), a path is read later.
item_t item_of(Napi::Env env, Napi::Value value) {
  item_t item;
  if (value.IsString()) {
    item.path = value.As<Napi::String>().Utf8Value();
    item.has_path = item.from_file = true;
  } else if (auto const bytes = bytes_of(value)) {
    item.bytes.assign(bytes->data(), bytes->size());
  } else {
    throw Napi::TypeError::New(env, "tidewell: a source is a Buffer, a Uint8Array, an ArrayBuffer or a path");
  }
  return item;
}

// ---------------------------------------------------------------------------
// parse and parseSync.

class parse_worker_t final : public Napi::AsyncWorker {
public:
  parse_worker_t(Napi::Env env, item_t item, settings_t s)
      : Napi::AsyncWorker(env, "tidewell.parse"), deferred_(Napi::Promise::Deferred::New(env)), item_(std::move(item)),
        settings_(s) {}
  Napi::Promise promise() const { return deferred_.Promise(); }

  void Execute() override {
    try {
      record_ = run(item_, settings_);
    } catch (std::exception const& e) {
      SetError(std::string("tidewell: ") + e.what());
    }
  }
  void OnOK() override {
    Napi::Env env = Env();
    try {
      if (!record_.source.imported) {
        deferred_.Reject(system_error(env, record_).Value());
        return;
      }
      builder_t b(env);
      b.with_problems = settings_.with_problems;
      deferred_.Resolve(b.record(record_));
    } catch (Napi::Error const& e) {
      deferred_.Reject(e.Value());
    } catch (std::exception const& e) {
      deferred_.Reject(Napi::Error::New(env, std::string("tidewell: ") + e.what()).Value());
    }
    record_ = {};
  }
  void OnError(Napi::Error const& error) override { deferred_.Reject(error.Value()); }

private:
  Napi::Promise::Deferred deferred_;
  item_t item_;
  settings_t const settings_;
  record_t record_;
};

Napi::Value parse(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    auto* const worker = new parse_worker_t(info.Env(), item_of(info.Env(), info[0]), settings_of(info, 1));
    Napi::Promise const promise = worker->promise();
    worker->Queue();
    return promise;
  });
}

Napi::Value parse_sync(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    settings_t const s = settings_of(info, 1);
    record_t r;
    if (auto const bytes = bytes_of(info[0])) {
      // Read in place: nothing can free the memory during a synchronous call.
      r.message = tidewell::parse(*bytes, s.options);
      prepare(r);
    } else {
      item_t item = item_of(env, info[0]);
      r = run(item, s);
      if (!r.source.imported)
        throw system_error(env, r);
    }
    builder_t b(env);
    b.with_problems = s.with_problems;
    return Napi::Value(env, b.record(r));
  });
}

// ---------------------------------------------------------------------------
// Batches: parseMany's and messages'.

// Parsed messages waiting to be taken; held by a JavaScript external.
struct batch_t {
  std::vector<record_t> records;
  bool with_problems = false;
  double sequence = -1; // the walk's batch number; -1 for none
  bool end = false;     // the walk has nothing more
};

// Records already converted, freed by the next batch on the pool rather than
// on the JavaScript thread: a record is a few dozen allocations, and freeing
// them where they were made is cheaper too. What waits here is at most the
// few batches taken since the last one started.
struct spent_t {
  std::mutex mutex;
  std::vector<std::vector<record_t>> records;
};
spent_t& spent() {
  static spent_t* const held = new spent_t(); // never destroyed: pool threads may use it at exit
  return *held;
}
void bury(std::vector<record_t>&& records) {
  spent_t& s = spent();
  std::lock_guard const lock(s.mutex);
  s.records.push_back(std::move(records));
}
void free_spent() {
  std::vector<std::vector<record_t>> old;
  spent_t& s = spent();
  {
    std::lock_guard const lock(s.mutex);
    old.swap(s.records);
  }
}

// The walk behind messages(path): the library's walk of folders and
// Maildirs, and its mbox reader for each file with mbox. Several pool
// threads take batches from one walk; a lock keeps it in order, and each
// batch gets the next number, so that JavaScript can put batches back in
// order however the pool ran them.
struct walk_t {
  std::mutex mutex;
  std::string root;
  bool mbox = false;
  std::uint64_t max_bytes = UINT64_MAX;
  bool listed = false;
  std::vector<tidewell::source_t> sources;
  std::size_t at = 0;
  std::unique_ptr<tidewell::mbox_reader_t> reader;
  int fd = -1;
  std::size_t number = 0;
  double next_sequence = 0;

  ~walk_t() { close(); }

  void close() {
    reader.reset();
    if (fd >= 0)
      ::close(fd);
    fd = -1;
  }

  static item_t failed(std::string const& path, std::string error) {
    item_t item;
    item.path = path;
    item.has_path = true;
    item.error = std::move(error);
    return item;
  }

  // The next source; false at the end. Called with mutex held.
  bool next(item_t& item) {
    if (!listed) {
      tidewell::walk_counts_t counts;
      tidewell::expand(root, sources, counts, false);
      listed = true;
    }
    for (;;) {
      if (reader) {
        item = {};
        if (reader->next(item.bytes)) {
          item.path = sources[at - 1].path;
          item.has_path = true;
          item.number = ++number;
          return true;
        }
        int const error = reader->error();
        close();
        if (error) {
          item = failed(sources[at - 1].path, std::error_code(error, std::generic_category()).message());
          return true;
        }
        continue;
      }
      if (at == sources.size())
        return false;
      tidewell::source_t const& source = sources[at++];
      if (!source.error.empty()) {
        item = failed(source.path, source.error);
        return true;
      }
      if (!mbox) {
        item = {};
        item.path = source.path;
        item.has_path = item.from_file = true;
        return true;
      }
      std::string error;
      int const opened = tidewell::record::open_regular(source.path, error);
      if (opened < 0) {
        item = failed(source.path, error);
        return true;
      }
      fd = opened;
      number = 0;
      std::size_t const keep = max_bytes >= SIZE_MAX ? SIZE_MAX : static_cast<std::size_t>(max_bytes);
      reader = std::make_unique<tidewell::mbox_reader_t>(fd, keep);
    }
  }
};

using walk_handle_t = std::shared_ptr<walk_t>;

void drop_walk(Napi::Env, walk_handle_t* walk) {
  delete walk;
}

// A stream: the threads of one parseMany or messages, and the batches
// waiting for them. A stream has threads of its own rather than libuv's
// pool: JavaScript queues a batch or two ahead of each thread, so a thread
// goes from one batch to the next without waiting for the JavaScript thread
// (which may be busy converting the last one), and a thread keeps its
// caches and its read buffer; the pool's four threads, shared with every
// file system call of the process, gave a second thread only a third more.
// A finished batch goes back through a thread-safe function, which holds
// the event loop open only while batches are out.
struct stream_t;

struct job_t {
  std::shared_ptr<stream_t> stream; // alive until the job is delivered
  napi_deferred deferred = nullptr;
  std::vector<item_t> items;
  settings_t settings;
  walk_handle_t walk;
  std::size_t count = 0, byte_budget = 0;
  std::unique_ptr<batch_t> batch = std::make_unique<batch_t>();
  std::string error;

  // A batch's worth of sources from the walk: count of them, or fewer once
  // their bytes pass the budget, so a batch of big mbox messages holds
  // little more than one of small ones.
  void take_from_walk() {
    std::lock_guard const lock(walk->mutex);
    std::size_t bytes = 0;
    item_t item;
    while (items.size() < count && bytes < byte_budget && walk->next(item)) {
      bytes += item.bytes.size();
      items.push_back(std::move(item));
    }
    batch->end = items.size() < count && bytes < byte_budget;
    if (!items.empty())
      batch->sequence = walk->next_sequence++;
  }

  void run_all() {
    try {
      free_spent();
      if (walk)
        take_from_walk();
      batch->records.reserve(items.size());
      for (item_t& item : items)
        batch->records.push_back(run(item, settings));
      std::vector<item_t>().swap(items);
      batch->with_problems = settings.with_problems;
    } catch (std::exception const& e) {
      error = std::string("tidewell: ") + e.what();
    }
  }
};

void deliver(Napi::Env env, Napi::Function, stream_t*, job_t* job);
using delivery_t = Napi::TypedThreadSafeFunction<stream_t, job_t, deliver>;

struct stream_t {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<job_t*> jobs;
  bool closed = false;
  delivery_t delivery;
  // The thread-safe function is freed with its environment (a worker
  // thread terminated, the process ending) while these threads may still
  // run; they call it only under mutex while this is false.
  bool delivery_gone = false;
  std::size_t out = 0; // batches not yet delivered; JavaScript thread only

  void close() {
    {
      std::lock_guard const lock(mutex);
      closed = true;
    }
    wake.notify_all();
  }

  // One thread's loop: a batch at a time until the stream is closed and
  // empty. A batch queued after the close goes back empty.
  static void work(std::shared_ptr<stream_t> self) {
    for (;;) {
      job_t* job = nullptr;
      bool closed = false;
      {
        std::unique_lock lock(self->mutex);
        self->wake.wait(lock, [&] { return self->closed || !self->jobs.empty(); });
        if (self->jobs.empty())
          break;
        job = self->jobs.front();
        self->jobs.pop_front();
        closed = self->closed;
      }
      if (!closed)
        job->run_all();
      std::lock_guard const lock(self->mutex);
      if (self->delivery_gone || self->delivery.BlockingCall(job) != napi_ok)
        delete job; // the environment is gone: nobody waits for it
    }
    std::lock_guard const lock(self->mutex);
    if (!self->delivery_gone)
      self->delivery.Release();
  }
};

// On the JavaScript thread: the batch to its promise.
void deliver(Napi::Env env, Napi::Function, stream_t*, job_t* job) {
  std::unique_ptr<job_t> held(job);
  if (static_cast<napi_env>(env) == nullptr)
    return; // the environment is being torn down
  stream_t& stream = *held->stream;
  if (--stream.out == 0)
    stream.delivery.Unref(env);
  if (!held->error.empty()) {
    napi_value error = Napi::Error::New(env, held->error).Value();
    napi_reject_deferred(env, held->deferred, error);
    return;
  }
  napi_value value = nullptr;
  if (napi_create_external(
          env, held->batch.get(), [](napi_env, void* data, void*) { delete static_cast<batch_t*>(data); }, nullptr,
          &value) != napi_ok) {
    napi_value error = Napi::Error::New(env, "tidewell: out of memory").Value();
    napi_reject_deferred(env, held->deferred, error);
    return;
  }
  held->batch.release();
  napi_resolve_deferred(env, held->deferred, value);
}

using stream_handle_t = std::shared_ptr<stream_t>;

// The thread-safe function's end: when the threads have let it go, or when
// its environment is torn down under them.
void finish_delivery(Napi::Env, stream_handle_t* stream, stream_t*) {
  {
    std::lock_guard const lock((*stream)->mutex);
    (*stream)->delivery_gone = true;
  }
  delete stream;
}

void drop_stream(Napi::Env, stream_handle_t* stream) {
  (*stream)->close();
  delete stream;
}

// openStream(concurrency) -> External: the stream's threads, waiting.
Napi::Value open_stream(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    double const concurrency = info[0].IsNumber() ? info[0].As<Napi::Number>().DoubleValue() : 0;
    if (!(concurrency >= 1 && concurrency <= 1024))
      throw Napi::RangeError::New(env, "tidewell: openStream's concurrency out of range");
    // More threads than processors gain nothing; a few more than asked for
    // on a small machine keeps the old reach of libuv's four.
    std::size_t const processors = std::max(4u, std::thread::hardware_concurrency());
    std::size_t const threads = std::min(static_cast<std::size_t>(concurrency), processors);
    auto stream = std::make_shared<stream_t>();
    stream->delivery =
        delivery_t::New(env, "tidewell.stream", 0, threads, stream.get(), finish_delivery, new stream_handle_t(stream));
    stream->delivery.Unref(env);
    std::size_t started = 0;
    try {
      for (; started < threads; ++started)
        std::thread(stream_t::work, stream).detach();
    } catch (...) {
      stream->close();
      std::lock_guard const lock(stream->mutex);
      for (std::size_t i = started; i < threads; ++i)
        stream->delivery.Release();
      if (started == 0)
        throw;
    }
    return Napi::External<stream_handle_t>::New(env, new stream_handle_t(std::move(stream)), drop_stream);
  });
}

stream_handle_t const& stream_of(Napi::Env env, Napi::Value value) {
  if (!value.IsExternal())
    throw Napi::TypeError::New(env, "tidewell: not a stream");
  return *value.As<Napi::External<stream_handle_t>>().Data();
}

// Queues a job on its stream; its promise.
Napi::Value submit(Napi::Env env, stream_handle_t const& stream, std::unique_ptr<job_t> job) {
  // Only the JavaScript thread closes a stream, so this holds until the push.
  if (stream->closed)
    throw Napi::Error::New(env, "tidewell: the stream is closed");
  napi_value promise = nullptr;
  NAPI_THROW_IF_FAILED(env, napi_create_promise(env, &job->deferred, &promise), Napi::Value());
  job->stream = stream;
  {
    std::lock_guard const lock(stream->mutex);
    stream->jobs.push_back(job.release());
  }
  if (stream->out++ == 0)
    stream->delivery.Ref(env);
  stream->wake.notify_one();
  return Napi::Value(env, promise);
}

// closeStream(stream): its threads end once the queued batches are back.
Napi::Value close_stream(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    stream_of(info.Env(), info[0])->close();
    return info.Env().Undefined();
  });
}

// parseBatch(stream, sources: Array, options) -> Promise<External>
Napi::Value parse_batch(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    stream_handle_t const& stream = stream_of(env, info[0]);
    if (!info[1].IsArray())
      throw Napi::TypeError::New(env, "tidewell: parseBatch takes an array");
    Napi::Array const list = info[1].As<Napi::Array>();
    auto job = std::make_unique<job_t>();
    job->items.reserve(list.Length());
    for (std::uint32_t i = 0; i < list.Length(); ++i)
      job->items.push_back(item_of(env, list.Get(i)));
    job->settings = settings_of(info, 2);
    return submit(env, stream, std::move(job));
  });
}

// openWalk(path, options) -> External: nothing is read until the first batch.
Napi::Value open_walk(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    if (!info[0].IsString())
      throw Napi::TypeError::New(env, "tidewell: openWalk takes a path");
    auto walk = std::make_shared<walk_t>();
    walk->root = info[0].As<Napi::String>().Utf8Value();
    settings_t const s = settings_of(info, 1);
    walk->max_bytes = s.options.max_bytes;
    if (info.Length() > 1 && info[1].IsObject())
      walk->mbox = info[1].As<Napi::Object>().Get("mbox").ToBoolean();
    return Napi::External<walk_handle_t>::New(env, new walk_handle_t(std::move(walk)), drop_walk);
  });
}

// walkBatch(stream, walk, count, byteBudget, options) -> Promise<External>
Napi::Value walk_batch(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    stream_handle_t const& stream = stream_of(env, info[0]);
    if (!info[1].IsExternal() || !info[2].IsNumber() || !info[3].IsNumber())
      throw Napi::TypeError::New(env, "tidewell: walkBatch(stream, walk, count, bytes, options)");
    double const count = info[2].As<Napi::Number>().DoubleValue();
    double const bytes = info[3].As<Napi::Number>().DoubleValue();
    if (!(count >= 1 && count <= 1e6) || !(bytes >= 1 && bytes <= 1e12))
      throw Napi::RangeError::New(env, "tidewell: walkBatch's count or bytes out of range");
    auto job = std::make_unique<job_t>();
    job->walk = *info[1].As<Napi::External<walk_handle_t>>().Data();
    job->count = std::size_t(count);
    job->byte_budget = std::size_t(bytes);
    job->settings = settings_of(info, 4);
    return submit(env, stream, std::move(job));
  });
}

// take(batch) -> [records, sequence, end]; the batch is emptied.
Napi::Value take(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    if (!info[0].IsExternal())
      throw Napi::TypeError::New(env, "tidewell: take takes a batch");
    batch_t* const batch = info[0].As<Napi::External<batch_t>>().Data();
    builder_t b(env);
    b.with_problems = batch->with_problems;
    Napi::Array records = Napi::Array::New(env, batch->records.size());
    for (std::size_t i = 0; i < batch->records.size(); ++i) {
      Napi::HandleScope const scope(env);
      records.Set(uint32_t(i), Napi::Value(env, b.record(batch->records[i])));
    }
    bury(std::move(batch->records));
    batch->records.clear();
    Napi::Array out = Napi::Array::New(env, 3);
    out.Set(0u, records);
    out.Set(1u, Napi::Number::New(env, batch->sequence));
    out.Set(2u, Napi::Boolean::New(env, batch->end));
    return out;
  });
}

Napi::Value set_factories(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    if (!info[0].IsObject())
      throw Napi::TypeError::New(env, "tidewell: setFactories takes an object of functions");
    Napi::Object const o = info[0].As<Napi::Object>();
    auto f = std::make_unique<factories_t>();
    auto const take_ref = [&](char const* name, napi_ref& ref) {
      Napi::Value const value = o.Get(name);
      if (!value.IsFunction())
        throw Napi::TypeError::New(env, std::string("tidewell: setFactories needs the function ") + name);
      NAPI_THROW_IF_FAILED_VOID(env, napi_create_reference(env, value, 1, &ref));
    };
    take_ref("record", f->record);
    take_ref("mailboxes", f->mailboxes);
    take_ref("date", f->date);
    take_ref("attachment", f->attachment);
    take_ref("problem", f->problem);
    // A second index.js over the same addon (a test runner's fresh module
    // registry) sets them again: the newest win, the old are let go.
    void* old = nullptr;
    NAPI_THROW_IF_FAILED(env, napi_get_instance_data(env, &old), Napi::Value());
    if (old) {
      auto* const held = static_cast<factories_t*>(old);
      std::swap(*held, *f);
      drop_factories(env, f.release(), nullptr);
    } else {
      NAPI_THROW_IF_FAILED(env, napi_set_instance_data(env, f.get(), drop_factories, nullptr), Napi::Value());
      f.release();
    }
    return env.Undefined();
  });
}

// batchEnd(batch) -> whether the walk had nothing more after this batch.
Napi::Value batch_end(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    if (!info[0].IsExternal())
      throw Napi::TypeError::New(info.Env(), "tidewell: batchEnd takes a batch");
    return Napi::Boolean::New(info.Env(), info[0].As<Napi::External<batch_t>>().Data()->end);
  });
}

// listFiles(path) -> string[]: the walk's files, on the calling thread.
Napi::Value list_files(Napi::CallbackInfo const& info) {
  return guarded(info.Env(), [&]() -> Napi::Value {
    Napi::Env env = info.Env();
    if (!info[0].IsString())
      throw Napi::TypeError::New(env, "tidewell: listFiles takes a path");
    std::vector<tidewell::source_t> sources;
    tidewell::walk_counts_t counts;
    tidewell::expand(info[0].As<Napi::String>().Utf8Value(), sources, counts, false);
    Napi::Array out = Napi::Array::New(env, sources.size());
    for (std::size_t i = 0; i < sources.size(); ++i)
      out.Set(uint32_t(i), Napi::String::New(env, tidewell::record::repaired_utf8(sources[i].path)));
    return out;
  });
}

} // namespace
} // namespace node_binding

namespace {
using namespace node_binding;

Napi::Object init(Napi::Env env, Napi::Object exports) {
  exports.Set("parse", Napi::Function::New(env, parse, "parse"));
  exports.Set("parseSync", Napi::Function::New(env, parse_sync, "parseSync"));
  exports.Set("openStream", Napi::Function::New(env, open_stream, "openStream"));
  exports.Set("closeStream", Napi::Function::New(env, close_stream, "closeStream"));
  exports.Set("parseBatch", Napi::Function::New(env, parse_batch, "parseBatch"));
  exports.Set("openWalk", Napi::Function::New(env, open_walk, "openWalk"));
  exports.Set("walkBatch", Napi::Function::New(env, walk_batch, "walkBatch"));
  exports.Set("take", Napi::Function::New(env, take, "take"));
  exports.Set("setFactories", Napi::Function::New(env, set_factories, "setFactories"));
  exports.Set("batchEnd", Napi::Function::New(env, batch_end, "batchEnd"));
  exports.Set("listFiles", Napi::Function::New(env, list_files, "listFiles"));
  return exports;
}

} // namespace

NODE_API_MODULE(tidewell, init)
