// SPDX-License-Identifier: MIT
#include "hosts/cli/driver.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "hosts/cli/console.h"
#include "hosts/cli/output.h"
#include "importer/mbox.h"
#include "importer/record.h"
#include "importer/walk.h"

namespace cli {
namespace {

using tidewell::mbox_reader_t;
using tidewell::source_t;

// A walk or an mbox read gives up once SIGINT or SIGTERM came.
bool stopping() {
  return stop_signal() != 0;
}

using clock_t_ = std::chrono::steady_clock;

std::string reason(int error) {
  return std::error_code(error, std::generic_category()).message();
}

using tidewell::record::not_regular;

struct task_t {
  std::string path;
  // 1-based number within an mbox; 0 for a file of its own.
  std::size_t message = 0;
  // Known before reading: why the path cannot be read.
  std::string error;
  // The message itself, when it does not come from path (an mbox, stdin).
  bool in_memory = false;
  std::string bytes;
  std::uint64_t size = 0;
  // The walk's stat found a regular file there.
  bool regular = false;
  // A folder the walk could not list (error says why).
  bool folder = false;
};

struct outcome_t {
  std::string text;
  // A record too large to hold printed: the writer prints it as it writes.
  std::unique_ptr<record_t> record;
  bool imported = false;
  bool with_text = false;
  bool failed = false;
  bool folder = false;
  bool cut = false;
  std::uint64_t size = 0;
};

// Large messages take most of their memory while they are imported: the
// bytes, the decoded text and a copy or two on the way. So only one is
// imported at a time: a job that takes a message of more than big_message
// bytes (as stat or the mbox gave it, and at most the limit) waits until no
// other job imports one. Smaller messages go on alongside, and the output is
// the same as ever. What a run holds is then about one large import plus the
// records waiting to be written, not one large import per job.
constexpr std::uint64_t big_message = 16 << 20;

class big_turn_t {
public:
  explicit big_turn_t(std::uint64_t size) : held_(size > big_message) {
    if (!held_)
      return;
    std::unique_lock lock(mutex_);
    free_.wait(lock, [] { return !busy_; });
    busy_ = true;
  }
  ~big_turn_t() {
    if (!held_)
      return;
    {
      std::lock_guard const lock(mutex_);
      busy_ = false;
    }
    free_.notify_one();
  }
  big_turn_t(big_turn_t const&) = delete;
  big_turn_t& operator=(big_turn_t const&) = delete;

private:
  bool const held_;
  static inline std::mutex mutex_;
  static inline std::condition_variable free_;
  static inline bool busy_ = false;
};

// The bytes of a message to keep: the limit and one more, which tells that
// there was more.
std::size_t bytes_to_keep(settings_t const& settings) {
  return static_cast<std::size_t>(
             std::min<std::uint64_t>(settings.max_message_size, std::numeric_limits<std::size_t>::max() - 1)) +
         1;
}

// Reads fd into the start of buffer until its end or until limit bytes are
// in, and sets length; 0 or the errno of the failed read. The buffer's size
// is only ever raised, so a buffer reused from file to file is not cleared
// again for every file; it starts at expected (what stat said, or a guess)
// and never grows past limit. A regular file is read to the size stat gave,
// as a mapping of it would be: that spares it a second read to meet its end.
// A read interrupted by a stop signal ends the read with EINTR.
int read_into(int fd, std::string& buffer, std::size_t expected, std::size_t limit, std::size_t& length) {
  if (buffer.size() < std::min(expected, limit))
    buffer.resize(std::min(expected, limit));
  std::size_t done = 0;
  for (;;) {
    if (done == limit) {
      length = done;
      return 0;
    }
    if (done == buffer.size())
      buffer.resize(std::min(limit, std::max<std::size_t>(buffer.size() * 2, 1 << 16)));
    ssize_t const n = ::read(fd, buffer.data() + done, std::min(buffer.size(), limit) - done);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (n == 0) {
      length = done;
      return 0;
    } else if (errno != EINTR || stop_signal()) {
      return errno;
    }
  }
}

// Reads fd into buffer, to its end or to limit bytes; 0 or the errno of the
// failed read.
int read_all(int fd, std::string& buffer, std::size_t limit) {
  buffer.clear();
  std::size_t length = 0;
  int const error = read_into(fd, buffer, 1 << 16, limit, length);
  if (error == 0)
    buffer.resize(length);
  return error;
}

// Lets the importer open the file itself, for the cases where its own
// diagnostic line on standard error is what the user expects to see (the
// file cannot be opened, or is empty); ours follows it when it failed.
std::string through_importer(std::string const& path, importer::attribute_set_t& attributes,
                             importer::options_t const& options, int error) {
  std::string result;
  with_stderr([&] {
    bool readable = false;
    importer::import_file(path, attributes, options, &readable);
    if (!readable) {
      result = reason(error ? error : EIO);
      report_locked(path, result);
    }
  });
  return result;
}

// Reads the regular file at path (at most limit bytes of it) and hands its
// bytes to read(first, last);
// the reason it could not be read, already reported, or empty. Nothing but a
// regular file is ever opened (stat says so first, unless the walk that found
// the path just did), and the open cannot block: a FIFO put in its place after
// the stat is caught by fstat. When the file cannot be opened or is empty,
// unopened(errno, or 0 for an empty file) stands in for read and gives the
// reason, already reported.
template <typename Read, typename Unopened>
std::string read_path(std::string const& path, bool known_regular, std::size_t limit, Read&& read,
                      Unopened&& unopened) {
  struct stat info;
  if (!known_regular && ::stat(path.c_str(), &info) != 0)
    return unopened(errno);
  std::string error;
  if (!known_regular && !S_ISREG(info.st_mode)) {
    error = not_regular(info.st_mode);
  } else if (int const fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); fd < 0) {
    return unopened(errno);
  } else {
    if (::fstat(fd, &info) != 0) {
      int const fstat_error = errno;
      ::close(fd);
      return unopened(fstat_error);
    }
    if (!S_ISREG(info.st_mode)) {
      error = not_regular(info.st_mode);
    } else if (info.st_size == 0) {
      ::close(fd);
      return unopened(0);
    } else {
      // One buffer per thread, reused: most messages are small, and a large
      // one should not stay allocated while its record is printed, nor for
      // the rest of the run.
      thread_local std::string buffer;
      std::size_t const size = static_cast<std::size_t>(std::min<std::uint64_t>(info.st_size, limit));
      big_turn_t const turn(size);
      std::size_t length = 0;
      try {
        if (int const read_error = read_into(fd, buffer, size, size, length))
          error = reason(read_error);
        else
          read(buffer.data(), buffer.data() + length);
      } catch (...) {
        // Out of memory, most likely: let the buffer go before the next file.
        std::string().swap(buffer);
        ::close(fd);
        throw;
      }
      if (buffer.capacity() > (4u << 20))
        std::string().swap(buffer);
    }
    ::close(fd);
  }
  if (!error.empty())
    report(path, error);
  return error;
}

// The desktop reading of a task into record.attributes (and problems).
void read_desktop(task_t const& task, settings_t const& settings, record_t& record) {
  quern::error::handler_t problems;
  importer::options_t options = settings.import;
  if (settings.problems)
    options.problems = &problems;
  // The desktop host has no notion of a cut message, so the record says it
  // beside the attributes, which are those of the start that was read.
  auto const import = [&](char const* first, char const* last) {
    record.cut = static_cast<std::uint64_t>(last - first) > settings.max_message_size;
    if (record.cut)
      last = first + settings.max_message_size;
    importer::import_bytes(first, last, record.attributes, options);
  };
  if (task.in_memory) {
    big_turn_t const turn(task.bytes.size());
    import(task.bytes.data(), task.bytes.data() + task.bytes.size());
  } else {
    record.error = read_path(task.path, task.regular, bytes_to_keep(settings), import,
                             [&](int error) { return through_importer(task.path, record.attributes, options, error); });
  }
  if (settings.problems) {
    record.problems.emplace();
    problems.get_errors({}, *record.problems);
  }
}

// The full reading of a task into record.full; the reading cuts what is
// longer than its max_bytes, the limit, and says so.
void read_full(task_t const& task, settings_t const& settings, record_t& record) {
  tidewell::message_t& message = *record.full;
  if (task.in_memory) {
    big_turn_t const turn(task.bytes.size());
    message = tidewell::parse(task.bytes, settings.message);
    return;
  }
  record.error = read_path(
      task.path, task.regular, bytes_to_keep(settings),
      [&](char const* first, char const* last) {
        message = tidewell::parse({first, static_cast<std::size_t>(last - first)}, settings.message);
      },
      [&](int error) {
        if (error == 0) // an empty file is an empty message
          return std::string();
        std::string const why = reason(error);
        report(task.path, why);
        return why;
      });
}

void print(record_t const& record, settings_t const& settings, printer_t& printer) {
  if (settings.json)
    print_json_line(record, printer);
  else
    print_listing(record, printer);
}

// The outcome of a record: its counts, and its printed form (or the record
// itself, when it is too large to hold printed).
outcome_t finish_record(record_t record, task_t const& task, settings_t const& settings) {
  outcome_t outcome;
  outcome.imported = record.imported;
  outcome.with_text = record.full ? record.full->text && !record.full->text->empty()
                                  : record.attributes.find(importer::attribute::text_content) != nullptr;
  outcome.failed = !record.error.empty();
  outcome.folder = task.folder;
  outcome.cut = record.cut || (record.full && record.full->cut);
  outcome.size = task.size;
  if (printed_size(record) > printer_t::spill_at) {
    outcome.record = std::make_unique<record_t>(std::move(record));
  } else {
    printer_t printer;
    print(record, settings, printer);
    outcome.text = std::move(printer.text);
  }
  return outcome;
}

outcome_t build(task_t const& task, settings_t const& settings) {
  record_t record(task.path, false, {});
  record.message = task.message;
  record.error = task.error;
  if (settings.full) {
    record.full.emplace();
    record.full_problems = settings.problems;
  }
  if (!record.error.empty()) {
    report(task.message ? task.path + ":" + std::to_string(task.message) : task.path, record.error);
  } else if (settings.content_type == importer::mail_content_type) {
    if (settings.full)
      read_full(task, settings, record);
    else
      read_desktop(task, settings, record);
    record.imported = record.error.empty();
    // Imported, but not whole: a script should learn of it from the exit
    // status, as it would of a file it could not read.
    if (record.cut || (record.full && record.full->cut))
      report(task.message ? task.path + ":" + std::to_string(task.message) : task.path,
             "cut: only the first " + std::to_string(settings.max_message_size) +
                 " bytes were read (--max-message-size)");
  }
  return finish_record(std::move(record), task, settings);
}

// The one place a record is built: a task in, its printed form out. A
// message that needs more memory than there is fails alone: its record says
// why and the run goes on, as for a file that cannot be read.
outcome_t process(task_t const& task, settings_t const& settings) {
  std::string why;
  try {
    return build(task, settings);
  } catch (std::bad_alloc const&) {
    why = "not enough memory to import it";
  } catch (std::exception const& e) {
    why = e.what();
  }
  report(task.message ? task.path + ":" + std::to_string(task.message) : task.path, why);
  record_t record(task.path, false, {});
  record.message = task.message;
  record.error = std::move(why);
  if (settings.full)
    record.full.emplace();
  return finish_record(std::move(record), task, settings);
}

std::string megabytes(double bytes) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f", bytes / 1e6);
  return buffer;
}

