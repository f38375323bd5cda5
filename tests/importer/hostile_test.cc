// SPDX-License-Identifier: MIT
// Hostile structure must not take the host down: the host's worker threads
// have small stacks, so these imports run on a 512 KiB thread.
#include <pthread.h>

#include <functional>

#include <gtest/gtest.h>

#include "email/body.h"
#include "importer/import.h"
#include "importer/message.h"
#include "tests/support/temp_file.h"

namespace {

void run_on_small_stack(std::function<void()> work) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 512 * 1024);
  pthread_t thread;
  auto trampoline = [](void* arg) -> void* {
    (*static_cast<std::function<void()>*>(arg))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, trampoline, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

// levels multipart/mixed entities, each the only part of the one above,
// with a text/plain part at the bottom.
std::string nested_multiparts(int levels, std::string const& text) {
  std::string message;
  for (int i = 0; i < levels; ++i)
    message += "Content-Type: multipart/mixed; boundary=\"" + std::to_string(i) + "\"\n\n--" + std::to_string(i) + "\n";
  message += "Content-Type: text/plain\n\n" + text + "\n";
  for (int i = levels - 1; i >= 0; --i)
    message += "--" + std::to_string(i) + "--\n";
  return message;
}

// Nesting past the limit is left unread (the headers above it still count);
// nesting within it and a million parameters are read as usual.
TEST(hostile, deep_and_wide_structure_on_a_small_stack) {
  constexpr int million = 1'000'000;
  constexpr int limit = static_cast<int>(email::max_nesting_depth);
  std::string const nested = "Content-Type: message/rfc822\n\n";
  std::string messages, parameters = "Content-Type: text/plain";
  for (int i = 0; i < million; ++i) {
    messages += nested;
    parameters += "; p=v";
  }
  std::pair<std::string, std::string> const cases[] = {
      {nested_multiparts(million, "too deep to read"), "<absent>"},
      {nested_multiparts(1000, "found at 1000"), "found at 1000"},
      {nested_multiparts(limit, "found at the limit"), "found at the limit"},
      {nested_multiparts(limit + 1, "one too deep"), "<absent>"},
      {messages + "innermost\n", "<absent>"},
      {messages.substr(0, limit * nested.size()) + "Content-Type: text/plain\n\nat the limit\n", "at the limit\n"},
      {messages.substr(0, (limit + 1) * nested.size()) + "Content-Type: text/plain\n\ntoo deep\n", "<absent>"},
      {messages.substr(0, 20 * nested.size()) +
           "Content-Type: multipart/alternative; boundary=x\n\n--x\nContent-Type: text/plain\n\nfound\n--x--\n",
       "found"},
      // The full reading opens a returned message only for its names: the
      // same bound.
      {"Content-Type: multipart/report; boundary=r\n\n--r\n\nreport\n--r\n" + messages +
           "Content-Type: image/png; name=x.png\n\nPNG\n--r--\n",
       "report"},
      {std::move(parameters) + "; charset=iso-8859-1\n\ncaf\xE9\n", "caf\xC3\xA9\n"},
  };
  // The full reading also walks every part for its file name.
  for (auto const& [message, text] : cases) {
    test_support::temp_file_t const file("Subject: deep\n" + message);
    importer::attribute_set_t attributes;
    run_on_small_stack([&] { importer::import_file(file.path(), attributes); });
    auto const* value = attributes.find(importer::attribute::text_content);
    EXPECT_EQ(value ? std::get<std::string>(*value) : "<absent>", text) << message.substr(0, 60);
    EXPECT_NE(attributes.find(importer::attribute::subject), nullptr) << message.substr(0, 60);
    tidewell::message_t full;
    std::error_code error;
    run_on_small_stack([&] { full = tidewell::parse_file(file.path().c_str(), {}, error); });
    EXPECT_EQ(full.text.value_or("<absent>"), text) << message.substr(0, 60);
    EXPECT_TRUE(full.subject) << message.substr(0, 60);
  }
}

} // namespace
