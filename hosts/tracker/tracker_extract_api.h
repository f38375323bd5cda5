// SPDX-License-Identifier: MIT
// The part of tracker-extract's module interface that this module uses.
//
// tracker-miners installs no headers for its extractor modules: the library
// behind them (libtracker-extract) is private to the tracker-extract-3
// process. So the few functions the module calls are declared here with the
// signatures Tracker 3.4 gives them; they are left undefined in the module and
// resolve when tracker-extract-3 loads it. Everything else the module builds
// with is libtracker-sparql-3.0's public TrackerResource API.
//
// The two configuration accessors live in the tracker-extract-3 executable
// itself. They are weak, so the module still loads (and falls back to
// Tracker's default text size) in a process that does not provide them.
#pragma once

#include <gio/gio.h>
#include <gmodule.h>
#include <libtracker-sparql/tracker-sparql.h>

extern "C" {

typedef struct _TrackerExtractInfo TrackerExtractInfo;
typedef struct _TrackerConfig TrackerConfig;

GFile* tracker_extract_info_get_file(TrackerExtractInfo* info);
gchar const* tracker_extract_info_get_mimetype(TrackerExtractInfo* info);
void tracker_extract_info_set_resource(TrackerExtractInfo* info, TrackerResource* resource);

TrackerConfig* tracker_main_get_config(void) __attribute__((weak));
gint tracker_config_get_max_bytes(TrackerConfig* config) __attribute__((weak));

// The entry tracker-extract looks up in every module it loads.
G_MODULE_EXPORT gboolean tracker_extract_get_metadata(TrackerExtractInfo* info, GError** error);
}