// Runs tasks, on worker threads when there is more than one job, and hands
// their outcomes to the writer in submission order. Workers take tasks in
// batches: most messages take a few microseconds, and handing them over one
// at a time cost a wake-up of the writer and of a worker for each, which
// took as much system time as the imports themselves.
class scheduler_t {
public:
  scheduler_t(settings_t const& settings, std::uint64_t total_bytes, std::size_t total_files)
      : settings_(settings), total_bytes_(total_bytes), total_files_(total_files), start_(clock_t_::now()) {
    // With more than one job, the writer's thread is one of them: it takes a
    // batch itself rather than wait for one, so exactly `jobs` threads run.
    if (settings_.jobs > 1)
      for (unsigned i = 1; i < settings_.jobs; ++i)
        workers_.emplace_back([this] { work(); });
  }
  ~scheduler_t() { stop(); }

  // False once output failed: nothing more is worth doing.
  // False once output failed or a stop signal came: nothing more is worth
  // doing.
  bool submit(task_t task) {
    if (out_.error() || stop_signal())
      return false;
    if (workers_.empty()) {
      outcome_t const outcome = process(task, settings_);
      if (!stop_signal())
        write(outcome);
      return !out_.error() && !stop_signal();
    }
    if (!pending_)
      pending_ = std::make_unique<slot_t>();
    pending_bytes_ += task.size + task.bytes.size();
    pending_->tasks.push_back(std::move(task));
    if (pending_->tasks.size() >= batch_tasks || pending_bytes_ >= batch_bytes)
      dispatch();
    return !out_.error() && !stop_signal();
  }

