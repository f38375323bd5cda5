// SPDX-License-Identifier: MIT
// The Foundation side of an import: a header map to an attribute dictionary.
//
// ImportFileAtPath has the portable core read the message (header map plus
// body text) and then applies the attribute rows through the core's
// apply_rows with the platform's own objects: strings made from the UTF-8
// bytes, keyed-subscript stores (so a later row replaces an earlier value and
// a missing string removes one), recipient lists, and dates read by one
// shared date formatter. The pieces are declared here so that tests can
// drive them with header maps the sample messages cannot produce.
#pragma once

#import <Foundation/Foundation.h>

#include <string_view>

#include "email/headers.h"

// Imports the message at path into attributes. Always YES; error is never
// written.
BOOL ImportFileAtPath(NSString* path, NSMutableDictionary* attributes, NSError** error);

namespace importer::mac {

// The attribute rows applied to one message's header map.
void store_attributes(email::header_map_t const& headers, NSMutableDictionary* attributes);

// A new (retained) string of the bytes read as UTF-8, or nil when they are
// not well-formed UTF-8 by the core's test. Leading byte order marks are kept
// as U+FEFF characters, as the core keeps them.
NSString* make_string(std::string_view bytes);

// The process-wide formatter for canonical "yyyy-MM-dd HH:mm:ss" UTC text;
// created on first use, never released.
NSDateFormatter* shared_date_formatter();

} // namespace importer::mac
