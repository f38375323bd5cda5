// SPDX-License-Identifier: MIT
// libextract-tidewell-email.so: the Tracker 3 extract module for e-mail files.
//
// tracker-extract loads the module for files of type message/rfc822 and calls
// tracker_extract_get_metadata on its single extraction thread, inside its
// seccomp sandbox, with a 30-second deadline per file after which it kills
// the whole process. So the module only reads: it reads the file (with
// read(2), never a mapping: a file truncated while mapped would kill
// tracker-extract with SIGBUS), starts no thread, writes nothing and opens
// nothing else. The time and memory one file can take are bounded by
// reading at most max_message_bytes of it, and what it hands to Tracker by
// the contact, attachment and subject bounds (all in resource.h): Tracker's
// own serialiser takes time that grows with the square of the resources
// given, in tracker-extract and again in the file miner. No C++ exception
// may cross into tracker-extract's C frames, so the entry catches everything
// and reports a failed extraction instead.
//
// The resource is named the way Tracker's own modules name theirs, by the
// file's content identifier (filesystem and inode), which survives renames;
// tracker-extract renames it to the file's URI for its command-line output
// and to the file miner's own identifier when it stores the result.
#include <exception>
#include <string>
#include <system_error>

#include "hosts/tracker/resource.h"
#include "hosts/tracker/tracker_extract_api.h"
#include "importer/message.h"

namespace {

std::size_t max_text_bytes() {
  if (!tracker_main_get_config || !tracker_config_get_max_bytes)
    return tracker_host::default_max_text_bytes;
  TrackerConfig* config = tracker_main_get_config();
  gint const bytes = config ? tracker_config_get_max_bytes(config) : -1;
  return bytes < 0 ? tracker_host::default_max_text_bytes : static_cast<std::size_t>(bytes);
}

std::string content_identifier(GFile* file) {
  GFileInfo* info = g_file_query_info(file, G_FILE_ATTRIBUTE_ID_FILESYSTEM "," G_FILE_ATTRIBUTE_UNIX_INODE,
                                      G_FILE_QUERY_INFO_NONE, nullptr, nullptr);
  std::string identifier;
  if (info) {
    char const* filesystem = g_file_info_get_attribute_string(info, G_FILE_ATTRIBUTE_ID_FILESYSTEM);
    gchar* inode = g_file_info_get_attribute_as_string(info, G_FILE_ATTRIBUTE_UNIX_INODE);
    if (filesystem && inode)
      identifier = std::string("urn:fileid:") + filesystem + ":" + inode;
    g_free(inode);
    g_object_unref(info);
  }
  if (identifier.empty()) {
    gchar* uri = g_file_get_uri(file);
    identifier = uri;
    g_free(uri);
  }
  return identifier;
}

gboolean extract(TrackerExtractInfo* info, GError** error) {
  GFile* file = tracker_extract_info_get_file(info);
  g_autofree gchar* path = g_file_get_path(file);
  if (!path) {
    g_set_error(error, G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED, "Only local files can be read");
    return FALSE;
  }
  std::error_code read_error;
  tidewell::message_t const message = tidewell::parse_file(path, tracker_host::read_options(), read_error);
  if (read_error) {
    g_set_error(error, G_IO_ERROR, g_io_error_from_errno(read_error.value()), "Could not read the message file: %s",
                read_error.message().c_str());
    return FALSE;
  }

  std::string const identifier = content_identifier(file);
  TrackerResource* resource = tracker_host::to_resource(message, identifier.c_str(), max_text_bytes());
  tracker_extract_info_set_resource(info, resource);
  g_object_unref(resource);
  return TRUE;
}

} // namespace

extern "C" G_MODULE_EXPORT gboolean tracker_extract_get_metadata(TrackerExtractInfo* info, GError** error) {
  try {
    return extract(info, error);
  } catch (std::exception const& e) {
    g_set_error(error, G_IO_ERROR, G_IO_ERROR_FAILED, "Message not indexed: %s", e.what());
  } catch (...) {
    g_set_error(error, G_IO_ERROR, G_IO_ERROR_FAILED, "Message not indexed");
  }
  return FALSE;
}