  // Writes everything still in flight, then the summary; the exit status.
  // After a stop signal what is in flight is dropped: every record written
  // is whole, and no more are.
  int finish(std::size_t skipped) {
    if (pending_ && !stop_signal())
      dispatch();
    while (!window_.empty() && !out_.error() && !stop_signal())
      write_finished(true);
    stop();
    out_.flush();
    if (settings_.progress)
      clear_progress();
    if (int const error = out_.error())
      report("standard output", reason(error));
    if (settings_.summary) {
      double const seconds = std::chrono::duration<double>(clock_t_::now() - start_).count();
      char line[256];
      std::snprintf(line, sizeof line, "%zu %s, %zu imported, %zu with text, %zu unreadable", records_,
                    settings_.mbox ? "messages" : "files", imported_, with_text_, failed_);
      std::string text = line;
      if (cut_)
        text += ", " + std::to_string(cut_) + " cut";
      if (folders_)
        text += ", " + std::to_string(folders_) + " unreadable folders";
      if (skipped)
        text += ", " + std::to_string(skipped) + " skipped";
      std::snprintf(line, sizeof line, ", %.1f s", seconds);
      text += line;
      with_stderr([&] { std::fprintf(stderr, "%s\n", text.c_str()); });
    }
    if (int const signal = stop_signal())
      return 128 + signal;
    return failed_ || cut_ || folders_ || out_.error() ? 1 : 0;
  }

private:
  // A batch ends at 4 tasks or 4 MiB of known sizes, and eight batches per
  // job are in flight: at most 64 records are held at once with two jobs.
  // Small batches in a deep window rather than large ones in a shallow
  // window: message sizes vary a hundredfold, and when the oldest batch in
  // flight is a slow one, the writer's thread can only go on importing
  // while there are later batches it is allowed to take. With two batches
  // of 16 per job it ran out of them and waited, idle, for about 4% of a
  // -j 2 run; the records held are as many as before.
  static constexpr std::size_t batch_tasks = 4;
  static constexpr std::size_t batches_per_job = 8;
  static constexpr std::uint64_t batch_bytes = 4 << 20;

