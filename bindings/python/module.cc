// SPDX-License-Identifier: MIT
// The Python module tidewell._tidewell: the library's typed message for
// Python programs.
//
// A Message holds the C++ message_t itself and turns a field into Python
// objects only when it is read, so a program that wants the subject of a
// million messages pays for a million subjects, not for a million texts.
// to_dict() gives the command-line tool's JSON record (schema 1) as Python
// objects, key for key, built here directly rather than printed and parsed
// again; the tests compare the two over the whole corpus.
//
// parse_many and iter_messages keep a window of messages in flight: the
// caller's thread takes sources (from a Python iterator, or from the walk
// and the mbox reader the command-line tool uses) while native threads parse
// them without the interpreter lock, and results come back in input order.
// The window has a fixed length, so the memory held does not grow with the
// length of the input. Nothing here lets a C++ exception reach Python for
// bad mail: the parser never throws, and a file that cannot be read gives a
// Message that says so (parse_file alone raises OSError, as open() does).
#include <pybind11/pybind11.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include <boost/locale/utf.hpp>

#include "tidewell/importer/import.h"
#include "tidewell/importer/mbox.h"
#include "tidewell/importer/message.h"
#include "tidewell/importer/record.h"
#include "tidewell/importer/walk.h"

namespace py = pybind11;

