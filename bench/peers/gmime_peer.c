// SPDX-License-Identifier: MIT
/* The peer for the import benchmark: GMime 3 extracting the attributes that
 * tidewell-import sets, from every file below each DIR given.
 *
 * Per message: the subject, the names and addresses of From, To, Cc and Bcc,
 * the Date, the date of the first Received field, and the text of the first
 * text/plain part that is not an attachment, transfer-decoded and converted
 * to UTF-8. One line per message goes to standard output so that the peer
 * pays for writing its results as the importer does. Built by bench/run.py
 * with `cc -O2 $(pkg-config --cflags --libs gmime-3.0)`.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmime/gmime.h>

static void put_addresses(GString* line, InternetAddressList* list) {
  if (!list)
    return;
  int const count = internet_address_list_length(list);
  for (int i = 0; i < count; ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    if (INTERNET_ADDRESS_IS_GROUP(address)) {
      put_addresses(line, internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address)));
      continue;
    }
    char const* name = internet_address_get_name(address);
    char const* addr = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address));
    g_string_append_printf(line, "\t%s <%s>", name ? name : "", addr ? addr : "");
  }
}

static void put_date(GString* line, GDateTime* date) {
  if (!date) {
    g_string_append(line, "\t-");
    return;
  }
  gchar* text = g_date_time_format(date, "%Y-%m-%d %H:%M:%S");
  g_string_append_printf(line, "\t%s", text);
  g_free(text);
}

struct text_search {
  char* text;
};

static void find_text(GMimeObject* parent, GMimeObject* part, gpointer data) {
  (void)parent;
  struct text_search* search = data;
  if (search->text || !GMIME_IS_TEXT_PART(part) ||
      !g_mime_content_type_is_type(g_mime_object_get_content_type(part), "text", "plain"))
    return;
  GMimeContentDisposition* disposition = g_mime_object_get_content_disposition(part);
  if (disposition && g_mime_content_disposition_is_attachment(disposition))
    return;
  search->text = g_mime_text_part_get_text(GMIME_TEXT_PART(part));
}

static void import_file(char const* path, GString* line) {
  int const fd = open(path, O_RDONLY);
  if (fd < 0) {
    perror(path);
    return;
  }
  GMimeStream* stream = g_mime_stream_fs_new(fd);
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  g_object_unref(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, NULL);
  g_object_unref(parser);
  g_string_assign(line, path);
  if (message) {
    char const* subject = g_mime_message_get_subject(message);
    g_string_append_printf(line, "\t%s", subject ? subject : "");
    put_addresses(line, g_mime_message_get_from(message));
    put_addresses(line, g_mime_message_get_to(message));
    put_addresses(line, g_mime_message_get_cc(message));
    put_addresses(line, g_mime_message_get_bcc(message));
    put_date(line, g_mime_message_get_date(message));
    char const* received = g_mime_object_get_header(GMIME_OBJECT(message), "Received");
    char const* semicolon = received ? strrchr(received, ';') : NULL;
    GDateTime* received_date = semicolon ? g_mime_utils_header_decode_date(semicolon + 1) : NULL;
    put_date(line, received_date);
    if (received_date)
      g_date_time_unref(received_date);
    struct text_search search = {NULL};
    g_mime_message_foreach(message, find_text, &search);
    if (search.text) {
      g_string_append_printf(line, "\t%zu", strlen(search.text));
      g_free(search.text);
    }
    g_object_unref(message);
  }
  g_string_append_c(line, '\n');
  fwrite(line->str, 1, line->len, stdout);
}

static void walk(char const* path, GString* line) {
  struct stat info;
  if (stat(path, &info) != 0) {
    perror(path);
    return;
  }
  if (!S_ISDIR(info.st_mode)) {
    import_file(path, line);
    return;
  }
  struct dirent** entries;
  int const count = scandir(path, &entries, NULL, alphasort);
  for (int i = 0; i < count; ++i) {
    if (strcmp(entries[i]->d_name, ".") != 0 && strcmp(entries[i]->d_name, "..") != 0) {
      char* child = g_build_filename(path, entries[i]->d_name, NULL);
      walk(child, line);
      g_free(child);
    }
    free(entries[i]);
  }
  free(entries);
}

int main(int argc, char** argv) {
  g_mime_init();
  GString* line = g_string_new(NULL);
  for (int i = 1; i < argc; ++i)
    walk(argv[i], line);
  g_string_free(line, TRUE);
  g_mime_shutdown();
  return 0;
}
