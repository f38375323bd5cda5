#include "importer/import.h"

#include <gtest/gtest.h>

#include "importer/file_mmap.h"
#include "tests/support/temp_file.h"

namespace {

using importer::attribute_set_t;
using test_support::temp_file_t;
namespace attribute = importer::attribute;

attribute_set_t import(std::string const& message) {
  temp_file_t const file(message);
  attribute_set_t attributes;
  EXPECT_TRUE(importer::import_file(file.path(), attributes));
  return attributes;
}

std::string string_of(attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  if (!value)
    return "<absent>";
  auto const* text = std::get_if<std::string>(value);
  return text ? *text : "<not a string>";
}

TEST(import, subject_fills_subject_display_name_and_text) {
  auto const attributes = import("Subject: Quarterly report\n\nSee attached.\n");
  EXPECT_EQ(string_of(attributes, attribute::subject), "Quarterly report");
  EXPECT_EQ(string_of(attributes, attribute::display_name), "Quarterly report");
  EXPECT_EQ(attributes.size(), 3u);
}

TEST(import, empty_file_sets_nothing_and_warns) {
  temp_file_t const file("");
  attribute_set_t attributes;
  bool readable = false;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(importer::import_file(file.path(), attributes, &readable));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Warning: Trying to map file of length 0 (" + file.path() + ").\n");
  EXPECT_TRUE(attributes.empty());
  EXPECT_TRUE(readable);
}

TEST(import, unreadable_paths_set_nothing) {
  for (std::string const path : {"/nonexistent/tidewell.eml", "/tmp"}) {
    attribute_set_t attributes;
    bool readable = true;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(importer::import_file(path, attributes, &readable));
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(attributes.empty()) << path;
    EXPECT_FALSE(readable) << path;
    EXPECT_FALSE(err.empty()) << path;
  }
}

TEST(import, a_directory_maps_to_null_with_its_size) {
  testing::internal::CaptureStderr();
  importer::file_mmap_t const mapping("/tmp");
  EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("mmap: ", 0), 0u);
  EXPECT_EQ(mapping.data(), nullptr);
  EXPECT_GT(mapping.size(), 0u);
}

TEST(import, other_content_types_are_refused_untouched) {
  temp_file_t const file("Subject: x\n\n");
  for (std::string_view type : {"public.email-message", "com.apple.mail.emlx", "com.apple.mail.email "}) {
    attribute_set_t attributes;
    attributes.set("keep", std::string("me"));
    EXPECT_FALSE(importer::get_metadata_for_file(attributes, type, file.path()));
    EXPECT_EQ(attributes.size(), 1u);
  }
  attribute_set_t attributes;
  EXPECT_TRUE(importer::get_metadata_for_file(attributes, "com.apple.mail.email", file.path()));
  EXPECT_EQ(string_of(attributes, attribute::subject), "x");
}

TEST(import, ill_formed_utf8_sets_no_string) {
  // A lone encoded surrogate is the one ill-formed sequence that survives the
  // conversion to UTF-8 (it is left for the surrogate repair, which needs a
  // pair); the platform would make no string of it.
  for (std::string const bad : {"\xED\xA0\x80", "=?utf-8?q?=ED=B0=80?="}) {
    auto const attributes = import("Subject: a" + bad + "b\n\nbody\n");
    EXPECT_EQ(attributes.find(attribute::subject), nullptr);
    EXPECT_EQ(attributes.find(attribute::display_name), nullptr);
    EXPECT_EQ(string_of(attributes, attribute::text_content), "body\n");
  }
  EXPECT_EQ(string_of(import("Subject: \xEF\xBF\xBE \xF0\x9F\x98\x80\n\n"), attribute::subject),
            "\xEF\xBF\xBE \xF0\x9F\x98\x80");
}

TEST(import, crlf_message_reads_everything_as_header) {
  auto const attributes = import("Subject: s\r\n\r\nSubject: from the body\r\n");
  EXPECT_EQ(string_of(attributes, attribute::subject), "from the body");
  EXPECT_EQ(string_of(attributes, attribute::text_content), "<absent>");
}