namespace binding {
namespace {

// What one Message holds: where it came from and what was read.
struct record_t {
  std::string path; // as bytes; meaningful only with has_path
  bool has_path = false;
  std::size_t number = 0; // 1-based within an mbox; 0 otherwise
  bool imported = true;
  std::string error; // why the source could not be read
  bool with_problems = false;
  tidewell::message_t message;
  bool operator==(record_t const&) const = default;
};

// The types the module hands out besides Message; made once at import.
struct types_t {
  py::object address, attachment, problem, datetime, timezone, timedelta;
  // A timezone object per offset met, in minutes.
  std::unordered_map<long, py::object> zones;
};
types_t& types() {
  static types_t* held = new types_t(); // never destroyed: outlives the interpreter's teardown order
  return *held;
}

// The message's own fields are UTF-8 already, so the decoder's own check is
// the only one: a second pass over every text would cost the calling
// thread, which all the parsing threads wait on, as much again.
py::str text_of(std::string_view bytes) {
  if (PyObject* const text = PyUnicode_DecodeUTF8(bytes.data(), Py_ssize_t(bytes.size()), "strict"))
    return py::reinterpret_steal<py::str>(text);
  if (!PyErr_ExceptionMatches(PyExc_UnicodeDecodeError))
    throw py::error_already_set();
  PyErr_Clear();
  std::string const repaired = tidewell::record::repaired_utf8(bytes);
  PyObject* const text = PyUnicode_DecodeUTF8(repaired.data(), Py_ssize_t(repaired.size()), "strict");
  if (!text)
    throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

py::object optional_text(std::optional<std::string> const& text) {
  return text ? py::object(text_of(*text)) : py::object(py::none());
}

// The path as the caller gave it: os.fsdecode of its bytes.
py::object path_object(record_t const& record) {
  if (!record.has_path)
    return py::none();
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(record.path.data(), Py_ssize_t(record.path.size())));
}

// A timezone-aware datetime in the sender's zone; None where Python's
// datetime cannot hold it (a year outside 1..9999, an offset of a day or more).
py::object datetime_of(std::optional<tidewell::date_t> const& date) {
  if (!date)
    return py::none();
  tidewell::record::local_time_t const d = tidewell::record::local_time(*date);
  if (d.year < 1 || d.year > 9999 || date->offset.count() <= -24 * 60 || date->offset.count() >= 24 * 60)
    return py::none();
  types_t& t = types();
  py::object& zone = t.zones[date->offset.count()];
  if (!zone)
    zone = t.timezone(t.timedelta(py::arg("minutes") = date->offset.count()));
  return t.datetime(d.year, d.month, d.day, d.hours, d.minutes, d.seconds, 0, zone);
}

// An instance of one of the module's named tuples, made as tuple's own
// constructor makes a subclass's instance (these classes add no storage),
// without a call to their Python-level __new__ for every address.
py::object make_named(py::object const& type, std::initializer_list<py::object> items) {
  auto* const cls = reinterpret_cast<PyTypeObject*>(type.ptr());
  PyObject* const tuple = cls->tp_alloc(cls, Py_ssize_t(items.size()));
  if (!tuple)
    throw py::error_already_set();
  Py_ssize_t i = 0;
  for (py::object const& item : items)
    PyTuple_SET_ITEM(tuple, i++, item.inc_ref().ptr());
  return py::reinterpret_steal<py::object>(tuple);
}

py::tuple addresses_of(std::vector<tidewell::mailbox_t> const& list) {
  py::tuple out(list.size());
  for (std::size_t i = 0; i < list.size(); ++i)
    out[i] = make_named(types().address, {text_of(list[i].name), text_of(list[i].address)});
  return out;
}

py::tuple attachments_of(std::vector<tidewell::attachment_t> const& list) {
  py::tuple out(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    tidewell::attachment_t const& a = list[i];
    out[i] = make_named(types().attachment, {text_of(a.file_name), text_of(a.media_type), py::int_(a.size),
                                             text_of(a.content_id), text_of(a.disposition)});
  }
  return out;
}

py::tuple problems_of(std::vector<tidewell::problem_t> const& list) {
  py::tuple out(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    tidewell::problem_t const& p = list[i];
    auto const name = quern::error::name_of(p.code);
    out[i] = make_named(types().problem,
                        {py::str(name.data(), name.size()), py::int_(p.offset), text_of(p.text), text_of(p.context)});
  }
  return out;
}

py::tuple strings_of(std::vector<std::string> const& list) {
  py::tuple out(list.size());
  for (std::size_t i = 0; i < list.size(); ++i)
    out[i] = text_of(list[i]);
  return out;
}

// The command-line tool's full-reading JSON record, key for key and in its
// order, as Python objects.
py::dict to_dict(record_t const& record) {
  tidewell::message_t const& m = record.message;
  py::dict out;
  out["schema"] = 1;
  out["path"] = record.has_path ? py::object(text_of(record.path)) : py::object(py::none());
  if (record.has_path && !importer::is_well_formed_utf8(record.path))
    out["path_bytes"] = py::str(tidewell::record::path_bytes(record.path));
  if (record.number != 0)
    out["message"] = record.number;
  out["imported"] = record.imported;
  if (!record.error.empty())
    out["error"] = text_of(record.error);
  out["subject"] = optional_text(m.subject);
  auto const mailboxes = [](std::vector<tidewell::mailbox_t> const& list) {
    py::list items;
    for (tidewell::mailbox_t const& mailbox : list) {
      py::dict item;
      item["name"] = text_of(mailbox.name);
      item["address"] = text_of(mailbox.address);
      items.append(std::move(item));
    }
    return items;
  };
  out["from"] = mailboxes(m.from);
  out["sender"] = mailboxes(m.sender);
  out["reply_to"] = mailboxes(m.reply_to);
  out["to"] = mailboxes(m.to);
  out["cc"] = mailboxes(m.cc);
  out["bcc"] = mailboxes(m.bcc);
  auto const date = [](std::optional<tidewell::date_t> const& d) {
    return d ? py::object(py::str(tidewell::record::rfc3339(*d))) : py::object(py::none());
  };
  out["date"] = date(m.date);
  out["received"] = date(m.received);
  out["message_id"] = optional_text(m.message_id);
  out["in_reply_to"] = optional_text(m.in_reply_to);
  py::list references;
  for (std::string const& id : m.references)
    references.append(text_of(id));
  out["references"] = std::move(references);
  out["text"] = optional_text(m.text);
  py::list attachments;
  for (tidewell::attachment_t const& a : m.attachments) {
    py::dict item;
    item["file_name"] = text_of(a.file_name);
    item["media_type"] = text_of(a.media_type);
    item["size"] = a.size;
    item["content_id"] = text_of(a.content_id);
    item["disposition"] = text_of(a.disposition);
    attachments.append(std::move(item));
  }
  out["attachments"] = std::move(attachments);
  if (record.with_problems) {
    py::list problems;
    for (tidewell::problem_t const& p : m.problems) {
      py::dict item;
      auto const name = quern::error::name_of(p.code);
      item["code"] = py::str(name.data(), name.size());
      item["offset"] = p.offset;
      item["text"] = text_of(p.text);
      item["context"] = text_of(p.context);
      problems.append(std::move(item));
    }
    out["problems"] = std::move(problems);
  }
  if (m.cut)
    out["cut"] = true;
  return out;
}

// "Name <address>", or either alone, for __repr__.
std::string shown(tidewell::mailbox_t const& mailbox) {
  if (mailbox.name.empty())
    return mailbox.address;
  return mailbox.address.empty() ? mailbox.name : mailbox.name + " <" + mailbox.address + ">";
}

py::str repr(record_t const& record) {
  py::list parts;
  if (record.has_path)
    parts.append(py::str("path={}").format(py::repr(path_object(record))));
  if (record.number)
    parts.append(py::str("message={}").format(record.number));
  if (!record.imported)
    parts.append(py::str("imported=False error={}").format(py::repr(text_of(record.error))));
  tidewell::message_t const& m = record.message;
  if (m.subject)
    parts.append(py::str("subject={}").format(py::repr(text_of(*m.subject))));
  if (!m.from.empty())
    parts.append(py::str("from_={}").format(py::repr(text_of(shown(m.from.front())))));
  if (m.date)
    parts.append(py::str("date={}").format(tidewell::record::rfc3339(*m.date)));
  std::size_t const recipients = m.to.size() + m.cc.size() + m.bcc.size();
  if (recipients)
    parts.append(py::str("recipients={}").format(recipients));
  if (m.text)
    parts.append(py::str("text={} chars").format(py::len(text_of(*m.text))));
  if (!m.attachments.empty())
    parts.append(py::str("attachments={}").format(m.attachments.size()));
  if (m.cut)
    parts.append(py::str("cut=True"));
  return py::str("<tidewell.Message {}>").format(py::str(" ").attr("join")(parts));
}

// Pickling: every field as bytes or numbers, so nothing is lost, and the
// problem codes by name, so a state stays readable by a later version.
py::tuple state_of(record_t const& r) {
  tidewell::message_t const& m = r.message;
  auto const b = [](std::string const& s) { return py::bytes(s); };
  auto const ob = [&](std::optional<std::string> const& s) { return s ? py::object(b(*s)) : py::object(py::none()); };
  auto const boxes = [&](std::vector<tidewell::mailbox_t> const& list) {
    py::list out;
    for (auto const& x : list)
      out.append(py::make_tuple(b(x.name), b(x.address)));
    return out;
  };
  auto const date = [](std::optional<tidewell::date_t> const& d) {
    return d ? py::object(py::make_tuple(d->instant.time_since_epoch().count(), d->offset.count()))
             : py::object(py::none());
  };
  py::list references, attachments, problems;
  for (auto const& x : m.references)
    references.append(b(x));
  for (auto const& x : m.attachments)
    attachments.append(py::make_tuple(b(x.file_name), b(x.media_type), x.size, b(x.content_id), b(x.disposition)));
  for (auto const& x : m.problems) {
    auto const name = quern::error::name_of(x.code);
    problems.append(py::make_tuple(std::string(name), x.offset, b(x.text), b(x.context)));
  }
  return py::make_tuple(1, b(r.path), r.has_path, r.number, r.imported, b(r.error), r.with_problems,
                        py::make_tuple(ob(m.subject), boxes(m.from), boxes(m.sender), boxes(m.reply_to), boxes(m.to),
                                       boxes(m.cc), boxes(m.bcc), date(m.date), date(m.received), ob(m.message_id),
                                       ob(m.in_reply_to), references, ob(m.text), attachments, problems, m.cut));
}

record_t record_of_state(py::tuple const& state) {
  if (state.size() != 8 || state[0].cast<int>() != 1)
    throw std::runtime_error("not a pickled tidewell.Message of this version");
  record_t r;
  r.path = state[1].cast<std::string>();
  r.has_path = state[2].cast<bool>();
  r.number = state[3].cast<std::size_t>();
  r.imported = state[4].cast<bool>();
  r.error = state[5].cast<std::string>();
  r.with_problems = state[6].cast<bool>();
  py::tuple const f = state[7];
  tidewell::message_t& m = r.message;
  auto const os = [](py::handle h) {
    return h.is_none() ? std::optional<std::string>() : std::optional<std::string>(h.cast<std::string>());
  };
  auto const boxes = [](py::handle h, std::vector<tidewell::mailbox_t>& list) {
    for (py::handle x : h)
      list.push_back({x[py::int_(0)].cast<std::string>(), x[py::int_(1)].cast<std::string>()});
  };
  auto const date = [](py::handle h) {
    if (h.is_none())
      return std::optional<tidewell::date_t>();
    return std::optional<tidewell::date_t>(
        tidewell::date_t{tidewell::instant_t(std::chrono::seconds(h[py::int_(0)].cast<long long>())),
                         std::chrono::minutes(h[py::int_(1)].cast<long long>())});
  };
  m.subject = os(f[0]);
  boxes(f[1], m.from);
  boxes(f[2], m.sender);
  boxes(f[3], m.reply_to);
  boxes(f[4], m.to);
  boxes(f[5], m.cc);
  boxes(f[6], m.bcc);
  m.date = date(f[7]);
  m.received = date(f[8]);
  m.message_id = os(f[9]);
  m.in_reply_to = os(f[10]);
  for (py::handle x : f[11])
    m.references.push_back(x.cast<std::string>());
  m.text = os(f[12]);
  for (py::handle x : f[13])
    m.attachments.push_back({x[py::int_(0)].cast<std::string>(), x[py::int_(1)].cast<std::string>(),
                             x[py::int_(2)].cast<std::uint64_t>(), x[py::int_(3)].cast<std::string>(),
                             x[py::int_(4)].cast<std::string>()});
  for (py::handle x : f[14]) {
    auto const code = quern::error::code_named(x[py::int_(0)].cast<std::string>());
    if (code)
      m.problems.push_back({*code, x[py::int_(1)].cast<std::size_t>(), x[py::int_(2)].cast<std::string>(),
                            x[py::int_(3)].cast<std::string>()});
  }
  m.cut = f[15].cast<bool>();
  return r;
}

// ---------------------------------------------------------------------------
// Options and arguments.

struct settings_t {
  tidewell::options_t options;
  bool with_problems = false;
};

settings_t settings_of(std::string const& reading, bool problems, py::object const& max_bytes) {
  settings_t s;
  if (reading == "desktop")
    s.options = tidewell::options_t::desktop();
  else if (reading != "full")
    throw py::value_error("reading must be \"full\" or \"desktop\", not \"" + reading + "\"");
  s.options.problems = problems;
  s.with_problems = problems;
  if (!max_bytes.is_none()) {
    if (!py::isinstance<py::int_>(max_bytes))
      throw py::type_error("max_bytes must be an int or None");
    long long const limit = max_bytes.cast<long long>();
    if (limit < 0)
      throw py::value_error("max_bytes must not be negative");
    s.options.max_bytes = static_cast<std::uint64_t>(limit);
  }
  return s;
}

// The bytes of a path given as str, bytes from os.fspath, or os.PathLike;
// nothing when obj is none of them.
std::optional<std::string> path_bytes_of(py::handle obj) {
  if (!PyUnicode_Check(obj.ptr()) && !PyObject_HasAttrString(obj.ptr(), "__fspath__"))
    return std::nullopt;
  PyObject* encoded = nullptr;
  if (!PyUnicode_FSConverter(obj.ptr(), &encoded))
    throw py::error_already_set();
  py::bytes const bytes = py::reinterpret_steal<py::bytes>(encoded);
  return std::string(bytes);
}

bool is_data(py::handle obj) {
  return PyBytes_Check(obj.ptr()) || PyByteArray_Check(obj.ptr()) || PyMemoryView_Check(obj.ptr());
}

// A copy of what a bytes-like object holds (a bytearray or memoryview may
// change under a thread that runs without the lock, so it is copied).
std::string copy_of(py::handle obj) {
  Py_buffer view;
  if (PyObject_GetBuffer(obj.ptr(), &view, PyBUF_SIMPLE) != 0)
    throw py::error_already_set();
  std::string bytes(static_cast<char const*>(view.buf), static_cast<std::size_t>(view.len));
  PyBuffer_Release(&view);
  return bytes;
}

std::string reason(int error) {
  return std::error_code(error, std::generic_category()).message();
}

// Reads the file at path, as the command-line tool does: only a regular file
// is opened. Gives the errno (0 when read or when the path is not a regular
// file, which the record says).
record_t read_file(std::string const& path, settings_t const& s, int& error) {
  record_t record;
  tidewell::record::source_t source;
  record.message = tidewell::record::read_path(path, s.options, source);
  record.path = std::move(source.path);
  record.has_path = true;
  record.with_problems = s.with_problems;
  record.imported = source.imported;
  record.error = std::move(source.error);
  error = source.error_number;
  return record;
}

// ---------------------------------------------------------------------------
// The window of messages in flight.

struct task_t {
  // What to read: a path, bytes of its own, or a bytes object read in place.
  std::string path;
  bool has_path = false;
  bool from_file = false;
  std::string bytes;
  PyObject* held = nullptr; // a reference, dropped with the lock held
  std::string_view data;
  std::size_t number = 0;
  std::string error; // known already: nothing to read
  record_t record;
  bool done = false;
};

class pool_t {
public:
  // One job parses on the caller's thread (without the interpreter lock), in
  // next(): handing each message to another thread and back would cost more
  // than it saves when there is no second parser to keep busy.
  pool_t(unsigned jobs, settings_t settings)
      : settings_(settings), inline_(jobs == 1), capacity_(jobs == 1 ? 1 : jobs * 32) {
    if (!inline_)
      for (unsigned i = 0; i < jobs; ++i)
        workers_.emplace_back([this] { work(); });
  }
  ~pool_t() {
    {
      std::lock_guard const lock(mutex_);
      closing_ = true;
    }
    ready_.notify_all();
    for (std::thread& worker : workers_)
      worker.join();
  }

