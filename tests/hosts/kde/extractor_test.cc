// SPDX-License-Identifier: MIT
// The extractor as Baloo runs it: loaded by KFileMetaData's own
// ExtractorCollection from QT_PLUGIN_PATH and run into a
// SimpleExtractionResult. Every corpus message is checked against what
// tidewell::parse_file reads from it, with standard output empty throughout,
// as it is baloo_file_extractor's pipe to the indexer.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <KFileMetaData/Extractor>
#include <KFileMetaData/ExtractorCollection>
#include <KFileMetaData/SimpleExtractionResult>
#include <QCoreApplication>
#include <QDateTime>
#include <QTemporaryDir>

#include "hosts/kde/message.h"
#include "importer/message.h"
#include "tests/support/messages.h"
#include "text/utf8.h"

namespace {

namespace fs = std::filesystem;
using KFileMetaData::ExtractionResult;
using KFileMetaData::SimpleExtractionResult;
namespace property = KFileMetaData::Property;

constexpr char mime_type[] = "message/rfc822";
fs::path const source_dir = TIDEWELL_SOURCE_DIR;

KFileMetaData::Extractor& extractor() {
  static KFileMetaData::ExtractorCollection collection;
  static QList<KFileMetaData::Extractor*> const found = collection.fetchExtractors(QString::fromLatin1(mime_type));
  if (found.size() != 1) {
    ADD_FAILURE() << found.size() << " extractors for " << mime_type
                  << "; QT_PLUGIN_PATH=" << (getenv("QT_PLUGIN_PATH") ? getenv("QT_PLUGIN_PATH") : "(unset)");
    std::abort();
  }
  return *found.front();
}

// A SimpleExtractionResult that also counts what Baloo would store of the
// text: the UTF-8 bytes of each appended piece, with nothing between them
// (the joined text() adds a space after every piece; Baloo does not).
class result_t : public SimpleExtractionResult {
public:
  using SimpleExtractionResult::SimpleExtractionResult;
  void append(QString const& text) override {
    stored_bytes += static_cast<std::size_t>(text.toUtf8().size());
    SimpleExtractionResult::append(text);
  }
  std::size_t stored_bytes = 0;
};

result_t extract(fs::path const& path, ExtractionResult::Flags flags = ExtractionResult::ExtractMetaData |
                                                                       ExtractionResult::ExtractPlainText) {
  result_t result(QString::fromStdString(path.string()), QString::fromLatin1(mime_type), flags);
  extractor().extract(&result);
  return result;
}

QStringList strings(SimpleExtractionResult const& result, property::Property key) {
  QStringList values;
  for (QVariant const& value : result.properties(KFileMetaData::MultiMap).values(key))
    values.prepend(value.toString()); // a multi-map lists the latest first
  return values;
}

// Properties only when metadata is asked for, text only when text is; files
// that cannot be read as messages give nothing.
TEST(kde_extractor, gives_only_what_is_asked_for_and_there) {
  QTemporaryDir dir;
  fs::path const folder = dir.path().toStdString(), plain = source_dir / "examples" / "plain.eml";
  std::ofstream(folder / "empty.eml").flush();
  struct {
    fs::path path;
    ExtractionResult::Flags flags;
    bool properties, text;
  } const cases[] = {
      {plain, ExtractionResult::ExtractMetaData, true, false},
      {plain, ExtractionResult::ExtractPlainText, false, true},
      {folder / "missing.eml", ExtractionResult::ExtractMetaData | ExtractionResult::ExtractPlainText, false, false},
      {folder, ExtractionResult::ExtractMetaData | ExtractionResult::ExtractPlainText, false, false},
      {folder / "empty.eml", ExtractionResult::ExtractMetaData | ExtractionResult::ExtractPlainText, false, false},
  };
  for (auto const& c : cases) {
    result_t const result = extract(c.path, c.flags);
    EXPECT_EQ(!result.properties(KFileMetaData::MultiMap).isEmpty(), c.properties) << c.path;
    EXPECT_EQ(result.text().contains(QStringLiteral("Hiring plan")), c.text) << c.path;
  }
}

// A text beyond Baloo's limit is cut below it, at a space where there is
// one, after the recipients and attachment names have had their place; a
// text without spaces is cut too, never inside a character.
TEST(kde_extractor, long_text_stays_below_the_limit) {
  QTemporaryDir dir;
  fs::path const path = fs::path(dir.path().toStdString()) / "long.eml";
  for (std::string const line : {"Grüße über den Fluß, eine Zeile von Wörtern\n", "雨の日の港の灯台"}) {
    SCOPED_TRACE(line);
    {
      std::ofstream file(path, std::ios::binary | std::ios::trunc);
      file << "From: a@example.com\nTo: Zoë Last <zoe@example.org>\nSubject: long\n"
              "Content-Type: text/plain; charset=utf-8\n\n";
      for (std::size_t written = 0; written < kde_host::max_text_bytes + 4096; written += line.size())
        file << line;
    }
    result_t const result = extract(path);
    std::string const text = result.text().toStdString();
    EXPECT_LT(result.stored_bytes, kde_host::max_text_bytes);
    EXPECT_GT(result.stored_bytes, kde_host::max_text_bytes - 128);
    EXPECT_EQ(text.rfind("Zoë Last <zoe@example.org>", 0), 0u);
    EXPECT_EQ(text.find("\xEF\xBF\xBD"), std::string::npos); // no character cut in two
  }
}

// 1,200 senders, 100,000 recipients and a subject past its bound: 1,000
// Author entries, the rest of the senders and every recipient in the text,
// the Title and Subject cut before the character the bound would split.
TEST(kde_extractor, many_mailboxes_and_a_long_subject_are_bounded) {
  QTemporaryDir dir;
  fs::path const path = fs::path(dir.path().toStdString()) / "everyone.eml";
  {
    std::ofstream file(path, std::ios::binary);
    file << "From: Sender 0 <sender0@example.org>";
    for (int i = 1; i < 1200; ++i)
      file << ",\n Sender " << i << " <sender" << i << "@example.org>";
    file << "\nTo: Reader 0 <reader0@example.org>";
    for (int i = 1; i < 100000; ++i)
      file << ",\n Reader " << i << " <reader" << i << "@example.org>";
    file << "\nSubject: " << std::string(kde_host::max_subject_bytes - 1, 's') << "é and more\n"
         << "Content-Type: text/plain; charset=utf-8\n\nThe harbour opens at dawn.\n";
  }
  result_t const result = extract(path);
  QStringList const authors = strings(result, property::Author);
  EXPECT_EQ(authors.size(), 1000);
  EXPECT_EQ(authors.back(), QStringLiteral("Sender 999 <sender999@example.org>"));
  QString const subject = QString::fromStdString(std::string(kde_host::max_subject_bytes - 1, 's'));
  EXPECT_EQ(strings(result, property::Title), QStringList{subject});
  EXPECT_EQ(strings(result, property::Subject), QStringList{subject});
  std::string const text = result.text().toStdString();
  EXPECT_EQ(text.rfind("Sender 1000 <sender1000@example.org>, Sender 1001 <", 0), 0u);
  EXPECT_EQ(text.find("Sender 999 <"), std::string::npos);
  EXPECT_NE(text.find(", Reader 0 <reader0@example.org>, Reader 1 <"), std::string::npos);
  EXPECT_NE(text.find("Reader 99999 <reader99999@example.org>"), std::string::npos);
  EXPECT_NE(text.find("The harbour opens at dawn."), std::string::npos);
  EXPECT_LT(result.stored_bytes, kde_host::max_text_bytes);
}

TEST(kde_extractor, cut_text) {
  struct {
    std::string text;
    std::size_t max;
    std::string expected;
  } const cases[] = {
      {"two words", 6, "two"},                           // back to the space
      {"naïve", 3, "na"},                                // not inside the two-byte ï
      {"a 🙂", 4, "a"},                                // the whole four-byte character goes, then back to the space
      {std::string(100, 'x'), 80, std::string(80, 'x')}, // no space near: cut in the word
      {"a " + std::string(100, 'x'), 80, "a " + std::string(78, 'x')},
  };
  for (auto const& c : cases)
    EXPECT_EQ(kde_host::cut_text(c.text, c.max), c.expected) << c.text << " / " << c.max;
}

// Every corpus message, in one process as Baloo runs them: nothing on
// standard output, and what reaches the result is what the core imported.
TEST(kde_extractor, corpus) {
  std::vector<std::string> const paths = test_support::message_paths(false);
  if (paths.empty())
    GTEST_SKIP() << "no shared corpus beside the source folder";

  std::fflush(stdout);
  int const saved_stdout = ::dup(1);
  std::FILE* const capture = std::tmpfile();
  ASSERT_TRUE(capture);
  ::dup2(fileno(capture), 1);

  std::size_t with_title = 0, with_text = 0;
  for (std::string const& path : paths) {
    SCOPED_TRACE(path);
    result_t const result = extract(path);
    std::error_code error;
    tidewell::message_t const core = tidewell::parse_file(path.c_str(), kde_host::read_options(), error);
    ASSERT_FALSE(error) << error.message();

    QStringList const expected_title =
        core.subject
            ? QStringList{QString::fromStdString(std::string(text::cut(*core.subject, kde_host::max_subject_bytes)))}
            : QStringList{};
    EXPECT_EQ(strings(result, property::Title), expected_title);
    EXPECT_EQ(strings(result, property::Subject), expected_title);
    with_title += !expected_title.isEmpty();

    QStringList const authors = strings(result, property::Author);
    EXPECT_EQ(authors.size(), core.from.size());
    for (tidewell::mailbox_t const& mailbox : core.from)
      EXPECT_TRUE(mailbox.address.empty() || authors.join('\n').contains(QString::fromStdString(mailbox.address)))
          << mailbox.address;

    QVariant const date = result.properties(KFileMetaData::MultiMap).value(property::CreationDate);
    EXPECT_EQ(date.isValid(), core.date.has_value());
    if (core.date && date.isValid()) {
      EXPECT_EQ(date.toDateTime().toSecsSinceEpoch(), core.date->instant.time_since_epoch().count());
    }

    std::string const text = result.text().toStdString();
    EXPECT_LT(result.stored_bytes, kde_host::max_text_bytes);
    if (core.text) {
      std::string_view const opening = kde_host::cut_text(*core.text, 200);
      EXPECT_NE(text.find(opening), std::string::npos);
      with_text += !opening.empty();
    }
    for (tidewell::attachment_t const& attachment : core.attachments)
      EXPECT_NE(text.find(attachment.file_name), std::string::npos) << attachment.file_name;
  }

  std::fflush(stdout);
  ::dup2(saved_stdout, 1);
  ::close(saved_stdout);
  // The failures of the checks above were written there too: show them.
  std::string written(4096, '\0');
  std::rewind(capture);
  written.resize(std::fread(written.data(), 1, written.size(), capture));
  std::fclose(capture);
  EXPECT_EQ(written, "") << "written to standard output";
  std::printf("%zu messages: %zu with a title, %zu with text\n", paths.size(), with_title, with_text);
  EXPECT_GT(with_title, paths.size() / 2);
  EXPECT_GT(with_text, paths.size() / 2);
}

// Whether process pid has path open or mapped.
bool holds(pid_t pid, fs::path const& path) {
  std::string const proc = "/proc/" + std::to_string(pid);
  std::error_code error;
  for (fs::directory_iterator it(proc + "/fd", error), end; !error && it != end; it.increment(error))
    if (fs::read_symlink(it->path(), error) == path)
      return true;
  std::ifstream maps(proc + "/maps");
  for (std::string line; std::getline(maps, line);)
    if (line.find(path.string()) != std::string::npos)
      return true;
  return false;
}

// A large message, truncated again and again while a process of its own
// extracts it, as baloo_file_extractor would: whatever the extractor then
// reads, the process ends normally and never by a signal (a mapped file
// whose pages go away raises SIGBUS).
TEST(kde_extractor, file_truncated_while_read_ends_normally) {
  QTemporaryDir dir;
  fs::path const path = fs::path(dir.path().toStdString()) / "night-log.eml";
  std::string const line = "The keeper counts the ships that pass the harbour wall at night, one by one.\n";
  std::string chunk;
  while (chunk.size() < (std::size_t(1) << 20))
    chunk += line;
  off_t const sizes[] = {0, 1, 4096, 0, 65536, 300, 0};
  int truncated_under = 0;
  for (int round = 0; round < 4; ++round) {
    SCOPED_TRACE(round);
    {
      std::ofstream file(path, std::ios::binary | std::ios::trunc);
      file << "From: Harbour Keeper <keeper@example.org>\nTo: desk@example.org\nSubject: The night log\n"
              "Content-Type: text/plain; charset=utf-8\n\n";
      for (int i = 0; i < 150; ++i) // past the 64 MiB the extractor reads
        file << chunk;
    }
    std::string const self = fs::read_symlink("/proc/self/exe").string();
    pid_t const child = ::fork();
    ASSERT_NE(child, -1) << std::strerror(errno);
    if (child == 0) {
      ::execl(self.c_str(), self.c_str(), "--extract", path.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int status = 0, cuts = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        FAIL() << "the extractor did not end within 30 s";
      }
      if (cuts || holds(child, path)) {
        ASSERT_EQ(::truncate(path.c_str(), sizes[cuts % std::size(sizes)]), 0) << std::strerror(errno);
        ++cuts;
        ::usleep(500);
      }
    }
    ASSERT_FALSE(WIFSIGNALED(status)) << "killed by " << strsignal(WTERMSIG(status)) << " after " << cuts << " cuts";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    truncated_under += cuts > 0;
  }
  // A round whose child read the file before it was seen holding it proves
  // nothing; every round missing it would mean nothing was tested.
  std::printf("%d of 4 rounds truncated under the extractor\n", truncated_under);
  EXPECT_GT(truncated_under, 0);
}

} // namespace

// KFileMetaData expects the application object Baloo's extractor has.
// "--extract PATH" extracts one file and exits, for a test that watches the
// extracting process from outside.
int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  if (argc == 3 && std::string_view(argv[1]) == "--extract") {
    extract(argv[2]);
    return 0;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
