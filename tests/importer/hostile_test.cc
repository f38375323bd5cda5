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

importer::attribute_set_t import_on_small_stack(std::string const& message) {
  test_support::temp_file_t const file(message);
  importer::attribute_set_t attributes;
  run_on_small_stack([&] { importer::import_file(file.path(), attributes); });
  return attributes;
}

std::string text_of(importer::attribute_set_t const& attributes) {
  auto const* value = attributes.find(importer::attribute::text_content);
  return value ? std::get<std::string>(*value) : "<absent>";
}

constexpr int million = 1'000'000;

TEST(hostile, a_million_nested_multiparts) {
  std::string message = "Subject: deep\n";
  for (int i = 0; i < million; ++i)
    message += "Content-Type: multipart/mixed; boundary=\"" + std::to_string(i) + "\"\n\n--" + std::to_string(i) + "\n";
  message += "Content-Type: text/plain\n\ntoo deep to read\n";
  for (int i = million - 1; i >= 0; --i)
    message += "--" + std::to_string(i) + "--\n";
  auto const attributes = import_on_small_stack(message);
  EXPECT_EQ(text_of(attributes), "<absent>");
  EXPECT_NE(attributes.find(importer::attribute::subject), nullptr);
}

TEST(hostile, a_million_nested_messages) {
  std::string message;
  for (int i = 0; i < million; ++i)
    message += "Content-Type: message/rfc822\n\n";
  message += "innermost\n";
  EXPECT_EQ(text_of(import_on_small_stack(message)), "<absent>");
}

TEST(hostile, nesting_within_the_limit_is_read) {
  std::string message;
  for (int i = 0; i < 20; ++i)
    message += "Content-Type: message/rfc822\n\n";
  message += "Content-Type: multipart/alternative; boundary=x\n\n--x\nContent-Type: text/plain\n\nfound\n--x--\n";
  EXPECT_EQ(text_of(import_on_small_stack(message)), "found");
}

TEST(hostile, a_million_parameters) {
  std::string message = "Content-Type: text/plain";
  for (int i = 0; i < million; ++i)
    message += "; p=v";
  message += "; charset=iso-8859-1\n\ncaf\xE9\n";
  EXPECT_EQ(text_of(import_on_small_stack(message)), "caf\xC3\xA9\n");
}

} // namespace