  bool full() const { return window_.size() >= capacity_; }
  // Sources are taken in batches, from half full to full, so the parsers
  // find work queued rather than waiting for the caller's thread each time.
  bool wants_more() const { return window_.size() <= capacity_ / 2; }
  bool empty() const { return window_.empty(); }

  // Queues a task; the parsers hear of it at release().
  void submit(std::unique_ptr<task_t> task) {
    if (!inline_) {
      std::lock_guard const lock(mutex_);
      queue_.push_back(task.get());
    }
    window_.push_back(std::move(task));
  }
  void release() { ready_.notify_all(); }

  // The oldest task, once it is done. Call without the interpreter lock.
  std::unique_ptr<task_t> next() {
    if (inline_) {
      std::unique_ptr<task_t> task = std::move(window_.front());
      window_.pop_front();
      run(*task);
      return task;
    }
    std::unique_lock lock(mutex_);
    task_t* const front = window_.front().get();
    if (!front->done) {
      // Woken once a batch is done, not for every message: each wake-up
      // costs the caller's thread more than taking a finished message.
      waiting_for_ = front;
      done_.wait(lock, [&] { return worth_waking(); });
      waiting_for_ = nullptr;
    }
    --done_count_;
    std::unique_ptr<task_t> task = std::move(window_.front());
    window_.pop_front();
    return task;
  }

private:
  void work() {
    for (;;) {
      task_t* task;
      {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return closing_ || !queue_.empty(); });
        if (closing_)
          return;
        task = queue_.front();
        queue_.pop_front();
        ++running_;
      }
      run(*task);
      bool wake;
      {
        std::lock_guard const lock(mutex_);
        task->done = true;
        ++done_count_;
        --running_;
        wake = waiting_for_ && worth_waking();
      }
      if (wake)
        done_.notify_one();
    }
  }