  // A batch of tasks and, once a worker is through with it, their outcomes.
  struct slot_t {
    std::vector<task_t> tasks;
    std::vector<outcome_t> outcomes;
    bool done = false;
  };

  // Hands the pending batch to the workers and writes what is finished,
  // waiting for the oldest batch when enough are in flight.
  void dispatch() {
    {
      std::lock_guard const lock(mutex_);
      queue_.push_back(pending_.get());
    }
    window_.push_back(std::move(pending_));
    pending_bytes_ = 0;
    work_ready_.notify_one();
    write_finished(window_.size() >= settings_.jobs * batches_per_job);
  }

  void work() {
    block_stop_signals();
    for (;;) {
      slot_t* slot;
      {
        std::unique_lock lock(mutex_);
        work_ready_.wait(lock, [this] { return closing_ || !queue_.empty(); });
        if (queue_.empty())
          return;
        slot = queue_.front();
        queue_.pop_front();
      }
      run(*slot);
    }
  }

  void run(slot_t& slot) {
    std::vector<outcome_t> outcomes;
    outcomes.reserve(slot.tasks.size());
    for (task_t& task : slot.tasks) {
      // After a stop signal nothing more is written: the rest is not read.
      if (stop_signal())
        break;
      outcomes.push_back(process(task, settings_));
      // The bytes of an mbox message are not needed any more.
      std::string().swap(task.bytes);
    }
    {
      std::lock_guard const lock(mutex_);
      slot.outcomes = std::move(outcomes);
      slot.done = true;
    }
    done_.notify_all();
  }

