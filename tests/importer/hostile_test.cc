// SPDX-License-Identifier: MIT
// Hostile structure must not take the host down: the host's worker threads
// have small stacks, so these imports run on a 512 KiB thread.
#include <pthread.h>

#include <functional>

#include <gtest/gtest.h>

#include "importer/import.h"
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

// Nesting past the limit is left unread (the headers above it still count);
// nesting within it and a million parameters are read as usual.
TEST(hostile, deep_and_wide_structure_on_a_small_stack) {
  constexpr int million = 1'000'000;
  std::string const nested = "Content-Type: message/rfc822\n\n";
  std::string multiparts, messages, parameters = "Content-Type: text/plain";
  for (int i = 0; i < million; ++i) {
    multiparts +=
        "Content-Type: multipart/mixed; boundary=\"" + std::to_string(i) + "\"\n\n--" + std::to_string(i) + "\n";
    messages += nested;
    parameters += "; p=v";
  }
  multiparts += "Content-Type: text/plain\n\ntoo deep to read\n";
  for (int i = million - 1; i >= 0; --i)
    multiparts += "--" + std::to_string(i) + "--\n";
  std::pair<std::string, std::string> const cases[] = {
      {std::move(multiparts), "<absent>"},
      {messages + "innermost\n", "<absent>"},
      {messages.substr(0, 20 * nested.size()) +
           "Content-Type: multipart/alternative; boundary=x\n\n--x\nContent-Type: text/plain\n\nfound\n--x--\n",
       "found"},
      {std::move(parameters) + "; charset=iso-8859-1\n\ncaf\xE9\n", "caf\xC3\xA9\n"},
  };
  for (auto const& [message, text] : cases) {
    test_support::temp_file_t const file("Subject: deep\n" + message);
    importer::attribute_set_t attributes;
    run_on_small_stack([&] { importer::import_file(file.path(), attributes); });
    auto const* value = attributes.find(importer::attribute::text_content);
    EXPECT_EQ(value ? std::get<std::string>(*value) : "<absent>", text) << message.substr(0, 60);
    EXPECT_NE(attributes.find(importer::attribute::subject), nullptr) << message.substr(0, 60);
  }
}

} // namespace