  // The caller waits for its oldest task; it is done, and so is a batch
  // after it or everything there is. Called with mutex_ held.
  bool worth_waking() const {
    return waiting_for_->done && (done_count_ >= batch_ || (queue_.empty() && running_ == 0));
  }

  void run(task_t& task) {
    record_t& r = task.record;
    if (task.from_file && task.error.empty()) {
      int error;
      r = read_file(task.path, settings_, error);
    } else {
      r.path = std::move(task.path);
      r.has_path = task.has_path;
      r.with_problems = settings_.with_problems;
      if (!task.error.empty()) {
        r.imported = false;
        r.error = std::move(task.error);
      } else {
        r.message = tidewell::parse(task.held ? task.data : std::string_view(task.bytes), settings_.options);
        std::string().swap(task.bytes);
      }
    }
    r.number = task.number;
  }

  settings_t const settings_;
  bool const inline_;
  std::size_t const capacity_;
  std::mutex mutex_;
  std::condition_variable ready_, done_;
  std::deque<task_t*> queue_;
  task_t* waiting_for_ = nullptr;
  std::size_t done_count_ = 0; // done and not yet taken
  std::size_t running_ = 0;
  std::size_t const batch_ = std::min<std::size_t>(16, capacity_ / 4);
  bool closing_ = false;
  std::deque<std::unique_ptr<task_t>> window_; // the caller's thread only
  std::vector<std::thread> workers_;
};