  // Writes the finished batches at the front of the window; with wait, at
  // least the first one, running queued batches itself until it is done.
  void write_finished(bool wait) {
    while (!window_.empty() && !out_.error() && !stop_signal()) {
      slot_t* own = nullptr;
      {
        std::unique_lock lock(mutex_);
        if (!window_.front()->done) {
          if (!wait)
            return;
          if (queue_.empty()) {
            done_.wait(lock, [this] { return window_.front()->done; });
          } else {
            own = queue_.front();
            queue_.pop_front();
          }
        }
      }
      if (own) {
        run(*own);
        continue;
      }
      for (outcome_t const& outcome : window_.front()->outcomes)
        if (!out_.error() && !stop_signal())
          write(outcome);
      window_.pop_front();
      wait = false;
    }
  }

  void write(outcome_t const& outcome) {
    if (outcome.record) {
      printer_t printer;
      printer.spill = [this](std::string_view bytes) { out_.write(bytes); };
      print(*outcome.record, settings_, printer);
      printer.finish();
    } else {
      out_.write(outcome.text);
    }
    // A folder that could not be listed is reported and fails the run, but
    // it is not a file (nor a message).
    if (outcome.folder) {
      ++folders_;
    } else {
      ++records_;
      imported_ += outcome.imported;
      with_text_ += outcome.with_text;
      failed_ += outcome.failed;
      cut_ += outcome.cut;
    }
    bytes_done_ += outcome.size;
    if (settings_.progress)
      draw_progress();
  }

  void draw_progress() {
    auto const now = clock_t_::now();
    if (now - last_drawn_ < std::chrono::milliseconds(100))
      return;
    last_drawn_ = now;
    double const seconds = std::chrono::duration<double>(now - start_).count();
    double const rate = seconds > 0 ? double(bytes_done_) / seconds : 0;
    std::string line = settings_.mbox ? std::to_string(records_) + " messages, " + megabytes(double(bytes_done_)) +
                                            " of " + megabytes(double(total_bytes_)) + " MB"
                                      : std::to_string(records_) + " of " + std::to_string(total_files_) + " files";
    line += ", " + megabytes(rate) + " MB/s";
    if (rate > 0 && total_bytes_ > bytes_done_) {
      long const left = long(double(total_bytes_ - bytes_done_) / rate);
      char buffer[48];
      std::snprintf(buffer, sizeof buffer, ", %ld:%02ld left", left / 60, left % 60);
      line += buffer;
    }
    show_progress(line);
  }