std::optional<importer::instant_t> instant_of(attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  auto const* instant = value ? std::get_if<importer::instant_t>(value) : nullptr;
  return instant ? std::optional(*instant) : std::nullopt;
}

TEST(import, dates_become_utc_instants) {
  using namespace std::chrono;
  auto const attributes = import("Received: from a by b; Wed, 2 Jul 2003 01:15:00 +0930\n"
                                 "Received: from c by a; Tue, 1 Jul 2003 12:00:00 +0000\n"
                                 "Date: Tue, 1 Jul 03 10:52:37 PDT\n\nbody\n");
  EXPECT_EQ(instant_of(attributes, attribute::content_creation_date),
            sys_days(2003y / July / 1) + hours(17) + minutes(52) + seconds(37));
  EXPECT_EQ(instant_of(attributes, attribute::date_received), sys_days(2003y / July / 1) + hours(15) + minutes(45));
}

TEST(import, unreadable_dates_set_no_instant) {
  auto const attributes = import("Received: by b; today\nDate: the other day\n\nbody\n");
  EXPECT_EQ(attributes.find(attribute::content_creation_date), nullptr);
  EXPECT_EQ(attributes.find(attribute::date_received), nullptr);
}

TEST(canonical_date, reads_only_the_canonical_form) {
  using namespace std::chrono;
  EXPECT_EQ(importer::parse_canonical_date("2003-07-01 08:52:37"),
            sys_days(2003y / July / 1) + hours(8) + minutes(52) + seconds(37));
  EXPECT_EQ(importer::parse_canonical_date("1970-01-01 00:00:00"), sys_seconds(seconds(0)));
  for (std::string_view bad : {"", "2003-07-01", "2003-07-01T08:52:37", "2003-07-01 08:52:37 ", " 999-01-01 00:00:00",
                               "2003-02-30 00:00:00", "2003-13-01 00:00:00", "2003-07-01 24:00:00",
                               "2003-07-01 08:60:00", "2003-07-01 08:52:60", "+003-07-01 08:52:37"})
    EXPECT_FALSE(importer::parse_canonical_date(bad)) << bad;
}

TEST(well_formed_utf8, follows_the_unicode_table) {
  for (std::string_view good : {"", "ascii", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF",
                                "\xED\x9F\xBF", "\xEF\xBF\xBF"})
    EXPECT_TRUE(importer::is_well_formed_utf8(good)) << good;
  for (std::string_view bad : {"\x80", "\xC3", "\xC1\xBF", "\xE0\x80\xAF", "\xED\xB0\x80", "\xF8\x88\x80\x80\x80",
                               "\xF4\x90\x80\x80", "a\xE2\x82"})
    EXPECT_FALSE(importer::is_well_formed_utf8(bad)) << testing::PrintToString(bad);
}

} // namespace

namespace {

// A message in memory imports exactly as a file with the same bytes.
TEST(import_bytes, matches_the_file_import) {
  for (std::string const& message :
       {std::string("Subject: Memo\nFrom: Ann <ann@x>\nDate: Tue, 14 Oct 2025 09:12:40 +0200\n\nBody\n"),
        std::string("Subject: only headers\n"), std::string("\n\nno headers\n"), std::string()}) {
    temp_file_t const file(message);
    attribute_set_t from_file, from_bytes;
    testing::internal::CaptureStderr();
    importer::import_file(file.path(), from_file);
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(importer::import_bytes(message.data(), message.data() + message.size(), from_bytes));
    EXPECT_EQ(from_bytes.size(), from_file.size()) << message;
    for (auto const& [name, value] : from_file) {
      auto const* other = from_bytes.find(name);
      EXPECT_TRUE(other && *other == value) << name;
    }
    EXPECT_EQ(importer::parse_email_bytes(message.data(), message.data() + message.size(), importer::wanted_headers()),
              importer::parse_email(file.path(), importer::wanted_headers()));
  }
}

} // namespace