unsigned jobs_of(py::object const& jobs) {
  if (jobs.is_none())
    return std::max(1u, std::thread::hardware_concurrency());
  if (!py::isinstance<py::int_>(jobs))
    throw py::type_error("jobs must be an int or None");
  long const n = jobs.cast<long>();
  if (n < 1 || n > 1024)
    throw py::value_error("jobs must be between 1 and 1024");
  return static_cast<unsigned>(n);
}

// Where the sources come from; called with the lock held; nothing at the end.
class source_list_t {
public:
  virtual ~source_list_t() = default;
  virtual std::unique_ptr<task_t> next() = 0;
};

// parse_many's: any Python iterable of paths and bytes-like objects.
class python_sources_t final : public source_list_t {
public:
  explicit python_sources_t(py::iterable const& sources) : iterator_(py::iter(sources)) {}
  std::unique_ptr<task_t> next() override {
    PyObject* item = PyIter_Next(iterator_.ptr());
    if (!item) {
      if (PyErr_Occurred())
        throw py::error_already_set();
      return nullptr;
    }
    py::object const source = py::reinterpret_steal<py::object>(item);
    auto task = std::make_unique<task_t>();
    if (PyBytes_Check(source.ptr())) {
      task->held = source.inc_ref().ptr();
      task->data = std::string_view(PyBytes_AS_STRING(source.ptr()), std::size_t(PyBytes_GET_SIZE(source.ptr())));
    } else if (is_data(source)) {
      task->bytes = copy_of(source);
    } else if (auto path = path_bytes_of(source)) {
      task->path = std::move(*path);
      task->has_path = task->from_file = true;
    } else {
      throw py::type_error(std::string("parse_many takes paths (str, os.PathLike) and bytes-like objects, not ") +
                           Py_TYPE(source.ptr())->tp_name);
    }
    return task;
  }

private:
  py::iterator iterator_;
};

// iter_messages's: the command-line tool's walk of a path, each file whole
// or, with mbox, each message of it.
class walk_sources_t final : public source_list_t {
public:
  walk_sources_t(std::string const& path, bool mbox, std::uint64_t max_bytes) : mbox_(mbox), max_bytes_(max_bytes) {
    py::gil_scoped_release const unlocked;
    tidewell::walk_counts_t counts;
    tidewell::expand(path, sources_, counts, false);
  }
  ~walk_sources_t() override { close(); }

  std::unique_ptr<task_t> next() override {
    for (;;) {
      if (reader_) {
        auto task = std::make_unique<task_t>();
        bool got;
        {
          py::gil_scoped_release const unlocked;
          got = reader_->next(task->bytes);
        }
        if (got) {
          task->path = sources_[at_ - 1].path;
          task->has_path = true;
          task->number = ++number_;
          return task;
        }
        int const error = reader_->error();
        close();
        if (error)
          return failed(sources_[at_ - 1].path, reason(error));
        continue;
      }
      if (at_ == sources_.size())
        return nullptr;
      tidewell::source_t const& source = sources_[at_++];
      if (!source.error.empty())
        return failed(source.path, source.error);
      if (!mbox_) {
        auto task = std::make_unique<task_t>();
        task->path = source.path;
        task->has_path = task->from_file = true;
        return task;
      }
      std::string error;
      if (!open(source.path, error))
        return failed(source.path, error);
    }
  }

private:
  static std::unique_ptr<task_t> failed(std::string const& path, std::string error) {
    auto task = std::make_unique<task_t>();
    task->path = path;
    task->has_path = true;
    task->error = std::move(error);
    return task;
  }