  void stop() {
    {
      std::lock_guard const lock(mutex_);
      closing_ = true;
      queue_.clear();
    }
    work_ready_.notify_all();
    for (std::thread& worker : workers_)
      worker.join();
    workers_.clear();
  }

  settings_t const& settings_;
  std::uint64_t const total_bytes_;
  std::size_t const total_files_;
  clock_t_::time_point const start_;
  clock_t_::time_point last_drawn_{};
  stdout_t out_;

  std::mutex mutex_;
  std::condition_variable work_ready_, done_;
  std::deque<slot_t*> queue_;
  bool closing_ = false;
  std::vector<std::thread> workers_;
  // Submitted and not yet written, in order; only the main thread changes it.
  std::deque<std::unique_ptr<slot_t>> window_;

  std::size_t records_ = 0, imported_ = 0, with_text_ = 0, failed_ = 0, cut_ = 0, folders_ = 0;
  std::uint64_t bytes_done_ = 0;
  // The batch being filled, and the sizes of its tasks.
  std::unique_ptr<slot_t> pending_;
  std::uint64_t pending_bytes_ = 0;
};

// Opens what an mbox or "-" names for reading; -1 with error set when it
// cannot or must not be read.
int open_source(std::string const& path, std::string& error) {
  if (path == "-")
    return 0;
  return tidewell::record::open_regular(path, error);
}

// Every message of the mbox at path as its own task; each keeps at most the
// limit and one byte more, which tells that it was cut.
bool submit_mbox(scheduler_t& scheduler, std::string const& path, settings_t const& settings) {
  std::string error;
  int const fd = open_source(path, error);
  if (fd < 0)
    return scheduler.submit({path, 0, error, false, {}, 0});
  mbox_reader_t reader(fd, bytes_to_keep(settings) - 1, stopping);
  std::size_t number = 0;
  std::string message;
  bool going = true;
  try {
    while (going && reader.next(message)) {
      std::uint64_t const size = message.size();
      going = scheduler.submit({path, ++number, {}, true, std::move(message), size});
      message.clear();
    }
    error = reader.error() ? reason(reader.error()) : std::string();
  } catch (std::bad_alloc const&) {
    error = "not enough memory to read it";
  }
  if (going && !error.empty())
    going = scheduler.submit({path, 0, error, false, {}, 0});
  if (fd != 0)
    ::close(fd);
  return going;
}

// Standard input as one message, of which at most the limit and one byte
// more are read.
bool submit_stdin(scheduler_t& scheduler, settings_t const& settings) {
  task_t task{"-", 0, {}, true, {}, 0};
  try {
    if (int const error = read_all(0, task.bytes, bytes_to_keep(settings)))
      task.error = reason(error);
  } catch (std::bad_alloc const&) {
    std::string().swap(task.bytes);
    task.error = "not enough memory to read it";
  }
  task.size = task.bytes.size();
  return scheduler.submit(std::move(task));
}

} // namespace

int run(std::vector<std::string> const& paths, settings_t const& settings) {
  std::vector<source_t> sources;
  tidewell::walk_counts_t counts;
  for (std::string const& path : paths)
    tidewell::expand(path, sources, counts, settings.progress, stopping);
  std::uint64_t total_bytes = 0;
  std::size_t files = 0;
  for (source_t const& source : sources) {
    total_bytes += source.size;
    files += !source.folder;
  }

  scheduler_t scheduler(settings, total_bytes, files);
  for (source_t const& source : sources) {
    bool const going =
        !source.error.empty() ? scheduler.submit({source.path, 0, source.error, false, {}, 0, false, source.folder})
        : settings.mbox       ? submit_mbox(scheduler, source.path, settings)
        : source.path == "-"  ? submit_stdin(scheduler, settings)
                              : scheduler.submit({source.path, 0, {}, false, {}, source.size, source.regular});
    if (!going)
      break;
  }
  return scheduler.finish(counts.skipped);
}

} // namespace cli