  // Opens an mbox; only a regular file, without blocking.
  bool open(std::string const& path, std::string& error) {
    int const fd = tidewell::record::open_regular(path, error);
    if (fd < 0)
      return false;
    fd_ = fd;
    number_ = 0;
    std::size_t const keep = max_bytes_ >= SIZE_MAX ? SIZE_MAX : static_cast<std::size_t>(max_bytes_);
    reader_ = std::make_unique<tidewell::mbox_reader_t>(fd, keep);
    return true;
  }

  void close() {
    reader_.reset();
    if (fd_ >= 0)
      ::close(fd_);
    fd_ = -1;
  }

  bool const mbox_;
  std::uint64_t const max_bytes_;
  std::vector<tidewell::source_t> sources_;
  std::size_t at_ = 0;
  std::unique_ptr<tidewell::mbox_reader_t> reader_;
  int fd_ = -1;
  std::size_t number_ = 0;
};

// The iterator parse_many and iter_messages return.
class messages_t {
public:
  messages_t(std::unique_ptr<source_list_t> sources, unsigned jobs, settings_t const& settings)
      : sources_(std::move(sources)), pool_(std::make_unique<pool_t>(jobs, settings)) {}
  ~messages_t() { stop(); }

  record_t next() {
    if (!pool_)
      throw py::stop_iteration();
    // Fill the window; a source that fails (a wrong type, an iterator that
    // raises) ends the input, and its error is raised once the messages
    // before it are out.
    bool const refill = pool_->wants_more();
    while (refill && sources_ && !pool_->full()) {
      std::unique_ptr<task_t> task;
      try {
        task = sources_->next();
      } catch (py::error_already_set& error) {
        pending_error_ = std::make_unique<py::error_already_set>(std::move(error));
      } catch (...) {
        pending_error_exception_ = std::current_exception();
      }
      if (!task) {
        sources_.reset();
        break;
      }
      pool_->submit(std::move(task));
    }
    if (refill)
      pool_->release();
    if (pool_->empty()) {
      stop();
      if (pending_error_) {
        auto error = std::move(pending_error_);
        error->restore();
        throw py::error_already_set();
      }
      if (pending_error_exception_)
        std::rethrow_exception(std::exchange(pending_error_exception_, nullptr));
      throw py::stop_iteration();
    }
    std::unique_ptr<task_t> task;
    {
      py::gil_scoped_release const unlocked;
      task = pool_->next();
    }
    if (task->held)
      Py_DECREF(task->held);
    return std::move(task->record);
  }

  void stop() {
    sources_.reset();
    if (!pool_)
      return;
    std::vector<PyObject*> held;
    {
      py::gil_scoped_release const unlocked;
      while (!pool_->empty())
        if (PyObject* h = pool_->next()->held)
          held.push_back(h);
      pool_.reset();
    }
    for (PyObject* h : held)
      Py_DECREF(h);
  }

private:
  std::unique_ptr<source_list_t> sources_;
  std::unique_ptr<pool_t> pool_;
  std::unique_ptr<py::error_already_set> pending_error_;
  std::exception_ptr pending_error_exception_;
};

// ---------------------------------------------------------------------------
// The functions.

record_t parse_bytes(py::object const& data, std::string const& reading, bool problems, py::object const& max_bytes) {
  if (!is_data(data))
    throw py::type_error(std::string("parse takes bytes, bytearray or memoryview, not ") +
                         Py_TYPE(data.ptr())->tp_name +
                         (PyUnicode_Check(data.ptr()) ? " (parse_file reads a path)" : ""));
  settings_t const s = settings_of(reading, problems, max_bytes);
  record_t record;
  record.with_problems = s.with_problems;
  if (PyBytes_Check(data.ptr())) {
    std::string_view const bytes(PyBytes_AS_STRING(data.ptr()), std::size_t(PyBytes_GET_SIZE(data.ptr())));
    py::gil_scoped_release const unlocked;
    record.message = tidewell::parse(bytes, s.options);
  } else {
    std::string const bytes = copy_of(data);
    py::gil_scoped_release const unlocked;
    record.message = tidewell::parse(bytes, s.options);
  }
  return record;
}

record_t parse_path(py::object const& path, std::string const& reading, bool problems, py::object const& max_bytes) {
  auto const bytes = path_bytes_of(path);
  if (!bytes)
    throw py::type_error(std::string("parse_file takes a path (str or os.PathLike), not ") +
                         Py_TYPE(path.ptr())->tp_name + (is_data(path) ? " (parse reads bytes)" : ""));
  settings_t const s = settings_of(reading, problems, max_bytes);
  record_t record;
  int error = 0;
  {
    py::gil_scoped_release const unlocked;
    record = read_file(*bytes, s, error);
  }
  if (error) {
    py::object const name =
        py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefaultAndSize(bytes->data(), Py_ssize_t(bytes->size())));
    PyErr_SetObject(PyExc_OSError, py::make_tuple(error, reason(error), name).ptr());
    throw py::error_already_set();
  }
  if (!record.imported) {
    py::object const name =
        py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefaultAndSize(bytes->data(), Py_ssize_t(bytes->size())));
    PyErr_SetObject(PyExc_OSError, py::make_tuple(EINVAL, record.error, name).ptr());
    throw py::error_already_set();
  }
  return record;
}

} // namespace
} // namespace binding

PYBIND11_MODULE(_tidewell, module) {
  using namespace binding;
  // The docstrings start with their own signatures, in Python's terms.
  py::options options;
  options.disable_function_signatures();
  module.doc() = "The native part of tidewell: use the tidewell package, which re-exports it.";
  py::module_ const collections = py::module_::import("collections");
  py::module_ const datetime = py::module_::import("datetime");
  types_t& t = types();
  auto const named = [&](char const* name, char const* fields, char const* doc) {
    py::object type = collections.attr("namedtuple")(name, fields, py::arg("module") = "tidewell");
    type.attr("__doc__") = doc;
    module.attr(name) = type;
    return type;
  };
  t.address = named("Address", "name address",
                    "A mailbox: the display name (decoded; '' when none) and the address ('' when the "
                    "mailbox gives only a name).");
  t.attachment = named("Attachment", "name media_type size content_id disposition",
                       "A part that names a file: its file name, media type ('type/subtype', lower case), size "
                       "in bytes once decoded, Content-ID without angle brackets ('' when none) and "
                       "disposition ('attachment', 'inline', ...).");
  t.problem = named("Problem", "code offset text context",
                    "Something the parsers repaired or tolerated: a stable code name, the byte offset of "
                    "the header field or body part it was found in, a fixed English text, and the text "
                    "it was found in.");
  t.datetime = datetime.attr("datetime");
  t.timezone = datetime.attr("timezone");
  t.timedelta = datetime.attr("timedelta");

  py::class_<record_t> message(module, "Message", R"(One e-mail message as read by tidewell.

Fields a message lacks are None (or an empty tuple); nothing is ever a marker.
Messages compare by value, pickle, and to_dict() gives the record that
``tidewell-import --json`` prints for the same message (schema 1).)");
  message.attr("__module__") = "tidewell";
  auto const field = [&](char const* name, auto get, char const* doc) {
    message.def_property_readonly(name, get, doc);
  };
  field(
      "subject", [](record_t const& r) { return optional_text(r.message.subject); },
      "The subject, decoded; None when there is none.");
  field(
      "from_", [](record_t const& r) { return addresses_of(r.message.from); }, "From: a tuple of Address.");
  field(
      "sender", [](record_t const& r) { return addresses_of(r.message.sender); }, "Sender: a tuple of Address.");
  field(
      "reply_to", [](record_t const& r) { return addresses_of(r.message.reply_to); }, "Reply-To: a tuple of Address.");
  field(
      "to", [](record_t const& r) { return addresses_of(r.message.to); }, "To: a tuple of Address.");
  field(
      "cc", [](record_t const& r) { return addresses_of(r.message.cc); }, "Cc: a tuple of Address.");
  field(
      "bcc", [](record_t const& r) { return addresses_of(r.message.bcc); }, "Bcc: a tuple of Address.");
  field(
      "date", [](record_t const& r) { return datetime_of(r.message.date); },
      "The Date field as a timezone-aware datetime in the sender's zone; None when absent or unreadable.");
  field(
      "received", [](record_t const& r) { return datetime_of(r.message.received); },
      "The date of the first Received field that has a readable one, like date; None when none has.");
  field(
      "message_id", [](record_t const& r) { return optional_text(r.message.message_id); },
      "Message-ID without angle brackets, or None.");
  field(
      "in_reply_to", [](record_t const& r) { return optional_text(r.message.in_reply_to); },
      "The first identifier of In-Reply-To, or None.");
  field(
      "references", [](record_t const& r) { return strings_of(r.message.references); },
      "The identifiers of References, in order, without angle brackets.");
  field(
      "text", [](record_t const& r) { return optional_text(r.message.text); },
      "The readable text: the plain text, or the text of the HTML where there is no plain text; None when none.");
  field(
      "attachments", [](record_t const& r) { return attachments_of(r.message.attachments); },
      "A tuple of Attachment, every part that names a file.");
  field(
      "problems", [](record_t const& r) { return problems_of(r.message.problems); },
      "A tuple of Problem; filled only when problems=True was asked for.");
  field(
      "path", [](record_t const& r) { return path_object(r); }, "The path the message was read from, or None.");
  field(
      "number", [](record_t const& r) { return r.number ? py::object(py::int_(r.number)) : py::object(py::none()); },
      "The message's number (from 1) within an mbox, or None.");
  field(
      "imported", [](record_t const& r) { return r.imported; },
      "False when the source could not be read (error says why).");
  field(
      "error",
      [](record_t const& r) { return r.error.empty() ? py::object(py::none()) : py::object(text_of(r.error)); },
      "Why the source could not be read, or None.");
  field(
      "cut", [](record_t const& r) { return r.message.cut; }, "True when only the first max_bytes were read.");
  message.def("to_dict", &to_dict,
              "The record tidewell-import --json prints for this message (schema 1), as a dict. 'path' is None "
              "for a message parsed from bytes.");
  message.def("__repr__", &repr);
  message.def("__eq__", [](record_t const& a, py::object const& b) -> py::object {
    if (!py::isinstance<record_t>(b))
      return py::reinterpret_borrow<py::object>(Py_NotImplemented);
    return py::bool_(a == b.cast<record_t const&>());
  });
  message.attr("__hash__") = py::none();
  message.def(py::pickle([](record_t const& r) { return state_of(r); },
                         [](py::tuple const& state) { return record_of_state(state); }));

  py::class_<messages_t>(module, "MessageIterator", "Messages in input order; see parse_many.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &messages_t::next)
      .def("close", &messages_t::stop, "Stops reading; the threads are ended and what is in flight dropped.")
      .attr("__module__") = "tidewell";

  module.def("parse", &parse_bytes, py::arg("data"), py::kw_only(), py::arg("reading") = "full",
             py::arg("problems") = false, py::arg("max_bytes") = py::none(),
             R"(parse(data, *, reading="full", problems=False, max_bytes=None) -> Message

Reads one message from bytes, bytearray or memoryview. Never raises for bad
mail: malformed input is repaired or accepted. reading is "full" (what a
person reading the message sees) or "desktop" (the desktop-search host's
reading); problems=True fills Message.problems; max_bytes reads only the
start (Message.cut tells). The interpreter lock is released while parsing.
Raises TypeError for anything but a bytes-like object (a str included).)");
  module.def("parse_file", &parse_path, py::arg("path"), py::kw_only(), py::arg("reading") = "full",
             py::arg("problems") = false, py::arg("max_bytes") = py::none(),
             R"(parse_file(path, *, reading="full", problems=False, max_bytes=None) -> Message

Reads the message in the file at path (str or os.PathLike), as parse does.
Raises TypeError for a path of another type and OSError (with errno and the
path as filename) when the file cannot be read or is not a regular file.)");
  module.def(
      "parse_many",
      [](py::iterable const& sources, py::object const& jobs, std::string const& reading, bool problems,
         py::object const& max_bytes) {
        settings_t const s = settings_of(reading, problems, max_bytes);
        unsigned const n = jobs_of(jobs);
        return std::make_unique<messages_t>(std::make_unique<python_sources_t>(sources), n, s);
      },
      py::arg("sources"), py::kw_only(), py::arg("jobs") = py::none(), py::arg("reading") = "full",
      py::arg("problems") = false, py::arg("max_bytes") = py::none(),
      R"(parse_many(sources, *, jobs=None, reading="full", problems=False, max_bytes=None) -> Iterator[Message]

Parses every source of an iterable of paths (str, os.PathLike) and
bytes-like objects on jobs native threads (default: the number of
processors; with one job, the calling thread) without the interpreter lock,
and yields a Message for each, in input order. The iterable is consumed as
the results are taken, at most 32 per job ahead, so memory stays bounded
however long it is. A path that cannot
be read yields a Message with imported=False and error set; the run goes
on. An element of another type raises TypeError when its turn comes.)");
  module.def(
      "iter_messages",
      [](py::object const& path, bool mbox, py::object const& jobs, std::string const& reading, bool problems,
         py::object const& max_bytes) {
        auto const bytes = path_bytes_of(path);
        if (!bytes)
          throw py::type_error(std::string("iter_messages takes a path (str or os.PathLike), not ") +
                               Py_TYPE(path.ptr())->tp_name);
        settings_t const s = settings_of(reading, problems, max_bytes);
        unsigned const n = jobs_of(jobs);
        return std::make_unique<messages_t>(std::make_unique<walk_sources_t>(*bytes, mbox, s.options.max_bytes), n, s);
      },
      py::arg("path"), py::kw_only(), py::arg("mbox") = false, py::arg("jobs") = py::none(),
      py::arg("reading") = "full", py::arg("problems") = false, py::arg("max_bytes") = py::none(),
      R"(iter_messages(path, *, mbox=False, jobs=None, reading="full", problems=False, max_bytes=None) -> Iterator[Message]

The messages path stands for, walked exactly as tidewell-import walks it: a
file is one message; a folder or Maildir gives its mail files in byte order
of their paths (only cur/ and new/ of a Maildir; hidden files, .notmuch,
.mu and dovecot* files skipped; links followed, no folder twice). With
mbox=True each file is read as an mbox and each of its messages yielded
with Message.number set. Parsed as parse_many does.)");
  module.def(
      "list_files",
      [](py::object const& path) {
        auto const bytes = path_bytes_of(path);
        if (!bytes)
          throw py::type_error(std::string("list_files takes a path (str or os.PathLike), not ") +
                               Py_TYPE(path.ptr())->tp_name);
        std::vector<tidewell::source_t> sources;
        {
          py::gil_scoped_release const unlocked;
          tidewell::walk_counts_t counts;
          tidewell::expand(*bytes, sources, counts, false);
        }
        py::list out;
        for (tidewell::source_t const& source : sources)
          out.append(py::reinterpret_steal<py::object>(
              PyUnicode_DecodeFSDefaultAndSize(source.path.data(), Py_ssize_t(source.path.size()))));
        return out;
      },
      py::arg("path"), R"(list_files(path) -> list[str]

The files iter_messages(path) reads, in its order: path itself when it is
not a folder, else the mail files of the walk.)");
}
